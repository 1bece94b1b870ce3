// Calendar conversions of file times and the date-time object.
#include <memory>
#include <string>
#include <tuple>

#include "foundation/fs/ClsDateTime.h"
#include "support/TestSupport.h"

namespace {

TEST(FileTimeTest, CalendarConversionsBothWays) {
    // Unix time, nanoseconds, the same in ISO 8601, day of the week (0 = Sunday).
    const std::tuple<int64_t, uint32_t, const char*, int> cases[] = {
        {-1, 0, "1969-12-31T23:59:59Z", 3},
        {951782400, 1, "2000-02-29T00:00:00.000000001Z", 2},
        {4107542400, 250000000, "2100-03-01T00:00:00.250000000Z", 1},
        {-62135596800, 0, "0001-01-01T00:00:00Z", 1},
        {253402300799, 999999999, "9999-12-31T23:59:59.999999999Z", 5},
    };
    std::unique_ptr<ClsDateTime> dt(ClsDateTime::createNewCls());
    for (const auto& [sec, nsec, iso, dayOfWeek] : cases) {
        SCOPED_TRACE(iso);
        OrvaneSysTime st;
        OrvaneFileTime(sec, nsec).toSystemTime_gmt(st);
        char buf[64];
        st.toIso8601(buf, sizeof buf);
        EXPECT_STREQ(buf, iso);
        EXPECT_EQ(st.m_dayOfWeek, dayOfWeek);
        OrvaneFileTime back;
        st.toFileTime_gmt(back);
        EXPECT_EQ(std::pair(back.seconds(), back.nanoseconds()), std::pair(sec, nsec));
        // The date-time object reaches the same time from the calendar fields.
        ASSERT_TRUE(dt->SetFromUtc(st.m_year, st.m_month, st.m_day, st.m_hour, st.m_minute,
                                   st.m_second, nsec));
        EXPECT_EQ(dt->GetAsUnixTime(), sec);
    }
    // Year, month, day, hour, minute, second, nanosecond, each one step out of range: refused,
    // leaving the object as it was.
    const int bad[][7] = {{2023, 2, 29, 0, 0, 0, 0}, {2024, 13, 1, 0, 0, 0, 0},
                          {2024, 0, 1, 0, 0, 0, 0},  {2024, 4, 31, 0, 0, 0, 0},
                          {2024, 1, 1, 24, 0, 0, 0}, {2024, 1, 1, 0, 60, 0, 0},
                          {2024, 1, 1, 0, 0, 60, 0}, {2024, 1, 0, 0, 0, 0, 0},
                          {1900, 2, 29, 0, 0, 0, 0}, {2024, 1, 1, 0, 0, 0, 1000000000}};
    for (const auto& b : bad)
        EXPECT_FALSE(dt->SetFromUtc(b[0], b[1], b[2], b[3], b[4], b[5], b[6]))
            << b[0] << "-" << b[1] << "-" << b[2] << " " << b[3] << ":" << b[4] << ":" << b[5];
    EXPECT_EQ(dt->GetAsUnixTime(), 253402300799);
}

}  // namespace
