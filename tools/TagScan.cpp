#include "TagScan.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "fileaccess/MarkerSearch.h"
#include "foundation/text/XString.h"

namespace fatool {

namespace {

bool encode(const std::string& text, const _ovCharset& charset, DataBuffer& out) {
    XString s(text.c_str());
    return s.getConverted(charset, out) && out.getSize() != 0;
}

}  // namespace

// The bytes held: window[0, size) are the source's bytes from offset `base` on.
struct TagScanner::Window {
    std::vector<unsigned char> bytes;
    size_t size = 0;
    int64_t base = 0;
    bool eof = false;

    const unsigned char* data() const { return bytes.data(); }

    // Drops the bytes before `keep` and reads the next block behind the rest.
    bool refill(ByteSource& source, size_t keep, size_t block, std::string& why) {
        if (keep > 0) {
            std::memmove(bytes.data(), bytes.data() + keep, size - keep);
            size -= keep;
            base += static_cast<int64_t>(keep);
        }
        // Offsets in the window are 32-bit, as the marker search's are.
        if (size + block > UINT32_MAX) return why = "a record is longer than 4 GiB", false;
        if (bytes.size() < size + block) bytes.resize(size + block);
        size_t got = 0;
        if (!source.read(bytes.data() + size, block, got, why)) return false;
        size += got;
        eof = got < block;
        return true;
    }
};

bool isTagMarker(const std::string& begin) {
    if (begin.size() < 3 || begin.front() != '<' || begin.back() != '>') return false;
    return begin.find_first_of("<>/ \t\r\n", 1) == begin.size() - 1;
}

bool TagScanner::prepare(const std::string& begin, const std::string& end,
                         const std::string& charset, std::string& why) {
    if (!isTagMarker(begin)) return why = "'" + begin + "' is not a tag", false;
    if (end.empty()) return why = "the end marker is empty", false;
    m_charsetName = charset;
    if (!m_charset.setByName(charset.c_str()))
        return why = "unknown charset '" + charset + "'", false;
    static const char* const kUnitText[kUnits] = {" ", "\t", "\r", "\n", ">", "/", "\"", "'"};
    DataBuffer lt;
    if (!encode("<", m_charset, lt) ||
        !encode(begin.substr(0, begin.size() - 1), m_charset, m_prefix) ||
        !encode(end, m_charset, m_end))
        return why = "the markers cannot be written in " + charset, false;
    m_unit = lt.getSize();
    m_units.clear();
    for (const char* text : kUnitText) {
        DataBuffer u;
        if (!encode(text, m_charset, u) || u.getSize() != m_unit)
            return why = charset + " writes tags in characters of differing widths", false;
        m_units.insert(m_units.end(), u.getData2(), u.getData2() + m_unit);
    }
    m_special.fill(false);
    if (m_unit == 1)
        for (Unit u : {kGt, kQuote, kApos}) m_special[m_units[u]] = true;
    return true;
}

// In UTF-16 and UTF-32 a match must start on a character, counted from the file's start.
bool TagScanner::aligned(const Window& w, size_t at) const {
    return m_unit == 1 || (w.base + static_cast<int64_t>(at)) % static_cast<int64_t>(m_unit) == 0;
}

bool TagScanner::step(Window& w) {
    switch (m_seek) {
        case Seek::Begin:
            return stepBegin(w);
        case Seek::TagEnd:
            return stepTagEnd(w);
        case Seek::End:
            return stepEnd(w);
    }
    return false;
}

// The first match of `needle` in the window from `from` on that starts on a character, or
// kNotFound.
unsigned TagScanner::findAligned(const Window& w, const DataBuffer& needle, size_t from) const {
    while (true) {
        const unsigned hit = fragments::findMarker(w.data(), static_cast<unsigned>(from),
                                                   static_cast<unsigned>(w.size), needle);
        if (hit == fragments::kNotFound || aligned(w, hit)) return hit;
        from = size_t{hit} + 1;
    }
}

// Finds "<name" followed by white space, ">" or "/"; false when the window runs out first.
bool TagScanner::stepBegin(Window& w) {
    const unsigned prefixLen = m_prefix.getSize();
    while (true) {
        const unsigned hit = findAligned(w, m_prefix, m_at);
        if (hit == fragments::kNotFound) {
            // The last bytes may be the start of a tag cut by the block's end.
            const size_t tail = prefixLen + m_unit - 1;
            m_at = std::max(m_at, w.size > tail ? w.size - tail : 0);
            return false;
        }
        const size_t after = size_t{hit} + prefixLen;
        if (after + m_unit > w.size) {
            m_at = hit;
            return false;
        }
        const unsigned char* next = w.data() + after;
        m_start = hit;
        if (unitIs(next, kGt)) {
            m_at = after + m_unit;
            m_seek = Seek::End;
            return stepEnd(w);
        }
        if (unitIs(next, kSpace) || unitIs(next, kTab) || unitIs(next, kCr) || unitIs(next, kLf) ||
            unitIs(next, kSlash)) {
            m_at = after;
            m_quote = -1;
            m_seek = Seek::TagEnd;
            return stepTagEnd(w);
        }
        m_at = size_t{hit} + 1;  // a longer name, such as <record> for <rec>
    }
}

// Walks the attributes to the tag's closing ">", passing over quoted values.
bool TagScanner::stepTagEnd(Window& w) {
    const size_t nameEnd = m_start + m_prefix.getSize();
    for (; m_at + m_unit <= w.size; m_at += m_unit) {
        const unsigned char* p = w.data() + m_at;
        if (m_unit == 1) {
            // One byte a character: jump to the closing quote, and pass over the bytes that
            // are none of the three that matter.
            if (m_quote >= 0) {
                const void* q = std::memchr(p, m_units[m_quote], w.size - m_at);
                if (!q) return m_at = w.size, false;
                m_at = static_cast<size_t>(static_cast<const unsigned char*>(q) - w.data());
                m_quote = -1;
                continue;
            }
            if (!m_special[*p]) continue;
        } else if (m_quote >= 0) {
            if (unitIs(p, static_cast<Unit>(m_quote))) m_quote = -1;
            continue;
        }
        if (unitIs(p, kQuote) || unitIs(p, kApos)) {
            m_quote = unitIs(p, kQuote) ? kQuote : kApos;
            continue;
        }
        if (!unitIs(p, kGt)) continue;
        const bool selfClosing = m_at >= nameEnd + m_unit && unitIs(p - m_unit, kSlash);
        m_at += m_unit;
        if (selfClosing) {
            m_seek = Seek::Begin;
            return true;
        }
        m_seek = Seek::End;
        return stepEnd(w);
    }
    return false;
}

// Finds the end marker after the begin tag.
bool TagScanner::stepEnd(Window& w) {
    const unsigned endLen = m_end.getSize();
    const unsigned hit = findAligned(w, m_end, m_at);
    if (hit == fragments::kNotFound) {
        m_at = std::max(m_at, w.size >= endLen ? w.size - endLen + 1 : 0);
        return false;
    }
    m_at = size_t{hit} + endLen;
    m_seek = Seek::Begin;
    return true;
}

bool TagScanner::scan(ByteSource& source, const std::function<bool(const XString&)>& onRecord,
                      std::string& why) {
    Window w;
    m_seek = Seek::Begin;
    m_at = m_start = 0;
    m_bytesRead = 0;
    XString record;
    for (int64_t count = 1;;) {
        if (step(w)) {
            record.clear();
            if (!record.appendFromEncoding(m_charset, w.data() + m_start,
                                           static_cast<unsigned>(m_at - m_start))) {
                why = "record " + std::to_string(count) + " (at byte " +
                      std::to_string(w.base + static_cast<int64_t>(m_start)) + ") is not valid " +
                      m_charsetName + " text";
                return false;
            }
            if (!onRecord(record)) return true;
            ++count;
            continue;
        }
        // A record left without its end at the end of the data is no record.
        if (w.eof) return true;
        // Outside a record nothing before the search point is needed again.
        const size_t keep = m_seek == Seek::Begin ? m_at : m_start;
        if (!w.refill(source, keep, m_block, why)) return false;
        m_at -= keep;
        if (m_seek != Seek::Begin) m_start -= keep;
        m_bytesRead = w.base + static_cast<int64_t>(w.size);
    }
}

}  // namespace fatool
