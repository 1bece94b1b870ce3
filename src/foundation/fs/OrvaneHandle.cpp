#include "foundation/fs/OrvaneHandle.h"

#include <cerrno>
#include <utility>

#include "foundation/fs/FsInternal.h"

namespace {

bool noFile(LogBase* log, const char* op) {
    fsi::logFailure(log, op, nullptr, "no file is open");
    return false;
}

bool statHeld(int fd, struct stat& st, LogBase* log) {
    if (fd < 0) return noFile(log, "fstat");
    if (sysCalls().fstat(fd, &st) == 0) return true;
    fsi::logSysFailure(log, "fstat", nullptr, errno);
    return false;
}

bool seekFailed(LogBase* log, int err) {
    fsi::logSysFailure(log, "seek", nullptr, err);
    return false;
}

}  // namespace

OrvaneHandle::OrvaneHandle(OrvaneHandle&& other) noexcept {
    takeHandle(other);
}

OrvaneHandle& OrvaneHandle::operator=(OrvaneHandle&& other) noexcept {
    if (this != &other) takeHandle(other);
    return *this;
}

OrvaneHandle::~OrvaneHandle() {
    closeHandle();
}

void OrvaneHandle::closeHandle() {
    if (m_fd >= 0) fsi::closeFd(m_fd);
    m_fd = -1;
    m_tracked = false;
    m_pos = 0;
    m_placed = true;
}

void OrvaneHandle::takeHandle(OrvaneHandle& other) {
    if (this == &other) return;
    closeHandle();
    m_fd = std::exchange(other.m_fd, -1);
    m_tracked = std::exchange(other.m_tracked, false);
    m_pos = std::exchange(other.m_pos, 0);
    m_placed = std::exchange(other.m_placed, true);
}

int OrvaneHandle::release() {
    place(nullptr);
    m_tracked = false;
    m_pos = 0;
    m_placed = true;
    return std::exchange(m_fd, -1);
}

bool OrvaneHandle::trackPosition(LogBase* log) {
    if (m_fd < 0) return noFile(log, "tell");
    off_t pos = sysCalls().lseek(m_fd, 0, SEEK_CUR);
    if (pos < 0) return seekFailed(log, errno);
    m_tracked = true;
    m_pos = pos;
    m_placed = true;
    return true;
}

bool OrvaneHandle::place(LogBase* log) {
    if (!m_tracked || m_placed || m_fd < 0) return true;
    if (sysCalls().lseek(m_fd, static_cast<off_t>(m_pos), SEEK_SET) < 0)
        return seekFailed(log, errno);
    m_placed = true;
    return true;
}

bool OrvaneHandle::readBytesToBuf32(void* dest, unsigned n, unsigned& numRead, bool& eof,
                                    LogBase* log) {
    numRead = 0;
    if (m_fd < 0) return noFile(log, "read");
    size_t before = 0;
    long long got =
        m_tracked ? fsi::preadFull(m_fd, dest, n, m_pos, &before) : fsi::readFull(m_fd, dest, n);
    if (got < 0) {
        const int err = errno;
        // A read that fails part way has moved a descriptor's offset past what came.
        if (m_tracked && before > 0) {
            m_pos += static_cast<long long>(before);
            m_placed = false;
        }
        fsi::logSysFailure(log, "read", nullptr, err);
        return false;
    }
    if (m_tracked && got > 0) {
        m_pos += got;
        m_placed = false;
    }
    numRead = static_cast<unsigned>(got);
    eof = numRead < n;
    return true;
}

bool OrvaneHandle::preadBytes(void* dest, unsigned n, long long offset, unsigned& numRead,
                              bool& eof, LogBase* log) {
    numRead = 0;
    if (m_fd < 0) return noFile(log, "pread");
    size_t before = 0;
    long long got =
        offset < 0 ? (errno = EINVAL, -1) : fsi::preadFull(m_fd, dest, n, offset, &before);
    if (got < 0) {
        const int err = errno;
        numRead = static_cast<unsigned>(before);
        fsi::logSysFailure(log, "pread", nullptr, err);
        return false;
    }
    numRead = static_cast<unsigned>(got);
    eof = numRead < n;
    return true;
}

