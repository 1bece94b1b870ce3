// Writes and reads text files in named charsets.
//
//   example_text_charsets [DIR]
//
// The library keeps text as Unicode (XString) and converts at the file's edge: whole files
// with WriteEntireTextFile / ReadEntireTextFile, or piece by piece with AppendText on an open
// file. A byte-order mark is written on request and dropped again when the file is read in
// the charset it names.
#include <cstdio>
#include <string>

#include "fileaccess/ClsFileAccess.h"

static int fail(ClsFileAccess& fa, const char* what) {
    XString log;
    fa.get_LastErrorText(log);
    std::fprintf(stderr, "%s failed:\n%s\n", what, log.getUtf8());
    return 1;
}

int main(int argc, char** argv) {
    ClsFileAccess fa;
    std::string dir = argc > 1 ? argv[1] : ".";
    // "Grüße aus Köln: 100 €" in UTF-8; every charset below can hold it.
    XString text(
        "Gr\xc3\xbc\xc3\x9f"
        "e aus K\xc3\xb6ln: 100 \xe2\x82\xac\n");

    // The same text in four charsets; utf-16 and utf-8 get a byte-order mark.
    struct Target {
        const char* charset;
        bool bom;
    } targets[] = {
        {"utf-8", true}, {"utf-16le", true}, {"windows-1252", false}, {"iso-8859-15", false}};
    for (const Target& t : targets) {
        XString path((dir + "/greeting-" + t.charset + ".txt").c_str()), charset(t.charset), back;
        if (!fa.WriteEntireTextFile(path, text, charset, t.bom))
            return fail(fa, "WriteEntireTextFile");
        if (!fa.ReadEntireTextFile(path, charset, back)) return fail(fa, "ReadEntireTextFile");
        std::printf("%-13s %2lld bytes, read back %s\n", t.charset, fa.FileSize64(path),
                    back.equalsX(text) ? "unchanged" : "CHANGED");
    }

    // A charset that cannot hold a character refuses the conversion instead of guessing. Check
    // first where that matters: a whole-file write stores whatever part did convert.
    DataBuffer ascii;
    std::printf("us-ascii      %s\n",
                text.getConverted("us-ascii", ascii) ? "converted" : "cannot hold this text");

    // Building a file piece by piece: open, mark, append in the charset, close.
    XString log((dir + "/log-utf16.txt").c_str()), utf16("utf-16le"), line;
    if (!fa.OpenForWrite(log)) return fail(fa, "OpenForWrite");
    bool ok = fa.AppendUnicodeBOM();
    for (int i = 1; ok && i <= 3; ++i) {
        line.setFromUtf8(("line " + std::to_string(i) + " \xe2\x9c\x93\n").c_str());  // line n ✓
        ok = fa.AppendText(line, utf16);
    }
    fa.FileClose();
    if (!ok) return fail(fa, "AppendText");
    XString all;
    if (!fa.ReadEntireTextFile(log, utf16, all)) return fail(fa, "ReadEntireTextFile");
    std::printf("log-utf16.txt:\n%s", all.getUtf8());
    return 0;
}
