// The program's record scan for tag markers: every form of the tag, in file order, whatever
// the seams of the blocks it is read in.
#include <gtest/gtest.h>

#ifdef FA_HAVE_FATOOL

#include <cstring>

#include "FatoolCalls.h"
#include "TagScan.h"
#include "foundation/text/XString.h"

namespace {

using fatool_test::FatoolTest;

// Bytes from a string, `failAt` bytes and then a read error (never, when npos).
class StringBytes : public fatool::ByteSource {
  public:
    explicit StringBytes(std::string bytes, size_t failAt = std::string::npos)
        : m_bytes(std::move(bytes)), m_failAt(failAt) {}
    bool read(unsigned char* buf, size_t n, size_t& got, std::string& why) override {
        if (m_at >= m_failAt) return why = "broken", false;
        got = std::min(n, m_bytes.size() - m_at);
        std::memcpy(buf, m_bytes.data() + m_at, got);
        m_at += got;
        return true;
    }

  private:
    std::string m_bytes;
    size_t m_failAt;
    size_t m_at = 0;
};

std::vector<std::string> scanAll(const std::string& bytes, size_t block,
                                 const char* charset = "utf-8", const char* begin = "<rec>",
                                 const char* end = "</rec>") {
    fatool::TagScanner scanner(block);
    std::string why;
    EXPECT_TRUE(scanner.prepare(begin, end, charset, why)) << why;
    StringBytes source(bytes);
    std::vector<std::string> records;
    EXPECT_TRUE(scanner.scan(
        source,
        [&](const XString& r) {
            records.emplace_back(r.view());
            return true;
        },
        why))
        << why;
    return records;
}

std::string utf16le(const std::string& ascii) {
    std::string out;
    for (char c : ascii) out += std::string{c, '\0'};
    return out;
}

using Records = std::vector<std::string>;

// What a scan for <rec> ... </rec> finds, read in blocks of every small size (so that every
// seam falls inside every marker) and in one block.
TEST(TagScanTest, FindsEveryFormOfTheTagAcrossEverySeam) {
    struct Case {
        const char* what;
        std::string text;
        Records records;
    };
    const std::vector<Case> cases = {
        {"exact and with attributes, mixed",
         "<r><rec id=\"1\">a</rec><rec>b</rec>\n<rec\tx='2'>c</rec></r>",
         {"<rec id=\"1\">a</rec>", "<rec>b</rec>", "<rec\tx='2'>c</rec>"}},
        {"a longer name is another tag",
         "<record>no</record><rec>yes</rec><recx/>",
         {"<rec>yes</rec>"}},
        {"white space of every kind after the name",
         "<rec\n>a</rec><rec\r\n>b</rec><rec >c</rec>",
         {"<rec\n>a</rec>", "<rec\r\n>b</rec>", "<rec >c</rec>"}},
        {"an empty tag is a record by itself",
         "<rec/><rec a=\"1\"/><rec>x</rec>",
         {"<rec/>", "<rec a=\"1\"/>", "<rec>x</rec>"}},
        {"quoted values may hold > and />",
         "<rec a=\"/>\" b='x>'>v</rec><rec b='/>'/>",
         {"<rec a=\"/>\" b='x>'>v</rec>", "<rec b='/>'/>"}},
        {"the end is sought after the tag",
         "<rec a=\"</rec>\">v</rec>",
         {"<rec a=\"</rec>\">v</rec>"}},
        {"an end tag is no begin tag", "</rec><rec>a</rec></rec>", {"<rec>a</rec>"}},
        {"nested: the first end closes", "<rec><rec>in</rec>out</rec>", {"<rec><rec>in</rec>"}},
        {"no end: no record", "<rec>a</rec><rec>b", {"<rec>a</rec>"}},
        {"a tag cut by the end", "<rec>a</rec><rec", {"<rec>a</rec>"}},
        {"an unclosed tag", "<rec a=\"1\" ", {}},
        {"nothing", "", {}},
    };
    for (const Case& c : cases) {
        for (size_t block : {size_t{1}, size_t{2}, size_t{3}, size_t{5}, size_t{7}, size_t{16},
                             fatool::TagScanner::kBlock}) {
            SCOPED_TRACE(std::string(c.what) + ", blocks of " + std::to_string(block));
            EXPECT_EQ(scanAll(c.text, block), c.records);
        }
    }
}

// In UTF-16 the markers are matched a character at a time: bytes that spell a tag across two
// characters are no tag.
TEST(TagScanTest, WideCharsetsMatchWholeCharacters) {
    const std::string text = "<r><rec id=\"1\">a</rec><record/><rec/></r>";
    for (size_t block : {size_t{1}, size_t{3}, size_t{4096}}) {
        SCOPED_TRACE(block);
        EXPECT_EQ(scanAll(utf16le(text), block, "utf-16le"),
                  (Records{"<rec id=\"1\">a</rec>", "<rec/>"}));
        // One byte before and after shifts every ASCII character across a character boundary.
        EXPECT_EQ(scanAll("A" + utf16le("<rec>x</rec>") + "A", block, "utf-16le"), Records{});
    }
}

TEST(TagScanTest, RefusesMarkersItCannotMatchAndStopsOnRequestOrError) {
    fatool::TagScanner scanner;
    std::string why;
    for (const char* begin : {"<a b>", "<>", "rec", "<a/>", "<<a>"}) {
        SCOPED_TRACE(begin);
        EXPECT_FALSE(fatool::isTagMarker(begin));
        EXPECT_FALSE(scanner.prepare(begin, "</a>", "utf-8", why));
    }
    EXPECT_FALSE(scanner.prepare("<a>", "", "utf-8", why));
    EXPECT_FALSE(scanner.prepare("<a>", "</a>", "no-such-charset", why));
    EXPECT_EQ(why, "unknown charset 'no-such-charset'");

    ASSERT_TRUE(scanner.prepare("<a>", "</a>", "utf-8", why));
    int seen = 0;
    StringBytes three("<a>1</a><a>2</a><a>3</a>");
    EXPECT_TRUE(scanner.scan(
        three, [&](const XString&) { return ++seen < 2; }, why));
    EXPECT_EQ(seen, 2);

    fatool::TagScanner small(8);
    ASSERT_TRUE(small.prepare("<a>", "</a>", "utf-8", why));
    StringBytes broken("<a>1</a><a>2</a><a>3</a>", 16);
    Records got;
    why.clear();
    EXPECT_FALSE(small.scan(
        broken, [&](const XString& r) { return got.emplace_back(r.view()), true; }, why));
    EXPECT_EQ(why, "broken");
    EXPECT_EQ(got, (Records{"<a>1</a>", "<a>2</a>"}));
}

// A record that is not valid text in the charset ends the scan with its number and offset,
// wherever the blocks cut the data; the records before it are handed over.
TEST(TagScanTest, ARecordNotValidInTheCharsetEndsTheScan) {
    const std::string text = "<r><a>1</a>\n<a x='\xff'>2</a><a>3</a></r>";
    for (size_t block : {size_t{1}, size_t{3}, size_t{7}, fatool::TagScanner::kBlock}) {
        SCOPED_TRACE(block);
        fatool::TagScanner scanner(block);
        std::string why;
        ASSERT_TRUE(scanner.prepare("<a>", "</a>", "utf-8", why));
        StringBytes source(text);
        Records got;
        EXPECT_FALSE(scanner.scan(
            source, [&](const XString& r) { return got.emplace_back(r.view()), true; }, why));
        EXPECT_EQ(why, "record 2 (at byte 12) is not valid utf-8 text");
        EXPECT_EQ(got, Records{"<a>1</a>"});
    }
}

// A file of records in every form, with tags placed across the library's 65,536-byte chunk
// seams and the program's 1 MiB block seams, scanned from a file and from standard input.
TEST_F(FatoolTest, ScanFindsEveryRecordOfALargeMixedFile) {
    auto record = [](size_t i) {
        const std::string n = std::to_string(i);
        switch (i % 4) {
            case 0:
                return "<rec id=\"" + n + "\">body " + n + "</rec>";
            case 1:
                return "<rec>body " + n + "</rec>";
            case 2:
                return "<rec\n  n='" + n + "'>body " + n + "</rec>";
            default:
                return "<rec a=\"" + n + "\"/>";
        }
    };
    // Where the seam falls in the record placed across it: after "<", after the name, inside
    // the attribute, inside the end tag.
    const size_t seamAt[] = {1, 4, 10, 22};
    const std::string seamRecord = "<rec id=\"seam\">sssss</rec>";
    std::string text = "<root>\n", expected;
    size_t count = 0, i = 0;
    for (size_t seam = 65536, k = 0; seam <= (size_t{2} << 20) + 65536; seam += 65536, ++k) {
        for (; text.size() + 400 < seam; ++i) {
            if (i % 7 == 0) text += "<record>not this</record>\n";
            text += record(i) + "\n";
            expected += record(i) + "\n";
            ++count;
        }
        text.append(seam - seamAt[k % 4] - text.size(), ' ');
        text += seamRecord + "\n";
        expected += seamRecord + "\n";
        ++count;
    }
    writeFile("big.xml", text);
    writeFile("big16.xml", utf16le(text));
    runCalls({
        {"scan @big.xml <rec> </rec>", 0, expected},
        {"scan -c @big.xml <rec> </rec>", 0, std::to_string(count) + "\n"},
        {"scan -C utf-16le @big16.xml <rec> </rec>", 0, expected},
        {"scan - <rec> </rec>", 0, expected, {}, false, text},
    });
}

// A byte-order mark at the start is neither required nor read, on either path: the file is
// read in CHARSET, and the mark is bytes before the first record. Where the mark is CHARSET's
// own the two paths give the same records; where it is the other byte order's, the file is not
// in CHARSET and no tag starts on one of its characters.
TEST_F(FatoolTest, ALeadingByteOrderMarkIsTreatedAsTheLibraryTreatsIt) {
    const std::string text = "<r><rec>a</rec><rec id=\"1\">b</rec></r>";
    auto utf16be = [](const std::string& ascii) {
        std::string out;
        for (char c : ascii) out += std::string{'\0', c};
        return out;
    };
    writeFile("u8.xml", "\xef\xbb\xbf" + text);
    writeFile("le.xml", "\xff\xfe" + utf16le(text));
    writeFile("be.xml", "\xfe\xff" + utf16be(text));
    const std::string records = "<rec>a</rec>\n<rec id=\"1\">b</rec>\n";
    runCalls({
        {"scan -C utf-8 @u8.xml <rec> </rec>", 0, records},
        {"scan -C utf-8 @u8.xml <rec </rec>", 0, records},
        {"scan -C utf-16le @le.xml <rec> </rec>", 0, records},
        {"scan -C utf-16le @le.xml <rec </rec>", 0, records},
        {"scan -C utf-16be @be.xml <rec> </rec>", 0, records},
        {"scan -C utf-16be @be.xml <rec </rec>", 0, records},
        {"scan -c -C utf-16le @be.xml <rec> </rec>", 0, "0\n"},
    });
}

}  // namespace

#endif
