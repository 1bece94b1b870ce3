// Timing of FileRead and FileWrite against dd on the same 1 GiB file, in the same run.
//
// Usage: readwrite_bench [dir] [MiB]   (defaults: /tmp, 1024)
// Creates dir/fa-bench-src (random bytes), warms the page cache, then times:
//   read:  dd if=src of=/dev/null bs=1M     vs  FileRead in 1 MiB counts to the end
//   write: dd if=/dev/zero of=dst bs=1M     vs  FileWrite of a 1 MiB buffer, as many times
//   copy:  dd if=src of=dst bs=1M           vs  FileRead + FileWrite in 1 MiB counts
// Each figure is the best of several runs, the two sides run alternately. Both files are removed at the end.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <utility>

#include "fileaccess/ClsFileAccess.h"

namespace {

constexpr unsigned kChunk = 1u << 20;
constexpr int kRuns = 3;

double secondsOf(const std::function<bool()>& work) {
    const auto start = std::chrono::steady_clock::now();
    if (!work()) {
        std::fprintf(stderr, "a timed step failed\n");
        std::exit(1);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Best times of two ways to do the same work, run alternately so that neither profits from
// the order (dirty pages left by one are flushed before the other starts).
std::pair<double, double> bestOfPair(const std::function<bool()>& a, const std::function<bool()>& b,
                                     const std::function<void()>& before) {
    double bestA = 1e30, bestB = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        before();
        bestA = std::min(bestA, secondsOf(a));
        before();
        bestB = std::min(bestB, secondsOf(b));
    }
    return {bestA, bestB};
}

bool shell(const std::string& cmd) { return std::system(cmd.c_str()) == 0; }

bool makeSource(ClsFileAccess& fa, const std::string& path, unsigned mib) {
    XString p(path.c_str());
    if (!fa.OpenForWrite(p)) return false;
    std::mt19937_64 rng(42);
    DataBuffer chunk;
    chunk.ensureBuffer(kChunk);
    chunk.setDataSize_CAUTION(kChunk);
    for (unsigned i = 0; i < mib; ++i) {
        auto* words = reinterpret_cast<uint64_t*>(chunk.getData2());
        for (unsigned w = 0; w < kChunk / 8; ++w) words[w] = rng();
        if (!fa.FileWrite(chunk)) return false;
    }
    fa.FileClose();
    return true;
}

// Reads the whole file in 1 MiB counts; true when every byte came.
bool readAll(ClsFileAccess& in, const std::string& path, unsigned long long expected,
             ClsFileAccess* out = nullptr, const std::string& outPath = "") {
    XString p(path.c_str()), q(outPath.c_str());
    if (!in.OpenForRead(p)) return false;
    if (out && !out->OpenForWrite(q)) return false;
    DataBuffer buf;
    unsigned long long total = 0;
    while (!in.get_EndOfFile()) {
        if (!in.FileRead(kChunk, buf)) return false;
        if (out && buf.getSize() && !out->FileWrite(buf)) return false;
        total += buf.getSize();
    }
    in.FileClose();
    if (out) out->FileClose();
    return total == expected;
}

// Writes `mib` MiB of zeros to path with FileWrite in 1 MiB counts.
bool writeZeros(ClsFileAccess& out, const std::string& path, unsigned mib) {
    XString p(path.c_str());
    if (!out.OpenForWrite(p)) return false;
    DataBuffer zeros;
    if (!zeros.ensureBuffer(kChunk)) return false;
    std::memset(zeros.getData2(), 0, kChunk);
    zeros.setDataSize_CAUTION(kChunk);
    for (unsigned i = 0; i < mib; ++i)
        if (!out.FileWrite(zeros)) return false;
    out.FileClose();
    return true;
}

void report(const char* what, unsigned mib, double dd, double ours) {
    std::printf("%-5s dd %.3f s (%.0f MiB/s)   ours %.3f s (%.0f MiB/s)   ratio %.3f\n", what, dd,
                mib / dd, ours, mib / ours, ours / dd);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string dir = argc > 1 ? argv[1] : "/tmp";
    const unsigned mib = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 1024;
    const std::string src = dir + "/fa-bench-src", dst = dir + "/fa-bench-dst";
    const unsigned long long bytes = static_cast<unsigned long long>(mib) * kChunk;

    ClsFileAccess fa, out;
    if (!makeSource(fa, src, mib)) return std::fprintf(stderr, "cannot create %s\n", src.c_str()), 1;
    const std::string ddRead = "dd if=" + src + " of=/dev/null bs=1M status=none";
    const std::string ddCopy = "dd if=" + src + " of=" + dst + " bs=1M status=none";
    auto removeDst = [&] {
        std::remove(dst.c_str());
        shell("sync");
    };
    shell(ddRead);  // warm the page cache

    const auto [ddR, ourR] = bestOfPair([&] { return shell(ddRead); },
                                        [&] { return readAll(fa, src, bytes); }, [] {});
    const std::string ddWrite =
        "dd if=/dev/zero of=" + dst + " bs=1M count=" + std::to_string(mib) + " status=none";
    const auto [ddZ, ourZ] = bestOfPair([&] { return shell(ddWrite); },
                                        [&] { return writeZeros(out, dst, mib); }, removeDst);
    const auto [ddW, ourW] = bestOfPair([&] { return shell(ddCopy); },
                                        [&] { return readAll(fa, src, bytes, &out, dst); },
                                        removeDst);

    std::printf("file of %u MiB, best of %d runs\n", mib, kRuns);
    report("read", mib, ddR, ourR);
    report("write", mib, ddZ, ourZ);
    report("copy", mib, ddW, ourW);
    removeDst();
    std::remove(src.c_str());
    return 0;
}
