// The program's own scan for records that begin with a tag, such as <rec> ... </rec>.
//
// A begin marker "<name>" matches the tag wherever it stands, with or without attributes:
// "<name" followed by white space, ">" or "/". So <rec>, <rec id="1"> and <rec/> all begin a
// record, and <record> does not. A record runs from its tag through the next end marker after
// the tag's closing ">"; a tag closed by "/>" is a record by itself. Quoted attribute values
// may hold ">". Everything is matched as bytes in the file's charset, a character at a time
// (two or four bytes in UTF-16 and UTF-32, where matches must start on a character).
//
// The input is streamed in large blocks through one window that holds only the record being
// collected; nothing is read twice and a record costs no system call.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/text/Charset.h"
#include "foundation/text/DataBuffer.h"

class XString;

namespace fatool {

// Where the scanned bytes come from: a file, standard input.
class ByteSource {
  public:
    virtual ~ByteSource() = default;
    // Reads up to n bytes into buf; fewer only at the end of the data (got is then 0 or more).
    // False on a read error, with the reason in `why`.
    virtual bool read(unsigned char* buf, size_t n, size_t& got, std::string& why) = 0;
};

// True when `begin` is a tag marker: "<" and ">" around a name with no "<", ">", "/" or white
// space in it.
bool isTagMarker(const std::string& begin);

class TagScanner {
  public:
    // Bytes read per block.
    static constexpr size_t kBlock = size_t{1} << 20;

    // `block` is the read size; tests make it tiny to put every seam in every place.
    explicit TagScanner(size_t block = kBlock) : m_block(block) {}

    // Writes the markers in the charset. False, with the reason, when `begin` is no tag marker,
    // `end` is empty, or the charset cannot hold them.
    bool prepare(const std::string& begin, const std::string& end, const std::string& charset,
                 std::string& why);

    // Hands every record of the source, in order, to onRecord until it returns false. The text
    // is valid during the call only. False on a read error, or on a record that is not valid
    // text in the charset (records before it stay handed over), with the reason in `why`: for
    // a record, its number and the offset of its first byte.
    bool scan(ByteSource& source, const std::function<bool(const XString&)>& onRecord,
              std::string& why);

    // Bytes of the source consumed so far.
    int64_t bytesRead() const { return m_bytesRead; }

  private:
    enum class Seek { Begin, TagEnd, End };
    enum Unit { kSpace, kTab, kCr, kLf, kGt, kSlash, kQuote, kApos, kUnits };

    struct Window;
    // Advances through the window; true when a record [start, at) is complete.
    bool step(Window& w);
    bool stepBegin(Window& w);
    bool stepTagEnd(Window& w);
    bool stepEnd(Window& w);
    bool aligned(const Window& w, size_t at) const;
    unsigned findAligned(const Window& w, const DataBuffer& needle, size_t from) const;
    // Whether the character at p is unit u: one byte compared in UTF-8 and the like, one
    // two- or four-byte word in UTF-16 and UTF-32 (the tight loops test every character).
    bool unitIs(const unsigned char* p, Unit u) const {
        if (m_unit == 1) return *p == m_units[u];
        return std::memcmp(p, m_units.data() + static_cast<size_t>(u) * m_unit, m_unit) == 0;
    }

    const size_t m_block;
    DataBuffer m_prefix;  // "<name"
    DataBuffer m_end;
    std::vector<unsigned char> m_units;  // kUnits characters of m_unit bytes each
    size_t m_unit = 1;
    std::array<bool, 256> m_special{};  // one-byte charsets: '>' and the quotes
    _ovCharset m_charset;
    std::string m_charsetName;
    int64_t m_bytesRead = 0;

    Seek m_seek = Seek::Begin;
    size_t m_at = 0;     // where the search goes on
    size_t m_start = 0;  // first byte of the record being collected
    int m_quote = -1;    // the quote unit open inside a tag, or -1
};

}  // namespace fatool
