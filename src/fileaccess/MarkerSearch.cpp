// Finding the markers of a record scan, and the markers themselves in the scan's charset.
#include "fileaccess/MarkerSearch.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace fragments {

namespace {

// Byte search tuned for markers in text. Every marker byte pair (first, last) is tested for
// 16 positions at once, and only positions where both agree are compared in full. Records
// repeat their markers' prefixes every few dozen bytes ("<rec" before each "</rec>" ...), which
// makes a general substring search crawl when a marker is absent from a whole chunk (as the
// exact form of a tag marker usually is); this filter rarely stops there. Data full of
// near-matches, where the filter would stop at almost every byte, is handed to the general
// search, whose time is linear in any case.
using Bytes16 = unsigned char __attribute__((vector_size(16)));

Bytes16 load16(const unsigned char* p) {
    Bytes16 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// True when some lane of a 16-lane comparison result is set.
template <class Mask>
bool anySet(Mask v) {
    static_assert(sizeof(Mask) == 16);
    uint64_t half[2];
    std::memcpy(half, &v, sizeof half);
    return (half[0] | half[1]) != 0;
}

unsigned viaMemmem(const unsigned char* hay, unsigned from, unsigned to,
                   const unsigned char* needle, unsigned len) {
    const unsigned char* hit = DataBuffer::findBytes2(hay + from, to - from, needle, len);
    return hit ? static_cast<unsigned>(hit - hay) : kNotFound;
}

}  // namespace

unsigned findMarker(const unsigned char* hay, unsigned from, unsigned to, const unsigned char* pat,
                    unsigned len) {
    if (from >= to || len == 0 || to - from < len) return kNotFound;
    if (len == 1) {
        const void* hit = std::memchr(hay + from, pat[0], to - from);
        return hit ? static_cast<unsigned>(static_cast<const unsigned char*>(hit) - hay)
                   : kNotFound;
    }
    const Bytes16 first = Bytes16{} + pat[0];
    const Bytes16 last = Bytes16{} + pat[len - 1];
    // Lanes of the 16 positions from p where the first and the last byte both agree.
    auto pairs = [&](unsigned p) {
        return (load16(hay + p) == first) & (load16(hay + p + len - 1) == last);
    };
    // Full comparisons allowed before the rest goes to the general search: one per 16 bytes
    // scanned, after a start of 64.
    unsigned budget = 64;
    constexpr unsigned kGiveUp = kNotFound - 1;
    // The first match among the lanes of the block at p, kNotFound, or kGiveUp once the
    // budget is spent.
    auto verify = [&](unsigned p, auto lanes) {
        budget += 1;
        if (!anySet(lanes)) return kNotFound;
        for (unsigned k = 0; k < 16; ++k) {
            if (!lanes[k]) continue;
            if (std::memcmp(hay + p + k + 1, pat + 1, len - 2) == 0) return p + k;
            if (--budget == 0) return kGiveUp;
        }
        return kNotFound;
    };
    unsigned i = from;
    // Four blocks at a time while none holds a candidate.
    for (; i + len - 1 + 64 <= to; i += 64) {
        if (!anySet(pairs(i) | pairs(i + 16) | pairs(i + 32) | pairs(i + 48))) {
            budget += 4;
            continue;
        }
        for (unsigned b = i; b < i + 64; b += 16) {
            const unsigned at = verify(b, pairs(b));
            if (at == kGiveUp) return viaMemmem(hay, b, to, pat, len);
            if (at != kNotFound) return at;
        }
    }
    for (; i + len - 1 + 16 <= to; i += 16) {
        const unsigned at = verify(i, pairs(i));
        if (at == kGiveUp) return viaMemmem(hay, i, to, pat, len);
        if (at != kNotFound) return at;
    }
    return i + len <= to ? viaMemmem(hay, i, to, pat, len) : kNotFound;
}

void Markers::buildVariants() {
    // Where ">" is the single byte 0x3E the variants replace the final byte; where it is a
    // wider code unit (UTF-16, UTF-32) the whole unit is replaced by the same-width unit of the
    // white-space character.
    static const char* const kText[4] = {" ", "\t", "\r", "\n"};
    static const unsigned char kByte[4] = {0x20, 0x09, 0x0D, 0x0A};
    m_variantsBuilt = true;
    DataBuffer gt;
    const char* cs = m_key.c_str();
    const unsigned n = m_begin.getSize();
    const bool wide = XString(">").getConverted(cs, gt) &&
                      !(gt.getSize() == 1 && gt.getData2()[0] == 0x3E) && gt.getSize() != 0 &&
                      gt.getSize() < n &&
                      std::equal(gt.getData2(), gt.getData2() + gt.getSize(),
                                 m_begin.getData2() + (n - gt.getSize()));
    for (unsigned i = 0; i < 4; ++i) {
        DataBuffer& v = m_variants[i];
        v.clear();
        v.append(m_begin);
        DataBuffer ws;
        if (wide && XString(kText[i]).getConverted(cs, ws) && ws.getSize() == gt.getSize()) {
            v.shorten(gt.getSize());
            v.append(ws);
        } else {
            v.shorten(1);
            v.appendChar(kByte[i]);
        }
    }
}

const DataBuffer& Markers::variant(unsigned i) {
    if (!m_variantsBuilt) buildVariants();
    return m_variants[i];
}

const char* Markers::prepare(const XString& begin, const XString& end, const XString& charset) {
    const char* cs = charset.getUtf8();
    // The key starts with the charset's name, so that c_str() is that name.
    const std::string_view b = begin.view(), e = end.view();
    const size_t csLen = std::strlen(cs);
    if (!m_key.empty() && m_key.size() == csLen + 2 + b.size() + e.size() &&
        m_key.compare(0, csLen, cs) == 0 && m_key[csLen] == '\0' &&
        m_key.compare(csLen + 1, b.size(), b) == 0 && m_key[csLen + 1 + b.size()] == '\0' &&
        m_key.compare(csLen + 2 + b.size(), e.size(), e) == 0)
        return nullptr;
    m_key.clear();
    m_variantsBuilt = false;
    if (!begin.getConverted(cs, m_begin))
        return "Failed to convert beginMarker to desired charset.";
    if (!end.getConverted(cs, m_end)) return "Failed to convert endMarker to desired charset.";
    m_isXmlTag = begin.beginsWithUtf8("<", false) && begin.endsWithUtf8(">", false);
    m_charsetKnown = m_charset.setByName(cs);
    m_key.assign(cs).append(1, '\0').append(b).append(1, '\0').append(e);
    return nullptr;
}

bool Markers::decodeAppend(const unsigned char* bytes, unsigned n, XString& out) const {
    return m_charsetKnown && out.appendFromEncoding(m_charset, bytes, n);
}

bool Markers::decodeTaking(DataBuffer& bytes, XString& out) const {
    return m_charsetKnown && out.appendFromEncodingTaking(m_charset, bytes);
}

}  // namespace fragments
