#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"

namespace {

const unsigned char* u(const char* s) {
    return reinterpret_cast<const unsigned char*>(s);
}

std::string str(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

DataBuffer bufferOf(const std::string& s) {
    DataBuffer db;
    db.append(s.data(), static_cast<unsigned>(s.size()));
    return db;
}

TEST(DataBufferStorage, GrowsKeepsBytesAndRefusesBeyond32Bits) {
    DataBuffer db;
    EXPECT_EQ(db.getData2(), nullptr);
    EXPECT_TRUE(db.ensureBuffer(10));
    EXPECT_GE(db.getCapacity(), 10u);
    db.append("abc", 3);
    // Large enough for the aligned huge-page storage; the bytes held must move along.
    ASSERT_TRUE(db.ensureBuffer(3u << 20));
    EXPECT_GE(db.getCapacity(), 3u << 20);
    EXPECT_EQ(str(db), "abc");
    EXPECT_FALSE(db.ensureBuffer64(uint64_t{1} << 32));
    EXPECT_FALSE(db.ensureBuffer64(UINT64_MAX));
    EXPECT_EQ(str(db), "abc");

    db.setDataSize_CAUTION(db.getCapacity() + 5);
    EXPECT_EQ(db.getSize(), db.getCapacity());
    db.setDataSize_CAUTION(3);
    EXPECT_EQ(db.getDataAt2(3), nullptr);
    ASSERT_NE(db.getDataAt2(2), nullptr);
    EXPECT_EQ(*db.getDataAt2(2), 'c');

    // Appending a range of the buffer to itself while it grows.
    db.releaseStorage();
    db.append("0123456789", 10);
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(db.append(db));
    EXPECT_EQ(db.getSize(), 640u);
    EXPECT_EQ(str(db).substr(630), "0123456789");

    DataBuffer copy(db), moved(std::move(db));
    EXPECT_TRUE(copy.equals(moved));
    EXPECT_EQ(db.getSize(), 0u);
}

TEST(DataBufferStorage, LargeBlocksKeepTheirBytesAcrossGrowthAndSwap) {
    // Pieces of 1 MiB, each filled with its own number, appended past several growth steps of
    // the large-block storage (which moves pages rather than copying them).
    const unsigned piece = 1u << 20;
    std::string bytes(piece, '\0');
    DataBuffer db;
    for (unsigned i = 0; i < 40; ++i) {
        bytes.assign(piece, static_cast<char>(i + 1));
        ASSERT_TRUE(db.append(bytes.data(), piece));
    }
    DataBuffer other = bufferOf("small");
    other.swap(db);
    ASSERT_EQ(other.getSize(), 40 * piece);
    EXPECT_EQ(str(db), "small");
    ASSERT_TRUE(other.ensureBuffer(64u << 20));
    for (unsigned i = 0; i < 40; ++i) {
        SCOPED_TRACE(i);
        const unsigned char* p = other.getData2() + size_t{i} * piece;
        ASSERT_EQ(p[0], i + 1);
        ASSERT_EQ(p[piece - 1], i + 1);
        ASSERT_EQ(memchr(p, static_cast<int>(i + 2), piece), nullptr);
    }
    other.releaseStorage();
    EXPECT_EQ(other.getCapacity(), 0u);
    EXPECT_EQ(other.getData2(), nullptr);
}

TEST(DataBufferStorage, RangesChunksAndShortening) {
    DataBuffer src = bufferOf("hello world");
    DataBuffer out;
    EXPECT_TRUE(out.appendRange(src, 6, 5));
    EXPECT_TRUE(out.appendRange(src, 11, 0));
    EXPECT_FALSE(out.appendRange(src, 7, 5));
    EXPECT_FALSE(out.appendRange(src, 12, 0));
    EXPECT_FALSE(out.appendRange(src, 1, UINT_MAX));
    EXPECT_EQ(str(out), "world");

    src.removeChunk(5, 1);
    EXPECT_EQ(str(src), "helloworld");
    src.removeChunk(8, 100);
    EXPECT_EQ(str(src), "hellowor");
    src.removeChunk(8, 1);
    EXPECT_EQ(str(src), "hellowor");
    src.shorten(3);
    EXPECT_EQ(str(src), "hello");
    src.shorten(9);
    EXPECT_EQ(src.getSize(), 0u);
}

TEST(DataBufferParse, ReadsAtEveryBound) {
    DataBuffer db = bufferOf(std::string("\x01\x02\x03\x04\x05\x06", 6));
    unsigned pos = 0;
    unsigned short v16 = 0;
    unsigned v32 = 0;
    ASSERT_TRUE(db.parseUint16(pos, true, v16));
    EXPECT_EQ(v16, 0x0201);
    ASSERT_TRUE(db.parseUint32(pos, true, v32));
    EXPECT_EQ(v32, 0x06050403u);
    EXPECT_EQ(pos, 6u);
    EXPECT_FALSE(db.parseUint16(pos, true, v16));
    pos = 1;
    ASSERT_TRUE(db.parseUint32(pos, false, v32));
    EXPECT_EQ(v32, 0x02030405u);
    EXPECT_FALSE(db.parseUint32(pos, true, v32));  // 5 + 4 > 6
    EXPECT_EQ(pos, 5u);
    pos = UINT_MAX - 1;
    EXPECT_FALSE(db.parseUint32(pos, true, v32));
    EXPECT_EQ(v32, 0x02030405u);

    struct Case {
        unsigned pos, n;
        bool ok;
        const char* hex;
    };
    const Case cases[] = {
        {0, 6, true, "010203040506"},
        {6, 0, true, ""},
        {5, 1, true, "06"},
        {5, 2, false, ""},
        {7, 0, false, ""},
        {1, UINT_MAX, false, ""},
        {UINT_MAX, 1, false, ""},
        {UINT_MAX, 0, false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.pos) + "+" + std::to_string(c.n));
        DataBuffer out = bufferOf("#");
        unsigned p = c.pos;
        EXPECT_EQ(db.parseData(p, c.n, out), c.ok);
        EXPECT_EQ(p, c.ok ? c.pos + c.n : c.pos);
        StringBuffer text("#");
        p = c.pos;
        EXPECT_EQ(db.parseDataEnc(p, c.n, "hex", text), c.ok);
        EXPECT_EQ(p, c.ok ? c.pos + c.n : c.pos);
        EXPECT_EQ(text.str(), std::string("#") + c.hex);
        if (c.ok) {
            EXPECT_EQ(out.getSize(), 1 + c.n);
        } else {
            EXPECT_EQ(str(out), "#");
        }
    }
    unsigned p = 0;
    StringBuffer text;
    EXPECT_FALSE(db.parseDataEnc(p, 2, "rot13", text));
    EXPECT_EQ(p, 0u);
}

TEST(DataBufferFind, FindsAtTheEdges) {
    DataBuffer db = bufferOf("abcabcd");
    EXPECT_EQ(db.findBytes(u("abc"), 3), db.getData2());
    EXPECT_EQ(db.findBytes(u("cd"), 2), db.getData2() + 5);
    EXPECT_EQ(db.findBytes(u("abcabcd"), 7), db.getData2());
    EXPECT_EQ(db.findBytes(u("abcabcde"), 8), nullptr);
    EXPECT_EQ(db.findBytes(u("dx"), 2), nullptr);
    EXPECT_EQ(db.findBytes(u("a"), 0), nullptr);
    EXPECT_EQ(db.findBytes(u("a"), -1), nullptr);
    const unsigned char* hay = db.getData2();
    EXPECT_EQ(DataBuffer::findBytes2(hay, 6, u("cd"), 2), nullptr);  // ends one byte short
    EXPECT_EQ(DataBuffer::findBytes2(hay, 7, u("cd"), 2), hay + 5);
    EXPECT_EQ(DataBuffer::findBytes2(hay + 1, 6, u("a"), 1), hay + 3);
    EXPECT_EQ(DataBuffer::findBytes2(hay, 0, u("a"), 1), nullptr);
    EXPECT_EQ(DataBuffer::findBytes2(hay, 7, u(""), 0), nullptr);
    DataBuffer empty;
    EXPECT_EQ(empty.findBytes(u("a"), 1), nullptr);

    // A pattern whose first byte is everywhere: the search must stay right after it gives up
    // on skimming for that byte.
    DataBuffer common = bufferOf(std::string(100000, 'x') + "xyx");
    EXPECT_EQ(common.findBytes(u("xy"), 2), common.getData2() + 100000);
    EXPECT_EQ(common.findBytes(u("xyz"), 3), nullptr);
    EXPECT_EQ(common.replaceAllOccurances(u("xyx"), 3, u("#"), 1), 1);
    EXPECT_EQ(str(common), std::string(100000, 'x') + "#");
}

TEST(DataBufferReplace, ReplacesLeftToRightWithoutRescanning) {
    struct Case {
        const char *in, *find, *repl, *out;
        int count;
    };
    const Case cases[] = {
        {"aaaaa", "aa", "X", "XXa", 2},
        {"aaaa", "aaa", "b", "ba", 1},
        {"aaaa", "aaa", "bbbbbb", "bbbbbba", 1},
        {"xaxbx", "x", "", "ab", 3},
        {"abcabc", "abc", "xyz", "xyzxyz", 2},
        {"abab", "ab", "abab", "abababab", 2},
        {"hello", "xyz", "Q", "hello", 0},
        {"ab", "abc", "Q", "ab", 0},
        {"a.b.c", ".", "::", "a::b::c", 2},
        {"..x..", "..", "", "x", 2},
        {"", "a", "b", "", 0},
        {"abc", "", "z", "abc", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.in) + " / " + c.find + " -> " + c.repl);
        // Once with exactly enough capacity, once with room to grow in place.
        for (unsigned spare : {0u, 64u}) {
            DataBuffer db;
            db.ensureBuffer(static_cast<unsigned>(strlen(c.in)) + spare);
            db.append(c.in, static_cast<unsigned>(strlen(c.in)));
            EXPECT_EQ(db.replaceAllOccurances(u(c.find), static_cast<unsigned>(strlen(c.find)),
                                              u(c.repl), static_cast<unsigned>(strlen(c.repl))),
                      c.count);
            EXPECT_EQ(str(db), c.out);
        }
    }
}

