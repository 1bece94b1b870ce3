#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "foundation/text/DataBuffer.h"
#include "foundation/text/LargeBlocks.h"
#include "foundation/text/StringBuffer.h"
#include "support/TestSupport.h"

namespace {

const unsigned char* u(const char* s) {
    return reinterpret_cast<const unsigned char*>(s);
}

TEST(DataBufferStorage, LargeBlocksKeepTheirBytesAndSizesStopAt32Bits) {
    // 1 MiB pieces, each filled with its own number, appended past several growth steps of the
    // large-block storage (which moves pages rather than copying them), then swapped.
    const unsigned piece = 1u << 20;
    std::string all;
    DataBuffer db;
    for (unsigned i = 0; i < 40; ++i) {
        all.append(piece, static_cast<char>(i + 1));
        ASSERT_TRUE(db.append(all.data() + size_t{i} * piece, piece));
    }
    DataBuffer other = bufferOf("small");
    other.swap(db);
    EXPECT_EQ(bytesOf(db), "small");
    EXPECT_FALSE(other.ensureBuffer64(uint64_t{1} << 32) || other.ensureBuffer64(UINT64_MAX));
    ASSERT_TRUE(other.ensureBuffer(64u << 20));
    EXPECT_TRUE(bytesOf(other) == all) << other.getSize();
}

TEST(DataBufferStorage, PrefaultingAheadLeavesEveryByteAsWritten) {
    // A block below the prefault's threshold and one above it: the bytes there before it
    // starts and those written while it runs must all survive it.
    for (size_t size : {size_t{7} << 20, size_t{96} << 20}) {
        SCOPED_TRACE(size);
        std::vector<unsigned char> block(size, 0xA5);
        auto during = [](size_t at) { return static_cast<unsigned char>(at >> 12); };
        {
            PrefaultAhead warm(block.data() + 100, size - 100);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));  // let it get ahead
            for (size_t at = size / 2; at < size; at += 4096) block[at] = during(at);
        }
        size_t wrong = 0;
        for (size_t at = 0; at < size; ++at) {
            const bool written = at >= size / 2 && (at - size / 2) % 4096 == 0;
            wrong += block[at] != (written ? during(at) : 0xA5);
        }
        EXPECT_EQ(wrong, 0u);
    }
}

TEST(DataBufferParse, ReadsAtEveryBound) {
    const DataBuffer db = bufferOf(std::string("\x01\x02\x03\x04\x05\x06", 6));
    // Position, count, and the hex of what parseData takes (null: the read fails).
    const std::tuple<unsigned, unsigned, const char*> cases[] = {
        {0, 6, "010203040506"}, {6, 0, ""},
        {5, 1, "06"},           {5, 2, nullptr},
        {7, 0, nullptr},        {1, UINT_MAX, nullptr},
        {UINT_MAX, 1, nullptr}, {UINT_MAX, 0, nullptr},
    };
    for (const auto& [start, n, hex] : cases) {
        SCOPED_TRACE(std::to_string(start) + "+" + std::to_string(n));
        const bool ok = hex != nullptr;
        const unsigned end = ok ? start + n : start;
        DataBuffer out = bufferOf("#");
        StringBuffer text("#");
        unsigned p = start, q = start;
        const bool okData = db.parseData(p, n, out), okEnc = db.parseDataEnc(q, n, "hex", text);
        EXPECT_EQ(std::tuple(okData, okEnc, p, q, bytesOf(out).size()),
                  std::tuple(ok, ok, end, end, ok ? 1 + n : 1));
        EXPECT_EQ(text.str(), std::string("#") + (ok ? hex : ""));
        // A little-endian 16-bit then a big-endian 32-bit read from the same start: past the
        // end, at it, wrapping around; a failed read leaves the position and the value alone.
        unsigned short v16 = 7;
        unsigned v32 = 7;
        p = start;
        const bool ok16 = db.parseUint16(p, true, v16), ok32 = db.parseUint32(p, false, v32);
        EXPECT_EQ(std::tuple(ok16, ok32, p),
                  std::tuple(start <= 4, start == 0, start == 0 ? 6 : start + 2 * (start <= 4)));
        EXPECT_EQ(std::pair(v16 + 0u, v32),
                  std::pair(ok16 ? (start + 2) * 256 + start + 1 : 7, ok32 ? 0x03040506u : 7));
    }
}

