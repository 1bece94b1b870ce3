// ReadNextFragment: records between markers, scanned in 65,536-byte chunks.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <random>
#include <string>

#include "fileaccess/LogProbe.h"
#include "foundation/fs/SysCalls.h"

namespace {

constexpr size_t kChunk = 65536;

// What one call should do: its result and fragment as next() gives them, the scan offset
// afterwards, the file position and the end-of-file flag it leaves.
struct Expected {
    std::string call;
    size_t offset, pos;
    bool eof;
};

// A literal reference scanner over the file's bytes, one whole chunk per pass.
Expected modelScan(const std::string& file, size_t offset, const std::string& begin,
                   const std::string& end, bool isXmlTag) {
    const size_t npos = std::string::npos;
    size_t start = offset, p = npos;
    std::string chunk;
    auto readAt = [&](size_t at) { chunk = at < file.size() ? file.substr(at, kChunk) : ""; };
    // The outcome (no fragment: none found), with the position and end-of-file flag of the
    // last chunk read.
    auto done = [&](const std::string& frag, size_t off) {
        return Expected{(frag.empty() ? "0 " : "1 ") + frag, off, start + chunk.size(),
                        chunk.size() < kChunk};
    };
    // The first chunk holding the begin marker, or else one of its tag variants; chunks
    // overlap by the begin marker's size.
    for (;; start += kChunk - begin.size()) {
        readAt(start);
        p = chunk.find(begin);
        for (char ws : {' ', '\t', '\r', '\n'})
            if (p == npos && isXmlTag) p = chunk.find(begin.substr(0, begin.size() - 1) + ws);
        if (p != npos) break;
        if (chunk.size() < kChunk) return done("", offset);
    }
    // The end marker in the same chunk, sought from the byte after the begin marker's first.
    const bool room = p != kChunk - 1 && chunk.size() - p - 1 >= end.size();
    const size_t q = room ? chunk.find(end, p + 1) : npos;
    if (q != npos) return done(chunk.substr(p, q + end.size() - p), start + q + end.size());
    // Else chunks from behind the begin marker, overlapping by the end marker's size.
    std::string frag = chunk.substr(p, begin.size());
    for (start += p + begin.size();; start += kChunk - end.size()) {
        readAt(start);
        const size_t e = chunk.find(end);
        if (e != npos) return done(frag + chunk.substr(0, e + end.size()), start + e + end.size());
        if (chunk.size() < kChunk) return done("", offset);
        frag += chunk.substr(0, kChunk - end.size());
    }
}

class FragmentTest : public FileAccessTest {
  protected:
    void openWith(const std::string& bytes) {
        XString p = X(writeFile("f.txt", bytes));
        ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    }
    // One call: its result, a space and the fragment it appended.
    std::string next(const std::string& begin, const std::string& end, bool restart = false,
                     const char* charset = "utf-8") {
        XString b(begin.c_str()), e(end.c_str()), cs(charset);
        ClsStringBuilder sb;
        const int r = fa.ReadNextFragment(restart, b, e, cs, sb);
        return std::to_string(r) + " " + sb.m_str.getUtf8();
    }
    bool logHas(const char* text) { return fa.lastErrorLog().contains(text); }
};

}  // namespace

// Fragments in order; a missing end marker gives 0 until it is appended; restart goes back.
TEST_F(FragmentTest, ScansInOrderWaitsForAnAppendedEndAndRestarts) {
    openWith("junk<r>one</r>\n<r>two</r><r>three");
    for (const char* want : {"1 <r>one</r>", "1 <r>two</r>"}) EXPECT_EQ(next("<r>", "</r>"), want);
    EXPECT_EQ(next("<r>", "</r>"), "0 ");
    EXPECT_TRUE(logHas("Found begin marker, but hit EOF before finding the end marker."));
    std::ofstream(path("f.txt"), std::ios::app | std::ios::binary) << " part</r>tail";
    EXPECT_EQ(next("<r>", "</r>"), "1 <r>three part</r>");
    EXPECT_EQ(next("<r>", "</r>"), "0 ");
    EXPECT_TRUE(logHas("Did not find the next begin marker."));
    EXPECT_EQ(next("<r>", "</r>", true), "1 <r>one</r>");
}

