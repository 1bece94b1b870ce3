/// @file
/// The file-access object `ClsFileAccess`: files and directories for an application.
#pragma once

#include "foundation/base/Api.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "fileaccess/ShortcutInfo.h"
#include "foundation/base/ClsBase.h"
#include "foundation/base/ClsBinData.h"
#include "foundation/base/ClsStringBuilder.h"
#include "foundation/base/LogBase.h"
#include "foundation/fs/ClsDateTime.h"
#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"
#include "foundation/text/XString.h"

// Declared only: the file-system layer's handle and the record scan's markers stay out of the
// public headers.
class OrvaneHandle;
/// Internal parts of the record scan behind `ClsFileAccess::ReadNextFragment` and
/// `ClsFileAccess::ScanFragments`; not part of the interface.
namespace fragments {
class Markers;
}

/// Files and directories for an application: one current file, and operations by path.
///
/// An object keeps at most one file open at a time, its current file, opened in one of four
/// modes (`OpenForRead`, `OpenForWrite`, `OpenForReadWrite`, `OpenForAppend`) and read and
/// written at the position its handle keeps. With it the object keeps the end-of-file flag of
/// the last read (`get_EndOfFile`), the code and message of the last open attempt
/// (`get_FileOpenError`, `get_FileOpenErrorMsg`) and the offset at which the next record scan
/// starts (`ReadNextFragment`, `ScanFragments`). The operations on files and directories named
/// by path need no open file and leave all of that alone.
///
/// Every public method whose name begins with an upper-case letter runs in one frame: it holds
/// the object's lock for its whole run, clears the object's last-error log
/// (`get_LastErrorText`) and records in it this call's account alone: a context line named
/// after the method, the version line, the method's named values and error or information
/// lines (with those of the layers below it), and for many methods a final "Success." or
/// "Failed." line. The outcome is reported by the result only; the log tells why. Nothing is
/// thrown, except `std::bad_alloc` from a lower layer (the lock is then released). The members
/// that differ say so: six accessors take no lock and write no log, and
/// `get_FileOpenErrorMsg` takes the lock but writes no log.
///
/// Thread safety: an object may be shared between threads. Its calls are serialized by its
/// lock, so each call's log is its own until the next call on the object replaces it. The lock
/// is not recursive: code called back during a method (the `onFragment` callback of
/// `ScanFragments`) must not call methods of the same object. Argument objects (`ClsBinData`,
/// `ClsStringBuilder`, `ClsDateTime`) are used without their own locks; the caller must not
/// use them from another thread during the call.
///
/// Methods whose names begin with a lower-case letter are internal operations for other
/// library code: they take no lock, open no context and clear no log, and write into the log
/// they are given (or, where they take none, into the object's own log). Those that touch the
/// object's state need the caller to hold the object's lock (a `CritSecExitor` on the object)
/// for the whole call; `fileType`, `readShortcut` and `parseableShortcut` touch nothing of the
/// object and need no lock.
class FA_API ClsFileAccess : public ClsBase {
  public:
    /// An object with no current file. `get_EndOfFile` and `get_LockFileOnOpen` are false,
    /// `get_FileOpenError` 0, `get_FileOpenErrorMsg` empty and the record scan offset 0.
    ClsFileAccess();
    /// Closes the current file if one is still open. Takes no lock and logs nothing, so no other
    /// thread may be using the object.
    ~ClsFileAccess() override;
    /// A new object, or null when it cannot be made (nothing is thrown). The caller owns it and
    /// destroys it with `delete`.
    static ClsFileAccess* createNewCls();

    // ----- properties -----

