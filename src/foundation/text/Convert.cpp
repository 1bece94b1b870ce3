#include "foundation/text/Convert.h"

#include <iconv.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/text/DataBuffer.h"

namespace {

const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);

// One conversion of a short input (a character or two) by `cd` from its initial state, into
// `out`; false when the converter rejects the input or finds it cut off.
bool convertShort(iconv_t cd, const char* in, size_t n, std::string& out) {
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char buf[64];
    char* dst = buf;
    size_t dstLeft = sizeof buf;
    char* src = const_cast<char*>(in);
    if (iconv(cd, &src, &n, &dst, &dstLeft) == static_cast<size_t>(-1)) return false;
    if (iconv(cd, nullptr, nullptr, &dst, &dstLeft) == static_cast<size_t>(-1)) return false;
    out.assign(buf, static_cast<size_t>(dst - buf));
    return true;
}

// The byte-order mark that starts `bytes` (and is not all of it), or "". The four-byte marks
// are tried first, since FF FE also starts the UTF-32 one.
std::string markAtStart(const std::string& bytes) {
    static const std::string kMarks[] = {std::string("\xFF\xFE\0\0", 4),
                                         std::string("\0\0\xFE\xFF", 4), "\xEF\xBB\xBF", "\xFF\xFE",
                                         "\xFE\xFF"};
    for (const std::string& mark : kMarks)
        if (bytes.size() > mark.size() && bytes.compare(0, mark.size(), mark) == 0) return mark;
    return "";
}

// Opening a converter means looking up tables and loading modules, so each thread keeps the
// few it used last. Being per thread, the cache needs no lock and a descriptor is never used
// by two threads at once.
class ConverterCache {
  public:
    struct Slot {
        iconv_t cd = kNoConverter;
        std::string from, to;
        std::string mark;  // what the converter writes before every output, taken off again
    };

    ~ConverterCache() {
        for (Slot& s : m_slots)
            if (s.cd != kNoConverter) iconv_close(s.cd);
    }

    // A converter in its initial state, or null when iconv has none.
    Slot* get(const char* from, const char* to) {
        for (Slot& s : m_slots) {
            if (s.cd != kNoConverter && s.from == from && s.to == to) {
                iconv(s.cd, nullptr, nullptr, nullptr, nullptr);
                return &s;
            }
        }
        iconv_t cd = iconv_open(to, from);
        if (cd == kNoConverter) return nullptr;
        Slot& victim = m_slots[m_next];
        m_next = (m_next + 1) % kSlots;
        if (victim.cd != kNoConverter) iconv_close(victim.cd);
        victim.cd = cd;
        victim.from = from;
        victim.to = to;
        victim.mark = outputMarkOf(to);
        return &victim;
    }

  private:
    static constexpr int kSlots = 8;
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

// Takes the mark a converter wrote before the output it appended from `start` off again.
void dropMark(DataBuffer& out, unsigned start, const std::string& mark) {
    if (mark.empty() || out.getSize() - start < mark.size()) return;
    if (std::memcmp(out.getData2() + start, mark.data(), mark.size()) == 0)
        out.removeChunk(start, static_cast<unsigned>(mark.size()));
}

}  // namespace

std::string outputMarkOf(const char* iconvName) {
    if (!iconvName || isUtf8Name(iconvName)) return "";
    iconv_t cd = iconv_open(iconvName, "UTF-8");
    if (cd == kNoConverter) return "";
    // A mark before each of a few characters that every charset holds.
    std::string mark;
    for (const char* probe : {"A", "0", " "}) {
        std::string out;
        if (!convertShort(cd, probe, 1, out)) continue;
        const std::string m = markAtStart(out);
        if (m.empty() || (!mark.empty() && m != mark)) {
            mark.clear();
            break;
        }
        mark = m;
    }
    iconv_close(cd);
    return mark;
}

