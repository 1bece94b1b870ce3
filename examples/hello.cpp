// Creates a ClsFileAccess, writes and reads back a small file, and prints the object's log.
#include <cstdio>
#include <memory>

#include "fileaccess/ClsFileAccess.h"

int main(int argc, char** argv) {
    std::unique_ptr<ClsFileAccess> fa(ClsFileAccess::createNewCls());
    if (!fa) return 1;

    XString path(argc > 1 ? argv[1] : "hello.txt");
    XString text("Hello, files.\n");
    XString charset("utf-8");

    bool ok = fa->WriteEntireTextFile(path, text, charset, false);
    XString back;
    ok = ok && fa->ReadEntireTextFile(path, charset, back);

    XString log;
    fa->get_LastErrorText(log);
    std::printf("%s\nread back: %s", log.getUtf8(), back.getUtf8());
    return ok ? 0 : 1;
}