// The first fragment of known files (none when empty), and nothing after it.
TEST_F(FragmentTest, KnownFilesAcrossChunkBoundariesAndTagVariants) {
    const std::string body(70000, 'b'), ys(kChunk - 3, 'y'), as(40000, 'a');
    // file, begin marker, end marker, fragment
    const std::string cases[][4] = {
        {"[rec id=1]a</rec>", "[rec]", "</rec>", ""},
        // An exact marker anywhere in the chunk beats a variant that stands earlier.
        {"<rec x=1>a</rec><rec>b</rec>", "<rec>", "</rec>", "<rec>b</rec>"},
        // Space beats tab, tab beats carriage return, which beats line feed.
        {"<rec\tt>a</rec><rec s>b</rec>", "<rec>", "</rec>", "<rec s>b</rec>"},
        {"<rec\nn>a</rec><rec\rr>b</rec><rec\tt>c</rec>", "<rec>", "</rec>", "<rec\tt>c</rec>"},
        {"<rec\nn>a</rec><rec\rr>b</rec>", "<rec>", "</rec>", "<rec\rr>b</rec>"},
        // A marker that is not a tag gets no variants.
        {"<rec id=1>a</rec>", "<rec", "</rec>", "<rec id=1>a</rec>"},
        {"<recx>a</rec>", "<rec>", "</rec>", ""},
        // The begin marker starts 2 bytes before offset 65,536.
        {std::string(kChunk - 2, 'x') + "<rec>a</rec>", "<rec>", "</rec>", "<rec>a</rec>"},
        // Seeking the end, the chunk after the begin marker ends inside the end marker.
        {"<rec>" + ys + "</rec>zz", "<rec>", "</rec>", "<rec>" + ys + "</rec>"},
        // A one-byte begin marker on the last byte of a full chunk (p is 65,535).
        {std::string(kChunk - 1, 'x') + "#abc$tail", "#", "$", "#abc$"},
        {"<rec>" + body + "</rec>", "<rec>", "</rec>", "<rec>" + body + "</rec>"},
        // The end marker is sought from the byte after the begin marker's first byte.
        {"xabz", "ab", "b", "ab"},
        {std::string(70001, 'a') + "a-aaa" + as + "a+a", "a-a", "a+a", "a-aaa" + as + "a+a"},
    };
    for (const auto& [file, begin, end, fragment] : cases) {
        SCOPED_TRACE(file.substr(0, 30) + "... of " + std::to_string(file.size()) + " bytes");
        openWith(file);
        EXPECT_EQ(next(begin, end), (fragment.empty() ? "0 " : "1 ") + fragment);
        EXPECT_EQ(next(begin, end), "0 ");
    }
}

TEST_F(FragmentTest, Utf16MarkersMatchTagsWithAttributes) {
    const std::string text = "<list>\n<rec id=1>\xE9t\xE9</rec>\n<rec\tid=2>b</rec></list>";
    std::string le, be;
    for (unsigned char c : text) le += std::string{static_cast<char>(c), '\0'};
    for (char c : std::string("<a x>y</a>")) be += std::string{'\0', c};
    openWith(le);
    EXPECT_EQ(next("<rec>", "</rec>", false, "utf-16"), "1 <rec id=1>\xC3\xA9t\xC3\xA9</rec>");
    EXPECT_EQ(next("<rec>", "</rec>", false, "utf-16"), "1 <rec\tid=2>b</rec>");
    EXPECT_EQ(next("<rec>", "</rec>", false, "utf-16"), "0 ");
    openWith(be);
    EXPECT_EQ(next("<a>", "</a>", false, "utf-16be"), "1 <a x>y</a>");
}

// Refused calls return -1, append nothing and keep the offset; information lines that only
// a verbose object writes.
TEST_F(FragmentTest, RefusalsAndVerboseLines) {
    EXPECT_EQ(next("<r>", "</r>"), "-1 ");
    EXPECT_TRUE(logHas("Unable to set file pointer to scanning start point."));
    openWith("<r>1</r><r>2</r><r>3</r>");
    EXPECT_EQ(next("<r>", "</r>"), "1 <r>1</r>");
    EXPECT_FALSE(logHas("Found begin marker."));
    // The empty-marker call with startAtBeginning still resets the offset.
    EXPECT_EQ(next("", "</r>", true), "-1 ");
    EXPECT_TRUE(logHas("beginMarker and/or endMarker is empty."));
    EXPECT_EQ(next("<r>", ""), "-1 ");
    EXPECT_EQ(next("<r>", "</r>"), "1 <r>1</r>");
    EXPECT_EQ(next("<r>\xE2\x82\xAC", "</r>", false, "us-ascii"), "-1 ");
    EXPECT_TRUE(logHas("Failed to convert beginMarker to desired charset."));
    EXPECT_EQ(next("<r>", "</r>\xE2\x82\xAC", false, "us-ascii"), "-1 ");
    EXPECT_TRUE(logHas("Failed to convert endMarker to desired charset."));
    EXPECT_EQ(next("<r>", std::string(kChunk, 'e')), "-1 ");
    fa.put_VerboseLogging(true);
    EXPECT_EQ(next("<r>", "</r>"), "1 <r>2</r>");
    for (const char* line :
         {"Found begin marker.", "Found end marker in same chunk.", "startingFileOffset: 8",
          "numChunkBytesRemaining_toSearchForEndMarker: 15"})
        EXPECT_NE(lastLog(fa).find(line), std::string::npos) << line << "\n" << lastLog(fa);
}

