// Timing of the record readers and of block reads, each against its peers in the same run.
//
// Usage: scan_bench [dir] [MiB] [blockMiB]   (defaults: $TMPDIR or /tmp, 256, 1024)
//
// Records: files of MiB mebibytes of records <rec id="N">...</rec> (so a tag marker meets its
// form with attributes) of about 100 bytes, 1 KiB and 16 KiB, each scanned to its end by
//   grep -c '<rec'                 a line count: the speed of one plain pass over the file
//   xmllint --stream --noout       a streaming XML parse
//   ReadNextFragment, one call per record, with the marker "<rec" and the tag marker "<rec>"
//   ScanFragments, with a consumer that only counts, with both markers
//   fatool scan --count with the tag marker (the program's own streaming tag match), run
//   in-process, where the program is built
// Blocks: GetNumBlocks and ReadBlock of 64 KiB blocks in order over a blockMiB file against
// dd bs=64k.
// The page cache is warm for all. The contenders run by turns, three rounds, so that each meets
// the machine in the same state; each figure is the median of the three, wall clock and
// processor time (the fairer one on a busy machine). Output: readable lines and
// "ROW name ours_s peer peer_s how" lines for bench/run_all.sh. Files are removed.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fileaccess/ClsFileAccess.h"

#ifdef FA_HAVE_FATOOL
#include <sstream>

#include "Cli.h"
#endif

namespace {

constexpr int kRounds = 3;

// Processor seconds (user + system) of this process and of its finished children.
double cpuSeconds() {
    double total = 0;
    for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage u{};
        getrusage(who, &u);
        total +=
            u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
    }
    return total;
}

void fail(const std::string& what) {
    std::fprintf(stderr, "scan_bench: %s\n", what.c_str());
    std::exit(1);
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// One contender: a job that returns what it counted, the count it must return (-1: any),
// and its times.
struct Contender {
    Contender(std::string n, std::function<long long()> j, long long e)
        : name(std::move(n)), job(std::move(j)), expect(e) {}
    std::string name;
    std::function<long long()> job;
    long long expect;
    std::vector<double> wall, cpu;
};

// Runs every contender once per round, in turn, checking its count.
void race(std::vector<Contender>& all) {
    for (int round = 0; round < kRounds; ++round) {
        for (Contender& c : all) {
            const double cpu0 = cpuSeconds();
            const auto start = std::chrono::steady_clock::now();
            const long long n = c.job();
            c.wall.push_back(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            c.cpu.push_back(cpuSeconds() - cpu0);
            if (c.expect >= 0 && n != c.expect)
                fail(c.name + " counted " + std::to_string(n) + ", not " + std::to_string(c.expect));
        }
    }
}

// A well-formed document of records of about recordSize bytes; returns the record count.
long long writeRecords(const std::string& path, size_t recordSize, size_t totalBytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) fail("cannot create " + path);
    std::string buf = "<recs>\n";
    long long n = 0;
    size_t written = 0;
    for (; written + buf.size() < totalBytes; ++n) {
        std::string rec = "<rec id=\"" + std::to_string(n) + "\">";
        const size_t fill = recordSize > rec.size() + 7 ? recordSize - rec.size() - 7 : 1;
        for (size_t i = 0; i < fill; ++i) rec += static_cast<char>('a' + (n + i) % 26);
        rec += "</rec>\n";
        buf += rec;
        if (buf.size() > (1u << 20)) {
            written += std::fwrite(buf.data(), 1, buf.size(), f);
            buf.clear();
        }
    }
    buf += "</recs>\n";
    std::fwrite(buf.data(), 1, buf.size(), f);
    if (std::fclose(f) != 0) fail("cannot write " + path);
    return n;
}

long long shellCount(const std::string& cmd) {
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) fail("cannot run " + cmd);
    long long n = -1;
    if (std::fscanf(p, "%lld", &n) != 1) n = -1;
    if (pclose(p) != 0 && n < 0) fail(cmd + " failed");
    return n;
}

long long singleCalls(const std::string& path, const char* begin) {
    ClsFileAccess fa;
    XString p(path.c_str()), b(begin), e("</rec>"), cs("utf-8");
    if (!fa.OpenForRead(p)) fail("OpenForRead failed");
    ClsStringBuilder sb;
    long long n = 0;
    while (fa.ReadNextFragment(false, b, e, cs, sb) == 1) {
        ++n;
        sb.m_str.clear();
    }
    return n;
}

long long oneScan(const std::string& path, const char* begin) {
    ClsFileAccess fa;
    XString p(path.c_str()), b(begin), e("</rec>"), cs("utf-8");
    if (!fa.OpenForRead(p)) fail("OpenForRead failed");
    long long n = 0;
    const int got = fa.ScanFragments(false, 0, b, e, cs, [&](const XString&) {
        ++n;
        return true;
    });
    return got == n ? n : -1;
}

