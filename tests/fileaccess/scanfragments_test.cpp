// ScanFragments against a loop of ReadNextFragment calls: the same records, result, end-of-file
// flag, position and log.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <iterator>
#include <random>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "fileaccess/LogProbe.h"
#include "foundation/fs/SysCalls.h"

namespace {

// The log of an object's last call without its first line, the call's name.
std::string logBody(ClsFileAccess& obj) {
    const std::string log = lastLog(obj);
    return log.substr(log.find('\n') + 1);
}

// What a call (or a loop of calls) handed over and left behind.
struct Outcome {
    std::vector<std::string> records;
    int result = 0;
    bool eof = false;
    std::string log, after;

    bool operator==(const Outcome& o) const {
        return records == o.records && result == o.result && eof == o.eof && log == o.log &&
               after == o.after;
    }
};

std::ostream& operator<<(std::ostream& os, const Outcome& o) {
    os << o.records.size() << " records (";
    for (size_t i = 0; i < o.records.size() && i < 8; ++i) os << o.records[i].substr(0, 20) << " ";
    return os << "...), result " << o.result << ", eof " << o.eof << ", then \"" << o.after
              << "\"\n"
              << o.log;
}

// A scan of `obj`'s current file (the first call from the start), as one ScanFragments call
// or as the ReadNextFragment calls it stands for. `consume` gets each record and its number
// (from 1) and says whether to go on.
Outcome scanOnce(ClsFileAccess& obj, bool loop, int maxCount, const std::string& begin,
                 const std::string& end, const std::string& charset,
                 const std::function<bool(const std::string&, int)>& consume) {
    XString b(begin.c_str()), e(end.c_str()), cs(charset.c_str());
    Outcome o;
    auto take = [&](const std::string& rec) {
        o.records.push_back(rec);
        return consume(rec, static_cast<int>(o.records.size()));
    };
    if (!loop) {
        o.result = obj.ScanFragments(true, maxCount, b, e, cs, [&](const XString& rec) {
            return take(std::string(rec.view()));
        });
    } else {
        int rc = 1;
        while (maxCount <= 0 || static_cast<int>(o.records.size()) < maxCount) {
            ClsStringBuilder sb;
            rc = obj.ReadNextFragment(o.records.empty(), b, e, cs, sb);
            if (rc != 1 || !take(std::string(sb.m_str.view()))) break;
        }
        o.result = rc < 0 ? -1 : static_cast<int>(o.records.size());
    }
    o.eof = obj.get_EndOfFile();
    o.log = logBody(obj);
    return o;
}

// What follows a scan: the bytes at the position it left, then what one more single call
// gives (without verbose logging).
std::string afterScan(ClsFileAccess& obj, const std::string& begin, const std::string& end,
                      const std::string& charset) {
    DataBuffer at;
    std::string seen = obj.FileRead(16, at) ? bytesOf(at) : "(read failed)";
    XString b(begin.c_str()), e(end.c_str()), cs(charset.c_str());
    ClsStringBuilder sb;
    obj.put_VerboseLogging(false);
    const int rc = obj.ReadNextFragment(false, b, e, cs, sb);
    return seen + " | " + std::to_string(rc) + " " + std::string(sb.m_str.view());
}

class ScanFragmentsTest : public FileAccessTest {};

constexpr size_t kChunk = 65536;

struct MarkerPair {
    const char* begin;
    const char* end;
};

// Random text around records for `m`: `few` records, some longer than a chunk or than the
// scan's window, or thousands of short ones; with `straddle`, one record across every multiple
// of 65,536 bytes (counted in bytes of `unit` per character). `ending`: 0 as it comes, 1 an end
// marker as the last bytes, 2 a begin marker as the last bytes, 3 half an end marker.
std::string randomText(std::mt19937& rng, const MarkerPair& m, size_t unit, bool few, bool straddle,
                       int ending) {
    static const char* const kNoise[] = {"<r", "<r ", "<r\t", "<r\n", "</r", "a",   "b",
                                         "ab", "#",   "$",    "|",    "<a",  "<a>", "\r\n",
                                         "\r", "<r>", "</r>", "aba",  "bab"};
    auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
    auto nearSeam = [&] { return (kChunk << pick(4)) - 8 + pick(16); };
    const std::string begin = m.begin, end = m.end;
    std::string text;
    auto noise = [&](size_t chars) {
        for (const size_t start = text.size(); text.size() - start < chars;)
            text += pick(6) == 0 ? kNoise[pick(std::size(kNoise))] : "x";
    };
    auto record = [&](size_t body) {
        text += begin;
        if (begin == "<r>" && pick(3) == 0) text.back() = " \t\r\n"[pick(4)];
        text += std::string(body, 'q');
        if (pick(few ? 6 : 3000) != 0) text += end;
    };
    const size_t records = straddle ? 8 + pick(10) : few ? 2 + pick(8) : 4000 + pick(8000);
    size_t seam = kChunk;
    for (size_t r = 0; r < records; ++r) {
        noise(few && pick(4) == 0 ? nearSeam() : pick(12));
        const size_t body = few && pick(3) == 0 ? nearSeam() : pick(150);
        if (straddle) {
            // Its first byte 1 to (its length - 1) bytes before the next seam, in whole
            // characters; then short records up to well before the seam after.
            while (seam <= text.size() * unit) seam += kChunk;
            const size_t length = (begin.size() + body + end.size()) * unit;
            const size_t before = unit * (1 + pick(length / unit - 1));
            noise((seam - before) / unit - std::min((seam - before) / unit, text.size()));
            record(body);
            seam += kChunk;
            while (pick(60) != 0 && (text.size() + 50) * unit < seam - 1000)
                text += "<r>" + std::string(pick(40), 'q') + "</r>";
            continue;
        }
        record(body);
    }
    if (ending == 1) text += begin + "tail" + end;
    if (ending == 2) text += begin;
    if (ending == 3) text += begin + "tail" + end.substr(0, (end.size() + 1) / 2);
    return text;
}

// ASCII text in the scan's charset.
std::string encoded(const std::string& text, const std::string& charset) {
    if (charset == "utf-8") return text;
    std::string out;
    for (char c : text) out += charset == "utf-16" ? std::string{c, '\0'} : std::string{'\0', c};
    return out;
}

long long g_badAt = -1;
ssize_t readCoveringBadByte(int fd, void* p, size_t n, off_t off) {
    if (off <= g_badAt && g_badAt < off + static_cast<long long>(n)) return errno = EIO, -1;
    return realSysCalls().pread(fd, p, n, off);
}

// ScanFragments against a loop of single calls on random files: markers that overlap or are
// equal, tags with and without attributes, CR LF, UTF-8 and UTF-16 both ways, records across
// every multiple of 65,536, longer than a chunk or the window, markers as the file's last
// bytes, a limit, a consumer that stops early, and a read error somewhere (-1). Compared: the
// records, the result, the end-of-file flag, the whole log (without verbose logging), the bytes
// at the position left behind and what one more single call gives.
TEST_F(ScanFragmentsTest, ScanGivesWhatSingleCallsGive) {
    const MarkerPair markers[] = {{"<r>", "</r>"},  {"<r", "</r>"}, {"ab", "b"},
                                  {"#", "$"},       {"|", "|"},     {"<a>", "<a>"},
                                  {"\r\n", "\r\n"}, {"aba", "bab"}};
    const char* const charsets[] = {"utf-8", "utf-16", "utf-16be"};
    std::mt19937 rng(20261124);
    auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
    for (int fileNo = 0; fileNo < 96; ++fileNo) {
        const MarkerPair& m = markers[fileNo % std::size(markers)];
        const std::string charset = charsets[pick(4) % 3];
        const size_t mode = pick(3);
        const std::string file = encoded(randomText(rng, m, charset == "utf-8" ? 1 : 2, mode == 0,
                                                    mode == 2, static_cast<int>(pick(4))),
                                         charset);
        const int records = static_cast<int>(std::count(file.begin(), file.end(), m.begin[0]));
        const int maxCount = pick(3) == 0 ? 1 + static_cast<int>(pick(records + 1)) : 0;
        const int stopAfter = pick(3) == 0 ? 1 + static_cast<int>(pick(records + 1)) : 0;
        const bool verbose = fileNo % 10 == 0;
        g_badAt = pick(5) == 0 ? static_cast<long long>(pick(file.size())) : -1;
        SCOPED_TRACE("file " + std::to_string(fileNo) + " of " + std::to_string(file.size()) +
                     " bytes, " + m.begin + " " + m.end + ", " + charset + ", max " +
                     std::to_string(maxCount) + ", stop " + std::to_string(stopAfter) +
                     ", bad byte " + std::to_string(g_badAt));
        XString p = X(writeFile("f", file));
        Outcome outcome[2];
        for (int loop = 0; loop < 2; ++loop) {
            ClsFileAccess obj;
            ASSERT_TRUE(obj.OpenForRead(p));
            obj.put_VerboseLogging(verbose);
            sysCalls().pread = readCoveringBadByte;
            outcome[loop] = scanOnce(obj, loop == 1, maxCount, m.begin, m.end, charset,
                                     [&](const std::string&, int n) { return n != stopAfter; });
            sysCalls().pread = realSysCalls().pread;
            if (verbose) outcome[loop].log.clear();
            outcome[loop].after = afterScan(obj, m.begin, m.end, charset);
        }
        ASSERT_EQ(outcome[0], outcome[1]);
    }
}

// A bad spot in the file (every read that covers one byte fails) ends a scan exactly where
// single calls end: the same records, -1, end-of-file flag, position and log lines, for bad
// bytes before, inside and after records, at piece, chunk and window seams.
TEST_F(ScanFragmentsTest, AReadErrorEndsTheScanWhereSingleCallsEnd) {
    std::string file;
    std::mt19937 rng(17);
    for (int i = 0; file.size() < 1300000; ++i) {
        file += "<r>" + std::to_string(i);
        file += std::string(i % 50 == 7 ? 70000 + rng() % 70000 : rng() % 200, 'x') + "</r>\n";
    }
    XString p = X(writeFile("f.txt", file));
    std::vector<long long> badBytes;
    const long long chunk = kChunk;
    for (long long seam : {4096LL, 16384LL, chunk, 8 * chunk, 10 * chunk, 16 * chunk})
        for (long long k = 1; k * seam < 1300000 && k < 4; ++k)
            for (long long d : {-1LL, 0LL, 1LL}) badBytes.push_back(k * seam + d);
    for (int i = 0; i < 40; ++i) badBytes.push_back(rng() % file.size());
    badBytes.push_back(static_cast<long long>(file.size()) - 1);
    for (long long bad : badBytes) {
        SCOPED_TRACE("bad byte at " + std::to_string(bad));
        g_badAt = bad;
        Outcome outcome[2];
        for (int loop = 0; loop < 2; ++loop) {
            ClsFileAccess obj;
            ASSERT_TRUE(obj.OpenForRead(p));
            sysCalls().pread = readCoveringBadByte;
            outcome[loop] = scanOnce(obj, loop == 1, 0, "<r>", "</r>", "utf-8",
                                     [](const std::string&, int) { return true; });
            sysCalls().pread = realSysCalls().pread;
            outcome[loop].after = afterScan(obj, "<r>", "</r>", "utf-8");
        }
        ASSERT_EQ(outcome[0].result, -1);
        ASSERT_EQ(outcome[0], outcome[1]);
    }
}

// A change the consumer makes to the file through another object when it gets a record.
struct Change {
    int onRecord;
    long long cutTo;  // truncates the file to this size first, when not negative
    std::string appended;
};

// Cuts the file to `cutTo` bytes (when not negative), then appends `appended`, through `writer`.
void change(ClsFileAccess& writer, long long cutTo, const std::string& appended) {
    if (cutTo >= 0) {
        EXPECT_TRUE(writer.FileSeek(static_cast<int>(cutTo), 0) && writer.Truncate());
    }
    XString text(appended.c_str()), cs("utf-8");
    if (!appended.empty()) {
        EXPECT_TRUE(writer.FileSeek(0, 2) && writer.AppendText(text, cs));
    }
}

// The file changed during the call through another object: appends are seen, cuts beyond what
// the scan has read ahead are seen, and before the call answers that no record is left, or
// stops on its last record near the end, it takes the file as it is now.
TEST_F(ScanFragmentsTest, ChangesDuringTheCallAreSeenAsSingleCallsSeeThem) {
    std::string big;
    for (int i = 0; big.size() < 3000000; ++i) big += "<r>" + std::to_string(i) + "</r>\n";
    struct Scenario {
        const char* name;
        std::string file;
        std::vector<Change> changes;
        int maxCount;
    };
    const Scenario scenarios[] = {
        {"a record appended after each of the first three",
         "<r>1</r><r>2</r><r>3</r>",
         {{1, -1, "<r>new1</r>"}, {2, -1, "<r>new2</r>"}, {3, -1, "<r>new3</r>"}},
         0},
        {"an unfinished record completed", "<r>1</r><r>2</r><r>part", {{1, -1, "ial</r>"}}, 0},
        {"an unfinished record cut away",
         "<r>1</r><r>2</r><r>part",
         {{2, 16, ""}, {3, -1, "<r>x</r>"}},
         0},
        {"bytes without a record appended, the last record counted",
         "<r>1</r><r>2</r><r>3</r>",
         {{1, -1, std::string(300, 'j')}},
         3},
        {"a cut below the last record counted", "<r>1</r><r>2</r><r>3</r>tail", {{1, 24, ""}}, 3},
        {"the file grows by a record on each of 2,000", "<r>0</r>", {}, 0},
        {"a cut ahead of the window", big, {{1, 2000000, "<r>end</r>"}}, 0},
        {"records appended to a large file", big, {{5, -1, "<r>a</r>\n<r>b</r>"}}, 0},
        {"a cut ahead of the window, the count ending past it", big, {{3, 1500000, ""}}, 200000},
    };
    for (const Scenario& sc : scenarios) {
        SCOPED_TRACE(sc.name);
        const bool growing = sc.changes.empty();
        Outcome outcome[2];
        for (int loop = 0; loop < 2; ++loop) {
            XString p = X(writeFile(loop ? "loop" : "scan", sc.file));
            ClsFileAccess reader, writer;
            ASSERT_TRUE(reader.OpenForRead(p) && writer.OpenForReadWrite(p));
            outcome[loop] = scanOnce(reader, loop == 1, sc.maxCount, "<r>", "</r>", "utf-8",
                                     [&](const std::string&, int n) {
                                         for (const Change& c : sc.changes)
                                             if (c.onRecord == n)
                                                 change(writer, c.cutTo, c.appended);
                                         if (growing && n <= 2000)
                                             change(writer, -1, "<r>" + std::to_string(n) + "</r>");
                                         return true;
                                     });
            outcome[loop].after = afterScan(reader, "<r>", "</r>", "utf-8");
        }
        EXPECT_EQ(outcome[0], outcome[1]);
    }
}

// The highest resident memory of this process so far, in MiB.
long peakMiB() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss / 1024;
}

