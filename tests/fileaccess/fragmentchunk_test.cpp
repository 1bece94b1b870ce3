// The record scanner's window of the file against a plain search: for chunks starting
// anywhere (mostly forward, as records go), each search gives the first occurrence that lies wholly
// in the chunk, whatever earlier searches of the same needle remembered, and each chunk has the
// length and end-of-file flag of one whole read at its start.
#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "fileaccess/FragmentChunk.h"
#include "foundation/fs/FileSys.h"
#include "support/TestSupport.h"

namespace {

using fragments::kChunkSize;
using fragments::kNotFound;
using fragments::kWindowSize;

class WindowChunkTest : public TempDirTest {};

TEST_F(WindowChunkTest, SearchesAgreeWithAPlainSearch) {
    std::mt19937 rng(7);
    const std::string texts[] = {"dd", "ab", "abba", "cc", "cac", "b"};
    DataBuffer needles[6];
    for (int i = 0; i < 6; ++i) needles[i].append(texts[i].data(), texts[i].size());
    for (int fileNo = 0; fileNo < 12; ++fileNo) {
        // Two letters and a rare third, so needles of them occur densely, rarely or never;
        // "dd" only where planted, every few chunks.
        std::string file(300000 + rng() % 2000000, 'a');
        for (char& c : file) c = rng() % 64 == 0 ? 'c' : (rng() % 2 ? 'a' : 'b');
        std::vector<long long> planted;
        const unsigned spacing = fileNo % 2 ? 150000 : 900000;
        for (size_t at = rng() % 100000; at + 2 < file.size(); at += 20000 + rng() % spacing) {
            file.replace(at, 2, "dd");
            planted.push_back(static_cast<long long>(at));
        }
        const long long size = static_cast<long long>(file.size());
        const std::string p = writeFile("f", file);
        int code = 0;
        _ovLogger log;
        std::unique_ptr<OrvaneHandle> h(
            FileSys::openForReadOnly(XString(p.c_str()), false, false, code, &log));
        ASSERT_NE(h, nullptr);
        DataBuffer pieces;
        fragments::WindowChunk chunk(*h, pieces, log);
        // The window as the chunk keeps it, mirrored to aim at its seams: its reads reach one
        // chunk, then twice as far with each refill.
        long long windowStart = -1, windowEnd = -1, pendingStart = -1, reach = kChunkSize / 2;
        for (long long start = 0; start <= size + 10;) {
            SCOPED_TRACE("file " + std::to_string(fileNo) + " chunk at " + std::to_string(start));
            if (start < windowStart || start > windowEnd ||
                (windowEnd < size && windowEnd - start < kChunkSize)) {
                reach = std::min<long long>(kWindowSize, 2 * reach);
                windowStart = start;
                windowEnd = std::min(size, start + reach);
            }
            ASSERT_TRUE(chunk.reset(start) && chunk.settle());
            const std::string whole = start < size ? file.substr(start, kChunkSize + 1) : "";
            const std::string expect = whole.substr(0, kChunkSize);
            ASSERT_EQ(chunk.length(), expect.size());
            ASSERT_EQ(chunk.eof(), whole.size() < kChunkSize);
            ASSERT_EQ(std::string(reinterpret_cast<const char*>(chunk.data()), chunk.length()),
                      expect);
            for (int query = 0; query < 4; ++query) {
                const int n = query == 0 ? 0 : static_cast<int>(rng() % 6);
                const unsigned from = rng() % 3 ? rng() % 64 : rng() % (kChunkSize + 8);
                unsigned at = 0;
                ASSERT_TRUE(chunk.find(needles[n], from, at));
                const size_t want =
                    from < expect.size() ? expect.find(texts[n], from) : std::string::npos;
                ASSERT_EQ(at, want == std::string::npos ? kNotFound : unsigned(want))
                    << texts[n] << " from " << from;
            }
            // The next start: a record's step, a long jump, or one that puts the end of the
            // chunk just inside or just past a planted "dd", or the end of a refilled window
            // inside one and then the end of the next chunk just past it.
            const auto next = std::find_if(planted.begin(), planted.end(),
                                           [&](long long x) { return x + 2 - kChunkSize > start; });
            const long long cut = next == planted.end() ? 0 : *next + 1 + rng() % 2;
            const unsigned how = rng() % 6;
            if (pendingStart > start) {
                start = std::exchange(pendingStart, -1);
            } else if (how == 1 && cut) {
                start = cut - kChunkSize;
            } else if (const long long x = planted[rng() % planted.size()];
                       how == 2 && x + 1 >= kWindowSize && x + 1 - kWindowSize < windowStart) {
                // Back to before the window, which refills it there.
                start = x + 1 - kWindowSize;
                pendingStart = x + 2 - kChunkSize;
            } else {
                start += how == 0 ? rng() % 400000 : 1 + rng() % 300;
            }
        }
    }
}

}  // namespace
