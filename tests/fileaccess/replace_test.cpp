// Replacing strings inside a file: counts, the encoding chosen by a byte-order mark or by the
// caller, the refusals, and the rewrite only when something changed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <filesystem>
#include <random>
#include <string>

#include "LogProbe.h"
#include "fileaccess/ReplaceLimits.h"
#include "fileaccess/StreamBlocks.h"
#include "foundation/fs/SysCalls.h"
#include "support/SysCallOverride.h"

namespace {

namespace fs = std::filesystem;

// UTF-16 / UTF-32 forms of ASCII text.
std::string wide(const std::string& ascii, size_t width, bool bigEndian) {
    std::string out, pad(width - 1, '\0');
    for (char c : ascii) out += bigEndian ? pad + c : c + pad;
    return out;
}

class ReplaceTest : public FileAccessTest {
  protected:
    // The texts of the log's lines of one kind, each followed by "|".
    std::string lines(LogKind kind) const {
        std::string s;
        for (const LogEntry& e : fa.lastErrorLog().entries())
            if (e.kind == kind) s += e.text + "|";
        return s;
    }
    int replace(const std::string& file, const char* charset, const char* s1, const char* s2) {
        XString p(file.c_str()), cs(charset), a(s1), b(s2);
        return fa.ReplaceStrings(p, cs, a, b);
    }
};

TEST_F(ReplaceTest, CountsEncodingsAndRefusals) {
    const std::string le = "\xFF\xFE", be = "\xFE\xFF", be32("\0\0\xFE\xFF", 4), z2("\0\0", 2);
    const char *euro = "\xE2\x82\xAC", *u8 = "\xEF\xBB\xBF";
    const char* no1 = "Unable to get str1 in specified charset.";
    struct Case {
        std::string before, after;  // a refusal leaves the file as it was
        const char *charset, *s1, *s2;
        int count;
        const char* error = nullptr;  // an error line a refusal must log
    } cases[] = {
        {"aaaaa", "XXa", "utf-8", "aa", "X", 2},
        {"one, two, one", ", two, ", "utf-8", "one", "", 2},
        {"abc", "abc", "utf-8", "abcd", "z", 0},
        {"", "", "utf-8", "a", "b", 0},
        // Without a mark the caller's charset decides.
        {"caf\xE9!", "cafe!", "windows-1252", "\xC3\xA9", "e", 1},
        // A mark counts in a file of four bytes or more and stays in it.
        {le + wide("xax", 2, false), le + wide("yyayy", 2, false), "utf-8", "x", "yy", 2},
        {be + wide("xax", 2, true), be + wide("yyayy", 2, true), "windows-1252", "x", "yy", 2},
        {be32 + wide("axa", 4, true), be32 + wide("ayya", 4, true), "utf-8", "x", "yy", 1},
        {le + z2 + wide("x", 4, false), le + z2 + wide("yy", 2, false) + z2, "utf-8", "x", "yy", 1},
        {le + "x", le + "yy", "windows-1252", "x", "yy", 1},
        {u8 + wide("x", 2, false), u8 + wide("yy", 2, false), "utf-16le", "x", "yy", 1},
        // Another name of UTF-16: the strings carry no mark of their own.
        {wide("xax", 2, false), wide("yyayy", 2, false), "utf16", "x", "yy", 2},
        // Refusals. Both strings are converted, so a failing str2 is reported after str1's.
        {"a text", "a text", "utf-8", "", "x", -1, "str1 is empty."},
        {"a text", "a text", "us-ascii", euro, "x", -1, no1},
        {"a text", "a text", "us-ascii", euro, euro, -1,
         "Unable to get str2 in specified charset."},
        // A charset nothing knows is UTF-8, without a word about it.
        {"caf\xC3\xA9", "cafe", "no-such-charset", "\xC3\xA9", "e", 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        std::string f = writeFile("t.txt", c.before);
        EXPECT_EQ(replace(f, c.charset, c.s1, c.s2), c.count) << lastLog(fa);
        EXPECT_EQ(readFile(f), c.after);
        EXPECT_EQ(value("n") + " " + lastLine(),
                  std::to_string(c.count) + (c.error ? " Failed." : " Success."));
        EXPECT_TRUE(c.error ? fa.lastErrorLog().contains(c.error) : errorCount() == 0);
        EXPECT_EQ(lines(LogKind::Info), c.error ? "" : "Success.|");
    }
    // A file that cannot be loaded: -1, with neither "n" nor an outcome line.
    EXPECT_EQ(replace(path("missing"), "utf-8", "a", "b"), -1);
    EXPECT_EQ(value("n"), "<absent>");
    EXPECT_NE(lastLine(), "Failed.");
}

// A save that fails at any step: its reason stands before "n", which holds every occurrence in
// the file however far the rewrite got, and the outcome comes last. The output is large
// enough that the first write happens while the rewrite has read only part of the file.
TEST_F(ReplaceTest, AFailedSaveLogsItsReasonBeforeTheWholeCount) {
    std::string text;
    for (int i = 0; i < 600000; ++i) text += "ab";
    const std::string f = writeFile("t.txt", text);
    struct Case {
        SysCallOverride::Call call;
        int nth, err;
        const char* step;  // how the error line begins
    } cases[] = {
        // The search's open, then the open that proves the file may be written, then the
        // new file's creation.
        {SysCallOverride::Open, 2, EPERM, "open "},
        {SysCallOverride::Open, 3, ENOSPC, "create a temporary file in "},
        {SysCallOverride::Write, 1, ENOSPC, "write "},
        {SysCallOverride::Fsync, 1, EIO, "fsync "},
        {SysCallOverride::Rename, 1, EIO, "rename "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.step);
        {
            SysCallOverride o;
            o.failNth(c.call, c.nth, c.err);
            EXPECT_EQ(replace(f, "utf-8", "a", "XYZ"), -1);
        }
        EXPECT_TRUE(readFile(f) == text);
        std::string order, first;
        for (const LogEntry& e : fa.lastErrorLog().entries()) {
            if (e.kind == LogKind::Error) order += "error ";
            if (e.kind == LogKind::Error && first.empty()) first = e.text;
            if (e.kind == LogKind::Data && e.name == "n") order += "n=" + e.text + " ";
        }
        EXPECT_EQ(order, "error n=600000 error ") << lastLog(fa);
        EXPECT_EQ(first.substr(0, std::strlen(c.step)), c.step);
        EXPECT_EQ(lastLine(), "Failed.");
    }
}

TEST_F(ReplaceTest, FileIsRewrittenOnlyWhenSomethingWasReplaced) {
    std::string f = writeFile("t.txt", "nothing to see");
    auto old = fs::file_time_type::clock::now() - std::chrono::hours(24 * 30);
    fs::last_write_time(f, old);
    auto mode = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    fs::permissions(f, mode);
    EXPECT_EQ(replace(f, "utf-8", "absent", "x"), 0);
    EXPECT_EQ(fs::last_write_time(f), old);
    // A replacement rewrites the file and keeps its permission bits.
    EXPECT_EQ(replace(f, "utf-8", "see", "say"), 1);
    EXPECT_NE(fs::last_write_time(f), old);
    EXPECT_EQ(fs::status(f).permissions() & fs::perms::all, mode);
}

// Another writer at work between the search and the rewrite: just before the rewrite opens
// the file for writing, its content is overwritten in place (same inode) and its times set
// to a day long past.
class ChangeBeforeRewrite {
  public:
    ChangeBeforeRewrite(const std::string& path, const std::string& content) {
        s_path = path;
        s_content = content;
        s_done = false;
        sysCalls().open = [](const char* p, int flags, mode_t mode) {
            if (!s_done && (flags & O_ACCMODE) == O_RDWR && s_path == p) {
                s_done = true;
                int fd = realSysCalls().open(p, O_WRONLY, 0);
                const struct timespec past[2] = {{kPast, 0}, {kPast, 0}};
                struct stat st {};
                if (fd < 0 || pwrite(fd, s_content.data(), s_content.size(), 0) < 0 ||
                    futimens(fd, past) != 0 || fstat(fd, &st) != 0)
                    s_done = false;
                s_changed = st.st_ctim;
                if (fd >= 0) close(fd);
            }
            return realSysCalls().open(p, flags, mode);
        };
    }
    ~ChangeBeforeRewrite() { sysCalls().open = realSysCalls().open; }
    ChangeBeforeRewrite(const ChangeBeforeRewrite&) = delete;
    ChangeBeforeRewrite& operator=(const ChangeBeforeRewrite&) = delete;
    static bool done() { return s_done; }
    // When the other writer last changed the file's inode.
    static struct timespec changed() { return s_changed; }

    static constexpr time_t kPast = 1577836800;  // 2020-01-01

  private:
    static inline std::string s_path, s_content;
    static inline bool s_done = false;
    static inline struct timespec s_changed {};
};

// The file loses its occurrences between the search, which found one, and the rewrite, which
// finds none: 0 and success as for a file without one, no error line, and the file left as
// the other writer left it, same inode and modification time; the new file is gone. An
// ordinary file's inode has not changed since; a file with a second hard link, rewritten in
// place, has its old content and times put back.
TEST_F(ReplaceTest, AFileThatChangedBetweenThePassesIsLeftAlone) {
    for (bool hardLinked : {false, true}) {
        SCOPED_TRACE(hardLinked ? "hard-linked" : "ordinary");
        const std::string f = writeFile("t.txt", "one two one");
        ASSERT_TRUE(!hardLinked || link(f.c_str(), path("link").c_str()) == 0);
        struct stat before {};
        ASSERT_EQ(stat(f.c_str(), &before), 0);
        {
            ChangeBeforeRewrite change(f, "uno two uno");
            EXPECT_EQ(replace(f, "utf-8", "one", "1"), 0) << lastLog(fa);
            ASSERT_TRUE(ChangeBeforeRewrite::done());
        }
        EXPECT_EQ(readFile(f), "uno two uno");
        struct stat after {};
        ASSERT_EQ(stat(f.c_str(), &after), 0);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_mtim.tv_sec, ChangeBeforeRewrite::kPast);
        if (!hardLinked) {
            EXPECT_EQ(after.st_ctim.tv_sec, ChangeBeforeRewrite::changed().tv_sec);
            EXPECT_EQ(after.st_ctim.tv_nsec, ChangeBeforeRewrite::changed().tv_nsec);
        }
        EXPECT_EQ(value("n") + " " + lastLine(), "0 Success.");
        EXPECT_EQ(errorCount(), 0) << lastLog(fa);
        size_t entries = 0;
        for (const auto& entry : fs::directory_iterator(dir())) entries += !entry.path().empty();
        EXPECT_EQ(entries, hardLinked ? 2u : 1u);
        if (hardLinked) fs::remove(path("link"));
    }
}

// More occurrences than the count can hold (a limit lowered for the test): -1, the error line
// and "n: -1", and the file as it was, to the nanosecond of its modification time, with
// nothing left beside it. An ordinary file's new copy is dropped; a file with a second hard
// link is rewritten in place and put back. Just at the limit the replacement goes through.
TEST_F(ReplaceTest, MoreOccurrencesThanTheCountHoldsLeaveTheFileAsItWas) {
    struct LowLimit {
        LowLimit() { replacelimits::setCountLimitForTest(3); }
        ~LowLimit() { replacelimits::setCountLimitForTest(0); }
    } lowLimit;
    for (bool hardLinked : {false, true}) {
        SCOPED_TRACE(hardLinked ? "hard-linked" : "ordinary");
        const std::string f = writeFile("t.txt", "x x x x x");
        ASSERT_TRUE(!hardLinked || link(f.c_str(), path("link").c_str()) == 0);
        const struct timespec past[2] = {{ChangeBeforeRewrite::kPast, 123456789},
                                         {ChangeBeforeRewrite::kPast, 987654321}};
        ASSERT_EQ(utimensat(AT_FDCWD, f.c_str(), past, 0), 0);
        struct stat before {};
        ASSERT_EQ(stat(f.c_str(), &before), 0);
        EXPECT_EQ(replace(f, "utf-8", "x", "y"), -1);
        EXPECT_EQ(readFile(f), "x x x x x");
        struct stat after {};
        ASSERT_EQ(stat(f.c_str(), &after), 0);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
        EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        EXPECT_TRUE(fa.lastErrorLog().contains(
            "Unable to replace: more occurrences than the count can hold."))
            << lastLog(fa);
        EXPECT_EQ(value("n") + " " + lastLine(), "-1 Failed.");
        size_t entries = 0;
        for (const auto& entry : fs::directory_iterator(dir())) entries += !entry.path().empty();
        EXPECT_EQ(entries, hardLinked ? 2u : 1u);
        if (hardLinked) fs::remove(path("link"));
    }
    const std::string f = writeFile("t.txt", "x x x");
    EXPECT_EQ(replace(f, "utf-8", "x", "y"), 3) << lastLog(fa);
    EXPECT_EQ(readFile(f), "y y y");
}

// Blocks of a few bytes for the passes of ReplaceStrings while alive.
class SmallBlocks {
  public:
    explicit SmallBlocks(unsigned bytes) { streamblocks::setReplaceBlockForTest(bytes); }
    ~SmallBlocks() { streamblocks::setReplaceBlockForTest(0); }
    SmallBlocks(const SmallBlocks&) = delete;
    SmallBlocks& operator=(const SmallBlocks&) = delete;
};

// Random files in every marked and unmarked form, searched and rewritten in blocks of a few
// bytes (and rewritten from reads that deliver only a few bytes each), so that occurrences
// straddle every edge in both passes: the same bytes and count as a replacement in one
// buffer, and a file without an occurrence is left alone. First a single occurrence over an
// edge, of every length up to two blocks and more and at every offset, which only a search
// across the edge finds.
TEST_F(ReplaceTest, StreamedReplacementMatchesTheWholeBuffer) {
    {
        constexpr unsigned kBlock = 8;
        SmallBlocks small(kBlock);
        for (size_t len = 2; len <= 2 * kBlock + 3; ++len) {
            for (size_t at = 2 * kBlock - len + 1; at < 2 * kBlock; ++at) {
                SCOPED_TRACE(std::to_string(len) + " bytes at " + std::to_string(at));
                std::string s1(len, 'b'), text(3 * kBlock + len, '.');
                s1.front() = 'a';
                text.replace(at, len, s1);
                const std::string f = writeFile("t.txt", text);
                ASSERT_EQ(replace(f, "utf-8", s1.c_str(), "X"), 1) << lastLog(fa);
                ASSERT_EQ(readFile(f), text.substr(0, at) + "X" + text.substr(at + len));
            }
        }
    }
    struct Form {
        std::string mark;
        size_t width;
        bool bigEndian;
    } forms[] = {{"", 1, false},
                 {"\xEF\xBB\xBF", 1, false},
                 {"\xFF\xFE", 2, false},
                 {"\xFE\xFF", 2, true},
                 {std::string("\0\0\xFE\xFF", 4), 4, true}};
    std::mt19937 rng(3);
    for (int round = 0; round < 300; ++round) {
        const Form& form = forms[round % 5];
        std::string text(rng() % 1500, 'a'), s1(1 + rng() % 5, 'a'), s2(rng() % 4, 'b');
        for (char& c : text) c = "aab"[rng() % 3];
        for (char& c : s1) c = "ab"[rng() % 2];
        const unsigned block = 4 + rng() % 9;
        SCOPED_TRACE(std::to_string(round) + ": " + s1 + " by " + s2 + " in blocks of " +
                     std::to_string(block));
        const std::string file = form.mark + wide(text, form.width, form.bigEndian);
        const std::string find = wide(s1, form.width, form.bigEndian),
                          repl = wide(s2, form.width, form.bigEndian);
        DataBuffer whole = bufferOf(file);
        const int want = whole.replaceAllOccurances(
            reinterpret_cast<const unsigned char*>(find.data()), find.size(),
            reinterpret_cast<const unsigned char*>(repl.data()), repl.size());
        const std::string f = writeFile("t.txt", file);
        struct stat before {};
        stat(f.c_str(), &before);
        int got;
        {
            SmallBlocks small(block);
            SysCallOverride o;
            o.limitTransfers(1 + rng() % 40);
            got = replace(f, "utf-8", s1.c_str(), s2.c_str());
        }
        ASSERT_EQ(got, want) << lastLog(fa);
        ASSERT_EQ(readFile(f), bytesOf(whole));
        struct stat after {};
        stat(f.c_str(), &after);
        ASSERT_EQ(after.st_ino == before.st_ino, want == 0);
        ASSERT_EQ(value("n") + lastLine(), std::to_string(want) + "Success.");
    }
}

}  // namespace

