// Comparing two files byte for byte: chunk boundaries, size shortcuts, failures to compare,
// and files that change while they are compared.
#include <filesystem>
#include <fstream>
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "support/ReadHook.h"
#include "support/SysCallOverride.h"
#include "support/TestSupport.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kChunk = 16384;

std::string patternBytes(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + i / 509) & 0xFF);
    return s;
}

// The pattern with the byte at `at` flipped.
std::string flipped(size_t n, size_t at) {
    std::string s = patternBytes(n);
    s[at] = static_cast<char>(s[at] ^ 0x5A);
    return s;
}

class CompareTest : public TempDirTest {
  protected:
    bool equal(const std::string& a, const std::string& b) {
        XString x(a.c_str()), y(b.c_str());
        return fa.FileContentsEqual(x, y);
    }
    ClsFileAccess fa;
};

// A difference is an answer, not a failure to compare: no error line either way.
TEST_F(CompareTest, ContentsAcrossChunkBoundaries) {
    // size of both files, offset of the byte flipped in the second (-1: none)
    const std::pair<size_t, long> cases[] = {{0, -1},
                                             {1, 0},
                                             {kChunk, -1},
                                             {kChunk, kChunk - 1},
                                             {kChunk, 0},
                                             {2 * kChunk + 5, -1},
                                             {2 * kChunk + 5, kChunk},
                                             {2 * kChunk + 5, 2 * kChunk + 4},
                                             {1 << 20, (1 << 20) - 1}};
    for (const auto& [size, at] : cases) {
        SCOPED_TRACE(std::to_string(size) + " bytes, flipped at " + std::to_string(at));
        const std::string a = writeFile("a", patternBytes(size));
        const std::string b = writeFile("b", at < 0 ? patternBytes(size) : flipped(size, at));
        EXPECT_EQ(equal(a, b), at < 0) << lastLog(fa);
        EXPECT_EQ(equal(b, a), at < 0) << lastLog(fa);
        EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
    }
    // The same path twice; the paths are logged, and no success/failure line is written.
    const std::string a = writeFile("a", patternBytes(3 * kChunk));
    ASSERT_CALL_OK(fa, equal(a, a));
    EXPECT_TRUE(fa.lastErrorLog().contains(a.c_str()));
    EXPECT_FALSE(fa.lastErrorLog().contains("Success."));
}

TEST_F(CompareTest, DifferentSizesAreToldApartWithoutOpeningEitherFile) {
    std::string a = writeFile("a", patternBytes(kChunk));
    std::string b = writeFile("b", patternBytes(kChunk + 1));
    {
        SysCallOverride ov;
        EXPECT_CALL_FAILS(fa, equal(a, b));
        EXPECT_EQ(ov.calls(SysCallOverride::Open), 0);
    }
    EXPECT_TRUE(fa.lastErrorLog().contains("File sizes are different."));
    EXPECT_FALSE(fa.lastErrorLog().hasErrors());  // an information line, not an error

    // A missing file fails at the size test, also without opening the other one.
    for (auto [x, y] : {std::pair{a, path("missing")}, std::pair{path("missing"), a}}) {
        SysCallOverride ov;
        EXPECT_CALL_FAILS(fa, equal(x, y));
        EXPECT_EQ(ov.calls(SysCallOverride::Open), 0);
        EXPECT_FALSE(fa.lastErrorLog().contains("File sizes are different."));
    }
}

std::string g_a, g_b;

int g_firstFd = -1;

// Files that change size while they are compared must never compare equal: both cut to
// what is equal in them, one cut short, both grown by different amounts, or the first grown
// once it has been read to its old end.
TEST_F(CompareTest, FilesChangingSizeDuringTheComparisonAreNotEqual) {
    using Hook = void (*)(int, int);
    const std::pair<bool, Hook> cases[] = {
        // whether the files differ; the hook
        {true,
         [](int call, int) {
             if (call == 0) fs::resize_file(g_a, kChunk), fs::resize_file(g_b, kChunk);
         }},
        {true,
         [](int call, int) {
             if (call == 0) fs::resize_file(g_b, kChunk);
         }},
        {false,
         [](int call, int) {
             if (call == 0) fs::resize_file(g_a, 5 * kChunk), fs::resize_file(g_b, 6 * kChunk);
         }},
        {false,
         [](int, int fd) {
             if (g_firstFd < 0) g_firstFd = fd;
             if (fd == g_firstFd || fs::file_size(g_a) != 3 * kChunk) return;
             std::ofstream(g_a, std::ios::app | std::ios::binary) << std::string(kChunk, 'z');
         }},
    };
    int n = 0;
    for (const auto& [differ, hook] : cases) {
        SCOPED_TRACE(n++);
        g_a = writeFile("a", patternBytes(3 * kChunk));
        g_b =
            writeFile("b", differ ? flipped(3 * kChunk, 2 * kChunk + 9) : patternBytes(3 * kChunk));
        g_firstFd = -1;
        ReadHook h(hook);
        EXPECT_CALL_FAILS(fa, equal(g_a, g_b));
    }
}

}  // namespace
