// Careful replacement of a file's content, and moves between file systems.
#include "foundation/fs/FileReplace.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "foundation/base/LogBase.h"
#include "foundation/fs/FsInternal.h"
#include "foundation/fs/OrvaneHandle.h"

namespace fsi {

std::string followLinks(std::string path, bool& followed) {
    followed = false;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (sysCalls().lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) break;
        std::string next;
        if (!readLink(path.c_str(), next) || next.empty()) break;
        if (next[0] != '/') {
            std::string dir = parentDirOf(path);
            if (dir != ".") next = (dir == "/" ? dir : dir + "/") + next;
        }
        path = std::move(next);
        followed = true;
    }
    return path;
}

namespace {

// After a rename the new name must survive a crash too: flush the directory entry. A
// failure here no longer affects which content the file has, so it is not reported.
void syncDir(const std::string& dir) {
    int fd = openRetry(dir.c_str(), O_RDONLY | O_DIRECTORY, 0);
    if (fd < 0) return;
    fsyncRetry(fd);
    closeFd(fd);
}

// Where a backup goes when the file's own directory takes no new file.
std::string systemTempDir() {
    const char* tmp = std::getenv("TMPDIR");
    return (tmp && *tmp) ? tmp : "/tmp";
}

// The first failed step of a sequence: the call's name and its errno. Later steps are
// skipped once one has failed.
struct Failure {
    const char* op = nullptr;
    int err = 0;
    void set(const char* name) {
        if (op) return;
        op = name;
        err = errno;
    }
    explicit operator bool() const { return op != nullptr; }
};

// Closes the new file and gives it the final name; on any failure removes it again.
bool placeScratch(OrvaneHandle& scratch, const std::string& scratchPath, const char* to,
                  bool exclusive, Failure& f) {
    if (closeFd(scratch.release()) != 0) f.set("close");
    if (!f) {
        bool renamed = exclusive ? renameNoReplace(scratchPath.c_str(), to)
                                 : sysCalls().rename(scratchPath.c_str(), to) == 0;
        if (!renamed) f.set("rename");
    }
    if (!f) return true;
    sysCalls().unlink(scratchPath.c_str());
    return false;
}

class Replacement {
  public:
    Replacement(const ReplaceRequest& req, const ContentWriter& write, LogBase* log)
        : m_req(req), m_write(write), m_log(log) {}

    bool run() {
        struct stat st;
        if (m_req.failIfExists && sysCalls().lstat(m_req.path, &st) == 0) {
            m_target = m_req.path;
            return refuseExisting(st);
        }
        m_target = followLinks(m_req.path, m_followed);
        m_dir = parentDirOf(m_target);
        if (sysCalls().stat(m_target.c_str(), &st) != 0) {
            if (errno != ENOENT) return sysFail("stat", errno);
            if (m_followed && m_req.refuseDanglingLink)
                return fail("it is a symbolic link to a file that does not exist");
            return writeNewFile();
        }
        if (!openOldFile(st)) return false;
        // A rename would leave the other names with the old content.
        if (m_old.st_nlink > 1) return rewriteInPlace();
        return replaceByRename();
    }

  private:
    // Something is at a path that must be free: a special file is named for what it is, as
    // every other refusal of one does (a link is looked through for that).
    bool refuseExisting(const struct stat& found) {
        struct stat st = found;
        if (S_ISLNK(st.st_mode) && sysCalls().stat(m_req.path, &st) != 0) st = found;
        if (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode) || S_ISLNK(st.st_mode))
            return sysFail("create", EEXIST);
        return notRegular(st.st_mode);
    }

    // Checks what is at the path and opens it for writing, which is what decides whether
    // the caller may replace it.
    bool openOldFile(const struct stat& st) {
        if (S_ISDIR(st.st_mode)) return sysFail(m_req.op, EISDIR);
        if (!S_ISREG(st.st_mode)) return notRegular(st.st_mode);
        if (m_req.source && sameFile(*m_req.source, st))
            return fail("source and destination are the same file");
        const int flags = O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
        int fd = openRetry(m_target.c_str(), O_RDWR | flags, 0);
        // A file the caller may write but not read can still be replaced by a rename.
        if (fd < 0 && errno == EACCES) {
            fd = openRetry(m_target.c_str(), O_WRONLY | flags, 0);
            m_oldReadable = false;
        }
        if (fd < 0) return sysFail("open", errno);
        m_oldFd = OrvaneHandle(fd);
        if (sysCalls().fstat(fd, &m_old) != 0) return sysFail("fstat", errno);
        if (!S_ISREG(m_old.st_mode) || !sameFile(st, m_old))
            return fail("the file was replaced by another while it was being written");
        return true;
    }

