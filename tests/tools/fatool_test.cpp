// The command-line program run in-process against real files: exit status, what it prints on
// standard output, and the log it prints on standard error when an operation fails.
#include <gtest/gtest.h>

#include "support/TestSupport.h"

#ifdef FA_HAVE_FATOOL

#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"

namespace {

// One call and what it must give: the exit status, the whole standard output (or a part of it
// when `outPart` is set), and parts of standard error, which must be empty when none is given.
// The command line is split at spaces; "@name" stands for a file of the test directory, "@"
// for the directory itself, "%name" for a file under tests/data and '' for an empty argument.
struct Call {
    std::string line;
    int status;
    std::string out;
    std::vector<std::string> err = {};
    bool outPart = false;
};

class FatoolTest : public TempDirTest {
  protected:
    std::string argument(const std::string& w) const {
        if (w == "''" || (w[0] != '@' && w[0] != '%')) return w == "''" ? "" : w;
        return w[0] == '%' ? testDataPath(w.substr(1)) : w == "@" ? dir() : path(w.substr(1));
    }

    // Runs the calls in order, so later calls can use the files earlier ones made. `terminal`
    // stands for standard error being a terminal, where progress is shown by default.
    void runCalls(const std::vector<Call>& calls, bool terminal = false) const {
        for (const Call& c : calls) {
            SCOPED_TRACE(c.line);
            std::deque<std::string> args;  // keeps its strings in place as it grows
            std::vector<const char*> argv{"fatool"};
            std::istringstream words(c.line);
            for (std::string w; words >> w;) argv.push_back(args.emplace_back(argument(w)).c_str());
            std::ostringstream out, err;
            fatool::Context ctx{out, err, false, terminal};
            EXPECT_EQ(fatool::run(static_cast<int>(argv.size()), argv.data(), ctx), c.status)
                << err.str();
            std::string o = out.str(), e = err.str();
            EXPECT_TRUE(c.outPart ? o.find(c.out) != o.npos : o == c.out) << o;
            EXPECT_TRUE(!c.err.empty() || e.empty()) << e;
            for (const std::string& part : c.err) EXPECT_NE(e.find(part), e.npos) << e;
        }
    }
};

// Bad usage exits with 2 and says why; help and version exit with 0. Every command is run in
// the tests below, so a command missing from the table shows there.
TEST_F(FatoolTest, BadUsageAndHelp) {
    runCalls({
        {"", 2, "", {"no command given"}},
        {"frobnicate", 2, "", {"unknown command 'frobnicate'"}},
        {"--bogus info x", 2, "", {"unknown option '--bogus'"}},
        {"copy only-one", 2, "", {"missing arguments", "Usage: fatool copy [OPTIONS] FROM TO"}},
        {"split @f 12X", 2, "", {"invalid part size '12X'"}},
        {"block @f 2 -1", 2, "", {"invalid block index '-1'"}},
        {"encode @f --encoding rot13", 2, "", {"unknown encoding 'rot13'"}},
        {"scan @f '' </r>", 2, "", {"the markers must not be empty"}},
        {"compare --verbose=yes a b", 2, "", {"option --verbose takes no value"}},
        {"--version", 0, "fatool ", {}, true},
        // Help is made from the command table: the list must reach its last entry.
        {"--help", 0, "\n  rmtree ", {}, true},
        {"scan --help", 0, "Usage: fatool scan [OPTIONS] FILE BEGIN END\n", {}, true},
    });
}

TEST_F(FatoolTest, CommandsOnRealFilesPrintTheirResults) {
    std::string data(1000, '\0'), parts;
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 251);
    writeFile("d.bin", data);
    writeFile("changed.bin", data.substr(0, 999) + static_cast<char>(data[999] ^ 1));
    for (int i = 1; i <= 4; ++i) parts += path("d.bin." + std::to_string(i) + ".part") + "\n";
    writeFile("r.xml", "<r><rec id=\"1\">one</rec><recx>no</recx>\n<rec n=\"2\">two</rec></r>");
    writeFile("w.txt", std::string("x\0[\0a\0]\0y\0[\0b\0]\0", 16));
    writeFile("t.txt", "cat dog cat bird cat");
    writeFile("in.txt", "caf\xc3\xa9");
    runCalls({
        {"split @d.bin 300 --dir @", 0, parts},
        {"join --dir @ d.bin @j.bin", 0, "joined 4 parts (1000 bytes) into /", {}, true},
        {"compare @d.bin @j.bin", 0, "identical\n"},
        // A difference is an answer, not a failure: no log is printed for it.
        {"compare @d.bin @changed.bin", 1, "different\n"},
        {"split --prefix p --ext .dat -d @ @d.bin 1K", 0, path("p1.dat") + "\n"},
        {"join -d @ -p p -e dat ignored @k.bin", 0, "joined 1 parts", {}, true},
        {"scan @r.xml <rec> </rec>", 0, "<rec id=\"1\">one</rec>\n<rec n=\"2\">two</rec>\n"},
        {"scan --count -c utf-16le @w.txt [ ]", 0, "2\n"},
        {"scan --limit 1 @r.xml <rec </rec>", 0, "<rec id=\"1\">one</rec>\n"},
        {"scan --limit 0 @r.xml <rec </rec>", 0, ""},
        {"replace @t.txt cat ox", 0, "3\n"},
        {"replace @t.txt cat ox", 0, "0\n"},  // none left is no failure
        {"blocks @d.bin 300", 0, "4\n"},
        {"block @d.bin 300 3", 0, data.substr(900)},
        {"block -e hex @in.txt 2 1", 0, "66C3\n"},
        {"encode @in.txt", 0, "Y2Fmw6k=\n"},
        {"blockid -e ascii -n 3 98 3", 0, "098\n099\n100\n"},
        {"blockid 0 4", 0, "MDAwMA==\n"},
        {"shortcut %lnk/xp-arguments.lnk", 0, "Arguments: \"this is the arguments\"\n", {}, true},
        {"shortcut --check %lnk/malformed-not-a-shortcut.lnk",
         1,
         "not parseable\n",
         {"is not a readable shortcut"}},
        {"info @in.txt", 0, "type: file\nsize: 5\n", {}, true},
        {"copy @in.txt @b.txt", 0, ""},
        {"copy --no-clobber @d.bin @b.txt", 1, "", {"Failed to copy file"}},
        {"move @b.txt @c.txt", 0, ""},
        // mkdir needs the parent unless -p is given, which also accepts what exists.
        {"mkdir @p/q", 1, "", {"mkdir"}},
        {"mkdir -p @x/y/z @x/y/z", 0, ""},
        {"rmtree @x", 0, ""},
        {"info @x", 1, "", {"does not exist"}},
        {"convert --bom @c.txt utf-8 @o.txt utf-16le", 0, ""},
        {"convert @o.txt utf-16le @back.txt windows-1252", 0, ""},
        // delete goes on past a failure and reports it.
        {"delete @missing @c.txt", 1, "", {"could not delete '" + path("missing") + "'"}},
    });
    EXPECT_EQ(readFile(path("j.bin")) + readFile(path("k.bin")), data + data);
    EXPECT_EQ(readFile(path("t.txt")), "ox dog ox bird ox");
    EXPECT_EQ(readFile(path("o.txt")), std::string("\377\376c\0a\0f\0\351\0", 10));
    EXPECT_EQ(readFile(path("back.txt")) + readFile(path("c.txt")), "caf\xe9<missing>");
}

