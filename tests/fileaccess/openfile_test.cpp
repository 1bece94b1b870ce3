// Opening and closing the current file: modes, open-error codes and messages, and the state
// every open attempt, FileOpen and FileClose leave behind.
#include <climits>
#include <fstream>
#include <string>

#include "fileaccess/LogProbe.h"
#include "fileaccess/OpenErrorText.h"

namespace {

using OpenFn = bool (ClsFileAccess::*)(XString&);

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

// The message of each open-error code, 0 to 16, one a line (trailing spaces matter).
std::string message(int code) {
    std::ifstream in(testDataPath("open_error_messages.txt"));
    std::string line;
    for (int i = 0; i <= code; ++i) std::getline(in, line);
    return line;
}

class OpenFileTest : public FileAccessTest {
  protected:
    // Opens `p` for reading and reads past its end, so the end-of-file flag is set.
    void openAndReadToEnd(XString& p) {
        DataBuffer out;
        ASSERT_CALL_OK(fa, fa.OpenForRead(p));
        ASSERT_CALL_OK(fa, fa.FileRead(1000, out));
        ASSERT_TRUE(fa.get_EndOfFile());
    }
};

TEST(OpenErrorTextTest, EveryCodeHasItsMessageAndOthersAreUnknown) {
    for (int code = -2; code <= 18; ++code) {
        SCOPED_TRACE(code);
        const bool known = code >= 0 && code <= 16;
        EXPECT_EQ(openErrorText(code), known ? message(code) : "Unknown file open error.");
    }
    for (int code : {1000, INT_MAX, INT_MIN})
        EXPECT_STREQ(openErrorText(code), "Unknown file open error.");
}

// Each mode on an existing file holding "hello", then writing "XY"; and on a missing file.
TEST_F(OpenFileTest, EachModeTreatsExistingAndMissingFilesAsItsNameSays) {
    const struct {
        const char* name;
        OpenFn open;
        bool writes, createsMissing;
        const char* after;
    } cases[] = {
        {"read", &ClsFileAccess::OpenForRead, false, false, "hello"},
        {"write", &ClsFileAccess::OpenForWrite, true, true, "XY"},
        {"readwrite", &ClsFileAccess::OpenForReadWrite, true, true, "XYllo"},
        {"append", &ClsFileAccess::OpenForAppend, true, true, "helloXY"},
    };
    DataBuffer data;
    data.append("XY", 2);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XString p(writeFile(c.name, "hello").c_str()),
            missing(path(c.name + std::string("-new")).c_str());
        ASSERT_CALL_OK(fa, (fa.*c.open)(p));
        EXPECT_EQ(fa.get_FileOpenError(), 0);
        EXPECT_EQ(openErrorMsg(fa), "Success.");
        EXPECT_EQ(fa.FileWrite(data), c.writes) << lastLog(fa);
        fa.FileClose();
        EXPECT_EQ(readFile(p.getUtf8()), c.after);
        EXPECT_EQ((fa.*c.open)(missing), c.createsMissing) << lastLog(fa);
        EXPECT_EQ(fa.get_FileOpenError(), c.createsMissing ? 0 : 2);
        EXPECT_EQ(readFile(missing.getUtf8()), c.createsMissing ? "" : "<missing>");
    }
}

// A failed open closes the file a good open left and clears the end-of-file flag, reporting
// the system's reason in both properties; the next good open resets them.
TEST_F(OpenFileTest, FailedOpenAfterAGoodOneReportsItsReasonAndLeavesNothingOpen) {
    XString good(writeFile("good.txt", "0123").c_str());
    writeFile("plain", "x");
    const std::pair<std::string, int> cases[] = {
        {path("no/such"), 2}, {dir(), 5}, {path(std::string(300, 'n')), 8}, {path("plain/x"), 13}};
    for (const auto& [p, code] : cases) {
        SCOPED_TRACE(code);
        openAndReadToEnd(good);
        XString xp(p.c_str());
        EXPECT_CALL_FAILS(fa, fa.OpenForWrite(xp));
        EXPECT_EQ(fa.get_FileOpenError(), code);
        EXPECT_EQ(openErrorMsg(fa), message(code));
        EXPECT_TRUE(fa.lastErrorLog().contains("Failed.")) << lastLog(fa);
        EXPECT_FALSE(fa.get_EndOfFile());
        EXPECT_FALSE(hasOpenFile(fa));
    }
    openAndReadToEnd(good);
    EXPECT_EQ(openErrorMsg(fa), "Success.");
}

// FileClose clears the end-of-file flag only; FileOpen is refused but resets like any open.
TEST_F(OpenFileTest, FileCloseAndFileOpenResetWhatTheyShould) {
    XString p(writeFile("f.txt", "[1][2]").c_str()), bad(path("missing").c_str());
    XString begin("["), end("]"), utf8("utf-8");
    // A scan that cannot place the file logs the offset it would have started from.
    auto scanOffset = [&] {
        ClsStringBuilder sb;
        return fa.ReadNextFragment(false, begin, end, utf8, sb) == -1 ? value("position") : "-";
    };
    fa.FileClose();  // nothing open: harmless
    EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
    EXPECT_CALL_FAILS(fa, fa.OpenForRead(bad));
    fa.put_LockFileOnOpen(true);
    openAndReadToEnd(p);
    ClsStringBuilder sb;
    EXPECT_EQ(fa.ReadNextFragment(true, begin, end, utf8, sb), 1);
    fa.FileClose();
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_FALSE(hasOpenFile(fa));
    EXPECT_EQ(openErrorMsg(fa), "Success.");
    EXPECT_TRUE(fa.get_LockFileOnOpen());
    EXPECT_EQ(scanOffset(), "3");
    EXPECT_CALL_FAILS(fa, fa.OpenForRead(bad));
    EXPECT_EQ(scanOffset(), "0");

    for (bool openFirst : {true, false}) {
        SCOPED_TRACE(openFirst);
        if (openFirst) openAndReadToEnd(p);
        EXPECT_FALSE(fa.FileOpen(p, 1, 2, 3, 4));
        EXPECT_TRUE(fa.lastErrorLog().contains("Not implemented for Linux."));
        EXPECT_FALSE(fa.lastErrorLog().contains("Failed."));
        EXPECT_EQ(fa.get_FileOpenError(), 0);
        EXPECT_EQ(openErrorMsg(fa), "");
        EXPECT_FALSE(fa.get_EndOfFile());
        EXPECT_FALSE(hasOpenFile(fa));
    }
}

}  // namespace