    /// Replaces `out` with the process's current directory (empty when it cannot be had). Takes no
    /// lock and writes no log: it reads only the process setting.
    void get_CurrentDir(XString& out);
    /// Makes `dir` the current directory of the whole process (every thread and object sees it);
    /// true on success. Takes no lock and writes no log, so a failure's reason is not recorded.
    bool SetCurrentDir(XString& dir);
    /// The code of the last open attempt. 0 success (also on a new object and after `FileOpen`), 1
    /// EACCES/EPERM or a file locked by another holder, 2 ENOENT, 3 any reason not listed, 4
    /// EEXIST, 5 EISDIR (a directory, refused in every mode), 6 ELOOP, 7 EMFILE, 8 ENAMETOOLONG, 9
    /// ENFILE, 10 ENODEV/ENXIO, 11 ENOMEM, 12 ENOSPC, 13 ENOTDIR, 14 EOVERFLOW/EFBIG, 15 EROFS, 16
    /// ETXTBSY. Takes no lock (an atomic read): while an open runs on another thread, the code may
    /// not yet match `get_FileOpenErrorMsg`.
    int get_FileOpenError();
    /// Replaces `out` with the sentence for `get_FileOpenError`'s code. Every open sets it:
    /// "Success." for 0, "Access denied." for 1, "File not found." for 2, and so on (fixed wording
    /// that callers may compare against), "Unknown file open error." for a code outside 0 to 16;
    /// empty on a new object and after `FileOpen`. Takes the lock; writes no log.
    void get_FileOpenErrorMsg(XString& out);
    /// Whether the last read of the current file reached its end. True when that read delivered
    /// fewer bytes than it asked for, false when it delivered all of them (also when they were
    /// exactly the bytes left). Set by `FileRead`, `FileReadBd`, `fileReadDb`, the block reads and
    /// the record scans; cleared by `FileClose` and every open; seeks and writes leave it alone.
    /// Takes no lock (an atomic read).
    bool get_EndOfFile();
    /// Whether the opens also lock the file: an advisory, non-blocking `flock`, shared for
    /// `OpenForRead` and exclusive for the other modes. A file so locked by another holder then
    /// fails to open with code 1. False on a new object. Takes no lock (an atomic read).
    bool get_LockFileOnOpen();
    /// Sets `get_LockFileOnOpen` for the opens that follow; a file already open is not affected.
    /// Takes no lock (an atomic write).
    void put_LockFileOnOpen(bool value);

    // ----- opening and closing the current file -----

    /// Opens the existing file at `path` for reading, as the current file at position 0; true when
    /// it is open. Every open first closes the current file (so after a failure no file is open),
    /// clears `get_EndOfFile` and resets the record scan offset to 0, then sets `get_FileOpenError`
    /// and `get_FileOpenErrorMsg` to its outcome (0 and "Success." on success). On failure the log
    /// holds the layer's reason, such as `open "/no/such" failed: No such file or directory`, then
    /// "Failed.".
    bool OpenForRead(XString& path);
    /// As `OpenForRead`, but creates the file when missing or empties an existing one, and opens it
    /// for writing only (reads on it fail).
    bool OpenForWrite(XString& path);
    /// As `OpenForRead`, but creates the file when missing, keeps its content and opens it for
    /// reading and writing at position 0.
    bool OpenForReadWrite(XString& path);
    /// As `OpenForRead`, but creates the file when missing, keeps its content and opens it for
    /// writing only, every write going to the end of the file whatever the position.
    bool OpenForAppend(XString& path);
    /// A Windows-style open, which this platform does not have: always false. `accessMode`,
    /// `shareMode`, `createDisposition` and `attributes` would be the access, sharing, creation and
    /// attribute flags; none of them, nor `path`, is read. Like any open attempt it closes the
    /// current file, clears `get_EndOfFile` and resets the scan offset; it leaves
    /// `get_FileOpenError` 0 and `get_FileOpenErrorMsg` empty, and logs the error
    /// "Not implemented for Linux.".
    bool FileOpen(XString& path, uint64_t accessMode, uint64_t shareMode,
                  uint64_t createDisposition, uint64_t attributes);
    /// Closes the current file, if one is open, and clears `get_EndOfFile`. The open-error code and
    /// message, `get_LockFileOnOpen` and the record scan offset keep their values.
    void FileClose();
    /// Sets the `get_FileOpenErrorMsg` sentence from the current `get_FileOpenError` code, as the
    /// opens do. Internal: takes no lock and writes no log; the caller must hold the object's lock.
    void setLastFileOpenErrorStr();

    // ----- reading and writing the current file -----

