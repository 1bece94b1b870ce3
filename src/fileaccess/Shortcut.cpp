// Windows shortcut (.lnk) files: reading their five strings, and checking that a file can be
// walked at all.
//
// A shortcut is a 76-byte header, an optional ID list of the target, an optional LinkInfo
// structure, up to five optional counted strings and a chain of extra-data blocks ended by a
// terminal block. The walk reads only the sizes it needs to step from one structure to the
// next; the strings are the only contents it decodes.
//
// Both walks load the whole file and read it through the buffer's bounded parse functions,
// so no read can leave the loaded bytes. The read position is an unsigned 32-bit offset and
// every step over a structure is unsigned 32-bit arithmetic: a size that points past the end
// (or, after wrapping, before the current position) is noticed by the next read, which then
// fails. Each failed read is reported as a numbered "failPoint" in the caller's log.
#include <cstdint>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/FileSys.h"

namespace {

// LinkFlags bits that change the layout of the file.
constexpr unsigned kHasLinkTargetIdList = 0x1;
constexpr unsigned kHasLinkInfo = 0x2;
constexpr unsigned kIsUnicode = 0x80;

constexpr unsigned kShortcutHeaderSize = 76;
// The checker refuses larger files before loading them: real shortcuts are a few kB.
constexpr long long kMaxCheckedFileSize = 100000;
// Bounds the extra-data walk, so a chain without a terminal block cannot run on.
constexpr int kMaxExtraBlocks = 500;
// Block sizes below this are terminal blocks: a real block holds at least its own size.
constexpr unsigned kMinExtraBlockSize = 4;

// The five strings in file order, with the LinkFlags bit that says each one is present, the
// failPoint of its character count (its characters use the next number) and its field.
struct StringSlot {
    unsigned flag;
    int countFailPoint;
    XString _ovShortcutInfo::*field;
};
constexpr StringSlot kStringSlots[] = {
    {0x04, 16, &_ovShortcutInfo::name},         {0x08, 18, &_ovShortcutInfo::relativePath},
    {0x10, 20, &_ovShortcutInfo::workingDir},   {0x20, 22, &_ovShortcutInfo::commandLineArguments},
    {0x40, 24, &_ovShortcutInfo::iconLocation},
};

// The path's UTF-8 text without trailing white space, with ".lnk" added when missing.
StringBuffer shortcutFileName(const XString& path) {
    StringBuffer name;
    name.append(path.getUtf8());
    name.trimRight2();
    if (!name.endsWith(".lnk")) name.append(".lnk");
    return name;
}

void appendUtf8CodePoint(uint32_t cp, StringBuffer& out) {
    if (cp < 0x80) {
        out.appendChar(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.appendChar(static_cast<char>(0xC0 | (cp >> 6)));
        out.appendChar(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.appendChar(static_cast<char>(0xE0 | (cp >> 12)));
        out.appendChar(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.appendChar(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.appendChar(static_cast<char>(0xF0 | (cp >> 18)));
        out.appendChar(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.appendChar(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.appendChar(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// UTF-16LE to UTF-8 that keeps going over unpaired surrogates (each becomes U+FFFD).
// Windows file names may hold such surrogates; the strict decoder refuses the whole string,
// and a name with one replaced character is more use to a caller than an empty one.
void decodeUtf16Lenient(const DataBuffer& bytes, XString& out) {
    const unsigned char* p = bytes.getData2();
    const unsigned units = bytes.getSize() / 2;
    StringBuffer utf8;
    for (unsigned i = 0; i < units; ++i) {
        uint32_t u = p[2 * i] | (p[2 * i + 1] << 8);
        const bool high = u >= 0xD800 && u < 0xDC00;
        const bool low = u >= 0xDC00 && u < 0xE000;
        if (high && i + 1 < units) {
            const uint32_t next = p[2 * i + 2] | (p[2 * i + 3] << 8);
            if (next >= 0xDC00 && next < 0xE000) {
                appendUtf8CodePoint(0x10000 + ((u - 0xD800) << 10) + (next - 0xDC00), utf8);
                ++i;
                continue;
            }
        }
        appendUtf8CodePoint(high || low ? 0xFFFD : u, utf8);
    }
    out.setFromUtf8(utf8.view());
}

// One pass over a loaded shortcut file. `info` is null for the checker, which steps over
// what the reader takes in.
class ShortcutWalk {
  public:
    ShortcutWalk(const DataBuffer& file, LogBase& log) : m_file(file), m_log(log) {}

    // The reader's header: every field read in turn; HeaderSize is not tested.
    bool readHeader() {
        unsigned headerSize = 0;
        unsigned value = 0;
        if (!u32(headerSize, 1) || !hex(16, 2) || !u32(m_flags, 3)) return false;
        if (!hex(4, 4) || !hex(8, 5) || !hex(8, 6) || !hex(8, 7)) return false;
        if (!u32(value, 8) || !u32(value, 9) || !hex(4, 10) || !hex(2, 11)) return false;
        m_pos += 10;  // the reserved fields
        return true;
    }

    // The checker's header: false (nothing logged) unless HeaderSize is 76.
    bool checkHeader() {
        unsigned headerSize = 0;
        if (!u32(headerSize, 1)) return false;
        if (headerSize != kShortcutHeaderSize) return false;
        m_pos += 16;  // LinkCLSID
        if (!u32(m_flags, 3)) return false;
        m_pos += 52;  // the rest of the header
        return true;
    }

    // LinkTargetIDList, when present: at most IDListSize bytes' worth of items, each
    // counting its own two size bytes; an item size of 0 ends the list.
    bool idList(bool readItems) {
        if (!(m_flags & kHasLinkTargetIdList)) return true;
        unsigned short listSize = 0;
        if (!u16(listSize, 12)) return false;
        unsigned remaining = listSize;
        while (remaining >= 2) {
            unsigned short itemSize = 0;
            if (!u16(itemSize, 13)) return false;
            if (itemSize == 0) break;
            remaining = itemSize > remaining ? 0 : remaining - itemSize;
            // An item size of 1 wraps: the reader then asks for 4 GB and fails, the
            // checker steps one byte back.
            const unsigned dataSize = static_cast<unsigned>(itemSize) - 2u;
            if (readItems) {
                if (!hex(dataSize, 14)) return false;
            } else {
                m_pos += dataSize;
            }
        }
        return true;
    }

    // LinkInfo, when present: only its size, which counts its own four bytes.
    bool linkInfo() {
        if (!(m_flags & kHasLinkInfo)) return true;
        unsigned size = 0;
        if (!u32(size, 15)) return false;
        m_pos += size - 4u;
        return true;
    }

    // StringData: the strings whose bits are set, in file order. Each is a character count
    // and then the characters, two bytes each in UTF-16LE, or one byte each in the ANSI code
    // page when the file is not flagged as Unicode. The reader stores each decoded string in
    // its field; fields of absent strings are left as the caller set them.
    bool strings(_ovShortcutInfo* info) {
        const bool unicode = (m_flags & kIsUnicode) != 0;
        for (const StringSlot& slot : kStringSlots) {
            if (!(m_flags & slot.flag)) continue;
            unsigned short count = 0;
            if (!u16(count, slot.countFailPoint)) return false;
            const unsigned byteCount = unicode ? 2u * count : count;
            if (!info) {
                m_pos += byteCount;
                continue;
            }
            DataBuffer bytes;
            if (!m_file.parseData(m_pos, byteCount, bytes)) return fail(slot.countFailPoint + 1);
            decodeString(bytes, unicode, info->*slot.field);
        }
        return true;
    }

    // ExtraData: block sizes, each block stepped over, up to the terminal block or the
    // block limit. A block size below 4 is a terminal block (0 is the usual one).
    bool extraData() {
        for (int i = 0; i < kMaxExtraBlocks; ++i) {
            unsigned size = 0;
            if (!u32(size, 13)) return false;
            if (size < kMinExtraBlockSize) return true;
            m_pos += size - 4u;
        }
        return true;
    }

  private:
    bool fail(int failPoint) {
        m_log.LogDataLong("failPoint", failPoint);
        return false;
    }
    bool u16(unsigned short& out, int failPoint) {
        return m_file.parseUint16(m_pos, true, out) || fail(failPoint);
    }
    bool u32(unsigned& out, int failPoint) {
        return m_file.parseUint32(m_pos, true, out) || fail(failPoint);
    }
    // Fields the reader takes as hex text only to require them present in full.
    bool hex(unsigned n, int failPoint) {
        m_scratch.clear();
        return m_file.parseDataEnc(m_pos, n, "hex", m_scratch) || fail(failPoint);
    }

    static void decodeString(const DataBuffer& bytes, bool unicode, XString& field) {
        XString text;
        const int codePage = unicode ? CodePage::Utf16LE : Psdk::getAnsiCodePage();
        if (!text.setFromDb_cp(codePage, bytes, nullptr) && unicode)
            decodeUtf16Lenient(bytes, text);
        field.copyFromX(text);
    }

    const DataBuffer& m_file;
    LogBase& m_log;
    unsigned m_pos = 0;
    unsigned m_flags = 0;
    StringBuffer m_scratch;
};

}  // namespace

bool ClsFileAccess::readShortcut(XString& path, _ovShortcutInfo& info, LogBase& log) {
    const StringBuffer fileName = shortcutFileName(path);
    DataBuffer file;
    if (!file.loadFileUtf8(fileName.getString(), &log)) return false;
    ShortcutWalk walk(file, log);
    return walk.readHeader() && walk.idList(true) && walk.linkInfo() && walk.strings(&info) &&
           walk.extraData();
}

bool ClsFileAccess::parseableShortcut(XString& path, LogBase& log) {
    const StringBuffer fileName = shortcutFileName(path);
    bool ok = false;
    const long long size = FileSys::fileSizeUtf8_64(fileName.getString(), nullptr, ok);
    if (!ok || size > kMaxCheckedFileSize) return false;
    DataBuffer file;
    if (!file.loadFileUtf8(fileName.getString(), &log)) return false;
    ShortcutWalk walk(file, log);
    return walk.checkHeader() && walk.idList(false) && walk.linkInfo() && walk.strings(nullptr) &&
           walk.extraData();
}
