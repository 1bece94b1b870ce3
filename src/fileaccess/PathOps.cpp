// Files and directories named by path: existence, type, copy, rename, delete, directory
// creation and removal, symbolic links and temporary names.
//
// Each public method is its frame plus one step below. The steps add only the few log lines
// and result conventions of their own; every reason for a failure is written by the
// file-system layer into the same context of the object's log.
#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/DirAutoCreate.h"
#include "foundation/fs/FileMatchingSpec.h"
#include "foundation/fs/FileSys.h"

namespace {

// The layer's answer, unchanged: a path whose existence could not be checked reads as
// absent here, and only FileExists3 tells that case apart.
bool fileExistsStep(const XString& path, LogBase& log) {
    const bool verbose = log.m_verboseLogging;
    if (verbose) log.LogDataX("path", path);
    bool unableToCheck = false;
    const bool exists = FileSys::fileExistsX(path, unableToCheck, &log);
    if (verbose) {
        log.LogDataBool("retval", exists);
        log.LogDataBool("unableToCheck", unableToCheck);
    }
    return exists;
}

// 1 exists, 0 absent, -1 could not be checked (whatever the layer answered besides).
int fileExists3Step(const XString& path, LogBase& log) {
    log.LogDataX("path", path);
    bool unableToCheck = false;
    const bool exists = FileSys::fileExistsX(path, unableToCheck, &log);
    const int result = unableToCheck ? -1 : (exists ? 1 : 0);
    log.LogDataLong("retval", result);
    return result;
}

bool fileCopyStep(const XString& from, const XString& to, bool failIfExists, LogBase& log) {
    log.LogDataX("FromFile", from);
    log.LogDataX("ToFile", to);
    const bool ok = FileSys::copyFileX(from, to, failIfExists, &log);
    if (!ok) log.LogError("Failed to copy file");
    return ok;
}

bool dirEnsureExistsStep(const XString& dir, LogBase& log) {
    if (log.m_verboseLogging) log.LogDataX("dirPath", dir);
    return ::DirAutoCreate::ensureDirUtf8(dir.getUtf8(), log);
}

// Creates the directories that lead to the file; the file itself is left alone.
bool dirAutoCreateStep(const XString& filePath, LogBase& log) {
    StringBuffer scratch;
    return ::DirAutoCreate::ensureFileUtf8(filePath.getUtf8(), scratch, log);
}

bool treeDeleteStep(const XString& dir, LogBase& log) {
    FileMatchingSpec everything;
    return FileSys::deleteTreeUtf8(dir.getUtf8(), everything, log);
}

// Only a real link is read: asking with links not followed keeps a file or directory that a
// link points at from being mistaken for the link.
bool symlinkTargetStep(const XString& linkPath, XString& target, LogBase& log) {
    target.clear();
    if (FileSys::filePathType(linkPath, true, log) != PathType::Symlink) {
        log.LogError("Not a symbolic link");
        log.LogDataX("linkPath", linkPath);
        return false;
    }
    return FileSys::symlinkTarget(linkPath, target, log);
}

}  // namespace

bool ClsFileAccess::FileExists(XString& path) {
    StandardFrame f(*this, "FileExists");
    return fileExistsStep(path, f.log());
}

int ClsFileAccess::FileExists3(XString& path) {
    StandardFrame f(*this, "FileExists3");
    return fileExists3Step(path, f.log());
}

bool ClsFileAccess::FileDelete(XString& path) {
    StandardFrame f(*this, "FileDelete");
    return FileSys::deleteFileUtf8(path.getUtf8(), &f.log());
}

bool ClsFileAccess::FileCopy(XString& from, XString& to, bool failIfExists) {
    StandardFrame f(*this, "FileCopy");
    return fileCopyStep(from, to, failIfExists, f.log());
}

bool ClsFileAccess::FileRename(XString& from, XString& to) {
    StandardFrame f(*this, "FileRename");
    return FileSys::moveFileX(from, to, &f.log());
}

bool ClsFileAccess::DirCreate(XString& dir) {
    StandardFrame f(*this, "DirCreate");
    return FileSys::createDir(dir, &f.log());
}

bool ClsFileAccess::DirEnsureExists(XString& dir) {
    StandardFrame f(*this, "DirEnsureExists");
    return f.result(dirEnsureExistsStep(dir, f.log()));
}

bool ClsFileAccess::DirAutoCreate(XString& filePath) {
    StandardFrame f(*this, "DirAutoCreate");
    return f.result(dirAutoCreateStep(filePath, f.log()));
}

bool ClsFileAccess::DirDelete(XString& dir) {
    StandardFrame f(*this, "DirDelete");
    return FileSys::deleteDir(dir, &f.log());
}

bool ClsFileAccess::TreeDelete(XString& dir) {
    ObjectFrame f(*this, "TreeDelete");
    return f.result(treeDeleteStep(dir, f.log()));
}

int ClsFileAccess::FileType(XString& path) {
    StandardFrame f(*this, "FileType");
    return FileSys::filePathType(path, false, f.log());
}

// For other library code: touches nothing of the object, so it needs no lock.
int ClsFileAccess::fileType(XString& path, bool noFollowLinks, LogBase& log) {
    return FileSys::filePathType(path, noFollowLinks, log);
}

bool ClsFileAccess::SymlinkTarget(XString& linkPath, XString& target) {
    StandardFrame f(*this, "SymlinkTarget");
    return symlinkTargetStep(linkPath, target, f.log());
}

bool ClsFileAccess::SymlinkCreate(XString& target, XString& linkPath) {
    StandardFrame f(*this, "SymlinkCreate");
    return FileSys::symlinkCreate(target, linkPath, f.log());
}

bool ClsFileAccess::GetTempFilename(XString& dir, XString& prefix, XString& out) {
    StandardFrame f(*this, "GetTempFilename");
    return FileSys::GetTemporaryFilename(dir, prefix, out, f.log());
}