namespace {

// The UTF-8 form of a code point of the Basic Multilingual Plane; returns its length.
size_t utf8Of(unsigned cp, char* out) {
    if (cp < 0x80) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<char>(0xC0 | cp >> 6);
        out[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    out[0] = static_cast<char>(0xE0 | cp >> 12);
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    return 3;
}

// Two converters of the same direction, fed the same inputs one at a time.
class ConverterPair {
  public:
    ConverterPair(const char* fromA, const char* toA, const char* fromB, const char* toB)
        : m_a(iconv_open(toA, fromA)),
          m_b(iconv_open(toB, fromB)),
          m_markA(outputMarkOf(toA)),
          m_markB(outputMarkOf(toB)) {}
    ~ConverterPair() {
        if (m_a != kNoConverter) iconv_close(m_a);
        if (m_b != kNoConverter) iconv_close(m_b);
    }
    ConverterPair(const ConverterPair&) = delete;
    ConverterPair& operator=(const ConverterPair&) = delete;

    bool opened() const { return m_a != kNoConverter && m_b != kNoConverter; }
    // True when both reject the input, or both give the same bytes (marks aside).
    bool same(const char* in, size_t n) {
        const bool okA = convertShort(m_a, in, n, m_outA), okB = convertShort(m_b, in, n, m_outB);
        if (okA != okB) return false;
        return !okA || withoutMark(m_outA, m_markA) == withoutMark(m_outB, m_markB);
    }

  private:
    static std::string_view withoutMark(const std::string& out, const std::string& mark) {
        std::string_view v(out);
        if (!mark.empty() && v.substr(0, mark.size()) == mark) v.remove_prefix(mark.size());
        return v;
    }

    iconv_t m_a, m_b;
    std::string m_markA, m_markB, m_outA, m_outB;
};

}  // namespace

bool convertsAlike(const char* a, const char* b) {
    if (!a || !b) return false;
    ConverterPair encode("UTF-8", a, "UTF-8", b);
    if (!encode.opened()) return false;
    char utf8[3];
    for (unsigned cp = 0; cp < 0x10000; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        if (!encode.same(utf8, utf8Of(cp, utf8))) return false;
    }
    ConverterPair decode(a, "UTF-8", b, "UTF-8");
    if (!decode.opened()) return false;
    for (unsigned v = 0; v < 0x100; ++v) {
        const char byte = static_cast<char>(v);
        if (!decode.same(&byte, 1)) return false;
    }
    for (unsigned v = 0; v < 0x10000; ++v) {
        const char bytes[2] = {static_cast<char>(v >> 8), static_cast<char>(v & 0xFF)};
        if (!decode.same(bytes, 2)) return false;
    }
    return true;
}

bool converterExists(const char* iconvName) {
    if (!iconvName || !*iconvName) return false;
    return cache().get(iconvName, "UTF-8") != nullptr;
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
    if (n == 0) return cache().get(from, to) != nullptr;
    if (!in) return false;
    if (isUtf8Name(from) && isUtf8Name(to)) {
        if (!isValidUtf8(in, n)) return false;
        return n <= UINT32_MAX && out.append(in, static_cast<unsigned>(n));
    }
    const ConverterCache::Slot* conv = cache().get(from, to);
    if (!conv) return false;
    const unsigned start = out.getSize();
    const char* src = reinterpret_cast<const char*>(in);
    size_t srcLeft = n;
    // A cut-off sequence at the end (EINVAL) fails as a bad one does.
    const bool ok = iconvInto(conv->cd, src, srcLeft, out) && flushShiftState(conv->cd, out);
    dropMark(out, start, conv->mark);
    return ok;
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

unsigned leadingMarkLength(int codePage, const unsigned char* bytes, size_t n) {
    unsigned length = 0;
    const unsigned char* mark = preambleOf(codePage, length);
    return mark && n >= length && std::memcmp(bytes, mark, length) == 0 ? length : 0;
}

// ----- StreamConverter -----

StreamConverter::~StreamConverter() {
    if (m_cd != kNoConverter) iconv_close(static_cast<iconv_t>(m_cd));
}

bool StreamConverter::open(const char* from, const char* to) {
    if (m_cd != kNoConverter) iconv_close(static_cast<iconv_t>(m_cd));
    m_cd = kNoConverter;
    m_held.clear();
    m_mark.clear();
    m_utf8 = isUtf8Name(from) && isUtf8Name(to);
    if (m_utf8) return true;
    m_cd = iconv_open(to, from);
    if (m_cd == kNoConverter) return false;
    m_mark = outputMarkOf(to);
    return true;
}

bool StreamConverter::convert(const unsigned char* in, size_t n, bool last, DataBuffer& out) {
    const unsigned start = out.getSize();
    const bool ok = convertPiece(in, n, last, out);
    // The converter's mark comes with its first output, which may be a later piece's when the
    // first pieces only held the start of a character.
    if (!m_mark.empty() && out.getSize() > start) {
        dropMark(out, start, m_mark);
        m_mark.clear();
    }
    return ok;
}

bool StreamConverter::convertPiece(const unsigned char* in, size_t n, bool last, DataBuffer& out) {
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
