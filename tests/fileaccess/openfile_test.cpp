// Opening and closing the current file: modes, open-error codes and messages, and the state
// every open attempt, FileOpen and FileClose leave behind.
#include <climits>
#include <fstream>
#include <tuple>

#include "fileaccess/LogProbe.h"
#include "fileaccess/OpenErrorText.h"

namespace {

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

// The tests ask whether a file is open with FileSeek, which needs one.
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
    for (int code : {-2, -1, 0, 1, 2, 5, 8, 13, 15, 16, 17, 18, 1000, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(code);
        const bool known = code >= 0 && code <= 16;
        EXPECT_EQ(openErrorText(code), known ? message(code) : "Unknown file open error.");
    }
}

// Each open follows a good open that read to the end. Existing files hold "hello" and get
// "XY" written when the mode allows; a failed open reports the system's reason and leaves
// no file open, and every open clears the end-of-file flag.
TEST_F(OpenFileTest, EachModeOpensOrFailsWithItsReasonAndResetsTheState) {
    const auto rd = &ClsFileAccess::OpenForRead, wr = &ClsFileAccess::OpenForWrite,
               rw = &ClsFileAccess::OpenForReadWrite, ap = &ClsFileAccess::OpenForAppend;
    // Mode, file name ("long": longer than the system allows), code, content afterwards.
    const std::tuple<decltype(rd), std::string, int, std::string> cases[] = {
        {rd, "r", 0, "hello"},           {wr, "w", 0, "XY"},
        {rw, "rw", 0, "XYllo"},          {ap, "a", 0, "helloXY"},
        {rd, "r-new", 2, "<missing>"},   {wr, "w-new", 0, "XY"},
        {rw, "rw-new", 0, "XY"},         {ap, "a-new", 0, "XY"},
        {wr, "no/such", 2, "<missing>"}, {wr, ".", 5, "-"},
        {wr, "long", 8, "<missing>"},    {ap, "plain/x", 13, "<missing>"}};
    XString good(writeFile("good.txt", "0123").c_str());
    for (const char* name : {"r", "w", "rw", "a", "plain"}) writeFile(name, "hello");
    DataBuffer data;
    data.append("XY", 2);
    for (const auto& [open, name, code, after] : cases) {
        SCOPED_TRACE(name);
        openAndReadToEnd(good);
        XString p(path(name == "long" ? std::string(300, 'n') : name).c_str());
        EXPECT_EQ((fa.*open)(p), code == 0) << lastLog(fa);
        EXPECT_EQ(fa.get_FileOpenError(), code);
        EXPECT_EQ(openErrorMsg(fa), message(code));
        EXPECT_FALSE(fa.get_EndOfFile());
        EXPECT_TRUE(code == 0 || fa.lastErrorLog().contains("Failed.")) << lastLog(fa);
        // Only an open file is written to, and only when its mode allows it.
        EXPECT_EQ(code == 0 && fa.FileWrite(data), code == 0 && open != rd) << lastLog(fa);
        EXPECT_EQ(fa.FileSeek(0, 0), code == 0);
        fa.FileClose();
        if (after != "-") {  // a directory is not read back
            EXPECT_EQ(readFile(p.getUtf8()), after);
        }
    }
}

// FileClose clears the end-of-file flag and keeps the scan offset; a failed open resets the
// offset; FileOpen is refused but resets like any open.
TEST_F(OpenFileTest, FileCloseAndFileOpenResetWhatTheyShould) {
    XString p(writeFile("f.txt", "[1][2]").c_str()), bad(path("missing").c_str());
    XString begin("["), end("]"), utf8("utf-8");
    ClsStringBuilder sb;
    // A scan that cannot place the file logs the offset it would have started from.
    auto scanOffset = [&] {
        return fa.ReadNextFragment(false, begin, end, utf8, sb) == -1 ? value("position") : "-";
    };
    openAndReadToEnd(p);
    EXPECT_EQ(fa.ReadNextFragment(true, begin, end, utf8, sb), 1);
    fa.FileClose();
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_FALSE(fa.FileSeek(0, 0));
    EXPECT_EQ(scanOffset(), "3");
    EXPECT_CALL_FAILS(fa, fa.OpenForRead(bad));
    EXPECT_EQ(scanOffset(), "0");
    openAndReadToEnd(p);
    EXPECT_FALSE(fa.FileOpen(p, 1, 2, 3, 4));
    EXPECT_EQ(lastLine(), "Not implemented for Linux.");  // and no failure line
    EXPECT_EQ(fa.get_FileOpenError(), 0);
    EXPECT_EQ(openErrorMsg(fa), "");
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_FALSE(fa.FileSeek(0, 0));
}

}  // namespace
