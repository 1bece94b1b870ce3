// The command-line program run in-process against real files: exit status, what it prints on
// standard output, and the log it prints on standard error when an operation fails.
#include <gtest/gtest.h>

#include "support/TestSupport.h"

#ifdef FA_HAVE_FATOOL

#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"

namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

std::string joined(const std::vector<std::string>& args) {
    std::string s = "fatool";
    for (const std::string& a : args) s += " " + a;
    return s;
}

Outcome fatoolRun(const std::vector<std::string>& args, bool progress = false) {
    std::vector<const char*> argv{"fatool"};
    for (const std::string& a : args) argv.push_back(a.c_str());
    std::ostringstream out, err;
    fatool::Context ctx{out, err, false, progress};
    int status = fatool::run(static_cast<int>(argv.size()), argv.data(), ctx);
    return {status, out.str(), err.str()};
}

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
    return s;
}

class FatoolTest : public TempDirTest {
  protected:
    // Runs the program and checks its exit status, printing everything it said otherwise.
    Outcome expectRun(const std::vector<std::string>& args, int status) {
        Outcome r = fatoolRun(args);
        EXPECT_EQ(r.status, status) << joined(args) << "\nstdout:\n"
                                    << r.out << "\nstderr:\n"
                                    << r.err;
        return r;
    }
};

TEST_F(FatoolTest, BadUsageExitsWithTwoAndSaysWhy) {
    writeFile("f", "abc");
    struct Case {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{}, "no command given"},
        {{"frobnicate"}, "unknown command 'frobnicate'"},
        {{"--bogus", "info", "x"}, "unknown option '--bogus'"},
        {{"info"}, "missing arguments"},
        {{"info", "a", "b"}, "too many arguments"},
        {{"copy", "--wat", "a", "b"}, "unknown option '--wat'"},
        {{"split", path("f"), "0"}, "invalid part size '0'"},
        {{"split", path("f"), "12X"}, "invalid part size '12X'"},
        {{"split", path("f"), "2G"}, "invalid part size '2G'"},
        {{"split", path("f"), "10", "--dir"}, "option --dir needs a value"},
        {{"block", path("f"), "2", "-1"}, "invalid block index '-1'"},
        {{"encode", path("f"), "--encoding", "rot13"}, "unknown encoding 'rot13'"},
        {{"scan", path("f"), "", "</r>"}, "the markers must not be empty"},
        {{"compare", "--verbose=yes", "a", "b"}, "option --verbose takes no value"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(joined(c.args));
        Outcome r = fatoolRun(c.args);
        EXPECT_EQ(r.status, 2);
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(r.out, "");
    }
    // Bad usage of a command also shows how to call it.
    Outcome r = fatoolRun({"copy", "only-one"});
    EXPECT_NE(r.err.find("Usage: fatool copy [OPTIONS] FROM TO"), std::string::npos) << r.err;
}

TEST_F(FatoolTest, HelpForTheProgramAndEveryCommand) {
    Outcome top = expectRun({"--help"}, 0);
    const char* commands[] = {"split", "join",     "compare", "replace", "scan",    "blocks",
                              "block", "shortcut", "encode",  "blockid", "convert", "info",
                              "copy",  "move",     "delete",  "mkdir",   "rmtree"};
    for (const char* c : commands) {
        SCOPED_TRACE(c);
        EXPECT_NE(top.out.find(std::string("\n  ") + c + " "), std::string::npos) << top.out;
        Outcome r = expectRun({c, "--help"}, 0);
        EXPECT_EQ(r.out.rfind(std::string("Usage: fatool ") + c, 0), 0u) << r.out;
        EXPECT_NE(r.out.find("--verbose"), std::string::npos);
        EXPECT_EQ(r.err, "");
    }
    Outcome v = expectRun({"--version"}, 0);
    EXPECT_EQ(v.out.rfind("fatool ", 0), 0u);
}

