// Comparing two files byte for byte: chunk boundaries, size shortcuts, failures to compare,
// and files that change while they are compared.
#include <cstdio>
#include <filesystem>
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/SysCalls.h"
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

TEST_F(CompareTest, ContentsAcrossChunkBoundaries) {
    struct Case {
        const char* what;
        std::string a;
        std::string b;
        bool equal;
    } cases[] = {
        {"two empty files", "", "", true},
        {"one byte differs", "x", "y", false},
        {"exactly one chunk", patternBytes(kChunk), patternBytes(kChunk), true},
        {"last byte of one chunk", patternBytes(kChunk), flipped(kChunk, kChunk - 1), false},
        {"first byte", patternBytes(kChunk), flipped(kChunk, 0), false},
        {"two chunks and a bit", patternBytes(2 * kChunk + 5), patternBytes(2 * kChunk + 5), true},
        {"first byte of second chunk", patternBytes(2 * kChunk + 5),
         flipped(2 * kChunk + 5, kChunk), false},
        {"last byte of the remainder", patternBytes(2 * kChunk + 5),
         flipped(2 * kChunk + 5, 2 * kChunk + 4), false},
        {"a megabyte, last byte", patternBytes(1 << 20), flipped(1 << 20, (1 << 20) - 1), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string a = writeFile("a", c.a), b = writeFile("b", c.b);
        EXPECT_EQ(equal(a, b), c.equal) << lastLog(fa);
        EXPECT_EQ(equal(b, a), c.equal) << lastLog(fa);
        // A difference is not a failure to compare: no error line.
        EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
    }
}

TEST_F(CompareTest, SamePathTwiceAndLoggedPaths) {
    std::string a = writeFile("a", patternBytes(3 * kChunk));
    ASSERT_CALL_OK(fa, equal(a, a));
    EXPECT_TRUE(fa.lastErrorLog().contains(a.c_str()));
    // No success/failure line for this method.
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

// Runs a hook before every read (read and pread alike) of the file layer.
class ReadHook {
  public:
    explicit ReadHook(void (*hook)(int call, int fd)) {
        s_hook = hook;
        s_calls = 0;
        sysCalls().read = [](int fd, void* p, size_t n) {
            s_hook(s_calls++, fd);
            return realSysCalls().read(fd, p, n);
        };
        sysCalls().pread = [](int fd, void* p, size_t n, off_t off) {
            s_hook(s_calls++, fd);
            return realSysCalls().pread(fd, p, n, off);
        };
    }
    ~ReadHook() {
        sysCalls().read = realSysCalls().read;
        sysCalls().pread = realSysCalls().pread;
    }

  private:
    static inline void (*s_hook)(int, int) = nullptr;
    static inline int s_calls = 0;
};

std::string g_a, g_b;

// Files that differ only behind the point where both are cut, or that grow during the
// comparison, must never compare equal.
TEST_F(CompareTest, FilesChangingSizeDuringTheComparisonAreNotEqual) {
    struct Case {
        const char* what;
        void (*hook)(int, int);
    } cases[] = {
        {"both cut to one chunk before the first read",
         [](int call, int) {
             if (call != 0) return;
             fs::resize_file(g_a, kChunk);
             fs::resize_file(g_b, kChunk);
         }},
        {"second cut short",
         [](int call, int) {
             if (call == 0) fs::resize_file(g_b, kChunk);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        g_a = writeFile("a", patternBytes(3 * kChunk));
        g_b = writeFile("b", flipped(3 * kChunk, 2 * kChunk + 9));
        ReadHook hook(c.hook);
        EXPECT_CALL_FAILS(fa, equal(g_a, g_b));
    }
}

int g_firstFd = -1;

TEST_F(CompareTest, FilesGrowingDuringTheComparisonAreNotEqual) {
    struct Case {
        const char* what;
        void (*hook)(int, int);
    } cases[] = {
        // Equal up to their old size, different behind it.
        {"both grow before the first read",
         [](int call, int) {
             if (call != 0) return;
             fs::resize_file(g_a, 5 * kChunk);
             fs::resize_file(g_b, 6 * kChunk);
         }},
        // The first file may already have been read to its old end when it grows.
        {"first grows once the second is being read",
         [](int, int fd) {
             if (g_firstFd < 0) g_firstFd = fd;
             if (fd == g_firstFd || fs::file_size(g_a) != 3 * kChunk) return;
             std::string more(kChunk, 'z');
             FILE* f = std::fopen(g_a.c_str(), "ab");
             std::fwrite(more.data(), 1, more.size(), f);
             std::fclose(f);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        g_a = writeFile("a", patternBytes(3 * kChunk));
        g_b = writeFile("b", patternBytes(3 * kChunk));
        g_firstFd = -1;
        ReadHook hook(c.hook);
        EXPECT_CALL_FAILS(fa, equal(g_a, g_b));
    }
}

}  // namespace
