// Numbered blocks of the current file: GetNumBlocks, ReadBlock, ReadBlockBd.
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <tuple>

#include "fileaccess/LogProbe.h"

namespace {

const std::string kBeyond = "!Position beyond end of file.|";

class BlocksTest : public FileAccessTest {
  protected:
    void open(const std::string& p) {
        XString x = X(p);
        ASSERT_CALL_OK(fa, fa.OpenForRead(x));
    }
    void openWith(const std::string& bytes) { open(writeFile("f.bin", bytes)); }
    // The block's bytes; on failure "!", what is left in the buffer and the error lines.
    std::string block(int index, int size) {
        DataBuffer out;
        out.append("stale", 5);
        if (fa.ReadBlock(index, size, out)) return bytesOf(out);
        // Appended piece by piece: "!" + a + b makes GCC 12 at -O3 warn falsely (-Wrestrict).
        std::string failed = "!";
        failed += bytesOf(out);
        failed += errorLines();
        return failed;
    }
    std::string errorLines() const {
        std::string s;
        for (const LogEntry& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Error) s += e.text + "|";
        return s;
    }
};

}  // namespace

// Every block read from the last to the first, then one past the end. A block read leaves
// the position just past the block and clears EndOfFile; ReadBlockBd replaces its content
// only on success.
TEST_F(BlocksTest, CountsAndReadsEveryBlock) {
    // file size, block size, count
    const int cases[][3] = {{0, 1, 0},   {0, 4096, 0}, {10, 4, 3},   {12, 4, 3}, {1, 4, 1},
                            {10, 10, 1}, {10, 11, 1},  {10, 100, 1}, {10, 1, 10}};
    for (const auto& [size, blockSize, count] : cases) {
        SCOPED_TRACE(std::to_string(size) + " bytes in blocks of " + std::to_string(blockSize));
        const std::string file = std::string("0123456789AB").substr(0, size);
        openWith(file);
        EXPECT_EQ(fa.GetNumBlocks(blockSize), count) << lastLog(fa);
        std::string joined;
        for (int i = count - 1; i >= 0; --i) joined = block(i, blockSize) + joined;
        EXPECT_EQ(joined, file);
        DataBuffer rest;
        EXPECT_CALL_OK(fa, fa.FileRead(4, rest));
        EXPECT_EQ(bytesOf(rest), file.substr(std::min(blockSize, size), 4));
        EXPECT_EQ(block(count, blockSize), kBeyond);
        if (count == 0) continue;
        ClsBinData bd;  // a successful read replaces what it held
        bd.m_data.append("stale", 5);
        EXPECT_CALL_OK(fa, fa.FileRead(4, rest));  // at the end: sets EndOfFile
        EXPECT_CALL_OK(fa, fa.ReadBlockBd(count - 1, blockSize, bd));
        EXPECT_EQ(bytesOf(bd.m_data), file.substr((count - 1) * blockSize));
        EXPECT_FALSE(fa.get_EndOfFile());
    }
}

TEST_F(BlocksTest, ChecksRunInOrderWithNoFileOpen) {
    const std::string neg = "blockIndex cannot be negative.|",
                      bad = "Invalid blockSize (0 or negative)|";
    const std::tuple<int, int, std::string> cases[] = {
        {-1, 0, neg}, {0, 0, bad}, {0, -5, bad}, {0, 4, "No file is open.|"}};
    for (const auto& [index, size, error] : cases) {
        SCOPED_TRACE(error);
        EXPECT_EQ(block(index, size), "!" + error);
        ClsBinData bd;
        bd.m_data.append("stale", 5);
        EXPECT_CALL_FAILS(fa, fa.ReadBlockBd(index, size, bd));
        EXPECT_EQ(bytesOf(bd.m_data) + "!" + errorLines(), "stale!" + error);
        EXPECT_EQ(fa.GetNumBlocks(size), -1);  // every size here is refused, or no file
    }
}

// Positions past 4 GiB, in a sparse file with marks written far out.
TEST_F(BlocksTest, BlocksBeyondFourGiB) {
    const std::streamoff bs = 1 << 20, far = 4100 * bs;  // block 4100 starts past 4 GiB
    std::ofstream f(path("sparse.bin"), std::ios::binary);
    f.seekp(far) << "far block";
    f.seekp(far + bs + 10) << "tail";
    f.close();
    ASSERT_TRUE(f.good()) << "cannot make a sparse file here";
    open(path("sparse.bin"));
    EXPECT_EQ(fa.GetNumBlocks(bs), 4102);
    // One-byte blocks number more than 2^32; the count leaves as its low 32 bits.
    EXPECT_EQ(fa.GetNumBlocks(1), static_cast<int>(static_cast<uint32_t>(far + bs + 14)));
    EXPECT_EQ(block(4100, bs), "far block" + std::string(bs - 9, '\0'));
    EXPECT_EQ(block(4101, bs), std::string(10, '\0') + "tail");
    EXPECT_EQ(block(4102, bs), kBeyond);
}
