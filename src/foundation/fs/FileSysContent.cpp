// FileSys: whole-file reads and writes, the four opens and the current directory.
#include <sys/file.h>

#include <cerrno>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "foundation/fs/FileSys.h"
#include "foundation/fs/FsInternal.h"
#include "foundation/fs/OpenErrorCode.h"

namespace {

const char* orEmpty(const char* p) { return p ? p : ""; }

// Writes the temporary file completely and durably; false with failedOp/err set.
bool fillTemp(int fd, const void* data, unsigned n, const char*& failedOp, int& err) {
    if (n > 0 && !fsi::writeAll(fd, data, n)) {
        failedOp = "write";
    } else if (fsi::fsyncRetry(fd) != 0) {
        failedOp = "fsync";
    } else {
        return true;
    }
    err = errno;
    return false;
}

// After the rename the new name must survive a crash too: flush the directory entry. A
// failure here no longer affects which content the file has, so it is not reported.
void syncDir(const std::string& dir) {
    int fd = fsi::openRetry(dir.c_str(), O_RDONLY | O_DIRECTORY, 0);
    if (fd < 0) return;
    fsi::fsyncRetry(fd);
    fsi::closeFd(fd);
}

// What the four opens share: open, refuse directories, lock on request, empty on request.
OrvaneHandle* openWith(const XString& path, int flags, bool lockFile, bool exclusiveLock,
                       bool truncate, int& errorCode, LogBase* log) {
    const char* p = path.getUtf8();
    int fd = fsi::openRetry(p, flags, 0666);
    if (fd < 0) {
        errorCode = openErrorCodeFromErrno(errno);
        fsi::logSysFailure(log, "open", p, errno);
        return nullptr;
    }
    OrvaneHandle h(fd);
    struct stat st{};
    int statErr = sysCalls().fstat(fd, &st) != 0 ? errno : (S_ISDIR(st.st_mode) ? EISDIR : 0);
    if (statErr != 0) {
        int err = statErr;
        errorCode = openErrorCodeFromErrno(err);
        fsi::logSysFailure(log, "open", p, err);
        return nullptr;
    }
    if (lockFile && fsi::flockRetry(fd, (exclusiveLock ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0) {
        bool held = errno == EWOULDBLOCK;
        errorCode = held ? 1 : openErrorCodeFromErrno(errno);
        if (held)
            fsi::logFailure(log, "lock", p, "the file is locked by another holder");
        else
            fsi::logSysFailure(log, "lock", p, errno);
        return nullptr;
    }
    // Emptied only once the lock is held, so that a refused open leaves the file as it was.
    // An empty file is left alone: on ext4 a truncation marks the file for a flush to disk at
    // close (its guard for files rewritten in place), which made every write of a new file
    // wait for the device.
    if (truncate && st.st_size > 0 && fsi::ftruncateRetry(fd, 0) != 0) {
        errorCode = openErrorCodeFromErrno(errno);
        fsi::logSysFailure(log, "ftruncate", p, errno);
        return nullptr;
    }
    OrvaneHandle* out = new (std::nothrow) OrvaneHandle();
    if (!out) {
        errorCode = openErrorCodeFromErrno(ENOMEM);
        fsi::logSysFailure(log, "open", p, ENOMEM);
        return nullptr;
    }
    out->takeHandle(h);
    errorCode = 0;
    return out;
}

}  // namespace

bool FileSys::writeFileUtf8(const char* path, const DataBuffer& data, LogBase* log) {
    return writeFileUtf8(path, data.getData2(), data.getSize(), log);
}

// Follows a chain of symbolic links to the path they finally name, so that a whole-file write
// replaces the file a link points at and leaves the link itself in place. Stops after 40
// links (the kernel's own limit), at the first path that is no link, or when a link cannot be
// read; whatever it stopped at is the path written.
static std::string followLinks(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (sysCalls().lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) break;
        char buf[4096];
        ssize_t len = sysCalls().readlink(path.c_str(), buf, sizeof buf);
        if (len <= 0 || static_cast<size_t>(len) >= sizeof buf) break;
        std::string next(buf, static_cast<size_t>(len));
        if (next[0] != '/') {
            std::string dir = fsi::parentDirOf(path);
            next = (dir.empty() || dir == ".") ? next : dir + "/" + next;
        }
        path = next;
    }
    return path;
}

bool FileSys::writeFileUtf8(const char* path, const void* data, unsigned n, LogBase* log) {
    std::string target = followLinks(orEmpty(path));
    std::string dir = fsi::parentDirOf(target);
    struct stat old;
    bool existed = sysCalls().stat(target.c_str(), &old) == 0;
    if (existed && S_ISDIR(old.st_mode)) {
        fsi::logSysFailure(log, "write", target.c_str(), EISDIR);
        return false;
    }
    // The new file starts with the old file's permissions (narrowed by the umask, set exactly
    // below), so its content is never readable by more users than the old file's was.
    mode_t mode = existed ? (old.st_mode & 07777) : 0666;
    size_t slash = target.rfind('/');
    // A hidden name beside the target: ".<name>.<random>.tmp".
    std::string prefix(1, '.');
    prefix.append(target, slash == std::string::npos ? 0 : slash + 1, std::string::npos);
    prefix.push_back('.');
    std::string temp;
    int fd = fsi::createUniqueFile(dir, prefix, ".tmp", mode, temp);
    if (fd < 0) {
        fsi::logSysFailure(log, "create temporary file in", dir.c_str(), errno);
        return false;
    }
    const char* failedOp = nullptr;
    int err = 0;
    if (existed && sysCalls().fchmod(fd, old.st_mode & 07777) != 0) {
        failedOp = "fchmod";
        err = errno;
    } else {
        fillTemp(fd, data, n, failedOp, err);
    }
    if (fsi::closeFd(fd) != 0 && !failedOp) {
        failedOp = "close";
        err = errno;
    }
    if (!failedOp && sysCalls().rename(temp.c_str(), target.c_str()) != 0) {
        failedOp = "rename";
        err = errno;
    }
    if (failedOp) {
        sysCalls().unlink(temp.c_str());
        fsi::logSysFailure(log, failedOp, target.c_str(), err);
        return false;
    }
    syncDir(dir);
    return true;
}

bool FileSys::writeToOpenFile(OrvaneHandle& h, const char* p, unsigned n, LogBase* log) {
    return h.writeBytes(p, n, log);
}

bool FileSys::readFileUtf8(const char* path, DataBuffer& out, LogBase* log) {
    const char* p = orEmpty(path);
    OrvaneHandle h(fsi::openRetry(p, O_RDONLY, 0));
    if (!h.isHandleOpen()) {
        fsi::logSysFailure(log, "open", p, errno);
        return false;
    }
    long long size = h.fileSize64(log);
    if (size < 0) return false;
    if (size >= static_cast<long long>(std::numeric_limits<unsigned>::max())) {
        fsi::logFailure(log, "read", p, "the file is too large for one buffer (4 GiB or more)");
        return false;
    }
    // One byte beyond the size: a file that grew since the fstat is noticed without a second
    // pass in the usual case that it did not.
    DataBuffer buf;
    uint64_t cap = static_cast<uint64_t>(size) + 1;
    for (;;) {
        if (!buf.ensureBuffer64(cap)) {
            fsi::logSysFailure(log, "read", p, ENOMEM);
            return false;
        }
        unsigned have = buf.getSize();
        long long got = fsi::readFull(h.fd(), buf.getData2() + have, buf.getCapacity() - have);
        if (got < 0) {
            fsi::logSysFailure(log, "read", p, errno);
            return false;
        }
        buf.setDataSize_CAUTION(have + static_cast<unsigned>(got));
        if (buf.getSize() < buf.getCapacity()) break;
        cap = static_cast<uint64_t>(buf.getCapacity()) * 2;
    }
    out.swap(buf);
    return true;
}

OrvaneHandle* FileSys::openForReadOnly(const XString& path, bool lockFile, bool, int& errorCode,
                                       LogBase* log) {
    return openWith(path, O_RDONLY, lockFile, false, false, errorCode, log);
}

OrvaneHandle* FileSys::openForWriteOnly(const XString& path, bool lockFile, bool,
                                        int& errorCode, LogBase* log) {
    return openWith(path, O_WRONLY | O_CREAT, lockFile, true, true, errorCode, log);
}

OrvaneHandle* FileSys::openForReadWrite(const XString& path, bool lockFile, bool,
                                        int& errorCode, LogBase* log) {
    return openWith(path, O_RDWR | O_CREAT, lockFile, true, false, errorCode, log);
}

OrvaneHandle* FileSys::openForAppend(const XString& path, bool lockFile, bool, int& errorCode,
                                     LogBase* log) {
    return openWith(path, O_WRONLY | O_CREAT | O_APPEND, lockFile, true, false, errorCode, log);
}

bool FileSys::setCurrentDir(const XString& dir) { return sysCalls().chdir(dir.getUtf8()) == 0; }

void FileSys::getCurrentDir(XString& out) {
    out.clear();
    std::vector<char> buf(256);
    for (;;) {
        if (sysCalls().getcwd(buf.data(), buf.size())) {
            out.setFromUtf8(buf.data());
            return;
        }
        if (errno != ERANGE || buf.size() > (1u << 20)) return;
        buf.resize(buf.size() * 2);
    }
}
