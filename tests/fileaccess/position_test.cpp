// The current file's position against a plain descriptor. Chosen sequences of seeks, reads,
// block reads, record scans, writes, appends and truncation, with the file grown, shrunk or
// written from outside between steps, run on the object and on a copy of the file opened
// with open(2). The copy is driven by lseek, read, write and ftruncate alone, its record scan
// by whole 65,536-byte chunk reads and relative seeks. After every step both sides must give
// the same result and bytes, the same end-of-file flag, and equal files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "fileaccess/LogProbe.h"
#include "foundation/fs/SysCalls.h"
#include "support/SysCallOverride.h"

namespace {

constexpr long long kChunk = 65536;

// An offset given as a share (per mille) of the file's size when the step runs, plus bytes.
struct At {
    int permille = 0;
    long long plus = 0;
    long long of(long long size) const { return size * permille / 1000 + plus; }
};

enum class Op {
    Seek,
    Read,
    Block,
    NumBlocks,
    Next,
    Scan,
    Write,
    Append,
    Truncate,
    Grow,
    Shrink,
    Poke
};

struct Step {
    Op op;
    At at;        // Seek: offset; Read: count; Block: a byte of the block; Shrink, Poke: where
    int arg = 0;  // Seek: origin; Block, NumBlocks: block size; Scan: maxCount
    bool restart = false;
    int stopAfter = 0;  // Scan: the consumer returns false on this record (0: never)
    std::string text;   // Write, Append, Grow, Poke
    int times = 1;      // the step is made this many times, compared each time
};

Step step(Op op, At at = {}, int arg = 0, bool restart = false, int stopAfter = 0,
          std::string text = "") {
    return Step{op, at, arg, restart, stopAfter, std::move(text)};
}
Step seek(long long offset, int origin) {
    return step(Op::Seek, {0, offset}, origin);
}
Step seekTo(int permille, long long plus = 0) {
    return step(Op::Seek, {permille, plus});
}
Step read(long long n) {
    return step(Op::Read, {0, n});
}
Step block(At byte, int size) {
    return step(Op::Block, byte, size);
}
Step numBlocks(int size) {
    return step(Op::NumBlocks, {}, size);
}
Step next(bool restart = false) {
    return step(Op::Next, {}, 0, restart);
}
Step scan(bool restart, int maxCount, int stopAfter = 0) {
    return step(Op::Scan, {}, maxCount, restart, stopAfter);
}
Step write(std::string s) {
    return step(Op::Write, {}, 0, false, 0, std::move(s));
}
Step append(std::string s) {
    return step(Op::Append, {}, 0, false, 0, std::move(s));
}
Step truncate() {
    return step(Op::Truncate);
}
Step grow(std::string s) {
    return step(Op::Grow, {}, 0, false, 0, std::move(s));
}
Step shrinkTo(int permille, long long plus = 0) {
    return step(Op::Shrink, {permille, plus});
}
Step poke(At where, std::string s) {
    return step(Op::Poke, where, 0, false, 0, std::move(s));
}
Step times(int n, Step s) {
    s.times = n;
    return s;
}

const std::string kBegin = "<r>", kEnd = "</r>";

// The plain side: what the operations do with a descriptor and nothing else.
struct Descriptor {
    int fd = -1;
    bool eof = false;
    long long scanOffset = 0;