TEST_F(FatoolTest, FailedOperationsPrintTheLibraryLog) {
    writeFile("f", "abc");
    writeFile("cjk.txt", "\xe4\xb8\xad");
    runCalls({
        {"join --dir @ nothing @o", 1, "", {"fatool join: could not join", "ReassembleFile:"}},
        {"split @m 10 --dir @", 1, "", {"could not split", "Failed to open input file."}},
        {"copy @m @b", 1, "", {"fatool copy: could not copy", "Failed to copy file"}},
        {"scan @m <a> </a>", 1, "", {"fatool scan: could not open", "OpenForRead:"}},
        {"replace @m a b", 1, "", {"fatool replace: could not replace", "ReplaceStrings:"}},
        {"blockid 10 1", 1, "", {"fatool blockid: could not make", "Failed."}},
        {"info @m", 1, "", {"does not exist", "FileType:"}},
        {"compare @m @m2", 1, "", {"fatool compare: could not compare", "FileContentsEqual:"}},
        {"shortcut %lnk/malformed-not-a-shortcut.lnk", 1, "", {"could not read the shortcut"}},
        // A character the target cannot hold makes the write fail and leaves no file.
        {"convert @cjk.txt utf-8 @x.txt us-ascii", 1, "", {"holds text that us-ascii cannot"}},
        // A success prints its log only when asked to.
        {"--verbose copy @f @c", 0, "", {"FileCopy:"}},
        {"copy -v @f @d", 0, "", {"FileCopy:"}},
    });
    EXPECT_EQ(readFile(path("f")) + readFile(path("x.txt")), "abc<missing>");
}

TEST_F(FatoolTest, ProgressGoesToStandardErrorWhenAsked) {
    writeFile("p.bin", std::string(5000, 'p'));
    writeFile("t.txt", "[a] [b] [c]");
    runCalls({{"--progress scan -n @t.txt [ ]", 0, "3\n", {"scan: 3 records, 9 B of 11 B (81%)"}}});
    // On a terminal the progress is shown unless switched off.
    runCalls({{"split @p.bin 1000 --dir @", 0, "", {"split: 4.9 KiB of 4.9 KiB (100%)"}, true},
              {"split --no-progress @p.bin 1000 --dir @", 0, "", {}, true}},
             true);
}

}  // namespace

#else

TEST(FatoolTest, SkippedWithoutTheProgram) {
    GTEST_SKIP() << "built without FA_BUILD_TOOLS";
}

#endif
