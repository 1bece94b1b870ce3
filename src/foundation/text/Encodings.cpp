#include "foundation/text/Encodings.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#ifdef __SSE2__
#include <emmintrin.h>
#endif
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define FA_B64_SSSE3 1
#endif

#include "foundation/text/DataBuffer.h"
#include "foundation/text/LargeBlocks.h"
#include "foundation/text/StringBuffer.h"

namespace {

enum class Enc { Unknown, Hex, HexLower, Base64, Base64Url, Base32, Url, Qp, Ascii };

bool sameNoCase(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b) {
        char x = (*a >= 'A' && *a <= 'Z') ? static_cast<char>(*a + 32) : *a;
        if (x != *b) return false;
    }
    return *a == *b;
}

Enc encodingByName(const char* name) {
    if (!name) return Enc::Unknown;
    struct Entry {
        const char* name;
        Enc enc;
    };
    static constexpr Entry kNames[] = {
        {"hex", Enc::Hex},       {"base16", Enc::Hex},          {"hexlower", Enc::HexLower},
        {"base64", Enc::Base64}, {"base64url", Enc::Base64Url}, {"base32", Enc::Base32},
        {"url", Enc::Url},       {"quoted-printable", Enc::Qp}, {"qp", Enc::Qp},
        {"ascii", Enc::Ascii},
    };
    for (const Entry& e : kNames)
        if (sameNoCase(name, e.name)) return e.enc;
    return Enc::Unknown;
}