    ~Descriptor() {
        if (fd >= 0) ::close(fd);
    }
    long long size() const {
        struct stat st;
        return ::fstat(fd, &st) == 0 ? st.st_size : -1;
    }
    // Reads up to n bytes, looping over short reads; false on an error.
    bool readAll(std::string& out, long long n) {
        out.assign(static_cast<size_t>(n), '\0');
        long long got = 0;
        while (got < n) {
            const ssize_t r = ::read(fd, &out[got], static_cast<size_t>(n - got));
            if (r < 0) return false;
            if (r == 0) break;
            got += r;
        }
        out.resize(static_cast<size_t>(got));
        return true;
    }
    std::string fileRead(long long n) {
        if (n == 0) return "1";
        std::string bytes;
        if (!readAll(bytes, n)) return "0";
        eof = static_cast<long long>(bytes.size()) < n;
        return "1" + bytes;
    }
    std::string readBlock(long long index, int bs) {
        const long long sz = size(), pos = index * bs;
        if (index < 0 || bs < 1 || sz < 0 || sz <= pos) return "0";
        const long long want = std::min<long long>(sz - pos, bs);
        std::string bytes;
        if (::lseek(fd, pos, SEEK_SET) < 0 || !readAll(bytes, want)) return "0";
        eof = static_cast<long long>(bytes.size()) < want;
        return std::to_string(static_cast<long long>(bytes.size()) == want) + bytes;
    }
    int countBlocks(int bs) {
        const long long sz = size();
        if (bs < 1 || sz < 0) return -1;
        return static_cast<int>(static_cast<unsigned>(sz / bs + (sz % bs != 0)));
    }
    bool writeAll(const std::string& s) {
        return ::write(fd, s.data(), s.size()) == static_cast<ssize_t>(s.size());
    }
    // One chunk read at the position; false on a read error.
    bool chunk(std::string& c) {
        eof = false;
        if (!readAll(c, kChunk)) return false;
        eof = static_cast<long long>(c.size()) < kChunk;
        return true;
    }
    // The next record, as whole chunks read from the scan offset find it: 1 with the record,
    // 0 when none is complete, -1 on an error.
    int nextRecord(bool restart, std::string& record) {
        if (restart) scanOffset = 0;
        if (::lseek(fd, scanOffset, SEEK_SET) < 0) return -1;
        long long start = scanOffset;
        std::string c;
        size_t p = std::string::npos;
        for (;;) {
            if (!chunk(c)) return -1;
            p = c.find(kBegin);
            if (p != std::string::npos) break;
            if (eof) return 0;
            ::lseek(fd, -static_cast<off_t>(kBegin.size()), SEEK_CUR);
            start += static_cast<long long>(c.size() - kBegin.size());
        }
        // The end marker in the same chunk, from the byte after the begin marker's first.
        if (p + 1 != static_cast<size_t>(kChunk) && c.size() - p - 1 >= kEnd.size()) {
            const size_t q = c.find(kEnd, p + 1);
            if (q != std::string::npos) {
                record = c.substr(p, q + kEnd.size() - p);
                scanOffset = start + static_cast<long long>(q + kEnd.size());
                return 1;
            }
        }
        record = c.substr(p, kBegin.size());
        ::lseek(fd, -static_cast<off_t>(c.size() - p - kBegin.size()), SEEK_CUR);
        start += static_cast<long long>(p + kBegin.size());
        for (;;) {
            if (!chunk(c)) return -1;
            const size_t e = c.find(kEnd);
            if (e != std::string::npos) {
                record += c.substr(0, e + kEnd.size());
                scanOffset = start + static_cast<long long>(e + kEnd.size());
                return 1;
            }
            if (eof) return 0;
            record += c.substr(0, c.size() - kEnd.size());
            ::lseek(fd, -static_cast<off_t>(kEnd.size()), SEEK_CUR);
            start += static_cast<long long>(c.size() - kEnd.size());
        }
    }
};

std::string fileBytes(const std::string& p) {
    std::string s;
    const int fd = ::open(p.c_str(), O_RDONLY);
    if (fd < 0) return "<missing>";
    char buf[65536];
    for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) s.append(buf, static_cast<size_t>(n));
    ::close(fd);
    return s;
}

// The number of the block holding the step's byte (-1 for a byte before the file).
long long blockIndex(const Step& s, long long size) {
    const long long byte = s.at.of(size);
    return byte < 0 ? -1 : s.arg < 1 ? 0 : byte / s.arg;
}