    /// Empties `out`, then reads up to `count` bytes at the current position into it and moves the
    /// position past them. True also when the read comes up short: at the end of the file it
    /// returns true with the bytes that were left (none when the position was at the end) and sets
    /// `get_EndOfFile`. A `count` of 0 reads nothing and returns true, with the error line
    /// "Requested number of bytes is zero". False, with `out` empty, on a read error, when no file
    /// is open (`read failed: no file is open`) or the file was opened for writing only, or when
    /// room for `count` bytes cannot be reserved.
    bool FileRead(unsigned count, DataBuffer& out);
    /// As `FileRead`, but the bytes are appended to those `bd` already holds, which are kept on
    /// failure. `count` is taken as unsigned, so a negative count asks for more than 2 GiB.
    bool FileReadBd(int count, ClsBinData& bd);
    /// The read behind `FileRead` and `FileReadBd`, for other library code. Appends up to `count`
    /// bytes at the current position to `out` and sets the end-of-file flag, as `FileRead` does,
    /// writing its lines into `log`. On failure `out` keeps its prior bytes. Internal: takes no
    /// lock and opens no context; the caller must hold the object's lock.
    bool fileReadDb(unsigned count, DataBuffer& out, LogBase& log);
    /// Writes all of `data` at the current position (at the end of a file opened with
    /// `OpenForAppend`) and moves the position past it; true on success. False with the error
    /// "File not open" when no file is open, or with the layer's reason when the write fails (part
    /// of the bytes may have been written). Leaves `get_EndOfFile` alone.
    bool FileWrite(DataBuffer& data);
    /// The same as `FileWrite`; only the name of the log context differs.
    bool FileWrite2(DataBuffer& data);
    /// Writes `count` bytes of `bd` from byte `offset` on, as `FileWrite` writes. A negative
    /// `offset` counts as 0; a `count` of 0 or less, or one that reaches past the data, means the
    /// rest of the data from `offset`. False, with nothing written and no line of its own, when
    /// `offset` lies at or past the end of the data (always for an empty `bd`).
    bool FileWriteBd(ClsBinData& bd, int offset, int count);
    /// Writes `text` converted to the charset named `charset`, with no byte-order mark. It writes
    /// as `FileWrite` does: at the current position, which is the end only for a file opened with
    /// `OpenForAppend` (this holds for every Append method). A name the charset layer does not know
    /// means UTF-8. Text the charset cannot hold is not an error: it is written up to its first
    /// such character, and the result is the write's.
    bool AppendText(XString& text, XString& charset);
    /// As `AppendText`, in this platform's ANSI code page (Windows-1252).
    bool AppendAnsi(XString& text);
    /// As `AppendText`, for the text of `sb`; for UTF-8 the builder's own bytes are written.
    bool AppendSb(ClsStringBuilder& sb, XString& charset);
    /// Writes all the bytes of `bd` as `FileWrite` writes.
    bool AppendBd(ClsBinData& bd);
    /// Writes the UTF-8 byte-order mark EF BB BF as `FileWrite` writes, whatever the file already
    /// holds.
    bool AppendUtf8BOM();
    /// Writes the UTF-16 little-endian byte-order mark FF FE as `FileWrite` writes, whatever the
    /// file already holds.
    bool AppendUnicodeBOM();
    /// Moves the current position to `offset` bytes from the current position (`origin` 1), from
    /// the end of the file (2) or, for any other `origin`, from its start. False, with the layer's
    /// reason, when no file is open or the position would be negative. Leaves `get_EndOfFile`
    /// alone.
    bool FileSeek(int offset, int origin);
    /// Cuts the current file at the current position: the bytes from there to the end are removed
    /// and the position stays. False with the error "File not open" when no file is open, or with
    /// the layer's reason (a file opened only for reading cannot be cut).
    bool Truncate();
    /// The write behind `FileWrite` and the Append methods, for other library code. Writes all of
    /// `data` at the current position; its lines ("File not open", the layer's reasons) go into the
    /// object's own log. Internal: takes no lock and opens no context; the caller must hold the
    /// object's lock.
    bool fileWrite(const DataBuffer& data);
    /// As `fileWrite`, for the bytes of `text` without its terminating NUL.
    bool fileWriteSb(const StringBuffer& text);

    // ----- files and directories by path -----