TEST_F(FatoolTest, SplitJoinAndCompareRoundTrip) {
    std::string data = pattern(1000);
    std::string src = writeFile("data.bin", data);
    Outcome split = expectRun({"split", src, "300", "--dir", dir()}, 0);
    // Parts are named after the file unless a prefix is given, and every part is listed.
    std::string expectedList;
    for (int i = 1; i <= 4; ++i)
        expectedList += path("data.bin." + std::to_string(i) + ".part") + "\n";
    EXPECT_EQ(split.out, expectedList);
    EXPECT_EQ(readFile(path("data.bin.1.part")), data.substr(0, 300));
    EXPECT_EQ(readFile(path("data.bin.4.part")), data.substr(900));
    EXPECT_EQ(split.err, "");

    Outcome join = expectRun({"join", "--dir", dir(), "data.bin", path("joined.bin")}, 0);
    EXPECT_EQ(join.out, "joined 4 parts (1000 bytes) into " + path("joined.bin") + "\n");
    EXPECT_EQ(readFile(path("joined.bin")), data);

    Outcome same = expectRun({"compare", src, path("joined.bin")}, 0);
    EXPECT_EQ(same.out, "identical\n");
    std::string changed = data;
    changed[999] ^= 1;
    writeFile("changed.bin", changed);
    writeFile("short.bin", data.substr(1));
    for (const char* other : {"changed.bin", "short.bin"}) {
        SCOPED_TRACE(other);
        // A difference is an answer, not a failure: no log is printed for it.
        Outcome diff = expectRun({"compare", src, path(other)}, 1);
        EXPECT_EQ(diff.out, "different\n");
        EXPECT_EQ(diff.err, "");
    }

    // Own prefix and extension, in both directions.
    expectRun({"split", "--prefix", "p", "--ext", ".dat", "-d", dir(), src, "1K"}, 0);
    EXPECT_EQ(readFile(path("p1.dat")), data);
    expectRun({"join", "-d", dir(), "-p", "p", "-e", "dat", "ignored", path("again.bin")}, 0);
    EXPECT_EQ(readFile(path("again.bin")), data);
}

