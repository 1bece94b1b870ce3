// Binary-to-text encodings used by DataBuffer: hex/base16, hexlower, base64, base64url, base32,
// url (percent-encoding), quoted-printable/qp and ascii. Names are matched without case.
#pragma once

class DataBuffer;
class StringBuffer;

// Appends the text form of data[0, n) to out. False (out unchanged) for an unknown name or
// when the text would pass 4,294,967,295 bytes.
bool encodeBytes(const char* encoding, const unsigned char* data, unsigned n, StringBuffer& out);

// Appends the bytes that text[0, n) encodes to out. False for an unknown name or text that
// is not valid in the encoding (out may then hold part of the result).
bool decodeText(const char* encoding, const char* text, unsigned n, DataBuffer& out);