    /// True when something exists at `path`; a symbolic link counts even when what it points to is
    /// gone. False when nothing is there, and also when existence cannot be checked (a parent
    /// directory that may not be searched, say): `FileExists3` tells those apart. With verbose
    /// logging, logs "path", "retval" and "unableToCheck".
    bool FileExists(XString& path);
    /// 1 when something exists at `path` (a dangling symbolic link included), 0 when nothing does,
    /// -1 when that cannot be determined (the reason is logged). Always logs "path" and "retval".
    int FileExists3(XString& path);
    /// Removes the file at `path` (a symbolic link itself, not what it points to); true on success.
    /// A directory or a missing path fails, with a line such as
    /// `unlink "/x" failed: No such file or directory`.
    bool FileDelete(XString& path);
    /// Copies the regular file `from` to `to`, which gets `from`'s permission bits (an existing
    /// `to` of another owner, which the caller may not change, keeps its own); with
    /// `failIfExists` true the copy fails when `to` exists. The bytes go to a new file beside `to`
    /// that replaces it only when complete, so a failure leaves an existing `to` as it was, and an
    /// existing `to` keeps its owner, group and extended attributes; a `to` that is a symbolic link
    /// stays one (the file it names gets the bytes). Special files are
    /// refused. Logs "FromFile" and "ToFile", and on failure the error "Failed to copy file" after
    /// the layer's reason.
    bool FileCopy(XString& from, XString& to, bool failIfExists);
    /// Renames `from` to `to`, replacing an existing `to` as POSIX `rename` does. Between file
    /// systems the data is copied, flushed and only then is `from` removed (a symbolic link arrives
    /// as a link with the same target). True on success.
    bool FileRename(XString& from, XString& to);
    /// Creates the directory `dir`, one level: its parent must exist. False, with the layer's
    /// reason, when it cannot, also when `dir` already exists (see `DirEnsureExists`).
    bool DirCreate(XString& dir);
    /// Makes sure the directory `dir` exists, creating it and any missing parents; true when it
    /// exists afterwards, also when it already did. Logs "dirPath" with verbose logging, and a
    /// success/failure line.
    bool DirEnsureExists(XString& dir);
    /// Creates the missing directories that lead to the file path `filePath` (all of it but its
    /// final part); the file itself is neither created nor touched. True when they exist
    /// afterwards. Ends with a success/failure line.
    bool DirAutoCreate(XString& filePath);
    /// Removes the empty directory `dir`; false, with the layer's reason, when it is not empty, not
    /// a directory or missing (see `TreeDelete`).
    bool DirDelete(XString& dir);
    /// Removes the directory `dir` with everything under it, never following a symbolic link: a
    /// link in the tree, or `dir` itself when it is one, is removed as a link. Refuses the root
    /// directory and a path whose last part is "." or "..", removing nothing, and stops at the root
    /// directory mounted inside the tree without entering it. True when all of it is gone. Ends
    /// with a success/failure line.
    bool TreeDelete(XString& dir);
    /// What `path` names, symbolic links followed. 0 nothing (a dangling link included), 1 a
    /// regular file, 2 a directory, 4 anything else (device, FIFO, socket), -1 when it cannot be
    /// determined (the reason is logged). Never 3; see `fileType`.
    int FileType(XString& path);
    /// `FileType` for other library code, answering 3 for a symbolic link when `noFollowLinks` is
    /// true; the reason for a -1 goes into `log`. Touches nothing of the object: takes no lock and
    /// needs none.
    int fileType(XString& path, bool noFollowLinks, LogBase& log);
    /// Replaces `target` with the text stored in the symbolic link `linkPath` (not resolved; it
    /// need not name anything). False, with `target` empty, when `linkPath` is no symbolic link
    /// (the error "Not a symbolic link", then "linkPath") or the link cannot be read.
    bool SymlinkTarget(XString& linkPath, XString& target);
    /// Creates the symbolic link `linkPath` holding `target` (which need not exist), in the order
    /// of POSIX `symlink`. False, with the layer's reason, when it cannot, also when `linkPath`
    /// exists.
    bool SymlinkCreate(XString& target, XString& linkPath);
    /// Creates a new empty file with a unique name and replaces `out` with its path. The file,
    /// readable and writable by its owner only, lies in `dir` and is named `prefix`, a random part
    /// and ".tmp"; an empty `dir` means `TMPDIR`, or /tmp when that is unset or empty. As the file
    /// exists before the call returns, no other process can take the name. On failure `out` is
    /// unchanged.
    bool GetTempFilename(XString& dir, XString& prefix, XString& out);

    // ----- sizes and time stamps -----

