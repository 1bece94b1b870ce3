// Block identifiers (zero-filled decimal text, encoded) and whole files read as encoded text.
// The encoders have their own suite; here the methods' contracts are checked.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "LogProbe.h"
#include "fileaccess/StreamBlocks.h"
#include "support/TestSupport.h"

namespace {

// The input of the tests of memory: large enough to stand out from the process's own.
constexpr size_t kLarge = size_t{48} << 20;

// The process's peak resident memory so far, in KiB.
long peakResidentKiB() {
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// A figure of the process's memory now, in bytes, from /proc/self/status ("VmSize:" for its
// address space, "VmRSS:" for what is resident); 0 where /proc does not tell.
uint64_t memoryFigure(const char* key) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(key, 0) == 0) return std::stoull(line.substr(std::strlen(key))) * 1024;
    return 0;
}

class BlockIdTest : public FileAccessTest {
  protected:
    // The identifier made, or "failed:" and what was left in the output on a false result.
    std::string genId(int index, int length, const char* encoding) {
        XString enc(encoding), id("stale");
        bool ok = fa.GenBlockId(index, length, enc, id);
        return std::string(ok ? "" : "failed:") + id.getUtf8();
    }
    // The three reads of MemoryTheOutputCannotHaveIsReportedByTheResult, in the child whose
    // memory is limited: 0 when each went as it should.
    int encodeShortOfMemory(XString& plain, XString& spaced) {
        int bits = 0;
        XString url("url"), hex("hex"), text;
        if (!fa.ReadBinaryToEncoded(plain, url, text)) bits |= 1;
        if (text.getSizeUtf8() != kLarge || text.getUtf8()[kLarge - 1] != 'a') bits |= 2;
        if (value("fileSize") != std::to_string(kLarge)) bits |= 4;
        text.clear();
        // The text of 96 MiB does not fit where the room reserved for half of it must grow.
        for (auto [file, enc] : {std::pair{&plain, &hex}, std::pair{&spaced, &url}}) {
            bits <<= 2;
            if (fa.ReadBinaryToEncoded(*file, *enc, text) || text.getSizeUtf8() != 0) bits |= 1;
            if (!fa.lastErrorLog().contains("Memory allocation failed.") || lastLine() != "Failed.")
                bits |= 2;
        }
        return bits;
    }
};

TEST_F(BlockIdTest, EveryIndexOfALengthFillsItExactly) {
    for (int length = 1, end = 10; length <= 4; ++length, end *= 10) {
        // end + i has one digit more than the length: drop it for i filled with zeros.
        for (int i = 0; i < end; ++i)
            ASSERT_EQ(genId(i, length, "ascii"), std::to_string(end + i).substr(1)) << lastLog(fa);
        EXPECT_EQ(genId(end, length, "ascii"), "failed:") << length;
    }
}

TEST_F(BlockIdTest, NegativeIndexesEncodingsAndRefusals) {
    struct Case {
        int index, length;
        const char *encoding, *out;
    } cases[] = {
        {-5, 4, "ascii", "00-5"},        {-1234, 5, "ascii", "-1234"},
        {-1234, 4, "ascii", "failed:"},  {-2147483647 - 1, 12, "ascii", "0-2147483648"},
        {1, 0, "ascii", "failed:"},      {1, -3, "ascii", "failed:"},
        {1234, 4, "base64", "MTIzNA=="}, {3, 2, "no-such", "failed:"},
    };
    for (const Case& c : cases) {
        std::string args =
            std::to_string(c.index) + " " + std::to_string(c.length) + " " + c.encoding;
        SCOPED_TRACE(args);
        std::string id = genId(c.index, c.length, c.encoding);
        EXPECT_EQ(id, c.out) << lastLog(fa);
        // A refusal logs the arguments and "Failed."; a success logs nothing.
        EXPECT_EQ(value("index") + " " + value("length") + " " + value("encoding") + " " +
                      std::to_string(errorCount()),
                  id == "failed:" ? args + " 1" : "<absent> <absent> <absent> 0");
    }
}

