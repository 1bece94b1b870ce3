#include "foundation/fs/FsInternal.h"

#include <sys/file.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>

#include "foundation/base/LogBase.h"
#include "foundation/fs/OpenErrorCode.h"

namespace fsi {

namespace {

// glibc's GNU strerror_r returns the text; the POSIX one fills the buffer. Both forms land
// here through overloading.
[[maybe_unused]] const char* pickText(int rc, const char* buf) {
    return rc == 0 ? buf : "Unknown error";
}
[[maybe_unused]] const char* pickText(const char* text, const char*) { return text; }

// Large enough that copy_file_range moves a whole file of any practical size in a few calls,
// small enough to stay within the 32-bit ssize_t limits some kernels apply.
constexpr size_t kKernelCopyChunk = size_t{1} << 30;
constexpr size_t kUserCopyChunk = size_t{1} << 20;

bool kernelCopyUnsupported(int err) {
    return err == ENOSYS || err == EXDEV || err == EINVAL || err == EOPNOTSUPP ||
           err == EBADF || err == ETXTBSY || err == EPERM;
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

long long readFull(int fd, void* p, size_t n) {
    char* dest = static_cast<char*>(p);
    size_t got = 0;
    while (got < n) {
        ssize_t r = sysCalls().read(fd, dest + got, n - got);
        if (r < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<long long>(got);
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

int createUniqueFile(const std::string& dir, const std::string& prefix, const char* suffix,
                     mode_t mode, std::string& outPath) {
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
        for (int i = 0; i < 12; ++i) candidate += kAlphabet[gen() % (sizeof kAlphabet - 1)];
        candidate += suffix;
        int fd = openRetry(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL, mode);
        if (fd >= 0) {
            outPath = candidate;
            return fd;
        }
        if (errno != EEXIST) return -1;
    }
    errno = EEXIST;
    return -1;
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
        case 0: return 0;
        case EACCES:
        case EPERM: return 1;
        case ENOENT: return 2;
        case EEXIST: return 4;
        case EISDIR: return 5;
        case ELOOP: return 6;
        case EMFILE: return 7;
        case ENAMETOOLONG: return 8;
        case ENFILE: return 9;
        case ENODEV:
        case ENXIO: return 10;
        case ENOMEM: return 11;
        case ENOSPC: return 12;
        case ENOTDIR: return 13;
        case EOVERFLOW:
        case EFBIG: return 14;
        case EROFS: return 15;
        case ETXTBSY: return 16;
        default: return 3;
    }
}
