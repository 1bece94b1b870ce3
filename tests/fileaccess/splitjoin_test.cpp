// Splitting a file into numbered parts and joining them again: part names, part sizes,
// round trips, the logged values, and what is left on disk after each kind of failure.
#include <cerrno>
#include <filesystem>
#include <numeric>
#include <set>
#include <string>
#include <tuple>

#include "fileaccess/ClsFileAccess.h"
#include "support/ReadHook.h"
#include "support/SysCallOverride.h"
#include "support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

// Bytes that differ from one offset to the next, so a lost or repeated byte shows.
std::string patternBytes(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
    return s;
}

class SplitJoinTest : public TempDirTest {
  protected:
    bool split(const std::string& in, const char* prefix, const char* ext, int partSize,
               const std::string& destDir) {
        XString p(in.c_str()), pre(prefix), e(ext), d(destDir.c_str());
        return fa.SplitFile(p, pre, e, partSize, d);
    }
    bool join(const std::string& srcDir, const char* prefix, const char* ext,
              const std::string& out) {
        XString s(srcDir.c_str()), pre(prefix), e(ext), o(out.c_str());
        return fa.ReassembleFile(s, pre, e, o);
    }
    // The files of a directory, sorted, each as "name:size ".
    static std::string listing(const std::string& dir) {
        std::set<std::string> names;
        for (auto& e : fs::directory_iterator(dir))
            names.insert(e.path().filename().string() + ":" + std::to_string(e.file_size()) + " ");
        return std::accumulate(names.begin(), names.end(), std::string());
    }
    // The named values of the last call, the version line left out, as "name=value;".
    std::string logged() const {
        std::string s;
        for (auto& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name != "Version") s += e.name + "=" + e.text + ";";
        return s;
    }
    std::string makeDir(const std::string& name) {
        fs::create_directory(path(name));
        return path(name);
    }

    ClsFileAccess fa;
};

TEST_F(SplitJoinTest, PartNamesFollowPrefixAndNormalisedExtension) {
    // prefix, extension, the parts of a 10-byte file split by 4
    const char* cases[][3] = {
        {"part", ".bin", "part1.bin:4 part2.bin:4 part3.bin:2 "},
        {"p", "txt", "p1.txt:4 p2.txt:4 p3.txt:2 "},
        {"p", "  txt \t", "p1.txt:4 p2.txt:4 p3.txt:2 "},
        {"p", " .txt", "p1..txt:4 p2..txt:4 p3..txt:2 "},
        {"p", "", "p1.:4 p2.:4 p3.:2 "},
        {"p", ".", "p1.:4 p2.:4 p3.:2 "},
        {"  p  ", ".txt", "p1.txt:4 p2.txt:4 p3.txt:2 "},
        {"p", "..x", "p1..x:4 p2..x:4 p3..x:2 "},
    };
    const std::string in = writeFile("in.dat", patternBytes(10));
    int n = 0;
    for (const auto& [prefix, ext, parts] : cases) {
        SCOPED_TRACE(std::string("prefix '") + prefix + "' ext '" + ext + "'");
        const std::string dest = makeDir("d" + std::to_string(n++));
        ASSERT_CALL_OK(fa, split(in, prefix, ext, 4, dest));
        EXPECT_EQ(listing(dest), parts);
        // The same prefix and extension read the set back.
        ASSERT_CALL_OK(fa, join(dest, prefix, ext, path("joined")));
        EXPECT_EQ(readFile(path("joined")), patternBytes(10));
    }
}

TEST_F(SplitJoinTest, RoundTripGivesBackTheSameBytes) {
    // input size, part size, the parts made
    const std::tuple<size_t, int, const char*> cases[] = {
        {0, 300, ""},
        {0, 0, ""},
        {0, -1, ""},
        {1, 300, "p1.bin:1 "},
        {300, 300, "p1.bin:300 "},
        {900, 300, "p1.bin:300 p2.bin:300 p3.bin:300 "},
        {901, 300, "p1.bin:300 p2.bin:300 p3.bin:300 p4.bin:1 "},
        {3, 1, "p1.bin:1 p2.bin:1 p3.bin:1 "},
        // Parts larger than the copy buffer are filled over several chunks.
        {450001, 250000, "p1.bin:250000 p2.bin:200001 "},
        {400000, 200000, "p1.bin:200000 p2.bin:200000 "},
    };
    int n = 0;
    for (const auto& [size, partSize, parts] : cases) {
        SCOPED_TRACE("size " + std::to_string(size) + " partSize " + std::to_string(partSize));
        const std::string in = writeFile("in", patternBytes(size)), out = path("out");
        const std::string dest = makeDir("d" + std::to_string(n++));
        ASSERT_CALL_OK(fa, split(in, "p", "bin", partSize, dest));
        EXPECT_EQ(listing(dest), parts);
        // Joining nothing fails, leaving the output created and empty.
        EXPECT_EQ(join(dest, "p", ".bin", out), size > 0) << lastLog(fa);
        EXPECT_EQ(readFile(out), patternBytes(size));
    }
    // Reads and writes that move only a few bytes per call lose and invent nothing.
    const std::string in = writeFile("short", patternBytes(1000)), dest = makeDir("short.d");
    SysCallOverride ov;
    ov.limitTransfers(7);
    ASSERT_CALL_OK(fa, split(in, "p", "", 300, dest));
    ASSERT_CALL_OK(fa, join(dest, "p", "", path("short.out")));
    EXPECT_EQ(readFile(path("short.out")), patternBytes(1000));
    EXPECT_EQ(listing(dest), "p1.:300 p2.:300 p3.:300 p4.:100 ");
}

