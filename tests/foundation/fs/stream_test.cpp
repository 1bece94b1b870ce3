// The file data source and output files.
#include <string>

#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"
#include "support/TestSupport.h"

namespace {

constexpr unsigned kBlock = 256u << 10;  // the source's read-ahead block

// An output that is not a file: collects the bytes in memory.
struct MemoryOutput : _ovOutput {
    bool writeUBytesPM(const unsigned char* p, unsigned n, ProgressMonitor*, LogBase&) override {
        return bytes.append(reinterpret_cast<const char*>(p), n).size() >= n;
    }
    void dispose() override {}
    std::string bytes;
};

class StreamTest : public TempDirTest {};

TEST_F(StreamTest, CopyToOutputAtChunkBoundaries) {
    std::string content(2 * size_t{kBlock} + 1, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>((i * 31) ^ (i >> 9));
    writeFile("dst", "old content that must go");
    // Into a file (through the kernel) and into an output that is not a file; from the start,
    // and after a first small read that leaves read-ahead pending.
    for (const char* how : {"file", "memory"}) {
        for (size_t size : {size_t{0}, size_t{1}, size_t{kBlock}, 2 * size_t{kBlock} + 1}) {
            for (unsigned firstRead : {0u, 10u}) {
                SCOPED_TRACE(std::string(how) + " " + std::to_string(size) + " after " +
                             std::to_string(firstRead));
                const std::string src = writeFile("src", content.substr(0, size));
                _ovLogger log;
                _ovFileDataSource ds;
                ASSERT_TRUE(ds.openDataSourceFile(XString(src.c_str()), log)) << log.text();
                std::string head(firstRead, '\0');
                unsigned got = 0;
                ASSERT_TRUE(ds.readSourcePM(head.data(), firstRead, got, nullptr, log));
                MemoryOutput mem;
                _ovOutput* out =
                    how[0] == 'm' ? &mem : OutputFile::createFileUtf8(path("dst").c_str(), log);
                ASSERT_NE(out, nullptr) << log.text();
                ASSERT_TRUE(out->writeUBytesPM(reinterpret_cast<const unsigned char*>(head.data()),
                                               got, nullptr, log));
                long long count = -1;
                ASSERT_TRUE(ds.copyToOutputPM(*out, count, nullptr, log)) << log.text();
                out->dispose();
                EXPECT_EQ(count, static_cast<long long>(size - got));
                EXPECT_TRUE(ds.endOfStream());
                EXPECT_TRUE((how[0] == 'm' ? mem.bytes : readFile(path("dst"))) ==
                            content.substr(0, size));
            }
        }
    }
}

// Lent chunks must deliver exactly what copied ones would: n bytes until the end, then the
// rest. Chunks that fit in the read-ahead block are lent from it, one that spans two blocks
// is copied into the caller's buffer, and so is every chunk once read-ahead is off.
TEST_F(StreamTest, ViewLendsFromTheBlockAndCopiesAcrossBlocks) {
    constexpr unsigned kChunk = 16384;
    std::string content(3 * size_t{kBlock} + 77, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>((i * 13) ^ (i >> 11));
    const std::string src = writeFile("src", content);
    // The first read's size, and whether read-ahead stays on.
    for (auto [skew, readAhead] : {std::pair{0u, true}, {10u, true}, {10u, false}}) {
        SCOPED_TRACE(std::to_string(skew) + (readAhead ? " with read-ahead" : " without"));
        _ovLogger log;
        _ovFileDataSource ds;
        ASSERT_TRUE(ds.openDataSourceFile(XString(src.c_str()), log)) << log.text();
        ds.m_readAhead = readAhead;
        std::string seen(skew, '\0'), buf(kChunk, '\0');
        unsigned got = 0;
        ASSERT_TRUE(ds.readSourcePM(seen.data(), skew, got, nullptr, log));
        int lent = 0, copied = 0;
        while (!ds.endOfStream()) {
            const char* bytes = nullptr;
            ASSERT_TRUE(ds.readSourceView(buf.data(), kChunk, bytes, got, log)) << log.text();
            ASSERT_EQ(got, std::min<size_t>(kChunk, content.size() - seen.size()));
            (bytes == buf.data() ? copied : lent)++;
            seen.append(bytes, got);
        }
        EXPECT_TRUE(seen == content);
        // Without a skew no chunk spans two blocks; with one, a chunk spans each block edge.
        EXPECT_EQ(copied, !readAhead ? copied + lent : skew ? 3 : 0);
        EXPECT_EQ(lent > 0, readAhead);
    }
}

}  // namespace