#ifdef FA_HAVE_FATOOL
// The program's record count for the tag marker, from its standard output.
long long programScan(const std::string& path) {
    std::istringstream in;
    std::ostringstream out, err;
    fatool::Context ctx{in, out, err, false, false};
    const char* argv[] = {"fatool", "scan", "--count", path.c_str(), "<rec>", "</rec>"};
    if (fatool::run(6, argv, ctx) != 0) fail("fatool scan failed: " + err.str());
    return std::stoll(out.str());
}
#endif

long long blockScan(const std::string& path, int blockSize) {
    ClsFileAccess fa;
    XString p(path.c_str());
    if (!fa.OpenForRead(p)) fail("OpenForRead failed");
    const int blocks = fa.GetNumBlocks(blockSize);
    DataBuffer out;
    long long bytes = 0;
    for (int i = 0; i < blocks; ++i) {
        if (!fa.ReadBlock(i, blockSize, out)) fail("ReadBlock failed");
        bytes += out.getSize();
    }
    return bytes;
}

void row(const std::string& name, double ours, const std::string& peer, double peerS) {
    std::printf("ROW %s %.6f %s %.6f median_of_%d_by_turns\n", name.c_str(), ours, peer.c_str(),
                peerS, kRounds);
}

void report(const Contender& c, double mib, long long records) {
    const double s = median(c.wall), cpu = median(c.cpu);
    std::printf("  %-28s %7.3f s %11.0f records/s %8.1f MB/s   cpu %7.3f s\n", c.name.c_str(), s,
                records / s, mib * 1.048576 / s, cpu);
}

void benchRecords(const std::string& dir, size_t recordSize, unsigned mib) {
    const std::string path = dir + "/fa-scan-" + std::to_string(recordSize) + ".xml";
    const long long records = writeRecords(path, recordSize, size_t{mib} << 20);
    shellCount("cat '" + path + "' > /dev/null; echo 0");
    std::printf("records of %zu bytes, %u MiB, %lld records\n", recordSize, mib, records);
    std::vector<Contender> all = {
        // The root element's line counts too.
        {"grep -c '<rec'", [&] { return shellCount("grep -c '<rec' '" + path + "'"); },
         records + 1},
        {"xmllint --stream",
         [&] { return shellCount("xmllint --stream --noout '" + path + "' && echo 0"); }, 0},
        {"ReadNextFragment <rec", [&] { return singleCalls(path, "<rec"); }, records},
        {"ReadNextFragment <rec>", [&] { return singleCalls(path, "<rec>"); }, records},
        {"ScanFragments <rec", [&] { return oneScan(path, "<rec"); }, records},
        {"ScanFragments <rec>", [&] { return oneScan(path, "<rec>"); }, records},
#ifdef FA_HAVE_FATOOL
        {"fatool scan -c <rec>", [&] { return programScan(path); }, records},
#endif
    };
    race(all);
    for (const Contender& c : all) report(c, mib, records);
    const double grep = median(all[0].wall), xml = median(all[1].wall);
    const std::string size = std::to_string(recordSize) + "B_records_" + std::to_string(mib) + "MiB";
    for (size_t i = 2; i < all.size(); ++i) {
        std::string name = all[i].name;
        for (char& ch : name) ch = ch == ' ' ? '_' : ch;
        std::printf("  %-28s %.2f times xmllint --stream\n", all[i].name.c_str(),
                    median(all[i].wall) / xml);
        row(name + "_" + size, median(all[i].wall), "xmllint_--stream", xml);
        row(name + "_vs_grep_" + size, median(all[i].wall), "grep_-c", grep);
    }
    std::remove(path.c_str());
}

void benchBlocks(const std::string& dir, unsigned mib) {
    const std::string path = dir + "/fa-scan-blocks.bin";
    if (shellCount("head -c " + std::to_string(size_t{mib} << 20) + " /dev/urandom > '" + path +
                   "' && echo 0") != 0) {
        fail("cannot make " + path);
    }
    shellCount("cat '" + path + "' > /dev/null; echo 0");
    std::vector<Contender> all = {
        {"dd bs=64k",
         [&] {
             return shellCount("dd if='" + path + "' of=/dev/null bs=64k 2>/dev/null && echo 0");
         },
         0},
        {"ReadBlock", [&] { return blockScan(path, 65536); }, static_cast<long long>(mib) << 20},
    };
    race(all);
    const double dd = median(all[0].wall), ours = median(all[1].wall);
    std::printf("blocks of 64 KiB over %u MiB\n", mib);
    std::printf("  dd bs=64k %.3f s (cpu %.3f), ReadBlock %.3f s (cpu %.3f), ratio ours/dd %.2f\n",
                dd, median(all[0].cpu), ours, median(all[1].cpu), ours / dd);
    row("ReadBlock_64KiB_" + std::to_string(mib) + "MiB", ours, "dd_bs=64k", dd);
    std::remove(path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    const char* tmp = std::getenv("TMPDIR");
    const std::string dir = argc > 1 ? argv[1] : (tmp && *tmp ? tmp : "/tmp");
    const unsigned mib = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 256;
    const unsigned blockMib = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 1024;
    for (size_t size : {size_t{100}, size_t{1024}, size_t{16384}}) benchRecords(dir, size, mib);
    benchBlocks(dir, blockMib);
    return 0;
}