    /// The size in bytes of the file at `path` (symbolic links followed), or 0 on failure. It fails
    /// for a missing file, or one larger than 2,147,483,647 bytes (the log's line then names
    /// `FileSize64`). An empty file also gives 0; `FileSizeStr` tells the two apart.
    int FileSize(XString& path);
    /// As `FileSize`, as a 64-bit count: the size, or 0 when it cannot be had.
    long long FileSize64(XString& path);
    /// Replaces `out` with the size of the file at `path` in decimal digits; true on success, false
    /// with `out` empty when the size cannot be had.
    bool FileSizeStr(XString& path, XString& out);
    /// A new date-time object holding one time stamp of `path`, in UTC. For `which` 1 the last
    /// access, 2 the creation (birth) time, any other value the last modification. Null when the
    /// time stamp cannot be read or the object cannot be made. The caller owns the object and
    /// destroys it with `delete`. Ends with a success/failure line.
    ClsDateTime* GetFileTime(XString& path, int which);
    /// `GetFileTime` for the last-modification time: a new object that the caller owns and destroys
    /// with `delete`, or null.
    ClsDateTime* GetLastModified(XString& path);
    /// Sets the creation, last-access and last-modification times of `path` from the three objects,
    /// which are only read (as UTC). Where the platform cannot set a creation time that part is
    /// skipped with an information line and the other two are still set. Logs "path", "createTime",
    /// "lastAccessTime" and "lastModTime" before setting anything, and a success/failure line.
    bool SetFileTimes(XString& path, ClsDateTime& createTime, ClsDateTime& lastAccessTime,
                      ClsDateTime& lastModTime);
    /// Sets the last-modification time of `path` from `lastModifiedTime`, which is only read (as
    /// UTC). Logs "path" and "lastModifiedTime" before setting it, and a success/failure line.
    bool SetLastModified(XString& path, ClsDateTime& lastModifiedTime);

    // ----- whole-file reads and writes -----

    /// Replaces `out` with the whole content of the regular file at `path`; true on success. On
    /// failure `out` is unchanged and the log holds the layer's reason; anything but a regular file
    /// (directory, FIFO, device) is refused without being opened.
    bool ReadEntireFile(XString& path, DataBuffer& out);
    /// Makes the file at `path` hold exactly the bytes of `data`, creating it when missing (missing
    /// directories are not created). An existing file keeps its owner, group, permission bits and
    /// extended attributes, and a failed write leaves it as it was; special files are refused.
    bool WriteEntireFile(XString& path, DataBuffer& data);
    /// Replaces `out` with the text of the file at `path` decoded from the charset named `charset`.
    /// A leading byte-order mark of that charset is dropped; a mark of another charset is taken as
    /// part of the text. True when the file was read: an unknown charset name, or bytes not valid
    /// in the charset, leave `out` empty with true. False, with `out` empty, when the file cannot
    /// be read. Ends with a success/failure line.
    bool ReadEntireTextFile(XString& path, XString& charset, XString& out);
    /// Writes `text` as `WriteEntireFile` writes bytes, encoded in the charset named `charset`
    /// (UTF-8 for a name the charset layer does not know). With `includePreamble` the charset's
    /// byte-order mark comes first: EF BB BF for UTF-8, FF FE for UTF-16LE, FE FF for UTF-16BE, FF
    /// FE 00 00 for UTF-32LE, 00 00 FE FF for UTF-32BE, none for any other. Text the charset cannot
    /// hold is written up to its first such character; the result tells only whether the file was
    /// written. Logs "filename", "charset", "includePreamble" (1 or 0) and "numOutputBytes"; no
    /// success/failure line.
    bool WriteEntireTextFile(XString& path, XString& text, XString& charset, bool includePreamble);

    // ----- path names -----

    /// Replaces `out` with the final part of `path`: what follows its last "/" (the whole path when
    /// it has none, empty when it ends in "/"). Always true; the disk is not touched.
    bool GetFileName(XString& path, XString& out);
    /// Replaces `out` with the directory part of `path`. That is what precedes its last "/",
    /// without a trailing "/" except for the root ("/a/b/c.txt" gives "/a/b", "/c.txt" gives "/",
    /// "c.txt" gives ""). Always true; the disk is not touched.
    bool GetDirectoryName(XString& path, XString& out);
    /// Replaces `out` with the extension of the final part of `path`. That is the text from its
    /// last "." on, the "." included ("a.tar.gz" gives ".gz", ".profile" gives ".profile", "notes."
    /// gives "."). A final part without "." is returned whole ("README" gives "README"), not as an
    /// empty string. Always true; the disk is not touched.
    bool GetExtension(XString& path, XString& out);
    /// Replaces `out` with the final part of `path` without its extension. That is the text before
    /// its last "." ("a.tar.gz" gives "a.tar", ".profile" gives ""); a final part without "." is
    /// returned whole. With `GetExtension` it gives back the final part. Always true; the disk is
    /// not touched.
    bool GetFileNameWithoutExtension(XString& path, XString& out);

    // ----- numbered blocks of the current file -----

