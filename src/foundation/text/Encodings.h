// Binary-to-text encodings used by DataBuffer: hex/base16, hexlower, base64, base64url, base32,
// url (percent-encoding), quoted-printable/qp and ascii. Names are matched without case.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class DataBuffer;
class StringBuffer;

// Appends the text form of data[0, n) to out. False (out unchanged) for an unknown name or
// when the text would pass 4,294,967,295 bytes.
bool encodeBytes(const char* encoding, const unsigned char* data, unsigned n, StringBuffer& out);

// Appends the bytes that text[0, n) encodes to out. False for an unknown name or text that
// is not valid in the encoding (out may then hold part of the result).
bool decodeText(const char* encoding, const char* text, unsigned n, DataBuffer& out);

// Encodes data that arrives in pieces into the same text as one encodeBytes call over all of it.
// Every piece but the last must be a whole number of the encoding's groups (groupBytes()).
class BlockEncoder {
public:
    // False for a name no encoder knows.
    bool select(const char* encoding);
    // 3 for base64 and base64url, 5 for base32, 1 for the others.
    unsigned groupBytes() const;
    // True for the encoding that gives the bytes as they are (ascii): its text may hold NULs.
    bool keepsBytes() const;
    // The most text n bytes can give: the exact length for all but url and quoted-printable.
    uint64_t textBound(uint64_t n) const;
    // True when textBound is the exact length of the text: all but url and quoted-printable.
    bool exactLength() const;

    // How reserve went.
    enum class Room { Reserved, TooLong, NoMemory };
    // Reserves room in out, once, for the text of n more bytes, in memory that fills quickly
    // (large pages where the system offers them). An encoding of exact length reserves that
    // length, or nothing (TooLong) when the text would pass 4,294,967,295 bytes. Url and
    // quoted-printable reserve their bound up to that limit (append stops there), or where
    // the memory for that cannot be had the least their text takes (a byte per byte); TooLong
    // when even that would pass the limit. NoMemory when the memory cannot be had. Never
    // throws.
    Room reserve(StringBuffer& out, uint64_t n) const;
    // Appends the next piece's text to out; `last` marks the final piece. False when the text
    // would pass 4,294,967,295 bytes.
    bool append(const unsigned char* data, unsigned n, bool last, StringBuffer& out);

private:
    unsigned char m_kind = 0;
    // Quoted-printable: the current line's length, and the bytes kept for their look-ahead.
    size_t m_qpLine = 0;
    std::string m_qpHeld;
};
