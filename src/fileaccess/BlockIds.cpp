// Block identifiers and whole files read as encoded text.
//
// Both turn bytes into text through the buffer layer's binary-to-text encoder.
#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"

namespace {

// The index as decimal text left-filled with "0" to `length` characters (zeros before a
// minus sign too), encoded into out. False when the digits do not fit in `length`, when
// length is below 1, or when the encoder fails or yields nothing.
bool makeBlockId(int index, int length, const XString& encoding, XString& out) {
    StringBuffer text;
    text.append(index);
    if (length > 0 && text.getSize() < static_cast<unsigned>(length)) {
        StringBuffer zeros;
        zeros.appendCharN('0', static_cast<unsigned>(length) - text.getSize());
        text.prepend(zeros.getString());
    }
    DataBuffer bytes;
    if (!bytes.append(text.getString(), text.getSize())) return false;
    if (length < 1 || bytes.getSize() != static_cast<unsigned>(length)) return false;
    if (!bytes.encodeDB(encoding.getUtf8(), out.getUtf8Sb_rw())) return false;
    return !out.isEmpty();
}

// Empties the output, then makes the identifier; a failure names the three inputs.
bool genBlockId(int index, int length, const XString& encoding, XString& out, LogBase& log) {
    out.clear();
    if (makeBlockId(index, length, encoding, out)) return true;
    log.LogDataLong("index", index);
    log.LogDataLong("length", length);
    log.LogDataX("encoding", encoding);
    log.LogError("Failed.");
    return false;
}

// The output holds whatever the encoder made; only the load decides the result.
bool readBinaryToEncoded(const XString& path, const XString& encoding, XString& out, LogBase& log) {
    out.clear();
    DataBuffer data;
    if (!data.loadFileUtf8(path.getUtf8(), &log)) return false;
    log.LogDataLong("fileSize", static_cast<long>(data.getSize()));
    // Encoded straight into the output's own UTF-8 bytes: the text of a large file is not
    // copied a second time.
    data.encodeDB(encoding.getUtf8(), out.getUtf8Sb_rw());
    return true;
}

}  // namespace

bool ClsFileAccess::GenBlockId(int index, int length, XString& encoding, XString& out) {
    StandardFrame f(*this, "GenBlockId");
    return genBlockId(index, length, encoding, out, f.log());
}

bool ClsFileAccess::ReadBinaryToEncoded(XString& path, XString& encoding, XString& out) {
    OlderFrame f(*this, "ReadBinaryToEncoded");
    return f.result(readBinaryToEncoded(path, encoding, out, f.log()));
}
