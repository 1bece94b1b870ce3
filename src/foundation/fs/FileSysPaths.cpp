// FileSys: existence, type, size, copy, move and delete of named paths.
#include <cerrno>
#include <cstdlib>
#include <string>

#include "foundation/fs/FileSys.h"
#include "foundation/fs/FsInternal.h"

namespace {

const char* orEmpty(const char* p) { return p ? p : ""; }

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

}  // namespace

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

bool FileSys::copyFileX(const XString& from, const XString& to, bool failIfExists,
                        LogBase* log) {
    const char* src = from.getUtf8();
    const char* dst = to.getUtf8();
    int in = fsi::openRetry(src, O_RDONLY, 0);
    if (in < 0) {
        fsi::logSysFailure(log, "open", src, errno);
        return false;
    }
    struct stat st{};
    int statErr = sysCalls().fstat(in, &st) != 0 ? errno : (S_ISDIR(st.st_mode) ? EISDIR : 0);
    if (statErr != 0) {
        int err = statErr;
        fsi::closeFd(in);
        fsi::logSysFailure(log, "fstat", src, err);
        return false;
    }
    const mode_t perms = st.st_mode & 07777;
    // Not truncated on open: the target may be the source itself under another name.
    int flags = O_WRONLY | O_CREAT | (failIfExists ? O_EXCL : 0);
    int out = fsi::openRetry(dst, flags, perms);
    if (out < 0) {
        int err = errno;
        fsi::closeFd(in);
        fsi::logSysFailure(log, "open", dst, err);
        return false;
    }
    struct stat dst_st;
    const char* failedOp = nullptr;
    int err = 0;
    if (sysCalls().fstat(out, &dst_st) != 0) {
        failedOp = "fstat";
        err = errno;
    } else if (dst_st.st_dev == st.st_dev && dst_st.st_ino == st.st_ino) {
        fsi::closeFd(in);
        fsi::closeFd(out);
        fsi::logFailure(log, "copy", dst, "source and destination are the same file");
        return false;
    } else if (dst_st.st_size > 0 && fsi::ftruncateRetry(out, 0) != 0) {
        // Only a target with content is truncated: on ext4 truncating even an empty file
        // forces its data to disk at close, which would make every copy wait for the device.
        failedOp = "ftruncate";
        err = errno;
    } else if (sysCalls().fchmod(out, perms) != 0) {
        failedOp = "fchmod";
        err = errno;
    } else {
        long long copied = 0;
        if (!fsi::copyFdToFd(in, out, copied, failedOp)) err = errno;
    }
    fsi::closeFd(in);
    if (fsi::closeFd(out) != 0 && !failedOp) {
        failedOp = "close";
        err = errno;
    }
    if (!failedOp) return true;
    // A partial copy is worse than none.
    sysCalls().unlink(dst);
    fsi::logSysFailure(log, failedOp, dst, err);
    return false;
}

bool FileSys::moveFileX(const XString& from, const XString& to, LogBase* log) {
    if (sysCalls().rename(from.getUtf8(), to.getUtf8()) == 0) return true;
    if (errno != EXDEV) {
        fsi::logSysFailure(log, "rename", from.getUtf8(), errno);
        return false;
    }
    // Another file system: copy, then remove the original once the copy is complete.
    if (!copyFileX(from, to, false, log)) return false;
    if (sysCalls().unlink(from.getUtf8()) == 0) return true;
    fsi::logSysFailure(log, "unlink", from.getUtf8(), errno);
    return false;
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
