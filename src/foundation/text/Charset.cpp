// Charset names and code pages, and the small free helpers.
#include "foundation/text/Charset.h"

#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/text/CharsetAliases.h"
#include "foundation/text/Convert.h"
#include "foundation/text/DataBuffer.h"

namespace {

struct CodePageEntry {
    int codePage;
    const char* iconvName;
};

// The Windows code page numbers this library knows, with the converter iconv uses for each.
constexpr CodePageEntry kCodePages[] = {
    {874, "CP874"},         {932, "CP932"},         {936, "CP936"},         {949, "CP949"},
    {950, "CP950"},         {1250, "CP1250"},       {1251, "CP1251"},       {1252, "CP1252"},
    {1253, "CP1253"},       {1254, "CP1254"},       {1255, "CP1255"},       {1256, "CP1256"},
    {1257, "CP1257"},       {1258, "CP1258"},       {20127, "US-ASCII"},    {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},  {28593, "ISO-8859-3"},  {28594, "ISO-8859-4"},  {28595, "ISO-8859-5"},
    {28596, "ISO-8859-6"},  {28597, "ISO-8859-7"},  {28598, "ISO-8859-8"},  {28599, "ISO-8859-9"},
    {28600, "ISO-8859-10"}, {28601, "ISO-8859-11"}, {28603, "ISO-8859-13"}, {28604, "ISO-8859-14"},
    {28605, "ISO-8859-15"}, {28606, "ISO-8859-16"}, {50220, "ISO-2022-JP"}, {51932, "EUC-JP"},
    {54936, "GB18030"},     {65000, "UTF-7"},       {65001, "UTF-8"},       {1200, "UTF-16LE"},
    {1201, "UTF-16BE"},     {12000, "UTF-32LE"},    {12001, "UTF-32BE"},
};

struct NameEntry {
    const char* name;  // lower case
    int codePage;
    const char* iconvName;  // null: the code page's own converter
};

// Names beside iconv's own, and iconv names that should report a Windows code page.
constexpr NameEntry kNames[] = {
    {"utf-8", 65001, nullptr},
    {"utf8", 65001, nullptr},
    {"unicode", 1200, nullptr},
    {"utf-16", 1200, nullptr},
    {"utf-16le", 1200, nullptr},
    {"utf16le", 1200, nullptr},
    {"unicodefffe", 1201, nullptr},
    {"utf-16be", 1201, nullptr},
    {"utf16be", 1201, nullptr},
    {"utf-32", 12000, nullptr},
    {"utf-32le", 12000, nullptr},
    {"utf32le", 12000, nullptr},
    {"utf-32be", 12001, nullptr},
    {"utf32be", 12001, nullptr},
    {"ansi", 1252, nullptr},
    {"us-ascii", 20127, nullptr},
    {"ascii", 20127, nullptr},
    {"iso-8859-1", 28591, nullptr},
    {"latin1", 28591, nullptr},
    {"latin-1", 28591, nullptr},
    {"iso8859-1", 28591, nullptr},
    {"shift_jis", 932, "SHIFT_JIS"},
    {"shift-jis", 932, "SHIFT_JIS"},
    {"sjis", 932, "SHIFT_JIS"},
    {"x-sjis", 932, "SHIFT_JIS"},
    {"gb2312", 936, "CP936"},
    {"gbk", 936, "CP936"},
    {"big5", 950, "BIG5"},
    {"ks_c_5601-1987", 949, nullptr},
    {"euc-kr", 949, "EUC-KR"},
    {"gb18030", 54936, nullptr},
    {"euc-jp", 51932, nullptr},
    {"iso-2022-jp", 50220, nullptr},
    {"utf-7", 65000, nullptr},
    {"windows-874", 874, nullptr},
    {"tis-620", 874, "TIS-620"},
    {"koi8-r", 20866, "KOI8-R"},
    {"koi8-u", 21866, "KOI8-U"},
};

const CodePageEntry* byCodePage(int cp) {
    for (const CodePageEntry& e : kCodePages)
        if (e.codePage == cp) return &e;
    return nullptr;
}

std::string lowerAscii(const char* s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return out;
}

// Windows and ISO names that follow a numbering pattern: windows-1250..1258, cp1250..1258,
// iso-8859-N / iso8859-N. Answers 0 when the name is not one of them.
int patternCodePage(const std::string& lower) {
    auto numberAfter = [&](const char* prefix) -> int {
        std::string p(prefix);
        if (lower.size() <= p.size() || lower.compare(0, p.size(), p) != 0) return -1;
        int v = 0;
        for (size_t i = p.size(); i < lower.size(); ++i) {
            char c = lower[i];
            if (c < '0' || c > '9' || v > 100000) return -1;
            v = v * 10 + (c - '0');
        }
        return v;
    };
    for (const char* prefix : {"windows-", "cp", "x-cp"}) {
        int v = numberAfter(prefix);
        if (v >= 1250 && v <= 1258) return v;
        if (v == 874 || v == 932 || v == 936 || v == 949 || v == 950) return v;
    }
    for (const char* prefix : {"iso-8859-", "iso8859-", "iso_8859-"}) {
        int v = numberAfter(prefix);
        if (v == 1) return 28591;
        if (v >= 2 && v <= 11) return 28590 + v;
        if (v >= 13 && v <= 16) return 28590 + v;
    }
    return 0;
}

// ----- names iconv knows and the tables do not -----
//
// iconv has many names for one charset (L1, CP819 and IBM819 are ISO-8859-1). Such a name is
// matched with a known converter in two steps: a quick comparison of what both make of a set of
// characters (from every script the table's code pages hold) and of every single byte, then,
// for a converter that passes it, the full comparison of convertsAlike. A match takes that
// converter and its code page. Vendor variants that agree on the probes but not everywhere
// (EUC-JP-MS and EUC-JP, IBM9448 and CP1256) keep their own converters.
//
// The names whose converters write a byte-order mark before every output (glibc's UTF16, UTF32
// and CSUNICODE) are forms of Unicode whose decoders take a leading mark for a byte order, so
// no full comparison can pass: the explicit form of Unicode that matches the probes is taken.
// A name that matches nothing keeps its own converter and has no code page; a mark it writes
// is taken off each output by the conversions themselves.

const char* const kProbe[] = {
    "A", "~", "\xC3\xA9", "\xC3\x9F", "\xC2\xA4", "\xC2\xA0", "\xE2\x82\xAC", "\xC5\x92",
    "\xC5\xBE", "\xC4\x85", "\xC5\x91", "\xC4\x9F", "\xC5\x9F", "\xC4\xB1", "\xCE\xA9",
    "\xCE\xAC", "\xD0\x96", "\xD1\x91", "\xD1\x97", "\xD7\xA9", "\xD8\xB9", "\xE0\xB8\x81",
    "\xE1\xBA\xA1", "\xC6\xB0", "\xC5\xB5", "\xC5\x82", "\xE2\x80\x9C", "\xE2\x80\xA6",
    "\xE6\x97\xA5", "\xE4\xB8\xAD", "\xE5\x9C\x8B", "\xED\x95\x9C", "\xEF\xBD\xB1",
    "\xE3\x81\x82", "\xF0\x9F\x98\x80"};

// The explicit forms of Unicode that are none of the table's code pages.
constexpr CodePageEntry kUnicodeForms[] = {
    {0, "UCS-2LE"}, {0, "UCS-2BE"}, {0, "UCS-4LE"}, {0, "UCS-4BE"}};

bool isUnicodeCodePage(int codePage) {
    return codePage == CodePage::Utf16LE || codePage == CodePage::Utf16BE ||
           codePage == CodePage::Utf32LE || codePage == CodePage::Utf32BE;
}

const std::string kFailed = "\xFF!";

std::string converted(const char* from, const char* to, const void* in, size_t n) {
    DataBuffer out;
    if (!convertCharset(from, to, static_cast<const unsigned char*>(in), n, out)) return kFailed;
    return std::string(reinterpret_cast<const char*>(out.getData2()), out.getSize());
}

// What a converter makes of the probe characters (without a mark: the conversions take it
// off) and of every single byte.
std::vector<std::string> fingerprint(const char* iconvName) {
    std::vector<std::string> fp;
    for (const char* c : kProbe) fp.push_back(converted("UTF-8", iconvName, c, std::strlen(c)));
    for (unsigned b = 0; b < 256; ++b) {
        const unsigned char byte = static_cast<unsigned char>(b);
        fp.push_back(converted(iconvName, "UTF-8", &byte, 1));
    }
    return fp;
}

struct Resolved {
    int codePage;
    std::string iconvName;
};

// Each name is resolved once per process; the comparisons run under the lock, so that two
// threads never repeat them for one name.
class AliasResolver {
public:
    Resolved resolve(const std::string& lower, const char* name) {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto known = m_resolved.find(lower);
        if (known != m_resolved.end()) return known->second;
        Resolved r{0, name};
        if (m_matching) {
            if (m_candidates.empty()) collectCandidates();
            const std::vector<std::string> fp = fingerprint(name);
            const bool marked = !outputMarkOf(name).empty();
            for (const Candidate& c : m_candidates) {
                if (c.fp != fp) continue;
                if (!(marked && c.unicodeForm) && !convertsAlike(name, c.iconvName)) continue;
                r = Resolved{c.codePage, c.iconvName};
                break;
            }
        }
        return m_resolved.emplace(lower, r).first->second;
    }

