#include "foundation/fs/FileTime.h"

#include <cstdio>

#include "foundation/base/LogBase.h"

namespace {

constexpr int64_t kSecondsPerDay = 86400;

// Days since 1970-01-01 of a proleptic Gregorian date (valid for any 64-bit day count the
// callers produce; the era arithmetic keeps it exact for dates before 1970 too).
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civilFromDays(int64_t z, int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y += m <= 2;
}

// Floor division, so that instants before the epoch fall on the right day.
int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

}  // namespace

void OrvaneFileTime::toSystemTime_gmt(OrvaneSysTime& out) const {
    const int64_t days = floorDiv(m_sec, kSecondsPerDay);
    const int64_t secOfDay = m_sec - days * kSecondsPerDay;
    int64_t y;
    unsigned m, d;
    civilFromDays(days, y, m, d);
    out.m_year = static_cast<int>(y);
    out.m_month = static_cast<int>(m);
    out.m_day = static_cast<int>(d);
    out.m_hour = static_cast<int>(secOfDay / 3600);
    out.m_minute = static_cast<int>(secOfDay % 3600 / 60);
    out.m_second = static_cast<int>(secOfDay % 60);
    out.m_nanosecond = m_nsec;
    // 1970-01-01 was a Thursday (4).
    out.m_dayOfWeek = static_cast<int>(((days % 7) + 11) % 7);
}

void OrvaneSysTime::toFileTime_gmt(OrvaneFileTime& out) const {
    const int64_t days = daysFromCivil(m_year, static_cast<unsigned>(m_month),
                                       static_cast<unsigned>(m_day));
    out.set(days * kSecondsPerDay + int64_t{m_hour} * 3600 + int64_t{m_minute} * 60 + m_second,
            m_nanosecond);
}

void OrvaneSysTime::toIso8601(char* buf, unsigned bufSize) const {
    if (!buf || bufSize == 0) return;
    if (m_nanosecond != 0)
        std::snprintf(buf, bufSize, "%04d-%02d-%02dT%02d:%02d:%02d.%09uZ", m_year, m_month, m_day,
                      m_hour, m_minute, m_second, static_cast<unsigned>(m_nanosecond));
    else
        std::snprintf(buf, bufSize, "%04d-%02d-%02dT%02d:%02d:%02dZ", m_year, m_month, m_day,
                      m_hour, m_minute, m_second);
}

void OrvaneSysTime::logSysTime(const char* name, LogBase& log) const {
    char buf[64];
    toIso8601(buf, sizeof buf);
    log.LogData(name, buf);
}
