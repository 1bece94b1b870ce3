#include "foundation/text/Convert.h"

#include <iconv.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "foundation/text/DataBuffer.h"

namespace {

const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);

// Opening a converter means looking up tables and loading modules, so each thread keeps the
// few it used last. Being per thread, the cache needs no lock and a descriptor is never used
// by two threads at once.
class ConverterCache {
  public:
    ~ConverterCache() {
        for (Slot& s : m_slots)
            if (s.cd != kNoConverter) iconv_close(s.cd);
    }

    // A converter in its initial state, or kNoConverter when iconv has none.
    iconv_t get(const char* from, const char* to) {
        for (Slot& s : m_slots) {
            if (s.cd != kNoConverter && s.from == from && s.to == to) {
                iconv(s.cd, nullptr, nullptr, nullptr, nullptr);
                return s.cd;
            }
        }
        iconv_t cd = iconv_open(to, from);
        if (cd == kNoConverter) return cd;
        Slot& victim = m_slots[m_next];
        m_next = (m_next + 1) % kSlots;
        if (victim.cd != kNoConverter) iconv_close(victim.cd);
        victim.cd = cd;
        victim.from = from;
        victim.to = to;
        return cd;
    }

  private:
    static constexpr int kSlots = 8;
    struct Slot {
        iconv_t cd = kNoConverter;
        std::string from, to;
    };
    Slot m_slots[kSlots];
    int m_next = 0;
};

ConverterCache& cache() {
    thread_local ConverterCache c;
    return c;
}

// Length of the well-formed UTF-8 sequence at p (at most `left` bytes), or 0.
size_t utf8SequenceLength(const unsigned char* p, size_t left) {
    unsigned char c = p[0];
    if (c < 0x80) return 1;
    size_t len;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        len = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        len = 3;
        if (c == 0xE0) lo = 0xA0;  // overlong
        if (c == 0xED) hi = 0x9F;  // surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
        len = 4;
        if (c == 0xF0) lo = 0x90;  // overlong
        if (c == 0xF4) hi = 0x8F;  // past U+10FFFF
    } else {
        return 0;
    }
    if (left < len) return 0;
    if (p[1] < lo || p[1] > hi) return 0;
    for (size_t i = 2; i < len; ++i)
        if ((p[i] & 0xC0) != 0x80) return 0;
    return len;
}

bool sameNoCase(const char* a, const char* b) {
    auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; };
    for (; *a && *b; ++a, ++b)
        if (lower(*a) != lower(*b)) return false;
    return *a == *b;
}

bool isUtf8Name(const char* name) {
    return sameNoCase(name, "UTF-8") || sameNoCase(name, "UTF8");
}

bool iconvInto(iconv_t cd, const char*& src, size_t& srcLeft, DataBuffer& out) {
    // Room for the usual expansion (UTF-8 to UTF-32 is at most 4x); grown when short.
    uint64_t want = uint64_t{out.getSize()} + srcLeft * 2 + 16;
    while (srcLeft > 0) {
        if (want > UINT32_MAX) want = UINT32_MAX;
        if (!out.ensureBuffer64(want)) return false;
        char* dst = reinterpret_cast<char*>(out.getData2() + out.getSize());
        size_t dstLeft = out.getCapacity() - out.getSize();
        if (dstLeft == 0) return false;
        char* dstStart = dst;
        char* in = const_cast<char*>(src);
        size_t rc = iconv(cd, &in, &srcLeft, &dst, &dstLeft);
        src = in;
        out.setDataSize_CAUTION(out.getSize() + static_cast<unsigned>(dst - dstStart));
        if (rc != static_cast<size_t>(-1)) return true;
        if (errno != E2BIG) return false;  // EILSEQ (bad) or EINVAL (cut off at the end)
        want = uint64_t{out.getCapacity()} + srcLeft * 4 + 16;
    }
    return true;
}

bool flushShiftState(iconv_t cd, DataBuffer& out) {
    // Stateful encodings such as ISO-2022-JP end in the initial state.
    while (true) {
        if (!out.ensureBuffer64(uint64_t{out.getSize()} + 16)) return false;
        char* dst = reinterpret_cast<char*>(out.getData2() + out.getSize());
        size_t dstLeft = out.getCapacity() - out.getSize();
        char* dstStart = dst;
        size_t rc = iconv(cd, nullptr, nullptr, &dst, &dstLeft);
        out.setDataSize_CAUTION(out.getSize() + static_cast<unsigned>(dst - dstStart));
        if (rc != static_cast<size_t>(-1)) return true;
        if (errno != E2BIG) return false;
    }
}

