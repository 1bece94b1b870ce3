// The command-line program: its usage rules, its commands on real files, and how it reports
// failures and progress.
#include <gtest/gtest.h>

#ifdef FA_HAVE_FATOOL

#include <cctype>
#include <map>
#include <set>

#include "FatoolCalls.h"

namespace {

using fatool_test::Call;
using fatool_test::FatoolTest;
using fatool_test::lineCount;

// Bad usage exits with 2 and says why; help and version exit with 0.
TEST_F(FatoolTest, BadUsageAndHelp) {
    writeFile("f", "abc");
    // Every call that would write names the test's directory (-d @), should a refusal fail.
    runCalls({
        {"", 2, "", {"no command given"}},
        {"frobnicate", 2, "", {"unknown command 'frobnicate'"}},
        {"--bogus info x", 2, "", {"unknown option '--bogus'"}},
        {"copy only-one", 2, "", {"fatool: copy: missing arguments", "Usage: fatool copy"}},
        {"split -d @ @f 12X", 2, "", {"invalid part size '12X'"}},
        {"split -d @ @f 1k", 2, "", {"invalid part size '1k'"}},
        // Sizes past what the library takes are refused with the range it takes.
        {"split -d @ @f 2G",
         2,
         "",
         {"expected a byte count from 1 to 2147483647, with an optional K"}},
        {"blocks @f 0", 2, "", {"invalid block size '0'"}},
        {"block @f 2 -1", 2, "", {"invalid block index '-1'"}},
        {"encode @f --encoding rot13", 2, "", {"unknown encoding 'rot13'"}},
        {"scan @f '' </r>", 2, "", {"the markers must not be empty"}},
        {"scan -C klingon @f <a> </a>", 2, "", {"unknown charset 'klingon'"}},
        {"compare --verbose=yes a b", 2, "", {"option --verbose takes no value"}},
        {"blockid 0 0", 2, "", {"invalid length '0': expected 1 to 4096"}},
        {"blockid 100 2", 2, "", {"index 100 needs 3 characters, more than the length 2"}},
        {"blockid --number 3 98 2", 2, "", {"index 100 needs 3 characters"}},
        // --progress belongs to the commands that show progress, before the command as after.
        {"info --progress @f", 2, "", {"unknown option '--progress'"}},
        {"--progress info @f", 2, "", {"fatool: info: unknown option '--progress'"}},
        {"--progress scan -c @f a c", 0, "1\n"},
        {"-vx info @f", 2, "", {"fatool: info: unknown option '-x'"}},
        // Sizes and numbers are digits: no blanks, no plus sign.
        {"split -d @ @f +10", 2, "", {"invalid part size '+10'"}},
        {"block @f 2 +1", 2, "", {"invalid block index '+1'"}},
        {"--version", 0, "fatool ", {}, true},
        {"info --version", 0, "fatool ", {}, true},
        // Help is made from the command table: the list must reach its last entry.
        {"--help", 0, "\n  rmtree ", {}, true},
        {"scan --help", 0, "Usage: fatool scan [OPTIONS] FILE BEGIN END\n", {}, true},
        {"scan -h", 0, "  --progress ", {}, true},
        // Grouped letters before the command as after it.
        {"-vh info", 0, "Usage: fatool info [OPTIONS] PATH\n", {}, true},
        {"-vh", 0, "Usage: fatool [OPTIONS] COMMAND", {}, true},
        {"split --help", 0, "write the parts into DIR, made if missing (default: .)\n", {}, true},
    });
}

// A size or number is plain digits (a minus sign where negative numbers are allowed): white
// space and a plus sign, which strtoll would take, are refused.
TEST(FatoolParse, SizesAndNumbersAreDigitsOnly) {
    for (const char* bad : {" 10", "\t10", "10 ", "+10", "-1", "0x10", "1 K", "K", ""}) {
        SCOPED_TRACE(std::string("'") + bad + "'");
        EXPECT_THROW(fatool::parseSize(bad, "size", 0, 1 << 30), fatool::UsageError);
        EXPECT_THROW(fatool::parseInt(bad, "number", 0, 1 << 30), fatool::UsageError);
    }
    EXPECT_EQ(fatool::parseSize("10", "size", 0, 1 << 30), 10);
    EXPECT_EQ(fatool::parseSize("2K", "size", 0, 1 << 30), 2048);
    EXPECT_EQ(fatool::parseInt("-5", "number", -10, 10), -5);
    EXPECT_THROW(fatool::parseInt(" -5", "number", -10, 10), fatool::UsageError);
    EXPECT_THROW(fatool::parseInt("--5", "number", -10, 10), fatool::UsageError);
}

// Values attach to short options, short flags group, and "--" ends the options.
TEST_F(FatoolTest, OptionSpellings) {
    writeFile("d.bin", std::string(10, 'd'));
    writeFile("-n", "a file named -n");
    runCalls({
        {"split -d@parts -xdat -Pp @d.bin 4", 0, path("parts") + "/p1.dat\n", {}, true},
        {"split -fd@parts -x dat -Pp @d.bin 4", 0, path("parts") + "/p3.dat\n", {}, true},
        {"join --dir=@parts --prefix p --ext dat x @j.bin",
         0,
         "joined 3 parts (10 bytes)",
         {},
         true},
        {"scan -cl1 @d.bin d d", 0, "1\n"},
        {"copy -- @-n @copy", 0, ""},
    });
    EXPECT_EQ(readFile(path("copy")), "a file named -n");
}

// One meaning per letter: a letter used by several commands names the same long option.
TEST_F(FatoolTest, EachOptionLetterHasOneMeaning) {
    std::map<char, std::string> meaning = {{'h', "help"}, {'v', "verbose"}};
    for (const fatool::CommandSpec& c : fatool::commandTable()) {
        for (const fatool::OptionSpec& o : c.options) {
            if (!o.shortName) continue;
            SCOPED_TRACE(std::string(c.name) + " -" + o.shortName);
            const auto [it, fresh] = meaning.emplace(o.shortName, o.name);
            EXPECT_EQ(it->second, o.name);
        }
    }
}

// The upper-case words of a text (two letters or more, '_' included), such as FILE or PART_SIZE.
std::set<std::string> placeholders(const std::string& text) {
    std::set<std::string> found;
    for (size_t i = 0; i < text.size();) {
        size_t j = i;
        while (j < text.size() &&
               (std::isupper(static_cast<unsigned char>(text[j])) || text[j] == '_'))
            ++j;
        if (j - i >= 2 && text[i] != '_') found.insert(text.substr(i, j - i));
        i = j == i ? i + 1 : j;
    }
    return found;
}

// Every upper-case placeholder a command's help names, in its details and in the help of each
// of its options, is one of its arguments or option values, so the help never talks of an
// argument that does not exist.
TEST_F(FatoolTest, HelpNamesOnlyArgumentsThatExist) {
    const std::set<std::string> words = {"UTC", "BOM", "UTF", "FIFO"};
    for (const fatool::CommandSpec& c : fatool::commandTable()) {
        std::string known = c.args, texts = c.details;
        for (const fatool::OptionSpec& o : c.options) {
            known += std::string(" ") + (o.value ? o.value : "");
            texts += std::string("\n") + o.help;
        }
        const std::set<std::string> names = placeholders(known);
        for (const std::string& word : placeholders(texts)) {
            SCOPED_TRACE(std::string(c.name) + ": " + word);
            EXPECT_TRUE(names.count(word) || words.count(word)) << known;
        }
    }
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
    writeFile("x.lnk", readFile(testDataPath("lnk/xp-arguments.lnk")));
    runCalls({
        {"split @d.bin 300 --dir @", 0, parts},
        {"join --dir @ d.bin @j.bin", 0, "joined 4 parts (1000 bytes) into /", {}, true},
        {"compare @d.bin @j.bin", 0, "identical\n"},
        {"compare @d.bin @changed.bin", 1, "different\n"},
        {"split --prefix p --ext .dat -d @ @d.bin 1K", 0, path("p1.dat") + "\n"},
        {"join -d @ -P p -x dat ignored @k.bin", 0, "joined 1 part (1000 bytes)", {}, true},
        {"scan @r.xml <rec> </rec>", 0, "<rec id=\"1\">one</rec>\n<rec n=\"2\">two</rec>\n"},
        {"scan --count -C utf-16le @w.txt [ ]", 0, "2\n"},
        {"scan --limit 1 @r.xml <rec </rec>", 0, "<rec id=\"1\">one</rec>\n"},
        {"scan --limit 0 @r.xml <rec </rec>", 0, ""},
        {"replace @t.txt cat ox", 0, "3\n"},
        {"replace @t.txt cat ox", 0, "0\n"},  // none left is no failure
        {"blocks @d.bin 300", 0, "4\n"},
        {"block @d.bin 300 3", 0, data.substr(900)},
        {"block -e hex @in.txt 2 1", 0, "66C3\n"},
        {"encode @in.txt", 0, "Y2Fmw6k=\n"},
        {"blockid -e ascii --number 3 98 3", 0, "098\n099\n100\n"},
        {"blockid 0 4", 0, "MDAwMA==\n"},
        {"shortcut %lnk/xp-arguments.lnk", 0, "Arguments: \"this is the arguments\"\n", {}, true},
        {"shortcut --check %lnk/malformed-not-a-shortcut.lnk", 1, "not parseable\n"},
        // As the help says: a name without .lnk is read with it.
        {"shortcut --help", 0, "not end in .lnk is read as FILE.lnk", {}, true},
        {"shortcut @x", 0, "Arguments: \"this is the arguments\"\n", {}, true},
        {"info @in.txt", 0, "type: file\nsize: 5\n", {}, true},
        {"copy @in.txt @b.txt", 0, ""},
        {"move @b.txt @c.txt", 0, ""},
        // mkdir needs the parent unless -p is given, which also accepts what exists.
        {"mkdir -p @x/y/z @x/y/z", 0, ""},
        {"rmtree @x", 0, ""},
        {"convert --bom @c.txt utf-8 @o.txt utf-16le", 0, ""},
        {"convert @o.txt utf-16le @back.txt windows-1252", 0, ""},
    });
    EXPECT_EQ(readFile(path("j.bin")) + readFile(path("k.bin")), data + data);
    EXPECT_EQ(readFile(path("t.txt")), "ox dog ox bird ox");
    EXPECT_EQ(readFile(path("o.txt")), std::string("\377\376c\0a\0f\0\351\0", 10));
    EXPECT_EQ(readFile(path("back.txt")) + readFile(path("in.txt")),
              "caf\xe9"
              "caf\xc3\xa9");
    EXPECT_EQ(readFile(path("b.txt")) + readFile(path("x")), "<missing><missing>");
}

// A failure is one line, "fatool: COMMAND: PATH: reason", with the library's error line as the
// reason; --verbose adds the whole log.
TEST_F(FatoolTest, AFailureIsOneLineWithItsReason) {
    writeFile("f", "abc");
    struct Case {
        std::string line;
        std::string start;  // the line's start: command and path
        std::string reason;
        bool logged;  // whether a library call failed, whose log --verbose adds
    };
    const std::vector<Case> cases = {
        // The path that failed: the source here, the destination's directory next.
        {"copy @m @b", "fatool: copy: " + path("m") + ": ", "No such file", true},
        {"copy @f @nodir/b", "fatool: copy: " + path("nodir/b") + ": ", "No such file", true},
        {"copy -n @f @f", "fatool: copy: " + path("f") + ": ", "exists", true},
        {"scan @m <a> </a>", "fatool: scan: " + path("m") + ": ", "No such file", false},
        {"scan @m [a] [/a]", "fatool: scan: " + path("m") + ": ", "No such file", true},
        {"replace @m a b", "fatool: replace: " + path("m") + ": ", "No such file", true},
        {"info @m", "fatool: info: " + path("m") + ": ", "no such file or directory", false},
        {"mkdir @p/q", "fatool: mkdir: " + path("p/q") + ": ", "No such file", true},
        {"delete @missing", "fatool: delete: " + path("missing") + ": ", "No such file", true},
        {"blocks @m 10", "fatool: blocks: " + path("m") + ": ", "No such file", true},
        {"encode @m", "fatool: encode: " + path("m") + ": ", "No such file", true},
        {"shortcut %lnk/malformed-not-a-shortcut.lnk",
         "fatool: shortcut: ", "not a readable shortcut", true},
        {"join -d @ nothing @o", "fatool: join: " + path("nothing.1.part") + ": ", "no such part",
         false},
        // Where - is a file's name it is shown as one (run in the test's directory).
        {"info -", "fatool: info: -: ", "no such file or directory", false},
        {"move - @x", "fatool: move: -: ", "No such file", true},
        {"delete -", "fatool: delete: -: ", "No such file", true},
    };
    // The test's directory is the current one meanwhile, for the relative name "-".
    const fatool_test::CurrentDirectory here(dir());
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        std::string quiet;
        for (const char* verbose : {"", "--verbose "}) {
            std::istringstream in;
            std::ostringstream out, err;
            EXPECT_EQ(runLine(verbose + c.line, in, out, err), 1);
            const std::string e = err.str();
            if (quiet.empty()) {
                quiet = e;
                EXPECT_EQ(e.rfind(c.start, 0), 0u) << e;
                EXPECT_NE(e.find(c.reason), std::string::npos) << e;
                EXPECT_EQ(lineCount(e), 1u) << e;
                continue;
            }
            // --verbose: the same line, then the log of the call that failed.
            EXPECT_EQ(e.rfind(quiet, 0), 0u) << e;
            EXPECT_EQ(lineCount(e) > 1, c.logged) << e;
        }
    }
}

