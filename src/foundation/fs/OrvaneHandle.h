// A move-only owner of one open file descriptor (-1 when empty).
//
// Reads and writes loop over EINTR and partial transfers, so callers see only complete
// transfers, the end of the file, or an error. Positions are 64-bit. Every failure writes
// one line naming the operation and the system's reason into the log given (none into a
// null log). The destructor closes what the handle still owns.
//
// A handle may keep its file position itself (trackPosition): reads are then positioned reads
// from it, and the moves of the library's own record and block readers only record the new
// position; the descriptor's own offset is placed only before a call that depends on it (a
// write, or handing the descriptor over with release). A seek asked for by a caller (seek) is
// still made by lseek, whose answer is the file's to give. What callers see is the same as with
// the descriptor's offset: the position each operation leaves, the bytes read and written, the
// errors. For regular files opened without O_APPEND, where every system call saved counts (a
// record scan moves the position several times per record).
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
    // The descriptor. With a tracked position its offset need not be the handle's position.
    int fd() const { return m_fd; }
    // Closes the held file; harmless when none.
    void closeHandle();
    // This handle closes its own file, then owns other's (with its position); other owns none.
    void takeHandle(OrvaneHandle& other);
    // Gives up ownership without closing; returns the descriptor, its offset placed at the
    // handle's position.
    int release();
    // From now on the handle keeps the position itself, starting from the descriptor's
    // offset. Only for a file that can seek and is not open for appending.
    bool trackPosition(LogBase* log);
    bool tracksPosition() const { return m_tracked; }

    // Reads up to n bytes at the current position into dest and advances past them.
    // numRead is set; fewer than n only at the end of the file. eof is set true when fewer
    // than n bytes came (the end was reached) and false when all n came.
    // False on a read error and when no file is held (numRead then 0, eof unchanged; the
    // position has moved past bytes that came before the error, as a descriptor's would).
    bool readBytesToBuf32(void* dest, unsigned n, unsigned& numRead, bool& eof, LogBase* log);
    // As readBytesToBuf32 at an explicit offset; the current position does not move. On a
    // read error numRead counts the bytes that came before it.
    bool preadBytes(void* dest, unsigned n, long long offset, unsigned& numRead, bool& eof,
                    LogBase* log);
    // Writes all n bytes at the current position (the end, for a file opened to append).
    bool writeBytes(const void* src, unsigned n, LogBase* log);

    // Moves the position as lseek(fd, delta, whence) would, and by lseek itself, so that a seek
    // is refused exactly where the file refuses it (past the file system's largest offset, from
    // the end of a file of /proc). A seek from the start to a negative offset is refused
    // without a call.
    bool seek(long long delta, int whence, LogBase* log);
    // Puts the position at `pos`, a place the caller knows the file accepts (where its own
    // reads have been): with a tracked position the descriptor is left alone until it is
    // needed. Only a negative or, untracked, a refused `pos` fails.
    bool setFilePointerAbsolute(long long pos, LogBase* log);
    // The current position; -1 on failure.
    long long ftell64(LogBase* log);
    // The file's size; -1 on failure.
    long long fileSize64(LogBase* log);
    // The size of a regular file; -1 for anything else and on failure (nothing logged).
    long long regularFileSize64();
    // Which file is held (device and inode); false on failure.
    bool fileId(FileId& out, LogBase* log);
    // Cuts or extends the file to size; the position does not move.
    bool truncate(long long size, LogBase* log);
    // Flushes the file's data to the device.
    bool flush(LogBase* log);

  private:
    // Puts the descriptor's offset at the tracked position (a no-op when it is there).
    bool place(LogBase* log);

    int m_fd = -1;
    bool m_tracked = false;
    // With a tracked position: the position, and whether the descriptor's offset equals it.
    long long m_pos = 0;
    bool m_placed = true;
};