// An empty callback is refused before anything moves: the offset (startAtBeginning is not
// applied), the end-of-file flag and the file position stay as the last call left them.
TEST_F(FragmentTest, AnEmptyCallbackIsRefusedBeforeAnythingMoves) {
    openWith("<r>1</r><r>2</r>" + std::string(kChunk, 'x'));
    EXPECT_EQ(next("<r>", "</r>"), "1 <r>1</r>");
    ASSERT_FALSE(fa.get_EndOfFile());
    ASSERT_TRUE(fa.FileSeek(5, 0));
    XString b("<r>"), e("</r>"), cs("utf-8");
    EXPECT_EQ(fa.ScanFragments(true, 0, b, e, cs, std::function<bool(const XString&)>{}), -1);
    EXPECT_TRUE(logHas("onFragment is empty.")) << lastLog(fa);
    EXPECT_FALSE(fa.get_EndOfFile());
    DataBuffer at;
    ASSERT_TRUE(fa.FileRead(3, at));
    EXPECT_EQ(bytesOf(at), "/r>");
    EXPECT_EQ(next("<r>", "</r>"), "1 <r>2</r>");
}

// Random files with markers placed near chunk boundaries, compared call by call with the
// reference scanner: result, fragment, EndOfFile and the position left behind.
TEST_F(FragmentTest, AgreesWithReferenceScannerOnRandomFiles) {
    const std::string markers[][2] = {{"<r>", "</r>"}, {"[r", "]"}, {"#", "$"}, {"ab", "b"}};
    const std::string noise[] = {"<r", "<r ", "<r\t", "<r\n", "</r",  "]",   "a",   "b",
                                 "#",  "$",   "x",    "yz",   "\r\n", "<r>", "</r>"};
    std::mt19937 rng(20240611);
    auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
    // Near a whole chunk, or near a power of two within one, where a reader that fetches
    // a chunk in pieces has its seams.
    auto nearSeam = [&] { return (kChunk >> pick(5)) - 8 + pick(16); };
    for (int fileNo = 0; fileNo < 300; ++fileNo) {
        const auto& [begin, end] = markers[pick(4)];
        std::string file;
        for (size_t r = 0, records = 1 + pick(6); r < records; ++r) {
            for (size_t gap = pick(4) == 0 ? nearSeam() : pick(12), start = file.size();
                 file.size() - start < gap;)
                file += pick(8) == 0 ? noise[pick(15)] : noise[10];
            file += begin;
            if (begin == "<r>" && pick(3) == 0) file.back() = " \t\r\n"[pick(4)];
            file += std::string(pick(5) == 0 ? nearSeam() : pick(20), 'q');
            if (pick(6) != 0) file += end;
        }
        SCOPED_TRACE("file " + std::to_string(fileNo) + ", begin " + begin);
        openWith(file);
        fa.put_VerboseLogging(fileNo % 3 == 0);
        for (size_t call = 0, offset = 0; call < 40; ++call) {
            SCOPED_TRACE("call " + std::to_string(call));
            const Expected want = modelScan(file, offset, begin, end, begin == "<r>");
            ASSERT_EQ(next(begin, end), want.call);
            ASSERT_EQ(fa.get_EndOfFile(), want.eof);
            // Now and then, the bytes at the position left behind, read through FileRead.
            DataBuffer at;
            ASSERT_TRUE(call % 3 || fa.FileRead(8, at)) << lastLog(fa);
            ASSERT_EQ(bytesOf(at), call % 3 ? "" : file.substr(std::min(want.pos, file.size()), 8));
            if (want.call[0] != '1') break;
            offset = want.offset;
        }
    }
}

// A file whose reported size is wrong (files of /proc report 0): calls without verbose logging
// give what calls with it give (they read whole chunks) — records, end-of-file flag, position.
TEST_F(FragmentTest, AWronglyReportedSizeIsNotTrusted) {
    std::string file;
    for (int i = 0; file.size() < 200000; ++i) file += "<r>" + std::to_string(i) + "</r>\n";
    openWith(file);
    ClsFileAccess whole;
    XString p = X(path("f.txt")), b("<r>"), e("</r>"), cs("utf-8");
    ASSERT_CALL_OK(whole, whole.OpenForRead(p));
    whole.put_VerboseLogging(true);
    sysCalls().fstat = [](int fd, struct stat* st) {
        const int rc = realSysCalls().fstat(fd, st);
        if (rc == 0 && S_ISREG(st->st_mode)) st->st_size = 0;
        return rc;
    };
    for (int call = 0; call < 3; ++call) {
        SCOPED_TRACE("call " + std::to_string(call));
        ClsStringBuilder sb1, sb2;
        EXPECT_EQ(fa.ReadNextFragment(false, b, e, cs, sb1),
                  whole.ReadNextFragment(false, b, e, cs, sb2));
        EXPECT_STREQ(sb1.m_str.getUtf8(), sb2.m_str.getUtf8());
        EXPECT_EQ(fa.get_EndOfFile(), whole.get_EndOfFile());
        DataBuffer at1, at2;
        EXPECT_TRUE(fa.FileRead(8, at1) && whole.FileRead(8, at2));
        EXPECT_EQ(bytesOf(at1), bytesOf(at2));
    }
    sysCalls().fstat = realSysCalls().fstat;
}
