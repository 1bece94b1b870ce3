#include "foundation/fs/DirAutoCreate.h"

#include <cerrno>
#include <string>

#include "foundation/fs/FsInternal.h"

namespace {

bool isDir(const char* path) {
    struct stat st;
    return sysCalls().stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// Creates one directory; an existing directory is fine, anything else existing is not.
bool makeOne(const std::string& dir, LogBase& log) {
    if (sysCalls().mkdir(dir.c_str(), 0777) == 0) return true;
    int err = errno;
    if (err == EEXIST) {
        if (isDir(dir.c_str())) return true;
        err = ENOTDIR;
    }
    fsi::logSysFailure(&log, "mkdir", dir.c_str(), err);
    return false;
}

}  // namespace

bool DirAutoCreate::ensureDirUtf8(const char* dir, LogBase& log) {
    std::string path = dir ? dir : "";
    if (path.empty()) {
        fsi::logFailure(&log, "mkdir", "", "the directory path is empty");
        return false;
    }
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (isDir(path.c_str())) return true;
    // Each prefix that ends before a '/', from the top down; existing ones are passed over.
    for (size_t pos = path.find('/', 1); pos != std::string::npos; pos = path.find('/', pos + 1)) {
        if (path[pos - 1] == '/') continue;  // "a//b": the empty part is no directory
        if (!makeOne(path.substr(0, pos), log)) return false;
    }
    return makeOne(path, log);
}

bool DirAutoCreate::ensureFileUtf8(const char* file, StringBuffer& scratch, LogBase& log) {
    scratch.clear();
    scratch.append(file);
    if (scratch.isEmpty()) {
        fsi::logFailure(&log, "mkdir", "", "the file path is empty");
        return false;
    }
    const std::string& s = scratch.str();
    size_t slash = s.rfind('/');
    // A bare name lies in the current directory, and "/name" in the root: nothing to make.
    if (slash == std::string::npos || slash == 0) return true;
    scratch.resize(static_cast<unsigned>(slash));
    return ensureDirUtf8(scratch.getString(), log);
}
