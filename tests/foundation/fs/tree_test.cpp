// Tree removal: links are never followed, however the root is written and whatever is
// swapped in while the walk runs; the root directory and "." and ".." paths are refused; a
// tree far deeper than the descriptor limit goes.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "foundation/fs/FileSys.h"
#include "foundation/fs/SysCalls.h"
#include "support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

class TreeTest : public TempDirTest {
  protected:
    static bool removeTree(const std::string& p, _ovLogger& log) {
        FileMatchingSpec spec;
        return FileSys::deleteTreeUtf8(p.c_str(), spec, log);
    }
    // A directory outside every tree, with what must survive each removal.
    void makeOutside() {
        fs::create_directories(path("outside/sub"));
        writeFile("outside/keep", "keep");
        writeFile("outside/sub/keep", "deep keep");
    }
    std::string outsideContent() const {
        return readFile(path("outside/keep")) + "|" + readFile(path("outside/sub/keep"));
    }
};

TEST_F(TreeTest, LinksAreRemovedAsLinksHoweverTheRootIsWritten) {
    makeOutside();
    for (const char* d : {"tree/sub/deeper", "tree/empty"}) fs::create_directories(path(d));
    ASSERT_EQ(chmod(writeFile("tree/sub/deeper/f2", "2").c_str(), 0), 0);
    // Links out of the tree at several depths, absolute and relative; links given as the
    // tree, with and without trailing separators.
    const std::pair<std::string, const char*> links[] = {
        {path("outside"), "tree/dirLink"},
        {path("outside/keep"), "tree/sub/fileLink"},
        {"../../../outside", "tree/sub/deeper/relLink"},
        {path("outside"), "link1"},
        {"outside", "link2"},
        {path("outside"), "link3"}};
    for (const auto& [target, name] : links)
        ASSERT_EQ(symlink(target.c_str(), path(name).c_str()), 0);
    for (const char* root : {"tree//", "link1/", "link2//", "link3"}) {
        SCOPED_TRACE(root);
        _ovLogger log;
        EXPECT_TRUE(removeTree(path(root), log)) << log.text();
        std::string name = root;
        while (name.back() == '/') name.pop_back();
        EXPECT_FALSE(fs::exists(fs::symlink_status(path(name))));
        EXPECT_EQ(outsideContent(), "keep|deep keep");
    }
}