// A record that is not valid text in the charset fails the scan with its number (and, where
// the program scans by itself, its offset), after the records before it were printed; a
// count is not printed at all.
TEST_F(FatoolTest, ARecordNotValidInItsCharsetIsAnError) {
    writeFile("l1.xml", "<rec>ok</rec><rec>caf\xe9</rec><rec>no</rec>");
    writeFile("l2.xml", "\xe9\xe9<rec>ok</rec>\xe9");
    const std::string start = "fatool: scan: " + path("l1.xml") + ": record 2";
    runCalls({
        {"scan @l1.xml <rec> </rec>",
         1,
         "<rec>ok</rec>\n",
         {start + " (at byte 13) is not valid utf-8 text\n"}},
        {"scan -c @l1.xml <rec> </rec>",
         1,
         "",
         {start + " (at byte 13) is not valid utf-8 text\n"}},
        {"scan @l1.xml <rec </rec>", 1, "<rec>ok</rec>\n", {start + " is not valid utf-8 text\n"}},
        // Bytes outside the records are never decoded.
        {"scan @l2.xml <rec> </rec>", 0, "<rec>ok</rec>\n"},
        {"scan -c -C latin1 @l1.xml <rec> </rec>", 0, "3\n"},
    });
}

// compare answers as cmp does: 0 identical, 1 different, 2 when it cannot compare.
TEST_F(FatoolTest, CompareTellsDifferentFromCannotCompare) {
    writeFile("a", "same");
    writeFile("b", "same");
    writeFile("c", "diff");
    mkdir(path("dir").c_str(), 0755);
    runCalls({
        {"compare @a @b", 0, "identical\n"},
        {"compare @a @c", 1, "different\n"},
        // The line names the file that could not be read.
        {"compare @dir @a", 2, "", {"fatool: compare: " + path("dir") + ": "}},
        {"compare @a @missing", 2, "", {"fatool: compare: " + path("missing") + ": "}},
        {"compare @missing @a", 2, "", {"fatool: compare: " + path("missing") + ": "}},
    });
}

