// Injected system-call faults: retried interruptions and short transfers stay invisible,
// failed atomic writes leave the old file and no temporary.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"
#include "support/SysCallOverride.h"
#include "support/TestSupport.h"

namespace {

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 131) ^ (i >> 8));
    return s;
}

class FaultTest : public TempDirTest {
protected:
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (const auto& e : std::filesystem::directory_iterator(dir()))
            out.push_back(e.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }
};

TEST_F(FaultTest, InterruptionsAndShortTransfersAreRetried) {
    const std::string content = pattern(100000);
    const std::string src = writeFile("src", content);
    struct Case {
        const char* name;
        size_t limit;
        bool interrupt;
    } cases[] = {{"EINTR", 0, true}, {"short", 7, false}, {"both", 1000, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SysCallOverride o;
        o.limitTransfers(c.limit);
        o.interruptEveryTransfer(c.interrupt);
        // The handle's own read, write and pread.
        int code = 0;
        _ovLogger log;
        std::unique_ptr<OrvaneHandle> h(
            FileSys::openForReadWrite(XString(src.c_str()), false, false, code, &log));
        ASSERT_NE(h, nullptr) << log.text();
        std::string buf(content.size() + 10, '\0');
        unsigned got = 0;
        bool eof = false;
        ASSERT_TRUE(h->readBytesToBuf32(buf.data(), 50000, got, eof, &log)) << log.text();
        EXPECT_EQ(got, 50000u);
        EXPECT_FALSE(eof);
        EXPECT_EQ(buf.substr(0, got), content.substr(0, 50000));
        ASSERT_TRUE(h->preadBytes(buf.data(), 10, 99995, got, eof, &log));
        EXPECT_EQ(got, 5u);
        EXPECT_TRUE(eof);
        EXPECT_EQ(h->ftell64(nullptr), 50000);
        ASSERT_TRUE(h->writeBytes(content.data(), 30000, &log)) << log.text();
        EXPECT_EQ(h->ftell64(nullptr), 80000);
        h.reset();
        EXPECT_EQ(readFile(src), content.substr(0, 50000) + content.substr(0, 30000) +
                                     content.substr(80000));
        writeFile("src", content);

        // Whole-file write and read.
        ASSERT_TRUE(FileSys::writeFileUtf8(path("whole").c_str(), content.data(),
                                           static_cast<unsigned>(content.size()), &log))
            << log.text();
        DataBuffer back;
        ASSERT_TRUE(FileSys::readFileUtf8(path("whole").c_str(), back, &log)) << log.text();
        EXPECT_EQ(bytesOf(back), content);
        // The interrupted calls really happened.
        EXPECT_GT(o.calls(SysCallOverride::Read), c.interrupt ? 2 : 1);
    }
}

TEST_F(FaultTest, CopyFallsBackWhenTheKernelCopyIsUnavailable) {
    const std::string content = pattern(3 * 1024 * 1024 + 11);
    const std::string src = writeFile("src", content);
    SysCallOverride o;
    o.failNth(SysCallOverride::CopyFileRange, 1, ENOSYS, true);
    o.limitTransfers(65536);
    _ovLogger log;
    ASSERT_TRUE(FileSys::copyFileX(XString(src.c_str()), XString(path("dst").c_str()), false,
                                   &log))
        << log.text();
    EXPECT_EQ(readFile(path("dst")), content);
    EXPECT_EQ(o.calls(SysCallOverride::CopyFileRange), 1);
    EXPECT_GT(o.calls(SysCallOverride::Write), 40);
}

TEST_F(FaultTest, FailedCopyRemovesThePartialTarget) {
    const std::string src = writeFile("src", pattern(200000));
    SysCallOverride o;
    o.failNth(SysCallOverride::CopyFileRange, 1, ENOSYS, true);
    o.failNth(SysCallOverride::Write, 1, ENOSPC);
    _ovLogger log;
    EXPECT_FALSE(FileSys::copyFileX(XString(src.c_str()), XString(path("dst").c_str()), false,
                                    &log));
    EXPECT_EQ(log.entries().size(), 1u) << log.text();
    EXPECT_EQ(names(), std::vector<std::string>{"src"});
}

TEST_F(FaultTest, FailedAtomicWriteKeepsOldContentAndLeavesNoTemporary) {
    const std::string old = "the old content";
    const std::string fresh = pattern(70000);
    struct Case {
        const char* name;
        SysCallOverride::Call call;
        int nth;
        int err;
    } cases[] = {
        {"first write ENOSPC", SysCallOverride::Write, 1, ENOSPC},
        {"later write EIO", SysCallOverride::Write, 3, EIO},
        {"fsync EIO", SysCallOverride::Fsync, 1, EIO},
        {"fsync ENOSPC", SysCallOverride::Fsync, 1, ENOSPC},
        {"rename EIO", SysCallOverride::Rename, 1, EIO},
        {"rename ENOSPC", SysCallOverride::Rename, 1, ENOSPC},
        {"temporary not creatable", SysCallOverride::Open, 1, ENOSPC},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string p = writeFile("target", old);
        _ovLogger log;
        {
            SysCallOverride o;
            o.limitTransfers(20000);  // several writes, so that "later write" has a meaning
            o.failNth(c.call, c.nth, c.err);
            EXPECT_FALSE(FileSys::writeFileUtf8(p.c_str(), fresh.data(),
                                                static_cast<unsigned>(fresh.size()), &log));
            EXPECT_GE(o.calls(c.call), c.nth);
        }
        EXPECT_EQ(readFile(p), old);
        EXPECT_EQ(names(), std::vector<std::string>{"target"});
        ASSERT_EQ(log.entries().size(), 1u) << log.text();
        EXPECT_NE(log.entries()[0].text.find(c.err == EIO ? "Input/output error"
                                                          : "No space left on device"),
                  std::string::npos)
            << log.text();
    }
    // Without a fault the same write goes through.
    const std::string p = path("target");
    ASSERT_TRUE(FileSys::writeFileUtf8(p.c_str(), fresh.data(),
                                       static_cast<unsigned>(fresh.size()), nullptr));
    EXPECT_EQ(readFile(p), fresh);
}

TEST_F(FaultTest, MoveAcrossDevicesCopiesThenRemoves) {
    const std::string content = pattern(40000);
    const std::string src = writeFile("src", content);
    SysCallOverride o;
    o.failNth(SysCallOverride::Rename, 1, EXDEV);
    _ovLogger log;
    ASSERT_TRUE(FileSys::moveFileX(XString(src.c_str()), XString(path("dst").c_str()), &log))
        << log.text();
    EXPECT_EQ(readFile(path("dst")), content);
    EXPECT_EQ(names(), std::vector<std::string>{"dst"});

    // A rename that fails for another reason is reported and moves nothing.
    o.failNth(SysCallOverride::Rename, 1, EACCES);
    EXPECT_FALSE(FileSys::moveFileX(XString(path("dst").c_str()), XString(src.c_str()), &log));
    EXPECT_EQ(names(), std::vector<std::string>{"dst"});
    EXPECT_EQ(log.entries().size(), 1u) << log.text();
}

TEST_F(FaultTest, ReadErrorsAreReportedNotHidden) {
    const std::string src = writeFile("src", pattern(5000));
    SysCallOverride o;
    o.failNth(SysCallOverride::Read, 2, EIO);
    o.limitTransfers(1000);
    DataBuffer db;
    db.append("before", 6);
    _ovLogger log;
    EXPECT_FALSE(FileSys::readFileUtf8(src.c_str(), db, &log));
    EXPECT_EQ(bytesOf(db), "before");
    EXPECT_TRUE(log.hasErrors());

    _ovFileDataSource ds;
    ASSERT_TRUE(ds.openDataSourceFile(XString(src.c_str()), log));
    ds.m_readAhead = false;
    o.failNth(SysCallOverride::Read, 1, EIO);
    char buf[100];
    unsigned got = 0;
    EXPECT_FALSE(ds.readSourcePM(buf, sizeof buf, got, nullptr, log));
}

}  // namespace