    void setMatching(bool on) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_matching = on;
        m_resolved.clear();
    }

private:
    struct Candidate {
        int codePage;
        const char* iconvName;
        bool unicodeForm;
        std::vector<std::string> fp;
    };
    void add(int codePage, const char* iconvName, bool unicodeForm) {
        if (converterExists(iconvName))
            m_candidates.push_back({codePage, iconvName, unicodeForm, fingerprint(iconvName)});
    }
    void collectCandidates() {
        for (const CodePageEntry& e : kCodePages)
            add(e.codePage, e.iconvName, isUnicodeCodePage(e.codePage));
        for (const NameEntry& e : kNames)
            if (e.iconvName) add(e.codePage, e.iconvName, false);
        for (const CodePageEntry& e : kUnicodeForms) add(e.codePage, e.iconvName, true);
    }

    std::mutex m_mutex;
    bool m_matching = true;
    std::vector<Candidate> m_candidates;
    std::unordered_map<std::string, Resolved> m_resolved;
};

AliasResolver& aliasResolver() {
    static AliasResolver resolver;
    return resolver;
}

}  // namespace

void setCharsetAliasMatching(bool on) {
    aliasResolver().setMatching(on);
}

_ovCharset::_ovCharset() : m_codePage(CodePage::Utf8), m_iconvName("UTF-8") {}

