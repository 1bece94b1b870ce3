#include "foundation/fs/FsInternal.h"

#include <sys/file.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "foundation/base/LogBase.h"
#include "foundation/fs/OpenErrorCode.h"

namespace fsi {

namespace {

// glibc's GNU strerror_r returns the text; the POSIX one fills the buffer. Both forms land
// here through overloading.
[[maybe_unused]] const char* pickText(int rc, const char* buf) {
    return rc == 0 ? buf : "Unknown error";
}
[[maybe_unused]] const char* pickText(const char* text, const char*) {
    return text;
}

// Large enough that copy_file_range moves a whole file of any practical size in a few calls,
// small enough to stay within the 32-bit ssize_t limits some kernels apply.
constexpr size_t kKernelCopyChunk = size_t{1} << 30;
constexpr size_t kUserCopyChunk = size_t{1} << 20;

bool kernelCopyUnsupported(int err) {
    return err == ENOSYS || err == EXDEV || err == EINVAL || err == EOPNOTSUPP || err == EBADF ||
           err == ETXTBSY || err == EPERM;
}

// Calls `call` again for as long as it fails with EINTR (a signal arrived before it did any
// work), so that callers see only real outcomes.
template <class Call>
auto retryOnEintr(Call call) {
    for (;;) {
        auto rc = call();
        if (!(rc < 0 && errno == EINTR)) return rc;
    }
}

}  // namespace

std::string errnoText(int err) {
    char buf[256];
    buf[0] = '\0';
    return pickText(strerror_r(err, buf, sizeof buf), buf);
}

void logFailure(LogBase* log, const char* op, const char* path, const char* reason) {
    if (!log) return;
    std::string line = op;
    if (path) {
        line += " \"";
        line += path;
        line += "\"";
    }
    line += " failed: ";
    line += reason;
    log->LogError(line.c_str());
}

void logSysFailure(LogBase* log, const char* op, const char* path, int err) {
    if (!log) return;
    logFailure(log, op, path, errnoText(err).c_str());
}

int openRetry(const char* path, int flags, mode_t mode) {
    return retryOnEintr([&] { return sysCalls().open(path, flags | O_CLOEXEC, mode); });
}

int closeFd(int fd) {
    // Never retried: on EINTR the descriptor is already released and may be reused.
    return sysCalls().close(fd);
}

int fsyncRetry(int fd) {
    return retryOnEintr([&] { return sysCalls().fsync(fd); });
}

int flushToDevice(int fd) {
#if defined(__APPLE__)
    // Not every file system knows F_FULLFSYNC; those that do not still get an fsync.
    if (retryOnEintr([&] { return sysCalls().fcntl(fd, F_FULLFSYNC, 0); }) == 0) return 0;
#endif
    return fsyncRetry(fd);
}

const char* kindOfFile(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "a regular file";
        case S_IFDIR:
            return "a directory";
        case S_IFIFO:
            return "a FIFO";
        case S_IFSOCK:
            return "a socket";
        case S_IFCHR:
            return "a character device";
        case S_IFBLK:
            return "a block device";
        case S_IFLNK:
            return "a symbolic link";
        default:
            return "a special file";
    }
}

void logNotRegular(LogBase* log, const char* op, const char* path, mode_t mode) {
    std::string reason = "it is ";
    reason += kindOfFile(mode);
    reason += ", not a regular file";
    logFailure(log, op, path, reason.c_str());
}