// A record longer than a chunk costs memory about once its size: its bytes are handed over as
// its text without a second copy, in a scan and in a single call alike, and a scan does not
// keep one long record's text while it gathers the next. Measured in a child process, whose
// peak starts from what it holds when it starts.
TEST_F(ScanFragmentsTest, ALongRecordIsNotHeldTwice) {
    if (FA_SANITIZED) GTEST_SKIP() << "a sanitizer keeps memory of its own beside the library's";
    constexpr long kRecordMiB = 32;
    const std::string record = "<r>" + std::string(kRecordMiB << 20, 'y') + "</r>";
    XString p = X(writeFile("f", record + record + "<r>3</r>"));
    for (bool loop : {false, true}) {
        SCOPED_TRACE(loop ? "ReadNextFragment" : "ScanFragments");
        const int grownMiB = inChildProcess([&] {
            const long before = peakMiB();
            ClsFileAccess obj;
            XString b("<r>"), e("</r>"), cs("utf-8");
            if (!obj.OpenForRead(p)) return 255;
            long long text = 0;
            if (loop) {
                ClsStringBuilder sb;
                if (obj.ReadNextFragment(true, b, e, cs, sb) != 1) return 255;
                text = sb.m_str.getSizeUtf8();
            } else if (obj.ScanFragments(true, 0, b, e, cs, [&](const XString& rec) {
                           text += rec.getSizeUtf8();
                           return true;
                       }) != 3) {
                return 255;
            }
            if (text < (kRecordMiB << 20)) return 254;
            return static_cast<int>(std::min(253L, peakMiB() - before));
        });
        EXPECT_GE(grownMiB, kRecordMiB);
        EXPECT_LE(grownMiB, kRecordMiB + kRecordMiB / 4);
    }
}

