// Cheap first touch for large blocks of fresh memory.
#pragma once

#include <cstddef>

// Advises transparent huge pages for the whole 2 MiB-aligned pages inside [p, p + n), so
// that filling a large, not yet touched block costs one page fault per 2 MiB instead of one
// per 4 KiB. Blocks below a few MiB are left alone: they gain little and may share pages with
// small allocations. Only a hint: nothing changes when the system does not take it.
void adviseLargeBlock(void* p, size_t n);

// The same advice for any block, however small (callers that map whole huge pages).
void adviseHugePages(void* p, size_t n);
