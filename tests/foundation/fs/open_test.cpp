// The four opens: modes, open-error codes and locking.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "foundation/fs/FileSys.h"
#include "foundation/fs/OpenErrorCode.h"
#include "support/TestSupport.h"

namespace {

using OpenFn = OrvaneHandle* (*)(const XString&, bool, bool, int&, LogBase*);

struct Mode {
    const char* name;
    OpenFn open;
    bool createsMissing;
    bool canRead;
    bool canWrite;
    bool keepsContent;
    bool appends;
};

const Mode kModes[] = {
    {"readOnly", FileSys::openForReadOnly, false, true, false, true, false},
    {"writeOnly", FileSys::openForWriteOnly, true, false, true, false, false},
    {"readWrite", FileSys::openForReadWrite, true, true, true, true, false},
    {"append", FileSys::openForAppend, true, false, true, true, true},
};

struct Opened {
    std::unique_ptr<OrvaneHandle> h;
    int code = -1;
    _ovLogger log;
};

void openPath(const Mode& m, const std::string& p, Opened& out, bool lock = false) {
    XString path(p.c_str());
    out.code = 0;
    out.h.reset(m.open(path, lock, false, out.code, &out.log));
}

class OpenTest : public TempDirTest {};

TEST_F(OpenTest, EachModeOnMissingAndExistingFile) {
    for (const Mode& m : kModes) {
        SCOPED_TRACE(m.name);
        const std::string missing = path(std::string("missing-") + m.name);
        Opened a;
        openPath(m, missing, a);
        if (!m.createsMissing) {
            EXPECT_EQ(a.h, nullptr);
            EXPECT_EQ(a.code, 2);
            EXPECT_TRUE(a.log.hasErrors());
        } else {
            ASSERT_NE(a.h, nullptr) << a.log.text();
            EXPECT_EQ(a.code, 0);
            EXPECT_EQ(readFile(missing), "");
        }

        const std::string existing = writeFile(std::string("existing-") + m.name, "0123456789");
        Opened b;
        openPath(m, existing, b);
        ASSERT_NE(b.h, nullptr) << b.log.text();
        EXPECT_EQ(b.code, 0);
        EXPECT_EQ(readFile(existing), m.keepsContent ? "0123456789" : "");

        char buf[4] = {};
        unsigned got = 0;
        bool eof = false;
        EXPECT_EQ(b.h->readBytesToBuf32(buf, 4, got, eof, nullptr), m.canRead);
        if (m.canRead) {
            EXPECT_EQ(std::string(buf, got), "0123");
        }
        if (m.canWrite) {
            ASSERT_TRUE(b.h->writeBytes("AB", 2, &b.log)) << b.log.text();
            b.h->closeHandle();
            std::string expect = m.appends ? "0123456789AB"
                                 : m.keepsContent ? (m.canRead ? "0123AB6789" : "AB23456789")
                                                  : "AB";
            EXPECT_EQ(readFile(existing), expect);
        } else {
            EXPECT_FALSE(b.h->writeBytes("AB", 2, nullptr));
        }
    }
}

// Error codes that can be provoked without privileges, for every mode.
TEST_F(OpenTest, ErrorCodes) {
    writeFile("plain", "x");
    ASSERT_EQ(mkdir(path("dir").c_str(), 0755), 0);
    ASSERT_EQ(symlink(path("loopB").c_str(), path("loopA").c_str()), 0);
    ASSERT_EQ(symlink(path("loopA").c_str(), path("loopB").c_str()), 0);
    const std::string longName = path(std::string(300, 'n'));
    struct Case {
        std::string path;
        int code;
    } cases[] = {
        {path("dir"), 5},
        {path("loopA"), 6},
        {longName, 8},
        {path("plain/child"), 13},
        {path("nodir/child"), 2},
    };
    for (const Mode& m : kModes) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(m.name) + " " + c.path.substr(dir().size()));
            Opened o;
            openPath(m, c.path, o);
            EXPECT_EQ(o.h, nullptr);
            EXPECT_EQ(o.code, c.code) << o.log.text();
            EXPECT_EQ(o.log.entries().size(), 1u) << o.log.text();
            // A null log stays silent but the code is still reported.
            int code = 0;
            XString p(c.path.c_str());
            EXPECT_EQ(m.open(p, false, false, code, nullptr), nullptr);
            EXPECT_EQ(code, c.code);
        }
    }
}

TEST_F(OpenTest, PermissionDeniedWhenNotRoot) {
    if (runningAsRoot()) GTEST_SKIP() << "root is never denied";
    const std::string p = writeFile("locked", "x");
    ASSERT_EQ(chmod(p.c_str(), 0), 0);
    for (const Mode& m : kModes) {
        SCOPED_TRACE(m.name);
        Opened o;
        openPath(m, p, o);
        EXPECT_EQ(o.h, nullptr);
        EXPECT_EQ(o.code, 1);
    }
}

TEST_F(OpenTest, LockOnOpenConflicts) {
    const std::string p = writeFile("shared", "content");
    const Mode& reader = kModes[0];
    for (const Mode& first : kModes) {
        for (const Mode& second : kModes) {
            SCOPED_TRACE(std::string(first.name) + " then " + second.name);
            writeFile("shared", "content");
            Opened a, b;
            openPath(first, p, a, true);
            ASSERT_NE(a.h, nullptr) << a.log.text();
            openPath(second, p, b, true);
            bool bothRead = &first == &reader && &second == &reader;
            if (bothRead) {
                EXPECT_NE(b.h, nullptr) << "shared locks coexist";
            } else {
                EXPECT_EQ(b.h, nullptr);
                EXPECT_EQ(b.code, 1);
                // A refused write-only open must not have emptied the file.
                EXPECT_EQ(readFile(p), first.keepsContent ? "content" : "");
            }
            // Without the lock flag the same open goes through.
            Opened c;
            openPath(second, p, c, false);
            EXPECT_NE(c.h, nullptr) << c.log.text();
        }
    }
    // Closing the holder releases the lock.
    Opened a, b;
    openPath(kModes[1], p, a, true);
    ASSERT_NE(a.h, nullptr);
    a.h.reset();
    openPath(kModes[1], p, b, true);
    EXPECT_NE(b.h, nullptr) << b.log.text();
}

TEST(OpenErrorCodeTest, ErrnoTable) {
    struct Row {
        int err;
        int code;
    } rows[] = {
        {0, 0},           {EACCES, 1},  {EPERM, 1},     {ENOENT, 2},        {EIO, 3},
        {EINVAL, 3},      {EEXIST, 4},  {EISDIR, 5},    {ELOOP, 6},         {EMFILE, 7},
        {ENAMETOOLONG, 8}, {ENFILE, 9}, {ENODEV, 10},   {ENXIO, 10},        {ENOMEM, 11},
        {ENOSPC, 12},     {ENOTDIR, 13}, {EOVERFLOW, 14}, {EFBIG, 14},      {EROFS, 15},
        {ETXTBSY, 16},    {EAGAIN, 3},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.err);
        EXPECT_EQ(openErrorCodeFromErrno(r.err), r.code);
    }
}

}  // namespace
