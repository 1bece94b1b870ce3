/// @file
/// The library's date-time object. Always holds a UTC instant.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>

#include "foundation/base/ClsBase.h"
#include "foundation/fs/FileTime.h"

/// The library's date-time object: one instant in UTC, to the nanosecond.
///
/// `ClsFileAccess::GetFileTime` and `ClsFileAccess::GetLastModified` return a new one that
/// the caller owns and frees with `delete` (or `decRefCount`); `ClsFileAccess::SetFileTimes`
/// and `ClsFileAccess::SetLastModified` only read the ones they are given. The methods
/// declared here take no lock and log nothing: several threads may read one object at once,
/// but a call that changes it must not overlap any other use of it. Dates are in the
/// proleptic Gregorian calendar.
class FA_API ClsDateTime : public ClsBase {
public:
    /// Makes an object holding the Unix epoch, 1970-01-01T00:00:00Z.
    ClsDateTime() = default;
    /// A new object holding the Unix epoch, or null when memory for it cannot be had; nothing
    /// is logged. The caller owns it and frees it with `delete` or `decRefCount`.
    static ClsDateTime* createNewCls();

    /// Sets the object to the UTC instant that the fields of `t` name; the day of the week of
    /// `t` is ignored and the held one recomputed. The fields are not checked: outside their
    /// ranges the instant held is unspecified.
    void setFromOrvaneSysTime(const OrvaneSysTime& t);
    /// The object's own time (read for logging). The pointer is owned by the object and valid
    /// as long as it lives; writing through it changes the time unchecked, without recomputing
    /// the day of the week.
    OrvaneSysTime* getOrvaneSysTime() { return &m_time; }
    /// Sets `out` to the held instant: seconds since the Unix epoch and nanoseconds.
    void toOrvaneFileTimeUtc(OrvaneFileTime& out) const;

    /// Sets the object from calendar fields in UTC and returns true. Returns false and leaves
    /// the object unchanged unless month is 1..12, day exists in that month of that year, hour
    /// is 0..23, minute 0..59, second 0..59 and nanosecond below 1,000,000,000. Any year is
    /// taken.
    bool SetFromUtc(int year, int month, int day, int hour, int minute, int second,
                    uint32_t nanosecond = 0);
    /// Sets the object to `seconds` after the Unix epoch (before it when negative) plus
    /// `nanosecond` modulo 1,000,000,000; whole seconds in `nanosecond` are dropped, not
    /// carried. An instant whose year does not fit an `int` gives an unspecified time.
    void SetFromUnixTime(int64_t seconds, uint32_t nanosecond = 0);
    /// The held instant in whole seconds since the Unix epoch, negative before 1970; the
    /// part of a second is left out (see `GetNanoseconds`).
    int64_t GetAsUnixTime() const;
    /// The part of a second of the held instant, in nanoseconds.
    uint32_t GetNanoseconds() const { return m_time.m_nanosecond; }
    /// Replaces `out` with the held time as ISO 8601 text in UTC, such as
    /// "2026-11-23T07:06:31Z", or "2026-11-23T07:06:31.250000000Z" when the part of a second
    /// is not zero (always nine digits).
    void GetAsIso8601(XString& out) const;

private:
    OrvaneSysTime m_time;
};