constexpr char kHexUpper[] = "0123456789ABCDEF";
constexpr char kHexLower[] = "0123456789abcdef";
constexpr char kB64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kB64Url[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr char kB32[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

// Every byte value mapped to its two digits, so the encoder stores 16 bits per input byte.
using PairTable = std::array<uint16_t, 256>;
PairTable makeHexPairs(const char* digits) {
    PairTable t{};
    for (int i = 0; i < 256; ++i) {
        char pair[2] = {digits[i >> 4], digits[i & 15]};
        std::memcpy(&t[i], pair, 2);
    }
    return t;
}

// Every 12-bit value mapped to its two base64 digits: one lookup per half of a 3-byte group.
using B64Table = std::array<uint16_t, 4096>;
B64Table makeB64Pairs(const char* alphabet) {
    B64Table t{};
    for (int i = 0; i < 4096; ++i) {
        char pair[2] = {alphabet[i >> 6], alphabet[i & 63]};
        std::memcpy(&t[i], pair, 2);
    }
    return t;
}

// Reserves room for `add` more bytes; false when the result would pass the 32-bit size range.
// Fresh room of many MiB is advised for huge pages before the encoder first writes to it:
// faulting in hundreds of MB of output 4 KiB at a time costs more than encoding it.
bool reserveFor(StringBuffer& out, uint64_t add) {
    uint64_t total = uint64_t{out.getSize()} + add;
    if (total > UINT32_MAX) return false;
    std::string& s = out.str();
    size_t before = s.capacity();
    s.reserve(static_cast<size_t>(total));
    if (s.capacity() != before) adviseLargeBlock(s.data(), s.capacity());
    return true;
}

// As reserveFor, answering false where the memory cannot be had instead of throwing.
bool tryReserveFor(StringBuffer& out, uint64_t add) noexcept {
    try {
        return reserveFor(out, add);
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

// Grows out by `add` bytes and returns where they start; null when the result would pass the
// 32-bit size range.
char* extend(StringBuffer& out, uint64_t add) {
    uint64_t total = uint64_t{out.getSize()} + add;
    if (total > UINT32_MAX) return nullptr;
    std::string& s = out.str();
    size_t old = s.size();
    s.resize(static_cast<size_t>(total));
    return s.data() + old;
}

// The long encoders fill a small stack block and append it: a string resized up front would
// first be zero-filled, doubling the memory traffic of outputs far larger than the caches.
constexpr unsigned kBlock = 8192;

#ifdef __SSE2__
// The 32 hex digits of 16 bytes: nibbles split and interleaved, then '0' added and, for the
// nibbles above 9, the distance on to the first letter.
void hexDigits16(const unsigned char* in, char* out, bool lower) {
    const __m128i nibble = _mm_set1_epi8(0x0F);
    const __m128i nine = _mm_set1_epi8(9);
    const __m128i zero = _mm_set1_epi8('0');
    const __m128i gap = _mm_set1_epi8(static_cast<char>(lower ? 'a' - '9' - 1 : 'A' - '9' - 1));
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    __m128i hi = _mm_and_si128(_mm_srli_epi16(v, 4), nibble);
    __m128i lo = _mm_and_si128(v, nibble);
    auto digits = [&](__m128i x) {
        __m128i letters = _mm_and_si128(_mm_cmpgt_epi8(x, nine), gap);
        return _mm_add_epi8(_mm_add_epi8(x, zero), letters);
    };
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), digits(_mm_unpacklo_epi8(hi, lo)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), digits(_mm_unpackhi_epi8(hi, lo)));
}
#endif

// The eight hex digits of four bytes (first byte lowest, as a little-endian load gives them),
// computed in one 64-bit word: each nibble is spread to a byte of its own, '0' is added, and
// nibbles above 9 get the distance from '9' + 1 to the first letter.
uint64_t hexDigits4(uint32_t w, unsigned letterGap) {
    uint64_t x = w;
    x = (x | (x << 16)) & 0x0000FFFF0000FFFFULL;
    x = (x | (x << 8)) & 0x00FF00FF00FF00FFULL;
    uint64_t nib = ((x >> 4) & 0x000F000F000F000FULL) | ((x & 0x000F000F000F000FULL) << 8);
    uint64_t above9 = ((nib + 0x0606060606060606ULL) >> 4) & 0x0101010101010101ULL;
    return nib + 0x3030303030303030ULL + above9 * letterGap;
}

bool encodeHex(const unsigned char* d, unsigned n, StringBuffer& out, bool lower) {
    static const PairTable upperPairs = makeHexPairs(kHexUpper);
    static const PairTable lowerPairs = makeHexPairs(kHexLower);
    const PairTable& t = lower ? lowerPairs : upperPairs;
    if (!reserveFor(out, uint64_t{n} * 2)) return false;
    char block[kBlock];
    for (unsigned i = 0; i < n;) {
        unsigned take = n - i < kBlock / 2 ? n - i : kBlock / 2;
        unsigned k = 0;
#ifdef __SSE2__
        for (; k + 16 <= take; k += 16) hexDigits16(d + i + k, block + 2 * k, lower);
#endif
        if constexpr (std::endian::native == std::endian::little) {
            for (; k + 4 <= take; k += 4) {
                uint32_t w;
                std::memcpy(&w, d + i + k, 4);
                uint64_t digits = hexDigits4(w, lower ? 'a' - '9' - 1 : 'A' - '9' - 1);
                std::memcpy(block + 2 * k, &digits, 8);
            }
        }
        for (; k < take; ++k) std::memcpy(block + 2 * k, &t[d[i + k]], 2);
        out.str().append(block, size_t{take} * 2);
        i += take;
    }
    return true;
}

#ifdef FA_B64_SSSE3
// `quads` runs of twelve input bytes (sixteen are loaded for each) to sixteen base64 digits
// each. Each 3-byte group a b c is spread into a 32-bit lane as b a c b, so that its low half
// holds a:b and its high half b:c; two multiplies then move the four 6-bit fields into a byte
// each, and a 16-entry table adds the distance from each field's range to its digit. Built
// for SSSE3 and picked at run time, so the library still runs on processors without it.
__attribute__((target("ssse3"))) void b64Quads(const unsigned char* in, char* out, unsigned quads,
                                               bool url) {
    const __m128i spread = _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const __m128i oddMask = _mm_set1_epi32(0x0FC0FC00), oddMul = _mm_set1_epi32(0x04000040);
    const __m128i evenMask = _mm_set1_epi32(0x003F03F0), evenMul = _mm_set1_epi32(0x01000010);
    const __m128i fiftyOne = _mm_set1_epi8(51), twentySix = _mm_set1_epi8(26);
    const __m128i thirteen = _mm_set1_epi8(13);
    const char c62 = url ? '-' : '+', c63 = url ? '_' : '/';
    // Indexed by range: 0 for a-z, 1..10 for 0-9, 11 and 12 for the last two digits, 13 for A-Z.
    const __m128i shift = _mm_setr_epi8(
        'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '0' - 52, static_cast<char>(c62 - 62), static_cast<char>(c63 - 63), 'A', 0, 0);
    for (unsigned q = 0; q < quads; ++q, in += 12, out += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        v = _mm_shuffle_epi8(v, spread);
        // Fields one (bits 15..10 of a:b) and three (bits 11..6 of b:c) down to bit 0, fields
        // two (bits 9..4 of a:b) and four (bits 5..0 of b:c) up to bit 8.
        __m128i odd = _mm_mulhi_epu16(_mm_and_si128(v, oddMask), oddMul);
        __m128i even = _mm_mullo_epi16(_mm_and_si128(v, evenMask), evenMul);
        __m128i idx = _mm_or_si128(odd, even);
        __m128i range = _mm_subs_epu8(idx, fiftyOne);
        __m128i upper = _mm_cmpgt_epi8(twentySix, idx);
        range = _mm_or_si128(range, _mm_and_si128(upper, thirteen));
        __m128i digits = _mm_add_epi8(idx, _mm_shuffle_epi8(shift, range));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), digits);
    }
}

// The same, eight groups per step: the two 128-bit lanes of an AVX2 register each take the
// twelve bytes of one step above, with the same constants in both lanes.
__attribute__((target("avx2"))) void b64Octs(const unsigned char* in, char* out, unsigned octs,
                                             bool url) {
    const __m256i spread = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const __m256i oddMask = _mm256_set1_epi32(0x0FC0FC00), oddMul = _mm256_set1_epi32(0x04000040);
    const __m256i evenMask = _mm256_set1_epi32(0x003F03F0), evenMul = _mm256_set1_epi32(0x01000010);
    const __m256i fiftyOne = _mm256_set1_epi8(51), twentySix = _mm256_set1_epi8(26);
    const __m256i thirteen = _mm256_set1_epi8(13);
    const char c62 = url ? '-' : '+', c63 = url ? '_' : '/';
    const __m256i shift = _mm256_broadcastsi128_si256(_mm_setr_epi8(
        'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '0' - 52, static_cast<char>(c62 - 62), static_cast<char>(c63 - 63), 'A', 0, 0));
    for (unsigned o = 0; o < octs; ++o, in += 24, out += 32) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 12));
        __m256i v = _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
        v = _mm256_shuffle_epi8(v, spread);
        __m256i odd = _mm256_mulhi_epu16(_mm256_and_si256(v, oddMask), oddMul);
        __m256i even = _mm256_mullo_epi16(_mm256_and_si256(v, evenMask), evenMul);
        __m256i idx = _mm256_or_si256(odd, even);
        __m256i range = _mm256_subs_epu8(idx, fiftyOne);
        __m256i upper = _mm256_cmpgt_epi8(twentySix, idx);
        range = _mm256_or_si256(range, _mm256_and_si256(upper, thirteen));
        __m256i digits = _mm256_add_epi8(idx, _mm256_shuffle_epi8(shift, range));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), digits);
    }
}