enum class Mode { ReadWrite, Read, Append };

// Records of every kind the scan meets: short ones, tags with attributes (which "<r>" does
// not match), CR LF between records, and with `longOnes` records longer than a chunk and one
// longer than the scan's window, so that records straddle the seams at multiples of 65,536.
std::string recordsOf(size_t size, bool longOnes) {
    std::string s;
    for (unsigned i = 0; s.size() < size; ++i) {
        s += i % 7 == 3 ? "<r a=" + std::to_string(i) + ">" : "<r>";
        const size_t body = longOnes && i == 40 ? 70000 : longOnes && i == 900 ? 540000 : i % 97;
        s += std::string(body, static_cast<char>('a' + i % 26)) + "</r>";
        if (i % 5 == 0) s += "\r\n";
    }
    return s;
}

struct File {
    const char* name;
    std::string bytes;
};

struct Row {
    const char* name;
    Mode mode;
    std::vector<Step> steps;
};

class PositionTest : public FileAccessTest {
  protected:
    // Runs the row's steps on the object's file `lib` and the descriptor's `plain`, comparing
    // after each. The two may be one file that neither side changes.
    void run(const Row& row, const std::string& lib, const std::string& plain) {
        XString p = X(lib);
        const int flags = row.mode == Mode::Read     ? O_RDONLY
                          : row.mode == Mode::Append ? O_WRONLY | O_APPEND
                                                     : O_RDWR;
        ASSERT_CALL_OK(fa, row.mode == Mode::Read     ? fa.OpenForRead(p)
                           : row.mode == Mode::Append ? fa.OpenForAppend(p)
                                                      : fa.OpenForReadWrite(p));
        Descriptor d;
        d.fd = ::open(plain.c_str(), flags);
        ASSERT_GE(d.fd, 0);
        for (size_t i = 0; i < row.steps.size(); ++i) {
            const Step& s = row.steps[i];
            for (int n = 0; n < s.times; ++n) {
                SCOPED_TRACE("step " + std::to_string(i) + ", time " + std::to_string(n));
                const long long size = fileBytes(plain).size();
                if (s.op == Op::Grow || s.op == Op::Shrink || s.op == Op::Poke) {
                    for (const std::string& f : {lib, plain}) ASSERT_TRUE(outside(f, s, size));
                } else {
                    const std::string got = onObject(s, size), want = onDescriptor(d, s, size);
                    ASSERT_EQ(got.substr(0, 300), want.substr(0, 300)) << lastLog(fa);
                    ASSERT_EQ(got, want) << lastLog(fa);
                }
                ASSERT_EQ(fa.get_EndOfFile(), d.eof);
                ASSERT_TRUE(lib == plain || fileBytes(lib) == fileBytes(plain))
                    << "the files differ";
            }
        }
        fa.FileClose();
    }

    std::string onObject(const Step& s, long long size) {
        XString b(kBegin.c_str()), e(kEnd.c_str()), cs("utf-8"), text(s.text.c_str());
        DataBuffer out;
        switch (s.op) {
            case Op::Seek:
                return std::to_string(fa.FileSeek(static_cast<int>(s.at.of(size)), s.arg));
            case Op::Read: {
                const bool ok = fa.FileRead(static_cast<unsigned>(s.at.of(size)), out);
                return std::to_string(ok) + (ok ? bytesOf(out) : "");
            }
            case Op::Block: {
                const long long index = blockIndex(s, size);
                const bool ok = fa.ReadBlock(static_cast<int>(index), s.arg, out);
                return std::to_string(ok) + bytesOf(out);
            }
            case Op::NumBlocks:
                return std::to_string(fa.GetNumBlocks(s.arg));
            case Op::Next: {
                ClsStringBuilder sb;
                const int rc = fa.ReadNextFragment(s.restart, b, e, cs, sb);
                return std::to_string(rc) + sb.m_str.getUtf8();
            }
            case Op::Scan: {
                std::string records;
                int seen = 0;
                const int rc = fa.ScanFragments(s.restart, s.arg, b, e, cs, [&](const XString& r) {
                    records += std::string(r.getUtf8()) + "|";
                    return ++seen != s.stopAfter;
                });
                return std::to_string(rc) + " " + records;
            }
            case Op::Write:
                out.append(s.text.data(), static_cast<unsigned>(s.text.size()));
                return std::to_string(fa.FileWrite(out));
            case Op::Append:
                return std::to_string(fa.AppendText(text, cs));
            case Op::Truncate:
                return std::to_string(fa.Truncate());
            default:
                return "?";
        }
    }

