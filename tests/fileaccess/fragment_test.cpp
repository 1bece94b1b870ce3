// ReadNextFragment: records between markers, scanned in 65,536-byte chunks.
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

constexpr size_t kChunk = 65536;

// What one call should do: result, fragment, the scan offset afterwards, the file position
// and the end-of-file flag it leaves.
struct Expected {
    int result;
    std::string fragment;
    size_t offset;
    size_t pos;
    bool eof;
};

// A literal reference scanner over the file's bytes, one whole chunk per pass.
Expected modelScan(const std::string& file, size_t offset, const std::string& begin,
                   const std::string& end, bool isXmlTag) {
    std::string frag;
    size_t start = offset;
    bool seekingEnd = false;
    for (;;) {
        const std::string chunk = start < file.size() ? file.substr(start, kChunk) : "";
        const size_t n = chunk.size();
        const bool eof = n < kChunk;
        const size_t pos = start + n;
        if (seekingEnd) {
            const size_t q = chunk.find(end);
            if (q != std::string::npos) {
                frag += chunk.substr(0, q + end.size());
                return {1, frag, start + q + end.size(), pos, eof};
            }
            if (eof) return {0, "", offset, pos, eof};
            frag += chunk.substr(0, n - end.size());
            start += n - end.size();
            continue;
        }
        size_t p = chunk.find(begin);
        for (char ws : {' ', '\t', '\r', '\n'}) {
            if (p != std::string::npos || !isXmlTag) break;
            std::string variant = begin;
            variant.back() = ws;
            p = chunk.find(variant);
        }
        if (p == std::string::npos) {
            if (eof) return {0, "", offset, pos, eof};
            start += n - begin.size();
            continue;
        }
        if (p != kChunk - 1 && n - p - 1 >= end.size()) {
            const size_t q = chunk.find(end, p + 1);
            if (q != std::string::npos) {
                frag += chunk.substr(p, q + end.size() - p);
                return {1, frag, start + q + end.size(), pos, eof};
            }
        }
        frag += chunk.substr(p, begin.size());
        start += p + begin.size();
        seekingEnd = true;
    }
}

class FragmentTest : public TempDirTest {
  protected:
    void openWith(const std::string& bytes, const std::string& name = "f.txt") {
        m_path = writeFile(name, bytes);
        XString p(m_path.c_str());
        ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    }
    int next(const std::string& begin, const std::string& end, std::string& out,
             bool restart = false, const char* charset = "utf-8") {
        XString b(begin.c_str()), e(end.c_str()), cs(charset);
        ClsStringBuilder sb;
        const int r = fa.ReadNextFragment(restart, b, e, cs, sb);
        out = sb.m_str.getUtf8();
        return r;
    }
    // The bytes at the handle's position (up to 8), read through FileRead.
    std::string bytesAtPosition() {
        DataBuffer db;
        EXPECT_CALL_OK(fa, fa.FileRead(8, db));
        return bytesOf(db);
    }
    bool logHas(const char* text) { return fa.lastErrorLog().contains(text); }

    ClsFileAccess fa;
    std::string m_path;
};

}  // namespace

TEST_F(FragmentTest, YieldsFragmentsInOrderThenNoneThenRestarts) {
    openWith("junk<r>one</r>\n<r>two</r><r>three</r>tail");
    std::string out;
    for (const char* want : {"<r>one</r>", "<r>two</r>", "<r>three</r>"}) {
        SCOPED_TRACE(want);
        EXPECT_EQ(next("<r>", "</r>", out), 1) << lastLog(fa);
        EXPECT_EQ(out, want);
    }
    EXPECT_EQ(next("<r>", "</r>", out), 0);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(logHas("Did not find the next begin marker."));
    EXPECT_EQ(next("<r>", "</r>", out, true), 1);
    EXPECT_EQ(out, "<r>one</r>");
}

TEST_F(FragmentTest, TagVariantsAndTheirPrecedence) {
    struct Case {
        const char* text;
        const char* begin;
        int result;
        const char* fragment;
    };
    const Case cases[] = {
        {"<rec id=1>a</rec>", "<rec>", 1, "<rec id=1>a</rec>"},
        {"[rec id=1]a</rec>", "[rec]", 0, ""},
        // An exact marker anywhere in the chunk beats a variant that stands earlier.
        {"<rec x=1>a</rec><rec>b</rec>", "<rec>", 1, "<rec>b</rec>"},
        // Space beats tab, carriage return and line feed, wherever they stand.
        {"<rec\tt>a</rec><rec s>b</rec>", "<rec>", 1, "<rec s>b</rec>"},
        {"<rec\nn>a</rec><rec\rr>b</rec><rec\tt>c</rec>", "<rec>", 1, "<rec\tt>c</rec>"},
        {"<rec\nn>a</rec><rec\rr>b</rec>", "<rec>", 1, "<rec\rr>b</rec>"},
        // A marker that is not a tag gets no variants.
        {"<rec id=1>a</rec>", "<rec", 1, "<rec id=1>a</rec>"},
        {"<recx>a</rec>", "<rec>", 0, ""},
    };
    int i = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        openWith(c.text, "v" + std::to_string(i++));
        std::string out;
        EXPECT_EQ(next(c.begin, "</rec>", out), c.result) << lastLog(fa);
        EXPECT_EQ(out, c.fragment);
    }
}

