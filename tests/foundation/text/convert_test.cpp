#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "foundation/text/Charset.h"
#include "foundation/text/CharsetAliases.h"
#include "foundation/text/Convert.h"
#include "foundation/text/XString.h"
#include "support/TestSupport.h"

namespace {

using namespace std::string_literals;

// "Grüße € " plus a character outside the Basic Multilingual Plane (U+1F600), the euro sign
// and that character after an "A", and Japanese text with ASCII that the East Asian charsets hold.
const char* const kMixed = "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x98\x80";
const char* const kWide = "A\xE2\x82\xAC\xF0\x9F\x98\x80";
const char* const kCjk = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E abc";

TEST(Convert, RoundTripsAndTextACharsetCannotHold) {
    // Charset (also under its odd aliases), text, and the expected encoding in hex; "" checks
    // the round trip only, null means the charset cannot hold the text.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"Unicode", kWide, "4100AC203DD800DE"},
        // Other names iconv has for those charsets: no byte-order mark before the text.
        {"UTF16", kWide, "4100AC203DD800DE"},
        {"utf32", kWide, "41000000AC20000000F60100"},
        {"UCS-2", "A\xC3\xA9", "4100E900"},
        {"L1", "caf\xC3\xA9", "636166E9"},
        // A vendor variant keeps its own tables, where EUC-JP has no circled one and reads
        // A1 C1 as the wave dash U+301C.
        {"EUC-JP-MS", "\xE2\x91\xA0", "ADA1"},
        {"EUC-JP-MS", "\xEF\xBD\x9E", "A1C1"},
        {"unicodeFFFE", kWide, "004120ACD83DDE00"},
        {"utf-32", kWide, "41000000AC20000000F60100"},
        {"utf-32be", kWide, "00000041000020AC0001F600"},
        {"ANSI", "\xE2\x82\xAC\xC3\xA9\xC5\x93", "80E99C"},
        {"shift_jis", kCjk, "93FA967B8CEA20616263"},
        {"gb18030", kMixed, ""},
        {"UTF8", kMixed, ""},
        {"windows-1252", kCjk, nullptr},
        {"shift_jis", kMixed, nullptr},
        {"us-ascii", "caf\xC3\xA9", nullptr},
        {"iso-8859-1", "\xE2\x82\xAC", nullptr},
        {"utf-16le", "\xFF", nullptr},
        {"utf-8", "\xC0\xAF", nullptr},
    };
    for (const auto& [charset, text, expected] : cases) {
        SCOPED_TRACE(charset);
        DataBuffer bytes;
        ASSERT_EQ(XString(text).getConverted(charset, bytes), expected != nullptr);
        if (!expected) continue;
        StringBuffer hex;
        bytes.encodeDB("hex", hex);
        EXPECT_TRUE(!*expected || hex.str() == expected) << hex.str();
        XString appended(">");
        ASSERT_TRUE(appended.appendFromEncodingDb(bytes, charset));
        EXPECT_EQ(appended.view(), std::string(">") + text);
    }
}