bool _ovCharset::setByName(const char* name) {
    if (!name || !*name) return false;
    std::string lower = lowerAscii(name);
    for (const NameEntry& e : kNames) {
        if (lower != e.name) continue;
        const CodePageEntry* cp = byCodePage(e.codePage);
        const char* conv = e.iconvName ? e.iconvName : (cp ? cp->iconvName : nullptr);
        if (!conv || !converterExists(conv)) return false;
        m_codePage = e.codePage;
        m_iconvName = conv;
        return true;
    }
    if (int cp = patternCodePage(lower)) return setByCodePage(cp);
    // Any other name iconv knows, matched with the table entry it converts as. iconv's
    // "//TRANSLIT" and "//IGNORE" suffixes would let conversions substitute or drop
    // characters instead of failing, so names with a '/' are refused.
    if (lower.find('/') != std::string::npos || !converterExists(name)) return false;
    for (const CodePageEntry& e : kCodePages) {
        if (lower != lowerAscii(e.iconvName)) continue;
        m_codePage = e.codePage;
        m_iconvName = e.iconvName;
        return true;
    }
    const Resolved r = aliasResolver().resolve(lower, name);
    m_codePage = r.codePage;
    m_iconvName = r.iconvName;
    return true;
}

bool _ovCharset::setByCodePage(int codePage) {
    const CodePageEntry* e = byCodePage(codePage);
    if (!e || !converterExists(e->iconvName)) return false;
    m_codePage = codePage;
    m_iconvName = e->iconvName;
    return true;
}

namespace Psdk {
int getAnsiCodePage() {
    return CodePage::Windows1252;
}
}  // namespace Psdk

namespace ov64 {
uint32_t toUnsignedLong(long long v) {
    return static_cast<uint32_t>(static_cast<uint64_t>(v));
}
}  // namespace ov64

char* ovNewChar(unsigned n) {
    return new (std::nothrow) char[n];
}

unsigned char* ovNewUnsignedChar(unsigned n) {
    return new (std::nothrow) unsigned char[n];
}
