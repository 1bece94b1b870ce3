#include "foundation/text/LargeBlocks.h"

#include <sys/mman.h>

#include <cstdint>

namespace {

constexpr uintptr_t kHugePage = uintptr_t{2} << 20;
constexpr uintptr_t kPage = 4096;
// Below this a block holds at most one whole huge page: not worth a system call.
constexpr size_t kWorthAdvising = size_t{8} << 20;

}  // namespace

void adviseLargeBlock(void* p, size_t n) {
    if (p && n >= kWorthAdvising) adviseHugePages(p, n);
}

void adviseHugePages(void* p, size_t n) {
#ifdef MADV_HUGEPAGE
    uintptr_t begin = (reinterpret_cast<uintptr_t>(p) + kHugePage - 1) & ~(kHugePage - 1);
    uintptr_t end = (reinterpret_cast<uintptr_t>(p) + n) & ~(kHugePage - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#else
    (void)p;
    (void)n;
#endif
}

PrefaultAhead::PrefaultAhead(void* p, size_t n) {
#ifdef MADV_POPULATE_WRITE
    if (!p || n < kWorthAdvising) return;
    uintptr_t begin = (reinterpret_cast<uintptr_t>(p) + kPage - 1) & ~(kPage - 1);
    uintptr_t end = (reinterpret_cast<uintptr_t>(p) + n) & ~(kPage - 1);
    // A few MiB a step: small enough to stop soon, large enough to keep ahead of the writer.
    auto populate = [this, begin, end] {
        constexpr uintptr_t kStep = uintptr_t{4} << 20;
        for (uintptr_t at = begin; at < end && !m_stop.load(std::memory_order_relaxed);) {
            uintptr_t len = end - at < kStep ? end - at : kStep;
            // Fails on kernels before 5.14 and under emulators: then the writer faults alone.
            if (madvise(reinterpret_cast<void*>(at), len, MADV_POPULATE_WRITE) != 0) return;
            at += len;
        }
    };
    try {
        m_worker = std::thread(populate);
    } catch (...) {
        // No thread to be had: the writer faults its pages in itself.
    }
#else
    (void)p;
    (void)n;
#endif
}

PrefaultAhead::~PrefaultAhead() {
    m_stop.store(true, std::memory_order_relaxed);
    if (m_worker.joinable()) m_worker.join();
}
