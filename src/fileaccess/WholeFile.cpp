// Whole files into and out of memory, as bytes or as text in a named charset.
//
// The whole file passes through one buffer. Writes replace an existing file atomically
// (the file-system layer writes a new file beside it and renames it over the old one), so a
// failed write never leaves a half-written file behind.
#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/FileSys.h"
#include "foundation/text/Charset.h"

namespace {

// The charset and the encoding are not allowed to fail the write: what was encoded, possibly
// nothing, is written, and the result tells only whether the file was written.
bool writeTextStep(const XString& path, const XString& text, const XString& charset,
                   bool includePreamble, LogBase& log) {
    log.LogData("filename", path.getUtf8());
    log.LogData("charset", charset.getUtf8());
    log.LogDataLong("includePreamble", includePreamble ? 1 : 0);
    _ovCharset target;
    target.setByName(charset.getAnsi());
    DataBuffer encoded;
    if (includePreamble)
        text.getConvertedWithPreamble(target, encoded);
    else
        text.getConverted(target, encoded);
    log.LogDataLong("numOutputBytes", static_cast<long>(encoded.getSize()));
    return FileSys::writeFileUtf8(path.getUtf8(), encoded, &log);
}

// Decoding is attempted only on a file that was read; its answer does not change the result.
bool readTextStep(const XString& path, const XString& charset, XString& out, LogBase& log) {
    DataBuffer raw;
    if (!raw.loadFileUtf8(path.getUtf8(), &log)) return false;
    out.takeFromEncodingDb(raw, charset.getUtf8());
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
