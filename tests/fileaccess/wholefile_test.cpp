// Whole files into and out of memory, as bytes and as text in a named charset.
#include <string>
#include <tuple>

#include "fileaccess/LogProbe.h"
#include "foundation/text/Charset.h"

namespace {

using WholeFileTest = FileAccessTest;

// Each row's writes replace the files the row before wrote (longer ones, for the empty
// texts); the bytes read back replace what the buffer held.
TEST_F(WholeFileTest, TextInEachCharsetWithAndWithoutPreambleAndTheBytesBack) {
    const std::string utf8 = "Gr\xC3\xBC\xC3\x9Fs \xE2\x82\xAC", ansi = "Gr\xFC\xDFs \x80";
    const std::string le("G\0r\0\xFC\0\xDF\0s\0 \0\xAC\x20", 14);
    const std::tuple<const char*, bool, std::string, std::string> cases[] = {
        {"utf-8", false, utf8, utf8},        {"UTF-8", true, utf8, "\xEF\xBB\xBF" + utf8},
        {"utf-16", false, utf8, le},         {"utf-16", true, utf8, "\xFF\xFE" + le},
        {"windows-1252", true, utf8, ansi},  {"utf-8", false, "", ""},
        {"utf-8", true, "", "\xEF\xBB\xBF"}, {"windows-1252", true, "", ""}};
    XString p = X(path("text.txt")), q = X(writeFile("bytes.bin", std::string(100, 'o')));
    for (const auto& [charset, preamble, text, bytes] : cases) {
        SCOPED_TRACE(std::string(charset) + (preamble ? " with preamble " : " ") + text);
        XString cs(charset), in = X(text), back("stale");
        DataBuffer raw;
        raw.append("previous", 8);
        ASSERT_CALL_OK(fa, fa.WriteEntireTextFile(p, in, cs, preamble));
        EXPECT_EQ(value("charset") + value("includePreamble") + "/" + value("numOutputBytes"),
                  charset + std::to_string(preamble) + "/" + std::to_string(bytes.size()));
        ASSERT_CALL_OK(fa, fa.ReadEntireTextFile(p, cs, back));
        EXPECT_EQ(back.getUtf8() + lastLine(), text + "Success.");
        ASSERT_CALL_OK(fa, fa.ReadEntireFile(p, raw));
        EXPECT_EQ(bytesOf(raw), bytes);
        ASSERT_CALL_OK(fa, fa.WriteEntireFile(q, raw));
        EXPECT_EQ(readFile(q.getUtf8()), bytes);
    }
    // Text the charset cannot hold, and bytes that are no valid UTF-8, do not fail the call.
    XString cjk("\xE6\x97\xA5"), latin("latin1"), utf8cs("utf-8");
    EXPECT_CALL_OK(fa, fa.WriteEntireTextFile(p, cjk, latin, false));
    writeFile("text.txt", "\xFF\xFE\xFD");
    EXPECT_CALL_OK(fa, fa.ReadEntireTextFile(p, utf8cs, cjk));
    EXPECT_TRUE(cjk.isEmpty()) << cjk.getUtf8();
}

// Texts of a few MiB, so that writes go in several pieces and reads in several blocks, with
// characters cut at their edges: the file holds one conversion's bytes (up to a character the
// charset cannot hold, after which nothing is written) and reads back to the text.
TEST_F(WholeFileTest, LongTextsInPiecesAsOneConversion) {
    std::string text;
    for (int i = 0; text.size() < 3000000; ++i)
        text += i % 7 ? "a\xCE\xA9\xE3\x81\x82 " : "\n";  // Latin, Greek, kana
    const std::string lacked = text.substr(0, 1234567) + "\xC3\xA9" + text.substr(1234567);
    const std::tuple<const char*, std::string> cases[] = {
        {"utf-8", text}, {"utf-16be", text}, {"iso-2022-jp", text}, {"iso-2022-jp", lacked}};
    XString p = X(path("long.txt"));
    for (const auto& [charset, content] : cases) {
        SCOPED_TRACE(std::string(charset) + (content.size() == text.size() ? "" : " lacking"));
        XString cs(charset), in = X(content), back("stale");
        _ovCharset target;
        target.setByName(charset);
        DataBuffer whole;
        const bool converts = in.getConvertedWithPreamble(target, whole);
        ASSERT_CALL_OK(fa, fa.WriteEntireTextFile(p, in, cs, true));
        EXPECT_EQ(value("numOutputBytes"), std::to_string(whole.getSize()));
        EXPECT_TRUE(readFile(p.getUtf8()) == bytesOf(whole));
        ASSERT_CALL_OK(fa, fa.ReadEntireTextFile(p, cs, back));
        EXPECT_EQ(back.getSizeUtf8(), converts ? content.size() : 1234567u);
        EXPECT_TRUE(back.view() == std::string_view(content).substr(0, back.getSizeUtf8()));
    }
}

}  // namespace