    /// The number of `blockSize`-byte blocks of the current file. That is its size divided by
    /// `blockSize`, rounded up (0 for an empty file), given as the low 32 bits of the count. -1
    /// with the error "Invalid blockSize (0 or negative)", "No file is open." or
    /// "Unable to get file size.".
    int GetNumBlocks(int blockSize);
    /// Replaces `out` with block `blockIndex` of the current file. The block is the `blockSize`
    /// bytes from byte `blockIndex` * `blockSize` (a 64-bit position), fewer for the last block.
    /// True when the whole block was read; the position then stands just past it and
    /// `get_EndOfFile` is false. False, with `out` empty, after the first failed check:
    /// "blockIndex cannot be negative.", "Invalid blockSize (0 or negative)", "No file is open.",
    /// "Unable to get file size.", "Position beyond end of file.", "Unable to set file pointer"
    /// (with "pos64" and "sz64"), "Failed to allocate memory.", or a failed read. A file that
    /// shrank under the read gives false with "Did not read the entire block." and `out` holding
    /// the bytes that were read.
    bool ReadBlock(int blockIndex, int blockSize, DataBuffer& out);
    /// As `ReadBlock`, into `bd`, which is not emptied first. A whole or short read replaces its
    /// bytes with those read, a failed check leaves them unchanged, and a failed read leaves their
    /// count unchanged but not necessarily the bytes themselves.
    bool ReadBlockBd(int blockIndex, int blockSize, ClsBinData& bd);
    /// The block read behind `ReadBlock` and `ReadBlockBd`, for other library code. It reads as
    /// `ReadBlockBd`, into `out`, with its lines going into `log`. Internal: takes no lock and
    /// opens no context; the caller must hold the object's lock (the read moves the current file's
    /// position and sets its end-of-file flag).
    bool readBlockDb(int blockIndex, int blockSize, DataBuffer& out, LogBase& log);

    // ----- whole-file algorithms -----

    /// Cuts the file at `path` into part files of `partSize` bytes (the last holds the rest) in the
    /// existing directory `destDir`. Part n (1, 2, ... in decimal) is named `prefix`, n, ".",
    /// `extension`, where `prefix` is trimmed of white space and `extension` loses one leading "."
    /// and is then trimmed: "bin" and ".bin" both give "part1.bin", an empty extension "part1.";
    /// existing part files are replaced. True when every part was written; an empty file makes no
    /// part and gives true. False when the input cannot be read, `partSize` is below 1
    /// ("The part size must be at least 1 byte."), a part path names the input itself or no regular
    /// file (nothing is written then), or a part cannot be created ("Failed to open output file.")
    /// or written; parts written before stay. Logs the arguments, "bufSize", "fileSize", for each
    /// part "outputFile", "nextPartPath" and "numBytesWritten", and a success/failure line.
    bool SplitFile(XString& path, XString& prefix, XString& extension, int partSize,
                   XString& destDir);
    /// Joins the part files in `srcDirPath` into `outFilePath`, which is created or emptied. The
    /// parts are named as `SplitFile` names them with `prefix` and `splitExtension`, and are joined
    /// from part 1 up to the first missing number. True when part 1 exists and every part was
    /// copied. False when part 1 is missing (the output is then left empty), a part is no regular
    /// file or is the output itself, or the output does not exist yet and would be made where
    /// the first missing part belongs, joining the set (error "The output file is part file ...";
    /// all checked before the output is touched, nothing created then), or the output cannot be
    /// created or a copy fails. Logs the four arguments and a success/failure line.
    bool ReassembleFile(XString& srcDirPath, XString& prefix, XString& splitExtension,
                        XString& outFilePath);
    /// True when the files at `path1` and `path2` are regular files of the same size holding the
    /// same bytes. False when they differ and when they cannot be compared (missing, no regular
    /// file, a read error, a size that changed during the comparison); the log tells which: the
    /// information line "File sizes are different.", an error line such as
    /// "Failed to read more from file 1 source." or "A file changed size during the comparison.",
    /// or nothing of its own for differing bytes. Logs "path1" and "path2"; no success/failure
    /// line.
    bool FileContentsEqual(XString& path1, XString& path2);
    /// Replaces every occurrence of `str1` by `str2` in the file at `path` and returns how many
    /// were replaced (0 or more), or -1 on failure. Both strings are converted to the file's
    /// encoding and replaced as bytes, left to right and without overlap. The encoding is the
    /// charset named `charset` (UTF-8 for a name the charset layer does not know), unless the file
    /// has at least 4 bytes and begins with FF FE (UTF-16LE), FE FF (UTF-16BE) or 00 00 FE FF
    /// (UTF-32BE); the mark stays in the file. A file without an occurrence is not rewritten, nor
    /// one that no longer holds one when the rewrite reads it (another writer at work; 0);
    /// otherwise a failed rewrite leaves it as it was, and it keeps its owner, group, mode and
    /// extended attributes. -1 also for an empty `str1` ("str1 is empty."), a string the encoding
    /// cannot hold ("Unable to get str1 in specified charset.", likewise for str2) and more than
    /// 2,147,483,647 occurrences (the file left as it was). Logs "n" (the count of every
    /// occurrence in the file, also when the rewrite fails, or -1) after the rewrite's own lines,
    /// and a success/failure line, except when the file cannot be read at all.
    int ReplaceStrings(XString& path, XString& charset, XString& str1, XString& str2);
    /// Empties `out`, then makes the identifier of block `index` in it. The identifier is the index
    /// in decimal, left-filled with "0" to exactly `length` characters (the zeros go before a minus
    /// sign: -5 with length 4 gives "00-5"), encoded in the encoding named `encoding` (hex, base16,
    /// hexlower, base64, base64url, base32, url, quoted-printable or qp, ascii; any case). False,
    /// with `out` empty, when the digits need more than `length` characters, `length` is below 1,
    /// or the encoding is unknown or gives nothing; the log then holds "index", "length",
    /// "encoding" and the error "Failed.".
    bool GenBlockId(int index, int length, XString& encoding, XString& out);
    /// Replaces `out` with the bytes of the file at `path` as text in the encoding named
    /// `encoding`. Names are as for `GenBlockId`; the text is what one encoding of the whole file
    /// gives. True when the file was read: an unknown encoding, or text that would pass 4 GiB,
    /// leaves `out` empty with true, and for "ascii" the text ends before the file's first NUL
    /// byte. False, with `out` empty, when the file cannot be read, or when the memory for the
    /// text cannot be had ("Memory allocation failed."). Logs "fileSize" after a complete read,
    /// and a success/failure line.
    bool ReadBinaryToEncoded(XString& path, XString& encoding, XString& out);

