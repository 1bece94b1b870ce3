// Whole files into and out of memory, as bytes and as text in a named charset.
#include <string>

#include "fileaccess/LogProbe.h"

namespace {

using WholeFileTest = FileAccessTest;

DataBuffer bufferOf(const std::string& bytes) {
    DataBuffer db;
    db.append(bytes.data(), static_cast<unsigned>(bytes.size()));
    return db;
}

// Each write replaces a longer file; each read replaces what the buffer held.
TEST_F(WholeFileTest, BytesRoundTripAndReplaceWhatWasThere) {
    XString p = X(writeFile("data.bin", std::string(100, 'o')));
    for (const std::string& bytes : {std::string("\x00\x01\xFF bin\r\n\x00", 9), std::string()}) {
        DataBuffer data = bufferOf(bytes), back = bufferOf("previous content");
        ASSERT_CALL_OK(fa, fa.WriteEntireFile(p, data));
        ASSERT_CALL_OK(fa, fa.ReadEntireFile(p, back));
        EXPECT_EQ(readFile(p.getUtf8()) + "|" + bytesOf(back), bytes + "|" + bytes);
    }
}

// Failed reads keep the caller's buffer (the text form empties its output and writes its
// outcome line), a text write logs its values before failing, and nothing existing is touched.
TEST_F(WholeFileTest, BadPathsFailWithAReasonAndLoseNothing) {
    writeFile("keep.txt", "keep");
    XString text("\xC3\xBC"), cs("utf-8");
    for (const std::string& bad : {std::string(), dir(), path("keep.txt/x"), path("nodir/f"),
                                   path(std::string(300, 'L') + "\xC3\xA9")}) {
        SCOPED_TRACE(bad.substr(0, 60));
        XString p = X(bad), out("stale");
        DataBuffer held = bufferOf("held");
        EXPECT_CALL_FAILS(fa, fa.WriteEntireFile(p, held));
        EXPECT_TRUE(fa.lastErrorLog().hasErrors() && lastLine() != "Failed.") << lastLog(fa);
        EXPECT_CALL_FAILS(fa, fa.WriteEntireTextFile(p, text, cs, true));
        EXPECT_EQ(valueNames(),
                  (Names{"filename", "charset", "includePreamble", "numOutputBytes"}));
        EXPECT_EQ(value("filename") + "|" + value("numOutputBytes"), bad + "|5");
        EXPECT_TRUE(fa.lastErrorLog().hasErrors() && lastLine() != "Failed.") << lastLog(fa);
        EXPECT_CALL_FAILS(fa, fa.ReadEntireFile(p, held));
        EXPECT_CALL_FAILS(fa, fa.ReadEntireTextFile(p, cs, out));
        EXPECT_EQ(bytesOf(held) + out.getUtf8() + lastLine(), "heldFailed.");
    }
    EXPECT_EQ(readFile(path("keep.txt")), "keep");
}

TEST_F(WholeFileTest, TextInEachCharsetWithAndWithoutPreamble) {
    const std::string utf8 = "Gr\xC3\xBC\xC3\x9Fs \xE2\x82\xAC", ansi = "Gr\xFC\xDFs \x80";
    const std::string le("G\0r\0\xFC\0\xDF\0s\0 \0\xAC\x20", 14);
    const std::string be("\0G\0r\0\xFC\0\xDF\0s\0 \x20\xAC", 14);
    const struct {
        const char* charset;
        bool preamble;
        std::string text, bytes;
    } cases[] = {{"utf-8", false, utf8, utf8},        {"UTF-8", true, utf8, "\xEF\xBB\xBF" + utf8},
                 {"utf-16", false, utf8, le},         {"utf-16", true, utf8, "\xFF\xFE" + le},
                 {"utf-16be", false, utf8, be},       {"utf-16be", true, utf8, "\xFE\xFF" + be},
                 {"windows-1252", true, utf8, ansi},  {"utf-8", false, "", ""},
                 {"utf-8", true, "", "\xEF\xBB\xBF"}, {"windows-1252", true, "", ""}};
    XString p = X(path("text.txt"));
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.charset) + (c.preamble ? " with preamble " : " ") + c.text);
        XString cs(c.charset), text = X(c.text), back("stale");
        ASSERT_CALL_OK(fa, fa.WriteEntireTextFile(p, text, cs, c.preamble));
        EXPECT_EQ(readFile(p.getUtf8()), c.bytes);
        EXPECT_EQ(value("charset") + value("includePreamble") + "/" + value("numOutputBytes"),
                  c.charset + std::to_string(c.preamble) + "/" + std::to_string(c.bytes.size()));
        ASSERT_CALL_OK(fa, fa.ReadEntireTextFile(p, cs, back));
        EXPECT_EQ(back.getUtf8() + lastLine(), c.text + "Success.");
    }
    // Text the charset cannot hold, and bytes that are no valid UTF-8, do not fail the call.
    XString cjk("\xE6\x97\xA5"), latin("latin1"), utf8cs("utf-8");
    EXPECT_CALL_OK(fa, fa.WriteEntireTextFile(p, cjk, latin, false));
    writeFile("text.txt", "\xFF\xFE\xFD");
    EXPECT_CALL_OK(fa, fa.ReadEntireTextFile(p, utf8cs, cjk));
    EXPECT_TRUE(cjk.isEmpty()) << cjk.getUtf8();
}

}  // namespace