TEST_F(FragmentTest, MarkersAcrossChunkBoundaries) {
    struct Case {
        const char* name;
        std::string file;
        std::string begin, end;
        std::string fragment;
    };
    const std::string body(70000, 'b');
    const Case cases[] = {
        // The begin marker starts 2 bytes before offset 65,536.
        {"begin straddles", std::string(kChunk - 2, 'x') + "<rec>a</rec>", "<rec>", "</rec>",
         "<rec>a</rec>"},
        // Seeking the end, the chunk after the begin marker ends inside the end marker.
        {"end straddles", "<rec>" + std::string(kChunk - 3, 'y') + "</rec>zz", "<rec>", "</rec>",
         "<rec>" + std::string(kChunk - 3, 'y') + "</rec>"},
        // A one-byte begin marker on the last byte of a full chunk.
        {"p is 65535", std::string(kChunk - 1, 'x') + "#abc$tail", "#", "$", "#abc$"},
        {"longer than a chunk", "<rec>" + body + "</rec>", "<rec>", "</rec>",
         "<rec>" + body + "</rec>"},
        // The end marker is sought from the byte after the begin marker's first byte.
        {"xabz", "xabz", "ab", "b", "ab"},
        // Near-matches of both markers at every byte, across chunk seams.
        {"near-matches", std::string(70001, 'a') + "a-aaa" + std::string(40000, 'a') + "a+a", "a-a",
         "a+a", "a-aaa" + std::string(40000, 'a') + "a+a"},
    };
    int i = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        openWith(c.file, "c" + std::to_string(i++));
        std::string out;
        EXPECT_EQ(next(c.begin, c.end, out), 1) << lastLog(fa);
        EXPECT_EQ(out, c.fragment);
        EXPECT_EQ(next(c.begin, c.end, out), 0);
    }
}

TEST_F(FragmentTest, MissingEndMarkerIsFoundOnceAppended) {
    openWith("<r>first</r><r>second");
    std::string out;
    EXPECT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_EQ(next("<r>", "</r>", out), 0);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(logHas("Found begin marker, but hit EOF before finding the end marker."));
    std::ofstream(m_path, std::ios::app | std::ios::binary) << " part</r>";
    EXPECT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_EQ(out, "<r>second part</r>");
}

// The handle's position and EndOfFile after a call are those of the last whole-chunk read,
// however little of the chunk the scan needed.
TEST_F(FragmentTest, PositionAndEndOfFileAfterAFind) {
    std::string file;
    int records = 0;
    for (; file.size() < 3 * kChunk; ++records) {
        file += "<r>" + std::to_string(records) + "</r>" +
                std::string(50, static_cast<char>('a' + records % 26));
    }
    openWith(file);
    std::string out;
    ASSERT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_EQ(bytesAtPosition(), file.substr(kChunk, 8));

    // Near the end the chunk is short: EndOfFile holds although a fragment was returned.
    for (int i = 1; i < records; ++i) ASSERT_EQ(next("<r>", "</r>", out), 1) << i;
    EXPECT_EQ(out, "<r>" + std::to_string(records - 1) + "</r>");
    EXPECT_TRUE(fa.get_EndOfFile());
    EXPECT_EQ(bytesAtPosition(), "");
}

TEST_F(FragmentTest, Utf16MarkersMatchTagsWithAttributes) {
    const std::string text = "<list>\n<rec id=1>\xE9t\xE9</rec>\n<rec\tid=2>b</rec></list>";
    std::string bytes;
    for (unsigned char c : text) bytes += std::string{static_cast<char>(c), '\0'};
    openWith(bytes);
    std::string out;
    EXPECT_EQ(next("<rec>", "</rec>", out, false, "utf-16"), 1) << lastLog(fa);
    EXPECT_EQ(out, "<rec id=1>\xC3\xA9t\xC3\xA9</rec>");
    EXPECT_EQ(next("<rec>", "</rec>", out, false, "utf-16"), 1) << lastLog(fa);
    EXPECT_EQ(out, "<rec\tid=2>b</rec>");
    EXPECT_EQ(next("<rec>", "</rec>", out, false, "utf-16"), 0);

    std::string big;
    for (char c : std::string("<a x>y</a>")) big += std::string{'\0', c};
    openWith(big, "be.txt");
    EXPECT_EQ(next("<a>", "</a>", out, false, "utf-16be"), 1) << lastLog(fa);
    EXPECT_EQ(out, "<a x>y</a>");

    // The same marker texts in another charset are other bytes.
    openWith("<a>8</a>", "utf8.txt");
    EXPECT_EQ(next("<a>", "</a>", out, false, "utf-16"), 0);
    EXPECT_EQ(next("<a>", "</a>", out, false, "utf-8"), 1);
    EXPECT_EQ(out, "<a>8</a>");
}