    // ----- records between markers; shortcut files -----

    /// Finds the next record of the current file and appends its text to `sb`. A record is the
    /// bytes from the first byte of a begin marker through the last byte of the next end marker,
    /// the markers matched as their bytes in the charset named `charset` and the record decoded
    /// from it. The scan starts at the record scan offset (0 on a new object, after every open and
    /// with `startAtBeginning`; `FileClose` keeps it), which then moves just past the record. A
    /// begin marker that starts with "<" and ends with ">" also matches with its ">" replaced by a
    /// space, tab, CR or LF (a tag with attributes), though within one 65,536-byte chunk the exact
    /// form found anywhere wins. The end marker is sought from the begin marker's second byte on.
    /// Returns 1 when a record was found (appended unless its bytes cannot be decoded); 0 when no
    /// complete record is left, with the information "Did not find the next begin marker." or
    /// "Found begin marker, but hit EOF before finding the end marker." and the offset unchanged,
    /// so a record completed later is found then; -1 on an error: an empty marker
    /// ("beginMarker and/or endMarker is empty."), no file open or an offset out of reach
    /// ("Unable to set file pointer to scanning start point."), a marker the charset cannot hold or
    /// of 65,536 bytes or more, a failed read. `sb` is changed only with 1. The call moves the file
    /// position and sets `get_EndOfFile` to whether its last chunk reached the end of the file.
    /// With verbose logging the arguments and steps are logged; no success/failure line. A record
    /// longer than a chunk is gathered, then appended (in UTF-8) without a second copy of it.
    int ReadNextFragment(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                         XString& charset, ClsStringBuilder& sb);
    /// Hands `onFragment` the records that `ReadNextFragment` would return, many per call. They are
    /// exactly the records that successive `ReadNextFragment` calls (the first with
    /// `startAtBeginning`) would append to fresh builders, and the call leaves the scan offset, the
    /// end-of-file flag and the file position as those calls would. Stops after `maxCount` records
    /// (no limit when 0 or less), after a record for which `onFragment` returns false, or where the
    /// next call would return 0 or -1. Returns the number of records handed over, or -1 when the
    /// calls would have ended with -1, with the same checks and error lines (records handed over
    /// before stay handed over). An empty `onFragment` is refused first, with -1 and the error
    /// "onFragment is empty.", leaving the offset, flag and position as they were. The text passed
    /// is valid during the call only. `onFragment` runs under the object's lock and must not call
    /// methods of this object; an exception it throws reaches the caller. With verbose logging the
    /// arguments are logged once and "numFragments" at the end; no success/failure line.
    ///
    /// The file is read in large blocks, up to 512 KiB ahead of the record handed over, so that a
    /// record costs no system call. A change made to the file while the call runs (by `onFragment`
    /// through another object, or by anyone else) is seen as single calls would see it where it
    /// lies beyond what has been read ahead: bytes appended, a cut beyond that part. Before the
    /// call answers that no record is left, and before it hands over the `maxCount`-th record when
    /// the 65,536-byte chunk that record ends in reaches the end of the file, it checks the file's
    /// size and, when that changed, reads again from the record's start. A change inside the part
    /// already read ahead is not seen until the scan reaches the end of that part: records are
    /// handed over as the file held them when it was read, and a call that `onFragment` stops on a
    /// record whose chunk reaches the end of the file leaves the end-of-file flag and position of
    /// the size the file had when that chunk was read.
    ///
    /// Memory: the 512 KiB window, and a record longer than a chunk once. In UTF-8 the bytes of
    /// such a record become the text handed over without a second copy; in another charset its
    /// bytes and its decoded text are held together while it is decoded (about the bytes plus
    /// twice the text).
    int ScanFragments(bool startAtBeginning, int maxCount, XString& beginMarker, XString& endMarker,
                      XString& charset,
                      const std::function<bool(const XString& fragment)>& onFragment);
    /// Reads the strings of the Windows shortcut (.lnk) file at `path` into `info`. Trailing white
    /// space of `path` is dropped and ".lnk" appended when it does not end in it. Each of the five
    /// strings the file carries is stored in its field, and fields of strings it lacks keep what
    /// the caller put in them. True when the walk reaches the end of the extra data (a terminal
    /// block, or 500 blocks). False when the file cannot be loaded (the loader's line) or a
    /// structure runs past the end of the file ("failPoint", the number of the failed read, is
    /// logged; fields read before it stay set). Uses nothing of the object: takes no lock and
    /// writes only into `log`.
    static bool readShortcut(XString& path, _ovShortcutInfo& info, LogBase& log);
    /// True when the file at `path` (named as for `readShortcut`) is a shortcut that `readShortcut`
    /// can walk to its end. That needs at most 100,000 bytes, a header size of 76, and every
    /// structure within the file; its strings are stepped over, not decoded. A file that is
    /// missing, too large or has another header size gives false with nothing logged; a structure
    /// that runs past the end gives false with "failPoint". Uses nothing of the object: takes no
    /// lock and writes only into `log`.
    static bool parseableShortcut(XString& path, LogBase& log);

