/// @file
/// Charset descriptors, the code page numbers the library names, and small free helpers.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>
#include <string>

/// Names one charset by its code page number. Names and numbers are those the platform's
/// iconv knows, plus the Windows names and numbers listed in `setByName`.
///
/// The descriptor holds no converter: conversions open (and cache per thread) their own.
/// Thread safety is that of a value type: one object must not be changed by one thread while
/// another thread uses it; distinct objects are independent. The process-wide table that
/// `setByName` consults is locked internally.
class FA_API _ovCharset {
public:
    /// Selects UTF-8 (code page 65001).
    _ovCharset();
    /// Destroys the descriptor; it holds nothing to release.
    ~_ovCharset() = default;

    /// Selects the named charset (case-insensitive). Besides iconv's names it knows the Windows
    /// ones: "unicode" and "utf-16" (UTF-16LE, 1200), "unicodefffe" (1201), "utf-32" (12000),
    /// "ansi" (1252), "windows-NNNN", "cpNNNN", "iso-8859-N", "latin1", "shift_jis",
    /// "ks_c_5601-1987" and others. Another iconv name selects the known charset it converts
    /// exactly as ("CP819" gives 28591): the same bytes for every character of the Basic
    /// Multilingual Plane and the same text for every input of one and two bytes, a comparison
    /// made once per name and process (some 15 ms). Names of the Unicode forms whose
    /// converters write a byte-order mark ("UTF16") select the form that names its byte order.
    /// Any other name keeps its own converter with code page 0 ("EUC-JP-MS", whose tables
    /// differ from EUC-JP's in places); a byte-order mark that converter writes is left out
    /// of the converted bytes. False for a name nothing knows, or one with a '/' (iconv
    /// suffixes that substitute or drop characters); the selection is then unchanged.
    bool setByName(const char* name);
    /// Selects the charset of a code page: 874, 932, 936, 949, 950, 1200, 1201, 1250-1258,
    /// 12000, 12001, 20127, 28591-28606 (no 28602), 50220, 51932, 54936, 65000, 65001. False
    /// for any other number or one whose converter iconv lacks; the selection is then unchanged.
    bool setByCodePage(int codePage);

    /// The code page, also for other names of a charset the tables know (L1 is 28591); 0 for
    /// a charset that has none. A few names report the Windows code page of a close relative
    /// while converting with their own tables ("shift_jis" answers 932 but converts as
    /// SHIFT_JIS, not CP932), and 20866/21866 (KOI8-R/U) are not accepted by `setByCodePage`.
    int getCodePage() const { return m_codePage; }
    /// The name handed to iconv for this charset. The Unicode forms name their byte order
    /// (UTF16 is handed over as UTF-16LE), so that iconv writes no byte-order mark. The
    /// object owns the text; it is valid until the selection next changes.
    const char* getIconvName() const { return m_iconvName.c_str(); }

private:
    int m_codePage;
    std::string m_iconvName;
};

/// Code page numbers the rest of the library refers to by name.
namespace CodePage {
/// UTF-16, little-endian; byte-order mark FF FE.
constexpr int Utf16LE = 1200;
/// UTF-16, big-endian; byte-order mark FE FF.
constexpr int Utf16BE = 1201;
/// UTF-32, little-endian; byte-order mark FF FE 00 00.
constexpr int Utf32LE = 12000;
/// UTF-32, big-endian; byte-order mark 00 00 FE FF.
constexpr int Utf32BE = 12001;
/// US-ASCII: bytes 0x00 to 0x7F only.
constexpr int UsAscii = 20127;
/// ISO-8859-1 (Latin-1).
constexpr int Latin1 = 28591;
/// windows-1252, the ANSI code page of this platform.
constexpr int Windows1252 = 1252;
/// UTF-8; byte-order mark EF BB BF.
constexpr int Utf8 = 65001;
}  // namespace CodePage

/// Facts about the platform.
namespace Psdk {
/// The ANSI code page of this platform: always 1252 (windows-1252), the charset of
/// `XString::getAnsi`.
FA_API int getAnsiCodePage();
}  // namespace Psdk

/// Helpers for 64-bit integer values.
namespace ov64 {
/// The low 32 bits of a value, as unsigned (-1 gives 0xFFFFFFFF).
FA_API uint32_t toUnsignedLong(long long v);
}  // namespace ov64

/// A new array of `n` uninitialised chars, or null when the memory cannot be had; never
/// throws. The caller owns the array and frees it with array delete (`delete[]`).
FA_API char* ovNewChar(unsigned n);
/// As `ovNewChar`, for an array of `n` unsigned chars.
FA_API unsigned char* ovNewUnsignedChar(unsigned n);
