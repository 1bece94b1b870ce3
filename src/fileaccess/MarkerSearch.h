// Finding the markers of a record scan, and the markers themselves in the scan's charset.
#pragma once

#include <array>
#include <string>

#include "foundation/text/Charset.h"
#include "foundation/text/DataBuffer.h"
#include "foundation/text/XString.h"

namespace fragments {

constexpr unsigned kNotFound = ~0u;

// The first occurrence of needle[0, len) that starts in hay[from, to) and ends within it, or
// kNotFound. Tuned for markers in text: see the definition.
unsigned findMarker(const unsigned char* hay, unsigned from, unsigned to,
                    const unsigned char* needle, unsigned len);

inline unsigned findMarker(const unsigned char* hay, unsigned from, unsigned to,
                           const DataBuffer& needle) {
    return findMarker(hay, from, to, needle.getData2(), needle.getSize());
}

// The begin and end markers of a scan as bytes in the scan's charset, with the begin marker's
// tag variants and the charset fragments are decoded from. An object keeps one and reuses it
// while the same markers and charset come again, so a scan of many records converts once.
class Markers {
  public:
    // Converts the markers unless they are the ones held. Null, or the error line of the
    // conversion that failed (the set then holds nothing).
    const char* prepare(const XString& begin, const XString& end, const XString& charset);

    const DataBuffer& begin() const { return m_begin; }
    const DataBuffer& end() const { return m_end; }
    bool isXmlTag() const { return m_isXmlTag; }
    // The begin marker with its closing ">" replaced by a space, tab, carriage return and
    // line feed (i = 0 to 3), in that order of preference. Built on first use.
    const DataBuffer& variant(unsigned i);
    // Appends a fragment's text to out, as XString::appendFromEncodingDb with the charset's
    // name would; false (out unchanged) when it cannot be decoded.
    bool decodeAppend(const unsigned char* bytes, unsigned n, XString& out) const;
    // As decodeAppend with all of `bytes`, which it takes (XString::appendFromEncodingTaking):
    // a long record is not held twice.
    bool decodeTaking(DataBuffer& bytes, XString& out) const;

  private:
    void buildVariants();

    std::string m_key;  // charset, begin and end texts, joined with NULs; empty when unset
    DataBuffer m_begin, m_end;
    bool m_isXmlTag = false;
    _ovCharset m_charset;
    bool m_charsetKnown = false;
    bool m_variantsBuilt = false;
    std::array<DataBuffer, 4> m_variants;
};

}  // namespace fragments
