// FileSys: existence, type, size, copy, move and delete of named paths.
#include <cerrno>
#include <cstdlib>
#include <string>

#include "foundation/fs/FileReplace.h"
#include "foundation/fs/FileSys.h"
#include "foundation/fs/FsInternal.h"

namespace {

const char* orEmpty(const char* p) {
    return p ? p : "";
}

bool statPath(const char* path, bool follow, struct stat& st) {
    return (follow ? sysCalls().stat(path, &st) : sysCalls().lstat(path, &st)) == 0;
}

// The size of a path for the three size operations; -1 (logged) on failure.
long long sizeOf(const char* path, LogBase* log, bool& ok) {
    struct stat st;
    ok = statPath(orEmpty(path), true, st);
    if (!ok) {
        fsi::logSysFailure(log, "stat", orEmpty(path), errno);
        return -1;
    }
    return static_cast<long long>(st.st_size);
}

// stat, refusing anything but a regular file with a line naming what it is.
bool statRegular(const char* path, struct stat& st, LogBase* log) {
    if (sysCalls().stat(path, &st) != 0) {
        fsi::logSysFailure(log, "stat", path, errno);
        return false;
    }
    if (S_ISREG(st.st_mode)) return true;
    fsi::logNotRegular(log, "read", path, st.st_mode);
    return false;
}

// Where a path leads once the links it ends in are followed: the directory that holds, or
// would hold, the entry, and the entry's name. False when that directory cannot be reached.
bool entryOf(const char* path, FileId& dir, std::string& name) {
    bool followed = false;
    std::string target = fsi::followLinks(path, followed);
    while (target.size() > 1 && target.back() == '/') target.pop_back();
    const size_t slash = target.rfind('/');
    name = slash == std::string::npos ? target : target.substr(slash + 1);
    struct stat st;
    if (sysCalls().stat(fsi::parentDirOf(target).c_str(), &st) != 0) return false;
    dir = FileId::of(st);
    return true;
}

}  // namespace

bool FileSys::sameDirectoryEntry(const XString& a, const XString& b) {
    FileId dirA, dirB;
    std::string nameA, nameB;
    return entryOf(a.getUtf8(), dirA, nameA) && entryOf(b.getUtf8(), dirB, nameB) && dirA == dirB &&
           nameA == nameB;
}

bool FileSys::fileExistsUtf8(const char* path, bool& unableToCheck, LogBase* log) {
    unableToCheck = false;
    struct stat st;
    // lstat: a link counts as existing even when what it points to is gone.
    if (statPath(orEmpty(path), false, st)) return true;
    if (errno == ENOENT || errno == ENOTDIR) return false;
    unableToCheck = true;
    fsi::logSysFailure(log, "lstat", orEmpty(path), errno);
    return false;
}

bool FileSys::fileExistsX(const XString& path, bool& unableToCheck, LogBase* log) {
    return fileExistsUtf8(path.getUtf8(), unableToCheck, log);
}

int FileSys::filePathType(const XString& path, bool noFollowLinks, LogBase& log) {
    struct stat st;
    if (!statPath(path.getUtf8(), !noFollowLinks, st)) {
        if (errno == ENOENT || errno == ENOTDIR) return PathType::None;
        fsi::logSysFailure(&log, noFollowLinks ? "lstat" : "stat", path.getUtf8(), errno);
        return PathType::Unknown;
    }
    if (S_ISREG(st.st_mode)) return PathType::File;
    if (S_ISDIR(st.st_mode)) return PathType::Directory;
    if (S_ISLNK(st.st_mode)) return PathType::Symlink;
    return PathType::Other;
}

int FileSys::fileSizeUtf8_32(const char* path, LogBase* log, bool& ok) {
    long long size = sizeOf(path, log, ok);
    if (!ok) return -1;
    if (size > 2147483647LL) {
        ok = false;
        fsi::logFailure(log, "fileSizeUtf8_32", orEmpty(path),
                        "the file is larger than 2,147,483,647 bytes; use the 64-bit method "
                        "fileSizeUtf8_64 (FileSize64)");
        return -1;
    }
    return static_cast<int>(size);
}