int openRegular(const char* path, int flags, mode_t mode, struct stat& st, const char* op,
                LogBase* log) {
    // Refused before it is opened: opening a device can act on it (a tape rewinds, a watchdog
    // arms), and opening a FIFO releases a writer waiting for a reader. What is not there yet
    // is left to the open, and a link that must not be followed too.
    struct stat before;
    const bool noFollow = (flags & O_NOFOLLOW) != 0;
    if ((noFollow ? sysCalls().lstat(path, &before) : sysCalls().stat(path, &before)) == 0 &&
        !S_ISREG(before.st_mode) && !S_ISLNK(before.st_mode)) {
        logNotRegular(log, op, path, before.st_mode);
        errno = S_ISDIR(before.st_mode) ? EISDIR : EINVAL;
        return -1;
    }
    // The type is checked again on the descriptor, for a file put in its place meanwhile.
    int fd = openRetry(path, flags | O_NONBLOCK | O_NOCTTY, mode);
    if (fd < 0) {
        int err = errno;
        // A socket, or a FIFO opened for writing with no reader, fails to open at all: name
        // what it is rather than the open's less telling reason.
        struct stat probe;
        if ((err == ENXIO || err == EOPNOTSUPP || err == ENODEV) &&
            sysCalls().stat(path, &probe) == 0 && !S_ISREG(probe.st_mode)) {
            logNotRegular(log, op, path, probe.st_mode);
        } else {
            logSysFailure(log, "open", path, err);
        }
        errno = err;
        return -1;
    }
    if (sysCalls().fstat(fd, &st) != 0) {
        int err = errno;
        closeFd(fd);
        logSysFailure(log, "fstat", path, err);
        errno = err;
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        closeFd(fd);
        logNotRegular(log, op, path, st.st_mode);
        errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        return -1;
    }
    return fd;
}

int ftruncateRetry(int fd, off_t len) {
    return retryOnEintr([&] { return sysCalls().ftruncate(fd, len); });
}

int flockRetry(int fd, int op) {
    return retryOnEintr([&] { return sysCalls().flock(fd, op); });
}

