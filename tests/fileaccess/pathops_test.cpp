// Files and directories by path: existence, copy, rename, delete, directories, links and
// temporary names, with the log lines each method promises.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/LogProbe.h"
#include "support/TestSupport.h"

namespace fs = std::filesystem;

namespace {

class PathOpsTest : public TempDirTest {
  protected:
    ClsFileAccess fa;
    LogProbe log{fa};
};

XString X(const std::string& s) {
    return XString(s.c_str());
}

TEST_F(PathOpsTest, ExistenceIsLoggedOnlyWhenVerboseForTheBoolForm) {
    XString file = X(writeFile("present.txt", "x"));
    XString missing = X(path("missing.txt"));

    EXPECT_TRUE(fa.FileExists(file));
    EXPECT_TRUE(log.valueNames().empty()) << lastLog(fa);
    EXPECT_FALSE(fa.FileExists(missing));
    EXPECT_TRUE(log.valueNames().empty()) << lastLog(fa);

    // The three-way form always logs the path and its answer.
    EXPECT_EQ(fa.FileExists3(file), 1);
    EXPECT_EQ(log.valueNames(), (std::vector<std::string>{"path", "retval"}));
    EXPECT_EQ(log.value("retval"), "1");
    EXPECT_EQ(fa.FileExists3(missing), 0);
    EXPECT_EQ(log.value("retval"), "0");
    EXPECT_EQ(log.value("path"), missing.getUtf8());

    fa.put_VerboseLogging(true);
    EXPECT_TRUE(fa.FileExists(file));
    EXPECT_EQ(log.valueNames(), (std::vector<std::string>{"path", "retval", "unableToCheck"}));
    EXPECT_EQ(log.value("retval"), "true");
    EXPECT_EQ(log.value("unableToCheck"), "false");
}

TEST_F(PathOpsTest, ExistenceThatCannotBeCheckedGivesMinusOne) {
    if (runningAsRoot()) GTEST_SKIP() << "root can search any directory";
    fs::create_directory(path("locked"));
    writeFile("locked/inner.txt", "data");
    ASSERT_EQ(chmod(path("locked").c_str(), 0), 0);
    XString inner = X(path("locked/inner.txt"));

    EXPECT_EQ(fa.FileExists3(inner), -1) << lastLog(fa);
    EXPECT_EQ(log.value("retval"), "-1");

    // The bool form passes the layer's answer through: the file is not known to exist.
    fa.put_VerboseLogging(true);
    EXPECT_FALSE(fa.FileExists(inner));
    EXPECT_EQ(log.value("unableToCheck"), "true") << lastLog(fa);
}

TEST_F(PathOpsTest, CopyLogsBothNamesAndItsFailure) {
    XString src = X(writeFile("src.txt", "source bytes"));
    XString dst = X(path("dst.txt"));

    ASSERT_CALL_OK(fa, fa.FileCopy(src, dst, true));
    EXPECT_EQ(readFile(path("dst.txt")), "source bytes");
    EXPECT_EQ(log.valueNames(), (std::vector<std::string>{"FromFile", "ToFile"}));
    EXPECT_EQ(log.value("FromFile"), src.getUtf8());
    EXPECT_EQ(log.value("ToFile"), dst.getUtf8());
    EXPECT_FALSE(log.has("Failed to copy file"));

    // Refusing to overwrite keeps the existing copy as it was.
    writeFile("dst.txt", "keep me");
    EXPECT_CALL_FAILS(fa, fa.FileCopy(src, dst, true));
    EXPECT_EQ(log.lastLine(), "Failed to copy file");
    EXPECT_EQ(log.valueNames(), (std::vector<std::string>{"FromFile", "ToFile"}));
    EXPECT_EQ(readFile(path("dst.txt")), "keep me");

    ASSERT_CALL_OK(fa, fa.FileCopy(src, dst, false));
    EXPECT_EQ(readFile(path("dst.txt")), "source bytes");

    struct Case {
        const char* name;
        std::string from, to;
    };
    fs::create_directory(path("adir"));
    const Case bad[] = {
        {"missing source", path("nope.txt"), path("out1.txt")},
        {"empty source", "", path("out2.txt")},
        {"directory as source", path("adir"), path("out3.txt")},
        {"through a regular file", src.getUtf8(), path("src.txt/inner.txt")},
    };
    for (const Case& c : bad) {
        SCOPED_TRACE(c.name);
        XString from = X(c.from), to = X(c.to);
        EXPECT_CALL_FAILS(fa, fa.FileCopy(from, to, false));
        EXPECT_TRUE(log.has("Failed to copy file"));
        EXPECT_GE(log.errorCount(), 2) << "no reason of the layer logged";
    }
    EXPECT_EQ(readFile(path("src.txt")), "source bytes");
}

TEST_F(PathOpsTest, RenameDeleteAndNonAsciiNames) {
    const std::string name =
        "Gr\xC3\xBC\xC3\x9F"
        "e \xE6\x97\xA5\xE6\x9C\xAC.txt";
    XString from = X(writeFile(name, "payload"));
    XString to = X(path("renamed-\xC3\xA9.txt"));

    EXPECT_EQ(fa.FileExists3(from), 1);
    ASSERT_CALL_OK(fa, fa.FileRename(from, to));
    EXPECT_EQ(fa.FileExists3(from), 0);
    EXPECT_EQ(readFile(to.getUtf8()), "payload");

    ASSERT_CALL_OK(fa, fa.FileDelete(to));
    EXPECT_EQ(fa.FileExists3(to), 0);

    // Renaming a missing file, and deleting a directory as if it were a file, fail.
    EXPECT_CALL_FAILS(fa, fa.FileRename(from, to));
    EXPECT_TRUE(fa.lastErrorLog().hasErrors());
    fs::create_directory(path("dir"));
    XString dir = X(path("dir"));
    EXPECT_CALL_FAILS(fa, fa.FileDelete(dir));
    EXPECT_TRUE(fa.lastErrorLog().hasErrors());
    EXPECT_TRUE(fs::is_directory(path("dir")));
}

TEST_F(PathOpsTest, DirectoryCreationEndsWithTheOutcomeLineWhereDocumented) {
    XString filePath = X(path("a/b/c.txt"));

    ASSERT_CALL_OK(fa, fa.DirAutoCreate(filePath));
    EXPECT_TRUE(fs::is_directory(path("a/b")));
    EXPECT_FALSE(fs::exists(path("a/b/c.txt")));
    EXPECT_EQ(log.lastLine(), "Success.");

    // The same path taken as a directory: the last part becomes a directory too.
    ASSERT_CALL_OK(fa, fa.DirEnsureExists(filePath));
    EXPECT_TRUE(fs::is_directory(path("a/b/c.txt")));
    EXPECT_EQ(log.lastLine(), "Success.");
    EXPECT_TRUE(log.valueNames().empty());

    fa.put_VerboseLogging(true);
    XString deep = X(path("x/y/z"));
    ASSERT_CALL_OK(fa, fa.DirEnsureExists(deep));
    EXPECT_EQ(log.value("dirPath"), deep.getUtf8());
    fa.put_VerboseLogging(false);

    XString single = X(path("single"));
    ASSERT_CALL_OK(fa, fa.DirCreate(single));
    EXPECT_TRUE(fs::is_directory(path("single")));
    EXPECT_NE(log.lastLine(), "Success.");
    ASSERT_CALL_OK(fa, fa.DirDelete(single));
    EXPECT_FALSE(fs::exists(path("single")));
    EXPECT_NE(log.lastLine(), "Success.");
}

TEST_F(PathOpsTest, DirectoryOperationsRejectBadPaths) {
    writeFile("plain.txt", "precious");
    fs::create_directory(path("full"));
    writeFile("full/f.txt", "inside");
    const std::string longName(300, 'n');

    struct Case {
        const char* name;
        std::string dir;
    };
    const Case cases[] = {
        {"through a regular file", path("plain.txt/sub")},
        {"name too long", path(longName)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString d = X(c.dir);
        EXPECT_CALL_FAILS(fa, fa.DirEnsureExists(d));
        EXPECT_EQ(log.lastLine(), "Failed.");
        EXPECT_CALL_FAILS(fa, fa.DirCreate(d));
        EXPECT_TRUE(fa.lastErrorLog().hasErrors());
    }
    // An empty path names no directory to create.
    XString empty;
    EXPECT_CALL_FAILS(fa, fa.DirCreate(empty));
    EXPECT_TRUE(fa.lastErrorLog().hasErrors());
    EXPECT_CALL_FAILS(fa, fa.DirEnsureExists(empty));
    EXPECT_CALL_FAILS(fa, fa.DirAutoCreate(empty));
    XString through = X(path("plain.txt/sub/file.txt"));
    EXPECT_CALL_FAILS(fa, fa.DirAutoCreate(through));
    EXPECT_EQ(log.lastLine(), "Failed.");

    // A directory that is not empty is not removed by DirDelete, nor a file.
    XString full = X(path("full")), plain = X(path("plain.txt"));
    EXPECT_CALL_FAILS(fa, fa.DirDelete(full));
    EXPECT_CALL_FAILS(fa, fa.DirDelete(plain));
    EXPECT_EQ(readFile(path("full/f.txt")), "inside");
    EXPECT_EQ(readFile(path("plain.txt")), "precious");
}

TEST_F(PathOpsTest, SymlinkTargetReadsOnlyRealLinks) {
    writeFile("file.txt", "f");
    fs::create_directory(path("dir"));
    XString linkToFile = X(path("link-file")), linkToNothing = X(path("dangling"));
    XString fileTarget = X("file.txt"), nothingTarget = X("no/such/target");
    ASSERT_CALL_OK(fa, fa.SymlinkCreate(fileTarget, linkToFile));
    ASSERT_CALL_OK(fa, fa.SymlinkCreate(nothingTarget, linkToNothing));

    struct Case {
        const char* name;
        std::string path;
        const char* target;  // null: not a link
    };
    const Case cases[] = {
        {"regular file", path("file.txt"), nullptr},
        {"directory", path("dir"), nullptr},
        {"missing path", path("missing"), nullptr},
        {"empty path", "", nullptr},
        {"link to a file", path("link-file"), "file.txt"},
        {"dangling link", path("dangling"), "no/such/target"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString p = X(c.path);
        XString out("left over");
        if (c.target) {
            ASSERT_CALL_OK(fa, fa.SymlinkTarget(p, out));
            EXPECT_STREQ(out.getUtf8(), c.target);
            EXPECT_FALSE(log.has("Not a symbolic link"));
        } else {
            EXPECT_CALL_FAILS(fa, fa.SymlinkTarget(p, out));
            EXPECT_TRUE(out.isEmpty());
            EXPECT_TRUE(log.has("Not a symbolic link"));
            EXPECT_EQ(log.value("linkPath"), c.path);
        }
    }

    // The public type follows links; the internal form can be asked not to.
    EXPECT_EQ(fa.FileType(linkToFile), 1);
    EXPECT_EQ(fa.fileType(linkToFile, true, fa.m_log), 3);
    XString dir = X(path("dir"));
    EXPECT_EQ(fa.FileType(dir), 2);
    XString missing = X(path("missing"));
    EXPECT_EQ(fa.FileType(missing), 0);

    // An existing link is not replaced.
    EXPECT_CALL_FAILS(fa, fa.SymlinkCreate(nothingTarget, linkToFile));
    XString out;
    ASSERT_CALL_OK(fa, fa.SymlinkTarget(linkToFile, out));
    EXPECT_STREQ(out.getUtf8(), "file.txt");
}

TEST_F(PathOpsTest, TreeDeleteNeverFollowsLinksOutOfTheTree) {
    fs::create_directories(path("outside/sub"));
    writeFile("outside/keep.txt", "outside data");
    writeFile("outside/sub/deep.txt", "deep data");
    fs::create_directories(path("tree/a/b"));
    writeFile("tree/a/b/f.txt", "x");
    fs::create_symlink(path("outside"), path("tree/a/dirlink"));
    fs::create_symlink(path("outside/keep.txt"), path("tree/a/b/filelink"));
    fs::create_symlink(path("outside"), path("tree/a/b/outside"));

    XString tree = X(path("tree"));
    ASSERT_CALL_OK(fa, fa.TreeDelete(tree));
    EXPECT_EQ(log.lastLine(), "Success.");
    EXPECT_FALSE(fs::exists(fs::symlink_status(path("tree/a/dirlink"))));
    EXPECT_FALSE(fs::exists(path("tree/a/b/f.txt")));
    EXPECT_EQ(readFile(path("outside/keep.txt")), "outside data");
    EXPECT_EQ(readFile(path("outside/sub/deep.txt")), "deep data");

    XString missing = X(path("no-tree"));
    EXPECT_CALL_FAILS(fa, fa.TreeDelete(missing));
    EXPECT_EQ(log.lastLine(), "Failed.");
}

TEST_F(PathOpsTest, TemporaryNameIsCreatedInTheGivenDirectory) {
    XString d = X(dir()), prefix("pre"), first, second;
    ASSERT_CALL_OK(fa, fa.GetTempFilename(d, prefix, first));
    ASSERT_CALL_OK(fa, fa.GetTempFilename(d, prefix, second));
    const std::string name = first.getUtf8();
    EXPECT_EQ(name.rfind(dir() + "/pre", 0), 0u) << name;
    EXPECT_TRUE(first.endsWithUtf8(".tmp", false)) << name;
    EXPECT_EQ(fa.FileSize64(first), 0);
    EXPECT_EQ(fa.FileExists3(first), 1);
    EXPECT_FALSE(first.equalsX(second));

    XString noDir = X(path("missing-dir")), out;
    EXPECT_CALL_FAILS(fa, fa.GetTempFilename(noDir, prefix, out));
    EXPECT_TRUE(fa.lastErrorLog().hasErrors());
}

}  // namespace
