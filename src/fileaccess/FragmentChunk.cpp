#include "fileaccess/FragmentChunk.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace fragments {

namespace {

// The first piece of a lazily fetched chunk; each later piece makes what is held four times
// as much (4, 16, then 64 KiB: a read costs about as much as copying a few KiB, so a chunk
// that must be searched whole, as for an absent exact tag marker, takes three reads).
constexpr unsigned kFirstPiece = 4096;

}  // namespace

void Chunk::begin(long long start) {
    m_start = start;
    m_held = 0;
    m_complete = false;
    m_length = 0;
    m_eof = false;
}

void Chunk::completeWith(unsigned length) {
    m_complete = true;
    m_length = length;
    m_eof = length < kChunkSize;
}

// ----- ReadChunk -----

bool ReadChunk::reset(long long start) {
    begin(start);
    m_buf.clear();
    if (!m_buf.ensureBuffer(kChunkSize)) return false;
    m_data = m_buf.getData2();
    return true;
}

bool ReadChunk::fetch(unsigned want) {
    want = std::min(want, kChunkSize);
    if (m_complete || m_held >= want) return true;
    unsigned got = 0;
    bool eof = false;
    const bool ok = m_handle.preadBytes(m_buf.getData2() + m_held, want - m_held, m_start + m_held,
                                        got, eof, &m_log);
    m_held += got;
    m_buf.setDataSize_CAUTION(m_held);
    if (!ok) return false;
    if (eof || m_held == kChunkSize) completeWith(m_held);
    return true;
}

// Whatever is still unfetched is measured, not read, where the reported size can be trusted:
// a regular file whose size covers what was read. Anything else is read (files of /proc, for
// one, report a size of 0).
bool ReadChunk::settle() {
    if (m_complete) return true;
    const long long size = m_lazy ? m_handle.regularFileSize64() : -1;
    if (size < m_start + m_held) return fetch(kChunkSize);
    completeWith(
        static_cast<unsigned>(std::min(size - m_start, static_cast<long long>(kChunkSize))));
    return true;
}

bool ReadChunk::find(const DataBuffer& needle, unsigned from, unsigned& at) {
    const unsigned len = needle.getSize();
    if (!m_lazy && !fetch(kChunkSize)) return false;
    for (;;) {
        at = findMarker(m_data, from, m_held, needle);
        if (at != kNotFound || m_complete) return true;
        // A match starting before this point would have ended within what is held.
        if (m_held >= len) from = std::max(from, m_held - len + 1);
        if (!fetch(std::max(kFirstPiece, 4 * m_held))) return false;
    }
}

// ----- WindowChunk -----

WindowChunk::~WindowChunk() {
    delete[] m_window;
}

bool WindowChunk::reset(long long start) {
    begin(start);
    if (m_readingSingly) return mirror(m_single.reset(start));
    if (!m_window) m_window = new (std::nothrow) unsigned char[kWindowSize];
    return m_window != nullptr;
}

bool WindowChunk::mirror(bool ok) {
    m_data = m_single.data();
    m_held = m_single.held();
    m_complete = m_single.complete();
    m_length = m_single.length();
    m_eof = m_single.eof();
    return ok;
}

// The window's reads start one chunk long and double with each refill up to its full size: a
// call that hands over a few records reads little more than they need, one that hands over
// many soon reads in large blocks.
bool WindowChunk::refill() {
    const long long windowEnd = m_windowStart + m_windowLength;
    const bool keeping = !m_stale && m_start >= m_windowStart && m_start <= windowEnd;
    const unsigned keep = keeping ? static_cast<unsigned>(windowEnd - m_start) : 0;
    if (keep > 0) std::memmove(m_window, m_window + (m_start - m_windowStart), keep);
    if (m_filled) m_reach = std::min(kWindowSize, 2 * m_reach);
    if (m_stale) m_memos.fill(Memo{});
    m_stale = false;
    m_windowStart = m_start;
    m_windowLength = keep;
    unsigned got = 0;
    bool eof = false;
    // The error is not this scan's to report: single calls may never read that far.
    _ovLogger ignored;
    if (!m_handle.preadBytes(m_window + keep, m_reach - keep, m_start + keep, got, eof, &ignored))
        return false;
    m_windowLength += got;
    m_windowAtEnd = eof;
    m_filled = true;
    return true;
}

bool WindowChunk::settleFromWindow() {
    if (m_complete || m_readingSingly) return true;
    const long long windowEnd = m_windowStart + m_windowLength;
    const bool inside = m_start >= m_windowStart && m_start <= windowEnd;
    if (m_stale || !inside || (!m_windowAtEnd && windowEnd - m_start < kChunkSize)) {
        if (!refill()) {
            m_readingSingly = true;
            return mirror(m_single.reset(m_start));
        }
    }
    const long long ahead = m_windowStart + m_windowLength - m_start;
    m_data = m_window + (m_start - m_windowStart);
    m_held = static_cast<unsigned>(std::min(ahead, static_cast<long long>(kChunkSize)));
    completeWith(m_held);
    return true;
}

bool WindowChunk::fetch(unsigned want) {
    if (!settleFromWindow()) return false;
    return !m_readingSingly || mirror(m_single.fetch(want));
}

bool WindowChunk::settle() {
    if (!settleFromWindow()) return false;
    return !m_readingSingly || mirror(m_single.settle());
}

bool WindowChunk::endStands() {
    if (m_readingSingly) return true;
    // Sizes that say nothing (-1: not a regular file) leave the window's answer standing.
    const long long size = m_handle.regularFileSize64();
    if (size < 0 || size == m_windowStart + m_windowLength) return true;
    m_stale = true;
    return false;
}

WindowChunk::Memo& WindowChunk::memoFor(const DataBuffer& needle) {
    for (Memo& m : m_memos)
        if (m.needle == &needle) return m;
    Memo& m = m_memos[m_nextMemo];
    m_nextMemo = (m_nextMemo + 1) % m_memos.size();
    m = Memo{};
    return m;
}

bool WindowChunk::find(const DataBuffer& needle, unsigned from, unsigned& at) {
    if (!settleFromWindow()) return false;
    if (m_readingSingly) return mirror(m_single.find(needle, from, at));
    at = kNotFound;
    const long long len = needle.getSize();
    if (len == 0 || from >= m_length) return true;
    const long long f = m_start + from, chunkEnd = m_start + m_length;
    Memo& m = memoFor(needle);
    long long searchFrom = f;
    if (m.needle == &needle && m.from <= f) {
        if (m.next >= f) {
            if (m.next + len <= chunkEnd) at = static_cast<unsigned>(m.next - m_start);
            return true;
        }
        if (m.next < 0) {
            if (chunkEnd <= m.to) return true;
            searchFrom = std::max(f, m.to - len + 1);
        }
    }
    const unsigned hit = findMarker(m_window, static_cast<unsigned>(searchFrom - m_windowStart),
                                    m_windowLength, needle);
    m.needle = &needle;
    m.from = f;
    m.to = m_windowStart + m_windowLength;
    m.next = hit == kNotFound ? -1 : m_windowStart + hit;
    if (m.next >= 0 && m.next + len <= chunkEnd) at = static_cast<unsigned>(m.next - m_start);
    return true;
}

}  // namespace fragments
