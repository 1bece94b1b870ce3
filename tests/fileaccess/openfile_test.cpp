// Opening and closing the current file: modes, open-error codes and messages, and the state
// every open attempt, FileOpen and FileClose leave behind.
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include <unistd.h>

#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/OpenErrorText.h"
#include "foundation/fs/SysCalls.h"
#include "support/TestSupport.h"

namespace {

// True when the object has a current file: a write of nothing reaches the file layer instead
// of being refused with "File not open".
bool hasOpenFile(ClsFileAccess& fa) {
    DataBuffer nothing;
    fa.FileWrite(nothing);
    return !fa.lastErrorLog().contains("File not open");
}

std::string openErrorMsg(ClsFileAccess& fa) {
    XString msg;
    fa.get_FileOpenErrorMsg(msg);
    return msg.getUtf8();
}

// Makes every open of a path fail with a chosen errno, restoring the real calls afterwards.
class FailingOpen {
public:
    explicit FailingOpen(int err) {
        s_errno = err;
        sysCalls().open = [](const char*, int, mode_t) { return (errno = s_errno), -1; };
        sysCalls().openat = [](int, const char*, int, mode_t) { return (errno = s_errno), -1; };
    }
    ~FailingOpen() {
        sysCalls().open = realSysCalls().open;
        sysCalls().openat = realSysCalls().openat;
    }

private:
    static inline int s_errno = 0;
};

const char* const kMessages[] = {
    "Success.",
    "Access denied.",
    "File not found.",
    "General (non-specific) open error.",
    "File aleady exists.",
    "Path refers to a directory and the access requested involves writing",
    "Too many symbolic links were encountered in resolving path.",
    "The process already has the maximum number of files open.",
    "Pathname is too long.",
    "The system limit on the total number of open files has been reached. ",
    "Pathname refers to a device special file and no corresponding device exists.",
    "Insufficient kernel memory was available. ",
    "Pathname was to be created but the device containing pathname has no room for the new "
    "file. ",
    "A component used as a directory in pathname is not, in fact, a directory.",
    "Pathname refers to a regular file, too large to be opened",
    "Pathname refers to a file on a read-only filesystem and write access was requested. ",
    "Pathname refers to an executable image which is currently being executed and write access "
    "was requested. ",
};

class OpenFileTest : public TempDirTest {
protected:
    ClsFileAccess fa;
};

TEST(OpenErrorTextTest, EveryCodeHasItsMessageAndOthersAreUnknown) {
    for (int code = 0; code <= 16; ++code) {
        SCOPED_TRACE(code);
        EXPECT_STREQ(openErrorText(code), kMessages[code]);
    }
    for (int code : {17, 18, 1000, INT_MAX, -1, -16, INT_MIN}) {
        SCOPED_TRACE(code);
        EXPECT_STREQ(openErrorText(code), "Unknown file open error.");
    }
}

TEST_F(OpenFileTest, EachModeOpensAndLeavesSuccess) {
    struct Case {
        const char* name;
        bool (ClsFileAccess::*open)(XString&);
        bool createsMissing;
    };
    const Case cases[] = {
        {"read", &ClsFileAccess::OpenForRead, false},
        {"write", &ClsFileAccess::OpenForWrite, true},
        {"readwrite", &ClsFileAccess::OpenForReadWrite, true},
        {"append", &ClsFileAccess::OpenForAppend, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString existing(writeFile(std::string(c.name) + ".txt", "abc").c_str());
        ASSERT_CALL_OK(fa, (fa.*c.open)(existing));
        EXPECT_EQ(fa.get_FileOpenError(), 0);
        EXPECT_EQ(openErrorMsg(fa), "Success.");
        EXPECT_TRUE(fa.lastErrorLog().contains("Success."));

        XString missing(path(std::string(c.name) + "-new.txt").c_str());
        EXPECT_EQ((fa.*c.open)(missing), c.createsMissing) << lastLog(fa);
        EXPECT_EQ(fa.get_FileOpenError(), c.createsMissing ? 0 : 2);
        EXPECT_EQ(readFile(missing.getUtf8()), c.createsMissing ? "" : "<missing>");
    }
}

TEST_F(OpenFileTest, ModesTreatExistingContentAsTheirNamesSay) {
    XString p(writeFile("f.txt", "hello").c_str());
    DataBuffer data;
    data.append("XY", 2);

    ASSERT_CALL_OK(fa, fa.OpenForReadWrite(p));
    ASSERT_CALL_OK(fa, fa.FileWrite(data));
    fa.FileClose();
    EXPECT_EQ(readFile(p.getUtf8()), "XYllo");

    ASSERT_CALL_OK(fa, fa.OpenForAppend(p));
    ASSERT_CALL_OK(fa, fa.FileWrite(data));
    fa.FileClose();
    EXPECT_EQ(readFile(p.getUtf8()), "XYlloXY");

    ASSERT_CALL_OK(fa, fa.OpenForWrite(p));
    EXPECT_EQ(readFile(p.getUtf8()), "");
    DataBuffer out;
    EXPECT_CALL_FAILS(fa, fa.FileRead(4, out));

    ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    EXPECT_CALL_FAILS(fa, fa.FileWrite(data));
    EXPECT_FALSE(fa.lastErrorLog().contains("File not open"));
}

TEST_F(OpenFileTest, RealFailuresGiveTheirCodeMessageAndFailureLine) {
    writeFile("plain", "x");
    ASSERT_EQ(symlink(path("loopA").c_str(), path("loopB").c_str()), 0);
    ASSERT_EQ(symlink(path("loopB").c_str(), path("loopA").c_str()), 0);
    struct Case {
        const char* name;
        bool (ClsFileAccess::*open)(XString&);
        std::string path;
        int code;
    };
    const std::vector<Case> cases = {
        {"missing", &ClsFileAccess::OpenForRead, path("nope"), 2},
        {"directory", &ClsFileAccess::OpenForWrite, dir(), 5},
        {"symlink loop", &ClsFileAccess::OpenForRead, path("loopA"), 6},
        {"name too long", &ClsFileAccess::OpenForRead, path(std::string(300, 'n')), 8},
        {"file as directory", &ClsFileAccess::OpenForReadWrite, path("plain/x"), 13},
        {"missing parent", &ClsFileAccess::OpenForAppend, path("no/such"), 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString p(c.path.c_str());
        EXPECT_CALL_FAILS(fa, (fa.*c.open)(p));
        EXPECT_EQ(fa.get_FileOpenError(), c.code);
        EXPECT_EQ(openErrorMsg(fa), kMessages[c.code]);
        EXPECT_TRUE(fa.lastErrorLog().contains("Failed.")) << lastLog(fa);
        EXPECT_FALSE(hasOpenFile(fa));
    }
}

TEST_F(OpenFileTest, PermissionDeniedIsCodeOne) {
    if (runningAsRoot()) GTEST_SKIP() << "root opens everything";
    XString p(writeFile("locked.txt", "x").c_str());
    ASSERT_EQ(chmod(p.getUtf8(), 0), 0);
    EXPECT_CALL_FAILS(fa, fa.OpenForRead(p));
    EXPECT_EQ(fa.get_FileOpenError(), 1);
    EXPECT_EQ(openErrorMsg(fa), "Access denied.");
}

// Every reason the system can give for a failed open reaches both properties.
TEST_F(OpenFileTest, EachErrnoReachesCodeAndMessage) {
    const std::vector<std::pair<int, int>> cases = {
        {EACCES, 1},     {EPERM, 1},   {ENOENT, 2},  {EIO, 3},      {EEXIST, 4},
        {EISDIR, 5},     {ELOOP, 6},   {EMFILE, 7},  {ENAMETOOLONG, 8}, {ENFILE, 9},
        {ENODEV, 10},    {ENXIO, 10},  {ENOMEM, 11}, {ENOSPC, 12},  {ENOTDIR, 13},
        {EOVERFLOW, 14}, {EFBIG, 14},  {EROFS, 15},  {ETXTBSY, 16},
    };
    XString p(path("any.txt").c_str());
    for (auto [err, code] : cases) {
        SCOPED_TRACE(err);
        bool ok;
        {
            FailingOpen failing(err);
            ok = fa.OpenForWrite(p);
        }
        EXPECT_FALSE(ok);
        EXPECT_EQ(fa.get_FileOpenError(), code);
        EXPECT_EQ(openErrorMsg(fa), kMessages[code]);
    }
}

TEST_F(OpenFileTest, FailedOpenAfterGoodOneClosesAndSuccessAfterFailureResets) {
    XString good(writeFile("good.txt", "0123456789").c_str());
    XString bad(path("missing.txt").c_str());
    ASSERT_CALL_OK(fa, fa.OpenForRead(good));
    DataBuffer out;
    ASSERT_CALL_OK(fa, fa.FileRead(100, out));
    ASSERT_TRUE(fa.get_EndOfFile());

    EXPECT_CALL_FAILS(fa, fa.OpenForRead(bad));
    EXPECT_EQ(fa.get_FileOpenError(), 2);
    EXPECT_EQ(openErrorMsg(fa), "File not found.");
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_FALSE(hasOpenFile(fa));
    EXPECT_FALSE(fa.FileRead(1, out));

    ASSERT_CALL_OK(fa, fa.OpenForRead(good));
    EXPECT_EQ(fa.get_FileOpenError(), 0);
    EXPECT_EQ(openErrorMsg(fa), "Success.");
    ASSERT_CALL_OK(fa, fa.FileRead(100, out));
    ASSERT_TRUE(fa.get_EndOfFile());
    // A successful open clears the flag too.
    ASSERT_CALL_OK(fa, fa.OpenForReadWrite(good));
    EXPECT_FALSE(fa.get_EndOfFile());
}

TEST_F(OpenFileTest, FileCloseResetsOnlyTheEndOfFileFlag) {
    XString p(writeFile("f.txt", "abc").c_str());
    XString bad(path("missing.txt").c_str());
    EXPECT_CALL_FAILS(fa, fa.OpenForRead(bad));
    fa.put_LockFileOnOpen(true);

    fa.FileClose();  // nothing open: harmless
    EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_EQ(fa.get_FileOpenError(), 2);
    EXPECT_EQ(openErrorMsg(fa), "File not found.");
    EXPECT_TRUE(fa.get_LockFileOnOpen());

    ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    DataBuffer out;
    ASSERT_CALL_OK(fa, fa.FileRead(10, out));
    ASSERT_TRUE(fa.get_EndOfFile());
    fa.FileClose();
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_FALSE(hasOpenFile(fa));
    EXPECT_EQ(openErrorMsg(fa), "Success.");
}

TEST_F(OpenFileTest, FileOpenIsUnsupportedAndResetsTheCurrentFile) {
    XString p(writeFile("f.txt", "abc").c_str());
    XString bad(path("missing.txt").c_str());
    for (bool openFirst : {true, false}) {
        SCOPED_TRACE(openFirst);
        if (openFirst) {
            ASSERT_CALL_OK(fa, fa.OpenForRead(p));
            DataBuffer out;
            ASSERT_CALL_OK(fa, fa.FileRead(10, out));
        } else {
            EXPECT_CALL_FAILS(fa, fa.OpenForRead(bad));
        }
        EXPECT_FALSE(fa.FileOpen(p, 1, 2, 3, 4));
        EXPECT_TRUE(fa.lastErrorLog().contains("Not implemented for Linux."));
        EXPECT_FALSE(fa.lastErrorLog().contains("Failed."));
        EXPECT_EQ(fa.get_FileOpenError(), 0);
        EXPECT_EQ(openErrorMsg(fa), "");
        EXPECT_FALSE(fa.get_EndOfFile());
        EXPECT_FALSE(hasOpenFile(fa));
    }
}

// The fragment reader resumes where its last fragment ended, across plain reads and seeks,
// until the next open attempt starts it again from the top.
TEST_F(OpenFileTest, EveryOpenRestartsTheFragmentScan) {
    XString p(writeFile("frags.txt", "[1][2][3]").c_str());
    XString begin("["), end("]"), utf8("utf-8");
    auto nextFragment = [&] {
        ClsStringBuilder sb;
        const int found = fa.ReadNextFragment(false, begin, end, utf8, sb);
        return std::to_string(found) + sb.m_str.getUtf8();
    };
    ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    EXPECT_EQ(nextFragment(), "1[1]");
    DataBuffer out;
    ASSERT_CALL_OK(fa, fa.FileRead(7, out));
    EXPECT_EQ(nextFragment(), "1[2]");

    ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    EXPECT_EQ(nextFragment(), "1[1]");
    ASSERT_CALL_OK(fa, fa.OpenForReadWrite(p));
    EXPECT_EQ(nextFragment(), "1[1]");
    EXPECT_EQ(nextFragment(), "1[2]");
    EXPECT_EQ(nextFragment(), "1[3]");
}

// A lock taken at open belongs to that open: changing the property later affects only the
// next open. Two objects in one process contend like two processes would.
TEST_F(OpenFileTest, LockFileOnOpenAppliesFromTheNextOpen) {
    XString p(writeFile("shared.txt", "abc").c_str());
    ClsFileAccess other;
    other.put_LockFileOnOpen(true);

    fa.put_LockFileOnOpen(true);
    ASSERT_CALL_OK(fa, fa.OpenForReadWrite(p));
    EXPECT_CALL_FAILS(other, other.OpenForRead(p));
    EXPECT_EQ(other.get_FileOpenError(), 1);

    fa.put_LockFileOnOpen(false);
    EXPECT_CALL_FAILS(other, other.OpenForRead(p));

    ASSERT_CALL_OK(fa, fa.OpenForReadWrite(p));
    EXPECT_CALL_OK(other, other.OpenForRead(p));
    EXPECT_EQ(other.get_FileOpenError(), 0);
}

}  // namespace
