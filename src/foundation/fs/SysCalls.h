// Every system call the file-system layer makes goes through this table.
//
// Tests replace entries to make a chosen call fail with a chosen errno, come back short, or be
// interrupted, without privileges or a full disk. Production code never changes it. The
// table is a process-wide global: a test that replaces an entry restores it before it ends
// (SysCallOverride in tests/support does that) and must not run concurrently with other
// file-system work.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

struct SysCalls {
    int (*open)(const char* path, int flags, mode_t mode);
    int (*openat)(int dirfd, const char* path, int flags, mode_t mode);
    int (*close)(int fd);
    ssize_t (*read)(int fd, void* buf, size_t n);
    ssize_t (*pread)(int fd, void* buf, size_t n, off_t off);
    ssize_t (*write)(int fd, const void* buf, size_t n);
    off_t (*lseek)(int fd, off_t off, int whence);
    int (*fstat)(int fd, struct stat* st);
    int (*stat)(const char* path, struct stat* st);
    int (*lstat)(const char* path, struct stat* st);
    int (*fstatat)(int dirfd, const char* path, struct stat* st, int flags);
    int (*ftruncate)(int fd, off_t len);
    int (*fsync)(int fd);
    int (*rename)(const char* from, const char* to);
    int (*unlink)(const char* path);
    int (*unlinkat)(int dirfd, const char* path, int flags);
    int (*mkdir)(const char* path, mode_t mode);
    int (*rmdir)(const char* path);
    int (*symlink)(const char* target, const char* linkPath);
    ssize_t (*readlink)(const char* path, char* buf, size_t n);
    int (*fchmod)(int fd, mode_t mode);
    int (*fchown)(int fd, uid_t owner, gid_t group);
    // Only F_GETFL, F_SETFL and (Apple) F_FULLFSYNC are used, all with an int argument.
    int (*fcntl)(int fd, int cmd, int arg);
    int (*futimens)(int fd, const struct timespec times[2]);
    int (*link)(const char* from, const char* to);
    // Starts writing a range of a file's dirty pages to the device without waiting (Linux's
    // sync_file_range with SYNC_FILE_RANGE_WRITE); ENOSYS where the platform has no such call.
    int (*startWriteBack)(int fd, off_t offset, off_t n);
    // rename that fails with EEXIST instead of replacing `to`. Where the platform or the file
    // system has no such call it fails with ENOSYS or EINVAL, and callers fall back.
    int (*renameNoReplace)(const char* from, const char* to);
    int (*flock)(int fd, int op);
    int (*utimensat)(int dirfd, const char* path, const struct timespec times[2], int flags);
    // Kernel-side copy between files; where the platform has none the entry answers ENOSYS
    // and callers fall back to read and write.
    ssize_t (*copy_file_range)(int in, off_t* inOff, int out, off_t* outOff, size_t n,
                               unsigned flags);
    // Extended attributes of an open file, in Linux's form (POSIX ACLs are among them there).
    // Apple's calls take a position and options as well, which the table's adapters fill in;
    // where the platform has no such calls they answer ENOTSUP.
    ssize_t (*flistxattr)(int fd, char* names, size_t size);
    ssize_t (*fgetxattr)(int fd, const char* name, void* value, size_t size);
    int (*fsetxattr)(int fd, const char* name, const void* value, size_t size, int flags);
    int (*fremovexattr)(int fd, const char* name);
    DIR* (*fdopendir)(int fd);
    struct dirent* (*readdir)(DIR* dir);
    int (*closedir)(DIR* dir);
    int (*chdir)(const char* path);
    char* (*getcwd)(char* buf, size_t n);
    // Birth time and other extended attributes (Linux only; absent where the platform
    // keeps the birth time in struct stat).
#if defined(__linux__) && defined(STATX_BTIME)
    int (*statx)(int dirfd, const char* path, int flags, unsigned mask, struct statx* out);
#endif
#if defined(__APPLE__)
    // Sets attributes the POSIX calls cannot reach, the creation time among them.
    int (*setattrlist)(const char* path, void* attrList, void* attrBuf, size_t size,
                       unsigned options);
#endif
};

// The table in use. Starts out pointing at the real calls.
SysCalls& sysCalls();
// The real calls, for restoring entries and for wrappers that forward to them.
const SysCalls& realSysCalls();
