// Unicode text, held as UTF-8.
//
// Besides UTF-8 the text can be read as 8-bit ANSI text (windows-1252) and converted to and
// from the bytes of any charset the platform's iconv knows. A pointer or buffer handed out
// stays valid until the string is next changed.
#pragma once

#include "foundation/base/Api.h"

#include <string_view>

#include "foundation/text/Charset.h"
#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"

class LogBase;

class FA_API XString {
public:
    XString() = default;
    explicit XString(const char* utf8) { setFromUtf8(utf8); }

    void clear();
    bool isEmpty() const { return m_utf8.isEmpty(); }
    // Byte count of the UTF-8 form.
    unsigned getSizeUtf8() const { return m_utf8.getSize(); }

    const char* getUtf8() const { return m_utf8.getString(); }
    std::string_view view() const { return m_utf8.view(); }
    // The text in the ANSI code page (windows-1252), NUL-terminated. This has no way to report
    // a failure, so unlike getConverted it does not fail: every character the code page cannot
    // hold, and every byte of the string that is not valid UTF-8, becomes one '?'. Valid until
    // the string changes.
    const char* getAnsi() const;
    const StringBuffer& getUtf8Sb() const { return m_utf8; }
    // The string's own UTF-8 bytes: changes made through it change the string.
    StringBuffer& getUtf8Sb_rw();

    void copyFromX(const XString& other);
    void setFromUtf8(const char* utf8);  // null sets empty
    void setFromUtf8(std::string_view utf8);
    void appendUtf8(const char* utf8);
    void appendSbUtf8(const StringBuffer& sb) { appendUtf8(sb.getString()); }
    void appendX(const XString& other) { appendUtf8(other.getUtf8()); }
    void appendInt64(long long v);

    bool equalsUtf8(const char* s) const { return m_utf8.equals(s); }
    bool equalsX(const XString& other) const { return m_utf8.str() == other.m_utf8.str(); }
    bool containsSubstringUtf8(const char* s) const;
    // Exact comparison; with `caseInsensitive` ASCII letters match regardless of case.
    bool beginsWithUtf8(const char* s, bool caseInsensitive) const;
    bool endsWithUtf8(const char* s, bool caseInsensitive) const;
    // Cuts the text before the last occurrence of c (which goes too); no change without one.
    void chopAtLastChar(char c);

    // The text's bytes in the charset, without a byte-order mark, replacing out's content.
    // False when the text cannot be converted (out then holds what converted before the
    // failure, possibly nothing).
    bool getConverted(const _ovCharset& charset, DataBuffer& out) const;
    bool getConverted(const char* charsetName, DataBuffer& out) const;
    // As getConverted, preceded by the charset's byte-order mark where it has one.
    bool getConvertedWithPreamble(const _ovCharset& charset, DataBuffer& out) const;

    // Sets the text from bytes in the named charset; a leading byte-order mark of that
    // charset is dropped. False (text unchanged) for an unknown charset or invalid bytes.
    // The buffer's storage may be taken over; callers do not use it afterwards.
    bool takeFromEncodingDb(DataBuffer& bytes, const char* charsetName);
    bool setFromEncoding(const unsigned char* bytes, unsigned n, const char* charsetName);
    // Appends the text decoded from the bytes; false (text unchanged) on failure.
    bool appendFromEncodingDb(const DataBuffer& bytes, const char* charsetName);
    // As appendFromEncodingDb, with the charset already selected: for callers that decode
    // many pieces in one charset.
    bool appendFromEncoding(const _ovCharset& charset, const unsigned char* bytes, unsigned n);
    // Sets the text from bytes in a code page; nothing is logged into a null log.
    bool setFromDb_cp(int codePage, const DataBuffer& bytes, LogBase* log);

private:
    StringBuffer m_utf8;
    mutable StringBuffer m_ansi;
    mutable bool m_ansiValid = false;
};
