// Charset conversion through the platform's iconv, and byte-order marks.
#pragma once

#include <cstddef>

class DataBuffer;

// True when iconv can convert between the named charset and UTF-8.
bool converterExists(const char* iconvName);

// Appends in[0, n), converted from charset `from` to charset `to` (iconv names), to out.
// Fails on bytes that are not valid in `from` and on characters `to` cannot hold: nothing is
// substituted or transliterated. On failure out keeps what converted before the bad spot.
bool convertCharset(const char* from, const char* to, const unsigned char* in, size_t n,
                    DataBuffer& out);

// True when bytes[0, n) is well-formed UTF-8 (no overlong forms, surrogates or values past
// U+10FFFF).
bool isValidUtf8(const unsigned char* bytes, size_t n);

// The byte-order mark of a code page, or null (length 0) when the charset has none.
const unsigned char* preambleOf(int codePage, unsigned& length);
