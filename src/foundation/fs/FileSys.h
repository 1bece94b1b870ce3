// Operations on files and directories named by path.
//
// Every operation reports failure only through its result (false, null, a negative size, an
// ok flag set false, the unableToCheck flag) and writes one line into the log it is given
// naming the operation, the path and the system's reason; nothing into a null log.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "foundation/base/LogBase.h"
#include "foundation/fs/FileId.h"
#include "foundation/fs/FileMatchingSpec.h"
#include "foundation/fs/FileTime.h"
#include "foundation/fs/OrvaneHandle.h"
#include "foundation/text/DataBuffer.h"
#include "foundation/text/XString.h"

// What a path names (filePathType).
namespace PathType {
constexpr int Unknown = -1;  // could not be determined (other than the path not existing)
constexpr int None = 0;
constexpr int File = 1;
constexpr int Directory = 2;
constexpr int Symlink = 3;  // only when links are not followed
constexpr int Other = 4;    // device, FIFO, socket
}  // namespace PathType

class FileSys {
  public:
    // --- existence and type ---
    // True when the path exists (a dangling link counts). unableToCheck is set true when
    // existence cannot be determined (e.g. EACCES on a parent); the answer is then false.
    static bool fileExistsX(const XString& path, bool& unableToCheck, LogBase* log);
    static bool fileExistsUtf8(const char* path, bool& unableToCheck, LogBase* log);
    // PathType code; with noFollowLinks true a symbolic link yields Symlink.
    static int filePathType(const XString& path, bool noFollowLinks, LogBase& log);

    // --- sizes (ok set on every call) ---
    // Fails on a file larger than 2,147,483,647 bytes, naming the 64-bit method in the log.
    static int fileSizeUtf8_32(const char* path, LogBase* log, bool& ok);
    static long long fileSizeUtf8_64(const char* path, LogBase* log, bool& ok);
    static long long fileSizeX_64(const XString& path, LogBase* log, bool& ok);
    // The size of a regular file (links followed). Anything else (directory, FIFO, socket,
    // device) fails with a line naming what it is: for callers that go on to read the file.
    static long long regularFileSizeX_64(const XString& path, LogBase* log, bool& ok);
    // What a content operation would reach at the path (links followed): true with exists
    // false when nothing is there, true with id set for a regular file; anything else fails
    // with a line naming what it is. Lets an operation that reads some files and writes
    // others check that no two of them are one file before it touches any.
    static bool regularFileId(const XString& path, bool& exists, FileId& id, LogBase* log);
    // True when the two paths, each after the symbolic links it ends in are followed, name one
    // entry of one directory (the directory compared by device and inode, the names as
    // bytes), whether or not a file is there yet: lets an operation that is about to create
    // one of them see that it would create the other. False as well when a directory cannot
    // be reached.
    static bool sameDirectoryEntry(const XString& a, const XString& b);

    // --- copy, move, delete ---
    // Copies a regular file. failIfExists true: fails when `to` exists. The bytes go to a new
    // file beside `to`, renamed over it only once whole, so a failure leaves an existing
    // `to` as it was and nothing new behind. A `to` that is a symbolic link stays one (the
    // bytes go to the file it names); an existing `to` keeps its owner, group and extended
    // attributes. The copy has the source's permission bits, also when it is made in place,
    // unless the caller may not set them on another's file. Special files are refused at
    // either end.
    static bool copyFileX(const XString& from, const XString& to, bool failIfExists, LogBase* log);
    // rename; between file systems a copy (see moveAcrossFileSystems in FileReplace.h)
    // that is complete and flushed before the original is removed. A symbolic link arrives
    // as a link with the same target text.
    static bool moveFileX(const XString& from, const XString& to, LogBase* log);
    static bool deleteFileUtf8(const char* path, LogBase* log);
    static bool createDir(const XString& dir, LogBase* log);
    static bool deleteDir(const XString& dir, LogBase* log);
    // Removes the directory and everything under it, never following a symbolic link: a
    // link, in the tree or given as the tree (trailing separators are dropped), is removed
    // as a link. Refuses the root directory however written and a path whose last part is
    // "." or "..", removing nothing, and stops at the root directory mounted inside the tree
    // without entering it. Keeps a handful of descriptors open whatever the depth,
    // climbing back up through ".." checked by device and inode, and removes the directory
    // itself through its parent once it has checked that it is still the one it emptied.
    static bool deleteTreeUtf8(const char* dir, FileMatchingSpec& spec, LogBase& log);

    // The names of the entries of a directory ("." and ".." left out), in the order the system
    // lists them; false (names unchanged) when it cannot be opened or read.
    static bool listDirUtf8(const char* dir, std::vector<std::string>& names, LogBase* log);

