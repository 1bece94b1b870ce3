/// @file
/// A growable 8-bit byte string that is always NUL-terminated.
#pragma once

#include "foundation/base/Api.h"

#include <string>
#include <string_view>

class DataBuffer;

/// An 8-bit byte string, always NUL-terminated: UTF-8 text, names, encoded text.
///
/// The bytes are kept as given: no charset is assumed or checked, and NUL bytes may be held
/// inside (`getString` then ends at the first while `getSize` counts them all). Sizes are 32-bit
/// counts. Growing allocates as std::string does and throws std::bad_alloc when memory cannot
/// be had. A pointer or view handed out belongs to the buffer and stays valid until the buffer
/// next changes. Thread safety is that of a value type: one object must not be changed by one
/// thread while another thread uses it; distinct objects are independent. No member takes a
/// lock.
class FA_API StringBuffer {
public:
    /// An empty string.
    StringBuffer() = default;
    /// A copy of the NUL-terminated `s`; empty when `s` is null.
    explicit StringBuffer(const char* s) { append(s); }

    /// Makes the string empty.
    void clear() { m_s.clear(); }
    /// The bytes followed by a NUL; valid until the buffer changes.
    const char* getString() const { return m_s.c_str(); }
    /// The byte count, without the terminating NUL.
    unsigned getSize() const { return static_cast<unsigned>(m_s.size()); }
    /// True when the string has no bytes.
    bool isEmpty() const { return m_s.empty(); }
    /// The bytes, NUL bytes inside included; valid until the buffer changes.
    std::string_view view() const { return m_s; }
    /// Writable bytes; valid until the next change of size. Bytes [0, getSize()) may be
    /// changed in place; the NUL at getSize() must stay.
    char* data() { return m_s.data(); }

    /// Appends the NUL-terminated `s`; a null pointer appends nothing.
    void append(const char* s);
    /// Appends the `n` bytes at `s`, NUL bytes included; nothing when `s` is null or `n` is 0.
    void append(const char* s, unsigned n);
    /// Appends all of `other`'s bytes; `other` may be this buffer.
    void append(const StringBuffer& other) { m_s.append(other.m_s); }
    /// Appends the bytes `bytes` holds, unchanged.
    void append(const DataBuffer& bytes);
    /// Appends the bytes of `s`.
    void append(std::string_view s) { m_s.append(s); }
    /// Appends `value` in decimal, with '-' for negatives and no leading zeros.
    void append(int value);
    /// Appends the byte `c` (a NUL byte too).
    void appendChar(char c) { m_s.push_back(c); }
    /// Appends `n` copies of the byte `c`.
    void appendCharN(char c, unsigned n) { m_s.append(n, c); }
    /// Inserts the NUL-terminated `s` before the bytes; a null pointer inserts nothing.
    void prepend(const char* s);

    /// True when the bytes begin with `s`, compared exactly; false for a null `s`, true for an
    /// empty one.
    bool beginsWith(const char* s) const;
    /// True when the bytes end with `s`, compared exactly; false for a null `s`, true for an
    /// empty one.
    bool endsWith(const char* s) const;
    /// True when the bytes equal the NUL-terminated `s` exactly; a null `s` equals the empty
    /// string.
    bool equals(const char* s) const;

    /// Replaces the first occurrence of `find` by `repl`; false when there is none.
    /// With `caseInsensitive` ASCII letters match regardless of case. False, nothing changed,
    /// for a null or empty `find`; a null `repl` removes the occurrence.
    bool replaceFirstOccurance(const char* find, const char* repl, bool caseInsensitive);

    /// Removes white space from both ends.
    /// White space is space, tab, CR, LF, vertical tab and form feed.
    void trim2();
    /// Removes white space, as `trim2` defines it, from the end only.
    void trimRight2();

    /// Moves the bytes after the last `c` into `popped` (replacing its content) and removes
    /// them together with `c`. When `c` does not occur, nothing changes and popped is empty.
    void pop(char c, StringBuffer& popped);

    /// Shrinks or grows (with NUL bytes) to exactly n bytes.
    void resize(unsigned n) { m_s.resize(n); }
    /// Removes the last `n` bytes; all of them when `n` is at least the size.
    void shorten(unsigned n) { m_s.resize(n >= m_s.size() ? 0 : m_s.size() - n); }

    /// The bytes as a std::string, read-only; the reference lives as long as the buffer.
    const std::string& str() const { return m_s; }
    /// The bytes as a std::string for direct changes, which change the buffer; the reference
    /// lives as long as the buffer.
    std::string& str() { return m_s; }

private:
    std::string m_s;
};