TEST_F(BlockIdTest, EncodedReadsFollowTheLoad) {
    struct Case {
        std::string file;  // "<missing>": no such file
        const char *encoding, *out, *fileSize;
    } cases[] = {
        {"foobar", "base64", "Zm9vYmFy", "6"},
        {std::string("\0\xff", 2), "HEX", "00FF", "2"},
        {"", "base64", "", "0"},
        // The bytes as they are, taken as C text: up to the first NUL.
        {std::string("ab\0cd", 5), "ascii", "ab", "5"},
        // The load decides the result: an unknown encoding gives true and nothing encoded.
        {"data", "no-such", "", "4"},
        {"<missing>", "base64", "", "<absent>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " of " + c.file);
        std::string f = c.file == "<missing>" ? path("missing") : writeFile("in.bin", c.file);
        XString p(f.c_str()), enc(c.encoding), text("stale");
        EXPECT_EQ(fa.ReadBinaryToEncoded(p, enc, text), c.file != "<missing>") << lastLog(fa);
        EXPECT_EQ(std::string(text.view()), c.out);
        EXPECT_EQ(value("fileSize"), c.fileSize);
        EXPECT_EQ(lastLine(), c.file != "<missing>" ? "Success." : "Failed.");
    }
}

// Files that end within 7 bytes of every edge between the read's blocks (whole groups of
// every encoding), in the usual blocks and in blocks of 30 bytes: the text of one encoding of
// the whole file. Line breaks and blanks are strewn so that quoted-printable's look-ahead
// crosses the edges.
TEST_F(BlockIdTest, EncodedReadsAtEveryBlockAndGroupEdge) {
    struct Blocks {
        explicit Blocks(unsigned bytes) { streamblocks::setEncodeBlockForTest(bytes); }
        ~Blocks() { streamblocks::setEncodeBlockForTest(0); }
    };
    for (unsigned wanted : {0u, 30u}) {
        Blocks blocks(wanted);
        const size_t block = streamblocks::encodeBlock(), edges = wanted ? 4 : 2;
        std::mt19937 rng(9);
        std::string bytes(edges * block + 8, '\0');
        for (char& c : bytes) c = rng() % 4 ? static_cast<char>(rng()) : " \r\n\t"[rng() % 4];
        // A blank that stays one across the first edge, a line break split by the second.
        bytes.replace(block - 1, 2, " x");
        bytes.replace(2 * block - 1, 2, "\r\n");
        for (size_t edge = 0; edge <= edges; ++edge) {
            for (size_t size = edge * block < 7 ? 0 : edge * block - 7; size <= edge * block + 7;
                 ++size) {
                const std::string content = bytes.substr(0, size);
                XString p = X(writeFile("in.bin", content));
                for (const char* name : {"hex", "base16", "hexlower", "base64", "base64url",
                                         "base32", "qp", "quoted-printable", "url", "ascii"}) {
                    SCOPED_TRACE(std::string(name) + " of " + std::to_string(size) +
                                 " bytes in blocks of " + std::to_string(block));
                    StringBuffer whole;
                    ASSERT_TRUE(bufferOf(content).encodeDB(name, whole));
                    // The bytes as they are end at the first NUL.
                    const std::string want = std::string(name) == "ascii"
                                                 ? whole.str().substr(0, whole.str().find('\0'))
                                                 : whole.str();
                    XString enc(name), text;
                    ASSERT_CALL_OK(fa, fa.ReadBinaryToEncoded(p, enc, text));
                    ASSERT_TRUE(text.getUtf8Sb().str() == want);
                    ASSERT_EQ(value("fileSize"), std::to_string(size));
                }
            }
        }
    }
}

// Files whose text would pass the 4,294,967,295 bytes one string holds, sparse so that they
// cost no disk (on a memory file system where there is one, where holes read fastest): each
// encoding of exact length gives its text up before it is begun, instead of growing an output
// it could never finish, and the read still decides the result and the size logged. The
// smallest sizes that pass the limit; ascii starts with text that would fit.
TEST_F(BlockIdTest, ATextTooLongForOneStringIsGivenUpAtOnce) {
    // The directory on the memory file system is not the fixture's: removed however the
    // test ends.
    struct OwnDir {
        std::string path;
        ~OwnDir() {
            if (!path.empty()) std::filesystem::remove_all(path);
        }
    } shm{makeDirOnOtherDevice(dir())};
    const std::string file = (shm.path.empty() ? dir() : shm.path) + "/big";
    struct Case {
        const char* encoding;
        uint64_t size;
    } cases[] = {
        {"hex", uint64_t{1} << 31},    {"hexlower", uint64_t{1} << 31},
        {"base16", uint64_t{1} << 31}, {"base32", 2684354556},
        {"base64", 3221225470},        {"base64url", 3221225472},
        {"ascii", uint64_t{1} << 32},
    };
    const long peakBefore = peakResidentKiB();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.encoding);
        int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ASSERT_GE(fd, 0);
        const bool made =
            write(fd, "abc", 3) == 3 && ftruncate(fd, static_cast<off_t>(c.size)) == 0;
        close(fd);
        ASSERT_TRUE(made);
        XString p = X(file), enc(c.encoding), text("stale");
        ASSERT_CALL_OK(fa, fa.ReadBinaryToEncoded(p, enc, text));
        EXPECT_EQ(text.getSizeUtf8(), 0u);
        EXPECT_EQ(value("fileSize"), std::to_string(c.size));
        EXPECT_EQ(lastLine(), "Success.");
    }
    // Blocks of the read, nothing that grows with the file.
    EXPECT_LT(peakResidentKiB() - peakBefore, 64 * 1024);
}

