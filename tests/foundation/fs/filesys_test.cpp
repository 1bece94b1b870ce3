// Named-path operations: existence, type, size, copy, temporary names, whole files and time
// stamps.
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <tuple>

#include "foundation/fs/FileSys.h"
#include "support/TestSupport.h"

namespace {

class FileSysTest : public TempDirTest {
  protected:
    static XString x(const std::string& s) { return XString(s.c_str()); }
    static int type(const std::string& p, bool noFollow) {
        _ovLogger log;
        return FileSys::filePathType(x(p), noFollow, log);
    }
    static unsigned mode(const std::string& p) {
        struct stat st {};
        return stat(p.c_str(), &st) == 0 ? st.st_mode & 07777 : ~0u;
    }
};

TEST_F(FileSysTest, ExistenceAndType) {
    writeFile("f", "x");
    ASSERT_EQ(mkdir(path("d").c_str(), 0755) + mkfifo(path("fifo").c_str(), 0644), 0);
    ASSERT_EQ(symlink("f", path("fLink").c_str()) + symlink("gone", path("dangling").c_str()), 0);
    using namespace PathType;
    // Name, type following links, type of the link itself (None: the path does not exist).
    const std::tuple<const char*, int, int> cases[] = {
        {"f", File, File},      {"d", Directory, Directory}, {"fLink", File, Symlink},
        {"fifo", Other, Other}, {"dangling", None, Symlink}, {"missing", None, None},
        {"f/sub", None, None},
    };
    for (const auto& [name, followed, unfollowed] : cases) {
        SCOPED_TRACE(name);
        bool unable = true;
        const bool exists = FileSys::fileExistsX(x(path(name)), unable, nullptr);
        EXPECT_EQ(std::tuple(exists, unable, type(path(name), false), type(path(name), true)),
                  std::tuple(unfollowed != None, false, followed, unfollowed));
    }
}

TEST_F(FileSysTest, SizesOfSparseFilesAroundThe32BitLimit) {
    const std::string p = writeFile("sparse", "");
    // Sparse files cost no disk; the 32-bit size holds up to 2^31-1 and fails beyond.
    for (long long size : {5LL, 2147483647LL, 2147483648LL, 5LL * 1024 * 1024 * 1024 + 7}) {
        SCOPED_TRACE(size);
        ASSERT_EQ(truncate(p.c_str(), size), 0);
        bool ok64 = false, ok32 = !(size < 2147483648LL);  // the wrong answer until set
        _ovLogger log;
        const long long big = FileSys::fileSizeX_64(x(p), nullptr, ok64),
                        small = FileSys::fileSizeUtf8_32(p.c_str(), &log, ok32);
        EXPECT_EQ(std::tuple(big, ok64, ok32), std::tuple(size, true, size < 2147483648LL));
        EXPECT_TRUE(ok32 ? small == size : log.text().find("64-bit") != std::string::npos)
            << log.text();
    }
}

TEST_F(FileSysTest, CopiesWholeFilesAndTemporariesGetTheirPermissions) {
    // A copy takes the source's bits; a whole-file write, through a chain of two links (one
    // relative), replaces the file pointed at keeping its bits and leaving the links links;
    // temporary files are fresh and for the owner alone.
    std::string content(3 * 1024 * 1024 + 3, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7);
    const std::string src = writeFile("src", content), dst = writeFile("dst", "old and longer");
    ASSERT_EQ(chmod(src.c_str(), 0741) + chmod(dst.c_str(), 0604) +
                  symlink("dst", path("rel").c_str()) +
                  symlink(path("rel").c_str(), path("abs").c_str()),
              0);
    _ovLogger log;
    XString a, b;
    ASSERT_TRUE(FileSys::copyFileX(x(src), x(path("copy")), false, &log) &&
                FileSys::writeFileUtf8(path("abs").c_str(), content.data(), content.size(), &log) &&
                FileSys::GetTemporaryFilename(x(dir()), x("pre"), a, log) &&
                FileSys::GetTemporaryFilename(x(dir() + "/"), x("pre"), b, log))
        << log.text();
    EXPECT_FALSE(FileSys::copyFileX(x(src), x(src), false, &log));  // must not destroy it
    EXPECT_EQ(type(path("abs"), true) + type(path("rel"), true), 2 * PathType::Symlink);
    EXPECT_NE(std::string(a.getUtf8()), b.getUtf8());
    // Path and permission bits; the temporaries are empty, the rest hold the content.
    const std::pair<std::string, unsigned> files[] = {
        {src, 0741}, {path("copy"), 0741}, {dst, 0604}, {a.getUtf8(), 0600}, {b.getUtf8(), 0600}};
    for (const auto& [p, bits] : files) {
        SCOPED_TRACE(p);
        EXPECT_TRUE(readFile(p) == (bits == 0600 ? std::string() : content));
        EXPECT_EQ(mode(p), bits);
    }
}

// Setting only the modification time, the selectors and the creation time are checked through
// the object.
TEST_F(FileSysTest, TimeStampsSetAndReadBack) {
    const XString p = x(writeFile("timed", "t"));
    const OrvaneFileTime mod(1600000000, 123456789), acc(1500000000, 987654321);
    _ovLogger log;
    ASSERT_TRUE(FileSys::setFileTimeGmt_3(p, OrvaneFileTime(1, 0), acc, mod, &log)) << log.text();
    OrvaneFileTime m, a;
    ASSERT_TRUE(FileSys::GetFileLastModTimeGmt(p, m, &log) &&
                FileSys::GetFileLastAccessGmt(p, a, &log));
    EXPECT_EQ(std::tuple(m.seconds(), m.nanoseconds(), a.seconds(), a.nanoseconds()),
              std::tuple(mod.seconds(), mod.nanoseconds(), acc.seconds(), acc.nanoseconds()));
    // Only a note that the creation time stays, no error.
    EXPECT_TRUE(
        !log.hasErrors() &&
        log.contains("The creation time cannot be set on this system; it is left as it is."))
        << log.text();
    EXPECT_FALSE(FileSys::setFileTimeGmt(p, OrvaneFileTime(1, 1000000000u), &log));
}

}  // namespace
