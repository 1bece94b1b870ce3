// Comparing two files byte for byte: chunk boundaries, size shortcuts, failures to compare,
// and files that change while they are compared.
#include <filesystem>
#include <string>
#include <tuple>

#include "LogProbe.h"
#include "support/ReadHook.h"
#include "support/SysCallOverride.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kChunk = 16384;

// Bytes that differ from one offset to the next; with `flipAt` in range that byte is changed.
std::string patternBytes(size_t n, size_t flipAt = SIZE_MAX) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + i / 509) & 0xFF);
    if (flipAt < n) s[flipAt] = static_cast<char>(s[flipAt] ^ 0x5A);
    return s;
}

class CompareTest : public FileAccessTest {
  protected:
    bool equal(const std::string& a, const std::string& b) {
        XString x(a.c_str()), y(b.c_str());
        return fa.FileContentsEqual(x, y);
    }
};

// A difference is an answer, not a failure to compare: no error line either way.
TEST_F(CompareTest, ContentsAcrossChunkBoundaries) {
    // Every size against a copy flipped at each chunk edge; an offset past the end flips nothing.
    for (size_t size : {size_t{0}, size_t{1}, kChunk, 2 * kChunk + 5, size_t{1} << 20}) {
        for (size_t at : {size_t{0}, kChunk - 1, kChunk, 2 * kChunk + 4, size - 1, SIZE_MAX}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, flipped at " + std::to_string(at));
            const std::string a = writeFile("a", patternBytes(size));
            const std::string b = writeFile("b", patternBytes(size, at));
            EXPECT_EQ(equal(a, b), at >= size) << lastLog(fa);
            EXPECT_EQ(equal(b, a), at >= size) << lastLog(fa);
            EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
        }
    }
    // The same path twice; the paths are logged, and no success/failure line is written.
    const std::string a = writeFile("a", patternBytes(3 * kChunk));
    ASSERT_CALL_OK(fa, equal(a, a));
    EXPECT_TRUE(fa.lastErrorLog().contains(a.c_str()));
    EXPECT_FALSE(fa.lastErrorLog().contains("Success."));
}

// Different sizes, and a missing file, are answered by the size test without opening a file.
TEST_F(CompareTest, SizeTestAnswersWithoutOpeningEitherFile) {
    std::string a = writeFile("a", "ab"), b = writeFile("b", "abc"), m = path("missing");
    for (auto [x, y, sizesDiffer] : {std::tuple{a, b, true}, {a, m, false}, {m, a, false}}) {
        SCOPED_TRACE(x + " / " + y);
        SysCallOverride ov;
        EXPECT_CALL_FAILS(fa, equal(x, y));
        EXPECT_EQ(ov.calls(SysCallOverride::Open), 0);
        EXPECT_EQ(fa.lastErrorLog().contains("File sizes are different."), sizesDiffer);
        // Different sizes are an answer, told as information; a missing file is an error.
        EXPECT_EQ(fa.lastErrorLog().hasErrors(), !sizesDiffer);
    }
}

std::string g_a, g_b;
size_t g_newA, g_newB;  // sizes the files are given at the first read; 0 leaves one alone
int g_firstFd;

void resizeAtFirstRead(int call, int) {
    if (call == 0 && g_newA) fs::resize_file(g_a, g_newA);
    if (call == 0 && g_newB) fs::resize_file(g_b, g_newB);
}

// The first file grows once it has been read and the second file is being read.
void growFirstAfterItsEnd(int, int fd) {
    if (g_firstFd < 0) g_firstFd = fd;
    if (fd != g_firstFd && fs::file_size(g_a) == 3 * kChunk) fs::resize_file(g_a, 4 * kChunk);
}

// Files that change size while they are compared must never compare equal: both cut to
// what is equal in them, one cut short, both grown by different amounts, or the first grown
// once it has been read to its old end.
TEST_F(CompareTest, FilesChangingSizeDuringTheComparisonAreNotEqual) {
    // whether the files differ in their common part, the sizes given at the first read, the hook
    const std::tuple<bool, size_t, size_t, void (*)(int, int)> cases[] = {
        {true, kChunk, kChunk, resizeAtFirstRead},
        {true, 0, kChunk, resizeAtFirstRead},
        {false, 5 * kChunk, 6 * kChunk, resizeAtFirstRead},
        {false, 0, 0, growFirstAfterItsEnd},
    };
    for (const auto& [differ, newA, newB, hook] : cases) {
        SCOPED_TRACE(std::to_string(newA) + " / " + std::to_string(newB));
        g_a = writeFile("a", patternBytes(3 * kChunk));
        g_b = writeFile("b", patternBytes(3 * kChunk, differ ? 2 * kChunk + 9 : SIZE_MAX));
        g_newA = newA, g_newB = newB, g_firstFd = -1;
        ReadHook h(hook);
        EXPECT_CALL_FAILS(fa, equal(g_a, g_b));
    }
}

}  // namespace