// How many of `groups` groups a vector loop that encodes `per` groups a step may take when
// `left` input bytes remain: each step's last load reads four bytes past what it uses.
unsigned vectorSteps(unsigned groups, uint64_t left, unsigned per) {
    if (left < 3 * per + 4) return 0;
    uint64_t fit = (left - 4) / (3 * per);
    return groups / per < fit ? groups / per : static_cast<unsigned>(fit);
}

bool haveSsse3() {
    static const bool have = __builtin_cpu_supports("ssse3");
    return have;
}

bool haveAvx2() {
    static const bool have = __builtin_cpu_supports("avx2");
    return have;
}
#endif

bool encodeBase64(const unsigned char* d, unsigned n, StringBuffer& out, bool url) {
    static const B64Table stdPairs = makeB64Pairs(kB64);
    static const B64Table urlPairs = makeB64Pairs(kB64Url);
    const B64Table& t = url ? urlPairs : stdPairs;
    const char* alphabet = url ? kB64Url : kB64;
    unsigned full = n / 3, rest = n % 3;
    uint64_t len = uint64_t{full} * 4;
    if (rest) len += url ? rest + 1 : 4;
    if (!reserveFor(out, len)) return false;
    char block[kBlock];
    for (unsigned i = 0; i < full;) {
        unsigned take = full - i < kBlock / 4 ? full - i : kBlock / 4;
        char* w = block;
        unsigned k = 0;
#ifdef FA_B64_SSSE3
        // Eight, then four groups per step; the 16-byte loads read four bytes ahead of them.
        if (haveAvx2()) {
            unsigned octs = vectorSteps(take, n - uint64_t{i} * 3, 8);
            b64Octs(d, w, octs, url);
            k = octs * 8;
            d += octs * 24;
            w += octs * 32;
        }
        if (haveSsse3()) {
            unsigned quads = vectorSteps(take - k, n - uint64_t{i + k} * 3, 4);
            b64Quads(d, w, quads, url);
            k += quads * 4;
            d += quads * 12;
            w += quads * 16;
        }
#endif
        if constexpr (std::endian::native == std::endian::little) {
            // Two groups per step from one 8-byte load and one 8-byte store; the load reads
            // two bytes ahead, so these steps stop while fewer than eight input bytes remain.
            for (; k + 2 <= take && uint64_t{i + k} * 3 + 8 <= n; k += 2, d += 6, w += 8) {
                uint64_t v;
                std::memcpy(&v, d, 8);
                v = __builtin_bswap64(v);
                uint64_t digits =
                    uint64_t{t[(v >> 52) & 0xFFF]} | uint64_t{t[(v >> 40) & 0xFFF]} << 16 |
                    uint64_t{t[(v >> 28) & 0xFFF]} << 32 | uint64_t{t[(v >> 16) & 0xFFF]} << 48;
                std::memcpy(w, &digits, 8);
            }
        }
        for (; k < take; ++k, d += 3, w += 4) {
            uint32_t v = (uint32_t{d[0]} << 16) | (uint32_t{d[1]} << 8) | d[2];
            std::memcpy(w, &t[v >> 12], 2);
            std::memcpy(w + 2, &t[v & 0xFFF], 2);
        }
        out.str().append(block, size_t{take} * 4);
        i += take;
    }
    if (rest == 0) return true;
    char* w = extend(out, len - uint64_t{full} * 4);
    if (!w) return false;
    uint32_t v = uint32_t{d[0]} << 16;
    if (rest == 2) v |= uint32_t{d[1]} << 8;
    w[0] = alphabet[(v >> 18) & 63];
    w[1] = alphabet[(v >> 12) & 63];
    if (rest == 2) w[2] = alphabet[(v >> 6) & 63];
    if (url) return true;
    if (rest == 1) w[2] = '=';
    w[3] = '=';
    return true;
}

