/// @file
/// Unicode text held as UTF-8, with conversions to and from the bytes of other charsets.
#pragma once

#include "foundation/base/Api.h"

#include <string_view>

#include "foundation/text/Charset.h"
#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"

class LogBase;

/// Unicode text, held as UTF-8.
///
/// Besides UTF-8 the text can be read as 8-bit ANSI text (windows-1252) and converted to and
/// from the bytes of any charset the platform's iconv knows. Conversions never substitute,
/// transliterate or drop anything: a character the target charset cannot hold, or a byte that
/// is not valid in the source charset, makes the call fail. Text set from UTF-8 is stored as
/// given and not checked. Sizes are byte counts.
///
/// A pointer, view or buffer handed out belongs to the string and stays valid until the string
/// is next changed. Thread safety is that of a value type: one object must not be changed by
/// one thread while another thread uses it; distinct objects are independent. No member takes
/// a lock; const members may run at once on one object, except `getAnsi`.
class FA_API XString {
  public:
    /// An empty string.
    XString() = default;
    /// A string holding a copy of the NUL-terminated UTF-8 text `utf8`; empty when null.
    explicit XString(const char* utf8) { setFromUtf8(utf8); }

    /// Makes the text empty.
    void clear();
    /// True when the text has no bytes.
    bool isEmpty() const { return m_utf8.isEmpty(); }
    /// Byte count of the UTF-8 form, without a terminating NUL.
    unsigned getSizeUtf8() const { return m_utf8.getSize(); }

    /// The text as NUL-terminated UTF-8; valid until the string changes. A NUL character
    /// inside the text ends this C string early (see `view`).
    const char* getUtf8() const { return m_utf8.getString(); }
    /// The UTF-8 bytes, NUL characters included; valid until the string changes.
    std::string_view view() const { return m_utf8.view(); }
    /// The text in the ANSI code page (windows-1252), NUL-terminated. The conversion fails as
    /// getConverted's does, without substituting anything; having no other way to report it,
    /// it then gives the empty string: when the text holds a character the code page cannot
    /// hold, or a byte that is not valid UTF-8. Valid until the string changes. Takes no lock and,
    /// though const, writes a cache inside the object: it must not run while another thread uses
    /// the same object, even only to read it.
    const char* getAnsi() const;
    /// The UTF-8 bytes, read-only. The reference lives as long as the string and always shows
    /// its present text.
    const StringBuffer& getUtf8Sb() const { return m_utf8; }
    /// The string's own UTF-8 bytes: changes made through it change the string, and nothing
    /// checks that they stay valid UTF-8. The reference lives as long as the string.
    StringBuffer& getUtf8Sb_rw();

    /// Replaces the text with a copy of `other`'s; copying a string onto itself changes nothing.
    void copyFromX(const XString& other);
    /// Replaces the text with a copy of the NUL-terminated UTF-8 `utf8`; null empties it.
    void setFromUtf8(const char* utf8);
    /// Replaces the text with the bytes of `utf8`, NUL bytes included.
    void setFromUtf8(std::string_view utf8);
    /// Appends the NUL-terminated UTF-8 `utf8`; null appends nothing.
    void appendUtf8(const char* utf8);
    /// Appends the bytes of `sb` up to its first NUL byte.
    void appendSbUtf8(const StringBuffer& sb) { appendUtf8(sb.getString()); }
    /// Appends `other`'s text up to its first NUL character; `other` may be this string.
    void appendX(const XString& other) { appendUtf8(other.getUtf8()); }
    /// Appends `v` in decimal, with '-' for negatives and no leading zeros.
    void appendInt64(long long v);

