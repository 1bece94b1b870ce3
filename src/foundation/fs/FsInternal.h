// Helpers shared by the sources of the file-system layer (not part of its interface).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "foundation/fs/SysCalls.h"

class LogBase;

namespace fsi {

// The one way the layer reports a failed system call: a single error line naming the
// operation, the path (when there is one) and the system's reason for err. Nothing for a
// null log.
void logSysFailure(LogBase* log, const char* op, const char* path, int err);
// A failure that has no errno behind it, in the same form.
void logFailure(LogBase* log, const char* op, const char* path, const char* reason);

// The system's text for err.
std::string errnoText(int err);

// open() through the table, repeated while interrupted. O_CLOEXEC is always added.
int openRetry(const char* path, int flags, mode_t mode);
// close() through the table; the descriptor is gone afterwards whatever the result.
int closeFd(int fd);
// fsync / ftruncate / flock, repeated while interrupted.
int fsyncRetry(int fd);
int ftruncateRetry(int fd, off_t len);
int flockRetry(int fd, int op);

// Flushes fd's data to the device: fsync, and on Apple platforms F_FULLFSYNC, which also
// empties the drive's own cache (fsync there stops at the drive).
int flushToDevice(int fd);

// --- regular files only ---
// What a file of this mode is, as a phrase for messages ("a FIFO", "a directory", ...).
const char* kindOfFile(mode_t mode);
// Logs that `path` is no regular file but what `mode` says it is.
void logNotRegular(LogBase* log, const char* op, const char* path, mode_t mode);
// Opens a regular file for content work: refuses anything else before opening it, never
// blocks (O_NONBLOCK, which has no effect on the reads and writes of a regular file), never
// makes a terminal the controlling one, and checks the type again on the open descriptor.
// Anything but a regular file is refused with a line naming its kind. Returns the descriptor with
// st filled, or -1 (logged, errno set).
int openRegular(const char* path, int flags, mode_t mode, struct stat& st, const char* op,
                LogBase* log);

// Same device and inode.
inline bool sameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Writes all n bytes to fd at its position, over EINTR and partial writes. False with errno
// set on failure (a write that makes no progress counts as ENOSPC).
bool writeAll(int fd, const void* p, size_t n);
// Reads up to n bytes from fd at its position, over EINTR and short reads, stopping only at
// the end of the file. Returns the count, or -1 with errno set; then `before`, when given, is
// set to the bytes that came before the error (fd's offset has moved past them).
long long readFull(int fd, void* p, size_t n, size_t* before = nullptr);
// As readFull, from offset off; fd's own offset does not move.
long long preadFull(int fd, void* p, size_t n, long long off, size_t* before = nullptr);

// Copies everything from in's position to out's position, through the kernel where it can
// (copy_file_range) and with read and write where it cannot. copied receives the count.
// On failure errno is set and opName names the call that failed.
bool copyFdToFd(int in, int out, long long& copied, const char*& opName);

// Gives `to` the extended attributes of `from` (POSIX ACLs and security labels among them on
// Linux) and removes those `from` lacks. A file system without extended attributes counts as
// having none. On failure errno is set and failedOp names the call.
enum class AttributeCopy {
    Done,
    // Reading `from`'s attributes failed.
    ReadFailed,
    // `to` does not take them (not allowed, not supported there, no room).
    NotTaken,
};
AttributeCopy copyExtendedAttributes(int from, int to, const char*& failedOp);

// Creates a new file dir/prefix<random><suffix> with O_EXCL and the given mode, for reading
// and writing.
// Returns the descriptor (path in outPath), or -1 with errno set.
int createUniqueFile(const std::string& dir, const std::string& prefix, const char* suffix,
                     mode_t mode, std::string& outPath);
// Makes a new symbolic link dir/prefix<random><suffix> holding target; false (errno set)
// when none could be made.
bool createUniqueSymlink(const std::string& dir, const std::string& prefix, const char* suffix,
                         const char* target, std::string& outPath);
// The prefix of a hidden scratch name beside `path` (".<name>."), cut at a character
// boundary so that prefix + 12 random characters + a suffix of up to 4 bytes fit within the
// 255 bytes a name may have: every file that can be opened can get a scratch sibling.
std::string scratchPrefixFor(const std::string& path);

// rename that never replaces `to` (EEXIST instead). Uses the kernel's exclusive rename, and
// where the file system has none a hard link and an unlink; false with errno set.
bool renameNoReplace(const char* from, const char* to);

// The text of the symbolic link at path, whatever its length; false with errno set.
bool readLink(const char* path, std::string& out);

// The directory part of a path for creating a sibling file ("." when there is none).
std::string parentDirOf(const std::string& path);

// Time stamps out of struct stat, whatever the platform calls them.
struct timespec statAccessTime(const struct stat& st);
struct timespec statModTime(const struct stat& st);

}  // namespace fsi