TEST_F(FatoolTest, FailedOperationsPrintTheLibraryLog) {
    struct Case {
        std::vector<std::string> args;
        const char* diagnosis;
        const char* logLine;  // the context of the failing call, as the log writes it
    } cases[] = {
        {{"join", "--dir", dir(), "nothing", path("out")},
         "fatool join: could not join",
         "ReassembleFile:"},
        {{"split", path("missing"), "10", "--dir", dir()},
         "fatool split: could not split",
         "Failed to open input file."},
        {{"copy", path("missing"), path("b")},
         "fatool copy: could not copy",
         "Failed to copy file"},
        {{"scan", path("missing"), "<a>", "</a>"}, "fatool scan: could not open", "OpenForRead:"},
        {{"replace", path("missing"), "a", "b"},
         "fatool replace: could not replace",
         "ReplaceStrings:"},
        {{"blockid", "10", "1"}, "fatool blockid: could not make", "Failed."},
        {{"info", path("missing")}, "does not exist", "FileType:"},
        {{"compare", path("missing"), path("missing2")},
         "fatool compare: could not compare",
         "FileContentsEqual:"},
        {{"shortcut", testDataPath("lnk/malformed-not-a-shortcut.lnk")},
         "could not read the shortcut",
         ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(joined(c.args));
        Outcome r = fatoolRun(c.args);
        EXPECT_EQ(r.status, 1) << r.err;
        EXPECT_NE(r.err.find(c.diagnosis), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(c.logLine), std::string::npos) << r.err;
    }
}

TEST_F(FatoolTest, VerbosePrintsTheLogOfASuccess) {
    std::string a = writeFile("a", "abc");
    Outcome quiet = expectRun({"copy", a, path("b")}, 0);
    EXPECT_EQ(quiet.err, "");
    EXPECT_EQ(readFile(path("b")), "abc");
    for (auto args : {std::vector<std::string>{"--verbose", "copy", a, path("c")},
                      std::vector<std::string>{"copy", "-v", a, path("c")}}) {
        SCOPED_TRACE(joined(args));
        Outcome loud = expectRun(args, 0);
        EXPECT_NE(loud.err.find("FileCopy:"), std::string::npos) << loud.err;
    }
}

TEST_F(FatoolTest, ScanPrintsOrCountsRecords) {
    std::string file = writeFile("r.xml",
                                 "<root>\n<rec id=\"1\">one</rec>\n<rec n=\"2\">two</rec>\n"
                                 "<recx>no</recx>\n<rec id=\"3\">three</rec>\n</root>\n");
    Outcome all = expectRun({"scan", file, "<rec>", "</rec>"}, 0);
    EXPECT_EQ(all.out,
              "<rec id=\"1\">one</rec>\n<rec n=\"2\">two</rec>\n<rec id=\"3\">three</rec>\n");
    EXPECT_EQ(expectRun({"scan", "--count", file, "<rec>", "</rec>"}, 0).out, "3\n");
    EXPECT_EQ(expectRun({"scan", "--limit", "1", file, "<rec>", "</rec>"}, 0).out,
              "<rec id=\"1\">one</rec>\n");
    EXPECT_EQ(expectRun({"scan", "-n", file, "<none>", "</none>"}, 0).out, "0\n");

    // Markers are matched in the file's charset.
    std::string utf16;
    for (char ch : std::string("xx[a]yy[b]")) utf16 += std::string(1, ch) + '\0';
    std::string wide = writeFile("w.txt", utf16);
    EXPECT_EQ(expectRun({"scan", "-c", "utf-16le", wide, "[", "]"}, 0).out, "[a]\n[b]\n");
}

TEST_F(FatoolTest, ReplaceCountsAndRewrites) {
    std::string file = writeFile("t.txt", "cat dog cat bird cat");
    EXPECT_EQ(expectRun({"replace", file, "cat", "ox"}, 0).out, "3\n");
    EXPECT_EQ(readFile(file), "ox dog ox bird ox");
    EXPECT_EQ(expectRun({"replace", file, "cat", "ox"}, 0).out, "0\n");
    EXPECT_EQ(expectRun({"replace", file, "", "ox"}, 1).out, "");
    EXPECT_EQ(readFile(file), "ox dog ox bird ox");
}

TEST_F(FatoolTest, BlocksEncodingsAndBlockIds) {
    std::string data = pattern(1000);
    std::string file = writeFile("b.bin", data);
    EXPECT_EQ(expectRun({"blocks", file, "300"}, 0).out, "4\n");
    EXPECT_EQ(expectRun({"blocks", file, "1K"}, 0).out, "1\n");
    EXPECT_EQ(expectRun({"block", file, "300", "1"}, 0).out, data.substr(300, 300));
    EXPECT_EQ(expectRun({"block", file, "300", "3"}, 0).out, data.substr(900));
    Outcome past = expectRun({"block", file, "300", "4"}, 1);
    EXPECT_NE(past.err.find("ReadBlock:"), std::string::npos) << past.err;

    std::string hello = writeFile("h.txt", "hello");
    EXPECT_EQ(expectRun({"block", "-e", "hex", hello, "2", "1"}, 0).out, "6C6C\n");
    EXPECT_EQ(expectRun({"encode", hello}, 0).out, "aGVsbG8=\n");
    EXPECT_EQ(expectRun({"encode", "--encoding=hex", hello}, 0).out, "68656C6C6F\n");

    EXPECT_EQ(expectRun({"blockid", "-e", "ascii", "7", "4"}, 0).out, "0007\n");
    EXPECT_EQ(expectRun({"blockid", "-e", "ascii", "-n", "3", "98", "3"}, 0).out,
              "098\n099\n100\n");
    EXPECT_EQ(expectRun({"blockid", "-e", "ascii", "-5", "4"}, 0).out, "00-5\n");
    EXPECT_EQ(expectRun({"blockid", "0", "4"}, 0).out, "MDAwMA==\n");
}

// A minimal shortcut: header, empty ID list, a LinkInfo of 28 bytes, a name and arguments.
std::string makeShortcut() {
    auto u32 = [](uint32_t v) {
        return std::string{char(v & 0xff), char(v >> 8 & 0xff), char(v >> 16 & 0xff),
                           char(v >> 24)};
    };
    auto u16 = [](uint16_t v) { return std::string{char(v & 0xff), char(v >> 8)}; };
    auto str = [&](const std::string& s) {
        std::string r = u16(static_cast<uint16_t>(s.size()));
        for (char c : s) r += std::string{c, '\0'};
        return r;
    };
    std::string lnk = u32(76) + std::string(16, '\x01') + u32(0x1 | 0x2 | 0x4 | 0x20 | 0x80);
    lnk += std::string(76 - lnk.size(), '\0');
    lnk += u16(2) + u16(0);                  // ID list: just its terminator
    lnk += u32(28) + std::string(24, '\0');  // LinkInfo, skipped by its size
    lnk += str("hello") + str("-x --y");     // NAME_STRING, COMMAND_LINE_ARGUMENTS
    lnk += u32(0);                           // end of the extra data
    return lnk;
}

TEST_F(FatoolTest, ShortcutStringsAndCheck) {
    std::string lnk = writeFile("s.lnk", makeShortcut());
    Outcome r = expectRun({"shortcut", lnk}, 0);
    EXPECT_EQ(r.out,
              "name: hello\nrelativePath: \nworkingDir: \ncommandLineArguments: -x --y\n"
              "iconLocation: \n");
    EXPECT_EQ(expectRun({"shortcut", "--check", lnk}, 0).out, "parseable\n");
    std::string junk = writeFile("junk.lnk", std::string(100, 'z'));
    EXPECT_EQ(expectRun({"shortcut", "--check", junk}, 1).out, "not parseable\n");
}

TEST_F(FatoolTest, FilesAndDirectories) {
    std::string a = writeFile("a.txt", "12345");
    Outcome info = expectRun({"info", a}, 0);
    EXPECT_NE(info.out.find("type: file\nsize: 5\n"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("modified: 20"), std::string::npos) << info.out;
    EXPECT_NE(expectRun({"info", dir()}, 0).out.find("type: directory\n"), std::string::npos);

    expectRun({"copy", a, path("b.txt")}, 0);
    expectRun({"copy", "--no-clobber", a, path("b.txt")}, 1);
    expectRun({"move", path("b.txt"), path("c.txt")}, 0);
    EXPECT_EQ(readFile(path("c.txt")), "12345");
    EXPECT_EQ(readFile(path("b.txt")), "<missing>");

    // mkdir without -p needs the parent; with -p it makes it and accepts what exists.
    std::string deep = path("x/y/z");
    expectRun({"mkdir", "-p", deep, deep}, 0);
    expectRun({"info", deep}, 0);
    expectRun({"copy", a, deep + "/f"}, 0);
    // delete goes on past a failure and reports it.
    Outcome del = expectRun({"delete", path("missing"), path("c.txt")}, 1);
    EXPECT_NE(del.err.find("could not delete '" + path("missing") + "'"), std::string::npos)
        << del.err;
    EXPECT_EQ(readFile(path("c.txt")), "<missing>");

    expectRun({"rmtree", path("x")}, 0);
    expectRun({"info", path("x")}, 1);
}

TEST_F(FatoolTest, ConvertBetweenCharsets) {
    std::string in = writeFile("in.txt", "caf\xc3\xa9");
    expectRun({"convert", "--bom", in, "utf-8", path("out.txt"), "utf-16le"}, 0);
    EXPECT_EQ(readFile(path("out.txt")), std::string("\xff\xfe"
                                                     "c\0a\0f\0\xe9\0",
                                                     10));
    expectRun({"convert", path("out.txt"), "utf-16le", path("back.txt"), "windows-1252"}, 0);
    EXPECT_EQ(readFile(path("back.txt")), "caf\xe9");
    // A character the target cannot hold makes the write fail.
    writeFile("cjk.txt", "\xe4\xb8\xad");
    Outcome lossy = expectRun({"convert", path("cjk.txt"), "utf-8", path("x.txt"), "us-ascii"}, 1);
    EXPECT_NE(lossy.err.find("holds text that us-ascii cannot hold"), std::string::npos)
        << lossy.err;
    EXPECT_EQ(readFile(path("x.txt")), "<missing>");
}

TEST_F(FatoolTest, ProgressGoesToStandardErrorWhenAsked) {
    std::string src = writeFile("p.bin", pattern(5000));
    Outcome quiet = fatoolRun({"split", src, "1000", "--dir", dir()});
    EXPECT_EQ(quiet.err, "");
    Outcome shown = fatoolRun({"split", src, "1000", "--dir", dir()}, true);
    EXPECT_EQ(shown.status, 0);
    EXPECT_NE(shown.err.find("split: 4.9 KiB of 4.9 KiB (100%)"), std::string::npos) << shown.err;
    std::string text = writeFile("t.txt", "[a] [b] [c]");
    Outcome scan = fatoolRun({"--progress", "scan", "-n", text, "[", "]"});
    EXPECT_EQ(scan.status, 0);
    EXPECT_NE(scan.err.find("scan: 3 records, 9 B of 11 B (81%)"), std::string::npos) << scan.err;
    Outcome off = fatoolRun({"split", "--no-progress", src, "1000", "--dir", dir()}, true);
    EXPECT_EQ(off.err, "");
}

}  // namespace

#else

TEST(FatoolTest, SkippedWithoutTheProgram) {
    GTEST_SKIP() << "built without FA_BUILD_TOOLS";
}

#endif