  private:
    // Private steps of the methods above, by subsystem, go here.

    // --- the current file: opening, closing, reading and writing ---
    using LayerOpen = OrvaneHandle* (*)(const XString&, bool, bool, int&, LogBase*);
    bool openCurrentFile(LayerOpen open, XString& path);
    void closeCurrentFile();
    void fileOpenUnsupported();
    bool writeToCurrent(const void* bytes, unsigned n);
    bool writeSlice(const DataBuffer& data, int offset, int count);
    bool appendBuilderText(const ClsStringBuilder& sb, const XString& charset);
    bool seekCurrent(int offset, int origin);
    bool truncateAtPosition();

    // --- numbered blocks; records between markers ---
    int countBlocks(int blockSize);
    int readNextFragment(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                         XString& charset, ClsStringBuilder& sb);
    bool prepareFragmentScan(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                             XString& charset);
    bool placeAtScanOffset();
    void releaseLargeFragment();
    // The fragment reader's chunk and fragment buffers, kept between calls so that a scan of
    // many small records allocates nothing per record.
    DataBuffer m_scanChunk;
    DataBuffer m_scanFragment;
    // The markers as the last call converted them, reused while the same ones come again.
    std::unique_ptr<fragments::Markers> m_scanMarkers;

    // The three flags read by lock-free accessors are atomics (relaxed): a reader on another
    // thread sees either the old or the new value, never a torn one. Everything else is
    // guarded by the object's lock.
    std::atomic<bool> m_endOfFile;
    // The current file's handle: always present, holding a file or none. Kept behind a
    // pointer so that the file-system layer's handle stays out of the public headers.
    std::unique_ptr<OrvaneHandle> m_handle;
    std::atomic<bool> m_lockFileOnOpen;
    std::atomic<int32_t> m_fileOpenError;
    XString m_fileOpenErrorMsg;
    int64_t m_fragmentScanOffset;
};