bool encodeBase32(const unsigned char* d, unsigned n, StringBuffer& out) {
    uint64_t groups = (uint64_t{n} + 4) / 5;
    char* w = extend(out, groups * 8);
    if (!w) return false;
    for (unsigned i = 0; i < n; i += 5, w += 8) {
        unsigned take = n - i < 5 ? n - i : 5;
        uint64_t v = 0;
        for (unsigned k = 0; k < 5; ++k) v = (v << 8) | (k < take ? d[i + k] : 0);
        // Digits that carry at least one bit of input; the rest of the group is padding.
        static constexpr unsigned kDigits[] = {0, 2, 4, 5, 7, 8};
        for (unsigned k = 0; k < 8; ++k)
            w[k] = k < kDigits[take] ? kB32[(v >> (35 - 5 * k)) & 31] : '=';
    }
    return true;
}

bool isUrlUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.' || c == '~';
}

bool encodeUrl(const unsigned char* d, unsigned n, StringBuffer& out) {
    std::string s;
    s.reserve(n);
    for (unsigned i = 0; i < n; ++i) {
        if (isUrlUnreserved(d[i])) {
            s.push_back(static_cast<char>(d[i]));
        } else {
            s.push_back('%');
            s.push_back(kHexUpper[d[i] >> 4]);
            s.push_back(kHexUpper[d[i] & 15]);
        }
    }
    if (uint64_t{out.getSize()} + s.size() > UINT32_MAX) return false;
    out.append(s);
    return true;
}

