// FileSys::deleteTreeUtf8: removal of a directory tree that never follows a symbolic link.
//
// Every step works relative to a descriptor of a directory already opened inside the tree
// (openat/unlinkat/fstatat), and every directory is opened with O_NOFOLLOW | O_DIRECTORY. A
// link found in the tree, or put there while the tree is being removed, is unlinked as a
// link; nothing it points to is touched.
#include <cerrno>
#include <string>
#include <vector>

#include "foundation/fs/FileSys.h"
#include "foundation/fs/FsInternal.h"

namespace {

constexpr int kDirOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// A tree that keeps gaining entries while it is removed is given up on after this many
// passes over one directory.
constexpr int kMaxPasses = 4;

class TreeRemover {
public:
    TreeRemover(LogBase& log, const char* root) : m_log(log), m_root(root) {}

    // Empties the directory open as dirfd (which this call closes).
    bool emptyDir(int dirfd) {
        bool ok = true;
        for (int pass = 0; pass < kMaxPasses; ++pass) {
            std::vector<std::string> names;
            if (!listNames(dirfd, names)) {
                ok = false;
                break;
            }
            if (names.empty()) break;
            for (const std::string& name : names) ok = removeEntry(dirfd, name) && ok;
            if (!ok) break;
        }
        fsi::closeFd(dirfd);
        return ok;
    }

private:
    // Names of the directory's entries except "." and "..".
    bool listNames(int dirfd, std::vector<std::string>& names) {
        // fdopendir takes over the descriptor it is given, so it gets a fresh one of the same
        // directory (read from its start); dirfd stays usable for the unlinkat calls.
        int dupfd;
        do {
            dupfd = sysCalls().openat(dirfd, ".", kDirOpenFlags, 0);
        } while (dupfd < 0 && errno == EINTR);
        if (dupfd < 0) return fail("openat", errno);
        DIR* d = sysCalls().fdopendir(dupfd);
        if (!d) {
            int err = errno;
            fsi::closeFd(dupfd);
            return fail("fdopendir", err);
        }
        errno = 0;
        while (struct dirent* e = sysCalls().readdir(d)) {
            std::string name = e->d_name;
            if (name != "." && name != "..") names.push_back(std::move(name));
            errno = 0;
        }
        int err = errno;
        sysCalls().closedir(d);
        return err == 0 ? true : fail("readdir", err);
    }

    bool removeEntry(int dirfd, const std::string& name) {
        struct stat st;
        if (sysCalls().fstatat(dirfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT ? true : fail("fstatat", errno, name);
        if (S_ISDIR(st.st_mode)) return removeSubdir(dirfd, name);
        if (sysCalls().unlinkat(dirfd, name.c_str(), 0) == 0 || errno == ENOENT) return true;
        // Replaced by a directory since the fstatat: treat it as one.
        if (errno == EISDIR || errno == EPERM) return removeSubdir(dirfd, name);
        return fail("unlinkat", errno, name);
    }

    bool removeSubdir(int dirfd, const std::string& name) {
        int sub;
        do {
            sub = sysCalls().openat(dirfd, name.c_str(), kDirOpenFlags, 0);
        } while (sub < 0 && errno == EINTR);
        if (sub < 0) {
            if (errno == ENOENT) return true;
            // Now a link or a file (the tree changed): remove the entry itself.
            if (errno == ELOOP || errno == ENOTDIR) {
                if (sysCalls().unlinkat(dirfd, name.c_str(), 0) == 0 || errno == ENOENT)
                    return true;
            }
            return fail("openat", errno, name);
        }
        if (!emptyDir(sub)) return false;
        if (sysCalls().unlinkat(dirfd, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT)
            return true;
        return fail("unlinkat", errno, name);
    }

    bool fail(const char* op, int err, const std::string& name = std::string()) {
        // Only the first failure is reported; later ones usually follow from it.
        if (!m_logged) {
            std::string where = m_root;
            if (!name.empty()) where += " (entry " + name + ")";
            fsi::logSysFailure(&m_log, op, where.c_str(), err);
            m_logged = true;
        }
        return false;
    }

    LogBase& m_log;
    std::string m_root;
    bool m_logged = false;
};

}  // namespace

bool FileSys::deleteTreeUtf8(const char* dir, FileMatchingSpec& spec, LogBase& log) {
    (void)spec;  // the default spec matches every entry
    const char* path = dir ? dir : "";
    struct stat st;
    if (sysCalls().lstat(path, &st) != 0) {
        fsi::logSysFailure(&log, "lstat", path, errno);
        return false;
    }
    // A link given as the tree is removed as the link; what it points to stays.
    if (!S_ISDIR(st.st_mode)) {
        if (S_ISLNK(st.st_mode) && sysCalls().unlink(path) == 0) return true;
        fsi::logSysFailure(&log, S_ISLNK(st.st_mode) ? "unlink" : "deleteTree", path,
                           S_ISLNK(st.st_mode) ? errno : ENOTDIR);
        return false;
    }
    int fd = fsi::openRetry(path, kDirOpenFlags, 0);
    if (fd < 0) {
        fsi::logSysFailure(&log, "open", path, errno);
        return false;
    }
    TreeRemover remover(log, path);
    if (!remover.emptyDir(fd)) return false;
    if (sysCalls().rmdir(path) == 0) return true;
    fsi::logSysFailure(&log, "rmdir", path, errno);
    return false;
}