// Progress shows on a terminal only for a job older than the delay, and leaves no line behind.
TEST_F(FatoolTest, ProgressIsWipedAndOnlyForSlowJobs) {
    writeFile("t.txt", "[a] [b] [c]");
    for (double delay : {0.0, 0.5}) {
        SCOPED_TRACE(delay);
        std::istringstream in;
        std::ostringstream out, err;
        EXPECT_EQ(runLine("scan -c @t.txt [ ]", in, out, err, true, delay), 0);
        EXPECT_EQ(out.str(), "3\n");
        const std::string e = err.str();
        if (delay > 0) {
            EXPECT_EQ(e, "");  // a quick job shows nothing
            continue;
        }
        EXPECT_NE(e.find("\rscan: 1 record, 3 B of 11 B (27%) ["), std::string::npos) << e;
        // The last thing written is blanks as wide as the widest line, then the cursor back
        // at its start.
        ASSERT_EQ(e.front(), '\r');
        ASSERT_EQ(e.back(), '\r');
        std::vector<std::string> lines;
        for (size_t at = 1, next; at < e.size(); at = next + 1)
            lines.push_back(e.substr(at, (next = e.find('\r', at)) - at));
        const std::string& blanks = lines.back();
        EXPECT_EQ(blanks, std::string(blanks.size(), ' '));
        for (const std::string& line : lines)
            EXPECT_LE(line.find_last_not_of(' ') + 1, blanks.size());
    }
    runCalls({{"scan --no-progress -c @t.txt [ ]", 0, "3\n"}}, true);
}

