// Charset conversion through the platform's iconv, and byte-order marks.
#pragma once

#include <cstddef>
#include <string>

class DataBuffer;

// True when iconv can convert between the named charset and UTF-8.
bool converterExists(const char* iconvName);

// The byte-order mark iconv writes before every output in the named charset (glibc's UTF16
// and UTF32 write one, the forms that name their byte order do not), or "".
std::string outputMarkOf(const char* iconvName);

// True when two charsets (iconv names) convert alike: every code point of the Basic
// Multilingual Plane (surrogates aside) to the same bytes, and every input of one byte and of
// two bytes to the same text, each failing where the other fails; byte-order marks the
// converters write before their output aside. About 260,000 conversions: a one-time check.
bool convertsAlike(const char* a, const char* b);

// Appends in[0, n), converted from charset `from` to charset `to` (iconv names), to out.
// Fails on bytes that are not valid in `from` and on characters `to` cannot hold: nothing is
// substituted or transliterated. On failure out keeps what converted before the bad spot.
// The output has no byte-order mark: one that the converter writes before every output is
// taken off.
bool convertCharset(const char* from, const char* to, const unsigned char* in, size_t n,
                    DataBuffer& out);

// Converts a byte stream piece by piece into the same bytes as one convertCharset call over the
// whole: one converter is kept across the pieces, so a character cut by a piece's end is
// completed by the next piece and a stateful encoding's shift state carries on (it is closed
// at the end). A byte-order mark the converter writes is taken off, as by convertCharset.
class StreamConverter {
  public:
    StreamConverter() = default;
    ~StreamConverter();
    StreamConverter(const StreamConverter&) = delete;
    StreamConverter& operator=(const StreamConverter&) = delete;

    // From charset `from` to charset `to` (iconv names); false when iconv has no converter.
    bool open(const char* from, const char* to);
    // Appends the conversion of the next piece to out; `last` marks the end of the input (the
    // piece may be empty). False on bytes not valid in `from`, on characters `to` cannot hold,
    // and on a character cut off by the end of the input.
    bool convert(const unsigned char* in, size_t n, bool last, DataBuffer& out);

  private:
    bool convertPiece(const unsigned char* in, size_t n, bool last, DataBuffer& out);

    void* m_cd = reinterpret_cast<void*>(-1);
    bool m_utf8 = false;
    std::string m_mark;    // the converter's byte-order mark, until its first output is seen
    std::string m_held;    // the start of a character cut by the last piece's end
    std::string m_joined;  // scratch: the held bytes and the next piece
};

// True when bytes[0, n) is well-formed UTF-8 (no overlong forms, surrogates or values past
// U+10FFFF).
bool isValidUtf8(const unsigned char* bytes, size_t n);

// The byte-order mark of a code page, or null (length 0) when the charset has none.
const unsigned char* preambleOf(int codePage, unsigned& length);
// The length of the code page's byte-order mark when bytes[0, n) starts with it, else 0.
unsigned leadingMarkLength(int codePage, const unsigned char* bytes, size_t n);
