// Cheap first touch for large blocks of fresh memory.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

class DataBuffer;

// Advises transparent huge pages for the whole 2 MiB-aligned pages inside [p, p + n), so
// that filling a large, not yet touched block costs one page fault per 2 MiB instead of one
// per 4 KiB. Blocks below a few MiB are left alone: they gain little and may share pages with
// small allocations. Only a hint: nothing changes when the system does not take it.
void adviseLargeBlock(void* p, size_t n);

// The same advice for any block, however small (callers that map whole huge pages).
void adviseHugePages(void* p, size_t n);

// Appends bytes [from, size) of `bytes` to `out`, then releases `bytes`' storage. The room in
// `out` is reserved once; a buffer large enough to be mapped is copied a huge page at a time,
// each page given back to the system as soon as it is copied, so that a long text is never
// held twice in full.
void moveBytesInto(DataBuffer& bytes, unsigned from, std::string& out);

// Faults in the pages of a fresh block on a second thread while the caller fills it front to
// back, so that the kernel's work of handing out and clearing pages (a third of the time of
// encoding a large file into memory) overlaps the caller's. It never reads or writes the
// block's bytes: the kernel only maps zeroed pages that are not yet there. Stops and joins on
// destruction, so the block must outlive it. Only a hint: without a thread or the kernel's
// help, the caller faults its pages in itself, as before.
class PrefaultAhead {
  public:
    PrefaultAhead(void* p, size_t n);
    ~PrefaultAhead();
    PrefaultAhead(const PrefaultAhead&) = delete;
    PrefaultAhead& operator=(const PrefaultAhead&) = delete;

  private:
    std::atomic<bool> m_stop{false};
    std::thread m_worker;
};