TEST_F(FragmentTest, RefusedCallsAppendNothingAndKeepTheOffset) {
    std::string out;
    EXPECT_EQ(next("<r>", "</r>", out), -1);
    EXPECT_TRUE(logHas("Unable to set file pointer to scanning start point."));

    openWith("<r>1</r><r>2</r>");
    EXPECT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_EQ(next("", "</r>", out, true), -1);
    EXPECT_TRUE(logHas("beginMarker and/or endMarker is empty."));
    EXPECT_EQ(next("<r>", "", out), -1);
    // The empty-marker call with startAtBeginning still reset the offset.
    EXPECT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_EQ(out, "<r>1</r>");

    EXPECT_EQ(next("<r>\xE2\x82\xAC", "</r>", out, false, "us-ascii"), -1);
    EXPECT_TRUE(logHas("Failed to convert beginMarker to desired charset."));
    EXPECT_EQ(next("<r>", "</r>\xE2\x82\xAC", out, false, "us-ascii"), -1);
    EXPECT_TRUE(logHas("Failed to convert endMarker to desired charset."));
    EXPECT_EQ(next("<r>", std::string(kChunk, 'e'), out), -1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_EQ(out, "<r>2</r>");
}

TEST_F(FragmentTest, VerboseLinesOnlyWhenVerbose) {
    openWith("<r>1</r><r>2</r>");
    std::string out;
    ASSERT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_FALSE(logHas("Found begin marker."));
    fa.put_VerboseLogging(true);
    ASSERT_EQ(next("<r>", "</r>", out), 1);
    EXPECT_TRUE(logHas("Found begin marker."));
    EXPECT_TRUE(logHas("Found end marker in same chunk."));
    const std::string log = lastLog(fa);
    EXPECT_NE(log.find("startingFileOffset: 8"), std::string::npos) << log;
    EXPECT_NE(log.find("chunkOffsetToBeginMarker: 0"), std::string::npos) << log;
    EXPECT_NE(log.find("numChunkBytesRemaining_toSearchForEndMarker: 7"), std::string::npos) << log;
}

// Random files with markers placed near chunk boundaries, compared call by call with the
// reference scanner: result, fragment, EndOfFile and the position left behind.
TEST_F(FragmentTest, AgreesWithReferenceScannerOnRandomFiles) {
    struct Markers {
        std::string begin, end;
    };
    const Markers markerSets[] = {{"<r>", "</r>"}, {"[r", "]"}, {"#", "$"}, {"ab", "b"}};
    const std::string noise[] = {"<r", "<r ", "<r\t", "<r\n", "</r",  "]",   "a",   "b",
                                 "#",  "$",   "x",    "yz",   "\r\n", "<r>", "</r>"};
    std::mt19937 rng(20240611);
    auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
    // Near a whole chunk, or near a power of two within one, where a reader that fetches
    // a chunk in pieces has its seams.
    auto nearSeam = [&] { return (kChunk >> pick(5)) - 8 + pick(16); };
    for (int fileNo = 0; fileNo < 300; ++fileNo) {
        const Markers& m = markerSets[pick(4)];
        std::string file;
        const size_t records = 1 + pick(6);
        for (size_t r = 0; r < records; ++r) {
            // Gaps and bodies are either short or close to a seam.
            const size_t gap = pick(4) == 0 ? nearSeam() : pick(12);
            for (size_t g = 0; g < gap;) {
                const std::string& w = (pick(8) == 0) ? noise[pick(15)] : noise[10];
                file += w;
                g += w.size();
            }
            file += m.begin;
            if (m.begin == "<r>" && pick(3) == 0) file.back() = " \t\r\n"[pick(4)];
            file += std::string(pick(5) == 0 ? nearSeam() : pick(20), 'q');
            if (pick(6) != 0) file += m.end;
        }
        SCOPED_TRACE("file " + std::to_string(fileNo) + ", size " + std::to_string(file.size()) +
                     ", begin " + m.begin);
        openWith(file, "rand" + std::to_string(fileNo));
        fa.put_VerboseLogging(fileNo % 3 == 0);
        const bool isXml = m.begin == "<r>";
        size_t offset = 0;
        for (int call = 0; call < 40; ++call) {
            const Expected want = modelScan(file, offset, m.begin, m.end, isXml);
            std::string out;
            ASSERT_EQ(next(m.begin, m.end, out), want.result) << "call " << call;
            ASSERT_EQ(out, want.fragment) << "call " << call;
            ASSERT_EQ(fa.get_EndOfFile(), want.eof) << "call " << call;
            if (call % 3 == 0) {
                const size_t at = std::min(want.pos, file.size());
                ASSERT_EQ(bytesAtPosition(), file.substr(at, 8)) << "call " << call;
            }
            if (want.result != 1) break;
            offset = want.offset;
        }
    }
}