    static std::string onDescriptor(Descriptor& d, const Step& s, long long size) {
        switch (s.op) {
            case Op::Seek: {
                const int whence = s.arg == 1 ? SEEK_CUR : s.arg == 2 ? SEEK_END : SEEK_SET;
                return std::to_string(::lseek(d.fd, static_cast<int>(s.at.of(size)), whence) >= 0);
            }
            case Op::Read:
                return d.fileRead(s.at.of(size));
            case Op::Block: {
                return d.readBlock(blockIndex(s, size), s.arg);
            }
            case Op::NumBlocks:
                return std::to_string(d.countBlocks(s.arg));
            case Op::Next: {
                std::string record;
                const int rc = d.nextRecord(s.restart, record);
                return std::to_string(rc) + (rc == 1 ? record : "");
            }
            case Op::Scan: {
                std::string records, record;
                int count = 0, rc = 1;
                while (s.arg <= 0 || count < s.arg) {
                    rc = d.nextRecord(s.restart && count == 0, record);
                    if (rc != 1) break;
                    records += record + "|";
                    if (++count == s.stopAfter) break;
                }
                return std::to_string(rc < 0 ? -1 : count) + " " + records;
            }
            case Op::Write:
            case Op::Append:
                return std::to_string(d.writeAll(s.text));
            case Op::Truncate: {
                const off_t pos = ::lseek(d.fd, 0, SEEK_CUR);
                return std::to_string(pos >= 0 && ::ftruncate(d.fd, pos) == 0);
            }
            default:
                return "?";
        }
    }

    // A change made by path, from outside both sides.
    static bool outside(const std::string& path, const Step& s, long long size) {
        if (s.op == Op::Shrink) return ::truncate(path.c_str(), s.at.of(size)) == 0;
        const int fd = ::open(path.c_str(), s.op == Op::Grow ? O_WRONLY | O_APPEND : O_WRONLY);
        if (fd < 0) return false;
        const ssize_t n = s.op == Op::Grow
                              ? ::write(fd, s.text.data(), s.text.size())
                              : ::pwrite(fd, s.text.data(), s.text.size(), s.at.of(size));
        ::close(fd);
        return n == static_cast<ssize_t>(s.text.size());
    }
};

