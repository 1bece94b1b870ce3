// Path names, directory creation, time conversions and the date-time object.
#include <sys/stat.h>

#include <memory>
#include <string>

#include "foundation/fs/ClsDateTime.h"
#include "foundation/fs/DirAutoCreate.h"
#include "foundation/fs/FilePath.h"
#include "foundation/fs/FileSys.h"
#include "support/TestSupport.h"

namespace {

TEST(FilePathTest, FinalPartDirectoryPartAndCombine) {
    struct Case {
        const char* path;
        const char* finalPart;
        const char* dirPart;
    } cases[] = {
        {"/a/b/c.txt", "c.txt", "/a/b"},
        {"/c.txt", "c.txt", "/"},
        {"c.txt", "c.txt", ""},
        {"a/b/", "", "a/b"},
        {"/", "", "/"},
        {"", "", ""},
        {"dir\\name.txt", "dir\\name.txt", ""},
        {"x/y\\z", "y\\z", "x"},
        {"//double", "double", "/"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        XString p(c.path), out("previous");
        _ovFilePath::GetFinalFilenamePart(p, out);
        EXPECT_STREQ(out.getUtf8(), c.finalPart);
        _ovFilePath::RemoveFilenamePart(p);
        EXPECT_STREQ(p.getUtf8(), c.dirPart);
    }
    // The output may be the input itself.
    XString same("/q/r.bin");
    _ovFilePath::GetFinalFilenamePart(same, same);
    EXPECT_STREQ(same.getUtf8(), "r.bin");

    struct Join {
        const char* dir;
        const char* name;
        const char* joined;
    } joins[] = {
        {"/a", "b", "/a/b"}, {"/a/", "b", "/a/b"}, {"", "b", "b"}, {"/", "b", "/b"},
        {"a", "", "a/"},
    };
    for (const Join& j : joins) {
        SCOPED_TRACE(std::string(j.dir) + " + " + j.name);
        XString out("old");
        _ovFilePath::CombineDirAndFilename(XString(j.dir), XString(j.name), out);
        EXPECT_STREQ(out.getUtf8(), j.joined);
    }
}

class DirAutoCreateTest : public TempDirTest {};

TEST_F(DirAutoCreateTest, CreatesMissingParentsAndRefusesFiles) {
    _ovLogger log;
    const std::string deep = path("a/b//c/d/");
    ASSERT_TRUE(DirAutoCreate::ensureDirUtf8(deep.c_str(), log)) << log.text();
    struct stat st;
    ASSERT_EQ(stat(path("a/b/c/d").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_TRUE(DirAutoCreate::ensureDirUtf8(deep.c_str(), log));  // already there

    StringBuffer scratch;
    ASSERT_TRUE(DirAutoCreate::ensureFileUtf8(path("x/y/file.txt").c_str(), scratch, log));
    ASSERT_EQ(stat(path("x/y").c_str(), &st), 0);
    EXPECT_NE(stat(path("x/y/file.txt").c_str(), &st), 0) << "the file itself is not made";
    EXPECT_FALSE(log.hasErrors());

    writeFile("plain", "x");
    _ovLogger bad;
    EXPECT_FALSE(DirAutoCreate::ensureDirUtf8(path("plain").c_str(), bad));
    EXPECT_FALSE(DirAutoCreate::ensureDirUtf8(path("plain/sub").c_str(), bad));
    EXPECT_FALSE(DirAutoCreate::ensureFileUtf8(path("plain/sub/f").c_str(), scratch, bad));
    EXPECT_EQ(bad.entries().size(), 3u) << bad.text();
}

TEST(FileTimeTest, CalendarConversionsBothWays) {
    struct Case {
        int64_t sec;
        uint32_t nsec;
        const char* iso;
        int dayOfWeek;
    } cases[] = {
        {0, 0, "1970-01-01T00:00:00Z", 4},
        {-1, 0, "1969-12-31T23:59:59Z", 3},
        {951782400, 0, "2000-02-29T00:00:00Z", 2},
        {1798067191, 250000000, "2026-12-23T23:06:31.250000000Z", 3},
        {4107542400, 1, "2100-03-01T00:00:00.000000001Z", 1},
        {-62135596800, 0, "0001-01-01T00:00:00Z", 1},
        {253402300799, 999999999, "9999-12-31T23:59:59.999999999Z", 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.iso);
        OrvaneSysTime st;
        OrvaneFileTime(c.sec, c.nsec).toSystemTime_gmt(st);
        char buf[64];
        st.toIso8601(buf, sizeof buf);
        EXPECT_STREQ(buf, c.iso);
        EXPECT_EQ(st.m_dayOfWeek, c.dayOfWeek);
        OrvaneFileTime back;
        st.toFileTime_gmt(back);
        EXPECT_EQ(back.seconds(), c.sec);
        EXPECT_EQ(back.nanoseconds(), c.nsec);

        _ovLogger log;
        st.logSysTime("when", log);
        ASSERT_EQ(log.entries().size(), 1u);
        EXPECT_EQ(log.entries()[0].name, "when");
        EXPECT_EQ(log.entries()[0].text, c.iso);
    }
}

TEST(ClsDateTimeTest, SettersGettersAndRejectedFields) {
    std::unique_ptr<ClsDateTime> dt(ClsDateTime::createNewCls());
    ASSERT_NE(dt, nullptr);
    EXPECT_EQ(dt->GetAsUnixTime(), 0);

    ASSERT_TRUE(dt->SetFromUtc(2024, 2, 29, 12, 30, 45, 500));
    EXPECT_EQ(dt->GetAsUnixTime(), 1709209845);
    EXPECT_EQ(dt->GetNanoseconds(), 500u);
    XString iso;
    dt->GetAsIso8601(iso);
    EXPECT_STREQ(iso.getUtf8(), "2024-02-29T12:30:45.000000500Z");
    OrvaneFileTime ft;
    dt->toOrvaneFileTimeUtc(ft);
    EXPECT_EQ(ft.seconds(), 1709209845);
    EXPECT_EQ(ft.nanoseconds(), 500u);
    EXPECT_EQ(dt->getOrvaneSysTime()->m_dayOfWeek, 4);

    const int bad[][7] = {
        {2023, 2, 29, 0, 0, 0, 0}, {2024, 13, 1, 0, 0, 0, 0}, {2024, 0, 1, 0, 0, 0, 0},
        {2024, 4, 31, 0, 0, 0, 0}, {2024, 1, 1, 24, 0, 0, 0}, {2024, 1, 1, 0, 60, 0, 0},
        {2024, 1, 1, 0, 0, 60, 0}, {2024, 1, 0, 0, 0, 0, 0}, {1900, 2, 29, 0, 0, 0, 0},
    };
    for (const auto& b : bad) {
        SCOPED_TRACE(std::to_string(b[0]) + "-" + std::to_string(b[1]) + "-" + std::to_string(b[2]));
        EXPECT_FALSE(dt->SetFromUtc(b[0], b[1], b[2], b[3], b[4], b[5], b[6]));
        EXPECT_EQ(dt->GetAsUnixTime(), 1709209845) << "unchanged";
    }
    EXPECT_FALSE(dt->SetFromUtc(2024, 1, 1, 0, 0, 0, 1000000000u));

    dt->SetFromUnixTime(-86400, 7);
    dt->GetAsIso8601(iso);
    EXPECT_STREQ(iso.getUtf8(), "1969-12-31T00:00:00.000000007Z");

    OrvaneSysTime st;
    st.m_year = 2030;
    st.m_month = 6;
    st.m_day = 15;
    dt->setFromOrvaneSysTime(st);
    EXPECT_EQ(dt->GetAsUnixTime(), 1907712000);
    EXPECT_EQ(dt->getOrvaneSysTime()->m_dayOfWeek, 6);
}

}  // namespace