bool OrvaneHandle::writeBytes(const void* src, unsigned n, LogBase* log) {
    if (m_fd < 0) return noFile(log, "write");
    if (n == 0) return true;
    if (!place(log)) return false;
    if (fsi::writeAll(m_fd, src, n)) {
        if (m_tracked) m_pos += n;
        return true;
    }
    const int err = errno;
    // Part of the bytes may have gone: the descriptor knows where it now stands.
    if (m_tracked) {
        off_t pos = sysCalls().lseek(m_fd, 0, SEEK_CUR);
        if (pos >= 0) m_pos = pos;
        m_placed = pos >= 0;
    }
    fsi::logSysFailure(log, "write", nullptr, err);
    return false;
}

bool OrvaneHandle::seek(long long delta, int whence, LogBase* log) {
    if (m_fd < 0) return noFile(log, "seek");
    if (whence == SEEK_SET && delta < 0) return seekFailed(log, EINVAL);
    // From a kept position, a seek from the current position is made as a seek from the start
    // to the sum: the kernel adds the descriptor's offset and checks the sum as it checks a
    // seek from the start, so the descriptor need not be placed first.
    long long target = 0;
    if (m_tracked && whence == SEEK_CUR && !__builtin_add_overflow(m_pos, delta, &target)) {
        if (target < 0) return seekFailed(log, EINVAL);
        delta = target;
        whence = SEEK_SET;
    }
    if (whence == SEEK_CUR && !place(log)) return false;
    const off_t pos = sysCalls().lseek(m_fd, static_cast<off_t>(delta), whence);
    if (pos < 0) return seekFailed(log, errno);
    if (m_tracked) {
        m_pos = pos;
        m_placed = true;
    }
    return true;
}

bool OrvaneHandle::setFilePointerAbsolute(long long pos, LogBase* log) {
    if (m_fd < 0) return noFile(log, "seek");
    if (pos < 0) return seekFailed(log, EINVAL);
    if (!m_tracked) return seek(pos, SEEK_SET, log);
    if (pos != m_pos) m_placed = false;
    m_pos = pos;
    return true;
}

long long OrvaneHandle::ftell64(LogBase* log) {
    if (m_fd < 0) {
        noFile(log, "tell");
        return -1;
    }
    if (m_tracked) return m_pos;
    off_t pos = sysCalls().lseek(m_fd, 0, SEEK_CUR);
    if (pos < 0) fsi::logSysFailure(log, "tell", nullptr, errno);
    return pos < 0 ? -1 : static_cast<long long>(pos);
}

long long OrvaneHandle::fileSize64(LogBase* log) {
    struct stat st;
    return statHeld(m_fd, st, log) ? static_cast<long long>(st.st_size) : -1;
}

long long OrvaneHandle::regularFileSize64() {
    struct stat st;
    return statHeld(m_fd, st, nullptr) && S_ISREG(st.st_mode) ? static_cast<long long>(st.st_size)
                                                              : -1;
}

bool OrvaneHandle::fileId(FileId& out, LogBase* log) {
    struct stat st;
    if (!statHeld(m_fd, st, log)) return false;
    out = FileId::of(st);
    return true;
}

bool OrvaneHandle::truncate(long long size, LogBase* log) {
    if (m_fd < 0) return noFile(log, "truncate");
    if (size < 0 || fsi::ftruncateRetry(m_fd, static_cast<off_t>(size)) != 0) {
        fsi::logSysFailure(log, "truncate", nullptr, size < 0 ? EINVAL : errno);
        return false;
    }
    return true;
}

bool OrvaneHandle::flush(LogBase* log) {
    if (m_fd < 0) return noFile(log, "fsync");
    if (fsi::fsyncRetry(m_fd) != 0) {
        fsi::logSysFailure(log, "fsync", nullptr, errno);
        return false;
    }
    return true;
}
