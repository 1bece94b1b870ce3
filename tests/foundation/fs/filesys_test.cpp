// Named-path operations: existence, type, size, copy, move, tree deletion, temporary names,
// whole files, time stamps, links and the current directory.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/FileSys.h"
#include "support/TestSupport.h"

namespace {

class FileSysTest : public TempDirTest {
protected:
    XString x(const std::string& s) { return XString(s.c_str()); }
    std::vector<std::string> dirEntries() {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(dir()))
            names.push_back(e.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    int type(const std::string& p, bool noFollow) {
        _ovLogger log;
        return FileSys::filePathType(x(p), noFollow, log);
    }
};

TEST_F(FileSysTest, ExistenceAndType) {
    writeFile("f", "x");
    ASSERT_EQ(mkdir(path("d").c_str(), 0755), 0);
    ASSERT_EQ(symlink("f", path("linkToFile").c_str()), 0);
    ASSERT_EQ(symlink("gone", path("dangling").c_str()), 0);
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0644), 0);
    struct Case {
        const char* name;
        bool exists;
        int followed;
        int unfollowed;
    } cases[] = {
        {"f", true, PathType::File, PathType::File},
        {"d", true, PathType::Directory, PathType::Directory},
        {"linkToFile", true, PathType::File, PathType::Symlink},
        {"dangling", true, PathType::None, PathType::Symlink},
        {"fifo", true, PathType::Other, PathType::Other},
        {"missing", false, PathType::None, PathType::None},
        {"f/under-a-file", false, PathType::None, PathType::None},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        bool unable = true;
        _ovLogger log;
        EXPECT_EQ(FileSys::fileExistsX(x(path(c.name)), unable, &log), c.exists);
        EXPECT_FALSE(unable);
        EXPECT_FALSE(log.hasErrors());
        EXPECT_EQ(type(path(c.name), false), c.followed);
        EXPECT_EQ(type(path(c.name), true), c.unfollowed);
    }
}

TEST_F(FileSysTest, ExistenceUncheckableBehindClosedDirectory) {
    if (runningAsRoot()) GTEST_SKIP() << "root searches every directory";
    ASSERT_EQ(mkdir(path("closed").c_str(), 0755), 0);
    writeFile("closed/f", "x");
    ASSERT_EQ(chmod(path("closed").c_str(), 0), 0);
    bool unable = false;
    _ovLogger log;
    EXPECT_FALSE(FileSys::fileExistsX(x(path("closed/f")), unable, &log));
    EXPECT_TRUE(unable);
    EXPECT_TRUE(log.hasErrors());
    EXPECT_EQ(type(path("closed/f"), false), PathType::Unknown);
}

TEST_F(FileSysTest, SizesOfSmallAndSparseHugeFile) {
    writeFile("small", "12345");
    bool ok = false;
    EXPECT_EQ(FileSys::fileSizeUtf8_32(path("small").c_str(), nullptr, ok), 5);
    EXPECT_TRUE(ok);
    EXPECT_EQ(FileSys::fileSizeX_64(x(path("small")), nullptr, ok), 5);
    EXPECT_TRUE(ok);

    const long long huge = 5LL * 1024 * 1024 * 1024 + 7;
    const std::string big = writeFile("sparse", "");
    ASSERT_EQ(truncate(big.c_str(), huge), 0);
    ok = false;
    EXPECT_EQ(FileSys::fileSizeUtf8_64(big.c_str(), nullptr, ok), huge);
    EXPECT_TRUE(ok);
    _ovLogger log;
    ok = true;
    FileSys::fileSizeUtf8_32(big.c_str(), &log, ok);
    EXPECT_FALSE(ok);
    EXPECT_NE(log.text().find("64-bit"), std::string::npos) << log.text();

    // The 32-bit limit itself still fits; one byte more does not.
    ASSERT_EQ(truncate(big.c_str(), 2147483647LL), 0);
    EXPECT_EQ(FileSys::fileSizeUtf8_32(big.c_str(), nullptr, ok), 2147483647);
    EXPECT_TRUE(ok);
    ASSERT_EQ(truncate(big.c_str(), 2147483648LL), 0);
    FileSys::fileSizeUtf8_32(big.c_str(), nullptr, ok);
    EXPECT_FALSE(ok);

    _ovLogger missingLog;
    ok = true;
    EXPECT_LT(FileSys::fileSizeUtf8_64(path("nope").c_str(), &missingLog, ok), 0);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(missingLog.hasErrors());
    ok = true;
    _ovLogger silent;
    FileSys::fileSizeUtf8_64(path("nope").c_str(), nullptr, ok);
    EXPECT_FALSE(ok);
}

