// Time stamps as the file-system layer hands them over.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>

class LogBase;
class OrvaneSysTime;

// An instant: seconds since the Unix epoch plus nanoseconds, in UTC.
class FA_API OrvaneFileTime {
public:
    OrvaneFileTime() = default;
    OrvaneFileTime(int64_t seconds, uint32_t nanoseconds) : m_sec(seconds), m_nsec(nanoseconds) {}

    int64_t seconds() const { return m_sec; }
    uint32_t nanoseconds() const { return m_nsec; }
    void set(int64_t seconds, uint32_t nanoseconds) {
        m_sec = seconds;
        m_nsec = nanoseconds;
    }
    void toSystemTime_gmt(OrvaneSysTime& out) const;

private:
    int64_t m_sec = 0;
    uint32_t m_nsec = 0;
};

// A broken-down calendar time in UTC, keeping sub-second precision.
class FA_API OrvaneSysTime {
public:
    OrvaneSysTime() = default;
    ~OrvaneSysTime() = default;

    int m_year = 1970;   // e.g. 2026
    int m_month = 1;     // 1..12
    int m_day = 1;       // 1..31
    int m_hour = 0;      // 0..23
    int m_minute = 0;    // 0..59
    int m_second = 0;    // 0..60
    uint32_t m_nanosecond = 0;
    int m_dayOfWeek = 4; // 0 = Sunday

    // The same instant as a file time.
    void toFileTime_gmt(OrvaneFileTime& out) const;
    // ISO 8601 text, e.g. "2026-11-23T07:06:31.250000000Z" (fraction only when non-zero).
    void toIso8601(char* buf, unsigned bufSize) const;
    // Writes the time under `name` into the log.
    void logSysTime(const char* name, LogBase& log) const;
};
