// FileSys::deleteTreeUtf8: removal of a directory tree that never follows a symbolic link
// and keeps a fixed number of descriptors open however deep the tree is.
//
// The walk holds one directory open at a time (plus the root's parent, and briefly the
// listing of the current one). It goes down by openat(O_NOFOLLOW | O_DIRECTORY) from the
// directory it holds, so a link found or swapped in on the way is never entered: it is
// unlinked as a link. It comes back up by openat(".."), and goes on only if the directory
// reached is, by device and inode, the one it came down from; a directory moved away while
// it was being emptied therefore stops the walk instead of leading it out of the tree. Each
// emptied directory, the root included, is removed through its parent's descriptor once the
// name there still stands for the directory that was emptied.
#include <cerrno>
#include <string>
#include <vector>

#include "foundation/fs/FileSys.h"
#include "foundation/fs/FsInternal.h"

namespace {

constexpr int kDirOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// The root's parent is only searched and written, never listed: a directory that may not be
// read (a drop box, mode 0300) must do, as it does for rm. Linux opens it for the *at calls
// alone; elsewhere O_SEARCH does that where the platform has it.
#if defined(O_PATH)
constexpr int kParentOpenFlags = O_PATH | O_DIRECTORY;
#elif defined(O_SEARCH)
constexpr int kParentOpenFlags = O_SEARCH | O_DIRECTORY;
#else
constexpr int kParentOpenFlags = O_RDONLY | O_DIRECTORY;
#endif
// A directory that keeps gaining entries while it is removed is given up on after this many
// listings.
constexpr int kMaxPasses = 4;

int openDirAt(int dirfd, const char* name) {
    int fd;
    do {
        fd = sysCalls().openat(dirfd, name, kDirOpenFlags, 0);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Whether a listed name is "." or "..", which every listing holds and no walk takes.
bool isDotEntry(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Splits the root path into its parent and last part, with trailing separators dropped.
// Refuses (reason set) the root directory and a last part of "." or "..", as rm does.
bool splitRoot(const std::string& path, std::string& parent, std::string& name,
               const char*& reason) {
    std::string p = path;
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    if (p == "/") {
        reason = "refusing to remove the root directory";
        return false;
    }
    const size_t slash = p.rfind('/');
    name = slash == std::string::npos ? p : p.substr(slash + 1);
    if (name == "." || name == "..") {
        reason = "refusing to remove a path whose last part is \".\" or \"..\"";
        return false;
    }
    parent = slash == std::string::npos ? "." : (slash == 0 ? "/" : p.substr(0, slash));
    return true;
}

class TreeRemover {
  public:
    TreeRemover(LogBase& log, const char* root) : m_log(log), m_root(root) {}

    bool run() {
        std::string parentPath, name;
        const char* reason = nullptr;
        if (!splitRoot(m_root, parentPath, name, reason)) return failWith(reason);
        m_parent = OrvaneHandle(fsi::openRetry(parentPath.c_str(), kParentOpenFlags, 0));
        if (!m_parent.isHandleOpen()) {
            fsi::logSysFailure(&m_log, "open", parentPath.c_str(), errno);
            return false;
        }
        struct stat st;
        if (sysCalls().fstatat(m_parent.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            return fail("lstat", errno);
        if (!S_ISDIR(st.st_mode)) {
            // A link given as the tree is removed as the link; what it points to stays.
            if (!S_ISLNK(st.st_mode)) return fail("deleteTree", ENOTDIR);
            if (sysCalls().unlinkat(m_parent.fd(), name.c_str(), 0) == 0) return true;
            return fail("unlink", errno);
        }
        OrvaneHandle top(openDirAt(m_parent.fd(), name.c_str()));
        if (!top.isHandleOpen()) return fail("open", errno);
        struct stat opened;
        if (sysCalls().fstat(top.fd(), &opened) != 0) return fail("fstat", errno);
        if (!fsi::sameFile(st, opened)) return failWith("the directory was replaced meanwhile");
        // The root directory under another name (a bind mount, say).
        m_haveRootDir = sysCalls().stat("/", &m_rootDir) == 0;
        if (isRootDir(opened)) return failWith("refusing to remove the root directory");
        m_levels.emplace_back(name, opened);
        m_cur = std::move(top);
        return walk();
    }

  private:
    struct Level {
        Level(std::string n, const struct stat& st) : name(std::move(n)), id(st) {}
        std::string name;                  // in the parent directory
        struct stat id;                    // what was opened under that name
        std::vector<std::string> subdirs;  // listed, not yet entered
        bool listed = false;
        int passes = 0;
    };

    // Empties and removes the directory of each level, deepest first, until the root is gone.
    bool walk() {
        while (!m_levels.empty()) {
            Level& level = m_levels.back();
            if (!level.listed) {
                if (++level.passes > kMaxPasses)
                    return failWith("a directory kept gaining entries while it was removed");
                if (!listAndUnlink(level.subdirs)) return false;
                level.listed = true;
            }
            if (!level.subdirs.empty()) {
                std::string sub = std::move(level.subdirs.back());
                level.subdirs.pop_back();
                if (!enter(sub)) return false;
                continue;
            }
            if (!leave()) return false;
        }
        return true;
    }

    // Unlinks every entry of the current directory that is not a directory, and lists the
    // subdirectories to be entered later (each entry once, whatever the depth: the listing
    // is closed before anything is entered).
    bool listAndUnlink(std::vector<std::string>& subdirs) {
        // fdopendir takes over the descriptor it is given, so it gets a fresh one (read from
        // the start); the current one stays for the unlinkat calls.
        int listFd = openDirAt(m_cur.fd(), ".");
        if (listFd < 0) return fail("openat", errno);
        DIR* d = sysCalls().fdopendir(listFd);
        if (!d) {
            int err = errno;
            fsi::closeFd(listFd);
            return fail("fdopendir", err);
        }
        bool ok = true;
        errno = 0;
        while (struct dirent* e = sysCalls().readdir(d)) {
            const char* name = e->d_name;
            if (isDotEntry(name)) {
                errno = 0;
                continue;
            }
            if (!removeEntry(name, e->d_type, subdirs)) {
                ok = false;
                break;
            }
            errno = 0;
        }
        int err = errno;
        sysCalls().closedir(d);
        if (ok && err != 0) return fail("readdir", err);
        return ok;
    }

    // unlinkat without AT_REMOVEDIR never follows a link and never touches a directory, so
    // anything not known to be a directory is simply unlinked; what turns out to be one is
    // kept for later.
    bool removeEntry(const char* name, unsigned char type, std::vector<std::string>& subdirs) {
        if (type != DT_DIR) {
            if (sysCalls().unlinkat(m_cur.fd(), name, 0) == 0 || errno == ENOENT) return true;
            // Linux answers EISDIR for a directory, Apple platforms EPERM.
            if (errno != EISDIR && errno != EPERM) return fail("unlinkat", errno, name);
            struct stat st;
            if (sysCalls().fstatat(m_cur.fd(), name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                return errno == ENOENT ? true : fail("fstatat", errno, name);
            if (!S_ISDIR(st.st_mode)) return fail("unlinkat", EPERM, name);
        }
        subdirs.emplace_back(name);
        return true;
    }

    // Makes the named subdirectory the current one. A link or file found there now (the
    // tree changed since the listing) is unlinked instead; one that is gone is skipped.
    bool enter(const std::string& name) {
        int fd = openDirAt(m_cur.fd(), name.c_str());
        if (fd < 0) {
            if (errno == ENOENT) return true;
            if (errno != ELOOP && errno != ENOTDIR) return fail("openat", errno, name);
            if (sysCalls().unlinkat(m_cur.fd(), name.c_str(), 0) == 0 || errno == ENOENT)
                return true;
            return fail("unlinkat", errno, name);
        }
        OrvaneHandle sub(fd);
        struct stat id;
        if (sysCalls().fstat(fd, &id) != 0) return fail("fstat", errno, name);
        // The root directory mounted inside the tree: nothing of it is removed.
        if (isRootDir(id))
            return failWith("refusing to remove the root directory, mounted in the tree as \"" +
                            name + "\"");
        m_levels.emplace_back(name, id);
        m_cur = std::move(sub);
        return true;
    }

    // The current directory is empty: goes up to its parent and removes it there. If it has
    // gained entries meanwhile, stays and lists it again.
    bool leave() {
        const Level& level = m_levels.back();
        OrvaneHandle up;
        int upFd = m_parent.fd();
        if (m_levels.size() > 1) {
            up = OrvaneHandle(openDirAt(m_cur.fd(), ".."));
            if (!up.isHandleOpen()) return fail("openat", errno, level.name + "/..");
            struct stat reached;
            if (sysCalls().fstat(up.fd(), &reached) != 0) return fail("fstat", errno, "..");
            if (!fsi::sameFile(reached, m_levels[m_levels.size() - 2].id))
                return failWith("a directory was moved out of the tree while it was removed");
            upFd = up.fd();
        }
        struct stat there;
        if (sysCalls().fstatat(upFd, level.name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) return fail("fstatat", errno, level.name);
        } else if (!fsi::sameFile(there, level.id)) {
            return failWith("a directory was replaced while it was removed");
        } else if (sysCalls().unlinkat(upFd, level.name.c_str(), AT_REMOVEDIR) != 0 &&
                   errno != ENOENT) {
            if (errno != ENOTEMPTY && errno != EEXIST) return fail("unlinkat", errno, level.name);
            m_levels.back().listed = false;
            return true;
        }
        m_levels.pop_back();
        if (m_levels.empty())
            m_cur.closeHandle();
        else
            m_cur = std::move(up);
        return true;
    }

    bool fail(const char* op, int err, const std::string& where = std::string()) {
        std::string what = m_root;
        if (!where.empty()) what += " (entry " + where + ")";
        fsi::logSysFailure(&m_log, op, what.c_str(), err);
        return false;
    }
    bool failWith(const std::string& reason) {
        fsi::logFailure(&m_log, "deleteTree", m_root.c_str(), reason.c_str());
        return false;
    }
    bool isRootDir(const struct stat& st) const {
        return m_haveRootDir && fsi::sameFile(st, m_rootDir);
    }

    LogBase& m_log;
    std::string m_root;
    OrvaneHandle m_parent;  // the root's parent, held for the whole walk
    OrvaneHandle m_cur;     // the directory being emptied
    std::vector<Level> m_levels;
    struct stat m_rootDir {};  // the file system's root, never to be removed or entered
    bool m_haveRootDir = false;
};

}  // namespace

bool FileSys::deleteTreeUtf8(const char* dir, FileMatchingSpec& spec, LogBase& log) {
    (void)spec;  // the default spec matches every entry
    return TreeRemover(log, dir ? dir : "").run();
}

bool FileSys::listDirUtf8(const char* dir, std::vector<std::string>& names, LogBase* log) {
    const char* path = dir ? dir : "";
    int fd = fsi::openRetry(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (fd < 0) {
        fsi::logSysFailure(log, "open", path, errno);
        return false;
    }
    DIR* d = sysCalls().fdopendir(fd);
    if (!d) {
        const int err = errno;
        fsi::closeFd(fd);
        fsi::logSysFailure(log, "fdopendir", path, err);
        return false;
    }
    std::vector<std::string> found;
    errno = 0;
    while (struct dirent* e = sysCalls().readdir(d)) {
        const char* name = e->d_name;
        if (!isDotEntry(name)) found.emplace_back(name);
        errno = 0;
    }
    const int err = errno;
    sysCalls().closedir(d);
    if (err != 0) {
        fsi::logSysFailure(log, "readdir", path, err);
        return false;
    }
    names = std::move(found);
    return true;
}
