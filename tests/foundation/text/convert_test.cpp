#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "foundation/base/LogBase.h"
#include "foundation/text/Convert.h"
#include "foundation/text/XString.h"

namespace {

std::string str(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

DataBuffer bufferOf(const std::string& s) {
    DataBuffer db;
    db.append(s.data(), static_cast<unsigned>(s.size()));
    return db;
}

// "Grüße € " plus a character outside the Basic Multilingual Plane (U+1F600).
const char* const kMixed =
    "Gr\xC3\xBC\xC3\x9F"
    "e \xE2\x82\xAC \xF0\x9F\x98\x80";
// Japanese and Chinese text that the East Asian charsets hold.
const char* const kCjk = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E abc";

TEST(Charset, NamesAndCodePages) {
    struct Case {
        const char* name;
        int codePage;
    };
    const Case cases[] = {
        {"utf-8", 65001},      {"UTF8", 65001},        {"Unicode", 1200},
        {"utf-16", 1200},      {"UTF-16LE", 1200},     {"unicodeFFFE", 1201},
        {"utf-16be", 1201},    {"utf-32", 12000},      {"utf-32be", 12001},
        {"ANSI", 1252},        {"windows-1252", 1252}, {"Windows-1250", 1250},
        {"us-ascii", 20127},   {"ascii", 20127},       {"latin1", 28591},
        {"ISO-8859-1", 28591}, {"iso-8859-15", 28605}, {"shift_jis", 932},
        {"gb18030", 54936},    {"cp1251", 1251},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        _ovCharset cs;
        ASSERT_TRUE(cs.setByName(c.name));
        EXPECT_EQ(cs.getCodePage(), c.codePage);
    }
    _ovCharset cs;
    ASSERT_TRUE(cs.setByName("utf-16be"));
    EXPECT_FALSE(cs.setByName("no-such-charset"));
    EXPECT_FALSE(cs.setByName(""));
    EXPECT_FALSE(cs.setByName(nullptr));
    EXPECT_FALSE(cs.setByName("ISO-8859-1//TRANSLIT"));
    EXPECT_FALSE(cs.setByCodePage(12345));
    EXPECT_EQ(cs.getCodePage(), 1201);  // unchanged by the failures
    for (int cp : {874, 932, 936, 949, 950, 1250, 1258, 20127, 28591, 28606, 50220, 51932, 54936,
                   65000, 65001, 1200, 1201, 12000, 12001}) {
        SCOPED_TRACE(cp);
        EXPECT_TRUE(cs.setByCodePage(cp));
        EXPECT_EQ(cs.getCodePage(), cp);
    }
    EXPECT_EQ(Psdk::getAnsiCodePage(), 1252);
    EXPECT_EQ(ov64::toUnsignedLong(0x1'2345'6789LL), 0x2345'6789u);
}

TEST(Convert, RoundTripsThroughCharsets) {
    struct Case {
        const char* charset;
        const char* text;
        const char* bytes;  // the expected encoding, hex; null to check the round trip only
    };
    const Case cases[] = {
        {"utf-16le", "A\xE2\x82\xAC\xF0\x9F\x98\x80", "4100AC203DD800DE"},
        {"utf-16be", "A\xE2\x82\xAC\xF0\x9F\x98\x80", "004120ACD83DDE00"},
        {"utf-32", "A\xF0\x9F\x98\x80", "4100000000F60100"},
        {"utf-32be", "A\xF0\x9F\x98\x80", "000000410001F600"},
        {"windows-1252", "\xE2\x82\xAC\xC3\xA9\xC5\x93", "80E99C"},
        {"shift_jis", kCjk, "93FA967B8CEA20616263"},
        {"gb18030", kMixed, nullptr},
        {"gb18030", kCjk, nullptr},
        {"utf-8", kMixed, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.charset);
        XString x(c.text);
        DataBuffer bytes;
        ASSERT_TRUE(x.getConverted(c.charset, bytes));
        if (c.bytes) {
            StringBuffer hex;
            bytes.encodeDB("hex", hex);
            EXPECT_EQ(hex.str(), c.bytes);
        }
        XString back;
        ASSERT_TRUE(back.setFromEncoding(bytes.getData2(), bytes.getSize(), c.charset));
        EXPECT_TRUE(back.equalsX(x)) << back.getUtf8();
        XString appended(">");
        ASSERT_TRUE(appended.appendFromEncodingDb(bytes, c.charset));
        EXPECT_EQ(appended.view(), std::string(">") + c.text);
    }
}

TEST(Convert, UnrepresentableTextAndInvalidBytesFail) {
    const std::pair<const char*, const char*> cannotHold[] = {
        {"windows-1252", kCjk},         {"shift_jis", kMixed}, {"us-ascii", "caf\xC3\xA9"},
        {"iso-8859-1", "\xE2\x82\xAC"}, {"utf-16le", "\xFF"},  {"utf-8", "\xC0\xAF"},
    };
    for (const auto& [charset, text] : cannotHold) {
        SCOPED_TRACE(charset);
        DataBuffer out;
        EXPECT_FALSE(XString(text).getConverted(charset, out));
    }
    const std::pair<const char*, std::string> invalid[] = {
        {"utf-8", "ok\xC3"},
        {"utf-8", "\xED\xA0\x80"},  // an encoded surrogate
        {"utf-8", "\xF4\x90\x80\x80"},
        {"utf-16le", std::string("\x00\xD8\x41\x00", 4)},  // lone high surrogate
        {"utf-16be", std::string("\x00\x41\x00", 3)},      // cut-off unit
        {"us-ascii", "\x80"},
        {"shift_jis", "\x81"},
        {"no-such-charset", "abc"},
    };
    for (const auto& [charset, bytes] : invalid) {
        SCOPED_TRACE(charset);
        XString x("unchanged");
        DataBuffer db = bufferOf(bytes);
        EXPECT_FALSE(x.takeFromEncodingDb(db, charset));
        EXPECT_FALSE(x.appendFromEncodingDb(bufferOf(bytes), charset));
        EXPECT_TRUE(x.equalsUtf8("unchanged"));
    }
    _ovLogger log;
    XString x("same");
    EXPECT_FALSE(x.setFromDb_cp(4242, bufferOf("ab"), &log));
    EXPECT_FALSE(x.setFromDb_cp(1200, bufferOf("abc"), nullptr));
    EXPECT_TRUE(x.equalsUtf8("same"));
    ASSERT_TRUE(x.setFromDb_cp(1200, bufferOf(std::string("h\0i\0", 4)), nullptr));
    EXPECT_TRUE(x.equalsUtf8("hi"));
}

TEST(Convert, ArbitraryBytesDecodeToValidTextOrFail) {
    // Whatever the bytes, decoding either fails and leaves the text alone or gives well-formed
    // UTF-8; for the Unicode forms that text also encodes back to the very same bytes.
    std::mt19937 rng(11);
    for (const char* charset : {"utf-8", "utf-16le", "utf-32be", "shift_jis", "gb18030"}) {
        SCOPED_TRACE(charset);
        bool unicode = std::string(charset).rfind("utf", 0) == 0;
        int decoded = 0;
        for (int round = 0; round < 300; ++round) {
            std::string bytes;
            size_t len = rng() % 12;
            // Mostly ASCII so that some inputs are valid; the rest anything.
            for (size_t i = 0; i < len; ++i)
                bytes.push_back(static_cast<char>(rng() % 3 ? rng() % 0x80 : rng() % 0x100));
            XString x("prior");
            if (!x.setFromEncoding(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<unsigned>(bytes.size()), charset)) {
                EXPECT_TRUE(x.equalsUtf8("prior"));
                continue;
            }
            ++decoded;
            EXPECT_TRUE(
                isValidUtf8(reinterpret_cast<const unsigned char*>(x.getUtf8()), x.getSizeUtf8()));
            DataBuffer back;
            EXPECT_TRUE(x.getConverted(charset, back));
            // A leading mark is dropped when decoding, so those bytes do not come back.
            _ovCharset cs;
            cs.setByName(charset);
            unsigned markLen = 0;
            const unsigned char* mark = preambleOf(cs.getCodePage(), markLen);
            bool hadMark =
                mark && bytes.size() >= markLen && std::memcmp(bytes.data(), mark, markLen) == 0;
            if (unicode && !hadMark) {
                EXPECT_EQ(str(back), bytes);
            }
        }
        EXPECT_GT(decoded, 0);
    }
}

TEST(Convert, PreamblesWrittenAndDropped) {
    struct Case {
        int codePage;
        const char* charset;
        std::string mark;
    };
    const Case cases[] = {
        {65001, "utf-8", "\xEF\xBB\xBF"},
        {1200, "utf-16le", "\xFF\xFE"},
        {1201, "utf-16be", "\xFE\xFF"},
        {12000, "utf-32le", std::string("\xFF\xFE\x00\x00", 4)},
        {12001, "utf-32be", std::string("\x00\x00\xFE\xFF", 4)},
        {1252, "windows-1252", ""},
    };
    XString text("h\xC3\xA9");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.charset);
        _ovCharset cs;
        ASSERT_TRUE(cs.setByCodePage(c.codePage));
        DataBuffer plain, marked;
        ASSERT_TRUE(text.getConverted(cs, plain));
        ASSERT_TRUE(text.getConvertedWithPreamble(cs, marked));
        EXPECT_EQ(str(marked), c.mark + str(plain));
        XString back;
        ASSERT_TRUE(back.takeFromEncodingDb(marked, c.charset));
        EXPECT_TRUE(back.equalsX(text)) << back.getUtf8();
    }
    // Only the decoded charset's own mark is dropped: the UTF-8 mark read as windows-1252 is
    // three ordinary characters.
    XString x;
    ASSERT_TRUE(x.setFromEncoding(reinterpret_cast<const unsigned char*>("\xEF\xBB\xBFhi"), 5,
                                  "windows-1252"));
    EXPECT_EQ(x.getSizeUtf8(), 2u * 3 + 2);  // three characters of two or three bytes, then "hi"
}

TEST(Convert, ConvertersWorkOnManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &failures] {
            const char* charsets[] = {"utf-16be", "gb18030", "utf-32", "windows-1252"};
            XString text(t == 3 ? "caf\xC3\xA9" : kMixed);
            for (int i = 0; i < 300; ++i) {
                DataBuffer bytes;
                XString back;
                if (!text.getConverted(charsets[t], bytes) ||
                    !back.takeFromEncodingDb(bytes, charsets[t]) || !back.equalsX(text))
                    ++failures[t];
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

TEST(XStringText, AnsiViewAndStringOperations) {
    XString x("caf\xC3\xA9 \xE2\x82\xAC \xE6\x97\xA5 \xFF");
    EXPECT_EQ(std::string(x.getAnsi()), "caf\xE9 \x80 ? ?");

    XString s("Path/To/File.TXT");
    EXPECT_TRUE(s.beginsWithUtf8("path", true));
    EXPECT_FALSE(s.beginsWithUtf8("path", false));
    EXPECT_TRUE(s.endsWithUtf8(".txt", true));
    EXPECT_FALSE(s.endsWithUtf8("x.Path/To/File.TXT", true));
    EXPECT_TRUE(s.containsSubstringUtf8("."));
    EXPECT_FALSE(s.containsSubstringUtf8(".."));
    s.chopAtLastChar('.');
    EXPECT_TRUE(s.equalsUtf8("Path/To/File"));
    s.chopAtLastChar('#');
    EXPECT_TRUE(s.equalsUtf8("Path/To/File"));
    s.appendInt64(-9000000000LL);
    EXPECT_TRUE(s.equalsUtf8("Path/To/File-9000000000"));
    s.getUtf8Sb_rw().prepend("/");
    EXPECT_TRUE(s.equalsUtf8("/Path/To/File-9000000000"));

    StringBuffer sb(" \t a/b/c \r\n");
    sb.trim2();
    EXPECT_EQ(sb.str(), "a/b/c");
    StringBuffer popped("old");
    sb.pop('/', popped);
    EXPECT_EQ(sb.str(), "a/b");
    EXPECT_EQ(popped.str(), "c");
    sb.pop('#', popped);
    EXPECT_EQ(sb.str(), "a/b");
    EXPECT_TRUE(popped.isEmpty());
    EXPECT_TRUE(sb.replaceFirstOccurance("A/", "x-", true));
    EXPECT_FALSE(sb.replaceFirstOccurance("A/", "x-", false));
    EXPECT_EQ(sb.str(), "x-b");
    sb.append(-42);
    sb.appendCharN('0', 2);
    EXPECT_EQ(sb.str(), "x-b-4200");
}

}  // namespace