// Sequences that mix every operation with the others. Offsets given as shares of the size
// land on chunk and window seams in the larger files.
const Row kRows[] = {
    {"seeks from every origin, each followed by a read",
     Mode::ReadWrite,
     {seekTo(500),
      read(100),
      seek(-50, 1),
      read(10),
      seek(-200, 2),
      read(300),
      seek(0, 2),
      read(1),
      seek(1000, 2),
      read(10),
      seek(-1, 0),
      read(3),
      seek(-3000000, 1),
      read(3),
      seek(-3000000, 2),
      read(3),
      seek(7, 9),
      read(4),
      seek(0, 1),
      read(2),
      seekTo(0, kChunk - 2),
      read(4),
      seekTo(1000, -1),
      read(0),
      read(5)}},
    {"reads of every length from wherever the last one stopped",
     Mode::Read,
     {read(1), read(4096), read(kChunk + 3), seek(-kChunk, 1), read(600000), read(10), seekTo(999),
      read(2 * kChunk), read(1)}},
    {"records one by one with reads, seeks and block reads between",
     Mode::ReadWrite,
     {next(true), read(16), next(), seek(-5, 1), next(), seekTo(0), read(8), next(), next(),
      block({500}, 4096), next(), read(4), next(true), seek(0, 2), next(), read(3), next()}},
    {"record scans: whole, counted, stopped by the consumer, and after single calls",
     Mode::Read,
     {scan(true, 0),
      read(8),
      next(true),
      scan(false, 3),
      read(8),
      scan(false, 1),
      read(2),
      scan(true, 0, 2),
      read(8),
      next(),
      scan(false, 0),
      read(4),
      next(),
      scan(false, 5),
      read(1),
      scan(true, -1, 45),
      read(6),
      seekTo(100),
      scan(false, 0, 920),
      read(9)}},
    {"numbered blocks of many sizes, and refused ones",
     Mode::ReadWrite,
     {numBlocks(1000), block({0}, 1000), read(10), block({500}, 4096), read(10),
      block({1000, -1}, 65536), read(5), block({1000}, 7), read(5), block({0, -1}, 10),
      block({0}, 0), numBlocks(0), numBlocks(7), block({1000}, 1), read(3),
      block({0, kChunk}, kChunk), next(), block({0, 3 * kChunk + 5}, 100000), read(2)}},
    {"writes and appends at the position, read back and scanned",
     Mode::ReadWrite,
     {seekTo(300),
      write("WWWWW"),
      read(10),
      append("<r>app</r>"),
      seek(-20, 1),
      read(30),
      next(true),
      write("<r>"),
      next(),
      scan(false, 0),
      read(4),
      seek(0, 2),
      append("<r>tail</r>"),
      next(),
      read(4),
      seekTo(0, kChunk - 1),
      write("</r><r>x</r>"),
      next(true),
      scan(false, 3),
      read(5)}},
    {"truncation at the position, then reads, scans and blocks",
     Mode::ReadWrite,
     {seekTo(700),         truncate(), read(10),      seek(-100, 2), read(200),  seekTo(200),
      truncate(),          next(true), scan(true, 0), seek(50, 0),   truncate(), numBlocks(16),
      block({0}, 16),      read(4),    seek(0, 0),    truncate(),    next(true), read(1),
      write("<r>new</r>"), next(true), read(1)}},
    {"the file grows from outside between steps",
     Mode::ReadWrite,
     {scan(true, 0), grow("<r>grown</r>"), next(), read(4), grow("\r\n<r>part"), next(),
      grow("ial</r>"), next(), read(2), seek(0, 2), read(4), grow(std::string(70000, 'g')),
      read(10), numBlocks(4096), block({1000, -1}, 4096), grow("<r>last</r>"), scan(false, 0),
      read(3)}},
    {"the file shrinks from outside between steps",
     Mode::ReadWrite,
     {seekTo(800),     shrinkTo(500),
      read(10),        write("XY"),
      read(3),         seekTo(0),
      next(true),      scan(false, 4),
      shrinkTo(300),   next(),
      scan(false, 0),  read(5),
      numBlocks(100),  block({1000, -1}, 100),
      shrinkTo(0, 10), next(true),
      read(3),         block({0}, 100),
      seek(-2, 2),     read(5)}},
    {"the file is written from outside between steps",
     Mode::ReadWrite,
     {next(true), poke({0, 0}, "<r>over</r>"), next(true), read(5), poke({500}, "<r>mid</r>"),
      seekTo(500), read(12), scan(false, 2), poke({1000, -3}, "END"), seek(-3, 2), read(3),
      poke({999}, "</r>"), scan(false, 0), read(2)}},
    {"a descriptor opened to append: reads fail, writes go to the end",
     Mode::Append,
     {read(10), next(true), scan(true, 0), append("<r>a</r>"), seek(0, 0), append("<r>b</r>"),
      numBlocks(64), block({0}, 64), truncate(), seek(5, 0), truncate(), write("W"), read(1)}},
};