// Quoted-printable: printable ASCII but '=' stays; CRLF stays a line break; a space or tab
// stays unless a line break or the end follows it; everything else is =XX. Lines are kept
// to at most 76 characters with soft breaks ("=" CRLF).
// Quoted-printable text of d[0, n) onto s, from a line already `lineLen` long. A byte's form
// depends on the two after it (a line break ahead), so unless `final` the last two bytes are
// left for the next call; returns how many bytes were encoded.
unsigned encodeQpPart(const unsigned char* d, unsigned n, bool final, size_t& lineLen,
                      std::string& s) {
    auto put = [&](const char* piece, size_t len) {
        if (lineLen + len > 75) {
            s.append("=\r\n");
            lineLen = 0;
        }
        s.append(piece, len);
        lineLen += len;
    };
    const unsigned limit = final ? n : (n > 2 ? n - 2 : 0);
    unsigned i = 0;
    for (; i < limit; ++i) {
        unsigned char c = d[i];
        if (c == '\r' && i + 1 < n && d[i + 1] == '\n') {
            s.append("\r\n");
            lineLen = 0;
            ++i;
            continue;
        }
        bool lineEndNext = i + 1 == n || (d[i + 1] == '\r' && i + 2 < n && d[i + 2] == '\n');
        bool literal =
            (c >= 33 && c <= 126 && c != '=') || ((c == ' ' || c == '\t') && !lineEndNext);
        if (literal) {
            char ch = static_cast<char>(c);
            put(&ch, 1);
        } else {
            char esc[3] = {'=', kHexUpper[c >> 4], kHexUpper[c & 15]};
            put(esc, 3);
        }
    }
    return i;
}

bool appendText(StringBuffer& out, const std::string& s) {
    if (uint64_t{out.getSize()} + s.size() > UINT32_MAX) return false;
    out.append(s);
    return true;
}

bool encodeQp(const unsigned char* d, unsigned n, StringBuffer& out) {
    std::string s;
    s.reserve(n + n / 8);
    size_t lineLen = 0;
    encodeQpPart(d, n, true, lineLen, s);
    return appendText(out, s);
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool isWhite(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Hex digits in either case; white space between pairs is ignored.
bool decodeHex(const char* t, unsigned n, DataBuffer& out) {
    if (!out.ensureBuffer64(uint64_t{out.getSize()} + n / 2)) return false;
    unsigned i = 0;
    while (i < n) {
        if (isWhite(t[i])) {
            ++i;
            continue;
        }
        if (i + 1 >= n) return false;
        int hi = hexValue(t[i]), lo = hexValue(t[i + 1]);
        if (hi < 0 || lo < 0) return false;
        if (!out.appendChar(static_cast<unsigned char>(hi * 16 + lo))) return false;
        i += 2;
    }
    return true;
}

int b64Value(char c, bool url) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == (url ? '-' : '+')) return 62;
    if (c == (url ? '_' : '/')) return 63;
    return -1;
}

// Base64 with or without padding; white space is ignored. Padding may only end the text, and
// a final group of one digit (which cannot hold a whole byte) is invalid.
bool decodeBase64(const char* t, unsigned n, DataBuffer& out, bool url) {
    if (!out.ensureBuffer64(uint64_t{out.getSize()} + uint64_t{n} / 4 * 3 + 3)) return false;
    uint32_t acc = 0;
    unsigned digits = 0, pads = 0;
    for (unsigned i = 0; i < n; ++i) {
        char c = t[i];
        if (isWhite(c)) continue;
        if (c == '=') {
            ++pads;
            continue;
        }
        int v = b64Value(c, url);
        if (v < 0 || pads) return false;
        acc = (acc << 6) | static_cast<uint32_t>(v);
        if (++digits % 4 == 0) {
            unsigned char b[3] = {static_cast<unsigned char>(acc >> 16),
                                  static_cast<unsigned char>(acc >> 8),
                                  static_cast<unsigned char>(acc)};
            out.append(b, 3);
            acc = 0;
        }
    }
    unsigned rest = digits % 4;
    if (rest == 1 || pads > 2) return false;
    if (pads && (rest + pads) % 4 != 0) return false;
    if (rest == 2) return out.appendChar(static_cast<unsigned char>(acc >> 4));
    if (rest == 3) {
        unsigned char b[2] = {static_cast<unsigned char>(acc >> 10),
                              static_cast<unsigned char>(acc >> 2)};
        return out.append(b, 2);
    }
    return true;
}

