// Replacing every occurrence of a string inside a file.
//
// The work is done on the file's bytes: both strings are converted to the file's encoding
// and replaced as byte sequences in the whole file, held in one buffer. The file is written
// back (atomically, by the buffer's save) only when something was replaced, so a search
// that finds nothing leaves the file and its time stamps alone.
#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/text/Charset.h"

namespace {

// A byte-order mark at the start of a file of at least 4 bytes decides its encoding over
// the caller's charset; the mark itself stays in the data. 0 when there is none.
int markedCodePage(const DataBuffer& data) {
    if (data.getSize() < 4) return 0;
    const unsigned char* p = data.getData2();
    if (p[0] == 0xFF && p[1] == 0xFE) return CodePage::Utf16LE;
    if (p[0] == 0xFE && p[1] == 0xFF) return CodePage::Utf16BE;
    if (p[0] == 0x00 && p[1] == 0x00 && p[2] == 0xFE && p[3] == 0xFF) return CodePage::Utf32BE;
    return 0;
}

void chooseCharset(const DataBuffer& data, const XString& charsetName, _ovCharset& cs,
                   LogBase& log) {
    if (int cp = markedCodePage(data)) {
        cs.setByCodePage(cp);
        return;
    }
    if (!cs.setByName(charsetName.getUtf8())) log.LogInfo("Unknown charset name; using utf-8.");
}

// Both strings in the file's encoding. Both conversions are tried, so that a failure of
// each is reported; an empty replacement is allowed, an empty search string is not.
bool convertStrings(const XString& str1, const XString& str2, const _ovCharset& cs,
                    DataBuffer& find, DataBuffer& repl, LogBase& log) {
    bool ok = true;
    if (!str1.getConverted(cs, find)) {
        log.LogError("Unable to get str1 in specified charset.");
        ok = false;
    } else if (find.getSize() == 0) {
        log.LogError("str1 is empty.");
        ok = false;
    }
    if (!str2.getConverted(cs, repl)) {
        log.LogError("Unable to get str2 in specified charset.");
        ok = false;
    }
    return ok;
}

// Replaces in memory and saves when something changed. Logs "n"; the count, or -1.
int replaceAndSave(DataBuffer& data, const DataBuffer& find, const DataBuffer& repl,
                   const XString& path, LogBase& log) {
    int n =
        data.replaceAllOccurances(find.getData2(), find.getSize(), repl.getData2(), repl.getSize());
    if (n < 0) log.LogError("Unable to replace: the result does not fit in memory.");
    log.LogDataLong("n", n);
    if (n < 1) return n;
    return data.saveToFileUtf8(path.getUtf8(), &log) ? n : -1;
}

// The whole operation inside the method's frame. A file that cannot be loaded ends it at
// once, without "n" or an outcome line.
int replaceStrings(const XString& path, const XString& charset, const XString& str1,
                   const XString& str2, FrameBase& f) {
    LogBase& log = f.log();
    DataBuffer data;
    if (!data.loadFileUtf8(path.getUtf8(), &log)) return -1;

    _ovCharset cs;
    chooseCharset(data, charset, cs, log);
    DataBuffer find;
    DataBuffer repl;
    if (!convertStrings(str1, str2, cs, find, repl, log)) {
        log.LogDataLong("n", -1);
        f.result(false);
        return -1;
    }
    int n = replaceAndSave(data, find, repl, path, log);
    f.result(n >= 0);
    return n;
}

}  // namespace

int ClsFileAccess::ReplaceStrings(XString& path, XString& charset, XString& str1, XString& str2) {
    ObjectFrame f(*this, "ReplaceStrings");
    return replaceStrings(path, charset, str1, str2, f);
}
