// Timing program for the whole-file algorithms. Each mode runs one operation once on files
// prepared by algos_bench.sh and prints "<mode> <seconds>" (wall time), or exits non-zero
// when the operation fails, with the object's log on stderr.
//
//   algos_bench split-join <input> <partsDir> <joinedOut>   (100 MiB parts)
//   algos_bench compare <a> <b>
//   algos_bench replace <file> <find> <replacement>
//   algos_bench encode <file> <encoding>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/resource.h>

#include "fileaccess/ClsFileAccess.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Peak resident memory of the process so far, in KiB.
long peakRssKiB() {
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

int fail(ClsFileAccess& fa, const char* what) {
    XString log;
    fa.get_LastErrorText(log);
    std::fprintf(stderr, "%s failed\n%s\n", what, log.getUtf8());
    return 1;
}

int splitJoin(ClsFileAccess& fa, char** argv) {
    XString in(argv[2]), dir(argv[3]), out(argv[4]), prefix("part"), ext("bin");
    auto t0 = Clock::now();
    if (!fa.SplitFile(in, prefix, ext, 100 * 1024 * 1024, dir)) return fail(fa, "SplitFile");
    double split = secondsSince(t0);
    auto t1 = Clock::now();
    if (!fa.ReassembleFile(dir, prefix, ext, out)) return fail(fa, "ReassembleFile");
    double join = secondsSince(t1);
    std::printf("split %.3f\njoin %.3f\nsplit-join %.3f\nrss %ld\n", split, join, split + join,
                peakRssKiB());
    return 0;
}

int compare(ClsFileAccess& fa, char** argv) {
    XString a(argv[2]), b(argv[3]);
    auto t0 = Clock::now();
    bool equal = fa.FileContentsEqual(a, b);
    std::printf("compare %.3f (%s)\nrss %ld\n", secondsSince(t0), equal ? "equal" : "different",
                peakRssKiB());
    return 0;
}

int replace(ClsFileAccess& fa, char** argv) {
    XString f(argv[2]), cs("utf-8"), find(argv[3]), repl(argv[4]);
    auto t0 = Clock::now();
    int n = fa.ReplaceStrings(f, cs, find, repl);
    if (n < 0) return fail(fa, "ReplaceStrings");
    std::printf("replace %.3f (%d replaced)\n", secondsSince(t0), n);
    return 0;
}

int encode(ClsFileAccess& fa, char** argv) {
    XString f(argv[2]), enc(argv[3]), out;
    auto t0 = Clock::now();
    if (!fa.ReadBinaryToEncoded(f, enc, out)) return fail(fa, "ReadBinaryToEncoded");
    std::printf("encode-%s %.3f (%u chars)\n", argv[3], secondsSince(t0), out.getSizeUtf8());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    ClsFileAccess fa;
    std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "split-join" && argc == 5) return splitJoin(fa, argv);
    if (mode == "compare" && argc == 4) return compare(fa, argv);
    if (mode == "replace" && argc == 5) return replace(fa, argv);
    if (mode == "encode" && argc == 4) return encode(fa, argv);
    std::fprintf(stderr, "usage: see the comment at the top of algos_bench.cpp\n");
    return 2;
}
