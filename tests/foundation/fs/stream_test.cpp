// The file data source, output files and the handle's end-of-file flag.
#include <cerrno>
#include <string>

#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"
#include "support/SysCallOverride.h"
#include "support/TestSupport.h"

namespace {

constexpr unsigned kBlock = 2u << 20;  // the source's read-ahead block

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 31) ^ (i >> 9));
    return s;
}

// An output that is not a file: collects the bytes in memory.
class MemoryOutput : public _ovOutput {
public:
    bool writeUBytesPM(const unsigned char* p, unsigned n, ProgressMonitor*, LogBase&) override {
        bytes.append(reinterpret_cast<const char*>(p), n);
        return true;
    }
    void dispose() override {}
    std::string bytes;
    ~MemoryOutput() override = default;
};

class StreamTest : public TempDirTest {};

TEST_F(StreamTest, CopyToOutputFileAtChunkBoundaries) {
    const size_t sizes[] = {0, 1, kBlock, 2 * size_t{kBlock}, 2 * size_t{kBlock} + 1};
    // Copy from the start, and after a first small read that leaves read-ahead pending.
    for (bool kernel : {true, false}) {
        for (size_t size : sizes) {
            for (unsigned firstRead : {0u, 10u}) {
                SCOPED_TRACE(std::to_string(size) + (kernel ? " kernel" : " read/write") +
                             " after " + std::to_string(firstRead));
                const std::string content = pattern(size);
                const std::string src = writeFile("src", content);
                SysCallOverride o;
                if (!kernel) o.failNth(SysCallOverride::CopyFileRange, 1, ENOSYS, true);
                _ovLogger log;
                _ovFileDataSource ds;
                ASSERT_TRUE(ds.openDataSourceFile(XString(src.c_str()), log)) << log.text();
                EXPECT_EQ(ds.getFileSize64(&log), static_cast<long long>(size));
                std::string head(firstRead, '\0');
                unsigned got = 0;
                ASSERT_TRUE(ds.readSourcePM(head.data(), firstRead, got, nullptr, log));
                head.resize(got);
                _ovOutput* out = OutputFile::createFileUtf8(path("dst").c_str(), log);
                ASSERT_NE(out, nullptr) << log.text();
                ASSERT_TRUE(out->writeUBytesPM(
                    reinterpret_cast<const unsigned char*>(head.data()), got, nullptr, log));
                long long count = -1;
                ASSERT_TRUE(ds.copyToOutputPM(*out, count, nullptr, log)) << log.text();
                out->dispose();
                EXPECT_EQ(count, static_cast<long long>(size - got));
                EXPECT_TRUE(ds.endOfStream());
                EXPECT_EQ(readFile(path("dst")), content);
            }
        }
    }
}

TEST_F(StreamTest, CopyToNonFileOutputAndAppendingOutput) {
    const std::string content = pattern(kBlock + 5);
    const std::string src = writeFile("src", content);
    _ovLogger log;
    _ovFileDataSource ds;
    ASSERT_TRUE(ds.openDataSourceFile(XString(src.c_str()), log));
    MemoryOutput mem;
    long long count = 0;
    ASSERT_TRUE(ds.copyToOutputPM(mem, count, nullptr, log)) << log.text();
    EXPECT_EQ(count, static_cast<long long>(content.size()));
    EXPECT_EQ(mem.bytes, content);

    // An output created on an existing file starts from empty.
    writeFile("dst", "old content that must go");
    _ovOutput* out = OutputFile::createFileUtf8(path("dst").c_str(), log);
    ASSERT_NE(out, nullptr);
    ASSERT_TRUE(out->writeUBytesPM(reinterpret_cast<const unsigned char*>("new"), 3, nullptr, log));
    out->dispose();
    EXPECT_EQ(readFile(path("dst")), "new");
    _ovLogger bad;
    EXPECT_EQ(OutputFile::createFileUtf8(path("no/dir/f").c_str(), bad), nullptr);
    EXPECT_TRUE(bad.hasErrors());
}

