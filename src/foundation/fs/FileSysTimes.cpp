// FileSys: time stamps and symbolic links.
#if defined(__APPLE__)
#include <sys/attr.h>
#endif

#include <cerrno>
#include <string>

#include "foundation/base/LogBase.h"
#include "foundation/fs/FileSys.h"
#include "foundation/fs/FsInternal.h"

namespace {

bool statFollow(const XString& path, struct stat& st, LogBase* log) {
    if (sysCalls().stat(path.getUtf8(), &st) == 0) return true;
    fsi::logSysFailure(log, "stat", path.getUtf8(), errno);
    return false;
}

bool validTime(const OrvaneFileTime& t) { return t.nanoseconds() < 1000000000u; }

struct timespec toTimespec(const OrvaneFileTime& t) {
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(t.seconds());
    ts.tv_nsec = static_cast<long>(t.nanoseconds());
    return ts;
}

bool setTimes(const XString& path, const struct timespec times[2], LogBase* log) {
    if (sysCalls().utimensat(AT_FDCWD, path.getUtf8(), times, 0) == 0) return true;
    fsi::logSysFailure(log, "utimensat", path.getUtf8(), errno);
    return false;
}

// The creation time (following links, as the other setters do). Where the platform offers no
// call for it, or the file system keeps no creation time, it is skipped with an information
// line: the other times are still set.
bool setCreateTime(const XString& path, const OrvaneFileTime& create, LogBase* log) {
#if defined(__APPLE__)
    struct attrlist attrs {};
    attrs.bitmapcount = ATTR_BIT_MAP_COUNT;
    attrs.commonattr = ATTR_CMN_CRTIME;
    struct timespec ts = toTimespec(create);
    if (sysCalls().setattrlist(path.getUtf8(), &attrs, &ts, sizeof ts, 0) == 0) return true;
    if (errno != ENOTSUP && errno != EINVAL) {
        fsi::logSysFailure(log, "setattrlist", path.getUtf8(), errno);
        return false;
    }
    if (log) log->LogInfo("This file system keeps no creation time; it is left as it is.");
    return true;
#else
    // POSIX offers no call that sets a birth time; the kernel sets it when the file is made.
    (void)path, (void)create;
    if (log) log->LogInfo("The creation time cannot be set on this system; it is left as it is.");
    return true;
#endif
}

}  // namespace

bool FileSys::GetFileCreateTimeGmt(const XString& path, OrvaneFileTime& out, LogBase* log) {
#if defined(__linux__) && defined(STATX_BTIME)
    struct statx sx;
    if (sysCalls().statx(AT_FDCWD, path.getUtf8(), 0, STATX_BTIME, &sx) != 0) {
        fsi::logSysFailure(log, "statx", path.getUtf8(), errno);
        return false;
    }
    if (!(sx.stx_mask & STATX_BTIME)) {
        fsi::logFailure(log, "creation time of", path.getUtf8(),
                        "the file system does not record when a file was created");
        return false;
    }
    out.set(sx.stx_btime.tv_sec, sx.stx_btime.tv_nsec);
    return true;
#elif defined(__APPLE__)
    struct stat st;
    if (!statFollow(path, st, log)) return false;
    out.set(st.st_birthtimespec.tv_sec, static_cast<uint32_t>(st.st_birthtimespec.tv_nsec));
    return true;
#else
    (void)out;
    fsi::logFailure(log, "creation time of", path.getUtf8(),
                    "this system does not report when a file was created");
    return false;
#endif
}

// Reads one of the stat time stamps (following links) into out.
static bool statTime(const XString& path, OrvaneFileTime& out, LogBase* log,
                     struct timespec (*pick)(const struct stat&)) {
    struct stat st;
    if (!statFollow(path, st, log)) return false;
    struct timespec ts = pick(st);
    out.set(ts.tv_sec, static_cast<uint32_t>(ts.tv_nsec));
    return true;
}

bool FileSys::GetFileLastAccessGmt(const XString& path, OrvaneFileTime& out, LogBase* log) {
    return statTime(path, out, log, fsi::statAccessTime);
}

bool FileSys::GetFileLastModTimeGmt(const XString& path, OrvaneFileTime& out, LogBase* log) {
    return statTime(path, out, log, fsi::statModTime);
}

bool FileSys::setFileTimeGmt(const XString& path, const OrvaneFileTime& lastMod, LogBase* log) {
    if (!validTime(lastMod)) {
        fsi::logSysFailure(log, "utimensat", path.getUtf8(), EINVAL);
        return false;
    }
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1] = toTimespec(lastMod);
    return setTimes(path, times, log);
}

bool FileSys::setFileTimeGmt_3(const XString& path, const OrvaneFileTime& create,
                               const OrvaneFileTime& lastAccess, const OrvaneFileTime& lastMod,
                               LogBase* log) {
    if (!validTime(create) || !validTime(lastAccess) || !validTime(lastMod)) {
        fsi::logSysFailure(log, "utimensat", path.getUtf8(), EINVAL);
        return false;
    }
    struct timespec times[2] = {toTimespec(lastAccess), toTimespec(lastMod)};
    // The creation time last: some file systems move it back when a modification time
    // before it is set.
    return setTimes(path, times, log) && setCreateTime(path, create, log);
}

bool FileSys::symlinkTarget(const XString& link, XString& out, LogBase& log) {
    std::string target;
    if (!fsi::readLink(link.getUtf8(), target)) {
        fsi::logSysFailure(&log, "readlink", link.getUtf8(), errno);
        return false;
    }
    out.appendUtf8(target.c_str());
    return true;
}

bool FileSys::symlinkCreate(const XString& target, const XString& linkPath, LogBase& log) {
    if (sysCalls().symlink(target.getUtf8(), linkPath.getUtf8()) == 0) return true;
    fsi::logSysFailure(&log, "symlink", linkPath.getUtf8(), errno);
    return false;
}
