// Path names taken apart as text; nothing here touches the disk.
//
// Separators are the path utility's business. What these methods add is the treatment of
// the last "." of the final part: the extension is the text from that "." on, the name
// without extension what precedes it, so that the two together give back the final part.
// A final part without "." is both its own extension and its own name without extension.
#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/FilePath.h"

namespace {

bool hasDot(const XString& s) {
    return s.view().find('.') != std::string_view::npos;
}

void fileNameStep(const XString& path, XString& out) {
    out.clear();
    _ovFilePath::GetFinalFilenamePart(path, out);
}

void directoryNameStep(const XString& path, XString& out) {
    out.copyFromX(path);
    _ovFilePath::RemoveFilenamePart(out);
}

void extensionStep(const XString& path, XString& out) {
    fileNameStep(path, out);
    if (!hasDot(out)) return;
    StringBuffer afterDot;
    out.getUtf8Sb_rw().pop('.', afterDot);
    out.clear();
    out.appendUtf8(".");
    out.appendSbUtf8(afterDot);
}

void nameWithoutExtensionStep(const XString& path, XString& out) {
    fileNameStep(path, out);
    if (hasDot(out)) out.chopAtLastChar('.');
}

}  // namespace

bool ClsFileAccess::GetFileName(XString& path, XString& out) {
    StandardFrame f(*this, "GetFileName");
    fileNameStep(path, out);
    return true;
}

bool ClsFileAccess::GetDirectoryName(XString& path, XString& out) {
    StandardFrame f(*this, "GetDirectoryName");
    directoryNameStep(path, out);
    return true;
}

bool ClsFileAccess::GetExtension(XString& path, XString& out) {
    StandardFrame f(*this, "GetExtension");
    extensionStep(path, out);
    return true;
}

bool ClsFileAccess::GetFileNameWithoutExtension(XString& path, XString& out) {
    StandardFrame f(*this, "GetFileNameWithoutExtension");
    nameWithoutExtensionStep(path, out);
    return true;
}