long long FileSys::fileSizeUtf8_64(const char* path, LogBase* log, bool& ok) {
    return sizeOf(path, log, ok);
}

long long FileSys::fileSizeX_64(const XString& path, LogBase* log, bool& ok) {
    return sizeOf(path.getUtf8(), log, ok);
}

long long FileSys::regularFileSizeX_64(const XString& path, LogBase* log, bool& ok) {
    struct stat st;
    ok = statRegular(path.getUtf8(), st, log);
    return ok ? static_cast<long long>(st.st_size) : -1;
}

bool FileSys::regularFileId(const XString& path, bool& exists, FileId& id, LogBase* log) {
    struct stat st;
    exists = sysCalls().stat(path.getUtf8(), &st) == 0;
    if (!exists) {
        if (errno == ENOENT || errno == ENOTDIR) return true;
        fsi::logSysFailure(log, "stat", path.getUtf8(), errno);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        fsi::logNotRegular(log, "open", path.getUtf8(), st.st_mode);
        return false;
    }
    id = FileId::of(st);
    return true;
}

bool FileSys::copyFileX(const XString& from, const XString& to, bool failIfExists, LogBase* log) {
    struct stat st;
    OrvaneHandle in(fsi::openRegular(from.getUtf8(), O_RDONLY, 0, st, "copy", log));
    if (!in.isHandleOpen()) return false;
    fsi::ReplaceRequest req;
    req.path = to.getUtf8();
    req.op = "copy";
    req.failIfExists = failIfExists;
    req.refuseDanglingLink = true;
    // A new file is not worth a flush of its own, as with cp; a replaced one always is.
    req.flushNewFile = false;
    req.source = &st;
    return fsi::replaceFileContent(
        req,
        [&](int fd, int, const char*& failedOp) {
            long long copied = 0;
            return fsi::copyFdToFd(in.fd(), fd, copied, failedOp);
        },
        log);
}

bool FileSys::moveFileX(const XString& from, const XString& to, LogBase* log) {
    if (sysCalls().rename(from.getUtf8(), to.getUtf8()) == 0) return true;
    if (errno != EXDEV) {
        fsi::logSysFailure(log, "rename", from.getUtf8(), errno);
        return false;
    }
    return fsi::moveAcrossFileSystems(from.getUtf8(), to.getUtf8(), log);
}

bool FileSys::deleteFileUtf8(const char* path, LogBase* log) {
    if (sysCalls().unlink(orEmpty(path)) == 0) return true;
    fsi::logSysFailure(log, "unlink", orEmpty(path), errno);
    return false;
}

bool FileSys::createDir(const XString& dir, LogBase* log) {
    if (sysCalls().mkdir(dir.getUtf8(), 0777) == 0) return true;
    fsi::logSysFailure(log, "mkdir", dir.getUtf8(), errno);
    return false;
}

bool FileSys::deleteDir(const XString& dir, LogBase* log) {
    if (sysCalls().rmdir(dir.getUtf8()) == 0) return true;
    fsi::logSysFailure(log, "rmdir", dir.getUtf8(), errno);
    return false;
}

bool FileSys::GetTemporaryFilename(const XString& dir, const XString& prefix, XString& out,
                                   LogBase& log) {
    std::string base = dir.getUtf8();
    if (base.empty()) {
        const char* tmp = std::getenv("TMPDIR");
        base = (tmp && *tmp) ? tmp : "/tmp";
    }
    std::string name;
    int fd = fsi::createUniqueFile(base, prefix.getUtf8(), ".tmp", 0600, name);
    if (fd < 0) {
        fsi::logSysFailure(&log, "create temporary file in", base.c_str(), errno);
        return false;
    }
    fsi::closeFd(fd);
    out.setFromUtf8(name.c_str());
    return true;
}
