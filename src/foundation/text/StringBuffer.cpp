#include "foundation/text/StringBuffer.h"

#include <cstring>
#include <string>

#include "foundation/text/DataBuffer.h"

namespace {

bool isTrimSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

char asciiLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

// Position of the first occurrence of `find` in `s`, ASCII letters compared without case.
size_t findNoCase(std::string_view s, std::string_view find) {
    if (find.size() > s.size()) return std::string::npos;
    for (size_t i = 0; i + find.size() <= s.size(); ++i) {
        size_t k = 0;
        while (k < find.size() && asciiLower(s[i + k]) == asciiLower(find[k])) ++k;
        if (k == find.size()) return i;
    }
    return std::string::npos;
}

}  // namespace

void StringBuffer::append(const char* s) {
    if (s) m_s.append(s);
}

void StringBuffer::append(const char* s, unsigned n) {
    if (s && n) m_s.append(s, n);
}

void StringBuffer::append(const DataBuffer& bytes) {
    if (bytes.getSize() == 0) return;
    m_s.append(reinterpret_cast<const char*>(bytes.getData2()), bytes.getSize());
}

void StringBuffer::append(int value) {
    m_s.append(std::to_string(value));
}

void StringBuffer::prepend(const char* s) {
    if (s) m_s.insert(0, s);
}

bool StringBuffer::beginsWith(const char* s) const {
    if (!s) return false;
    return std::string_view(m_s).starts_with(s);
}

bool StringBuffer::endsWith(const char* s) const {
    if (!s) return false;
    return std::string_view(m_s).ends_with(s);
}

bool StringBuffer::equals(const char* s) const {
    if (!s) return m_s.empty();
    return m_s == s;
}

bool StringBuffer::replaceFirstOccurance(const char* find, const char* repl, bool caseInsensitive) {
    if (!find || !*find) return false;
    std::string_view f(find);
    size_t pos = caseInsensitive ? findNoCase(m_s, f) : m_s.find(f);
    if (pos == std::string::npos) return false;
    m_s.replace(pos, f.size(), repl ? repl : "");
    return true;
}

void StringBuffer::trim2() {
    size_t b = 0;
    while (b < m_s.size() && isTrimSpace(m_s[b])) ++b;
    m_s.erase(0, b);
    trimRight2();
}

void StringBuffer::trimRight2() {
    size_t e = m_s.size();
    while (e > 0 && isTrimSpace(m_s[e - 1])) --e;
    m_s.resize(e);
}

void StringBuffer::pop(char c, StringBuffer& popped) {
    popped.clear();
    size_t pos = m_s.rfind(c);
    if (pos == std::string::npos) return;
    popped.m_s.assign(m_s, pos + 1, std::string::npos);
    m_s.resize(pos);
}
