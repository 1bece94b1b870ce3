#include "foundation/fs/SysCalls.h"

#include <sys/file.h>
#if defined(__linux__) || defined(__APPLE__)
#include <sys/xattr.h>
#define FA_HAVE_XATTR 1
#endif
#if defined(__APPLE__)
#include <stdio.h>
#include <sys/attr.h>
#endif

#include <cerrno>
#include <cstdio>

namespace {

// Thin adapters where the C declaration differs from the table's entry (variadic open,
// platforms without a kernel copy).
int realOpen(const char* path, int flags, mode_t mode) {
    return ::open(path, flags, mode);
}
int realOpenat(int dirfd, const char* path, int flags, mode_t mode) {
    return ::openat(dirfd, path, flags, mode);
}
ssize_t realCopyFileRange(int in, off_t* inOff, int out, off_t* outOff, size_t n, unsigned flags) {
#if defined(__linux__)
    return ::copy_file_range(in, inOff, out, outOff, n, flags);
#else
    (void)in, (void)inOff, (void)out, (void)outOff, (void)n, (void)flags;
    errno = ENOSYS;
    return -1;
#endif
}

int realFcntl(int fd, int cmd, int arg) {
    return ::fcntl(fd, cmd, arg);
}

int realRenameNoReplace(const char* from, const char* to) {
#if defined(__linux__) && defined(RENAME_NOREPLACE)
    return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
#elif defined(__APPLE__)
    return ::renamex_np(from, to, RENAME_EXCL);
#else
    (void)from, (void)to;
    errno = ENOSYS;
    return -1;
#endif
}

int realStartWriteBack(int fd, off_t offset, off_t n) {
#if defined(__linux__) && defined(SYNC_FILE_RANGE_WRITE)
    return ::sync_file_range(fd, offset, n, SYNC_FILE_RANGE_WRITE);
#else
    (void)fd, (void)offset, (void)n;
    errno = ENOSYS;
    return -1;
#endif
}

// Apple's extended-attribute calls take a position (for resource forks only) and options;
// on a descriptor neither applies.
ssize_t realFlistxattr(int fd, char* names, size_t size) {
#if defined(__APPLE__)
    return ::flistxattr(fd, names, size, 0);
#elif defined(FA_HAVE_XATTR)
    return ::flistxattr(fd, names, size);
#else
    (void)fd, (void)names, (void)size;
    errno = ENOTSUP;
    return -1;
#endif
}

ssize_t realFgetxattr(int fd, const char* name, void* value, size_t size) {
#if defined(__APPLE__)
    return ::fgetxattr(fd, name, value, size, 0, 0);
#elif defined(FA_HAVE_XATTR)
    return ::fgetxattr(fd, name, value, size);
#else
    (void)fd, (void)name, (void)value, (void)size;
    errno = ENOTSUP;
    return -1;
#endif
}

int realFsetxattr(int fd, const char* name, const void* value, size_t size, int flags) {
#if defined(__APPLE__)
    return ::fsetxattr(fd, name, value, size, 0, flags);
#elif defined(FA_HAVE_XATTR)
    return ::fsetxattr(fd, name, value, size, flags);
#else
    (void)fd, (void)name, (void)value, (void)size, (void)flags;
    errno = ENOTSUP;
    return -1;
#endif
}

int realFremovexattr(int fd, const char* name) {
#if defined(__APPLE__)
    return ::fremovexattr(fd, name, 0);
#elif defined(FA_HAVE_XATTR)
    return ::fremovexattr(fd, name);
#else
    (void)fd, (void)name;
    errno = ENOTSUP;
    return -1;
#endif
}

#if defined(__APPLE__)
// The declaration's last parameter is unsigned int on 64-bit and unsigned long elsewhere.
int realSetattrlist(const char* path, void* list, void* buf, size_t size, unsigned options) {
    return ::setattrlist(path, list, buf, size, options);
}
#endif

SysCalls makeReal() {
    SysCalls t{};
    t.open = realOpen;
    t.openat = realOpenat;
    t.close = ::close;
    t.read = ::read;
    t.pread = ::pread;
    t.write = ::write;
    t.lseek = ::lseek;
    t.fstat = ::fstat;
    t.stat = ::stat;
    t.lstat = ::lstat;
    t.fstatat = ::fstatat;
    t.ftruncate = ::ftruncate;
    t.fsync = ::fsync;
    t.rename = ::rename;
    t.unlink = ::unlink;
    t.unlinkat = ::unlinkat;
    t.mkdir = ::mkdir;
    t.rmdir = ::rmdir;
    t.symlink = ::symlink;
    t.readlink = ::readlink;
    t.fchmod = ::fchmod;
    t.fchown = ::fchown;
    t.fcntl = realFcntl;
    t.futimens = ::futimens;
    t.link = ::link;
    t.startWriteBack = realStartWriteBack;
    t.renameNoReplace = realRenameNoReplace;
    t.flock = ::flock;
    t.utimensat = ::utimensat;
    t.copy_file_range = realCopyFileRange;
    t.flistxattr = realFlistxattr;
    t.fgetxattr = realFgetxattr;
    t.fsetxattr = realFsetxattr;
    t.fremovexattr = realFremovexattr;
    t.fdopendir = ::fdopendir;
    t.readdir = ::readdir;
    t.closedir = ::closedir;
    t.chdir = ::chdir;
    t.getcwd = ::getcwd;
#if defined(__linux__) && defined(STATX_BTIME)
    t.statx = ::statx;
#endif
#if defined(__APPLE__)
    t.setattrlist = realSetattrlist;
#endif
    return t;
}

}  // namespace

// Function-local statics, so that code running during static initialisation finds the table
// filled in.
SysCalls& sysCalls() {
    static SysCalls current = makeReal();
    return current;
}

const SysCalls& realSysCalls() {
    static const SysCalls real = makeReal();
    return real;
}
