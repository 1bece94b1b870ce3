// Charset descriptors and the small free helpers the component relies on.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>
#include <string>

// Names one charset by its code page number. Names and numbers are those the platform's
// iconv knows, plus the Windows names and numbers listed in `setByName`.
class FA_API _ovCharset {
public:
    _ovCharset();  // UTF-8 (65001)
    ~_ovCharset() = default;

    // Selects the named charset (case-insensitive). False for a name nothing knows; the
    // selection is then unchanged.
    bool setByName(const char* name);
    // Selects the charset of a code page. False for a number without a converter; the
    // selection is then unchanged.
    bool setByCodePage(int codePage);

    // The code page, also for other names of a charset the tables know (L1 is 28591); 0 for
    // a charset that has none.
    int getCodePage() const { return m_codePage; }
    // The name handed to iconv for this charset. The Unicode forms name their byte order
    // (UTF16 is handed over as UTF-16LE), so that iconv writes no byte-order mark.
    const char* getIconvName() const { return m_iconvName.c_str(); }

private:
    int m_codePage;
    std::string m_iconvName;
};

// Code page numbers the rest of the library refers to by name.
namespace CodePage {
constexpr int Utf16LE = 1200;
constexpr int Utf16BE = 1201;
constexpr int Utf32LE = 12000;
constexpr int Utf32BE = 12001;
constexpr int UsAscii = 20127;
constexpr int Latin1 = 28591;
constexpr int Windows1252 = 1252;
constexpr int Utf8 = 65001;
}  // namespace CodePage

namespace Psdk {
// The ANSI code page of this platform: 1252.
FA_API int getAnsiCodePage();
}  // namespace Psdk

namespace ov64 {
// The low 32 bits of a value, as unsigned.
FA_API uint32_t toUnsignedLong(long long v);
}  // namespace ov64

// Arrays for array delete, or null when the memory cannot be had. Never throw.
FA_API char* ovNewChar(unsigned n);
FA_API unsigned char* ovNewUnsignedChar(unsigned n);
