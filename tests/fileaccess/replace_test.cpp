// Replacing strings inside a file: counts, the encoding chosen by a byte-order mark or by
// the caller, the rewrite only when something changed, and the refusals.
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

// UTF-16 / UTF-32 forms of ASCII text.
std::string wide(const std::string& ascii, int width, bool bigEndian) {
    std::string out;
    for (char c : ascii) {
        std::string unit(width, '\0');
        unit[bigEndian ? width - 1 : 0] = c;
        out += unit;
    }
    return out;
}

class ReplaceTest : public TempDirTest {
  protected:
    int replace(const std::string& file, const char* charset, const char* s1, const char* s2) {
        XString p(file.c_str()), cs(charset), a(s1), b(s2);
        return fa.ReplaceStrings(p, cs, a, b);
    }
    std::string loggedN() const {
        for (auto& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name == "n") return e.text;
        return "<none>";
    }
    ClsFileAccess fa;
};

TEST_F(ReplaceTest, CountsAndResultingBytes) {
    struct Case {
        std::string content;
        const char* s1;
        const char* s2;
        int count;
        std::string after;
    } cases[] = {
        {"a b a b a", "a", "xy", 3, "xy b xy b xy"},
        {"aaaaa", "aa", "X", 2, "XXa"},
        {"one, two, one", "one", "", 2, ", two, "},
        {"NEEDLE", "NEEDLE", "PIN", 1, "PIN"},
        {"abc", "abcd", "z", 0, "abc"},
        {"", "a", "b", 0, ""},
        {"caf\xC3\xA9 caf\xC3\xA9", "\xC3\xA9", "e", 2, "cafe cafe"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.content + " / " + c.s1);
        std::string f = writeFile("t.txt", c.content);
        EXPECT_EQ(replace(f, "utf-8", c.s1, c.s2), c.count) << lastLog(fa);
        EXPECT_EQ(readFile(f), c.after);
        EXPECT_EQ(loggedN(), std::to_string(c.count));
        EXPECT_TRUE(fa.lastErrorLog().contains("Success."));
    }
}

TEST_F(ReplaceTest, CallersCharsetIsUsedForUnmarkedFiles) {
    std::string f = writeFile("t.txt", "caf\xE9!");  // windows-1252
    EXPECT_EQ(replace(f, "windows-1252", "\xC3\xA9", "e"), 1) << lastLog(fa);
    EXPECT_EQ(readFile(f), "cafe!");
    f = writeFile("t.txt", wide("abab", 2, false));
    EXPECT_EQ(replace(f, "utf-16le", "b", "cc"), 2) << lastLog(fa);
    EXPECT_EQ(readFile(f), wide("accacc", 2, false));
}

TEST_F(ReplaceTest, ByteOrderMarkDecidesTheEncodingInFilesOfFourBytesOrMore) {
    const std::string le = "\xFF\xFE", be = "\xFE\xFF", be32 = std::string("\0\0\xFE\xFF", 4);
    const std::string utf8 = "\xEF\xBB\xBF";
    struct Case {
        const char* what;
        std::string content;
        const char* charset;
        int count;
        std::string after;
    } cases[] = {
        {"UTF-16LE mark", le + wide("xax", 2, false), "utf-8", 2, le + wide("yyayy", 2, false)},
        {"UTF-16BE mark", be + wide("xax", 2, true), "windows-1252", 2,
         be + wide("yyayy", 2, true)},
        {"UTF-32BE mark", be32 + wide("axa", 4, true), "utf-8", 1, be32 + wide("ayya", 4, true)},
        {"UTF-32LE begins like UTF-16LE", le + std::string("\0\0", 2) + wide("x", 4, false),
         "utf-8", 1, le + std::string("\0\0", 2) + wide("yy", 2, false) + std::string("\0\0", 2)},
        // Too short for a mark to count: the caller's charset finds the single byte.
        {"three bytes FF FE x", le + "x", "windows-1252", 1, le + "yy"},
        {"two bytes FE FF", be, "windows-1252", 0, be},
        // The UTF-8 mark is no mark here: the caller's UTF-16 is used.
        {"UTF-8 mark", utf8 + wide("x", 2, false), "utf-16le", 1, utf8 + wide("yy", 2, false)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string f = writeFile("t.txt", c.content);
        EXPECT_EQ(replace(f, c.charset, "x", "yy"), c.count) << lastLog(fa);
        EXPECT_EQ(readFile(f), c.after);
    }
}

TEST_F(ReplaceTest, FileIsRewrittenOnlyWhenSomethingWasReplaced) {
    std::string f = writeFile("t.txt", "nothing to see");
    auto old = fs::file_time_type::clock::now() - std::chrono::hours(24 * 30);
    fs::last_write_time(f, old);
    struct stat before {};
    ASSERT_EQ(stat(f.c_str(), &before), 0);

    EXPECT_EQ(replace(f, "utf-8", "absent", "x"), 0);
    struct stat after {};
    ASSERT_EQ(stat(f.c_str(), &after), 0);
    EXPECT_EQ(fs::last_write_time(f), old);
    EXPECT_EQ(after.st_ino, before.st_ino);

    // A replacement rewrites the file and keeps its permission bits.
    fs::permissions(f, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    EXPECT_EQ(replace(f, "utf-8", "see", "say"), 1);
    EXPECT_EQ(readFile(f), "nothing to say");
    EXPECT_NE(fs::last_write_time(f), old);
    EXPECT_EQ(fs::status(f).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
}

TEST_F(ReplaceTest, RefusalsLeaveTheFileUntouched) {
    struct Case {
        const char* what;
        const char* charset;
        const char* s1;
        const char* s2;
        std::vector<const char*> errors;
    } cases[] = {
        {"empty str1", "utf-8", "", "x", {"str1 is empty."}},
        {"str1 not in charset",
         "us-ascii",
         "\xE2\x82\xAC",
         "x",
         {"Unable to get str1 in specified charset."}},
        {"str2 not in charset",
         "us-ascii",
         "a",
         "\xE2\x82\xAC",
         {"Unable to get str2 in specified charset."}},
        {"both",
         "us-ascii",
         "\xE2\x82\xAC",
         "\xE2\x82\xAC",
         {"Unable to get str1 in specified charset.", "Unable to get str2 in specified charset."}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string f = writeFile("t.txt", "a text");
        EXPECT_EQ(replace(f, c.charset, c.s1, c.s2), -1);
        EXPECT_EQ(readFile(f), "a text");
        EXPECT_EQ(loggedN(), "-1");
        std::vector<std::string> errors;
        for (auto& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Error && e.text != "Failed.") errors.push_back(e.text);
        EXPECT_EQ(errors, std::vector<std::string>(c.errors.begin(), c.errors.end()));
        EXPECT_TRUE(fa.lastErrorLog().contains("Failed."));
    }

    // A file that cannot be loaded: -1 with neither "n" nor an outcome line.
    EXPECT_EQ(replace(path("missing"), "utf-8", "a", "b"), -1);
    EXPECT_EQ(loggedN(), "<none>");
    EXPECT_FALSE(fa.lastErrorLog().contains("Failed."));
    EXPECT_FALSE(fa.lastErrorLog().contains("Success."));
}

}  // namespace
