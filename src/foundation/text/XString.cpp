#include "foundation/text/XString.h"

#include <cstring>
#include <string>

#include "foundation/base/LogBase.h"
#include "foundation/text/Convert.h"
#include "foundation/text/LargeBlocks.h"

namespace {

char asciiLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

bool equalBytes(const char* a, const char* b, size_t n, bool caseInsensitive) {
    if (!caseInsensitive) return std::memcmp(a, b, n) == 0;
    for (size_t i = 0; i < n; ++i)
        if (asciiLower(a[i]) != asciiLower(b[i])) return false;
    return true;
}

// windows-1252 bytes 0x80..0x9F and the characters they stand for (0 where the byte is unused).
constexpr unsigned short kCp1252High[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

// The windows-1252 byte of a code point; -1 when the code page has none.
int toCp1252(unsigned cp) {
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<int>(cp);
    for (int i = 0; i < 32; ++i)
        if (kCp1252High[i] == cp) return 0x80 + i;
    return -1;
}

// The code point of the UTF-8 sequence at s[i], advancing i; -1 (one byte consumed) for a
// malformed sequence.
long nextCodePoint(std::string_view s, size_t& i) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.data()) + i;
    size_t left = s.size() - i;
    if (p[0] < 0x80) {
        ++i;
        return p[0];
    }
    size_t len = 0;
    for (size_t n = 2; n <= 4 && n <= left; ++n)
        if (isValidUtf8(p, n)) {
            len = n;
            break;
        }
    if (len == 0) {
        ++i;
        return -1;
    }
    long cp = p[0] & (0xFF >> (len + 1));
    for (size_t k = 1; k < len; ++k) cp = (cp << 6) | (p[k] & 0x3F);
    i += len;
    return cp;
}

// Decodes bytes in the charset into UTF-8, appending to out; a leading mark of that charset
// is skipped. False (out unchanged) on failure.
bool decodeAppend(const _ovCharset& cs, const unsigned char* bytes, unsigned n, std::string& out) {
    const unsigned markLen = leadingMarkLength(cs.getCodePage(), bytes, n);
    bytes += markLen;
    n -= markLen;
    if (cs.getCodePage() == CodePage::Utf8) {
        if (n && !isValidUtf8(bytes, n)) return false;
        out.append(reinterpret_cast<const char*>(bytes), n);
        return true;
    }
    DataBuffer utf8;
    if (!convertCharset(cs.getIconvName(), "UTF-8", bytes, n, utf8)) return false;
    out.append(reinterpret_cast<const char*>(utf8.getData2()), utf8.getSize());
    return true;
}

}  // namespace

void XString::clear() {
    m_utf8.clear();
}

const char* XString::getAnsi() const {
    std::string ansi;
    std::string_view s = m_utf8.view();
    ansi.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        long cp = nextCodePoint(s, i);
        int byte = cp < 0 ? -1 : toCp1252(static_cast<unsigned>(cp));
        if (byte < 0) {  // the conversion fails as a whole: no substitute
            ansi.clear();
            break;
        }
        ansi.push_back(static_cast<char>(byte));
    }
    // Keep the earlier buffer when nothing changed, so pointers handed out stay valid.
    if (!m_ansiValid || m_ansi.str() != ansi) m_ansi.str() = std::move(ansi);
    m_ansiValid = true;
    return m_ansi.getString();
}

StringBuffer& XString::getUtf8Sb_rw() {
    return m_utf8;
}

void XString::copyFromX(const XString& other) {
    if (this != &other) m_utf8.str() = other.m_utf8.str();
}

void XString::setFromUtf8(const char* utf8) {
    m_utf8.clear();
    m_utf8.append(utf8);
}

void XString::setFromUtf8(std::string_view utf8) {
    m_utf8.str().assign(utf8);
}

void XString::appendUtf8(const char* utf8) {
    m_utf8.append(utf8);
}

void XString::appendInt64(long long v) {
    m_utf8.append(std::to_string(v));
}

bool XString::containsSubstringUtf8(const char* s) const {
    return s && m_utf8.str().find(s) != std::string::npos;
}

