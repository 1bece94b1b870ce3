// Timing of ReadNextFragment and of block reads, each against its peers in the same run.
//
// Usage: scan_bench [dir] [MiB] [blockMiB]   (defaults: $TMPDIR or /tmp, 256, 1024)
//
// Records: for records <rec id="N">...</rec> of about 100 bytes, 1 KiB and 16 KiB, a file of
// MiB mebibytes is scanned to its end by
//   grep -c '<rec'                    (a line count, the speed of a plain pass over the file)
//   xmllint --stream --noout          (a streaming XML parse)
//   floor                             (per record one pread of 65,536 bytes at the record's
//                                      offset and two memmem searches: the least work any
//                                      reader that rereads a chunk per record must do)
//   ReadNextFragment "<rec" exact     (the exact marker; chunks fetched lazily)
//   ReadNextFragment "<rec>" variants (the tag form: the exact marker is absent, so every
//                                      chunk is read and searched whole before the variant)
// Blocks: ReadBlock of 64 KiB blocks in order over a blockMiB file against dd bs=64k.
// The page cache is warm for all; each figure is the best of two runs, wall clock and
// processor time (the latter is the fairer one on a busy machine). Output: readable
// lines and "ROW name ours_s peer peer_s how" lines for bench/run_all.sh. Files are removed.
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
#include <vector>

#include "fileaccess/ClsFileAccess.h"

namespace {

constexpr unsigned kChunk = 65536;
constexpr int kRuns = 2;

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

// Wall-clock seconds of the best run; `cpu` gets the processor seconds of the best run too.
// The machine may be shared, so both are reported.
double bestSeconds(const std::function<long long()>& work, long long& count, double& cpu) {
    double best = 1e30;
    cpu = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        const double cpu0 = cpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        count = work();
        best = std::min(
            best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        cpu = std::min(cpu, cpuSeconds() - cpu0);
    }
    return best;
}

void fail(const std::string& what) {
    std::fprintf(stderr, "scan_bench: %s\n", what.c_str());
    std::exit(1);
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

// One pread of a chunk at each record's offset and two memmem searches.
long long floorScan(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) fail("cannot open " + path);
    std::vector<char> chunk(kChunk);
    long long pos = 0, n = 0;
    for (;;) {
        const ssize_t got = pread(fd, chunk.data(), kChunk, pos);
        if (got <= 0) break;
        const char* b = static_cast<const char*>(memmem(chunk.data(), got, "<rec", 4));
        if (!b) break;
        const char* e =
            static_cast<const char*>(memmem(b + 1, chunk.data() + got - (b + 1), "</rec>", 6));
        if (!e) break;
        pos += (e + 6) - chunk.data();
        ++n;
    }
    close(fd);
    return n;
}

long long fragmentScan(const std::string& path, const char* begin) {
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
    std::printf("ROW %s %.6f %s %.6f best_of_%d\n", name.c_str(), ours, peer.c_str(), peerS, kRuns);
}

void report(const char* what, double s, double cpu, long long records, double mib) {
    std::printf("  %-26s %7.3f s %11.0f records/s %8.1f MB/s   cpu %7.3f s %8.1f MB/s\n", what, s,
                records / s, mib * 1.048576 / s, cpu, mib * 1.048576 / cpu);
}

void benchRecords(const std::string& dir, size_t recordSize, unsigned mib) {
    const std::string path = dir + "/fa-scan-" + std::to_string(recordSize) + ".xml";
    const long long records = writeRecords(path, recordSize, size_t{mib} << 20);
    shellCount("cat '" + path + "' > /dev/null; echo 0");
    long long n = 0;
    double cGrep, cXml, cFloor, cExact, cTag;
    std::printf("records of %zu bytes, %u MiB, %lld records\n", recordSize, mib, records);
    const double grep =
        bestSeconds([&] { return shellCount("grep -c '<rec' '" + path + "'"); }, n, cGrep);
    // The root element's line counts too.
    if (n != records + 1) fail("grep counted " + std::to_string(n));
    report("grep -c '<rec'", grep, cGrep, records, mib);
    const double xml = bestSeconds(
        [&] { return shellCount("xmllint --stream --noout '" + path + "' && echo 0"); }, n, cXml);
    report("xmllint --stream", xml, cXml, records, mib);
    const double floor = bestSeconds([&] { return floorScan(path); }, n, cFloor);
    if (n != records) fail("floor counted " + std::to_string(n));
    report("floor (pread + 2 memmem)", floor, cFloor, records, mib);
    const double exact = bestSeconds([&] { return fragmentScan(path, "<rec"); }, n, cExact);
    if (n != records) fail("ReadNextFragment <rec counted " + std::to_string(n));
    report("ReadNextFragment <rec", exact, cExact, records, mib);
    const double tag = bestSeconds([&] { return fragmentScan(path, "<rec>"); }, n, cTag);
    if (n != records) fail("ReadNextFragment <rec> counted " + std::to_string(n));
    report("ReadNextFragment <rec>", tag, cTag, records, mib);
    std::printf(
        "  speed relative to the floor: exact %.2f (cpu %.2f), tag variants %.2f (cpu %.2f)\n",
        floor / exact, cFloor / cExact, floor / tag, cFloor / cTag);
    const std::string size =
        std::to_string(recordSize) + "B_records_" + std::to_string(mib) + "MiB";
    row("ReadNextFragment_exact_" + size, exact, "floor_pread+memmem", floor);
    row("ReadNextFragment_tag_" + size, tag, "floor_pread+memmem", floor);
    row("ReadNextFragment_exact_vs_grep_" + size, exact, "grep_-c", grep);
    row("ReadNextFragment_exact_vs_xmllint_" + size, exact, "xmllint_--stream", xml);
    std::remove(path.c_str());
}

void benchBlocks(const std::string& dir, unsigned mib) {
    const std::string path = dir + "/fa-scan-blocks.bin";
    if (shellCount("head -c " + std::to_string(size_t{mib} << 20) + " /dev/urandom > '" + path +
                   "' && echo 0") != 0) {
        fail("cannot make " + path);
    }
    shellCount("cat '" + path + "' > /dev/null; echo 0");
    long long n = 0;
    double cDd, cOurs;
    const double dd = bestSeconds(
        [&] {
            return shellCount("dd if='" + path + "' of=/dev/null bs=64k 2>/dev/null && echo 0");
        },
        n, cDd);
    const double ours = bestSeconds([&] { return blockScan(path, 65536); }, n, cOurs);
    if (n != (static_cast<long long>(mib) << 20)) fail("ReadBlock read " + std::to_string(n));
    std::printf("blocks of 64 KiB over %u MiB\n", mib);
    std::printf("  dd bs=64k %.3f s (cpu %.3f), ReadBlock %.3f s (cpu %.3f), ratio ours/dd %.2f\n",
                dd, cDd, ours, cOurs, ours / dd);
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
