// Splitting a file into numbered parts and joining them again: part names, part sizes,
// round trips, the logged values, and what is left on disk after each kind of failure.
#include <cerrno>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <tuple>

#include "LogProbe.h"
#include "support/ReadHook.h"
#include "support/SysCallOverride.h"

namespace {

namespace fs = std::filesystem;

// Bytes that differ from one offset to the next, so a lost or repeated byte shows.
std::string patternBytes(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
    return s;
}

class SplitJoinTest : public FileAccessTest {
  protected:
    bool split(std::string in, const char* prefix, const char* ext, int size, std::string dir) {
        XString p(in.c_str()), pre(prefix), e(ext), d(dir.c_str());
        return fa.SplitFile(p, pre, e, size, d);
    }
    bool join(std::string dir, const char* prefix, const char* ext, std::string out) {
        XString d(dir.c_str()), pre(prefix), e(ext), o(out.c_str());
        return fa.ReassembleFile(d, pre, e, o);
    }
    // The files of a directory, sorted, each as "name:size ".
    static std::string listing(const std::string& dir) {
        std::set<std::string> names;
        for (auto& e : fs::directory_iterator(dir))
            names.insert(e.path().filename().string() + ":" + std::to_string(e.file_size()) + " ");
        std::string s;
        for (const std::string& n : names) s += n;
        return s;
    }
    // The named values of the last call, the version line left out, as "name=value;".
    std::string logged() const {
        std::string s;
        for (auto& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name != "Version") s += e.name + "=" + e.text + ";";
        return s;
    }
    // A fresh directory's path ("" if it was there already).
    std::string makeDir(const std::string& name) {
        return fs::create_directory(path(name)) ? path(name) : "";
    }
};

TEST_F(SplitJoinTest, PartNamesAndRoundTrips) {
    struct Case {
        const char *prefix, *ext, *parts;  // parts: the files made
        size_t size;
        int partSize, limit = 0;  // limit: most bytes a read or write moves, when not 0
    } cases[] = {
        // The extension gets one leading dot unless it has one; both are trimmed.
        {"part", ".bin", "part1.bin:4 part2.bin:4 part3.bin:2 ", 10, 4},
        {"p", "  txt \t", "p1.txt:3 ", 3, 4},
        {"p", " .txt", "p1..txt:3 ", 3, 4},
        {"p", "", "p1.:3 ", 3, 4},
        {"  p  ", ".txt", "p1.txt:3 ", 3, 4},
        // An empty input makes no part, whatever the part size; joining nothing fails.
        {"p", "bin", "", 0, 0},
        {"p", "bin", "p1.bin:1 ", 1, 300},
        {"p", "bin", "p1.bin:300 p2.bin:300 p3.bin:300 p4.bin:1 ", 901, 300},
        // Reads and writes that move only a few bytes per call lose and invent nothing.
        {"p", "", "p1.:300 p2.:300 p3.:300 p4.:100 ", 1000, 300, 7},
        // Parts larger than the copy buffer are filled over several chunks.
        {"p", "bin", "p1.bin:250000 p2.bin:200001 ", 450001, 250000},
        {"p", "bin", "p1.bin:200000 p2.bin:200000 ", 400000, 200000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(&c - cases) + ": '" + c.prefix + "' '" + c.ext + "'");
        const std::string in = writeFile("in", patternBytes(c.size)), out = path("out");
        // Appended, not "d" + ...: GCC 12 at -O3 warns falsely (-Wrestrict) about the latter.
        const std::string dest = makeDir(std::string("d").append(std::to_string(&c - cases)));
        SysCallOverride ov;
        if (c.limit) ov.limitTransfers(c.limit);
        ASSERT_CALL_OK(fa, split(in, c.prefix, c.ext, c.partSize, dest));
        EXPECT_EQ(listing(dest), c.parts);
        // The same prefix and extension read the set back; nothing to join leaves an empty file.
        EXPECT_EQ(join(dest, c.prefix, c.ext, out), c.size > 0) << lastLog(fa);
        EXPECT_EQ(readFile(out), patternBytes(c.size));
    }
}

TEST_F(SplitJoinTest, SplitFailuresEndWithFalseAndLeaveWhatWasWritten) {
    const std::string in = writeFile("in", patternBytes(1000)), dest = makeDir("d");
    const std::tuple<std::string, int, std::string, const char*> refused[] = {
        {in, 0, dest, "The part size must be at least 1 byte."},
        {path("missing"), 10, dest, "Failed to open input file."},
        {in, 10, path("no/such/dir"), "Failed to open output file."},
    };
    for (const auto& [file, partSize, destDir, error] : refused) {
        SCOPED_TRACE(file + " by " + std::to_string(partSize) + " into " + destDir);
        EXPECT_CALL_FAILS(fa, split(file, "p", "bin", partSize, destDir));
        EXPECT_TRUE(fa.lastErrorLog().contains(error)) << lastLog(fa);
        EXPECT_EQ(listing(dest), "");
    }
    // A write that fails keeps the parts written so far, the failing one included; the values
    // are logged in order, each part's as it is made.
    SysCallOverride ov;
    ov.failNth(SysCallOverride::Write, 2, EIO, true);
    EXPECT_CALL_FAILS(fa, split(in, "p", "bin", 300, dest));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed to write output file."));
    EXPECT_EQ(listing(dest), "p1.bin:300 p2.bin:0 ");
    const std::string p1 = dest + "/p1.bin;", p2 = dest + "/p2.bin;";
    EXPECT_EQ(logged(), "path=" + in + ";prefix=p;extension=bin;partSize=300;bufSize=200000;" +
                            "fileSize=1000;outputFile=" + p1 + "nextPartPath=" + p1 +
                            "numBytesWritten=300;outputFile=" + p2 + "nextPartPath=" + p2 +
                            "numBytesWritten=0;");
}

// An input that shrinks while it is split: the parts hold exactly the bytes still there, and
// the split does not report success.
std::string g_shrinkPath;
TEST_F(SplitJoinTest, InputThatShrinksDuringTheSplitIsNotPadded) {
    g_shrinkPath = writeFile("in", patternBytes(1000));
    const std::string dest = makeDir("d");
    ReadHook hook([](int call, int) {
        if (call == 1) fs::resize_file(g_shrinkPath, 450);
    });
    EXPECT_CALL_FAILS(fa, split(g_shrinkPath, "p", "bin", 300, dest));
    ASSERT_CALL_OK(fa, join(dest, "p", "bin", path("out")));
    EXPECT_EQ(readFile(path("out")), patternBytes(450));
}

TEST_F(SplitJoinTest, ReassemblyStopsAtTheFirstMissingPart) {
    const std::string dest = makeDir("d"), out = path("out");
    for (const char* part : {"1:one-", "2:two-", "3:three", "5:five"})
        writeFile(std::string("d/p") + part[0] + ".bin", part + 2);
    ASSERT_CALL_OK(fa, join(dest, " p ", "bin", out));
    EXPECT_EQ(readFile(out), "one-two-three");
    EXPECT_EQ(logged(),
              "srcDirPath=" + dest + ";prefix= p ;splitExtension=bin;outFilePath=" + out + ";");
    // Without part 1 nothing is joined: false and an emptied output file.
    fs::remove(dest + "/p1.bin");
    EXPECT_CALL_FAILS(fa, join(dest, "p", "bin", out));
    EXPECT_EQ(readFile(out), "");
}

// A part that is the input of a split, or a reassembly's output that is one of its parts,
// whatever name reaches it, is refused before anything is read, written or emptied.
TEST_F(SplitJoinTest, APartThatIsTheInputOrOutputIsRefused) {
    const std::string d = makeDir("d"), in = writeFile("in", patternBytes(1000));
    for (const char* part : {"1:one-", "2:two-", "3:three"})
        writeFile(std::string("d/q") + part[0] + ".bin", part + 2);
    fs::create_hard_link(in, d + "/p2.bin");
    fs::create_symlink(d + "/q2.bin", path("toPart2"));
    fs::create_hard_link(d + "/q3.bin", path("linkedPart3"));
    fs::create_symlink(d + "/q4.bin", path("toPart4"));
    const struct {
        const char* what;
        std::function<bool()> call;
        const char* refusal;
    } cases[] = {
        {"split whose first part is its input",
         [&] { return split(d + "/q1.bin", "q", "bin", 3, d); }, "is the file being split."},
        {"split whose second part is its input", [&] { return split(in, "p", "bin", 300, d); },
         "is the file being split."},
        {"join into its first part", [&] { return join(d, "q", "bin", d + "/q1.bin"); }, "itself."},
        {"join through a link to a part", [&] { return join(d, "q", "bin", path("toPart2")); },
         "itself."},
        {"join into a second name of a part",
         [&] { return join(d, "q", "bin", path("linkedPart3")); }, "itself."},
        // Made there, the output would become a fourth part of the set.
        {"join into the next part, not there yet",
         [&] { return join(d, "q", "bin", path("d/../d/q4.bin")); }, "itself."},
        {"join through a link to the next part",
         [&] { return join(d, "q", "bin", path("toPart4")); }, "itself."},
    };
    const std::string before = listing(d);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_CALL_FAILS(fa, c.call());
        EXPECT_NE(lastLog(fa).find(c.refusal), std::string::npos) << lastLog(fa);
        EXPECT_EQ(listing(d), before);
        EXPECT_EQ(readFile(d + "/q1.bin") + readFile(d + "/q2.bin") + readFile(d + "/q3.bin") +
                      readFile(in),
                  "one-two-three" + patternBytes(1000));
    }
}

}  // namespace
