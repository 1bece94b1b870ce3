// Storage, search, replacement and parsing of DataBuffer.
//
// Storage comes from malloc/realloc for small blocks. Blocks of 2 MiB and more are mapped
// directly, 2 MiB-aligned and advised for transparent huge pages: first-touch faults on 4 KiB
// pages cost far more than the copy the buffer is usually filled with, and one huge-page fault
// replaces 512 of them. Large blocks grow by remapping their pages, never by copying them into
// fresh memory where the system can remap. The capacity tells how a block was obtained, so
// storage moves freely between buffers with swap().
#include "foundation/text/DataBuffer.h"

#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "foundation/text/Encodings.h"
#include "foundation/text/LargeBlocks.h"
#include "foundation/text/StringBuffer.h"

namespace {

constexpr uint64_t kMaxSize = UINT32_MAX;
constexpr size_t kHugeBlock = size_t{2} << 20;

// Storage of a capacity this large is mapped by us (whole, aligned huge pages); smaller
// storage comes from malloc. The capacity alone tells which, so nothing else is recorded.
bool isMapped(uint64_t capacity) {
    return capacity >= kHugeBlock;
}
size_t mappedLength(uint64_t capacity) {
    return static_cast<size_t>((capacity + kHugeBlock - 1) & ~uint64_t{kHugeBlock - 1});
}

// A fresh anonymous mapping of len bytes (a multiple of 2 MiB) starting on a 2 MiB boundary,
// so that every page of it can be a huge page; null when it cannot be had.
void* mapAligned(size_t len) {
    void* raw =
        mmap(nullptr, len + kHugeBlock, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    uintptr_t start = reinterpret_cast<uintptr_t>(raw);
    uintptr_t aligned = (start + kHugeBlock - 1) & ~uintptr_t{kHugeBlock - 1};
    if (aligned > start) munmap(raw, aligned - start);
    size_t tail = (start + len + kHugeBlock) - (aligned + len);
    if (tail) munmap(reinterpret_cast<void*>(aligned + len), tail);
    void* p = reinterpret_cast<void*>(aligned);
    adviseHugePages(p, len);
    return p;
}

void freeStorage(unsigned char* p, uint64_t capacity) {
    if (!p) return;
    if (isMapped(capacity)) {
        munmap(p, mappedLength(capacity));
    } else {
        std::free(p);
    }
}

// Fresh storage for a capacity of n bytes (n > 0), or null.
unsigned char* allocStorage(uint64_t n) {
    if (!isMapped(n)) return static_cast<unsigned char*>(std::malloc(static_cast<size_t>(n)));
    return static_cast<unsigned char*>(mapAligned(mappedLength(n)));
}

// Moves a mapping to a larger one without copying: first by extending it where it lies, then
// by moving its pages to a fresh aligned range (huge pages move whole). Null when the system
// cannot do either.
unsigned char* remapLarger(unsigned char* old, size_t oldLen, size_t newLen) {
#if defined(MREMAP_MAYMOVE) && defined(MREMAP_FIXED)
    if (mremap(old, oldLen, newLen, 0) != MAP_FAILED) {
        adviseHugePages(old, newLen);
        return old;
    }
    void* target = mapAligned(newLen);
    if (!target) return nullptr;
    void* moved = mremap(old, oldLen, newLen, MREMAP_MAYMOVE | MREMAP_FIXED, target);
    if (moved != MAP_FAILED) {
        adviseHugePages(moved, newLen);
        return static_cast<unsigned char*>(moved);
    }
    munmap(target, newLen);
#else
    (void)old;
    (void)oldLen;
    (void)newLen;
#endif
    return nullptr;
}

// Storage for capacity n holding the first `used` bytes of old (capacity oldCap); null (old
// kept) on failure. Growth reuses what it can: realloc for small blocks, remapped pages for
// large ones, and a copy only where neither applies.
unsigned char* growStorage(unsigned char* old, uint64_t oldCap, size_t used, uint64_t n) {
    if (!old) return allocStorage(n);
    if (!isMapped(n)) return static_cast<unsigned char*>(std::realloc(old, static_cast<size_t>(n)));
    if (isMapped(oldCap)) {
        size_t oldLen = mappedLength(oldCap), newLen = mappedLength(n);
        if (newLen == oldLen) return old;
        if (unsigned char* p = remapLarger(old, oldLen, newLen)) return p;
    }
    unsigned char* p = allocStorage(n);
    if (!p) return nullptr;
    if (used) std::memcpy(p, old, used);
    freeStorage(old, oldCap);
    return p;
}

// Next capacity for a request of `want` bytes: geometric (x1.5) so that repeated appends
// copy each byte a bounded number of times, clamped to the 32-bit range.
uint64_t grownCapacity(uint64_t current, uint64_t want) {
    uint64_t geometric = current + current / 2;
    uint64_t cap = want > geometric ? want : geometric;
    if (cap < 64) cap = 64;
    return cap > kMaxSize ? kMaxSize : cap;
}

// A growable list of 32-bit offsets kept in malloc'd storage, so running out of memory is an
// answer rather than an exception.
class OffsetList {
  public:
    ~OffsetList() { std::free(m_items); }
    bool push(uint32_t v) {
        if (m_count == m_cap && !grow()) return false;
        m_items[m_count++] = v;
        return true;
    }
    size_t count() const { return m_count; }
    uint32_t operator[](size_t i) const { return m_items[i]; }

  private:
    bool grow() {
        size_t cap = m_cap ? m_cap * 2 : 1024;
        void* p = std::realloc(m_items, cap * sizeof(uint32_t));
        if (!p) return false;
        m_items = static_cast<uint32_t*>(p);
        m_cap = cap;
        return true;
    }
    uint32_t* m_items = nullptr;
    size_t m_count = 0;
    size_t m_cap = 0;
};

// Most match offsets remembered between the counting pass and the building pass; beyond this
// the building pass searches again after the last remembered one.
constexpr size_t kMaxRemembered = size_t{1} << 24;

// Finds a pattern left to right. It looks for the first byte with memchr (vectorised in the C
// library, so it skims text where that byte is rare) and compares the rest; when the first
// byte turns out to be common (many false starts per byte scanned) it switches to memmem for
// the rest of its life, which does not depend on byte frequencies.
class Searcher {
  public:
    Searcher(const unsigned char* needle, size_t n) : m_needle(needle), m_n(n) {}

    // First occurrence in [p, end), or null.
    const unsigned char* find(const unsigned char* p, const unsigned char* end) {
        if (static_cast<size_t>(end - p) < m_n) return nullptr;
        if (m_n == 1) return static_cast<const unsigned char*>(memchr(p, m_needle[0], end - p));
        while (!m_useMemmem) {
            size_t span = static_cast<size_t>(end - p) - m_n + 1;
            auto* q = static_cast<const unsigned char*>(memchr(p, m_needle[0], span));
            if (!q) return nullptr;
            if (std::memcmp(q + 1, m_needle + 1, m_n - 1) == 0) return q;
            m_scanned += static_cast<uint64_t>(q - p) + 1;
            p = q + 1;
            // More than one false start per 32 bytes: memchr no longer pays for itself.
            if (++m_falseStarts > 256 && m_falseStarts * 32 > m_scanned) m_useMemmem = true;
            if (static_cast<size_t>(end - p) < m_n) return nullptr;
        }
        return static_cast<const unsigned char*>(memmem(p, end - p, m_needle, m_n));
    }

  private:
    const unsigned char* m_needle;
    size_t m_n;
    bool m_useMemmem = false;
    uint64_t m_falseStarts = 0;
    uint64_t m_scanned = 0;
};

int clampCount(uint64_t count) {
    return count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

// Same length: each match is overwritten where it stands.
int replaceSameLength(unsigned char* data, unsigned size, const unsigned char* find, unsigned len,
                      const unsigned char* repl) {
    uint64_t count = 0;
    Searcher searcher(find, len);
    unsigned char* end = data + size;
    unsigned char* p = data;
    while (const unsigned char* hit = searcher.find(p, end)) {
        unsigned char* h = data + (hit - data);
        std::memmove(h, repl, len);
        p = h + len;
        ++count;
    }
    return clampCount(count);
}

// Shorter replacement: one forward pass compacting the bytes towards the front.
int replaceShrinking(DataBuffer& buf, const unsigned char* find, unsigned findLength,
                     const unsigned char* repl, unsigned replLength) {
    uint64_t count = 0;
    unsigned char* data = buf.getData2();
    unsigned char* end = data + buf.getSize();
    unsigned char* rd = data;
    unsigned char* wr = data;
    Searcher searcher(find, findLength);
    while (const unsigned char* hit = searcher.find(rd, end)) {
        unsigned char* h = data + (hit - data);
        size_t keep = static_cast<size_t>(h - rd);
        if (wr != rd && keep) std::memmove(wr, rd, keep);
        wr += keep;
        if (replLength) std::memmove(wr, repl, replLength);
        wr += replLength;
        rd = h + findLength;
        ++count;
    }
    if (count == 0) return 0;
    size_t tail = static_cast<size_t>(end - rd);
    if (tail) std::memmove(wr, rd, tail);
    buf.setDataSize_CAUTION(static_cast<unsigned>((wr - data) + tail));
    return clampCount(count);
}

// Growing in place: every remembered match is known, so segments move from the last one
// backwards and nothing is overwritten before it has moved.
void buildFromBack(unsigned char* data, unsigned size, const OffsetList& hits, unsigned findLength,
                   const unsigned char* repl, unsigned replLength, uint64_t newSize) {
    size_t srcEnd = size;
    size_t dstEnd = static_cast<size_t>(newSize);
    for (size_t i = hits.count(); i-- > 0;) {
        size_t hitEnd = size_t{hits[i]} + findLength;
        size_t tail = srcEnd - hitEnd;
        dstEnd -= tail;
        if (tail) std::memmove(data + dstEnd, data + hitEnd, tail);
        dstEnd -= replLength;
        std::memcpy(data + dstEnd, repl, replLength);
        srcEnd = hits[i];
    }
}

// Growing into new storage: segments and replacements are copied once, in order. Matches
// past the remembered ones are found again, continuing the same left-to-right scan.
bool buildInto(DataBuffer& buf, const OffsetList& hits, const unsigned char* find,
               unsigned findLength, const unsigned char* repl, unsigned replLength,
               uint64_t newSize) {
    DataBuffer out;
    if (!out.ensureBuffer64(newSize)) return false;
    const unsigned char* src = buf.getData2();
    const unsigned char* end = src + buf.getSize();
    unsigned char* dst = out.getData2();
    const unsigned char* rd = src;
    auto emit = [&](const unsigned char* h) {
        size_t keep = static_cast<size_t>(h - rd);
        std::memcpy(dst, rd, keep);
        dst += keep;
        std::memcpy(dst, repl, replLength);
        dst += replLength;
        rd = h + findLength;
    };
    for (size_t i = 0; i < hits.count(); ++i) emit(src + hits[i]);
    Searcher searcher(find, findLength);
    while (const unsigned char* hit = searcher.find(rd, end)) emit(hit);
    std::memcpy(dst, rd, static_cast<size_t>(end - rd));
    out.setDataSize_CAUTION(static_cast<unsigned>(newSize));
    buf.swap(out);
    return true;
}

// Longer replacement: a counting pass that remembers where the matches are, then the result
// is built either in place from the back (when it fits the capacity) or into one new block.
int replaceGrowing(DataBuffer& buf, const unsigned char* find, unsigned findLength,
                   const unsigned char* repl, unsigned replLength) {
    OffsetList hits;
    uint64_t count = 0;
    bool allRemembered = true;
    const unsigned char* data = buf.getData2();
    const unsigned char* end = data + buf.getSize();
    const unsigned char* p = data;
    Searcher searcher(find, findLength);
    while (const unsigned char* h = searcher.find(p, end)) {
        if (allRemembered && hits.count() < kMaxRemembered) {
            if (!hits.push(static_cast<uint32_t>(h - data))) return -1;
        } else {
            allRemembered = false;
        }
        p = h + findLength;
        ++count;
    }
    if (count == 0) return 0;
    uint64_t newSize = buf.getSize() + count * (replLength - findLength);
    if (newSize > kMaxSize || count > INT_MAX) return -1;
    // Extending the storage keeps the pages already written, so only the growth is fresh
    // memory; building into a new block would fault in every page of the result.
    if (allRemembered && buf.getCapacity() >= kHugeBlock && newSize > buf.getCapacity())
        buf.extendStorage64(newSize);
    if (newSize <= buf.getCapacity() && allRemembered) {
        buildFromBack(buf.getData2(), buf.getSize(), hits, findLength, repl, replLength, newSize);
        buf.setDataSize_CAUTION(static_cast<unsigned>(newSize));
        return static_cast<int>(count);
    }
    if (!buildInto(buf, hits, find, findLength, repl, replLength, newSize)) return -1;
    return static_cast<int>(count);
}

}  // namespace

DataBuffer::DataBuffer(const DataBuffer& other) {
    if (other.m_size == 0) return;
    if (!ensureBuffer(other.m_size)) throw std::bad_alloc();
    std::memcpy(m_data, other.m_data, other.m_size);
    m_size = other.m_size;
}

DataBuffer& DataBuffer::operator=(const DataBuffer& other) {
    if (this == &other) return *this;
    m_size = 0;
    if (other.m_size == 0) return *this;
    if (!ensureBuffer(other.m_size)) throw std::bad_alloc();
    std::memcpy(m_data, other.m_data, other.m_size);
    m_size = other.m_size;
    return *this;
}

DataBuffer::DataBuffer(DataBuffer&& other) noexcept {
    swap(other);
}

DataBuffer& DataBuffer::operator=(DataBuffer&& other) noexcept {
    if (this != &other) {
        releaseStorage();
        swap(other);
    }
    return *this;
}

DataBuffer::~DataBuffer() {
    freeStorage(m_data, m_capacity);
}

void moveBytesInto(DataBuffer& bytes, unsigned from, std::string& out) {
    unsigned char* p = bytes.getData2();
    const size_t size = bytes.getSize();
    const bool mapped = isMapped(bytes.getCapacity());
    if (from < size) out.reserve(out.size() + (size - from));
    // Mapped storage starts on a huge-page boundary: a step ends at the next one.
    for (size_t at = from; at < size;) {
        const size_t pageEnd = mapped ? (at / kHugeBlock + 1) * kHugeBlock : size;
        const size_t end = std::min(size, pageEnd);
        out.append(reinterpret_cast<const char*>(p + at), end - at);
        if (mapped && end == pageEnd) madvise(p + pageEnd - kHugeBlock, kHugeBlock, MADV_DONTNEED);
        at = end;
    }
    bytes.releaseStorage();
}

void DataBuffer::releaseStorage() {
    freeStorage(m_data, m_capacity);
    m_data = nullptr;
    m_size = 0;
    m_capacity = 0;
}

void DataBuffer::swap(DataBuffer& other) noexcept {
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
    std::swap(m_capacity, other.m_capacity);
}

unsigned char* DataBuffer::getDataAt2(unsigned offset) {
    return offset < m_size ? m_data + offset : nullptr;
}

const unsigned char* DataBuffer::getDataAt2(unsigned offset) const {
    return offset < m_size ? m_data + offset : nullptr;
}

bool DataBuffer::ensureBuffer(unsigned capacity) {
    return ensureBuffer64(capacity);
}

bool DataBuffer::ensureBuffer64(uint64_t capacity) {
    if (capacity > kMaxSize) return false;
    if (capacity <= m_capacity && (m_data || capacity == 0)) return true;
    uint64_t cap = grownCapacity(m_capacity, capacity);
    unsigned char* p = growStorage(m_data, m_capacity, m_size, cap);
    if (!p && cap > capacity) {
        // The geometric reserve may be what does not fit; try the exact amount.
        cap = capacity;
        p = growStorage(m_data, m_capacity, m_size, cap);
    }
    if (!p) return false;
    m_data = p;
    m_capacity = static_cast<unsigned>(cap);
    return true;
}

bool DataBuffer::extendStorage64(uint64_t capacity) {
    if (capacity > kMaxSize) return false;
    if (capacity <= m_capacity && (m_data || capacity == 0)) return true;
    unsigned char* p = growStorage(m_data, m_capacity, m_size, capacity);
    if (!p) return false;
    m_data = p;
    m_capacity = static_cast<unsigned>(capacity);
    return true;
}

void DataBuffer::setDataSize_CAUTION(unsigned n) {
    m_size = n > m_capacity ? m_capacity : n;
}

bool DataBuffer::append(const void* bytes, unsigned n) {
    if (n == 0) return true;
    if (!bytes) return false;
    uint64_t total = uint64_t{m_size} + n;
    if (total > m_capacity) {
        // The source may lie inside this buffer; growing would move it.
        const unsigned char* src = static_cast<const unsigned char*>(bytes);
        if (m_data && src >= m_data && src < m_data + m_capacity) {
            size_t off = static_cast<size_t>(src - m_data);
            if (!ensureBuffer64(total)) return false;
            bytes = m_data + off;
        } else if (!ensureBuffer64(total)) {
            return false;
        }
    }
    std::memmove(m_data + m_size, bytes, n);
    m_size = static_cast<unsigned>(total);
    return true;
}

bool DataBuffer::append(const DataBuffer& other) {
    if (other.m_size == 0) return true;
    return append(other.m_data, other.m_size);
}

bool DataBuffer::append(const StringBuffer& sb) {
    return append(sb.getString(), sb.getSize());
}

bool DataBuffer::appendChar(unsigned char c) {
    return append(&c, 1);
}

bool DataBuffer::appendRange(const DataBuffer& src, unsigned offset, unsigned count) {
    if (uint64_t{offset} + count > src.m_size) return false;
    if (count == 0) return true;
    return append(src.m_data + offset, count);
}

void DataBuffer::shorten(unsigned n) {
    m_size = n >= m_size ? 0 : m_size - n;
}

void DataBuffer::removeChunk(unsigned offset, unsigned n) {
    if (offset >= m_size || n == 0) return;
    unsigned avail = m_size - offset;
    if (n >= avail) {
        m_size = offset;
        return;
    }
    std::memmove(m_data + offset, m_data + offset + n, avail - n);
    m_size -= n;
}

bool DataBuffer::equals(const DataBuffer& other) const {
    return equals(other.m_data, other.m_size);
}

bool DataBuffer::equals(const void* bytes, unsigned n) const {
    if (n != m_size) return false;
    if (n == 0) return true;
    return bytes && std::memcmp(m_data, bytes, n) == 0;
}

const unsigned char* DataBuffer::findBytes(const unsigned char* needle, int length) const {
    if (length <= 0) return nullptr;
    return findBytes2(m_data, m_size, needle, static_cast<unsigned>(length));
}

const unsigned char* DataBuffer::findBytes2(const unsigned char* hay, unsigned hayLength,
                                            const unsigned char* needle, unsigned needleLength) {
    if (!hay || !needle || needleLength == 0 || needleLength > hayLength) return nullptr;
    return Searcher(needle, needleLength).find(hay, hay + hayLength);
}

int DataBuffer::replaceAllOccurances(const unsigned char* find, unsigned findLength,
                                     const unsigned char* repl, unsigned replLength) {
    if (!find || findLength == 0 || findLength > m_size) return 0;
    if (replLength && !repl) return -1;
    if (overlapsStorage(find, findLength) || overlapsStorage(repl, replLength)) {
        // The pattern or its replacement lies in the bytes being rewritten: work on copies.
        DataBuffer f, r;
        if (!f.append(find, findLength) || !r.append(repl, replLength)) return -1;
        return replaceAllOccurances(f.getData2(), findLength, r.getData2(), replLength);
    }
    if (replLength == findLength) return replaceSameLength(m_data, m_size, find, findLength, repl);
    if (replLength < findLength) return replaceShrinking(*this, find, findLength, repl, replLength);
    return replaceGrowing(*this, find, findLength, repl, replLength);
}

bool DataBuffer::overlapsStorage(const void* p, unsigned n) const {
    if (!p || !m_data || n == 0) return false;
    const unsigned char* b = static_cast<const unsigned char*>(p);
    return b < m_data + m_capacity && b + n > m_data;
}

bool DataBuffer::encodeDB(const char* encoding, StringBuffer& out) const {
    return encodeBytes(encoding, m_data, m_size, out);
}

bool DataBuffer::decodeDB(const char* encoding, const char* text, unsigned textLen) {
    if (!text && textLen) return false;
    DataBuffer decoded;
    if (!decodeText(encoding, text, textLen, decoded)) return false;
    swap(decoded);
    return true;
}

bool DataBuffer::parseUint16(unsigned& pos, bool littleEndian, unsigned short& out) const {
    if (uint64_t{pos} + 2 > m_size) return false;
    const unsigned char* b = m_data + pos;
    out = littleEndian ? static_cast<unsigned short>(b[0] | (b[1] << 8))
                       : static_cast<unsigned short>((b[0] << 8) | b[1]);
    pos += 2;
    return true;
}

bool DataBuffer::parseUint32(unsigned& pos, bool littleEndian, unsigned& out) const {
    if (uint64_t{pos} + 4 > m_size) return false;
    const unsigned char* b = m_data + pos;
    unsigned v = 0;
    for (int i = 0; i < 4; ++i) {
        unsigned byte = littleEndian ? b[3 - i] : b[i];
        v = (v << 8) | byte;
    }
    out = v;
    pos += 4;
    return true;
}

bool DataBuffer::parseData(unsigned& pos, unsigned n, DataBuffer& out) const {
    if (uint64_t{pos} + n > m_size) return false;
    if (n && !out.append(m_data + pos, n)) return false;
    pos += n;
    return true;
}

bool DataBuffer::parseDataEnc(unsigned& pos, unsigned n, const char* encoding,
                              StringBuffer& out) const {
    if (uint64_t{pos} + n > m_size) return false;
    if (!encodeBytes(encoding, n ? m_data + pos : nullptr, n, out)) return false;
    pos += n;
    return true;
}
