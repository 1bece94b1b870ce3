// Numbered blocks of the current file: GetNumBlocks, ReadBlock, ReadBlockBd.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

class BlocksTest : public TempDirTest {
  protected:
    void openWith(const std::string& bytes, const std::string& name = "f.bin") {
        XString p(writeFile(name, bytes).c_str());
        ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    }
    // The error lines of the last call.
    std::string errors() {
        std::string out;
        for (const LogEntry& e : fa.lastErrorLog().entries()) {
            if (e.kind == LogKind::Error) out += e.text + "|";
        }
        return out;
    }

    ClsFileAccess fa;
};

}  // namespace

TEST_F(BlocksTest, CountsBlocks) {
    struct Case {
        size_t size;
        int blockSize;
        int count;
    };
    const Case cases[] = {{0, 1, 0}, {0, 4096, 0}, {10, 4, 3},  {12, 4, 3},
                          {1, 4, 1}, {10, 10, 1},  {10, 11, 1}, {10, 1, 10}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + " bytes in blocks of " + std::to_string(c.blockSize));
        openWith(std::string(c.size, 'z'));
        EXPECT_EQ(fa.GetNumBlocks(c.blockSize), c.count) << lastLog(fa);
        EXPECT_EQ(errors(), "");
    }
}

TEST_F(BlocksTest, ReadsBlocksOfTenBytesInAnyOrder) {
    openWith("0123456789");
    struct Case {
        int index, size;
        bool ok;
        const char* bytes;
        const char* error;
    };
    const Case cases[] = {
        {2, 4, true, "89", ""},           {0, 4, true, "0123", ""},
        {1, 4, true, "4567", ""},         {3, 4, false, "", "Position beyond end of file.|"},
        {1, 5, true, "56789", ""},        {2, 5, false, "", "Position beyond end of file.|"},
        {0, 100, true, "0123456789", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("block " + std::to_string(c.index) + " of size " + std::to_string(c.size));
        DataBuffer out;
        out.append("stale", 5);
        EXPECT_EQ(fa.ReadBlock(c.index, c.size, out), c.ok) << lastLog(fa);
        EXPECT_EQ(bytesOf(out), c.bytes);
        EXPECT_EQ(errors(), c.error);
    }
}

TEST_F(BlocksTest, ChecksRunInOrder) {
    struct Case {
        int index, size;
        const char* error;
    };
    const Case noFile[] = {
        {-1, 0, "blockIndex cannot be negative.|"},
        {0, 0, "Invalid blockSize (0 or negative)|"},
        {0, -5, "Invalid blockSize (0 or negative)|"},
        {0, 4, "No file is open.|"},
    };
    for (const Case& c : noFile) {
        SCOPED_TRACE(c.error);
        DataBuffer out;
        ClsBinData bd;
        EXPECT_CALL_FAILS(fa, fa.ReadBlock(c.index, c.size, out));
        EXPECT_EQ(errors(), c.error);
        EXPECT_CALL_FAILS(fa, fa.ReadBlockBd(c.index, c.size, bd));
        EXPECT_EQ(errors(), c.error);
        // GetNumBlocks has no index to check.
        if (c.index >= 0) {
            EXPECT_EQ(fa.GetNumBlocks(c.size), -1);
            EXPECT_EQ(errors(), c.error);
        }
    }
    openWith("");
    DataBuffer out;
    EXPECT_CALL_FAILS(fa, fa.ReadBlock(0, 4, out));
    EXPECT_EQ(errors(), "Position beyond end of file.|");
}

TEST_F(BlocksTest, BinDataIsReplacedOnSuccessAndKeptOnRefusal) {
    openWith("abcdefgh");
    ClsBinData bd;
    bd.m_data.append("previous content", 16);
    EXPECT_CALL_FAILS(fa, fa.ReadBlockBd(2, 4, bd));
    EXPECT_EQ(bytesOf(bd.m_data), "previous content");
    EXPECT_CALL_OK(fa, fa.ReadBlockBd(1, 4, bd));
    EXPECT_EQ(bytesOf(bd.m_data), "efgh");
}

// A block read leaves the position just past the block and the end-of-file flag as its read
// left it, so a following FileRead continues behind the block.
TEST_F(BlocksTest, PositionAndEndOfFileFollowTheBlock) {
    openWith("0123456789");
    DataBuffer out, next;
    ASSERT_CALL_OK(fa, fa.ReadBlock(1, 3, out));
    ASSERT_CALL_OK(fa, fa.FileRead(2, next));
    EXPECT_EQ(bytesOf(next), "67");

    // The last block holds exactly the bytes left: the end is not yet seen.
    ASSERT_CALL_OK(fa, fa.FileRead(100, next));
    EXPECT_TRUE(fa.get_EndOfFile());
    ASSERT_CALL_OK(fa, fa.ReadBlock(3, 3, out));
    EXPECT_EQ(bytesOf(out), "9");
    EXPECT_FALSE(fa.get_EndOfFile());
    next.clear();
    ASSERT_CALL_OK(fa, fa.FileRead(4, next));
    EXPECT_EQ(bytesOf(next), "");
    EXPECT_TRUE(fa.get_EndOfFile());
}

// Positions past 4 GiB, in a sparse file with marks written far out.
TEST_F(BlocksTest, BlocksBeyondFourGiB) {
    const uint64_t blockSize = 1 << 20;
    const uint64_t far = 4100 * blockSize;  // block 4100 starts past 4 GiB
    const std::string p = path("sparse.bin");
    {
        std::ofstream f(p, std::ios::binary);
        f.seekp(static_cast<std::streamoff>(far));
        f << "far block";
        f.seekp(static_cast<std::streamoff>(far + blockSize + 10));
        f << "tail";
        ASSERT_TRUE(f.good()) << "cannot make a sparse file here";
    }
    XString xp(p.c_str());
    ASSERT_CALL_OK(fa, fa.OpenForRead(xp));
    EXPECT_EQ(fa.GetNumBlocks(static_cast<int>(blockSize)), 4102);
    // One-byte blocks number more than 2^32; the count leaves as its low 32 bits.
    const uint64_t size = far + blockSize + 14;
    EXPECT_EQ(fa.GetNumBlocks(1), static_cast<int>(static_cast<uint32_t>(size)));

    DataBuffer out;
    ASSERT_CALL_OK(fa, fa.ReadBlock(4100, static_cast<int>(blockSize), out));
    ASSERT_EQ(out.getSize(), blockSize);
    EXPECT_EQ(bytesOf(out).substr(0, 9), "far block");
    ASSERT_CALL_OK(fa, fa.ReadBlock(4101, static_cast<int>(blockSize), out));
    EXPECT_EQ(bytesOf(out), std::string(10, '\0') + "tail");
    EXPECT_CALL_FAILS(fa, fa.ReadBlock(4102, static_cast<int>(blockSize), out));
    EXPECT_EQ(errors(), "Position beyond end of file.|");
}