// Every name of a charset the tables know answers its code page; the Unicode forms go to
// iconv under the name of their byte order. A name that agrees with a table's charset on most
// characters but not on all keeps its own converter, and converts as iconv does under that
// name (IBM9448 writes U+0191 as "F", which CP1256 cannot hold).
TEST(Convert, AliasesAnswerTheirCodePage) {
    struct Case {
        const char* name;
        int codePage;
        const char* iconvName;
        const char *text = nullptr, *hex = nullptr;  // a character and its bytes in the charset
    } cases[] = {
        {"L1", 28591, "ISO-8859-1"},
        {"cp819", 28591, "ISO-8859-1"},
        {"UTF16", 1200, "UTF-16LE"},
        {"UTF32", 12000, "UTF-32LE"},
        {"MS_KANJI", 932, "SHIFT_JIS"},
        {"UCS-2", 0, "UCS-2LE"},
        {"latin2", 28592, "ISO-8859-2"},
        {"EUC-JP-MS", 0, "EUC-JP-MS", "\xE2\x91\xA0", "ADA1"},
        {"IBM9448", 0, "IBM9448", "\xC6\x91", "46"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        _ovCharset cs;
        ASSERT_TRUE(cs.setByName(c.name));
        EXPECT_EQ(cs.getCodePage(), c.codePage);
        EXPECT_STREQ(cs.getIconvName(), c.iconvName);
        if (!c.text) continue;
        DataBuffer bytes;
        ASSERT_TRUE(XString(c.text).getConverted(cs, bytes));
        StringBuffer hex;
        bytes.encodeDB("hex", hex);
        EXPECT_EQ(hex.str(), c.hex);
    }
}

// A name whose converter writes a byte-order mark before every output, and that no form of
// the tables is taken for, keeps its converter; the conversions take the mark off each
// output, and off the first output of a stream, whatever the first piece holds. The text's
// own U+FEFF stays.
TEST(Convert, AMarkTheConverterWritesIsTakenOff) {
    struct WithoutMatching {
        WithoutMatching() { setCharsetAliasMatching(false); }
        ~WithoutMatching() { setCharsetAliasMatching(true); }
    } withoutMatching;
    _ovCharset cs;
    ASSERT_TRUE(cs.setByName("UTF16"));
    EXPECT_STREQ(cs.getIconvName(), "UTF16");
    EXPECT_EQ(cs.getCodePage(), 0);
    const std::pair<const char*, std::string> cases[] = {
        {"A", "A\0"s}, {"A", "A\0"s}, {"\xEF\xBB\xBF\x41", "\xFF\xFE\x41\0"s}, {"", ""}};
    for (const auto& [text, bytes] : cases) {
        SCOPED_TRACE(text);
        DataBuffer out;
        ASSERT_TRUE(XString(text).getConverted(cs, out));
        EXPECT_EQ(bytesOf(out), bytes);
    }
    const std::pair<std::vector<std::string>, std::string> streams[] = {
        {{"A", "B"}, "A\0B\0"s},
        {{"\xEF\xBB", "\xBF\x41", "B"}, "\xFF\xFE\x41\0B\0"s},
        {{"", "\xC3", "\xA9"}, "\xE9\0"s},
    };
    for (const auto& [pieces, bytes] : streams) {
        SCOPED_TRACE(bytes.size());
        StreamConverter conv;
        ASSERT_TRUE(conv.open("UTF-8", cs.getIconvName()));
        DataBuffer out;
        for (size_t i = 0; i < pieces.size(); ++i)
            ASSERT_TRUE(conv.convert(reinterpret_cast<const unsigned char*>(pieces[i].data()),
                                     pieces[i].size(), i + 1 == pieces.size(), out));
        EXPECT_EQ(bytesOf(out), bytes);
    }
}

// What windows-1252 holds converts; a character it lacks anywhere, or a byte that is no
// UTF-8, fails the whole conversion, which gives the empty string.
TEST(Convert, AnsiTextFailsWhereTheCodePageCannotHoldIt) {
    const std::pair<const char*, const char*> cases[] = {
        {"caf\xC3\xA9 \xE2\x82\xAC \xC5\xB8", "caf\xE9 \x80 \x9F"},
        {"\xE6\x97\xA5\xE6\x9C\xAC x", ""},
        {"x \xE6\x97\xA5", ""},
        {"a\xFF\xC3"
         "b",
         ""},
        {"\xF0\x9F\x98\x80", ""},
        {"", ""}};
    for (const auto& [utf8, ansi] : cases) {
        SCOPED_TRACE(utf8);
        EXPECT_STREQ(XString(utf8).getAnsi(), ansi);
    }
}

TEST(Convert, InvalidBytesFailWithoutChange) {
    // A cut-off sequence, an encoded surrogate, a code point past U+10FFFF, a lone high
    // surrogate, a cut-off unit, bytes outside their charsets, and charsets that do not exist.
    const std::pair<const char*, std::string> invalid[] = {
        {"utf-8", "ok\xC3"},           {"utf-8", "\xED\xA0\x80"},
        {"utf-8", "\xF4\x90\x80\x80"}, {"utf-16le", "\x00\xD8\x41\x00"s},
        {"utf-16be", "\x00\x41\x00"s}, {"us-ascii", "\x80"},
        {"shift_jis", "\x81"},         {"nonesuch", "abc"},
        {"latin1//IGNORE", "abc"},
    };
    for (const auto& [charset, bytes] : invalid) {
        SCOPED_TRACE(charset);
        XString x("unchanged");
        EXPECT_FALSE(x.setFromEncoding(reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<unsigned>(bytes.size()), charset));
        EXPECT_FALSE(x.appendFromEncodingDb(bufferOf(bytes), charset));
        EXPECT_TRUE(x.equalsUtf8("unchanged"));
    }
}

// Appending that takes the bytes gives the text appending gives, and leaves the bytes empty
// with their storage released; on failure it changes neither. The large cases are held in
// mapped storage and moved over in parts, each released once copied.
TEST(Convert, AppendingThatTakesTheBytesGivesTheSameText) {
    std::string large;
    for (int i = 0; large.size() < (5u << 20) + 123; ++i) large += std::to_string(i) + " \xC3\xA9 ";
    const std::tuple<const char*, std::string, bool> cases[] = {
        {"utf-8", "plain \xC3\xA9", true},
        {"utf-8", "\xEF\xBB\xBFmarked", true},
        {"utf-8", "", true},
        {"utf-8", "cut \xC3", false},
        {"utf-16le", "h\0i\0"s, true},
        {"utf-16le", "\xFF\xFEh\0"s, true},
        {"utf-16le", "\x00\xD8"s, false},
        {"utf-8", large, true},
        {"utf-8", "\xEF\xBB\xBF" + large, true},
        {"utf-8", large + "\xC3", false},
    };
    for (const auto& [charset, bytes, valid] : cases) {
        SCOPED_TRACE(std::string(charset) + ", " + std::to_string(bytes.size()) + " bytes");
        _ovCharset cs;
        ASSERT_TRUE(cs.setByName(charset));
        XString appended("> "), taken("> ");
        DataBuffer source = bufferOf(bytes);
        EXPECT_EQ(appended.appendFromEncoding(cs, source.getData2(), source.getSize()), valid);
        EXPECT_EQ(taken.appendFromEncodingTaking(cs, source), valid);
        EXPECT_TRUE(taken.view() == appended.view());
        EXPECT_EQ(source.getSize(), valid ? 0u : bytes.size());
        EXPECT_EQ(source.getCapacity() == 0, valid);
        EXPECT_EQ(bytesOf(source), valid ? "" : bytes);
    }
}

TEST(Convert, PreamblesWrittenAndDropped) {
    const std::pair<int, std::string> cases[] = {
        {65001, "\xEF\xBB\xBF"},      {1200, "\xFF\xFE"},           {1201, "\xFE\xFF"}, {1252, ""},
        {12000, "\xFF\xFE\x00\x00"s}, {12001, "\x00\x00\xFE\xFF"s},
    };
    XString text("h\xC3\xA9");
    for (const auto& [codePage, mark] : cases) {
        SCOPED_TRACE(codePage);
        _ovCharset cs;
        DataBuffer plain, marked;
        ASSERT_TRUE(cs.setByCodePage(codePage) && text.getConverted(cs, plain) &&
                    text.getConvertedWithPreamble(cs, marked));
        EXPECT_EQ(bytesOf(marked), mark + bytesOf(plain));
        XString back;
        ASSERT_TRUE(back.setFromDb_cp(codePage, marked, nullptr));
        EXPECT_TRUE(back.equalsX(text)) << back.getUtf8();
    }
    // Only the decoded charset's own mark is dropped: the UTF-8 mark read as windows-1252 is
    // three ordinary characters (of two or three bytes each), then "hi".
    XString x;
    ASSERT_TRUE(x.setFromEncoding(reinterpret_cast<const unsigned char*>("\xEF\xBB\xBFhi"), 5,
                                  "windows-1252"));
    EXPECT_EQ(x.getSizeUtf8(), 2u * 3 + 2);
}

TEST(Convert, ConvertersWorkOnManyThreadsAtOnce) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (const char* charset : {"utf-16be", "gb18030", "utf-32", "shift_jis"}) {
        threads.emplace_back([&failures, charset] {
            XString text(charset[0] == 's' ? kCjk : kMixed), back;
            for (int i = 0; i < 300; ++i) {
                DataBuffer bytes;
                failures += !text.getConverted(charset, bytes) ||
                            !back.takeFromEncodingDb(bytes, charset) || !back.equalsX(text);
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(failures, 0);
}

}  // namespace
