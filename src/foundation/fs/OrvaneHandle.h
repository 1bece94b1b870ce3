// A move-only owner of one open file descriptor (-1 when empty).
//
// Reads and writes loop over EINTR and partial transfers, so callers see only complete
// transfers, the end of the file, or an error. Positions are 64-bit. Every failure writes
// one line naming the operation and the system's reason into the log given (none into a
// null log). The destructor closes what the handle still owns.
#pragma once

#include "foundation/base/LogBase.h"
#include "foundation/fs/FileId.h"

class OrvaneHandle {
public:
    OrvaneHandle() = default;
    explicit OrvaneHandle(int fd) : m_fd(fd) {}
    OrvaneHandle(OrvaneHandle&& other) noexcept;
    OrvaneHandle& operator=(OrvaneHandle&& other) noexcept;
    OrvaneHandle(const OrvaneHandle&) = delete;
    OrvaneHandle& operator=(const OrvaneHandle&) = delete;
    virtual ~OrvaneHandle();

    bool isHandleOpen() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    // Closes the held file; harmless when none.
    void closeHandle();
    // This handle closes its own file, then owns other's; other owns none.
    void takeHandle(OrvaneHandle& other);
    // Gives up ownership without closing; returns the descriptor.
    int release();

    // Reads up to n bytes at the current position into dest and advances past them.
    // numRead is set; fewer than n only at the end of the file. eof is set true when fewer
    // than n bytes came (the end was reached) and false when all n came.
    // False on a read error and when no file is held (numRead then 0, eof unchanged).
    bool readBytesToBuf32(void* dest, unsigned n, unsigned& numRead, bool& eof, LogBase* log);
    // As readBytesToBuf32 at an explicit offset; the current position does not move.
    bool preadBytes(void* dest, unsigned n, long long offset, unsigned& numRead, bool& eof,
                    LogBase* log);
    // Writes all n bytes at the current position (the end, for a file opened to append).
    bool writeBytes(const void* src, unsigned n, LogBase* log);

    bool setFilePointerAbsolute(long long pos, LogBase* log);
    bool setFilePointerRelative(long long delta, LogBase* log, bool fromEnd);
    // The current position; -1 on failure.
    long long ftell64(LogBase* log);
    // The file's size; -1 on failure.
    long long fileSize64(LogBase* log);
    // Which file is held (device and inode); false on failure.
    bool fileId(FileId& out, LogBase* log);
    // Cuts or extends the file to size; the position does not move.
    bool truncate(long long size, LogBase* log);
    // Flushes the file's data to the device.
    bool flush(LogBase* log);

private:
    int m_fd = -1;
};