// The length of data[0, n) up to the start of a UTF-8 sequence that runs past its end.
size_t completeUtf8Prefix(const unsigned char* data, size_t n) {
    for (size_t k = n; k > 0 && n - k < 4;) {
        const unsigned char c = data[--k];
        if ((c & 0xC0) == 0x80) continue;
        const size_t len = c < 0x80 ? 1 : c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        return k + len > n ? k : n;
    }
    return n;
}

}  // namespace

bool converterExists(const char* iconvName) {
    if (!iconvName || !*iconvName) return false;
    return cache().get(iconvName, "UTF-8") != kNoConverter;
}

bool isValidUtf8(const unsigned char* bytes, size_t n) {
    size_t i = 0;
    while (i < n) {
        // Runs of ASCII are the common case; skip them eight bytes at a time.
        while (i + 8 <= n) {
            uint64_t w;
            std::memcpy(&w, bytes + i, 8);
            if (w & 0x8080808080808080ULL) break;
            i += 8;
        }
        if (i >= n) break;
        size_t len = utf8SequenceLength(bytes + i, n - i);
        if (len == 0) return false;
        i += len;
    }
    return true;
}

bool convertCharset(const char* from, const char* to, const unsigned char* in, size_t n,
                    DataBuffer& out) {
    if (!from || !to) return false;
    if (n == 0) return cache().get(from, to) != kNoConverter;
    if (!in) return false;
    if (isUtf8Name(from) && isUtf8Name(to)) {
        if (!isValidUtf8(in, n)) return false;
        return n <= UINT32_MAX && out.append(in, static_cast<unsigned>(n));
    }
    iconv_t cd = cache().get(from, to);
    if (cd == kNoConverter) return false;
    const char* src = reinterpret_cast<const char*>(in);
    size_t srcLeft = n;
    // A cut-off sequence at the end (EINVAL) fails as a bad one does.
    return iconvInto(cd, src, srcLeft, out) && flushShiftState(cd, out);
}

const unsigned char* preambleOf(int codePage, unsigned& length) {
    static const unsigned char kUtf8[] = {0xEF, 0xBB, 0xBF};
    static const unsigned char kUtf16Le[] = {0xFF, 0xFE};
    static const unsigned char kUtf16Be[] = {0xFE, 0xFF};
    static const unsigned char kUtf32Le[] = {0xFF, 0xFE, 0x00, 0x00};
    static const unsigned char kUtf32Be[] = {0x00, 0x00, 0xFE, 0xFF};
    switch (codePage) {
        case 65001:
            length = 3;
            return kUtf8;
        case 1200:
            length = 2;
            return kUtf16Le;
        case 1201:
            length = 2;
            return kUtf16Be;
        case 12000:
            length = 4;
            return kUtf32Le;
        case 12001:
            length = 4;
            return kUtf32Be;
        default:
            length = 0;
            return nullptr;
    }
}

// ----- StreamConverter -----

StreamConverter::~StreamConverter() {
    if (m_cd != kNoConverter) iconv_close(static_cast<iconv_t>(m_cd));
}

bool StreamConverter::open(const char* from, const char* to) {
    if (m_cd != kNoConverter) iconv_close(static_cast<iconv_t>(m_cd));
    m_cd = kNoConverter;
    m_held.clear();
    m_utf8 = isUtf8Name(from) && isUtf8Name(to);
    if (m_utf8) return true;
    m_cd = iconv_open(to, from);
    return m_cd != kNoConverter;
}

bool StreamConverter::convert(const unsigned char* in, size_t n, bool last, DataBuffer& out) {
    if (!m_utf8 && m_cd == kNoConverter) return false;
    if (!in && n) return false;
    // The start of a character the last piece cut off comes first.
    if (!m_held.empty()) {
        m_joined.assign(m_held).append(reinterpret_cast<const char*>(in), n);
        in = reinterpret_cast<const unsigned char*>(m_joined.data());
        n = m_joined.size();
        m_held.clear();
    }
    if (m_utf8) {
        const size_t whole = last ? n : completeUtf8Prefix(in, n);
        if (!isValidUtf8(in, whole) || whole > UINT32_MAX ||
            !out.append(in, static_cast<unsigned>(whole)))
            return false;
        m_held.assign(reinterpret_cast<const char*>(in) + whole, n - whole);
        return true;
    }
    const char* src = reinterpret_cast<const char*>(in);
    size_t left = n;
    const iconv_t cd = static_cast<iconv_t>(m_cd);
    if (!iconvInto(cd, src, left, out)) {
        if (errno != EINVAL || last) return false;
        m_held.assign(src, left);
    }
    return !last || flushShiftState(cd, out);
}