    bool writeNewFile() {
        // Without a source the new file gets the usual permissions (narrowed by the umask);
        // a copy's file is private until it has the source's bits.
        int fd = createUniqueFile(m_dir, scratchPrefixFor(m_target), ".tmp",
                                  m_req.source ? 0600 : 0666, m_scratch);
        if (fd < 0) return sysFailAt("create a temporary file in", m_dir, errno);
        OrvaneHandle scratch(fd);
        Failure f;
        if (m_req.source && sysCalls().fchmod(fd, m_req.source->st_mode & 07777) != 0)
            f.set("fchmod");
        else
            fill(fd, -1, m_req.flushNewFile, f);
        if (!placeScratch(scratch, m_scratch, m_target.c_str(), m_req.failIfExists, f))
            return sysFail(f.op, f.err);
        if (m_req.flushNewFile) syncDir(m_dir);
        return true;
    }

    bool replaceByRename() {
        int fd = createUniqueFile(m_dir, scratchPrefixFor(m_target), ".tmp", 0600, m_scratch);
        if (fd < 0) {
            if (errno == EACCES || errno == EPERM) return rewriteInPlace();
            return sysFailAt("create a temporary file in", m_dir, errno);
        }
        OrvaneHandle scratch(fd);
        const mode_t mode = (m_req.source ? *m_req.source : m_old).st_mode & 07777;
        Failure f;
        const char* attrOp = nullptr;
        AttributeCopy attrs = AttributeCopy::Done;
        // The owner before the mode: a change of owner clears the set-user-ID and
        // set-group-ID bits, which the mode then sets again. The extended attributes (an
        // access ACL among them) come in between, so that a copy's mode goes over the old
        // file's ACL as chmod would put it there.
        if (sysCalls().fchown(fd, m_old.st_uid, m_old.st_gid) != 0) {
            if (errno == EPERM || errno == EINVAL) return abandonForInPlace(scratch);
            f.set("fchown");
        } else if ((attrs = copyExtendedAttributes(m_oldFd.fd(), fd, attrOp)) !=
                   AttributeCopy::Done) {
            if (attrs == AttributeCopy::NotTaken) return abandonForInPlace(scratch);
            f.set(attrOp);
        } else if (sysCalls().fchmod(fd, mode) != 0) {
            f.set("fchmod");
        } else {
            fill(fd, m_oldReadable ? m_oldFd.fd() : -1, true, f);
        }
        if (!placeScratch(scratch, m_scratch, m_target.c_str(), false, f))
            return sysFail(f.op, f.err);
        syncDir(m_dir);
        return true;
    }

    // The new file could not be made to match the old one: it goes, and the old one is
    // rewritten in place, which keeps all it has.
    bool abandonForInPlace(OrvaneHandle& scratch) {
        scratch.closeHandle();
        sysCalls().unlink(m_scratch.c_str());
        return rewriteInPlace();
    }

    // Owner, group, mode and every hard link stay as they are, since the file does. Its old
    // bytes go to a backup first, which is copied back if the rewrite fails.
    bool rewriteInPlace() {
        if (!m_oldReadable)
            return fail(
                "it must be rewritten in place, and its old content cannot be read to "
                "keep a copy of it meanwhile");
        OrvaneHandle backup(createBackup());
        if (!backup.isHandleOpen()) return false;
        const int old = m_oldFd.fd();
        Failure f;
        long long copied = 0;
        const char* copyOp = nullptr;
        if (!copyFdToFd(old, backup.fd(), copied, copyOp))
            f.set(copyOp);
        else if (flushToDevice(backup.fd()) != 0)
            f.set("fsync");
        if (f) {
            sysCalls().unlink(m_backup.c_str());
            return sysFail(f.op, f.err);
        }
        if (sysCalls().lseek(old, 0, SEEK_SET) < 0)
            f.set("lseek");
        else if (ftruncateRetry(old, 0) != 0)
            f.set("ftruncate");
        else
            fill(old, backup.fd(), true, f);
        // A copy takes the source's permission bits in place too, as the renamed copy does,
        // unless the caller may not set them (another's file), as cp leaves them then.
        if (!f && m_req.source && sysCalls().fchmod(old, m_req.source->st_mode & 07777) != 0 &&
            errno != EPERM)
            f.set("fchmod");
        if (!f) {
            sysCalls().unlink(m_backup.c_str());
            return true;
        }
        sysFail(f.op, f.err);
        if (!putBack(backup.fd())) {
            std::string where = "The old content is kept in \"" + m_backup + "\".";
            if (m_log) m_log->LogError(where.c_str());
            return false;
        }
        sysCalls().unlink(m_backup.c_str());
        if (m_log) m_log->LogInfo("The old content was put back.");
        return false;
    }

