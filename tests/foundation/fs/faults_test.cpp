// Injected system-call faults: retried interruptions and short transfers stay invisible,
// failed writes leave the old file and nothing stray.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>

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
    static XString x(const std::string& s) { return XString(s.c_str()); }
    size_t entries() const {
        auto it = std::filesystem::directory_iterator(dir());
        return static_cast<size_t>(std::distance(it, std::filesystem::directory_iterator()));
    }
};

TEST_F(FaultTest, InterruptionsAndShortTransfersAreRetried) {
    const std::string content = pattern(100000);
    const std::pair<size_t, bool> cases[] = {{0, true}, {7, false}, {1000, true}};
    for (const auto& [limit, interrupt] : cases) {
        SCOPED_TRACE(std::to_string(limit) + (interrupt ? " interrupted" : ""));
        const std::string src = writeFile("src", content);
        SysCallOverride o;
        o.limitTransfers(limit);
        o.interruptEveryTransfer(interrupt);
        int code = 0;
        _ovLogger log;
        std::unique_ptr<OrvaneHandle> h(
            FileSys::openForReadWrite(x(src), false, false, code, &log));
        ASSERT_NE(h, nullptr) << log.text();
        std::string buf(50000, '\0');
        unsigned got = 0;
        bool eof = false;
        ASSERT_TRUE(h->readBytesToBuf32(buf.data(), 50000, got, eof, &log)) << log.text();
        EXPECT_EQ(buf.substr(0, got), content.substr(0, 50000));
        ASSERT_TRUE(h->preadBytes(buf.data(), 10, 99995, got, eof, &log));
        EXPECT_TRUE(got == 5 && eof);
        ASSERT_TRUE(h->writeBytes(content.data(), 30000, &log)) << log.text();
        h.reset();
        EXPECT_EQ(readFile(src),
                  content.substr(0, 50000) + content.substr(0, 30000) + content.substr(80000));
        // A copy without the kernel's copy goes by read and write, under the same faults.
        o.failNth(SysCallOverride::CopyFileRange, 1, ENOSYS, true);
        ASSERT_TRUE(FileSys::copyFileX(x(src), x(path("dst")), false, &log));
        EXPECT_EQ(readFile(path("dst")), readFile(src));
        EXPECT_GE(o.calls(SysCallOverride::Read),
                  (limit ? 50000 / limit : 1) * (interrupt ? 2 : 1));
    }
}

TEST_F(FaultTest, FailedWritesKeepOldContentAndLeaveNothingStray) {
    const std::string old = "the old content", fresh = pattern(70000);
    using S = SysCallOverride;
    // The call that fails, which one of its kind, and how.
    const std::tuple<S::Call, int, int> cases[] = {
        {S::Write, 1, ENOSPC}, {S::Write, 3, EIO},     {S::Fsync, 1, EIO},   {S::Fsync, 1, ENOSPC},
        {S::Rename, 1, EIO},   {S::Rename, 1, ENOSPC}, {S::Open, 1, ENOSPC}, {S::Read, 2, EIO},
    };
    for (const auto& [call, nth, err] : cases) {
        SCOPED_TRACE(std::to_string(call) + " " + std::to_string(nth) + " " + strerror(err));
        // Copies (by read and write, without the kernel's copy) meet the read and write faults.
        for (bool copy : {false, true}) {
            if (copy ? call != S::Write && call != S::Read : call == S::Read) continue;
            const std::string p = writeFile("target", old), src = writeFile("src", fresh);
            _ovLogger log;
            {
                SysCallOverride o;
                o.limitTransfers(20000);  // several writes, so that "later write" has a meaning
                o.failNth(call, nth, err);
                o.failNth(S::CopyFileRange, 1, ENOSYS, true);
                EXPECT_FALSE(
                    copy ? FileSys::copyFileX(x(src), x(path("dst")), false, &log)
                         : FileSys::writeFileUtf8(p.c_str(), fresh.data(), fresh.size(), &log));
                EXPECT_GE(o.calls(call), nth);
            }
            EXPECT_EQ(readFile(p), old);
            EXPECT_EQ(entries(), 2u) << "only the source and the old target";
            ASSERT_EQ(log.entries().size(), 1u) << log.text();
            EXPECT_NE(log.text().find(strerror(err)), std::string::npos) << log.text();
        }
    }
}

TEST_F(FaultTest, MoveAcrossDevicesCopiesThenRemoves) {
    const std::string content = pattern(40000), src = writeFile("src", content);
    SysCallOverride o;
    o.failNth(SysCallOverride::Rename, 1, EXDEV);
    _ovLogger log;
    ASSERT_TRUE(FileSys::moveFileX(x(src), x(path("dst")), &log)) << log.text();
    EXPECT_EQ(readFile(path("dst")) + readFile(src), content + "<missing>");
}

}  // namespace