TEST_F(StreamTest, ReadSourceWithAndWithoutReadAhead) {
    const std::string content = pattern(kBlock + 1000);
    const std::string src = writeFile("src", content);
    for (bool readAhead : {true, false}) {
        SCOPED_TRACE(readAhead ? "read-ahead" : "exact");
        SysCallOverride o;
        _ovLogger log;
        _ovFileDataSource ds;
        ASSERT_TRUE(ds.openDataSourceFile(XString(src.c_str()), log));
        ds.m_readAhead = readAhead;
        std::string collected;
        char buf[4096];
        int reads = 0;
        while (!ds.endOfStream()) {
            unsigned got = 0;
            ASSERT_TRUE(ds.readSourcePM(buf, 1000, got, nullptr, log)) << log.text();
            collected.append(buf, got);
            // Fewer than asked only at the end.
            if (got < 1000) {
                EXPECT_TRUE(ds.endOfStream());
            }
            ASSERT_LT(++reads, 5000);
        }
        EXPECT_EQ(collected, content);
        // Read-ahead turns thousands of small reads into a few large ones.
        if (readAhead) {
            EXPECT_LE(o.calls(SysCallOverride::Read), 4);
        } else {
            EXPECT_GE(o.calls(SysCallOverride::Read), 2098);
        }
    }
    _ovFileDataSource empty;
    _ovLogger log;
    writeFile("empty", "");
    ASSERT_TRUE(empty.openDataSourceFile(XString(path("empty").c_str()), log));
    EXPECT_TRUE(empty.endOfStream());
    EXPECT_FALSE(empty.openDataSourceFile(XString(path("missing").c_str()), log));
    EXPECT_FALSE(empty.openDataSourceFile(XString(dir().c_str()), log));
}

TEST_F(StreamTest, HandleEndOfFileFlagAndOwnership) {
    const std::string src = writeFile("src", "0123456789");
    int code = 0;
    OrvaneHandle* opened = FileSys::openForReadOnly(XString(src.c_str()), false, false, code, nullptr);
    ASSERT_NE(opened, nullptr);
    OrvaneHandle h;
    h.takeHandle(*opened);
    EXPECT_FALSE(opened->isHandleOpen());
    delete opened;  // emptied: must not close h's file
    ASSERT_TRUE(h.isHandleOpen());

    struct Step {
        unsigned ask;
        unsigned expectRead;
        bool expectEof;
    } steps[] = {{4, 4, false}, {6, 6, false}, {1, 0, true}, {3, 0, true}};
    for (const Step& s : steps) {
        SCOPED_TRACE(s.ask);
        char buf[16];
        unsigned got = 99;
        bool eof = !s.expectEof;
        ASSERT_TRUE(h.readBytesToBuf32(buf, s.ask, got, eof, nullptr));
        EXPECT_EQ(got, s.expectRead);
        EXPECT_EQ(eof, s.expectEof);
    }
    ASSERT_TRUE(h.setFilePointerRelative(-1, nullptr, true));
    EXPECT_EQ(h.ftell64(nullptr), 9);

    OrvaneHandle moved(std::move(h));
    EXPECT_FALSE(h.isHandleOpen());
    EXPECT_TRUE(moved.isHandleOpen());
    moved.closeHandle();
    moved.closeHandle();  // harmless twice
    _ovLogger log;
    char c;
    unsigned got = 7;
    bool eof = false;
    EXPECT_FALSE(moved.readBytesToBuf32(&c, 1, got, eof, &log));
    EXPECT_EQ(got, 0u);
    EXPECT_FALSE(moved.setFilePointerAbsolute(0, &log));
    EXPECT_LT(moved.fileSize64(&log), 0);
    EXPECT_FALSE(FileSys::writeToOpenFile(moved, "x", 1, &log));
    EXPECT_EQ(log.entries().size(), 4u) << log.text();
}

}  // namespace
