// Injected system-call faults: retried interruptions and short transfers stay invisible,
// failed writes leave the old file and nothing stray.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// A write, copy or move over an existing file that fails at any step leaves that file as it
// was and nothing new beside it; so does the move of a symbolic link between file systems,
// which makes a new link beside the file and renames it over. With a second hard link the file is
// rewritten in place, behind a backup that is put back.
TEST_F(FaultTest, FailedReplacementsKeepTheOldDestination) {
    const std::string old = "the old content", fresh = pattern(70000);
    using S = SysCallOverride;
    // Operation, the call that fails, which one of its kind, how, and how many calls in a row
    // fail. Writes move 20000 bytes each, so the fresh content takes four. In place
    // ("linked"), the backup's copy comes first; a failure after it puts the old content back.
    // The first opens of the old file (for reading and writing, then for writing only) refuse
    // as an immutable file or a file the caller may not write refuses, even for root.
    // clang-format off
    const struct {
        const char* op;
        S::Call call;
        int nth, err;
        bool putBack = false;
        int times = 1;
    } cases[] = {
        {"write", S::Open, 1, ETXTBSY},               {"write", S::Open, 2, ENOSPC},
        {"write", S::Write, 3, EIO},                  {"write", S::Fchown, 1, EIO},
        {"write", S::Fchmod, 1, EIO},                 {"write", S::Fsync, 1, EIO},
        {"write", S::Rename, 1, ENOSPC},              {"copy", S::Open, 2, EROFS},
        {"copy", S::Open, 3, ENOSPC},                 {"copy", S::Read, 2, EIO},
        {"copy", S::Write, 1, EFBIG},                 {"copy", S::Write, 4, ENOSPC},
        {"copy", S::Fchown, 1, EIO},                  {"copy", S::Fchmod, 1, EPERM},
        {"copy", S::Fsync, 1, EIO},                   {"copy", S::Rename, 1, EIO},
        {"move", S::Open, 1, EACCES},                 {"move", S::Open, 2, ENOSPC},
        {"move", S::Write, 2, EFBIG},                 {"move", S::Fchown, 1, EIO},
        {"move", S::Fchmod, 1, EIO},                  {"move", S::Futimens, 1, EIO},
        {"move", S::Fsync, 1, EIO},                   {"move", S::Rename, 2, ENOSPC},
        {"linked write", S::Open, 2, ENOSPC},         {"linked write", S::Write, 1, EIO},
        {"linked write", S::Fsync, 1, EIO},           {"linked write", S::Ftruncate, 1, EIO, true},
        {"linked write", S::Write, 3, ENOSPC, true},  {"linked write", S::Fsync, 2, EIO, true},
        {"linked copy", S::Read, 1, EIO},             {"linked copy", S::Write, 4, EFBIG, true},
        {"write", S::Open, 1, EPERM},                 {"write", S::Open, 1, EACCES, false, 2},
        {"copy", S::Open, 2, EPERM},                  {"copy", S::Open, 2, EACCES, false, 2},
        {"link move", S::Symlink, 1, EIO},            {"link move", S::Rename, 2, EIO},
        {"link move", S::Rename, 2, ENOSPC},          {"linked copy", S::Fchmod, 1, EIO, true},
    };
    // clang-format on
    for (const auto& [op, call, nth, err, putBack, times] : cases) {
        SCOPED_TRACE(std::string(op) + " " + std::to_string(call) + " " + std::to_string(nth) +
                     " " + strerror(err));
        const std::string p = writeFile("target", old), src = writeFile("src", fresh);
        const bool linked = std::string(op).rfind("linked", 0) == 0;
        const bool linkMove = std::string(op) == "link move";
        if (linked) {
            ASSERT_EQ(link(p.c_str(), path("twin").c_str()), 0);
        }
        if (linkMove) {
            ASSERT_EQ(symlink("far/away", path("srcLink").c_str()), 0);
        }
        _ovLogger log;
        {
            SysCallOverride o;
            o.limitTransfers(20000);
            o.failNth(S::CopyFileRange, 1, ENOSYS, true);  // read and write, one by one
            if (std::string(op) == "move" || linkMove) o.failNth(S::Rename, 1, EXDEV);
            for (int i = 0; i < times; ++i) o.failNth(call, nth + i, err);
            const std::string kind = linked ? op + 7 : op;
            EXPECT_FALSE(kind == "write"
                             ? FileSys::writeFileUtf8(p.c_str(), fresh.data(), fresh.size(), &log)
                         : kind == "copy"
                             ? FileSys::copyFileX(x(src), x(p), false, &log)
                             : FileSys::moveFileX(x(linkMove ? path("srcLink") : src), x(p), &log));
            EXPECT_GE(o.calls(call), nth);
        }
        EXPECT_TRUE(readFile(p) == old && (!linked || readFile(path("twin")) == old));
        EXPECT_TRUE(readFile(src) == fresh);
        if (linkMove) {
            EXPECT_EQ(std::filesystem::read_symlink(path("srcLink")), "far/away");
        }
        EXPECT_EQ(entries(), linked || linkMove ? 3u : 2u) << "only the sources and the old target";
        EXPECT_NE(log.text().find(strerror(err)), std::string::npos) << log.text();
        EXPECT_EQ(std::count_if(log.entries().begin(), log.entries().end(),
                                [](const LogEntry& e) { return e.kind == LogKind::Error; }),
                  1)
            << log.text();
        EXPECT_EQ(log.contains("The old content was put back."), putBack) << log.text();
        std::filesystem::remove(path("twin"));
        std::filesystem::remove(path("srcLink"));
    }
}

// When even the old content cannot be put back, the backup stays and the log says where.
TEST_F(FaultTest, ABackupThatCannotBePutBackIsKept) {
    const std::string old = "the old content", p = writeFile("target", old);
    ASSERT_EQ(link(p.c_str(), path("twin").c_str()), 0);
    _ovLogger log;
    {
        SysCallOverride o;
        o.failNth(SysCallOverride::CopyFileRange, 1, ENOSYS, true);
        o.failNth(SysCallOverride::Write, 2, EIO, true);  // the rewrite and the put-back
        EXPECT_FALSE(FileSys::writeFileUtf8(p.c_str(), "new", 3, &log));
    }
    const std::string text = log.text(), mark = "The old content is kept in \"";
    const size_t at = text.find(mark);
    ASSERT_NE(at, std::string::npos) << text;
    const std::string backup =
        text.substr(at + mark.size(), text.find('"', at + mark.size()) - at - mark.size());
    EXPECT_EQ(readFile(backup), old);
    EXPECT_EQ(entries(), 3u);
}

}  // namespace