// A tree whose parent may be searched and written but not read (a drop box, mode 0300) goes,
// as it does for rm; a parent that cannot be reached at all is named in the failure. Run as
// an unprivileged user, since root may read every directory.
TEST_F(TreeTest, ADropBoxParentIsEnough) {
    const bool root = runningAsRoot();
    const unsigned uid = root ? 4321 : getuid(), gid = root ? 4321 : getgid();
    if (root && !userCanReach(uid, gid, dir()))
        GTEST_SKIP() << "user " << uid << " cannot reach " << dir() << " (set TMPDIR elsewhere)";
    const struct {
        const char* parent;  // made with the tree "t" in it
        const char* closed;  // made unsearchable for the call ("" for none)
        bool removed;
        std::string line;
    } cases[] = {
        {"box", "", true, ""},
        {"closed/box", "closed", false, "open \"" + path("closed/box") + "\" failed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.parent);
        const std::string parent = path(c.parent), tree = parent + "/t";
        fs::create_directories(tree + "/sub");
        writeFile(std::string(c.parent) + "/t/sub/f", "f");
        for (const auto& e : fs::recursive_directory_iterator(dir()))
            ASSERT_EQ(lchown(e.path().c_str(), uid, gid), 0);
        ASSERT_EQ(chmod(parent.c_str(), 0300), 0);
        if (*c.closed) {
            ASSERT_EQ(chmod(path(c.closed).c_str(), 0600), 0);
        }
        const auto body = [&] {
            _ovLogger log;
            const bool removed = removeTree(tree, log);
            const bool lineOk = log.text().find(c.line) != std::string::npos;
            if (removed != c.removed || !lineOk) std::fprintf(stderr, "%s\n", log.text().c_str());
            return removed == c.removed && lineOk ? 0 : 1;
        };
        EXPECT_EQ(root ? inChildAsUser(uid, gid, body) : inChildProcess(body), 0);
        if (*c.closed) chmod(path(c.closed).c_str(), 0700);
        chmod(parent.c_str(), 0700);
        EXPECT_EQ(fs::exists(tree), !c.removed);
    }
}

// In a child whose whole file system is a fresh directory (where it may chroot), with the
// removing calls recorded and refused: a broken refusal could harm nothing.
TEST_F(TreeTest, RefusesTheRootAndDotPathsRemovingNothing) {
    fs::create_directories(path("a/b"));
    writeFile("a/b/f", "x");
    fs::create_directories(path("t/mnt"));
    writeFile("t/mnt/f", "x");
    const char* refused[] = {"/",    "//",    "///",   "/.",      "/..",      "/./",     "/../",
                             ".",    "..",    "./",    "../",     ".//",      "a/..",    "a/.",
                             "a/./", "a/../", "/a/..", "/a/b/..", "a/b/../.", "a/b/..//"};
    static const std::string* s_alias;  // the directory that stat("/") answers for
    const std::string alias = runningAsRoot() ? "/a" : path("a");
    const std::string tree = runningAsRoot() ? "/t" : path("t"), mounted = tree + "/mnt";
    s_alias = &alias;
    const int failures = inJailRefusingRemovals(dir(), [&](const int& removals) {
        int bad = 0;
        auto check = [&](const char* p) {
            _ovLogger log;
            if (removeTree(p, log) || removals != 0 ||
                log.text().find("refusing to remove") == std::string::npos) {
                std::fprintf(stderr, "%s: removals %d\n%s\n", p, removals, log.text().c_str());
                ++bad;
            }
        };
        for (const char* p : refused) check(p);
        // The root directory by another name (as a bind mount would give it): stat("/")
        // answers for "a".
        sysCalls().stat = [](const char* p, struct stat* st) {
            return realSysCalls().stat(std::string(p) == "/" ? s_alias->c_str() : p, st);
        };
        check(alias.c_str());
        // ... and mounted inside the tree to remove: it is not entered, nothing in it goes.
        s_alias = &mounted;
        check(tree.c_str());
        return bad;
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(readFile(path("a/b/f")) + readFile(path("t/mnt/f")), "xx");
}

// 100,000 levels under a limit of 64 descriptors, with files and links out of the tree on
// the way. Made on a memory file system where there is one: the bound does not depend on
// the file system, and a disk's journal makes 100,000 directories slow to create.
TEST_F(TreeTest, ATreeFarDeeperThanTheDescriptorLimitGoes) {
    constexpr int kDepth = 100000;
    makeOutside();
    const std::string shm = makeDirOnOtherDevice(dir()),
                      deep = (shm.empty() ? dir() : shm) + "/deep";
    int fd = open(deep.substr(0, deep.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    for (int level = 0; level < kDepth; ++level) {
        const char* name = level == 0 ? "deep" : "d";
        int next = mkdirat(fd, name, 0755) == 0 ? openat(fd, name, O_RDONLY | O_DIRECTORY) : -1;
        if (level % 9973 == 0 && next >= 0) {
            close(openat(next, "file", O_WRONLY | O_CREAT, 0644));
            symlinkat(path("outside").c_str(), next, "out");
        }
        close(fd);
        fd = next;
        ASSERT_GE(fd, 0) << "at level " << level << ": " << strerror(errno);
    }
    close(fd);
    const int status = inChildProcess([&] {
        struct rlimit lim = {64, 64};
        if (setrlimit(RLIMIT_NOFILE, &lim) != 0) return 100;
        _ovLogger log;
        if (removeTree(deep, log)) return 0;
        std::fprintf(stderr, "%s\n", log.text().c_str());
        return 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(fs::exists(deep));
    EXPECT_EQ(outsideContent(), "keep|deep keep");
    // A tree this deep is beyond the fixture's own clean-up.
    if (fs::exists(deep)) std::system(("rm -rf '" + deep + "'").c_str());
    if (!shm.empty()) fs::remove(shm);
}

// Before every call the walk makes, in turn, the tree is changed under it: a directory
// replaced by a link out of the tree, a directory being emptied moved out of the tree, the
// root replaced by a link or by another, empty directory. Whatever the walk answers,
// nothing outside is touched, and a directory put in the root's place once the walk has
// opened the root (its second call) is not removed, unless it comes between the last check
// and the removal itself, a window no system call closes.
TEST_F(TreeTest, ChangesSwappedInAtAnyMomentLeadNowhere) {
    makeOutside();
    static int s_calls, s_at;
    static bool s_removingRoot, s_swappedBeforeRootRemoval;
    static std::function<void()> s_swap;
    static const auto tick = [] {
        if (++s_calls != s_at) return;
        s_swappedBeforeRootRemoval = s_removingRoot;
        s_swap();
    };
    struct Restore {
        ~Restore() { sysCalls() = realSysCalls(); }
    } restore;
    SysCalls& t = sysCalls();
    t.openat = [](int d, const char* p, int f, mode_t m) {
        return tick(), realSysCalls().openat(d, p, f, m);
    };
    t.fstatat = [](int d, const char* p, struct stat* st, int f) {
        return tick(), realSysCalls().fstatat(d, p, st, f);
    };
    t.unlinkat = [](int d, const char* p, int f) {
        s_removingRoot = (f & AT_REMOVEDIR) && std::string(p) == "t";
        return tick(), realSysCalls().unlinkat(d, p, f);
    };
    t.readdir = [](DIR* d) { return tick(), realSysCalls().readdir(d); };
    const std::function<void()> swaps[] = {
        [&] {
            rename(path("t/a/b").c_str(), path("t/aside").c_str());
            symlink(path("outside").c_str(), path("t/a/b").c_str());
        },
        [&] { rename(path("t/a/b").c_str(), path("outside/moved").c_str()); },
        [&] {
            rename(path("t").c_str(), path("outside/movedRoot").c_str());
            symlink(path("outside").c_str(), path("t").c_str());
        },
        [&] {
            rename(path("t").c_str(), path("outside/movedRoot").c_str());
            mkdir(path("t").c_str(), 0755);
        },
    };
    int total = 0;
    for (const auto& swap : swaps) {
        for (s_at = 1;; ++s_at) {
            SCOPED_TRACE(std::to_string(&swap - swaps) + " before call " + std::to_string(s_at));
            for (const char* old : {"outside/moved", "outside/movedRoot", "t"})
                fs::remove_all(path(old));
            fs::create_directories(path("t/a/b/c"));
            writeFile("t/a/b/c/f", "f");
            writeFile("t/a/b/g", "g");
            writeFile("t/a/h", "h");
            s_calls = 0;
            s_removingRoot = s_swappedBeforeRootRemoval = false;
            s_swap = swap;
            _ovLogger log;
            removeTree(path("t"), log);
            EXPECT_EQ(outsideContent(), "keep|deep keep") << log.text();
            if (s_calls < s_at) break;  // the walk ended before this call: every moment seen
            if (&swap == &swaps[3] && s_at > 2 && !s_swappedBeforeRootRemoval) {
                EXPECT_TRUE(fs::is_directory(path("t")));
            }
            ++total;
        }
    }
    EXPECT_GT(total, 4 * 20);
}

// A listing names every entry once, links and hidden names included, never "." or "..";
// what is no directory fails with the reason.
TEST_F(TreeTest, AListingNamesEveryEntryOnce) {
    fs::create_directories(path("d/sub"));
    writeFile("d/a", "a");
    writeFile("d/.hidden", "h");
    ASSERT_EQ(symlink("gone", path("d/link").c_str()), 0);
    std::vector<std::string> names = {"left over"};
    _ovLogger log;
    ASSERT_TRUE(FileSys::listDirUtf8(path("d").c_str(), names, &log)) << log.text();
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "a", "link", "sub"}));
    ASSERT_TRUE(FileSys::listDirUtf8(path("d/sub").c_str(), names, &log)) << log.text();
    EXPECT_TRUE(names.empty());
    for (const char* bad : {"missing", "d/a"}) {
        SCOPED_TRACE(bad);
        names = {"kept"};
        _ovLogger failed;
        EXPECT_FALSE(FileSys::listDirUtf8(path(bad).c_str(), names, &failed));
        EXPECT_EQ(names, std::vector<std::string>{"kept"});
        EXPECT_NE(failed.text().find(bad), std::string::npos) << failed.text();
    }
}

}  // namespace