TEST_F(PositionTest, ChosenSequencesActAsOnAPlainDescriptor) {
    const File files[] = {{"3 KB", recordsOf(3000, false)},
                          {"above 64 KiB", recordsOf(100000, false)},
                          {"above 512 KiB", recordsOf(1200000, true)}};
    for (const Row& row : kRows) {
        for (const File& file : files) {
            SCOPED_TRACE(std::string(row.name) + ", file of " + file.name);
            run(row, writeFile("lib", file.bytes), writeFile("plain", file.bytes));
            if (HasFatalFailure()) return;
        }
    }
}

// Seeks are refused where lseek refuses them: from the end of a file of /proc (which reports
// a size of 0 but is read by records), and past the largest offset the file system takes
// (16 TiB on ext4 with 4 KiB blocks, reached after 8,192 steps of 2^31 - 1 bytes).
TEST_F(PositionTest, SeeksAreRefusedWhereLseekRefusesThem) {
    const Row proc{
        "/proc/version",
        Mode::Read,
        {seek(0, 2), read(4),       seek(-5, 2),   read(3),     seek(10, 2),   read(2),
         seek(3, 0), read(5),       seek(2, 1),    read(3),     seek(-1, 1),   read(2),
         next(true), read(1),       scan(true, 0), seek(4, 0),  numBlocks(16), block({0}, 16),
         read(3),    seek(1000, 0), read(4),       seek(-1, 0), read(1)}};
    {
        SCOPED_TRACE(proc.name);
        run(proc, "/proc/version", "/proc/version");
    }
    const std::string content = recordsOf(3000, false);
    const Row huge{"seeks of 2^31 - 1 bytes from the current position",
                   Mode::ReadWrite,
                   {read(5), times(8200, seek(INT_MAX, 1)), read(10), seek(-10, 2), read(20),
                    times(8200, seek(INT_MAX, 1)), seek(-INT_MAX, 1), read(3), next(true), read(3),
                    times(8200, seek(INT_MAX, 1)), read(4), seek(0, 2), read(1)}};
    SCOPED_TRACE(huge.name);
    run(huge, writeFile("lib", content), writeFile("plain", content));
}

// Where a file system refuses offsets beyond its largest, so does FileSeek, from every origin;
// the system-call table stands for one whose largest offset is 1 MiB.
long long g_largest;
TEST_F(PositionTest, SeeksAskTheFileSystem) {
    XString p = X(writeFile("f", recordsOf(3000, false)));
    ASSERT_CALL_OK(fa, fa.OpenForReadWrite(p));
    g_largest = 1 << 20;
    sysCalls().lseek = [](int fd, off_t off, int whence) {
        const off_t base = whence == SEEK_CUR   ? realSysCalls().lseek(fd, 0, SEEK_CUR)
                           : whence == SEEK_END ? realSysCalls().lseek(fd, 0, SEEK_END)
                                                : 0;
        if (base + off > g_largest) return errno = EINVAL, off_t{-1};
        return realSysCalls().lseek(fd, off, whence);
    };
    // origin, offset, accepted
    const int cases[][3] = {{0, 1 << 20, 1}, {0, (1 << 20) + 1, 0},   {1, 1, 0},    {1, -1, 1},
                            {1, 1, 1},       {2, 1 << 20, 0},         {2, 1000, 1}, {0, 2000, 1},
                            {1, 1 << 20, 0}, {1, (1 << 20) - 2000, 1}};
    for (const auto& [origin, offset, accepted] : cases) {
        SCOPED_TRACE(std::to_string(origin) + " " + std::to_string(offset));
        EXPECT_EQ(fa.FileSeek(offset, origin), accepted == 1) << lastLog(fa);
    }
    sysCalls().lseek = realSysCalls().lseek;
    DataBuffer at;
    EXPECT_TRUE(fa.FileRead(1, at) && at.getSize() == 0 && fa.get_EndOfFile());
}