bool XString::beginsWithUtf8(const char* s, bool caseInsensitive) const {
    if (!s) return false;
    size_t n = std::strlen(s);
    return n <= m_utf8.str().size() && equalBytes(m_utf8.getString(), s, n, caseInsensitive);
}

bool XString::endsWithUtf8(const char* s, bool caseInsensitive) const {
    if (!s) return false;
    size_t n = std::strlen(s);
    const std::string& t = m_utf8.str();
    return n <= t.size() && equalBytes(t.data() + t.size() - n, s, n, caseInsensitive);
}

void XString::chopAtLastChar(char c) {
    size_t pos = m_utf8.str().rfind(c);
    if (pos != std::string::npos) m_utf8.resize(static_cast<unsigned>(pos));
}

bool XString::getConverted(const _ovCharset& charset, DataBuffer& out) const {
    out.clear();
    const std::string& s = m_utf8.str();
    return convertCharset("UTF-8", charset.getIconvName(),
                          reinterpret_cast<const unsigned char*>(s.data()), s.size(), out);
}

bool XString::getConverted(const char* charsetName, DataBuffer& out) const {
    _ovCharset cs;
    if (!cs.setByName(charsetName)) {
        out.clear();
        return false;
    }
    return getConverted(cs, out);
}

bool XString::getConvertedWithPreamble(const _ovCharset& charset, DataBuffer& out) const {
    out.clear();
    unsigned markLen = 0;
    const unsigned char* mark = preambleOf(charset.getCodePage(), markLen);
    if (mark && !out.append(mark, markLen)) return false;
    const std::string& s = m_utf8.str();
    return convertCharset("UTF-8", charset.getIconvName(),
                          reinterpret_cast<const unsigned char*>(s.data()), s.size(), out);
}

bool XString::takeFromEncodingDb(DataBuffer& bytes, const char* charsetName) {
    if (!setFromEncoding(bytes.getData2(), bytes.getSize(), charsetName)) return false;
    bytes.releaseStorage();
    return true;
}

bool XString::setFromEncoding(const unsigned char* bytes, unsigned n, const char* charsetName) {
    if (!bytes && n) return false;
    _ovCharset cs;
    if (!cs.setByName(charsetName)) return false;
    std::string text;
    if (!decodeAppend(cs, bytes, n, text)) return false;
    m_utf8.str() = std::move(text);
    return true;
}

bool XString::appendFromEncodingDb(const DataBuffer& bytes, const char* charsetName) {
    _ovCharset cs;
    if (!cs.setByName(charsetName)) return false;
    return appendFromEncoding(cs, bytes.getData2(), bytes.getSize());
}

bool XString::appendFromEncoding(const _ovCharset& charset, const unsigned char* bytes,
                                 unsigned n) {
    return decodeAppend(charset, bytes, n, m_utf8.str());
}

bool XString::appendFromEncodingTaking(const _ovCharset& charset, DataBuffer& bytes) {
    const unsigned char* p = bytes.getData2();
    const unsigned n = bytes.getSize();
    if (charset.getCodePage() != CodePage::Utf8) {
        if (!decodeAppend(charset, p, n, m_utf8.str())) return false;
        bytes.releaseStorage();
        return true;
    }
    const unsigned markLen = leadingMarkLength(charset.getCodePage(), p, n);
    if (n > markLen && !isValidUtf8(p + markLen, n - markLen)) return false;
    moveBytesInto(bytes, markLen, m_utf8.str());
    return true;
}

bool XString::setFromDb_cp(int codePage, const DataBuffer& bytes, LogBase* log) {
    _ovCharset cs;
    if (!cs.setByCodePage(codePage)) {
        if (log) log->LogError("Unsupported code page.");
        return false;
    }
    std::string text;
    if (!decodeAppend(cs, bytes.getData2(), bytes.getSize(), text)) {
        if (log) log->LogError("The bytes are not valid in the code page.");
        return false;
    }
    m_utf8.str() = std::move(text);
    return true;
}