TEST(DataBufferReplace, LargeBufferAndPatternTakenFromTheBufferItself) {
    std::string in, expected;
    for (int i = 0; i < 20000; ++i) {
        in += "key=" + std::to_string(i) + ";";
        expected += "longer-key:" + std::to_string(i) + ";";
    }
    DataBuffer db = bufferOf(in);
    EXPECT_EQ(db.replaceAllOccurances(u("key="), 4, u("longer-key:"), 11), 20000);
    EXPECT_EQ(str(db), expected);
    EXPECT_EQ(db.replaceAllOccurances(u("longer-key:"), 11, u("key="), 4), 20000);
    EXPECT_EQ(str(db), in);

    // Pattern and replacement pointing into the buffer being rewritten.
    DataBuffer self = bufferOf("ab-ab-ab");
    EXPECT_EQ(self.replaceAllOccurances(self.getData2(), 2, self.getData2() + 1, 3), 3);
    EXPECT_EQ(str(self), "b-a-b-a-b-a");
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
        const unsigned char* p = db.getData2();
        EXPECT_EQ(p[db.getSize() - 1], 'z');
        EXPECT_EQ(db.findBytes(u("cb"), 2) - p, 1);
        EXPECT_EQ(db.findBytes(u("a"), 1), nullptr);
        EXPECT_EQ(db.findBytes(u("bb"), 2), nullptr);
        EXPECT_EQ(db.findBytes(u("cc"), 2), nullptr);
    }
}

}  // namespace
