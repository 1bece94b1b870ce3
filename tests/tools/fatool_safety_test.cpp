// The program never damages what it was not asked to change: refused removals, outputs written
// whole or not at all, stale parts, failed writes to standard output, standard input and
// output as "-", and links shown as links.
#include <gtest/gtest.h>

#ifdef FA_HAVE_FATOOL

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>

#include "FatoolCalls.h"
#include "Interrupt.h"
#include "foundation/fs/SysCalls.h"
#include "support/SysCallOverride.h"

namespace {

using fatool_test::Call;
using fatool_test::FatoolTest;
using fatool_test::lineCount;

// In a child whose whole file system is the test's directory, with removals refused.
TEST_F(FatoolTest, RmtreeRefusesTheRootAndDotsAsRmDoes) {
    mkdir(path("a").c_str(), 0755);
    writeFile("a/keep", "x");
    const int failures = inJailRefusingRemovals(dir(), [](const int& removals) {
        int bad = 0;
        for (const char* target : {"/", "//", ".", "..", "./", "a/..", "/a/.."}) {
            std::istringstream in;
            std::ostringstream out, err;
            const char* argv[] = {"fatool", "rmtree", target};
            fatool::Context ctx{in, out, err, false, false};
            const int status = fatool::run(3, argv, ctx);
            const std::string e = err.str();
            const std::string start = std::string("fatool: rmtree: ") + target + ": ";
            if (status != 1 || removals != 0 || lineCount(e) != 1 || e.rfind(start, 0) != 0 ||
                e.find("refusing") == std::string::npos) {
                std::fprintf(stderr, "%s: status %d, removals %d\n%s", target, status, removals,
                             e.c_str());
                ++bad;
            }
        }
        return bad;
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(readFile(path("a/keep")), "x");
}

// A command that fails leaves its output file as it was.
TEST_F(FatoolTest, FailuresLeaveTheOutputAsItWas) {
    writeFile("d.bin", std::string(3000, 'd'));
    writeFile("latin1.txt", "caf\xe9");
    writeFile("cjk.txt", "\xe4\xb8\xad");
    writeFile("t.txt", "a b a");
    writeFile("out", "precious");
    writeFile("in.txt", "caf\xc3\xa9");
    ASSERT_EQ(link(path("in.txt").c_str(), path("hard.txt").c_str()), 0);
    ASSERT_EQ(symlink("in.txt", path("soft.txt").c_str()), 0);
    const std::string itself = ": is the input file itself";
    runCalls({
        {"split -d @parts @d.bin 1000", 0, "", {}, true},
        {"join -d @parts mistyped @out",
         1,
         "",
         {"fatool: join: " + path("parts") + "/mistyped.1.part: no such part"}},
        {"join -d @parts d.bin @parts/d.bin.2.part", 1, "", {"is part 2 of the set it would join"}},
        {"convert @latin1.txt bogus @out utf-8",
         2,
         "",
         {"fatool: convert: unknown charset 'bogus'"}},
        {"convert @latin1.txt utf-8 @out bogus", 2, "", {"unknown charset 'bogus'"}},
        {"convert @latin1.txt utf-8 @out utf-16le",
         1,
         "",
         {"fatool: convert: " + path("latin1.txt") + ": not valid utf-8 text"}},
        {"convert @cjk.txt utf-8 @out us-ascii",
         1,
         "",
         {"holds characters that us-ascii cannot hold"}},
        {"replace -C bogus @t.txt a b", 2, "", {"fatool: replace: unknown charset 'bogus'"}},
        // OUT is IN under the same name, a hard link or a symbolic link, at either end.
        {"convert @in.txt utf-8 @in.txt utf-16le",
         1,
         "",
         {"fatool: convert: " + path("in.txt") + itself}},
        {"convert @in.txt utf-8 @hard.txt utf-16le",
         1,
         "",
         {"fatool: convert: " + path("hard.txt") + itself}},
        {"convert @hard.txt utf-8 @in.txt utf-16le",
         1,
         "",
         {"fatool: convert: " + path("in.txt") + itself}},
        {"convert @soft.txt utf-8 @in.txt utf-16le",
         1,
         "",
         {"fatool: convert: " + path("in.txt") + itself}},
        {"convert @in.txt utf-8 @soft.txt utf-16le",
         1,
         "",
         {"fatool: convert: " + path("soft.txt") + itself}},
    });
    EXPECT_EQ(readFile(path("in.txt")), "caf\xc3\xa9");
    EXPECT_EQ(readFile(path("out")), "precious");
    EXPECT_EQ(readFile(path("parts/d.bin.2.part")), std::string(1000, 'd'));
    EXPECT_EQ(readFile(path("t.txt")), "a b a");
}

// Parts of an earlier split under the same names are refused, or removed with --force, so that
// join never glues stale parts on; a missing --dir is made.
TEST_F(FatoolTest, SplitRefusesStalePartsAndMakesItsDirectory) {
    writeFile("d.bin", std::string(3000, 'a'));
    runCalls({{"split -d @new/sub @d.bin 1000", 0, path("new/sub") + "/d.bin.3.part\n", {}, true}});
    writeFile("d.bin", std::string(1500, 'b'));
    runCalls({
        {"split -d @new/sub @d.bin 1000",
         1,
         "",
         {"fatool: split: " + path("new/sub") +
          "/d.bin.1.part: already there, with 3 parts of an "
          "earlier split (--force removes them)"}},
        {"split -f -d @new/sub @d.bin 1000", 0, path("new/sub") + "/d.bin.2.part\n", {}, true},
        {"join -d @new/sub d.bin @j.bin", 0, "joined 2 parts (1500 bytes)", {}, true},
    });
    EXPECT_EQ(readFile(path("j.bin")), std::string(1500, 'b'));
    EXPECT_EQ(readFile(path("new/sub/d.bin.3.part")), "<missing>");

    // Parts of any number count, with or without a part 1; --force removes every one of them.
    mkdir(path("gaps").c_str(), 0755);
    writeFile("gaps/d.bin.2.part", "stale two");
    writeFile("gaps/d.bin.5.part", "stale five");
    writeFile("gaps/d.bin.05.part", "no part name: kept");
    writeFile("gaps/d.bin.x.part", "no part name: kept");
    runCalls({
        {"split -d @gaps @d.bin 1000",
         1,
         "",
         {"fatool: split: " + path("gaps") +
          "/d.bin.2.part: already there, with 2 parts of an "
          "earlier split (--force removes them)"}},
        {"split -f -d @gaps @d.bin 1000", 0, path("gaps") + "/d.bin.2.part\n", {}, true},
        {"join -d @gaps d.bin @g.bin", 0, "joined 2 parts (1500 bytes)", {}, true},
    });
    EXPECT_EQ(readFile(path("g.bin")), std::string(1500, 'b'));
    EXPECT_EQ(readFile(path("gaps/d.bin.5.part")), "<missing>");
    EXPECT_EQ(readFile(path("gaps/d.bin.05.part")) + readFile(path("gaps/d.bin.x.part")),
              "no part name: keptno part name: kept");
}

// --force never removes the file being split, under its own name or another link; a --dir
// is made only once the input is known to be readable.
TEST_F(FatoolTest, SplitKeepsItsInputAndMakesNoDirectoryForAMissingOne) {
    writeFile("x.1.part", "0123456789abcdefghij");
    writeFile("x.2.part", "stale");
    writeFile("in.bin", "0123456789");
    ASSERT_EQ(link(path("in.bin").c_str(), path("in.bin.3.part").c_str()), 0);
    writeFile("in.bin.1.part", "stale");
    const std::string kept = ": is the file being split, which --force keeps";
    runCalls({
        {"split -f -d @ -P x. @x.1.part 10", 1, "", {"fatool: split: " + path("x.1.part") + kept}},
        {"split -f -d @ @in.bin 4", 1, "", {"fatool: split: " + path("in.bin.3.part") + kept}},
        {"split -d @made/deep @missing.bin 1M",
         1,
         "",
         {"fatool: split: " + path("missing.bin") + ": "}},
    });
    EXPECT_EQ(readFile(path("x.1.part")) + readFile(path("x.2.part")), "0123456789abcdefghijstale");
    EXPECT_EQ(readFile(path("in.bin.3.part")) + readFile(path("in.bin.1.part")), "0123456789stale");
    struct stat st;
    EXPECT_NE(stat(path("made").c_str(), &st), 0);
}

// A split that fails on the way removes the parts it wrote.
TEST_F(FatoolTest, AFailedSplitLeavesNoParts) {
    writeFile("d.bin", std::string(3000, 'a'));
    {
        SysCallOverride faults;
        faults.failNth(SysCallOverride::Write, 2, ENOSPC, true);
        faults.failNth(SysCallOverride::CopyFileRange, 2, ENOSPC, true);
        // The part that could not be written is named, not the input.
        runCalls({{"split -d @parts @d.bin 1000",
                   1,
                   "",
                   {"fatool: split: " + path("parts") + "/d.bin.2.part: write failed"}}});
    }
    // Nothing at all: no part under its own name or a temporary one.
    EXPECT_EQ(entries("parts"), std::vector<std::string>{});
}

// A part that cannot be read is named in the failure, whether the joined bytes go to a file
// (left as it was) or to standard output (which has the bytes before it).
TEST_F(FatoolTest, AFailedJoinNamesThePartItCouldNotRead) {
    writeFile("p.1.part", "ab");
    writeFile("p.2.part", "cd");
    writeFile("out", "precious");
    for (const char* line : {"join -d @ p -", "join -d @ p @out"}) {
        SysCallOverride faults;
        faults.failNth(SysCallOverride::Read, 3, EIO);  // part 1 (bytes, end), then part 2
        const bool toStdout = std::string(line).back() == '-';
        runCalls({{line,
                   1,
                   toStdout ? "ab" : "",
                   {"fatool: join: " + path("p.2.part") + ": ", "Input/output error"}}});
    }
    EXPECT_EQ(readFile(path("out")), "precious");
}

// The wait status of `body` run in a forked child.
int waitStatusOf(const std::function<int()>& body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) _exit(body());
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// A signal sent to the process from inside the nth read or write of the file-system layer, so
// that it arrives at a known point of the job. Once the program has taken it, the call goes on
// (a job that stops by itself) or waits to be cut short (any other). A path that must not
// exist yet at that point ends the process with status 103 if it does.
struct SignalAt {
    static inline int calls = 0, at = 0, signal = 0;
    static inline bool hold = false;
    static inline std::string notYet;

    static void arrive() {
        if (++calls != at) return;
        if (!notYet.empty() && access(notYet.c_str(), F_OK) == 0) _exit(103);
        kill(getpid(), signal);
        while (!fatool::interrupt::stopRequested()) usleep(1000);
        for (int i = 0; hold && i < 100; ++i) usleep(50000);  // ended by the program, or fails
    }
    static ssize_t read(int fd, void* p, size_t n) {
        return arrive(), realSysCalls().read(fd, p, n);
    }
    static ssize_t pread(int fd, void* p, size_t n, off_t at) {
        return arrive(), realSysCalls().pread(fd, p, n, at);
    }
    static ssize_t write(int fd, const void* p, size_t n) {
        return arrive(), realSysCalls().write(fd, p, n);
    }
};

// SIGINT, SIGTERM and SIGHUP stop the job wherever it stands; the program removes the copy of
// standard input, the temporary output and the parts written so far, and ends by the same
// signal. An existing output stays as it was.
TEST_F(FatoolTest, AStopSignalRemovesWhatTheJobMadeAndEndsByIt) {
    struct Case {
        const char* line;
        std::string in;
        bool onWrite;  // the signal comes in a write, else in a read
        int at;
        bool stopsByItself;
        int signal;
        std::string notYet = {};  // a split in progress has no part under its own name
    };
    const std::string text(3000, 't');
    const std::vector<Case> cases = {
        // The library's split cut short at its second part.
        {"split -d @parts @d.bin 1000", "", true, 2, false, SIGINT, "parts/d.bin.1.part"},
        // The same from standard input, copied to a file first (the first write).
        {"split -d @parts - 1000", text, true, 3, false, SIGHUP, "parts/stdin.1.part"},
        {"encode -", text, true, 1, false, SIGTERM},
        // Writing a file whole or not at all, stopped between two blocks.
        {"join -d @sealed d.bin @out", "", false, 2, true, SIGTERM},
        {"convert @d.bin utf-8 @out utf-16le", "", false, 1, true, SIGINT},
    };
    writeFile("d.bin", text);
    writeFile("out", "precious");
    mkdir(path("tmp").c_str(), 0755);
    mkdir(path("parts").c_str(), 0755);
    runCalls({{"split -d @sealed @d.bin 1000", 0, "", {}, true}});
    const std::vector<std::string> before = entries();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        const int status = waitStatusOf([&] {
            setenv("TMPDIR", path("tmp").c_str(), 1);
            fatool::interrupt::install();
            SignalAt::at = c.at;
            SignalAt::signal = c.signal;
            SignalAt::hold = !c.stopsByItself;
            SignalAt::notYet = c.notYet.empty() ? "" : path(c.notYet);
            SysCalls& t = sysCalls();
            if (c.onWrite) {
                t.write = SignalAt::write;
            } else {
                t.read = SignalAt::read;
                t.pread = SignalAt::pread;
            }
            std::istringstream in(c.in);
            std::ostringstream out, err;
            const int rc = runLine(c.line, in, out, err);
            std::fprintf(stderr, "not stopped: status %d\n%s", rc, err.str().c_str());
            return 100;
        });
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == c.signal) << status;
        EXPECT_EQ(entries(), before);
    }
    EXPECT_EQ(readFile(path("out")), "precious");
}

// SIGPIPE is ignored: a reader that went away makes a write error like any other, reported in
// one line, with the copy of standard input removed.
TEST_F(FatoolTest, AClosedPipeIsAWriteError) {
    mkdir(path("tmp").c_str(), 0755);
    const int status = waitStatusOf([&] {
        setenv("TMPDIR", path("tmp").c_str(), 1);
        fatool::interrupt::install();
        int ends[2];
        if (pipe(ends) != 0) return 101;
        close(ends[0]);
        std::ofstream out("/dev/fd/" + std::to_string(ends[1]));
        std::istringstream in(std::string(1 << 20, 'x'));  // more than a pipe holds
        std::ostringstream err;
        const int rc = runLine("encode -", in, out, err);
        const std::string e = err.str();
        if (rc == 1 && e == "fatool: encode: standard output: write error: Broken pipe\n") return 0;
        std::fprintf(stderr, "status %d\n%s", rc, e.c_str());
        return 102;
    });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(entries("tmp"), std::vector<std::string>{});
}

// Every command that prints checks that its output arrived: into a full device it fails.
TEST_F(FatoolTest, AFailedWriteToStandardOutputFails) {
    std::ofstream probe("/dev/full");
    if (!probe) GTEST_SKIP() << "no /dev/full";
    writeFile("r.xml", "<r><rec>a</rec><rec id=\"2\">b</rec></r>");
    writeFile("d.bin", std::string(70000, 'd'));
    writeFile("in.txt", "abc");
    runCalls({{"split @d.bin 30000 -d @parts", 0, "", {}, true}});
    for (const char* line : {"--version", "--help", "info --version", "scan --help", "info @r.xml",
                             "scan @r.xml <rec> </rec>", "scan -c @r.xml [ ]", "encode @d.bin",
                             "block @d.bin 1000 3", "blocks @d.bin 10", "blockid --number 10 0 4",
                             "join -d @parts d.bin -", "convert @in.txt utf-8 - utf-16le",
                             "compare @in.txt @in.txt", "split @d.bin 40000 -d @parts2",
                             "replace @in.txt b c", "shortcut %lnk/xp-arguments.lnk"}) {
        SCOPED_TRACE(line);
        std::ofstream full("/dev/full");
        std::istringstream in;
        std::ostringstream err;
        // compare's 1 means "different": it cannot answer, which is 2 (as cmp).
        EXPECT_EQ(runLine(line, in, full, err), std::string(line).rfind("compare", 0) == 0 ? 2 : 1);
        // With the reason of the write that failed, however long ago it failed.
        EXPECT_NE(err.str().find("standard output: write error: No space left on device\n"),
                  std::string::npos)
            << err.str();
        EXPECT_EQ(lineCount(err.str()), 1u) << err.str();
    }
}

// "-" is standard input for reading commands and standard output for those that write text.
TEST_F(FatoolTest, DashIsStandardInputAndOutput) {
    const std::string xml = "<r><rec>a</rec><rec id=\"2\">b</rec><record>no</record></r>";
    const std::string lnk = readFile(testDataPath("lnk/xp-arguments.lnk"));
    const std::string args = "Arguments: \"this is the arguments\"\n";
    writeFile("d.bin", "0123456789");
    // replace - is refused; were it not, the file "-" it rewrote would be the test's own.
    const fatool_test::CurrentDirectory here(dir());
    runCalls({
        {"scan - <rec> </rec>", 0, "<rec>a</rec>\n<rec id=\"2\">b</rec>\n", {}, false, xml},
        // The library's exact match: "<rec" of <record> is a begin marker that finds no "</rec>".
        {"scan -c - <rec </rec>", 0, "2\n", {}, false, xml},
        {"encode -", 0, "YWJj\n", {}, false, "abc"},
        {"blocks - 2", 0, "3\n", {}, false, "abcde"},
        {"block -e hex - 2 1", 0, "6364\n", {}, false, "abcde"},
        {"compare - @d.bin", 0, "identical\n", {}, false, "0123456789"},
        {"compare - -", 0, "identical\n", {}, false, "read once"},
        {"copy - @copied", 0, "", {}, false, "from standard input"},
        // The library reads NAME.lnk for a NAME without the extension.
        {"shortcut -", 0, args, {}, true, lnk},
        {"shortcut --check -", 0, "parseable\n", {}, false, lnk},
        {"convert - latin1 - utf-8", 0, "caf\xc3\xa9", {}, false, "caf\xe9"},
        {"split -d @parts - 4", 0, path("parts") + "/stdin.3.part\n", {}, true, "abcdefghij"},
        {"join -d @parts stdin -", 0, "abcdefghij", {}, false},
        // replace rewrites its file in place, which standard input is not.
        {"replace - a b", 2, "", {"must be a file, not '-'"}},
    });
    EXPECT_EQ(readFile(path("copied")), "from standard input");
}

// Standard input that cannot be read is a read error in one line, never an empty input: a
// directory here, a closed descriptor below. Nothing is written.
TEST_F(FatoolTest, UnreadableStandardInputIsAReadError) {
    mkdir(path("dir").c_str(), 0755);
    writeFile("d.bin", "");
    struct Case {
        const char* line;
        int status;
    };
    const std::vector<Case> cases = {
        {"encode -", 1},
        {"blocks - 2", 1},
        {"scan - <rec> </rec>", 1},
        {"scan - [ ]", 1},
        {"copy - @copied", 1},
        {"convert - latin1 @converted utf-8", 1},
        {"split -d @parts - 4", 1},
        {"shortcut -", 1},
        {"compare - @d.bin", 2},  // could not compare, as cmp
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        std::ifstream in(path("dir"));
        ASSERT_TRUE(in.is_open());
        std::ostringstream out, err;
        EXPECT_EQ(runLine(c.line, in, out, err), c.status);
        EXPECT_EQ(out.str(), "");
        const std::string command = std::string(c.line).substr(0, std::string(c.line).find(' '));
        EXPECT_EQ(err.str(),
                  "fatool: " + command + ": standard input: read error: Is a directory\n");
    }
    EXPECT_EQ(entries(), (std::vector<std::string>{"d.bin", "dir"}));
}

// A closed standard input, in the program as main() runs it: the descriptor is kept from being
// reused by the files the command opens, and reading it is an error.
TEST_F(FatoolTest, AClosedStandardInputIsAReadError) {
    for (const char* command : {"encode", "scan"}) {
        SCOPED_TRACE(command);
        const int status = waitStatusOf([&] {
            const int out = open(path("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            const int err = open(path("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) return 101;
            close(out);
            close(err);
            close(STDIN_FILENO);  // last, so that no descriptor above takes its number
            const std::string scan = command;
            const char* argv[] = {"fatool", command, "-", "<rec>", "</rec>"};
            return fatool::runProcess(scan == "scan" ? 5 : 3, argv);
        });
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
        EXPECT_EQ(readFile(path("out")), "");
        EXPECT_EQ(readFile(path("err")), std::string("fatool: ") + command +
                                             ": standard input: read error: Bad file descriptor\n");
    }
}

// A new file made from standard input has the usual permissions, narrowed by the umask, as the
// shell's > would make it; a file it replaces keeps its own.
TEST_F(FatoolTest, ACopyOfStandardInputHasTheUsualPermissions) {
    writeFile("kept", "old");
    ASSERT_EQ(chmod(path("kept").c_str(), 0604), 0);
    const mode_t umaskBefore = umask(027);
    runCalls({
        {"copy - @new", 0, "", {}, false, "fresh"},
        {"copy - @kept", 0, "", {}, false, "replaced"},
        {"copy -n - @kept", 1, "", {"fatool: copy: " + path("kept") + ": it exists"}, false, "x"},
    });
    umask(umaskBefore);
    struct stat made, kept;
    ASSERT_EQ(stat(path("new").c_str(), &made), 0);
    ASSERT_EQ(stat(path("kept").c_str(), &kept), 0);
    EXPECT_EQ(made.st_mode & 07777, 0640u);
    EXPECT_EQ(kept.st_mode & 07777, 0604u);
    EXPECT_EQ(readFile(path("new")) + readFile(path("kept")), "freshreplaced");
}

// A pipe given by name cannot be read twice: the commands that seek say so in one line, and
// none of them waits for a writer. The scan of a <tag> never seeks: it reads the pipe.
TEST_F(FatoolTest, APipeByNameIsRefusedWhereTheCommandSeeks) {
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0644), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string records = "<r><a>1</a><a x='2'>2</a></r>";
    ASSERT_EQ(write(ends[1], records.data(), records.size()), static_cast<ssize_t>(records.size()));
    close(ends[1]);
    const std::string piped = "/dev/fd/" + std::to_string(ends[0]);
    const std::string seeks = ": not a regular file, and ";
    runCalls({
        {"scan @fifo [a a]", 1, "", {"fatool: scan: " + path("fifo") + seeks + "scan seeks"}},
        {"blocks @fifo 2", 1, "", {"fatool: blocks: " + path("fifo") + seeks}},
        {"block @fifo 2 0", 1, "", {"fatool: block: " + path("fifo") + seeks}},
        {"encode @fifo", 1, "", {"fatool: encode: " + path("fifo") + ": ", "FIFO"}},
        {"scan " + piped + " <a> </a>", 0, "<a>1</a>\n<a x='2'>2</a>\n"},
    });
    close(ends[0]);
}

// An output that is no regular file is written as a stream, as - is: a FIFO, /dev/null, and
// /dev/stdout (on a pipe it leads to no directory a new file could be made in).
TEST_F(FatoolTest, AnOutputThatIsNoRegularFileIsWrittenAsAStream) {
    writeFile("p.1.part", "ab");
    writeFile("p.2.part", "cd");
    writeFile("in.txt", "caf\xc3\xa9");
    const std::string utf16 = std::string("c\0a\0f\0\xe9\0", 8);
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0644), 0);
    struct Case {
        std::string line, out, streamed;
    };
    const std::vector<Case> cases = {
        {"join -d @ p @fifo", "joined 2 parts (4 bytes) into " + path("fifo") + "\n", "abcd"},
        {"convert @in.txt utf-8 @fifo utf-16le", "", utf16},
        {"join -d @ p /dev/null", "joined 2 parts (4 bytes) into /dev/null\n", ""},
        {"convert @in.txt utf-8 /dev/null utf-16le", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        // The reader is there first: the bytes wait in the pipe until they are read back.
        const int reader = open(path("fifo").c_str(), O_RDONLY | O_NONBLOCK);
        ASSERT_GE(reader, 0);
        runCalls({{c.line, 0, c.out}});
        char buf[64];
        const ssize_t got = read(reader, buf, sizeof buf);
        close(reader);
        EXPECT_EQ(std::string(buf, got > 0 ? static_cast<size_t>(got) : 0), c.streamed);
    }
    // /dev/stdout as a pipe, in a child whose standard output is one.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int status = waitStatusOf([&] {
        if (dup2(ends[1], STDOUT_FILENO) < 0) return 101;
        std::istringstream in;
        std::ostringstream out, err;
        return runLine("convert " + path("in.txt") + " utf-8 /dev/stdout utf-16le", in, out, err);
    });
    close(ends[1]);
    char buf[64];
    const ssize_t got = read(ends[0], buf, sizeof buf);
    close(ends[0]);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(std::string(buf, got > 0 ? static_cast<size_t>(got) : 0), utf16);
    EXPECT_EQ(entries(), (std::vector<std::string>{"fifo", "in.txt", "p.1.part", "p.2.part"}));
}

// info shows a link as a link, with its target, and follows it only with -L.
TEST_F(FatoolTest, InfoShowsLinksAsLinks) {
    writeFile("target.txt", "12345");
    ASSERT_EQ(symlink("target.txt", path("link").c_str()), 0);
    ASSERT_EQ(symlink("gone", path("dangling").c_str()), 0);
    ASSERT_EQ(symlink("loop2", path("loop1").c_str()), 0);
    ASSERT_EQ(symlink("loop1", path("loop2").c_str()), 0);
    runCalls({
        // A link that leads round in a circle cannot be resolved, and says so.
        {"info @loop1", 0, "type: symlink\ntarget: loop2\nunresolvable: ", {}, true},
        {"info @loop1", 0, "Too many levels of symbolic links\n", {}, true},
        {"info @link", 0, "type: symlink\ntarget: target.txt\n", {}, true},
        {"info -L @link", 0, "type: file\nsize: 5\n", {}, true},
        {"info @dangling", 0, "type: symlink\ntarget: gone\ndangling: yes\n", {}, true},
        {"info -L @dangling", 1, "", {"fatool: info: " + path("dangling") + ": no such file"}},
    });
}

}  // namespace

#endif
