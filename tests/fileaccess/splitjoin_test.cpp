// Splitting a file into numbered parts and joining them again: part names, part sizes,
// round trips, the logged values, and what is left on disk after each kind of failure.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/SysCalls.h"
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
    // Names of the regular files in a directory, sorted.
    static std::vector<std::string> filesIn(const std::string& dir) {
        std::vector<std::string> names;
        for (auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    // Names of the named values the method logged, the version line left out.
    std::vector<std::string> loggedNames() const {
        std::vector<std::string> out;
        for (auto& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name != "Version") out.push_back(e.name);
        return out;
    }
    std::vector<std::string> loggedValues(const char* name) const {
        std::vector<std::string> out;
        for (auto& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name == name) out.push_back(e.text);
        return out;
    }
    std::string makeDir(const char* name) {
        fs::create_directory(path(name));
        return path(name);
    }

    ClsFileAccess fa;
};

TEST_F(SplitJoinTest, PartNamesFollowPrefixAndNormalisedExtension) {
    struct Case {
        const char* prefix;
        const char* ext;
        const char* firstPart;
    } cases[] = {
        {"part", ".bin", "part1.bin"}, {"p", "txt", "p1.txt"}, {"p", "  txt \t", "p1.txt"},
        {"p", " .txt", "p1..txt"},     {"p", "", "p1."},       {"p", ".", "p1."},
        {"  p  ", ".txt", "p1.txt"},   {"p", "..x", "p1..x"},
    };
    std::string in = writeFile("in.dat", patternBytes(10));
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string("prefix '") + c.prefix + "' ext '" + c.ext + "'");
        std::string dest = makeDir(("d" + std::to_string(n++)).c_str());
        ASSERT_CALL_OK(fa, split(in, c.prefix, c.ext, 4, dest));
        std::string first = c.firstPart;
        std::string stem = first.substr(0, first.find('1'));
        std::string tail = first.substr(first.find('1') + 1);
        EXPECT_EQ(filesIn(dest), (std::vector<std::string>{stem + "1" + tail, stem + "2" + tail,
                                                           stem + "3" + tail}));
        EXPECT_EQ(readFile(dest + "/" + first), patternBytes(4));
        // The same prefix and extension read the set back.
        ASSERT_CALL_OK(fa, join(dest, c.prefix, c.ext, dest + "/joined"));
        EXPECT_EQ(readFile(dest + "/joined"), patternBytes(10));
    }
}

TEST_F(SplitJoinTest, RoundTripGivesBackTheSameBytes) {
    struct Case {
        size_t size;
        int partSize;
        std::vector<size_t> parts;
    } cases[] = {
        {1, 300, {1}},
        {300, 300, {300}},
        {900, 300, {300, 300, 300}},
        {901, 300, {300, 300, 300, 1}},
        {50, 1000, {50}},
        {7, 1, {1, 1, 1, 1, 1, 1, 1}},
        // Parts larger than the copy buffer are filled over several chunks.
        {450001, 250000, {250000, 200001}},
        {400000, 200000, {200000, 200000}},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE("size " + std::to_string(c.size) + " partSize " + std::to_string(c.partSize));
        std::string in = writeFile("in" + std::to_string(n), patternBytes(c.size));
        std::string dest = makeDir(("d" + std::to_string(n++)).c_str());
        ASSERT_CALL_OK(fa, split(in, "part", "bin", c.partSize, dest));
        ASSERT_EQ(filesIn(dest).size(), c.parts.size());
        for (size_t i = 0; i < c.parts.size(); ++i)
            EXPECT_EQ(fs::file_size(dest + "/part" + std::to_string(i + 1) + ".bin"), c.parts[i])
                << "part " << i + 1;
        ASSERT_CALL_OK(fa, join(dest, "part", ".bin", dest + "/whole"));
        EXPECT_EQ(readFile(dest + "/whole"), patternBytes(c.size));
    }
    // Reads and writes that move only a few bytes per call lose and invent nothing.
    std::string in = writeFile("short", patternBytes(1000)), dest = makeDir("short.d");
    SysCallOverride ov;
    ov.limitTransfers(7);
    ASSERT_CALL_OK(fa, split(in, "p", "", 300, dest));
    ASSERT_CALL_OK(fa, join(dest, "p", "", path("short.out")));
    EXPECT_EQ(readFile(path("short.out")), patternBytes(1000));
    EXPECT_EQ(fs::file_size(dest + "/p4."), 100u);
}

TEST_F(SplitJoinTest, EmptyInputMakesNoPartAndJoiningNothingFails) {
    std::string in = writeFile("empty", "");
    std::string dest = makeDir("d");
    for (int partSize : {300, 0, -1}) {
        SCOPED_TRACE(partSize);
        ASSERT_CALL_OK(fa, split(in, "p", "bin", partSize, dest));
        EXPECT_TRUE(filesIn(dest).empty());
        EXPECT_EQ(loggedValues("fileSize"), std::vector<std::string>{"0"});
    }
    EXPECT_CALL_FAILS(fa, join(dest, "p", "bin", dest + "/out"));
    EXPECT_EQ(readFile(dest + "/out"), "");  // created, left empty
}

