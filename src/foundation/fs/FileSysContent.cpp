// FileSys: whole-file reads and writes, the four opens and the current directory.
#include <sys/file.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "foundation/fs/FileReplace.h"
#include "foundation/fs/FileSys.h"
#include "foundation/fs/FsInternal.h"
#include "foundation/fs/OpenErrorCode.h"

namespace {

const char* orEmpty(const char* p) { return p ? p : ""; }

bool clearNonBlocking(int fd) {
    int flags = sysCalls().fcntl(fd, F_GETFL, 0);
    return flags >= 0 && sysCalls().fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

// What the four opens share: open, refuse directories, lock on request, empty on request.
// The open never blocks (a FIFO without a writer opens for reading at once); what follows
// keeps the platform's meaning, so a FIFO or device is read and written blocking as usual.
OrvaneHandle* openWith(const XString& path, int flags, bool lockFile, bool exclusiveLock,
                       bool truncate, int& errorCode, LogBase* log) {
    const char* p = path.getUtf8();
    int fd = fsi::openRetry(p, flags | O_NONBLOCK | O_NOCTTY, 0666);
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
    // The flag has no effect on a regular file; elsewhere it goes, for blocking transfers.
    if (!S_ISREG(st.st_mode) && !clearNonBlocking(fd)) {
        errorCode = openErrorCodeFromErrno(errno);
        fsi::logSysFailure(log, "fcntl", p, errno);
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
    if (truncate && S_ISREG(st.st_mode) && st.st_size > 0 && fsi::ftruncateRetry(fd, 0) != 0) {
        errorCode = openErrorCodeFromErrno(errno);
        fsi::logSysFailure(log, "ftruncate", p, errno);
        return nullptr;
    }
    // A regular file keeps its position in the handle, so that seeks cost no system call;
    // appends must go where the descriptor puts them.
    if (S_ISREG(st.st_mode) && !(flags & O_APPEND)) h.trackPosition(nullptr);
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

bool FileSys::writeFileUtf8(const char* path, const void* data, unsigned n, LogBase* log) {
    fsi::ReplaceRequest req;
    req.path = orEmpty(path);
    return fsi::replaceFileContent(
        req,
        [&](int fd, int, const char*& failedOp) {
            failedOp = "write";
            return n == 0 || fsi::writeAll(fd, data, n);
        },
        log);
}

namespace {

constexpr size_t kFilterPiece = 1u << 20;
// Written bytes handed to the device at a time, ahead of the flush that ends the write.
constexpr off_t kWriteBehind = off_t{16} << 20;

// Collects a producer's output and writes it in large blocks. Every 16 MiB written is handed
// to the device at once, without waiting: a large file is then mostly on the device by the
// time the write's final flush waits for it, the device working while the content is made.
class BlockWriter {
public:
    explicit BlockWriter(int fd) : m_fd(fd), m_buf(new (std::nothrow) unsigned char[kFilterPiece]) {}
    bool ready() const { return m_buf != nullptr; }
    bool put(const unsigned char* p, size_t n) {
        if (m_used + n > kFilterPiece && !flush()) return false;
        if (n >= kFilterPiece) return writeOut(p, n);
        std::memcpy(m_buf.get() + m_used, p, n);
        m_used += n;
        return true;
    }
    bool flush() {
        if (m_used && !writeOut(m_buf.get(), m_used)) return false;
        m_used = 0;
        return true;
    }

private:
    bool writeOut(const unsigned char* p, size_t n) {
        if (!fsi::writeAll(m_fd, p, n)) return false;
        m_written += static_cast<off_t>(n);
        if (m_written - m_handedOver >= kWriteBehind) {
            // Only a hint: where it is not offered the final flush does all the work.
            sysCalls().startWriteBack(m_fd, m_handedOver, m_written - m_handedOver);
            m_handedOver = m_written;
        }
        return true;
    }

    int m_fd;
    std::unique_ptr<unsigned char[]> m_buf;
    size_t m_used = 0;
    off_t m_written = 0, m_handedOver = 0;
};

// Feeds the old content to the filter, one positioned read per piece, and writes its output.
bool filterContent(int out, int old, const FileSys::Filter& filter, const char*& failedOp) {
    failedOp = "read";
    if (old < 0) {
        errno = EBADF;
        return false;
    }
    std::unique_ptr<unsigned char[]> piece(new (std::nothrow) unsigned char[kFilterPiece]);
    BlockWriter writer(out);
    if (!piece || !writer.ready()) {
        failedOp = "allocate";
        errno = ENOMEM;
        return false;
    }
    bool writeFailed = false;
    const FileSys::Emit emit = [&](const unsigned char* p, size_t n) {
        writeFailed = !writer.put(p, n);
        return !writeFailed;
    };
    for (off_t offset = 0;;) {
        ssize_t got;
        do {
            got = sysCalls().pread(old, piece.get(), kFilterPiece, offset);
        } while (got < 0 && errno == EINTR);
        if (got < 0) return false;
        if (!filter(piece.get(), static_cast<size_t>(got), got == 0, emit)) {
            failedOp = writeFailed ? "write" : "filter";
            return false;
        }
        if (got == 0) break;
        offset += got;
    }
    failedOp = "write";
    return writer.flush();
}

}  // namespace

bool FileSys::writeFileStreamUtf8(const char* path, const Producer& produce, LogBase* log) {
    fsi::ReplaceRequest req;
    req.path = orEmpty(path);
    return fsi::replaceFileContent(
        req,
        [&](int out, int, const char*& failedOp) {
            BlockWriter writer(out);
            failedOp = "allocate";
            if (!writer.ready()) return errno = ENOMEM, false;
            bool writeFailed = false;
            const Emit emit = [&](const unsigned char* p, size_t n) {
                writeFailed = !writer.put(p, n);
                return !writeFailed;
            };
            const bool produced = produce(emit);
            failedOp = writeFailed || produced ? "write" : "produce";
            return produced && writer.flush();
        },
        log);
}

bool FileSys::transformFileUtf8(const char* path, const Filter& filter, LogBase* log) {
    fsi::ReplaceRequest req;
    req.path = orEmpty(path);
    return fsi::replaceFileContent(
        req,
        [&](int out, int old, const char*& failedOp) {
            return filterContent(out, old, filter, failedOp);
        },
        log);
}

bool FileSys::writeToOpenFile(OrvaneHandle& h, const char* p, unsigned n, LogBase* log) {
    return h.writeBytes(p, n, log);
}

bool FileSys::readFileUtf8(const char* path, DataBuffer& out, LogBase* log) {
    const char* p = orEmpty(path);
    struct stat st;
    OrvaneHandle h(fsi::openRegular(p, O_RDONLY, 0, st, "read", log));
    if (!h.isHandleOpen()) return false;
    const long long size = static_cast<long long>(st.st_size);
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

void FileSys::occupyClosedStandardDescriptors(bool closed[3]) {
    int missing = 0;
    for (int fd = 0; fd < 3; ++fd) {
        closed[fd] = sysCalls().fcntl(fd, F_GETFL, 0) < 0 && errno == EBADF;
        missing += closed[fd];
    }
    // An open takes the lowest free number: the closed ones, in order.
    for (; missing > 0; --missing) {
        const int fd = fsi::openRetry("/dev/null", O_RDONLY, 0);
        if (fd > 2) fsi::closeFd(fd);
        if (fd < 0 || fd > 2) return;
    }
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