    // dir empty: TMPDIR, else /tmp. out = dir/prefix + unique part + ".tmp"; the file is
    // created empty, owner-only, before the call returns.
    static bool GetTemporaryFilename(const XString& dir, const XString& prefix, XString& out,
                                     LogBase& log);

    // --- whole files ---
    // Replaces a regular file atomically (new file in the same directory, flushed, renamed;
    // the old file's owner, group, extended attributes and permission bits kept), or in place
    // behind a backup where the owner or the attributes cannot be kept or the file has several
    // hard links (FileReplace.h).
    // Fails where an open of the old file for writing would. On failure the old file is as
    // it was and no temporary remains. Links are written through; special files refused.
    static bool writeFileUtf8(const char* path, const DataBuffer& data, LogBase* log);
    static bool writeFileUtf8(const char* path, const void* data, unsigned n, LogBase* log);
    // Rewrites a regular file through a filter, by writeFileUtf8's rules: `filter` gets the
    // old content piece by piece as the reads deliver it (`last` once, with the final piece,
    // which may be empty) and hands the new content to `emit`. A filter that returns false
    // (errno set) fails the rewrite and the file stays as it was. Memory stays at a few MiB.
    using Emit = std::function<bool(const unsigned char* bytes, size_t n)>;
    using Filter =
        std::function<bool(const unsigned char* piece, size_t n, bool last, const Emit& emit)>;
    static bool transformFileUtf8(const char* path, const Filter& filter, LogBase* log);
    // Writes a file whose content `produce` hands over piece by piece through `emit`, by
    // writeFileUtf8's rules, without the whole content in memory. A producer that returns
    // false (errno set) fails the write and an old file stays as it was.
    using Producer = std::function<bool(const Emit& emit)>;
    static bool writeFileStreamUtf8(const char* path, const Producer& produce, LogBase* log);
    // Writes all n bytes at the handle's position (n may be 0); false when no file is held.
    static bool writeToOpenFile(OrvaneHandle& h, const char* p, unsigned n, LogBase* log);
    // Reads the whole regular file into out (replacing its content) straight into its final
    // storage; false (out unchanged) on failure. Special files are refused without being
    // opened.
    static bool readFileUtf8(const char* path, DataBuffer& out, LogBase* log);

    // --- time stamps (UTC) ---
    static bool GetFileCreateTimeGmt(const XString& path, OrvaneFileTime& out, LogBase* log);
    static bool GetFileLastAccessGmt(const XString& path, OrvaneFileTime& out, LogBase* log);
    static bool GetFileLastModTimeGmt(const XString& path, OrvaneFileTime& out, LogBase* log);
    static bool setFileTimeGmt(const XString& path, const OrvaneFileTime& lastMod, LogBase* log);
    // Where the platform cannot set a creation time, that part is skipped with an
    // information line and the other two are still set.
    static bool setFileTimeGmt_3(const XString& path, const OrvaneFileTime& create,
                                 const OrvaneFileTime& lastAccess, const OrvaneFileTime& lastMod,
                                 LogBase* log);

    // --- symbolic links ---
    // out receives the link's target (appended to what it holds).
    static bool symlinkTarget(const XString& link, XString& out, LogBase& log);
    // Creates linkPath pointing at target (the order of POSIX symlink).
    static bool symlinkCreate(const XString& target, const XString& linkPath, LogBase& log);

    // --- opens: a new handle, or null with errorCode set (codes in OpenErrorCode.h) ---
    // Existing file, for reading.
    static OrvaneHandle* openForReadOnly(const XString& path, bool lockFile, bool unused,
                                         int& errorCode, LogBase* log);
    // Created or emptied, for writing only.
    static OrvaneHandle* openForWriteOnly(const XString& path, bool lockFile, bool unused,
                                          int& errorCode, LogBase* log);
    // Created if missing, content kept, for reading and writing.
    static OrvaneHandle* openForReadWrite(const XString& path, bool lockFile, bool unused,
                                          int& errorCode, LogBase* log);
    // Created if missing; every write goes to the end.
    static OrvaneHandle* openForAppend(const XString& path, bool lockFile, bool unused,
                                       int& errorCode, LogBase* log);

    // --- the process's standard descriptors ---
    // Opens /dev/null (for reading) on each of descriptors 0, 1 and 2 that is closed, so that
    // no file opened later takes its number and gets read as standard input or written with
    // what is printed; closed[i] tells whether descriptor i was closed. Reads of such a
    // descriptor then find nothing and writes fail (EBADF).
    static void occupyClosedStandardDescriptors(bool closed[3]);

    // --- the process's current directory ---
    static bool setCurrentDir(const XString& dir);
    static void getCurrentDir(XString& out);
};
