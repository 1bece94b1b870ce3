#include "foundation/fs/OrvaneHandle.h"

#include <cerrno>
#include <utility>

#include "foundation/fs/FsInternal.h"

namespace {

bool noFile(LogBase* log, const char* op) {
    fsi::logFailure(log, op, nullptr, "no file is open");
    return false;
}

}  // namespace

OrvaneHandle::OrvaneHandle(OrvaneHandle&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }

OrvaneHandle& OrvaneHandle::operator=(OrvaneHandle&& other) noexcept {
    if (this != &other) takeHandle(other);
    return *this;
}

OrvaneHandle::~OrvaneHandle() { closeHandle(); }

void OrvaneHandle::closeHandle() {
    if (m_fd < 0) return;
    fsi::closeFd(m_fd);
    m_fd = -1;
}

void OrvaneHandle::takeHandle(OrvaneHandle& other) {
    if (this == &other) return;
    closeHandle();
    m_fd = other.m_fd;
    other.m_fd = -1;
}

int OrvaneHandle::release() { return std::exchange(m_fd, -1); }

bool OrvaneHandle::readBytesToBuf32(void* dest, unsigned n, unsigned& numRead, bool& eof,
                                    LogBase* log) {
    numRead = 0;
    if (m_fd < 0) return noFile(log, "read");
    long long got = fsi::readFull(m_fd, dest, n);
    if (got < 0) {
        fsi::logSysFailure(log, "read", nullptr, errno);
        return false;
    }
    numRead = static_cast<unsigned>(got);
    eof = numRead < n;
    return true;
}

bool OrvaneHandle::preadBytes(void* dest, unsigned n, long long offset, unsigned& numRead,
                              bool& eof, LogBase* log) {
    numRead = 0;
    if (m_fd < 0) return noFile(log, "pread");
    if (offset < 0) {
        fsi::logSysFailure(log, "pread", nullptr, EINVAL);
        return false;
    }
    char* p = static_cast<char*>(dest);
    unsigned got = 0;
    while (got < n) {
        ssize_t r = sysCalls().pread(m_fd, p + got, n - got, static_cast<off_t>(offset + got));
        if (r < 0) {
            if (errno == EINTR) continue;
            fsi::logSysFailure(log, "pread", nullptr, errno);
            return false;
        }
        if (r == 0) break;
        got += static_cast<unsigned>(r);
    }
    numRead = got;
    eof = got < n;
    return true;
}

bool OrvaneHandle::writeBytes(const void* src, unsigned n, LogBase* log) {
    if (m_fd < 0) return noFile(log, "write");
    if (n == 0) return true;
    if (fsi::writeAll(m_fd, src, n)) return true;
    fsi::logSysFailure(log, "write", nullptr, errno);
    return false;
}

bool OrvaneHandle::setFilePointerAbsolute(long long pos, LogBase* log) {
    if (m_fd < 0) return noFile(log, "seek");
    if (pos < 0 || sysCalls().lseek(m_fd, static_cast<off_t>(pos), SEEK_SET) < 0) {
        fsi::logSysFailure(log, "seek", nullptr, pos < 0 ? EINVAL : errno);
        return false;
    }
    return true;
}

bool OrvaneHandle::setFilePointerRelative(long long delta, LogBase* log, bool fromEnd) {
    if (m_fd < 0) return noFile(log, "seek");
    if (sysCalls().lseek(m_fd, static_cast<off_t>(delta), fromEnd ? SEEK_END : SEEK_CUR) < 0) {
        fsi::logSysFailure(log, "seek", nullptr, errno);
        return false;
    }
    return true;
}

long long OrvaneHandle::ftell64(LogBase* log) {
    if (m_fd < 0) {
        noFile(log, "tell");
        return -1;
    }
    off_t pos = sysCalls().lseek(m_fd, 0, SEEK_CUR);
    if (pos < 0) fsi::logSysFailure(log, "tell", nullptr, errno);
    return pos < 0 ? -1 : static_cast<long long>(pos);
}

namespace {

bool statHeld(int fd, struct stat& st, LogBase* log) {
    if (fd < 0) return noFile(log, "fstat");
    if (sysCalls().fstat(fd, &st) == 0) return true;
    fsi::logSysFailure(log, "fstat", nullptr, errno);
    return false;
}

}  // namespace

long long OrvaneHandle::fileSize64(LogBase* log) {
    struct stat st;
    return statHeld(m_fd, st, log) ? static_cast<long long>(st.st_size) : -1;
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