// A call that hands over a few records reads little more than they need: its first read is one
// chunk long. One that goes on reads twice as far each time, up to the 512 KiB window, which
// is then refilled when less than a chunk is left in it.
std::vector<size_t> g_reads;
TEST_F(ScanFragmentsTest, ReadsGrowWithTheRecordsHandedOver) {
    std::string file;
    int records = 0;
    for (; file.size() < 3000000; ++records) file += "<r>" + std::to_string(records) + "</r>\n";
    XString p = X(writeFile("f", file)), b("<r>"), e("</r>"), cs("utf-8");
    ASSERT_CALL_OK(fa, fa.OpenForRead(p));
    sysCalls().pread = [](int fd, void* buf, size_t n, off_t off) {
        g_reads.push_back(n);
        return realSysCalls().pread(fd, buf, n, off);
    };
    auto readsOf = [&](int maxCount) {
        g_reads.clear();
        const int n =
            fa.ScanFragments(false, maxCount, b, e, cs, [](const XString&) { return true; });
        EXPECT_EQ(n, maxCount > 0 ? maxCount : records - 1 - 10 - 10000);
        return g_reads;
    };
    const std::vector<size_t> one = readsOf(1), ten = readsOf(10), many = readsOf(10000);
    const std::vector<size_t> rest = readsOf(0);
    sysCalls().pread = realSysCalls().pread;
    EXPECT_EQ(one, std::vector<size_t>{65536});
    // Ten records of about ten bytes: the second is in a chunk that reaches past the first read.
    ASSERT_EQ(ten.size(), 2u);
    EXPECT_EQ(ten[0], 65536u);
    EXPECT_LE(ten[1], 65536u + 100);
    // Ten thousand: reads of 64, 128 and 256 KiB (less what each keeps).
    ASSERT_EQ(many.size(), 3u);
    EXPECT_GT(many[2], 131072u);
    EXPECT_LE(many[2], 262144u);
    // The rest: each read but the first few brings at least the window less a chunk.
    const size_t largest = *std::max_element(rest.begin(), rest.end());
    EXPECT_LE(largest, 524288u);
    EXPECT_GT(largest, 524288u - 65536);
    EXPECT_LE(rest.size(), file.size() / (524288 - 65536) + 4);
}

}  // namespace
