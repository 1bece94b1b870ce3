// Sizes and time stamps of files named by path.
//
// Sizes report failure as 0 (FileSize, FileSize64), so an empty file and a missing one give
// the same number; FileSizeStr and the log tell them apart. Time stamps leave as a new
// date-time object owned by the caller and enter as date-time objects that are only read,
// always in UTC.
#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/FileSys.h"
#include "foundation/fs/FileTime.h"

namespace {

int fileSize32Step(const XString& path, LogBase& log) {
    bool ok = false;
    const int size = FileSys::fileSizeUtf8_32(path.getUtf8(), &log, ok);
    return ok ? size : 0;
}

long long fileSize64Step(const XString& path, LogBase& log) {
    bool ok = false;
    const long long size = FileSys::fileSizeUtf8_64(path.getUtf8(), &log, ok);
    return ok ? size : 0;
}

bool fileSizeStrStep(const XString& path, XString& out, LogBase& log) {
    out.clear();
    bool ok = false;
    const long long size = FileSys::fileSizeUtf8_64(path.getUtf8(), &log, ok);
    if (!ok) return false;
    out.appendInt64(size);
    return true;
}

// which: 1 last access, 2 creation, anything else last modification.
bool readTimeStamp(const XString& path, int which, OrvaneFileTime& out, LogBase& log) {
    switch (which) {
        case 1:
            return FileSys::GetFileLastAccessGmt(path, out, &log);
        case 2:
            return FileSys::GetFileCreateTimeGmt(path, out, &log);
        default:
            return FileSys::GetFileLastModTimeGmt(path, out, &log);
    }
}

// A new date-time object holding the selected time stamp, or null.
ClsDateTime* fileTimeStep(const XString& path, int which, LogBase& log) {
    OrvaneFileTime stamp;
    if (!readTimeStamp(path, which, stamp, log)) return nullptr;
    ClsDateTime* result = ClsDateTime::createNewCls();
    if (!result) return nullptr;
    OrvaneSysTime utc;
    stamp.toSystemTime_gmt(utc);
    result->setFromOrvaneSysTime(utc);
    return result;
}

// Every value is logged before anything is set, so a failed set still shows what was asked.
bool setFileTimesStep(const XString& path, ClsDateTime& create, ClsDateTime& access,
                      ClsDateTime& mod, LogBase& log) {
    log.LogDataX("path", path);
    create.getOrvaneSysTime()->logSysTime("createTime", log);
    access.getOrvaneSysTime()->logSysTime("lastAccessTime", log);
    mod.getOrvaneSysTime()->logSysTime("lastModTime", log);
    OrvaneFileTime createFt, accessFt, modFt;
    create.toOrvaneFileTimeUtc(createFt);
    access.toOrvaneFileTimeUtc(accessFt);
    mod.toOrvaneFileTimeUtc(modFt);
    return FileSys::setFileTimeGmt_3(path, createFt, accessFt, modFt, &log);
}

bool setLastModifiedStep(const XString& path, ClsDateTime& mod, LogBase& log) {
    log.LogDataX("path", path);
    mod.getOrvaneSysTime()->logSysTime("lastModifiedTime", log);
    OrvaneFileTime modFt;
    mod.toOrvaneFileTimeUtc(modFt);
    return FileSys::setFileTimeGmt(path, modFt, &log);
}

}  // namespace

int ClsFileAccess::FileSize(XString& path) {
    StandardFrame f(*this, "FileSize");
    return fileSize32Step(path, f.log());
}

long long ClsFileAccess::FileSize64(XString& path) {
    StandardFrame f(*this, "FileSize64");
    return fileSize64Step(path, f.log());
}

bool ClsFileAccess::FileSizeStr(XString& path, XString& out) {
    StandardFrame f(*this, "FileSizeStr");
    return fileSizeStrStep(path, out, f.log());
}

ClsDateTime* ClsFileAccess::GetFileTime(XString& path, int which) {
    ObjectFrame f(*this, "GetFileTime");
    ClsDateTime* result = fileTimeStep(path, which, f.log());
    f.result(result != nullptr);
    return result;
}

ClsDateTime* ClsFileAccess::GetLastModified(XString& path) {
    ObjectFrame f(*this, "GetLastModified");
    ClsDateTime* result = fileTimeStep(path, 0, f.log());
    f.result(result != nullptr);
    return result;
}

bool ClsFileAccess::SetFileTimes(XString& path, ClsDateTime& createTime,
                                 ClsDateTime& lastAccessTime, ClsDateTime& lastModTime) {
    OlderFrame f(*this, "SetFileTimes");
    return f.result(setFileTimesStep(path, createTime, lastAccessTime, lastModTime, f.log()));
}

bool ClsFileAccess::SetLastModified(XString& path, ClsDateTime& lastModifiedTime) {
    OlderFrame f(*this, "SetLastModified");
    return f.result(setLastModifiedStep(path, lastModifiedTime, f.log()));
}