    /// True when the text equals the NUL-terminated `s` byte for byte; a null `s` equals the
    /// empty text.
    bool equalsUtf8(const char* s) const { return m_utf8.equals(s); }
    /// True when both texts hold the same bytes.
    bool equalsX(const XString& other) const { return m_utf8.str() == other.m_utf8.str(); }
    /// True when `s` occurs in the text, compared byte for byte; false for a null `s`, true
    /// for an empty one.
    bool containsSubstringUtf8(const char* s) const;
    /// True when the text begins with `s`. Exact comparison; with `caseInsensitive` ASCII
    /// letters match regardless of case (other characters still compare exactly). False for a
    /// null `s`, true for an empty one.
    bool beginsWithUtf8(const char* s, bool caseInsensitive) const;
    /// As `beginsWithUtf8`, for the end of the text.
    bool endsWithUtf8(const char* s, bool caseInsensitive) const;
    /// Removes the last occurrence of the byte `c` and everything after it; no change when `c`
    /// does not occur. A byte of 0x80 or above can match inside a multibyte character.
    void chopAtLastChar(char c);

    /// The text's bytes in the charset, without a byte-order mark, replacing out's content.
    /// True on success (empty text gives an empty `out`). False when the text holds a
    /// character the charset cannot hold, bytes that are not valid UTF-8, or memory runs out;
    /// `out` then holds what converted before the failure, possibly nothing.
    bool getConverted(const _ovCharset& charset, DataBuffer& out) const;
    /// As above, for the charset named `charsetName` (see `_ovCharset::setByName`); false,
    /// with `out` emptied, for a name that selects no charset.
    bool getConverted(const char* charsetName, DataBuffer& out) const;
    /// As getConverted, preceded by the charset's byte-order mark where it has one: code pages
    /// 65001, 1200, 1201, 12000 and 12001 (see `CodePage`); a charset without a code page gets
    /// none. The mark is written for empty text too; on failure `out` holds the mark followed
    /// by what converted before the failure.
    bool getConvertedWithPreamble(const _ovCharset& charset, DataBuffer& out) const;

    /// Sets the text from bytes in the named charset, decoding as `setFromEncoding` does. On
    /// success `bytes` is emptied and its storage released; on failure (false) the text and
    /// `bytes` are both unchanged.
    bool takeFromEncodingDb(DataBuffer& bytes, const char* charsetName);
    /// Replaces the text with `bytes[0, n)` decoded from the charset named `charsetName`
    /// (see `_ovCharset::setByName`). One leading byte-order mark of that charset is dropped;
    /// any other mark is decoded as text. False, the text unchanged, for a name that selects no
    /// charset, a null `bytes` with `n` > 0, or bytes not valid in the charset (bytes it leaves
    /// undefined and a character cut off at the end included). NUL bytes decode to NUL
    /// characters that stay in the text.
    bool setFromEncoding(const unsigned char* bytes, unsigned n, const char* charsetName);
    /// Appends the text decoded from the bytes, as `setFromEncoding` decodes them; false (text
    /// unchanged) on failure.
    bool appendFromEncodingDb(const DataBuffer& bytes, const char* charsetName);
    /// As appendFromEncodingDb, with the charset already selected: for callers that decode
    /// many pieces in one charset. Each piece must hold whole characters, and a leading
    /// byte-order mark is dropped from every piece. `bytes` must not be null when `n` > 0.
    bool appendFromEncoding(const _ovCharset& charset, const unsigned char* bytes, unsigned n);
    /// As appendFromEncoding with all of `bytes`, which it takes: on success `bytes` is left
    /// empty with its storage released. In UTF-8 the bytes are moved over 2 MiB at a time and
    /// the storage of each part given back once it is copied, so that a long text is never held
    /// twice; another charset is decoded as appendFromEncoding decodes it, `bytes` and the
    /// text both held until it is done. False (the text and `bytes` unchanged) on failure.
    bool appendFromEncodingTaking(const _ovCharset& charset, DataBuffer& bytes);
    /// Replaces the text with `bytes` decoded from a code page (see
    /// `_ovCharset::setByCodePage`), as `setFromEncoding` decodes. False, the text unchanged,
    /// for a code page without a converter (logs "Unsupported code page.") or bytes not valid
    /// in it (logs "The bytes are not valid in the code page."); nothing is logged into a null
    /// log.
    bool setFromDb_cp(int codePage, const DataBuffer& bytes, LogBase* log);

  private:
    StringBuffer m_utf8;
    mutable StringBuffer m_ansi;
    mutable bool m_ansiValid = false;
};