bool writeAll(int fd, const void* p, size_t n) {
    const char* src = static_cast<const char*>(p);
    while (n > 0) {
        ssize_t w = sysCalls().write(fd, src, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (w == 0) {
            errno = ENOSPC;
            return false;
        }
        src += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

namespace {

// Calls transfer(dest, want, done) until n bytes have come or it delivers none (the end),
// over EINTR and short transfers. The count, or -1 with errno set and the count so far in
// `before` (when given).
template <class Transfer>
long long transferFull(void* p, size_t n, size_t* before, Transfer transfer) {
    char* dest = static_cast<char*>(p);
    size_t got = 0;
    while (got < n) {
        ssize_t r = transfer(dest + got, n - got, got);
        if (r < 0) {
            if (errno == EINTR) continue;
            if (before) *before = got;
            return -1;
        }
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<long long>(got);
}

}  // namespace

long long readFull(int fd, void* p, size_t n, size_t* before) {
    return transferFull(p, n, before, [&](char* dest, size_t want, size_t) {
        return sysCalls().read(fd, dest, want);
    });
}

long long preadFull(int fd, void* p, size_t n, long long off, size_t* before) {
    return transferFull(p, n, before, [&](char* dest, size_t want, size_t done) {
        return sysCalls().pread(fd, dest, want, static_cast<off_t>(off + done));
    });
}

bool copyFdToFd(int in, int out, long long& copied, const char*& opName) {
    copied = 0;
    bool kernel = true;
    while (kernel) {
        ssize_t n = sysCalls().copy_file_range(in, nullptr, out, nullptr, kKernelCopyChunk, 0);
        if (n > 0) {
            copied += n;
            continue;
        }
        if (n == 0) return true;
        if (errno == EINTR) continue;
        // Unsupported for this pair of files: fall back, but only before anything moved,
        // otherwise the error is a real one.
        if (copied == 0 && kernelCopyUnsupported(errno)) {
            kernel = false;
            break;
        }
        opName = "copy_file_range";
        return false;
    }
    std::unique_ptr<char[]> buf(new (std::nothrow) char[kUserCopyChunk]);
    if (!buf) {
        errno = ENOMEM;
        opName = "allocate copy buffer";
        return false;
    }
    for (;;) {
        long long n = readFull(in, buf.get(), kUserCopyChunk);
        if (n < 0) {
            opName = "read";
            return false;
        }
        if (n == 0) return true;
        if (!writeAll(out, buf.get(), static_cast<size_t>(n))) {
            opName = "write";
            return false;
        }
        copied += n;
        if (static_cast<size_t>(n) < kUserCopyChunk) return true;
    }
}

namespace {

bool unsupported(int err) {
    return err == ENOTSUP || err == EOPNOTSUPP;
}

// Linux answers ENODATA for an attribute that is not there, Apple platforms ENOATTR.
bool noSuchAttribute(int err) {
#if defined(ENOATTR)
    if (err == ENOATTR) return true;
#endif
    return err == ENODATA;
}

// A list or a value of extended attributes: `get(buf, size)` first asked for the size, then
// for the bytes, again while they keep growing in between.
template <class Get>
bool readSized(Get get, std::string& out) {
    for (int attempt = 0; attempt < 8; ++attempt) {
        ssize_t n = get(nullptr, 0);
        if (n < 0) return false;
        out.assign(static_cast<size_t>(n), '\0');
        if (n == 0) return true;
        n = get(out.data(), out.size());
        if (n >= 0) {
            out.resize(static_cast<size_t>(n));
            return true;
        }
        if (errno != ERANGE) return false;
    }
    errno = ERANGE;
    return false;
}

// The names of fd's extended attributes; none where the file system keeps none.
bool attributeNames(int fd, std::vector<std::string>& names) {
    names.clear();
    std::string list;
    if (!readSized([&](char* b, size_t n) { return sysCalls().flistxattr(fd, b, n); }, list))
        return unsupported(errno);
    for (size_t at = 0; at < list.size();) {
        const size_t end = list.find('\0', at);
        const size_t stop = end == std::string::npos ? list.size() : end;
        if (stop > at) names.push_back(list.substr(at, stop - at));
        at = stop + 1;
    }
    return true;
}

}  // namespace

AttributeCopy copyExtendedAttributes(int from, int to, const char*& failedOp) {
    std::vector<std::string> wanted, present;
    failedOp = "flistxattr";
    if (!attributeNames(from, wanted)) return AttributeCopy::ReadFailed;
    if (!attributeNames(to, present)) return AttributeCopy::NotTaken;
    // What the new file got from its directory (a default ACL) and the old one lacks goes.
    failedOp = "fremovexattr";
    for (const std::string& name : present) {
        if (std::find(wanted.begin(), wanted.end(), name) != wanted.end()) continue;
        if (sysCalls().fremovexattr(to, name.c_str()) != 0 && !noSuchAttribute(errno))
            return AttributeCopy::NotTaken;
    }
    std::string value;
    for (const std::string& name : wanted) {
        failedOp = "fgetxattr";
        if (!readSized(
                [&](char* b, size_t n) { return sysCalls().fgetxattr(from, name.c_str(), b, n); },
                value)) {
            if (noSuchAttribute(errno)) continue;  // removed meanwhile
            return AttributeCopy::ReadFailed;
        }
        failedOp = "fsetxattr";
        if (sysCalls().fsetxattr(to, name.c_str(), value.data(), value.size(), 0) != 0)
            return AttributeCopy::NotTaken;
    }
    return AttributeCopy::Done;
}

namespace {

// The longest name most file systems accept (NAME_MAX on Linux, and APFS's limit).
constexpr size_t kNameMax = 255;
constexpr size_t kRandomChars = 12;

// Tries names dir/prefix<12 random characters><suffix> until `make` succeeds (returns a value
// >= 0) or fails for another reason than EEXIST; 100 tries at most.
template <class Make>
int makeUniqueName(const std::string& dir, const std::string& prefix, const char* suffix,
                   std::string& outPath, Make make) {
    static constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    // Seeded once from the system's entropy and mixed with a counter, so that two threads
    // never try the same sequence.
    static std::atomic<unsigned long long> counter{0};
    std::random_device rd;
    std::mt19937_64 gen((static_cast<unsigned long long>(rd()) << 32) ^ rd() ^
                        counter.fetch_add(0x9E3779B97F4A7C15ULL) ^
                        static_cast<unsigned long long>(
                            std::chrono::steady_clock::now().time_since_epoch().count()));
    std::string base = dir;
    if (!base.empty() && base.back() != '/') base += '/';
    base += prefix;
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string candidate = base;
        for (size_t i = 0; i < kRandomChars; ++i)
            candidate += kAlphabet[gen() % (sizeof kAlphabet - 1)];
        candidate += suffix;
        int rc = make(candidate.c_str());
        if (rc >= 0) {
            outPath = candidate;
            return rc;
        }
        if (errno != EEXIST) return -1;
    }
    errno = EEXIST;
    return -1;
}

}  // namespace

int createUniqueFile(const std::string& dir, const std::string& prefix, const char* suffix,
                     mode_t mode, std::string& outPath) {
    return makeUniqueName(dir, prefix, suffix, outPath, [&](const char* candidate) {
        return openRetry(candidate, O_RDWR | O_CREAT | O_EXCL, mode);
    });
}

bool createUniqueSymlink(const std::string& dir, const std::string& prefix, const char* suffix,
                         const char* target, std::string& outPath) {
    return makeUniqueName(dir, prefix, suffix, outPath, [&](const char* candidate) {
               return sysCalls().symlink(target, candidate);
           }) == 0;
}

std::string scratchPrefixFor(const std::string& path) {
    size_t slash = path.rfind('/');
    std::string name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    // ".", the name, ".", the random part and a suffix of at most 4 bytes.
    const size_t room = kNameMax - 2 - kRandomChars - 4;
    if (name.size() > room) {
        size_t cut = room;
        // Back up to the first byte of a UTF-8 sequence, so that the name stays valid text
        // (APFS refuses names that are not).
        while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
        name.resize(cut);
    }
    return "." + name + ".";
}

bool renameNoReplace(const char* from, const char* to) {
    if (sysCalls().renameNoReplace(from, to) == 0) return true;
    if (errno != ENOSYS && errno != EINVAL && errno != ENOTSUP) return false;
    // No exclusive rename here: a hard link is made only where the name is free.
    if (sysCalls().link(from, to) == 0) {
        sysCalls().unlink(from);
        return true;
    }
    if (errno == EEXIST) return false;
    // Nor hard links (FAT, some network file systems): look, then rename. Another process
    // could take the name in between; no better is possible there.
    struct stat st;
    if (sysCalls().lstat(to, &st) == 0) {
        errno = EEXIST;
        return false;
    }
    return sysCalls().rename(from, to) == 0;
}

bool readLink(const char* path, std::string& out) {
    std::string buf(256, '\0');
    for (;;) {
        ssize_t n = sysCalls().readlink(path, buf.data(), buf.size());
        if (n < 0) return false;
        // A full buffer may mean the text was cut short: try again with more room.
        if (static_cast<size_t>(n) < buf.size()) {
            buf.resize(static_cast<size_t>(n));
            out = std::move(buf);
            return true;
        }
        buf.resize(buf.size() * 4);
    }
}

std::string parentDirOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

struct timespec statAccessTime(const struct stat& st) {
#if defined(__APPLE__)
    return st.st_atimespec;
#else
    return st.st_atim;
#endif
}

struct timespec statModTime(const struct stat& st) {
#if defined(__APPLE__)
    return st.st_mtimespec;
#else
    return st.st_mtim;
#endif
}

}  // namespace fsi

int openErrorCodeFromErrno(int err) {
    switch (err) {
        case 0:
            return 0;
        case EACCES:
        case EPERM:
            return 1;
        case ENOENT:
            return 2;
        case EEXIST:
            return 4;
        case EISDIR:
            return 5;
        case ELOOP:
            return 6;
        case EMFILE:
            return 7;
        case ENAMETOOLONG:
            return 8;
        case ENFILE:
            return 9;
        case ENODEV:
        case ENXIO:
            return 10;
        case ENOMEM:
            return 11;
        case ENOSPC:
            return 12;
        case ENOTDIR:
            return 13;
        case EOVERFLOW:
        case EFBIG:
            return 14;
        case EROFS:
            return 15;
        case ETXTBSY:
            return 16;
        default:
            return 3;
    }
}
