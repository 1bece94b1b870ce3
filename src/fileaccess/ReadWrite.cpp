// Reads, writes, appends, seeks and truncation on the current file.
//
// Every read goes through fileReadDb and every write through fileWrite / fileWriteSb /
// writeSlice, which all end in one place (writeToCurrent). Nothing here moves to the end of
// the file before an Append: like FileWrite, each writes at the handle's position.
#include <cstdint>
#include <cstdio>
#include <initializer_list>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/FileSys.h"
#include "foundation/fs/OrvaneHandle.h"
#include "foundation/text/Charset.h"

namespace {

// Tag identifying the read's reservation in a memory-failure log entry.
constexpr int kReadAllocTag = 1085;
// Spare room reserved past the bytes asked for, so that callers may terminate the data.
constexpr uint64_t kReadSpare = 32;

// The text's bytes in the charset given. An unknown name or text the charset cannot hold
// is not an error here: whatever the conversion produced is what gets written.
DataBuffer converted(const XString& text, const _ovCharset& charset) {
    DataBuffer bytes;
    text.getConverted(charset, bytes);
    return bytes;
}

_ovCharset charsetNamed(const XString& name) {
    _ovCharset cs;
    cs.setByName(name.getUtf8());
    return cs;
}

_ovCharset ansiCharset() {
    _ovCharset cs;
    cs.setByCodePage(Psdk::getAnsiCodePage());
    return cs;
}

DataBuffer bytesOf(std::initializer_list<unsigned char> bytes) {
    DataBuffer db;
    for (unsigned char b : bytes) db.appendChar(b);
    return db;
}

}  // namespace

// ----- reads -----

bool ClsFileAccess::FileRead(unsigned count, DataBuffer& out) {
    StandardFrame f(*this, "FileRead");
    out.clear();
    return fileReadDb(count, out, m_log);
}

bool ClsFileAccess::FileReadBd(int count, ClsBinData& bd) {
    ObjectFrame f(*this, "FileReadBd");
    return fileReadDb(static_cast<unsigned>(count), bd.m_data, m_log);
}

// Reads straight into out's storage after its current bytes: no intermediate buffer.
// The end-of-file flag is whatever the handle's read leaves it; it is not cleared first.
bool ClsFileAccess::fileReadDb(unsigned count, DataBuffer& out, LogBase& log) {
    if (count == 0) {
        log.LogError("Requested number of bytes is zero");
        return true;
    }
    const unsigned prior = out.getSize();
    if (!out.ensureBuffer64(uint64_t{prior} + count + kReadSpare)) {
        log.MemoryAllocFailed(kReadAllocTag, count);
        return false;
    }
    unsigned numRead = 0;
    bool eof = m_endOfFile;
    const bool ok = m_handle->readBytesToBuf32(out.getData2() + prior, count, numRead, eof, &log);
    m_endOfFile = eof;
    if (ok) out.setDataSize_CAUTION(prior + numRead);
    return ok;
}

// ----- writes -----

bool ClsFileAccess::FileWrite(DataBuffer& data) {
    StandardFrame f(*this, "FileWrite");
    return fileWrite(data);
}

bool ClsFileAccess::FileWrite2(DataBuffer& data) {
    StandardFrame f(*this, "FileWrite2");
    return fileWrite(data);
}

bool ClsFileAccess::FileWriteBd(ClsBinData& bd, int offset, int count) {
    ObjectFrame f(*this, "FileWriteBd");
    return writeSlice(bd.m_data, offset, count);
}

bool ClsFileAccess::fileWrite(const DataBuffer& data) {
    return writeToCurrent(data.getData2(), data.getSize());
}

bool ClsFileAccess::fileWriteSb(const StringBuffer& text) {
    return writeToCurrent(text.getString(), text.getSize());
}

bool ClsFileAccess::writeToCurrent(const void* bytes, unsigned n) {
    if (!m_handle->isHandleOpen()) {
        m_log.LogError("File not open");
        return false;
    }
    return FileSys::writeToOpenFile(*m_handle, static_cast<const char*>(bytes), n, &m_log);
}

// A slice of data, written from the data's own storage. Negative arguments count as 0, and
// a count of 0 or one past the end means "to the end". A slice that starts at or past the
// end is refused silently, before the file is even looked at.
bool ClsFileAccess::writeSlice(const DataBuffer& data, int offset, int count) {
    const unsigned start = offset < 0 ? 0u : static_cast<unsigned>(offset);
    const unsigned wanted = count < 0 ? 0u : static_cast<unsigned>(count);
    const unsigned size = data.getSize();
    if (size <= start) return false;
    const unsigned available = size - start;
    const unsigned n = (wanted >= 1 && wanted <= available) ? wanted : available;
    return writeToCurrent(data.getDataAt2(start), n);
}

// ----- appends -----

bool ClsFileAccess::AppendText(XString& text, XString& charset) {
    StandardFrame f(*this, "AppendText");
    return fileWrite(converted(text, charsetNamed(charset)));
}

bool ClsFileAccess::AppendAnsi(XString& text) {
    StandardFrame f(*this, "AppendAnsi");
    return fileWrite(converted(text, ansiCharset()));
}

bool ClsFileAccess::AppendSb(ClsStringBuilder& sb, XString& charset) {
    StandardFrame f(*this, "AppendSb");
    return appendBuilderText(sb, charset);
}

bool ClsFileAccess::AppendBd(ClsBinData& bd) {
    StandardFrame f(*this, "AppendBd");
    return fileWrite(bd.m_data);
}

bool ClsFileAccess::AppendUtf8BOM() {
    StandardFrame f(*this, "AppendUtf8BOM");
    return fileWrite(bytesOf({0xEF, 0xBB, 0xBF}));
}

bool ClsFileAccess::AppendUnicodeBOM() {
    StandardFrame f(*this, "AppendUnicodeBOM");
    return fileWrite(bytesOf({0xFF, 0xFE}));
}

// The builder already holds UTF-8, so for that charset its own bytes are written as they
// stand, with no conversion and no copy.
bool ClsFileAccess::appendBuilderText(const ClsStringBuilder& sb, const XString& charset) {
    const _ovCharset cs = charsetNamed(charset);
    if (cs.getCodePage() == CodePage::Utf8) return fileWriteSb(sb.m_str.getUtf8Sb());
    return fileWrite(converted(sb.m_str, cs));
}

// ----- position and length -----

bool ClsFileAccess::FileSeek(int offset, int origin) {
    StandardFrame f(*this, "FileSeek");
    return seekCurrent(offset, origin);
}

bool ClsFileAccess::Truncate() {
    StandardFrame f(*this, "Truncate");
    return truncateAtPosition();
}

// Origin 1 is relative to the current position, 2 to the end; anything else counts from
// the start. The file answers as lseek answers. A seek never touches the end-of-file flag.
bool ClsFileAccess::seekCurrent(int offset, int origin) {
    const int whence = origin == 1 ? SEEK_CUR : origin == 2 ? SEEK_END : SEEK_SET;
    return m_handle->seek(offset, whence, &m_log);
}

// Cuts the file at the current position: the bytes from there to the end are removed.
bool ClsFileAccess::truncateAtPosition() {
    if (!m_handle->isHandleOpen()) {
        m_log.LogError("File not open");
        return false;
    }
    return m_handle->truncate(m_handle->ftell64(nullptr), &m_log);
}
