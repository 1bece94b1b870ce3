// Throughput of the text layer's bulk operations against a plain memcpy of the same bytes.
//
// The 256 MiB buffer holds a 6-byte pattern about 1,000,000 times in pseudo-random text.
// Every figure is for already-touched memory unless its name says "Fresh": on this class of
// machine first-touch page faults dominate everything else, and the Fresh cases show by how
// much and what the huge-page advice of DataBuffer's large blocks buys.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"

namespace {

constexpr unsigned kSize = 256u << 20;
constexpr unsigned kSpacing = kSize / 1'000'000;
const unsigned char kFind[] = "ABCDEF";
const unsigned char kFind2[] = "UVWXYZ";
const unsigned char kLonger[] = "ABCDEFGH";

// The source text, built once: lowercase letters and spaces with the pattern every kSpacing.
const DataBuffer& source() {
    static DataBuffer src = [] {
        DataBuffer db;
        db.ensureBuffer(kSize);
        std::mt19937 rng(42);
        unsigned char* p = db.getData2();
        for (unsigned i = 0; i < kSize; ++i) {
            unsigned r = rng() % 27;
            p[i] = r == 26 ? ' ' : static_cast<unsigned char>('a' + r);
        }
        for (unsigned i = kSpacing / 2; i + 6 <= kSize; i += kSpacing) std::memcpy(p + i, kFind, 6);
        db.setDataSize_CAUTION(kSize);
        return db;
    }();
    return src;
}

void setBytes(benchmark::State& state, uint64_t perIteration) {
    state.SetBytesProcessed(static_cast<int64_t>(perIteration * state.iterations()));
}

void BM_Memcpy(benchmark::State& state) {
    const DataBuffer& src = source();
    DataBuffer dst(src);
    for (auto _ : state) {
        std::memcpy(dst.getData2(), src.getData2(), kSize);
        benchmark::ClobberMemory();
    }
    setBytes(state, kSize);
}

// 6 -> 8 bytes with no spare capacity: counting pass, then one new block built in order.
void BM_ReplaceGrowNewBlock(benchmark::State& state) {
    const DataBuffer& src = source();
    int count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        DataBuffer work(src);  // exact capacity
        state.ResumeTiming();
        count = work.replaceAllOccurances(kFind, 6, kLonger, 8);
        benchmark::DoNotOptimize(count);
        state.PauseTiming();
        work.releaseStorage();
        state.ResumeTiming();
    }
    state.counters["replaced"] = count;
    setBytes(state, kSize);
}

// 6 -> 8 bytes into spare capacity: counting pass, then moved in place from the back.
void BM_ReplaceGrowInPlace(benchmark::State& state) {
    const DataBuffer& src = source();
    DataBuffer work;
    work.ensureBuffer(kSize + (kSize / 64));
    int count = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(work.getData2(), src.getData2(), kSize);
        work.setDataSize_CAUTION(kSize);
        state.ResumeTiming();
        count = work.replaceAllOccurances(kFind, 6, kLonger, 8);
        benchmark::DoNotOptimize(count);
    }
    state.counters["replaced"] = count;
    setBytes(state, kSize);
}

// Equal length: overwritten where each match stands; alternating patterns keep it finding.
void BM_ReplaceSameLength(benchmark::State& state) {
    DataBuffer work(source());
    bool forward = true;
    int count = 0;
    for (auto _ : state) {
        count = forward ? work.replaceAllOccurances(kFind, 6, kFind2, 6)
                        : work.replaceAllOccurances(kFind2, 6, kFind, 6);
        forward = !forward;
        benchmark::DoNotOptimize(count);
    }
    state.counters["replaced"] = count;
    setBytes(state, kSize);
}

// Encoding into an output whose storage is reused (already touched), and into a fresh one.
void encodeBench(benchmark::State& state, const char* encoding, bool fresh) {
    const DataBuffer& src = source();
    StringBuffer out;
    if (!fresh) src.encodeDB(encoding, out);  // the output's pages are touched before timing
    for (auto _ : state) {
        if (fresh) {
            state.PauseTiming();
            StringBuffer().str().swap(out.str());
            state.ResumeTiming();
        } else {
            out.clear();
        }
        bool ok = src.encodeDB(encoding, out);
        benchmark::DoNotOptimize(ok);
    }
    setBytes(state, kSize);
}
void BM_EncodeHex(benchmark::State& s) {
    encodeBench(s, "hex", false);
}
void BM_EncodeBase64(benchmark::State& s) {
    encodeBench(s, "base64", false);
}
void BM_EncodeHexFresh(benchmark::State& s) {
    encodeBench(s, "hex", true);
}
void BM_EncodeBase64Fresh(benchmark::State& s) {
    encodeBench(s, "base64", true);
}

constexpr size_t kGiB = size_t{1} << 30;

// 1 GiB allocated and every page written once: plain malloc (4 KiB faults) ...
void BM_FreshGiB_Malloc(benchmark::State& state) {
    for (auto _ : state) {
        auto* p = static_cast<unsigned char*>(std::malloc(kGiB));
        if (!p) {
            state.SkipWithError("no memory");
            break;
        }
        std::memset(p, 1, kGiB);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
    setBytes(state, kGiB);
}

// ... against DataBuffer's storage: 2 MiB-aligned, advised for huge pages.
void BM_FreshGiB_DataBuffer(benchmark::State& state) {
    for (auto _ : state) {
        DataBuffer db;
        if (!db.ensureBuffer64(kGiB)) {
            state.SkipWithError("no memory");
            break;
        }
        std::memset(db.getData2(), 1, kGiB);
        benchmark::DoNotOptimize(db.getData2());
    }
    setBytes(state, kGiB);
}

// Growth by appending 1 MiB pieces up to 1 GiB, all fresh memory: what the storage policy
// (geometric growth, storage reused by realloc where it can be) costs against one allocation.
void BM_FreshGiB_AppendGrowth(benchmark::State& state) {
    std::vector<unsigned char> piece(1 << 20, 7);
    for (auto _ : state) {
        DataBuffer db;
        for (unsigned i = 0; i < 1024; ++i)
            if (!db.append(piece.data(), static_cast<unsigned>(piece.size()))) {
                state.SkipWithError("append failed");
                break;
            }
        benchmark::DoNotOptimize(db.getData2());
    }
    setBytes(state, kGiB);
}

}  // namespace

BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(BM_ReplaceGrowNewBlock)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(6);
BENCHMARK(BM_ReplaceGrowInPlace)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(6);
BENCHMARK(BM_ReplaceSameLength)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(BM_EncodeHex)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_EncodeBase64)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_EncodeHexFresh)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_EncodeBase64Fresh)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_FreshGiB_Malloc)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_FreshGiB_DataBuffer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

BENCHMARK(BM_FreshGiB_AppendGrowth)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

BENCHMARK_MAIN();