// Where memory is short: url, whose bound (every byte escaped) is three times its input,
// settles for the room its text takes and gives that text; hex, whose exact length cannot be
// had, and url whose text itself cannot fit, fail with a memory line and an empty output.
// Nothing is thrown. Run in a child whose address space is limited to a little more than it
// holds.
TEST_F(BlockIdTest, MemoryTheOutputCannotHaveIsReportedByTheResult) {
    if (FA_SANITIZED || memoryFigure("VmSize:") == 0)
        GTEST_SKIP() << "address space cannot be limited here";
    std::string blanks(kLarge, 'a');
    for (size_t i = 0; i < kLarge; i += 2) blanks[i] = ' ';
    XString plain = X(writeFile("plain.bin", std::string(kLarge, 'a')));
    XString spaced = X(writeFile("spaced.bin", blanks));
    blanks = std::string();
    const int failed = inChildProcess([&] {
        const struct rlimit lim = {memoryFigure("VmSize:") + (uint64_t{80} << 20), RLIM_INFINITY};
        if (setrlimit(RLIMIT_AS, &lim) != 0) return 100;
        // An emulator may take the limit and not apply it.
        constexpr size_t kBeyond = size_t{256} << 20;
        void* beyond = mmap(nullptr, kBeyond, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (beyond != MAP_FAILED) return munmap(beyond, kBeyond), 102;
        try {
            return encodeShortOfMemory(plain, spaced);
        } catch (...) {
            return 101;  // what the library must never let out
        }
    });
    if (failed == 102) GTEST_SKIP() << "the limit on the address space does not hold here";
    EXPECT_EQ(failed, 0);
}

// Url and quoted-printable reserve their bound, three times the input, though their text is
// often little longer than the input: the memory is made ready ahead of the encoder only as
// far as the text is sure to reach, so what becomes resident is about the text's own size.
TEST_F(BlockIdTest, OnlyTheMemoryTheTextFillsBecomesResident) {
    if (FA_SANITIZED || memoryFigure("VmRSS:") == 0)
        GTEST_SKIP() << "no figure of the library's own memory here";
    XString p = X(writeFile("in.bin", std::string(kLarge, 'a')));
    for (const char* name : {"url", "qp"}) {
        SCOPED_TRACE(name);
        const uint64_t before = memoryFigure("VmRSS:");
        XString enc(name), text;
        ASSERT_CALL_OK(fa, fa.ReadBinaryToEncoded(p, enc, text));
        ASSERT_GE(text.getSizeUtf8(), kLarge);
        EXPECT_LT(memoryFigure("VmRSS:") - before, text.getSizeUtf8() + (uint64_t{16} << 20));
    }
}

}  // namespace
