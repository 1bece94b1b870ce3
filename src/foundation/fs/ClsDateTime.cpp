#include "foundation/fs/ClsDateTime.h"

#include <new>

namespace {

bool isLeap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int daysInMonth(int y, int m) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && isLeap(y) ? 29 : kDays[m - 1];
}

}  // namespace

ClsDateTime* ClsDateTime::createNewCls() { return new (std::nothrow) ClsDateTime(); }

void ClsDateTime::setFromOrvaneSysTime(const OrvaneSysTime& t) {
    // Round trip through the instant, so that the held fields (day of week included) are
    // always consistent.
    OrvaneFileTime ft;
    t.toFileTime_gmt(ft);
    ft.toSystemTime_gmt(m_time);
}

void ClsDateTime::toOrvaneFileTimeUtc(OrvaneFileTime& out) const { m_time.toFileTime_gmt(out); }

bool ClsDateTime::SetFromUtc(int year, int month, int day, int hour, int minute, int second,
                             uint32_t nanosecond) {
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month)) return false;
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59)
        return false;
    if (nanosecond >= 1000000000u) return false;
    OrvaneSysTime t;
    t.m_year = year;
    t.m_month = month;
    t.m_day = day;
    t.m_hour = hour;
    t.m_minute = minute;
    t.m_second = second;
    t.m_nanosecond = nanosecond;
    setFromOrvaneSysTime(t);
    return true;
}

void ClsDateTime::SetFromUnixTime(int64_t seconds, uint32_t nanosecond) {
    OrvaneFileTime(seconds, nanosecond % 1000000000u).toSystemTime_gmt(m_time);
}

int64_t ClsDateTime::GetAsUnixTime() const {
    OrvaneFileTime ft;
    m_time.toFileTime_gmt(ft);
    return ft.seconds();
}

void ClsDateTime::GetAsIso8601(XString& out) const {
    char buf[64];
    m_time.toIso8601(buf, sizeof buf);
    out.setFromUtf8(buf);
}
