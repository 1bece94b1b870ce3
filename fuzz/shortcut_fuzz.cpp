// libFuzzer target for the shortcut reader and checker.
//
// Both functions take a path, so each input is written to one scratch file (per process, in
// the temporary directory, removed once read) and then read back by both. The walks must end
// in true or false for any bytes: the sanitizers report any read outside the loaded file, any
// overflow that is not meant, and any leak.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "fileaccess/ClsFileAccess.h"

namespace {

const std::string& scratchPath() {
    static const std::string path = [] {
        const char* dir = std::getenv("TMPDIR");
        std::string base = (dir && *dir) ? dir : "/tmp";
        return base + "/shortcut_fuzz_" + std::to_string(getpid()) + ".lnk";
    }();
    return path;
}

bool writeScratch(const uint8_t* data, size_t size) {
    FILE* f = std::fopen(scratchPath().c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

// The number the walk logged under "failPoint", or 0 when it logged none.
int failPointOf(const _ovLogger& log) {
    for (const LogEntry& e : log.entries())
        if (e.kind == LogKind::Data && e.name == "failPoint") return std::atoi(e.text.c_str());
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!writeScratch(data, size)) std::abort();  // a broken harness must not pass silently
    XString path(scratchPath().c_str());

    _ovShortcutInfo info;
    _ovLogger readLog;
    const bool read = ClsFileAccess::readShortcut(path, info, readLog);
    _ovLogger checkLog;
    const bool parseable = ClsFileAccess::parseableShortcut(path, checkLog);
    // Gone as soon as both have read it, so that no run leaves it behind however it ends.
    unlink(scratchPath().c_str());

    // What the checker accepts, the reader must read: it walks the same structures and
    // differs only in taking in what the checker steps over (and in accepting any header
    // size). The exception is an ID-list item of size 1, which the checker steps back over
    // and the reader refuses.
    if (parseable && !read && failPointOf(readLog) != 14) std::abort();
    return 0;
}