TEST_F(SplitJoinTest, SplitLogsItsValuesInOrder) {
    std::string in = writeFile("in", patternBytes(700));
    std::string dest = makeDir("d");
    ASSERT_CALL_OK(fa, split(in, "p", ".x", 400, dest));
    EXPECT_EQ(loggedNames(),
              (std::vector<std::string>{"path", "prefix", "extension", "partSize", "bufSize",
                                        "fileSize", "outputFile", "nextPartPath", "numBytesWritten",
                                        "outputFile", "nextPartPath", "numBytesWritten"}));
    EXPECT_EQ(loggedValues("extension"), std::vector<std::string>{".x"});  // as passed
    EXPECT_EQ(loggedValues("bufSize"), std::vector<std::string>{"200000"});
    EXPECT_EQ(loggedValues("fileSize"), std::vector<std::string>{"700"});
    EXPECT_EQ(loggedValues("nextPartPath"),
              (std::vector<std::string>{dest + "/p1.x", dest + "/p2.x"}));
    EXPECT_EQ(loggedValues("numBytesWritten"), (std::vector<std::string>{"400", "300"}));
    EXPECT_TRUE(fa.lastErrorLog().contains("Success."));
}

TEST_F(SplitJoinTest, SplitFailuresEndWithFalseAndLeaveWhatWasWritten) {
    std::string in = writeFile("in", patternBytes(100));
    std::string dest = makeDir("d");
    for (int partSize : {0, -5}) {
        SCOPED_TRACE(partSize);
        EXPECT_CALL_FAILS(fa, split(in, "p", "bin", partSize, dest));
        EXPECT_TRUE(fa.lastErrorLog().hasErrors());
        EXPECT_TRUE(filesIn(dest).empty());
    }
    EXPECT_CALL_FAILS(fa, split(path("missing"), "p", "bin", 10, dest));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed to open input file."));
    EXPECT_TRUE(filesIn(dest).empty());

    EXPECT_CALL_FAILS(fa, split(in, "p", "bin", 10, path("no/such/dir")));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed to open output file."));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed."));
}

// Runs a hook before every read (read and pread alike) of the file layer.
class ReadHook {
  public:
    explicit ReadHook(void (*hook)(int call)) {
        s_hook = hook;
        s_calls = 0;
        sysCalls().read = [](int fd, void* p, size_t n) {
            s_hook(s_calls++);
            return realSysCalls().read(fd, p, n);
        };
        sysCalls().pread = [](int fd, void* p, size_t n, off_t off) {
            s_hook(s_calls++);
            return realSysCalls().pread(fd, p, n, off);
        };
    }
    ~ReadHook() {
        sysCalls().read = realSysCalls().read;
        sysCalls().pread = realSysCalls().pread;
    }

  private:
    static inline void (*s_hook)(int) = nullptr;
    static inline int s_calls = 0;
};

TEST_F(SplitJoinTest, FailedWriteInOnePartStopsTheSplit) {
    std::string in = writeFile("in", patternBytes(1000));
    std::string dest = makeDir("d");
    {
        SysCallOverride ov;
        ov.failNth(SysCallOverride::Write, 2, EIO, true);
        EXPECT_CALL_FAILS(fa, split(in, "p", "bin", 300, dest));
    }
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed to write output file."));
    EXPECT_EQ(filesIn(dest), (std::vector<std::string>{"p1.bin", "p2.bin"}));
    EXPECT_EQ(readFile(dest + "/p1.bin"), patternBytes(300));
    EXPECT_EQ(loggedValues("numBytesWritten"), (std::vector<std::string>{"300", "0"}));
}

// Shrinks the input file while it is being split: the parts must hold exactly the bytes
// that were still there, and the split must not report success.
std::string g_shrinkPath;
TEST_F(SplitJoinTest, InputThatShrinksDuringTheSplitIsNotPadded) {
    std::string in = writeFile("in", patternBytes(1000));
    std::string dest = makeDir("d");
    g_shrinkPath = in;
    {
        ReadHook hook([](int call) {
            if (call == 1) fs::resize_file(g_shrinkPath, 450);
        });
        EXPECT_CALL_FAILS(fa, split(in, "p", "bin", 300, dest));
    }
    std::string joined;
    for (const std::string& name : filesIn(dest)) joined += readFile(dest + "/" + name);
    EXPECT_EQ(joined, patternBytes(450));
    EXPECT_TRUE(fa.lastErrorLog().hasErrors());
}

TEST_F(SplitJoinTest, ReassemblyStopsAtTheFirstMissingPart) {
    std::string dest = makeDir("d");
    writeFile("d/p1.bin", "one-");
    writeFile("d/p2.bin", "two-");
    writeFile("d/p3.bin", "three");
    writeFile("d/p5.bin", "five");
    ASSERT_CALL_OK(fa, join(dest, " p ", "bin", path("out")));
    EXPECT_EQ(readFile(path("out")), "one-two-three");
    EXPECT_EQ(loggedNames(),
              (std::vector<std::string>{"srcDirPath", "prefix", "splitExtension", "outFilePath"}));

    // Without part 1 nothing is joined: false and an empty output file.
    fs::remove(dest + "/p1.bin");
    writeFile("out", "old content");
    EXPECT_CALL_FAILS(fa, join(dest, "p", "bin", path("out")));
    EXPECT_EQ(readFile(path("out")), "");

    EXPECT_CALL_FAILS(fa, join(dest, "p", "bin", path("missing/out")));
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed."));
}

}  // namespace