int b32Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a';
    if (c >= '2' && c <= '7') return c - '2' + 26;
    return -1;
}

// Base32 with or without padding; a final group must hold a whole number of bytes.
bool decodeBase32(const char* t, unsigned n, DataBuffer& out) {
    uint64_t acc = 0;
    unsigned digits = 0;
    bool padding = false;
    for (unsigned i = 0; i < n; ++i) {
        char c = t[i];
        if (isWhite(c)) continue;
        if (c == '=') {
            padding = true;
            continue;
        }
        int v = b32Value(c);
        if (v < 0 || padding) return false;
        acc = (acc << 5) | static_cast<uint64_t>(v);
        if (++digits % 8 == 0) {
            unsigned char b[5];
            for (int k = 0; k < 5; ++k) b[k] = static_cast<unsigned char>(acc >> (32 - 8 * k));
            if (!out.append(b, 5)) return false;
            acc = 0;
        }
    }
    static constexpr int kBytesFor[] = {0, -1, 1, -1, 2, 3, -1, 4};
    int bytes = kBytesFor[digits % 8];
    if (bytes < 0) return false;
    unsigned bits = (digits % 8) * 5;
    for (int k = 0; k < bytes; ++k) {
        unsigned shift = bits - 8 * (k + 1);
        if (!out.appendChar(static_cast<unsigned char>(acc >> shift))) return false;
    }
    return true;
}

bool decodeUrl(const char* t, unsigned n, DataBuffer& out) {
    for (unsigned i = 0; i < n; ++i) {
        unsigned char c = static_cast<unsigned char>(t[i]);
        if (c == '%') {
            if (i + 2 >= n) return false;
            int hi = hexValue(t[i + 1]), lo = hexValue(t[i + 2]);
            if (hi < 0 || lo < 0) return false;
            c = static_cast<unsigned char>(hi * 16 + lo);
            i += 2;
        }
        if (!out.appendChar(c)) return false;
    }
    return true;
}

bool decodeQp(const char* t, unsigned n, DataBuffer& out) {
    for (unsigned i = 0; i < n; ++i) {
        unsigned char c = static_cast<unsigned char>(t[i]);
        if (c != '=') {
            if (!out.appendChar(c)) return false;
            continue;
        }
        // A soft line break joins two lines of the encoded text.
        if (i + 1 < n && t[i + 1] == '\n') {
            i += 1;
            continue;
        }
        if (i + 2 < n && t[i + 1] == '\r' && t[i + 2] == '\n') {
            i += 2;
            continue;
        }
        if (i + 2 >= n) return false;
        int hi = hexValue(t[i + 1]), lo = hexValue(t[i + 2]);
        if (hi < 0 || lo < 0) return false;
        if (!out.appendChar(static_cast<unsigned char>(hi * 16 + lo))) return false;
        i += 2;
    }
    return true;
}

}  // namespace

namespace {

bool encodeAs(Enc enc, const unsigned char* data, unsigned n, StringBuffer& out) {
    if (n == 0) return true;
    if (!data) return false;
    switch (enc) {
        case Enc::Hex:
            return encodeHex(data, n, out, false);
        case Enc::HexLower:
            return encodeHex(data, n, out, true);
        case Enc::Base64:
            return encodeBase64(data, n, out, false);
        case Enc::Base64Url:
            return encodeBase64(data, n, out, true);
        case Enc::Base32:
            return encodeBase32(data, n, out);
        case Enc::Url:
            return encodeUrl(data, n, out);
        case Enc::Qp:
            return encodeQp(data, n, out);
        case Enc::Ascii:
            if (uint64_t{out.getSize()} + n > UINT32_MAX) return false;
            out.append(reinterpret_cast<const char*>(data), n);
            return true;
        case Enc::Unknown:
            break;
    }
    return false;
}

}  // namespace