    int createBackup() {
        const std::string prefix = scratchPrefixFor(m_target);
        std::string where = m_dir;
        int fd = createUniqueFile(where, prefix, ".old", 0600, m_backup);
        if (fd < 0 && (errno == EACCES || errno == EPERM)) {
            where = systemTempDir();
            fd = createUniqueFile(where, prefix, ".old", 0600, m_backup);
        }
        if (fd < 0) sysFailAt("create a backup file in", where, errno);
        return fd;
    }

    bool putBack(int backup) {
        const int old = m_oldFd.fd();
        long long copied = 0;
        const char* op = nullptr;
        const bool back = sysCalls().lseek(backup, 0, SEEK_SET) == 0 &&
                          sysCalls().lseek(old, 0, SEEK_SET) == 0 && ftruncateRetry(old, 0) == 0 &&
                          copyFdToFd(backup, old, copied, op);
        // With its old bytes the file takes its old time stamps again, as if never rewritten.
        // They are only what a reader of the times sees: where they cannot be set, the content
        // is back all the same.
        if (back) {
            const struct timespec times[2] = {statAccessTime(m_old), statModTime(m_old)};
            sysCalls().futimens(old, times);
        }
        return back && flushToDevice(old) == 0;
    }

    void fill(int fd, int oldContent, bool flush, Failure& f) {
        const char* op = nullptr;
        if (!m_write(fd, oldContent, op))
            f.set(op ? op : "write");
        else if (flush && flushToDevice(fd) != 0)
            f.set("fsync");
    }

    // Lines name the path the caller passed and, where links were followed from it, the
    // file they led to.
    bool fail(const std::string& reason) { return failAs(m_req.op, reason); }
    bool sysFail(const char* op, int err) { return failAs(op, errnoText(err)); }
    bool failAs(const char* op, std::string line) {
        if (m_followed) line += " (the link leads to \"" + m_target + "\")";
        logFailure(m_log, op, m_req.path, line.c_str());
        return false;
    }
    bool notRegular(mode_t mode) {
        return fail(std::string("it is ") + kindOfFile(mode) + ", not a regular file");
    }
    bool sysFailAt(const char* op, const std::string& where, int err) {
        logSysFailure(m_log, op, where.c_str(), err);
        return false;
    }

    const ReplaceRequest& m_req;
    const ContentWriter& m_write;
    LogBase* m_log;
    std::string m_target, m_dir, m_scratch, m_backup;
    OrvaneHandle m_oldFd;
    struct stat m_old {};
    bool m_oldReadable = true;
    bool m_followed = false;  // m_target was reached through links from the path passed
};

// Gives a moved file's copy the original's extended attributes. Those the other file system
// does not take are left behind with a line saying so; false (errno set) only when the
// original's cannot be read (op names the call).
bool keepAttributesOnMove(int in, int out, const char* from, LogBase* log, const char*& op) {
    const AttributeCopy copied = copyExtendedAttributes(in, out, op);
    if (copied == AttributeCopy::ReadFailed) return false;
    if (copied == AttributeCopy::NotTaken && log) {
        const std::string line = std::string("The extended attributes of \"") + from +
                                 "\" are not kept at the new place: " + errnoText(errno) + ".";
        log->LogInfo(line.c_str());
    }
    return true;
}