TEST(DataBufferFind, FindsAtTheEdges) {
    DataBuffer db = bufferOf("abcabcd");
    const unsigned char* hay = db.getData2();
    EXPECT_EQ(db.findBytes(u("cd"), 2), hay + 5);
    EXPECT_EQ(db.findBytes(u("abcabcd"), 7), hay);
    EXPECT_EQ(db.findBytes(u("abcabcde"), 8), nullptr);
    EXPECT_EQ(db.findBytes(u("a"), 0), nullptr);
    EXPECT_EQ(db.findBytes(u("a"), -1), nullptr);
    EXPECT_EQ(DataBuffer::findBytes2(hay, 6, u("cd"), 2), nullptr);  // ends one byte short
    EXPECT_EQ(DataBuffer::findBytes2(hay + 1, 6, u("a"), 1), hay + 3);
    EXPECT_EQ(DataBuffer::findBytes2(hay, 0, u("a"), 1), nullptr);
    EXPECT_EQ(DataBuffer().findBytes(u("a"), 1), nullptr);
    // A first byte found everywhere: the search must stay right after it stops skimming for it.
    DataBuffer common = bufferOf(std::string(100000, 'x') + "xyx");
    EXPECT_EQ(common.findBytes(u("xy"), 2), common.getData2() + 100000);
    EXPECT_EQ(common.findBytes(u("xyz"), 3), nullptr);
}

TEST(DataBufferReplace, ReplacesLeftToRightWithoutRescanning) {
    // Input, pattern, replacement, result, count. Overlaps such as aa in aaaaa, a pattern
    // longer than the text and an empty text are checked through the object's replacement.
    const std::tuple<const char*, const char*, const char*, const char*, int> cases[] = {
        {"aaaa", "aaa", "bbbbbb", "bbbbbba", 1},
        {"abab", "ab", "abab", "abababab", 2},
        {"a.b.c", ".", "::", "a::b::c", 2},
        {"..x..", "..", "", "x", 2},
        {"abc", "", "z", "abc", 0},
        {"abcabc", "abc", "xyz", "xyzxyz", 2},
    };
    auto len = [](const char* s) { return static_cast<unsigned>(strlen(s)); };
    for (const auto& [in, find, repl, result, count] : cases) {
        SCOPED_TRACE(std::string(in) + " / " + find + " -> " + repl);
        // Once with exactly enough capacity, once with room to grow in place.
        for (unsigned spare : {0u, 64u}) {
            DataBuffer db;
            ASSERT_TRUE(db.ensureBuffer(len(in) + spare) && db.append(in, len(in)));
            EXPECT_EQ(db.replaceAllOccurances(u(find), len(find), u(repl), len(repl)), count);
            EXPECT_EQ(bytesOf(db), result);
        }
    }
    // Pattern and replacement pointing into the buffer being rewritten.
    DataBuffer self = bufferOf("ab-ab-ab");
    EXPECT_EQ(self.replaceAllOccurances(self.getData2(), 2, self.getData2() + 1, 3), 3);
    EXPECT_EQ(bytesOf(self), "b-a-b-a-b-a");
}

TEST(DataBufferReplace, MoreMatchesThanAreRemembered) {
    // Past some millions of matches the builder finds the rest again; the result must not
    // show where that switch happened, whether it is built in new storage or in place.
    const unsigned n = 17'000'000;
    for (unsigned spare : {0u, n}) {
        SCOPED_TRACE(spare);
        DataBuffer db;
        ASSERT_TRUE(db.ensureBuffer(n + spare));
        memset(db.getData2(), 'a', n);
        db.setDataSize_CAUTION(n);
        db.getData2()[n - 1] = 'z';
        ASSERT_EQ(db.replaceAllOccurances(u("a"), 1, u("bc"), 2), static_cast<int>(n - 1));
        ASSERT_EQ(db.getSize(), 2 * (n - 1) + 1);
        EXPECT_EQ(db.getData2()[db.getSize() - 1], 'z');
        EXPECT_EQ(db.findBytes(u("cb"), 2) - db.getData2(), 1);
        for (const char* absent : {"a", "bb", "cc"})
            EXPECT_EQ(db.findBytes(u(absent), static_cast<int>(strlen(absent))), nullptr);
    }
}

}  // namespace
