// Writes a text file, reads it back, splits and joins it, and checks that it came back whole.
// Argument: a scratch directory (created). Exit status 0 when every step did what it should.
#include <cstdio>
#include <string>

#include "fileaccess/ClsFileAccess.h"

static int fail(ClsFileAccess& fa, const char* step) {
    XString log;
    fa.get_LastErrorText(log);
    std::fprintf(stderr, "%s failed:\n%s\n", step, log.getUtf8());
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    ClsFileAccess fa;
    XString dir(argv[1]);
    if (!fa.DirEnsureExists(dir)) return fail(fa, "DirEnsureExists");
    std::string base = argv[1];
    XString file((base + "/hello.txt").c_str()), joined((base + "/joined.txt").c_str());
    XString text("h\xc3\xa9llo, w\xc3\xb6rld\n"), charset("utf-8"), back;
    if (!fa.WriteEntireTextFile(file, text, charset, false)) return fail(fa, "WriteEntireTextFile");
    if (!fa.ReadEntireTextFile(file, charset, back)) return fail(fa, "ReadEntireTextFile");
    if (!back.equalsX(text)) return fail(fa, "the text read back");
    XString prefix("hello."), ext("part");
    if (!fa.SplitFile(file, prefix, ext, 4, dir)) return fail(fa, "SplitFile");
    if (!fa.ReassembleFile(dir, prefix, ext, joined)) return fail(fa, "ReassembleFile");
    if (!fa.FileContentsEqual(file, joined)) return fail(fa, "FileContentsEqual");
    std::printf("ok: %lld bytes split and joined\n", fa.FileSize64(joined));
    return 0;
}
