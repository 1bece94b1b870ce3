// The library's date-time object. Always holds a UTC instant.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>

#include "foundation/base/ClsBase.h"
#include "foundation/fs/FileTime.h"

class FA_API ClsDateTime : public ClsBase {
public:
    ClsDateTime() = default;
    // A new object holding the Unix epoch, or null when none can be made.
    static ClsDateTime* createNewCls();

    void setFromOrvaneSysTime(const OrvaneSysTime& t);
    // The object's own time (read for logging).
    OrvaneSysTime* getOrvaneSysTime() { return &m_time; }
    void toOrvaneFileTimeUtc(OrvaneFileTime& out) const;

    // Calendar fields in UTC; false (unchanged) when they do not name a real time.
    bool SetFromUtc(int year, int month, int day, int hour, int minute, int second,
                    uint32_t nanosecond = 0);
    void SetFromUnixTime(int64_t seconds, uint32_t nanosecond = 0);
    int64_t GetAsUnixTime() const;
    uint32_t GetNanoseconds() const { return m_time.m_nanosecond; }
    // ISO 8601 text in UTC.
    void GetAsIso8601(XString& out) const;

private:
    OrvaneSysTime m_time;
};