// The library's own moves stay lazy: a run of single record calls costs at most one read and
// one size query per record, and a block one read and one size query, with no seek at all.
int g_reads, g_sizes, g_seeks;
TEST_F(PositionTest, RecordsAndBlocksMakeNoSeek) {
    std::string content;
    for (int i = 0; content.size() < 1000000; ++i) content += "<r>" + std::to_string(i) + "</r>\n";
    XString p = X(writeFile("f", content)), b("<r>"), e("</r>"), cs("utf-8");
    ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    g_reads = g_sizes = g_seeks = 0;
    sysCalls().pread = [](int fd, void* buf, size_t n, off_t off) {
        ++g_reads;
        return realSysCalls().pread(fd, buf, n, off);
    };
    sysCalls().read = [](int fd, void* buf, size_t n) {
        ++g_reads;
        return realSysCalls().read(fd, buf, n);
    };
    sysCalls().fstat = [](int fd, struct stat* st) {
        ++g_sizes;
        return realSysCalls().fstat(fd, st);
    };
    sysCalls().lseek = [](int fd, off_t off, int whence) {
        ++g_seeks;
        return realSysCalls().lseek(fd, off, whence);
    };
    int records = 0;
    for (ClsStringBuilder sb; records < 5000 && fa.ReadNextFragment(false, b, e, cs, sb) == 1;)
        ++records;
    const int recordReads = g_reads, recordSizes = g_sizes, recordSeeks = g_seeks;
    g_reads = g_sizes = g_seeks = 0;
    DataBuffer blockBytes;
    int blocks = 0;
    while (fa.ReadBlock(blocks, 65536, blockBytes)) ++blocks;
    sysCalls() = realSysCalls();
    EXPECT_EQ(records, 5000);
    EXPECT_LE(recordReads, records);
    EXPECT_LE(recordSizes, records);
    EXPECT_EQ(recordSeeks, 0);
    EXPECT_EQ(blocks, 16);
    EXPECT_EQ(g_reads, blocks);
    EXPECT_EQ(g_sizes, blocks + 1);
    EXPECT_EQ(g_seeks, 0);
}

// A read that fails after part of its bytes came leaves the position past them, where a
// descriptor's read would have left it: reads move 100 bytes at a time and the second fails.
TEST_F(PositionTest, AReadThatFailsPartWayLeavesThePositionPastWhatCame) {
    std::string content;
    for (int i = 0; content.size() < 5000; ++i) content += std::to_string(i) + ",";
    XString p = X(writeFile("f", content));
    struct Case {
        const char* name;
        std::function<bool(ClsFileAccess&)> call;
        long long after;
    };
    const Case cases[] = {
        {"FileRead",
         [](ClsFileAccess& o) {
             DataBuffer d;
             return o.FileRead(300, d);
         },
         1100},
        {"ReadBlock",
         [](ClsFileAccess& o) {
             DataBuffer d;
             return o.ReadBlock(2, 500, d);
         },
         1100},
        {"ReadNextFragment",
         [](ClsFileAccess& o) {
             XString b("<r>"), e("</r>"), cs("utf-8");
             ClsStringBuilder sb;
             return o.ReadNextFragment(true, b, e, cs, sb) == 1;
         },
         100},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_CALL_OK(fa, fa.OpenForRead(p));
        ASSERT_TRUE(fa.FileSeek(1000, 0));
        {
            SysCallOverride faults;
            faults.limitTransfers(100);
            faults.failNth(SysCallOverride::Read, 2, EIO);
            faults.failNth(SysCallOverride::Pread, 2, EIO);
            EXPECT_FALSE(c.call(fa));
        }
        DataBuffer at;
        ASSERT_TRUE(fa.FileRead(5, at));
        EXPECT_EQ(bytesOf(at), content.substr(static_cast<size_t>(c.after), 5));
    }
}

}  // namespace