// What a terminal shows for the bytes written to it: the lines, each as it finally stands
// after carriage returns let later text overwrite it, trailing blanks dropped; a last line
// without its '\n' counts too.
std::vector<std::string> terminalLines(const std::string& bytes) {
    std::vector<std::string> lines;
    std::string line;
    size_t column = 0;
    auto end = [&] {
        const size_t last = line.find_last_not_of(' ');
        lines.push_back(last == std::string::npos ? "" : line.substr(0, last + 1));
        line.clear();
        column = 0;
    };
    for (char c : bytes) {
        if (c == '\r') {
            column = 0;
        } else if (c == '\n') {
            end();
        } else {
            if (column < line.size())
                line[column] = c;
            else
                line += c;
            ++column;
        }
    }
    if (!line.empty()) end();
    return lines;
}

// When standard output is the terminal too, records and a progress line would share it: a scan
// that prints records shows no progress unless asked, and with --progress wipes the line before
// each record; a count alone shows progress as usual.
TEST_F(FatoolTest, ProgressNeverRunsIntoRecordsOnATerminal) {
    writeFile("t.txt", "[a] [b] [c]");
    writeFile("p.1.part", "ab");
    writeFile("p.2.part", "cd");
    struct Case {
        const char* line;
        bool progressShown;
        std::vector<std::string> shown;  // the terminal's lines, standard output and error
    };
    const std::vector<Case> cases = {
        {"scan @t.txt [ ]", false, {"[a]", "[b]", "[c]"}},
        {"scan --progress @t.txt [ ]", true, {"[a]", "[b]", "[c]"}},
        {"scan -c @t.txt [ ]", true, {"3"}},
        {"join -d @ p -", false, {"abcd"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        std::istringstream in;
        std::ostringstream screen;  // both streams, in the order of the writes
        EXPECT_EQ(runLine(c.line, in, screen, screen, true, 0.0, true), 0);
        const std::string s = screen.str();
        EXPECT_EQ(s.find(": ") != std::string::npos, c.progressShown) << s;
        std::vector<std::string> lines = terminalLines(s);
        while (!lines.empty() && lines.back().empty()) lines.pop_back();  // a wiped line
        EXPECT_EQ(lines, c.shown) << s;
    }
}

}  // namespace

#else

TEST(FatoolTest, SkippedWithoutTheProgram) {
    GTEST_SKIP() << "built without FA_BUILD_TOOLS";
}

#endif
