#include "foundation/text/LargeBlocks.h"

#include <sys/mman.h>

#include <cstdint>

namespace {

constexpr uintptr_t kHugePage = uintptr_t{2} << 20;
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
