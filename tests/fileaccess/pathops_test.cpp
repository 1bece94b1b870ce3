// Files and directories by path: existence, copy, rename, delete, directories, links and
// temporary names, with the values and outcome lines each method logs.
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "fileaccess/LogProbe.h"
#include "support/SysCallOverride.h"

namespace fs = std::filesystem;

namespace {

using PathOpsTest = FileAccessTest;

TEST_F(PathOpsTest, ExistenceAnswersAndTheValuesLoggedWithAndWithoutVerbose) {
    XString file = X(writeFile("present.txt", "x")), missing = X(path("missing.txt"));
    for (bool verbose : {false, true}) {
        fa.put_VerboseLogging(verbose);
        for (XString* p : {&file, &missing}) {
            SCOPED_TRACE(std::string(verbose ? "verbose " : "quiet ") + p->getUtf8());
            const bool there = p == &file;
            EXPECT_EQ(fa.FileExists(*p), there);
            EXPECT_EQ(valueNames(), verbose ? Names({"path", "retval", "unableToCheck"}) : Names());
            EXPECT_TRUE(!verbose || value("retval") == (there ? "true" : "false"));
            EXPECT_EQ(fa.FileExists3(*p), there ? 1 : 0);
            EXPECT_EQ(value("path") + value("retval"),
                      p->getUtf8() + std::string(there ? "1" : "0"));
        }
    }
    // Existence that cannot be checked (a directory on the way that may not be searched):
    // -1, while the bool form passes the layer's answer on.
    SysCallOverride ov;
    ov.failNth(SysCallOverride::Lstat, 1, EACCES, true);
    EXPECT_EQ(fa.FileExists3(file), -1) << lastLog(fa);
    EXPECT_EQ(value("retval"), "-1");
    EXPECT_FALSE(fa.FileExists(file));
    EXPECT_EQ(value("unableToCheck"), "true") << lastLog(fa);
}

// Successful calls on non-ASCII names, the outcome line only some methods write, and a tree
// with links pointing out of it: the tree goes, what the links point at stays.
TEST_F(PathOpsTest, SuccessfulCallsAndTheirOutcomeLines) {
    XString src = X(writeFile("Gr\xC3\xBC\xC3\x9Fs \xE6\x97\xA5", "bytes"));
    XString copy = X(path("c\xC3\xA9")), moved = X(path("a/m\xC3\xA9")), nested = X(path("a/b/c"));
    ASSERT_CALL_OK(fa, fa.FileCopy(src, copy, true));
    EXPECT_EQ(value("FromFile") + value("ToFile"), src.getUtf8() + std::string(copy.getUtf8()));
    EXPECT_CALL_FAILS(fa, fa.FileCopy(src, copy, true));  // refuses to replace the copy
    EXPECT_EQ(lastLine(), "Failed to copy file");
    ASSERT_CALL_OK(fa, fa.DirAutoCreate(nested));  // a file path: the directories leading to it
    EXPECT_TRUE(lastLine() == "Success." && fs::is_directory(path("a/b")) &&
                !fs::exists(path("a/b/c")));
    ASSERT_CALL_OK(fa, fa.DirEnsureExists(nested));  // a directory path: all of it
    EXPECT_TRUE(lastLine() == "Success." && fs::is_directory(path("a/b/c")));
    ASSERT_CALL_OK(fa, fa.FileRename(copy, moved));
    EXPECT_EQ(readFile(moved.getUtf8()) + readFile(copy.getUtf8()), "bytes<missing>");
    XString single = X(path("a/single")), tree = X(path("a"));
    ASSERT_CALL_OK(fa, fa.DirCreate(single));
    EXPECT_TRUE(lastLine() != "Success." && fs::is_directory(path("a/single")));
    ASSERT_CALL_OK(fa, fa.DirDelete(single));
    EXPECT_TRUE(lastLine() != "Success." && !fs::exists(path("a/single")));
    ASSERT_CALL_OK(fa, fa.FileDelete(moved));
    EXPECT_EQ(fa.FileExists3(moved), 0);
    fs::create_symlink(dir(), path("a/b/c/dirlink"));
    ASSERT_CALL_OK(fa, fa.TreeDelete(tree));
    EXPECT_TRUE(lastLine() == "Success." && !fs::exists(fs::symlink_status(path("a"))));
    EXPECT_EQ(readFile(src.getUtf8()), "bytes");
    XString d = X(dir()), prefix("pre"), temp, noDir = X(path("nodir"));
    ASSERT_CALL_OK(fa, fa.GetTempFilename(d, prefix, temp));
    EXPECT_EQ(std::string(temp.getUtf8()).rfind(dir() + "/pre", 0), 0u) << temp.getUtf8();
    EXPECT_CALL_FAILS(fa, fa.GetTempFilename(noDir, prefix, temp));
}

// Every method refuses empty paths, paths through a file, over-long names and the wrong
// kind of entry, with the system's reason in the log, and harms nothing that exists.
TEST_F(PathOpsTest, BadPathsFailWithAReasonAndLoseNothing) {
    XString src = X(writeFile("plain.txt", "precious")), copy = X(path("out.txt"));
    fs::create_directory(path("full"));
    writeFile("full/f.txt", "inside");
    const std::string plain = path("plain.txt"), full = path("full");
    XString cs("utf-8"), out("stale");  // for the whole-file methods: read and written text
    DataBuffer held;
    held.append("held", 4);
    const struct {
        const char* name;
        std::function<bool(XString&)> call;
        const char* own;    // the method's own failure line, if it writes one
        std::string wrong;  // an entry of the wrong kind for this method
    } methods[] = {
        {"FileDelete", [&](XString& p) { return fa.FileDelete(p); }, nullptr, full},
        {"FileCopy from", [&](XString& p) { return fa.FileCopy(p, copy, false); },
         "Failed to copy file", full},
        {"FileRename to", [&](XString& p) { return fa.FileRename(src, p); }, nullptr, full},
        {"DirCreate", [&](XString& p) { return fa.DirCreate(p); }, nullptr, plain},
        {"DirEnsureExists", [&](XString& p) { return fa.DirEnsureExists(p); }, "Failed.", plain},
        {"DirAutoCreate", [&](XString& p) { return fa.DirAutoCreate(p); }, "Failed.", plain + "/f"},
        {"DirDelete", [&](XString& p) { return fa.DirDelete(p); }, nullptr, plain},
        {"TreeDelete", [&](XString& p) { return fa.TreeDelete(p); }, "Failed.", path("none")},
        {"WriteEntireFile", [&](XString& p) { return fa.WriteEntireFile(p, held); }, nullptr, full},
        {"ReadEntireFile", [&](XString& p) { return fa.ReadEntireFile(p, held); }, nullptr, full},
        {"WriteEntireTextFile",
         [&](XString& p) { return fa.WriteEntireTextFile(p, out, cs, true); }, nullptr, full},
        {"ReadEntireTextFile", [&](XString& p) { return fa.ReadEntireTextFile(p, cs, out); },
         "Failed.", full},
    };
    for (const auto& m : methods) {
        for (const std::string& bad :
             {plain + "/sub", path(std::string(300, 'n') + "\xC3\xA9/x"), m.wrong, std::string()}) {
            SCOPED_TRACE(std::string(m.name) + " on " + bad.substr(0, 60));
            XString p = X(bad);
            EXPECT_CALL_FAILS(fa, m.call(p));
            EXPECT_GE(errorCount(), m.own ? 2 : 1) << "no reason of the layer\n" << lastLog(fa);
            EXPECT_TRUE(!m.own || lastLine() == m.own) << lastLine();
        }
    }
    // Failed reads keep the caller's buffer; the text form empties its output.
    EXPECT_EQ(readFile(plain) + readFile(path("full/f.txt")) + bytesOf(held) + out.getUtf8(),
              "preciousinsideheld");
    EXPECT_EQ(readFile(path("out.txt")), "<missing>");
    // A text write logs its values before it fails.
    XString text("\xC3\xBC"), bad = X(plain + "/sub");
    EXPECT_CALL_FAILS(fa, fa.WriteEntireTextFile(bad, text, cs, true));
    EXPECT_EQ(value("filename") + "|" + value("numOutputBytes"), plain + "/sub|5");
}

TEST_F(PathOpsTest, SymlinkTargetReadsOnlyRealLinks) {
    writeFile("file.txt", "f");
    XString link = X(path("link")), dangling = X(path("dangling")), file("file.txt"),
            nothing("no/such/target");
    ASSERT_CALL_OK(fa, fa.SymlinkCreate(file, link));
    ASSERT_CALL_OK(fa, fa.SymlinkCreate(nothing, dangling));
    const std::pair<std::string, const char*> cases[] = {
        {path("file.txt"), nullptr}, {dir(), nullptr},
        {path("missing"), nullptr},  {"", nullptr},
        {path("link"), "file.txt"},  {path("dangling"), "no/such/target"}};
    for (const auto& [where, target] : cases) {
        SCOPED_TRACE(where);
        XString p = X(where), got("left over");
        EXPECT_EQ(fa.SymlinkTarget(p, got), target != nullptr) << lastLog(fa);
        EXPECT_STREQ(got.getUtf8(), target ? target : "");
        EXPECT_EQ(fa.lastErrorLog().contains("Not a symbolic link"), !target);
        EXPECT_EQ(value("linkPath"), target ? "<absent>" : where);
    }
}

}  // namespace