bool encodeBytes(const char* encoding, const unsigned char* data, unsigned n, StringBuffer& out) {
    Enc enc = encodingByName(encoding);
    return enc != Enc::Unknown && encodeAs(enc, data, n, out);
}

bool BlockEncoder::select(const char* encoding) {
    m_kind = static_cast<unsigned char>(encodingByName(encoding));
    m_qpLine = 0;
    m_qpHeld.clear();
    return m_kind != static_cast<unsigned char>(Enc::Unknown);
}

unsigned BlockEncoder::groupBytes() const {
    switch (static_cast<Enc>(m_kind)) {
        case Enc::Base64:
        case Enc::Base64Url:
            return 3;
        case Enc::Base32:
            return 5;
        default:
            return 1;
    }
}

bool BlockEncoder::keepsBytes() const { return static_cast<Enc>(m_kind) == Enc::Ascii; }

uint64_t BlockEncoder::textBound(uint64_t n) const {
    switch (static_cast<Enc>(m_kind)) {
        case Enc::Hex:
        case Enc::HexLower:
            return 2 * n;
        case Enc::Base64:
            return (n + 2) / 3 * 4;
        case Enc::Base64Url:
            return n / 3 * 4 + (n % 3 ? n % 3 + 1 : 0);
        case Enc::Base32:
            return (n + 4) / 5 * 8;
        case Enc::Url:
            return 3 * n;
        case Enc::Qp:
            // Every byte escaped, and a soft break after every 73 characters at the least.
            return 3 * n + 3 * (3 * n / 73 + 1);
        case Enc::Ascii:
            return n;
        case Enc::Unknown:
            break;
    }
    return 0;
}

bool BlockEncoder::exactLength() const {
    const Enc enc = static_cast<Enc>(m_kind);
    return enc != Enc::Url && enc != Enc::Qp;
}

BlockEncoder::Room BlockEncoder::reserve(StringBuffer& out, uint64_t n) const {
    const uint64_t room = UINT32_MAX - uint64_t{out.getSize()};
    const uint64_t bound = textBound(n);
    if (exactLength()) {
        if (bound > room) return Room::TooLong;
        return tryReserveFor(out, bound) ? Room::Reserved : Room::NoMemory;
    }
    // The bound assumes every byte escaped, which text seldom is: reserve it only as far as a
    // text can reach, and settle for less where that much memory cannot be had.
    if (n > room) return Room::TooLong;
    if (tryReserveFor(out, std::min(bound, room))) return Room::Reserved;
    return tryReserveFor(out, n) ? Room::Reserved : Room::NoMemory;
}

bool BlockEncoder::append(const unsigned char* data, unsigned n, bool last, StringBuffer& out) {
    const Enc enc = static_cast<Enc>(m_kind);
    if (enc != Enc::Qp) return encodeAs(enc, data, n, out);
    if (n && !data) return false;
    // The bytes held back for their look-ahead come first.
    std::string joined;
    if (!m_qpHeld.empty()) {
        joined.assign(m_qpHeld).append(reinterpret_cast<const char*>(data), n);
        data = reinterpret_cast<const unsigned char*>(joined.data());
        n = static_cast<unsigned>(joined.size());
    }
    std::string s;
    const unsigned done = encodeQpPart(data, n, last, m_qpLine, s);
    m_qpHeld.assign(reinterpret_cast<const char*>(data) + done, n - done);
    return appendText(out, s);
}

bool decodeText(const char* encoding, const char* text, unsigned n, DataBuffer& out) {
    Enc enc = encodingByName(encoding);
    if (enc == Enc::Unknown) return false;
    if (n == 0) return true;
    if (!text) return false;
    switch (enc) {
        case Enc::Hex:
        case Enc::HexLower:
            return decodeHex(text, n, out);
        case Enc::Base64:
            return decodeBase64(text, n, out, false);
        case Enc::Base64Url:
            return decodeBase64(text, n, out, true);
        case Enc::Base32:
            return decodeBase32(text, n, out);
        case Enc::Url:
            return decodeUrl(text, n, out);
        case Enc::Qp:
            return decodeQp(text, n, out);
        case Enc::Ascii:
            return out.append(text, n);
        case Enc::Unknown:
            break;
    }
    return false;
}