TEST_F(FileSysTest, CopyKeepsBytesAndPermissionsAndHonoursFailIfExists) {
    std::string content(300000, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7);
    const std::string src = writeFile("src", content);
    ASSERT_EQ(chmod(src.c_str(), 0741), 0);
    _ovLogger log;
    ASSERT_TRUE(FileSys::copyFileX(x(src), x(path("dst")), true, &log)) << log.text();
    EXPECT_EQ(readFile(path("dst")), content);
    struct stat st;
    ASSERT_EQ(stat(path("dst").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0741u);

    writeFile("other", "old and longer than the new");
    writeFile("short", "new");
    EXPECT_FALSE(FileSys::copyFileX(x(path("short")), x(path("other")), true, nullptr));
    EXPECT_EQ(readFile(path("other")), "old and longer than the new");
    EXPECT_TRUE(FileSys::copyFileX(x(path("short")), x(path("other")), false, nullptr));
    EXPECT_EQ(readFile(path("other")), "new");

    // Copying a file onto itself must not destroy it.
    _ovLogger selfLog;
    EXPECT_FALSE(FileSys::copyFileX(x(src), x(src), false, &selfLog));
    EXPECT_EQ(readFile(src), content);
    EXPECT_TRUE(selfLog.hasErrors());

    EXPECT_FALSE(FileSys::copyFileX(x(path("missing")), x(path("x")), false, nullptr));
    bool unable = false;
    EXPECT_FALSE(FileSys::fileExistsUtf8(path("x").c_str(), unable, nullptr));
}

TEST_F(FileSysTest, DeleteTreeRemovesLinksButNothingOutside) {
    // Outside the tree: a directory with a file, and a single file.
    ASSERT_EQ(mkdir(path("outside").c_str(), 0755), 0);
    writeFile("outside/keep", "keep");
    writeFile("outsideFile", "also keep");
    // The tree, with links into the outside at two depths.
    for (const char* d : {"tree", "tree/sub", "tree/sub/deeper", "tree/empty"})
        ASSERT_EQ(mkdir(path(d).c_str(), 0755), 0);
    writeFile("tree/f1", "1");
    writeFile("tree/sub/deeper/f2", "2");
    ASSERT_EQ(chmod(path("tree/sub/deeper/f2").c_str(), 0), 0);
    ASSERT_EQ(symlink(path("outside").c_str(), path("tree/dirLink").c_str()), 0);
    ASSERT_EQ(symlink(path("outsideFile").c_str(), path("tree/sub/fileLink").c_str()), 0);
    ASSERT_EQ(symlink("../../outside", path("tree/sub/deeper/relLink").c_str()), 0);

    FileMatchingSpec spec;
    _ovLogger log;
    ASSERT_TRUE(FileSys::deleteTreeUtf8(path("tree").c_str(), spec, log)) << log.text();
    EXPECT_EQ(type(path("tree"), true), PathType::None);
    EXPECT_EQ(readFile(path("outside/keep")), "keep");
    EXPECT_EQ(readFile(path("outsideFile")), "also keep");

    // A link named as the tree goes; its target stays.
    ASSERT_EQ(symlink(path("outside").c_str(), path("treeLink").c_str()), 0);
    EXPECT_TRUE(FileSys::deleteTreeUtf8(path("treeLink").c_str(), spec, log));
    EXPECT_EQ(type(path("treeLink"), true), PathType::None);
    EXPECT_EQ(readFile(path("outside/keep")), "keep");

    _ovLogger missing;
    EXPECT_FALSE(FileSys::deleteTreeUtf8(path("nothing").c_str(), spec, missing));
    EXPECT_TRUE(missing.hasErrors());
}

TEST_F(FileSysTest, TemporaryNames) {
    _ovLogger log;
    XString a, b;
    ASSERT_TRUE(FileSys::GetTemporaryFilename(x(dir()), x("pre"), a, log)) << log.text();
    ASSERT_TRUE(FileSys::GetTemporaryFilename(x(dir() + "/"), x("pre"), b, log));
    const std::string sa = a.getUtf8(), sb = b.getUtf8();
    EXPECT_NE(sa, sb);
    for (const std::string& s : {sa, sb}) {
        SCOPED_TRACE(s);
        EXPECT_EQ(s.rfind(dir() + "/pre", 0), 0u);
        EXPECT_EQ(s.substr(s.size() - 4), ".tmp");
        EXPECT_GT(s.size(), dir().size() + 1 + 3 + 4);
        struct stat st;
        ASSERT_EQ(stat(s.c_str(), &st), 0);
        EXPECT_EQ(st.st_size, 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u);
    }
    // An empty directory means TMPDIR.
    const char* old = std::getenv("TMPDIR");
    std::string saved = old ? old : "";
    setenv("TMPDIR", dir().c_str(), 1);
    XString c;
    bool made = FileSys::GetTemporaryFilename(XString(), x("t"), c, log);
    if (old) setenv("TMPDIR", saved.c_str(), 1); else unsetenv("TMPDIR");
    ASSERT_TRUE(made);
    EXPECT_EQ(std::string(c.getUtf8()).rfind(dir() + "/t", 0), 0u);

    _ovLogger bad;
    EXPECT_FALSE(FileSys::GetTemporaryFilename(x(path("no/such")), x("p"), c, bad));
    EXPECT_TRUE(bad.hasErrors());
}

TEST_F(FileSysTest, WholeFileWriteAndRead) {
    const std::string p = path("whole");
    DataBuffer data;
    data.append("first", 5);
    _ovLogger log;
    ASSERT_TRUE(FileSys::writeFileUtf8(p.c_str(), data, &log)) << log.text();
    ASSERT_EQ(chmod(p.c_str(), 0604), 0);
    std::string big(3 * 1024 * 1024 + 3, 'z');
    ASSERT_TRUE(FileSys::writeFileUtf8(p.c_str(), big.data(), big.size(), &log)) << log.text();
    struct stat st;
    ASSERT_EQ(stat(p.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u) << "permissions of the replaced file are kept";

    DataBuffer back;
    back.append("stale", 5);
    ASSERT_TRUE(back.loadFileUtf8(p.c_str(), &log)) << log.text();
    EXPECT_EQ(bytesOf(back), big);
    ASSERT_TRUE(FileSys::writeFileUtf8(p.c_str(), nullptr, 0, &log));
    EXPECT_TRUE(FileSys::readFileUtf8(p.c_str(), back, &log));
    EXPECT_EQ(back.getSize(), 0u);

    DataBuffer kept;
    kept.append("kept", 4);
    EXPECT_FALSE(kept.loadFileUtf8(path("missing").c_str(), nullptr));
    EXPECT_EQ(bytesOf(kept), "kept");
    EXPECT_TRUE(kept.saveToFileUtf8(path("saved").c_str(), nullptr));
    EXPECT_EQ(readFile(path("saved")), "kept");
    // Only the two files remain: no temporary left behind.
    EXPECT_EQ(dirEntries(), (std::vector<std::string>{"saved", "whole"}));

    // Through a chain of two links (one relative) the file pointed at is replaced and the
    // links stay links.
    ASSERT_EQ(symlink("whole", path("rel").c_str()), 0);
    ASSERT_EQ(symlink(path("rel").c_str(), path("abs").c_str()), 0);
    ASSERT_TRUE(FileSys::writeFileUtf8(path("abs").c_str(), "via link", 8, &log)) << log.text();
    EXPECT_EQ(readFile(p), "via link");
    EXPECT_EQ(type(path("abs"), true), PathType::Symlink);
    EXPECT_EQ(type(path("rel"), true), PathType::Symlink);
}

TEST_F(FileSysTest, TimeStampsSetAndReadBack) {
    const std::string p = writeFile("timed", "t");
    const XString xp = x(p);
    const OrvaneFileTime mod(1600000000, 123456789), acc(1500000000, 987654321);
    _ovLogger log;
    ASSERT_TRUE(FileSys::setFileTimeGmt_3(xp, OrvaneFileTime(1, 0), acc, mod, &log)) << log.text();
    EXPECT_FALSE(log.hasErrors());
    EXPECT_TRUE(log.contains("The creation time cannot be set on this system; it is left as it is."));
    OrvaneFileTime got;
    ASSERT_TRUE(FileSys::GetFileLastModTimeGmt(xp, got, &log));
    EXPECT_EQ(got.seconds(), mod.seconds());
    EXPECT_EQ(got.nanoseconds(), mod.nanoseconds());
    ASSERT_TRUE(FileSys::GetFileLastAccessGmt(xp, got, &log));
    EXPECT_EQ(got.seconds(), acc.seconds());
    EXPECT_EQ(got.nanoseconds(), acc.nanoseconds());

    // Setting only the modification time leaves the access time alone.
    ASSERT_TRUE(FileSys::setFileTimeGmt(xp, OrvaneFileTime(1700000000, 5), &log));
    ASSERT_TRUE(FileSys::GetFileLastModTimeGmt(xp, got, &log));
    EXPECT_EQ(got.seconds(), 1700000000);
    EXPECT_EQ(got.nanoseconds(), 5u);
    ASSERT_TRUE(FileSys::GetFileLastAccessGmt(xp, got, &log));
    EXPECT_EQ(got.seconds(), acc.seconds());

    // A creation time, where the file system records one, lies near now.
    _ovLogger createLog;
    if (FileSys::GetFileCreateTimeGmt(xp, got, &createLog)) {
        EXPECT_NEAR(static_cast<double>(got.seconds()), static_cast<double>(time(nullptr)), 600);
    } else {
        EXPECT_TRUE(createLog.hasErrors());
    }

    _ovLogger bad;
    EXPECT_FALSE(FileSys::GetFileLastModTimeGmt(x(path("missing")), got, &bad));
    EXPECT_FALSE(FileSys::setFileTimeGmt(x(path("missing")), mod, &bad));
    EXPECT_FALSE(FileSys::setFileTimeGmt(xp, OrvaneFileTime(1, 1000000000u), &bad));
    EXPECT_EQ(bad.entries().size(), 3u) << bad.text();
}

TEST_F(FileSysTest, SymlinksCreateAndRead) {
    _ovLogger log;
    const std::string target(600, 't');  // longer than a first small read buffer
    ASSERT_TRUE(FileSys::symlinkCreate(x(target), x(path("lnk")), log)) << log.text();
    XString out("prefix:");
    ASSERT_TRUE(FileSys::symlinkTarget(x(path("lnk")), out, log));
    EXPECT_EQ(std::string(out.getUtf8()), "prefix:" + target);
    EXPECT_FALSE(FileSys::symlinkCreate(x("x"), x(path("lnk")), log));
    writeFile("plain", "p");
    _ovLogger bad;
    EXPECT_FALSE(FileSys::symlinkTarget(x(path("plain")), out, bad));
    EXPECT_TRUE(bad.hasErrors());
}

TEST_F(FileSysTest, CurrentDirectoryThroughTheObject) {
    ClsFileAccess fa;
    XString before;
    fa.get_CurrentDir(before);
    ASSERT_FALSE(before.isEmpty());
    XString target(dir().c_str());
    ASSERT_TRUE(fa.SetCurrentDir(target));
    XString now("stale");
    fa.get_CurrentDir(now);
    EXPECT_EQ(std::string(now.getUtf8()), dir());
    XString missing(path("missing").c_str());
    EXPECT_FALSE(fa.SetCurrentDir(missing));
    ASSERT_TRUE(fa.SetCurrentDir(before));
    fa.get_CurrentDir(now);
    EXPECT_EQ(std::string(now.getUtf8()), std::string(before.getUtf8()));
}

}  // namespace
