// The four opens: modes, open-error codes and locking.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <utility>

#include "foundation/fs/FileSys.h"
#include "support/SysCallOverride.h"
#include "support/TestSupport.h"

namespace {

struct Mode {
    const char* name;
    OrvaneHandle* (*open)(const XString&, bool, bool, int&, LogBase*);
    bool canRead, canWrite, keepsContent;
    const char* afterWrite;  // the file "0123456789" after reading 4 bytes and writing "AB"
};

const Mode kModes[] = {
    {"readOnly", FileSys::openForReadOnly, true, false, true, "0123456789"},
    {"writeOnly", FileSys::openForWriteOnly, false, true, false, "AB"},
    {"readWrite", FileSys::openForReadWrite, true, true, true, "0123AB6789"},
    {"append", FileSys::openForAppend, false, true, true, "0123456789AB"},
};

struct Opened {
    std::unique_ptr<OrvaneHandle> h;
    int code = -1;
    _ovLogger log;
    Opened(const Mode& m, const std::string& p, bool lock = false) {
        h.reset(m.open(XString(p.c_str()), lock, false, code, &log));
    }
};

class OpenTest : public TempDirTest {};

// Which modes create a missing file is checked through the object's opens.
TEST_F(OpenTest, EachModeOnAnExistingFile) {
    for (const Mode& m : kModes) {
        SCOPED_TRACE(m.name);
        const std::string existing = writeFile(std::string("existing-") + m.name, "0123456789");
        Opened b(m, existing);
        ASSERT_NE(b.h, nullptr) << b.log.text();
        // Used through a handle it was moved into: emptied, the old one must not close it. The
        // read's bytes are checked with the transfer faults; here, that it moves the position.
        OrvaneHandle h(std::move(*b.h));
        b.h.reset();
        char buf[4] = {};
        unsigned got = 0;
        bool eof = false;
        EXPECT_EQ(h.readBytesToBuf32(buf, 4, got, eof, nullptr), m.canRead);
        EXPECT_EQ(h.writeBytes("AB", 2, nullptr), m.canWrite);
        h.closeHandle();
        EXPECT_EQ(readFile(existing), m.afterWrite);
    }
}

TEST_F(OpenTest, LockOnOpenConflicts) {
    const std::string p = path("shared");
    for (const Mode& first : kModes) {
        for (const Mode& second : kModes) {
            SCOPED_TRACE(std::string(first.name) + " then " + second.name);
            writeFile("shared", "content");
            Opened a(first, p, true), b(second, p, true);
            ASSERT_NE(a.h, nullptr) << a.log.text();
            const bool bothRead = !first.canWrite && !second.canWrite;  // shared locks coexist
            EXPECT_EQ(std::pair(b.h != nullptr, b.code), std::pair(bothRead, bothRead ? 0 : 1));
            // A refused write-only open must not have emptied the file.
            EXPECT_EQ(readFile(p), first.keepsContent ? "content" : "");
            EXPECT_NE(Opened(second, p, false).h, nullptr) << "without the lock flag";
            a.h.reset();  // closing the holder releases the lock
            EXPECT_NE(Opened(second, p, true).h, nullptr);
        }
    }
}

// Every reason the system can give maps to its code: each errno is injected into the open
// itself, and those that a real path provokes without privileges are met through every mode.
TEST_F(OpenTest, ErrorCodesFromInjectedErrnosAndRealPaths) {
    writeFile("plain", "x");
    ASSERT_EQ(mkdir(path("dir").c_str(), 0755) + symlink("loopB", path("loopA").c_str()) +
                  symlink("loopA", path("loopB").c_str()) +
                  chmod(writeFile("denied", "x").c_str(), 0),
              0);
    const int table[][2] = {{EACCES, 1},     {EPERM, 1},        {ENOENT, 2},  {EIO, 3},
                            {EAGAIN, 3},     {EEXIST, 4},       {EISDIR, 5},  {ELOOP, 6},
                            {EMFILE, 7},     {ENAMETOOLONG, 8}, {ENFILE, 9},  {ENODEV, 10},
                            {ENXIO, 10},     {ENOMEM, 11},      {ENOSPC, 12}, {ENOTDIR, 13},
                            {EOVERFLOW, 14}, {EFBIG, 14},       {EROFS, 15},  {ETXTBSY, 16}};
    for (const auto& [err, code] : table) {
        SCOPED_TRACE(err);
        SysCallOverride o;
        o.failNth(SysCallOverride::Open, 1, err, true);
        Opened injected(kModes[2], path("any"));
        EXPECT_TRUE(injected.h == nullptr && injected.code == code) << injected.code;
    }
    const std::pair<std::string, int> real[] = {
        {"dir", 5},          {"loopA", 6},       {std::string(300, 'n'), 8},
        {"plain/child", 13}, {"nodir/child", 2}, {"denied", 1}};
    for (const Mode& m : kModes) {
        for (const auto& [name, code] : real) {
            SCOPED_TRACE(std::string(m.name) + " " + name.substr(0, 20));
            if (code == 1 && runningAsRoot()) continue;  // root is never denied
            Opened o(m, path(name));
            EXPECT_EQ(std::tuple(o.h == nullptr, o.code, o.log.entries().size()),
                      std::tuple(true, code, size_t{1}))
                << o.log.text();
        }
    }
}

// Closed standard descriptors are filled, in a child, so that the next open takes a number above
// them; the open ones are left as they are.
TEST(StandardDescriptorsTest, ClosedOnesAreFilledSoNoOpenTakesTheirPlace) {
    const int result = inChildProcess([] {
        const int keep = dup(1);  // to put standard output back for the report
        close(0);
        close(2);
        bool closed[3] = {false, true, false};
        FileSys::occupyClosedStandardDescriptors(closed);
        const int next = dup(keep);
        struct stat st {};
        const bool filled = fstat(0, &st) == 0 && fstat(2, &st) == 0;
        if (!closed[0] || closed[1] || !closed[2] || !filled || next <= 2) return 1;
        // Writes to a filled descriptor fail rather than land anywhere.
        return write(2, "x", 1) < 0 ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
}

}  // namespace