TEST_F(SplitJoinTest, SplitLogsItsValuesInOrder) {
    const std::string in = writeFile("in", patternBytes(700)), dest = makeDir("d");
    ASSERT_CALL_OK(fa, split(in, "p", ".x", 400, dest));
    const std::string p1 = dest + "/p1.x;", p2 = dest + "/p2.x;";
    EXPECT_EQ(logged(), "path=" + in + ";prefix=p;extension=.x;partSize=400;bufSize=200000;" +
                            "fileSize=700;outputFile=" + p1 + "nextPartPath=" + p1 +
                            "numBytesWritten=400;outputFile=" + p2 + "nextPartPath=" + p2 +
                            "numBytesWritten=300;");
    EXPECT_TRUE(fa.lastErrorLog().contains("Success."));
}

TEST_F(SplitJoinTest, SplitFailuresEndWithFalseAndLeaveWhatWasWritten) {
    const std::string in = writeFile("in", patternBytes(1000)), dest = makeDir("d");
    const std::pair<std::string, int> refused[] = {{in, 0}, {in, -5}, {path("missing"), 10}};
    for (const auto& [file, partSize] : refused) {
        SCOPED_TRACE(file + " by " + std::to_string(partSize));
        EXPECT_CALL_FAILS(fa, split(file, "p", "bin", partSize, dest));
        EXPECT_TRUE(fa.lastErrorLog().hasErrors());
        EXPECT_EQ(listing(dest), "");
    }
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed to open input file."));
    EXPECT_CALL_FAILS(fa, split(in, "p", "bin", 10, path("no/such/dir")));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed to open output file."));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed."));
    {
        SysCallOverride ov;
        ov.failNth(SysCallOverride::Write, 2, EIO, true);
        EXPECT_CALL_FAILS(fa, split(in, "p", "bin", 300, dest));
    }
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed to write output file."));
    EXPECT_EQ(listing(dest), "p1.bin:300 p2.bin:0 ");
    EXPECT_EQ(readFile(dest + "/p1.bin"), patternBytes(300));
    const std::string p2 = dest + "/p2.bin;";
    EXPECT_NE(logged().find("=300;outputFile=" + p2 + "nextPartPath=" + p2 + "numBytesWritten=0;"),
              std::string::npos)
        << logged();
}

// An input that shrinks while it is split: the parts hold exactly the bytes still there, and
// the split does not report success.
std::string g_shrinkPath;
TEST_F(SplitJoinTest, InputThatShrinksDuringTheSplitIsNotPadded) {
    g_shrinkPath = writeFile("in", patternBytes(1000));
    const std::string dest = makeDir("d");
    {
        ReadHook hook([](int call, int) {
            if (call == 1) fs::resize_file(g_shrinkPath, 450);
        });
        EXPECT_CALL_FAILS(fa, split(g_shrinkPath, "p", "bin", 300, dest));
    }
    ASSERT_CALL_OK(fa, join(dest, "p", "bin", path("out")));
    EXPECT_EQ(readFile(path("out")), patternBytes(450));
}

TEST_F(SplitJoinTest, ReassemblyStopsAtTheFirstMissingPart) {
    const std::string dest = makeDir("d");
    for (const char* part : {"1:one-", "2:two-", "3:three", "5:five"})
        writeFile(std::string("d/p") + part[0] + ".bin", part + 2);
    ASSERT_CALL_OK(fa, join(dest, " p ", "bin", path("out")));
    EXPECT_EQ(readFile(path("out")), "one-two-three");
    EXPECT_EQ(logged(), "srcDirPath=" + dest +
                            ";prefix= p ;splitExtension=bin;outFilePath=" + path("out") + ";");
    // Without part 1 nothing is joined: false and an emptied output file.
    fs::remove(dest + "/p1.bin");
    EXPECT_CALL_FAILS(fa, join(dest, "p", "bin", path("out")));
    EXPECT_EQ(readFile(path("out")), "");
    EXPECT_CALL_FAILS(fa, join(dest, "p", "bin", path("missing/out")));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed."));
}

}  // namespace
