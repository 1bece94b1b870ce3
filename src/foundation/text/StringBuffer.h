// An 8-bit byte string, always NUL-terminated: UTF-8 text, names, encoded text.
#pragma once

#include "foundation/base/Api.h"

#include <string>
#include <string_view>

class DataBuffer;

class FA_API StringBuffer {
public:
    StringBuffer() = default;
    explicit StringBuffer(const char* s) { append(s); }

    void clear() { m_s.clear(); }
    const char* getString() const { return m_s.c_str(); }
    unsigned getSize() const { return static_cast<unsigned>(m_s.size()); }
    bool isEmpty() const { return m_s.empty(); }
    std::string_view view() const { return m_s; }
    // Writable bytes; valid until the next change of size.
    char* data() { return m_s.data(); }

    void append(const char* s);  // a null pointer appends nothing
    void append(const char* s, unsigned n);
    void append(const StringBuffer& other) { m_s.append(other.m_s); }
    void append(const DataBuffer& bytes);
    void append(std::string_view s) { m_s.append(s); }
    void append(int value);  // decimal, '-' for negatives, no leading zeros
    void appendChar(char c) { m_s.push_back(c); }
    void appendCharN(char c, unsigned n) { m_s.append(n, c); }
    void prepend(const char* s);

    bool beginsWith(const char* s) const;
    bool endsWith(const char* s) const;
    bool equals(const char* s) const;

    // Replaces the first occurrence of `find` by `repl`; false when there is none.
    // With `caseInsensitive` ASCII letters match regardless of case.
    bool replaceFirstOccurance(const char* find, const char* repl, bool caseInsensitive);

    // White space is space, tab, CR, LF, vertical tab and form feed.
    void trim2();
    void trimRight2();

    // Moves the bytes after the last `c` into `popped` (replacing its content) and removes
    // them together with `c`. When `c` does not occur, nothing changes and popped is empty.
    void pop(char c, StringBuffer& popped);

    // Shrinks or grows (with NUL bytes) to exactly n bytes.
    void resize(unsigned n) { m_s.resize(n); }
    void shorten(unsigned n) { m_s.resize(n >= m_s.size() ? 0 : m_s.size() - n); }

    const std::string& str() const { return m_s; }
    std::string& str() { return m_s; }

private:
    std::string m_s;
};
