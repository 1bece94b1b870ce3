/// @file
/// Time stamps as the file-system layer hands them over.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>

class LogBase;
class OrvaneSysTime;

/// An instant: seconds since the Unix epoch plus nanoseconds, in UTC.
///
/// A plain value: copy it freely; it has no lock, so one value must not be changed by one
/// thread while another uses it. The nanoseconds are kept as given and are expected to be
/// below 1,000,000,000.
class FA_API OrvaneFileTime {
public:
    /// The Unix epoch, 1970-01-01T00:00:00Z.
    OrvaneFileTime() = default;
    /// The instant `seconds` after the epoch (before it when negative) plus `nanoseconds`.
    OrvaneFileTime(int64_t seconds, uint32_t nanoseconds) : m_sec(seconds), m_nsec(nanoseconds) {}

    /// Whole seconds since the epoch; negative before 1970.
    int64_t seconds() const { return m_sec; }
    /// The part of a second, in nanoseconds.
    uint32_t nanoseconds() const { return m_nsec; }
    /// Replaces both parts of the instant.
    void set(int64_t seconds, uint32_t nanoseconds) {
        m_sec = seconds;
        m_nsec = nanoseconds;
    }
    /// Sets every field of `out`, the day of the week included, to the same instant as a UTC
    /// calendar time in the proleptic Gregorian calendar; the nanoseconds are copied as they
    /// are and the second is never 60. Instants whose year does not fit an `int` give an
    /// unspecified result.
    void toSystemTime_gmt(OrvaneSysTime& out) const;

private:
    int64_t m_sec = 0;
    uint32_t m_nsec = 0;
};

/// A broken-down calendar time in UTC, keeping sub-second precision.
///
/// A plain value with public fields, in the proleptic Gregorian calendar; a new one holds the
/// Unix epoch. The class neither checks nor normalizes its fields: the conversions expect them
/// within the ranges given below. It has no lock, so one value must not be changed by one
/// thread while another uses it.
class FA_API OrvaneSysTime {
public:
    /// The Unix epoch: 1970-01-01 00:00:00.000000000, a Thursday.
    OrvaneSysTime() = default;
    /// Destroys the value; it owns nothing.
    ~OrvaneSysTime() = default;

    /// The year in full, such as 2026.
    int m_year = 1970;
    /// The month, 1..12.
    int m_month = 1;
    /// The day of the month, 1..31.
    int m_day = 1;
    /// The hour, 0..23.
    int m_hour = 0;
    /// The minute, 0..59.
    int m_minute = 0;
    /// The second, 0..60. The conversion from an instant gives 0..59; a 60 converts to the
    /// first second of the next minute.
    int m_second = 0;
    /// The part of a second, in nanoseconds, 0..999,999,999.
    uint32_t m_nanosecond = 0;
    /// The day of the week, 0 for Sunday to 6 for Saturday. Set by
    /// `OrvaneFileTime::toSystemTime_gmt`; ignored by `toFileTime_gmt`.
    int m_dayOfWeek = 4;

    /// Sets `out` to the instant these fields name; `m_dayOfWeek` is ignored and the
    /// nanoseconds are copied as they are. Fields outside their ranges give an unspecified
    /// instant.
    void toFileTime_gmt(OrvaneFileTime& out) const;
    /// Writes the time as ISO 8601 text in UTC into `buf`, such as
    /// "2026-11-23T07:06:31.250000000Z", with the nine-digit fraction only when the nanoseconds
    /// are not zero, as "2026-11-23T07:06:31Z" otherwise. The text is NUL-terminated and cut to
    /// fit `bufSize` (64 bytes always suffice); nothing is written when `buf` is null or
    /// `bufSize` is 0.
    void toIso8601(char* buf, unsigned bufSize) const;
    /// Writes the time into `log` as one named value under `name`, its value the text of
    /// `toIso8601`, such as "lastModTime: 2026-11-23T07:06:31Z". Takes no lock of any object;
    /// the caller guards `log`.
    void logSysTime(const char* name, LogBase& log) const;
};
