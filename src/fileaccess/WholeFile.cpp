// Whole files into and out of memory, as bytes or as text in a named charset.
//
// Byte reads hold the file in one buffer, which is what they return. Text goes between the
// file and the caller's string in pieces: a read decodes the file block by block into the
// string, a write encodes the string piece by piece into the file, so that besides the text
// itself no copy of the whole file is ever held. Writes replace an existing file atomically
// (the file-system layer writes a new file beside it and renames it over the old one), so a
// failed write never leaves a half-written file behind.
#include <cstring>

#include "fileaccess/BlockReader.h"
#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/FileSys.h"
#include "foundation/text/Charset.h"
#include "foundation/text/Convert.h"

namespace {

// Pieces of text encoded at a time, and blocks of a file decoded at a time.
constexpr size_t kTextPiece = 256u << 10;
constexpr unsigned kFileBlock = 1u << 20;
// Tag identifying the block's reservation in a memory-failure log entry.
constexpr int kTextReadAllocTag = 1097;

// Hands the text's bytes in the charset to `emit` piece by piece, as far as it can be
// converted: on a character the charset cannot hold it stops, with what came before it
// handed over, as one conversion of the whole text leaves it. False only when emit fails.
bool encodeText(const XString& text, const _ovCharset& target, const FileSys::Emit& emit) {
    const std::string& s = text.getUtf8Sb().str();
    const auto* bytes = reinterpret_cast<const unsigned char*>(s.data());
    // The text is UTF-8 already: handed over as it stands, all of it or (not valid) none.
    if (target.getCodePage() == CodePage::Utf8)
        return !isValidUtf8(bytes, s.size()) || emit(bytes, s.size());
    StreamConverter conv;
    if (!conv.open("UTF-8", target.getIconvName())) return true;
    DataBuffer piece;
    for (size_t at = 0;;) {
        const size_t n = std::min(kTextPiece, s.size() - at);
        const bool last = at + n == s.size();
        piece.clear();
        const bool converted = conv.convert(bytes + at, n, last, piece);
        if (!emit(piece.getData2(), piece.getSize())) return false;
        if (!converted || last) return true;
        at += n;
    }
}

// The charset and the encoding are not allowed to fail the write: what was encoded, possibly
// nothing, is written, and the result tells only whether the file was written. The size is
// counted first, so that it is logged before the write, as a whole conversion would be.
bool writeTextStep(const XString& path, const XString& text, const XString& charset,
                   bool includePreamble, LogBase& log) {
    log.LogData("filename", path.getUtf8());
    log.LogData("charset", charset.getUtf8());
    log.LogDataLong("includePreamble", includePreamble ? 1 : 0);
    _ovCharset target;
    target.setByName(charset.getAnsi());
    unsigned markLen = 0;
    const unsigned char* mark =
        includePreamble ? preambleOf(target.getCodePage(), markLen) : nullptr;
    long long size = markLen;
    encodeText(text, target, [&](const unsigned char*, size_t n) {
        size += static_cast<long long>(n);
        return true;
    });
    log.LogDataInt64("numOutputBytes", size);
    return FileSys::writeFileStreamUtf8(
        path.getUtf8(),
        [&](const FileSys::Emit& emit) {
            return (!mark || emit(mark, markLen)) && encodeText(text, target, emit);
        },
        &log);
}

// Decodes the file block by block into out. Decoding is attempted only on a file that can be
// read, and its answer does not change the result: text that cannot be decoded leaves out
// empty, as one decoding of the whole would.
bool readTextStep(const XString& path, const XString& charset, XString& out, LogBase& log) {
    BlockReader reader(kFileBlock);
    if (!reader.open(path, kTextReadAllocTag, log)) return false;
    const unsigned char* block = reader.block();
    _ovCharset cs;
    StreamConverter conv;
    bool decoding = cs.setByName(charset.getUtf8()) && conv.open(cs.getIconvName(), "UTF-8");
    std::string& text = out.getUtf8Sb_rw().str();
    if (decoding) text.reserve(static_cast<size_t>(reader.fileSize()));
    DataBuffer piece;
    for (bool first = true, last = false; !last; first = false) {
        unsigned got = 0;
        if (!reader.next(got, last, log)) {
            out.clear();
            return false;
        }
        if (!decoding) continue;
        // A leading byte-order mark of the charset is not part of the text.
        const unsigned skip = first ? leadingMarkLength(cs.getCodePage(), block, got) : 0;
        piece.clear();
        decoding = conv.convert(block + skip, got - skip, last, piece);
        if (decoding)
            text.append(reinterpret_cast<const char*>(piece.getData2()), piece.getSize());
        else
            out.clear();
    }
    return true;
}

}  // namespace

bool ClsFileAccess::ReadEntireFile(XString& path, DataBuffer& out) {
    OlderFrame f(*this, "ReadEntireFile");
    return out.loadFileUtf8(path.getUtf8(), &f.log());
}

bool ClsFileAccess::WriteEntireFile(XString& path, DataBuffer& data) {
    OlderFrame f(*this, "WriteEntireFile");
    return FileSys::writeFileUtf8(path.getUtf8(), data, &f.log());
}

// The output is emptied before the lock is taken, so every failed call leaves it empty.
bool ClsFileAccess::ReadEntireTextFile(XString& path, XString& charset, XString& out) {
    out.clear();
    ObjectFrame f(*this, "ReadEntireTextFile");
    return f.result(readTextStep(path, charset, out, f.log()));
}

bool ClsFileAccess::WriteEntireTextFile(XString& path, XString& text, XString& charset,
                                        bool includePreamble) {
    OlderFrame f(*this, "WriteEntireTextFile");
    return writeTextStep(path, text, charset, includePreamble, f.log());
}