// A regular file's copy beside `to`, with the source's mode, owner and times, renamed over it.
bool placeFileCopy(const char* from, const struct stat& src, const char* to, const std::string& dir,
                   LogBase* log) {
    struct stat st;
    OrvaneHandle in(openRegular(from, O_RDONLY | O_NOFOLLOW, 0, st, "move", log));
    if (!in.isHandleOpen()) return false;
    if (!sameFile(st, src)) {
        logFailure(log, "move", from, "the file was replaced by another while it was moved");
        return false;
    }
    std::string scratchPath;
    int fd = createUniqueFile(dir, scratchPrefixFor(to), ".tmp", 0600, scratchPath);
    if (fd < 0) {
        logSysFailure(log, "create a temporary file in", dir.c_str(), errno);
        return false;
    }
    OrvaneHandle scratch(fd);
    const struct timespec times[2] = {statAccessTime(st), statModTime(st)};
    Failure f;
    long long copied = 0;
    const char *copyOp = nullptr, *attrOp = nullptr;
    if (!copyFdToFd(in.fd(), fd, copied, copyOp)) f.set(copyOp);
    // A user may not give a file away; it then stays the mover's, as with mv.
    else if (sysCalls().fchown(fd, st.st_uid, st.st_gid) != 0 && errno != EPERM)
        f.set("fchown");
    // Extended attributes are kept where the other file system takes them, as mv does.
    else if (!keepAttributesOnMove(in.fd(), fd, from, log, attrOp))
        f.set(attrOp);
    else if (sysCalls().fchmod(fd, st.st_mode & 07777) != 0)
        f.set("fchmod");
    else if (sysCalls().futimens(fd, times) != 0)
        f.set("futimens");
    // The original goes once the copy is on the device, so a crash never loses both.
    else if (flushToDevice(fd) != 0)
        f.set("fsync");
    if (!placeScratch(scratch, scratchPath, to, false, f)) {
        logSysFailure(log, f.op, to, f.err);
        return false;
    }
    syncDir(dir);
    return true;
}

// A new link beside `to` with the same target text, renamed over it.
bool placeLinkCopy(const char* from, const char* to, const std::string& dir, LogBase* log) {
    std::string target, scratchPath;
    if (!readLink(from, target)) {
        logSysFailure(log, "readlink", from, errno);
        return false;
    }
    if (!createUniqueSymlink(dir, scratchPrefixFor(to), ".tmp", target.c_str(), scratchPath)) {
        logSysFailure(log, "symlink", to, errno);
        return false;
    }
    if (sysCalls().rename(scratchPath.c_str(), to) != 0) {
        int err = errno;
        sysCalls().unlink(scratchPath.c_str());
        logSysFailure(log, "rename", to, err);
        return false;
    }
    return true;
}

}  // namespace

bool replaceFileContent(const ReplaceRequest& req, const ContentWriter& write, LogBase* log) {
    return Replacement(req, write, log).run();
}

bool moveAcrossFileSystems(const char* from, const char* to, LogBase* log) {
    struct stat src;
    if (sysCalls().lstat(from, &src) != 0) {
        logSysFailure(log, "lstat", from, errno);
        return false;
    }
    if (S_ISDIR(src.st_mode)) {
        logFailure(log, "move", from,
                   "it is a directory, and directories are not moved to another file system");
        return false;
    }
    if (!S_ISREG(src.st_mode) && !S_ISLNK(src.st_mode)) {
        logNotRegular(log, "move", from, src.st_mode);
        return false;
    }
    // The destination is replaced as a name, as rename replaces it, but never a directory
    // and never a special file.
    struct stat dst;
    if (sysCalls().lstat(to, &dst) == 0) {
        if (S_ISDIR(dst.st_mode)) {
            logSysFailure(log, "rename", to, EISDIR);
            return false;
        }
        if (!S_ISREG(dst.st_mode) && !S_ISLNK(dst.st_mode)) {
            logNotRegular(log, "move", to, dst.st_mode);
            return false;
        }
    } else if (errno != ENOENT) {
        logSysFailure(log, "lstat", to, errno);
        return false;
    }
    const std::string dir = parentDirOf(to);
    const bool placed = S_ISLNK(src.st_mode) ? placeLinkCopy(from, to, dir, log)
                                             : placeFileCopy(from, src, to, dir, log);
    if (!placed) return false;
    if (sysCalls().unlink(from) == 0) return true;
    logSysFailure(log, "unlink", from, errno);
    if (log) log->LogError("The file was copied to its new place but is still at the old one.");
    return false;
}

}  // namespace fsi
