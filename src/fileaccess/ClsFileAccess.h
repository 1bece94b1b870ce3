// ClsFileAccess: files and directories for an application.
//
// An object keeps at most one file open at a time (the current file) and offers, beside the
// work on that file, operations on files and directories named by path. Every public method
// takes the object's lock, keeps an account of the call in the object's last-error log
// (get_LastErrorText) and reports by its result; nothing is thrown, except std::bad_alloc
// from a lower layer.
//
// Lower-case methods are internal operations other library code may call: they take no lock
// and open no context; those that touch the object's state need the caller to hold the
// object's lock.
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

class OrvaneHandle;
namespace fragments {
class Markers;
}

class FA_API ClsFileAccess : public ClsBase {
public:
    ClsFileAccess();
    ~ClsFileAccess() override;
    // A new object, or null when it cannot be made. The caller deletes it.
    static ClsFileAccess* createNewCls();

    // ----- properties -----
    void get_CurrentDir(XString& out);
    bool SetCurrentDir(XString& dir);
    int get_FileOpenError();
    void get_FileOpenErrorMsg(XString& out);
    bool get_EndOfFile();
    bool get_LockFileOnOpen();
    void put_LockFileOnOpen(bool value);

    // ----- opening and closing the current file -----
    bool OpenForRead(XString& path);
    bool OpenForWrite(XString& path);
    bool OpenForReadWrite(XString& path);
    bool OpenForAppend(XString& path);
    bool FileOpen(XString& path, uint64_t accessMode, uint64_t shareMode, uint64_t createDisposition,
                  uint64_t attributes);
    void FileClose();
    void setLastFileOpenErrorStr();

    // ----- reading and writing the current file -----
    bool FileRead(unsigned count, DataBuffer& out);
    bool FileReadBd(int count, ClsBinData& bd);
    bool fileReadDb(unsigned count, DataBuffer& out, LogBase& log);
    bool FileWrite(DataBuffer& data);
    bool FileWrite2(DataBuffer& data);
    bool FileWriteBd(ClsBinData& bd, int offset, int count);
    bool AppendText(XString& text, XString& charset);
    bool AppendAnsi(XString& text);
    bool AppendSb(ClsStringBuilder& sb, XString& charset);
    bool AppendBd(ClsBinData& bd);
    bool AppendUtf8BOM();
    bool AppendUnicodeBOM();
    bool FileSeek(int offset, int origin);
    bool Truncate();
    bool fileWrite(const DataBuffer& data);
    bool fileWriteSb(const StringBuffer& text);

    // ----- files and directories by path -----
    bool FileExists(XString& path);
    int FileExists3(XString& path);
    bool FileDelete(XString& path);
    bool FileCopy(XString& from, XString& to, bool failIfExists);
    bool FileRename(XString& from, XString& to);
    bool DirCreate(XString& dir);
    bool DirEnsureExists(XString& dir);
    bool DirAutoCreate(XString& filePath);
    bool DirDelete(XString& dir);
    bool TreeDelete(XString& dir);
    int FileType(XString& path);
    int fileType(XString& path, bool noFollowLinks, LogBase& log);
    bool SymlinkTarget(XString& linkPath, XString& target);
    bool SymlinkCreate(XString& target, XString& linkPath);
    bool GetTempFilename(XString& dir, XString& prefix, XString& out);

    // ----- sizes and time stamps -----
    int FileSize(XString& path);
    long long FileSize64(XString& path);
    bool FileSizeStr(XString& path, XString& out);
    ClsDateTime* GetFileTime(XString& path, int which);
    ClsDateTime* GetLastModified(XString& path);
    bool SetFileTimes(XString& path, ClsDateTime& createTime, ClsDateTime& lastAccessTime,
                      ClsDateTime& lastModTime);
    bool SetLastModified(XString& path, ClsDateTime& lastModifiedTime);

    // ----- whole-file reads and writes -----
    bool ReadEntireFile(XString& path, DataBuffer& out);
    bool WriteEntireFile(XString& path, DataBuffer& data);
    bool ReadEntireTextFile(XString& path, XString& charset, XString& out);
    bool WriteEntireTextFile(XString& path, XString& text, XString& charset, bool includePreamble);

    // ----- path names -----
    bool GetFileName(XString& path, XString& out);
    bool GetDirectoryName(XString& path, XString& out);
    bool GetExtension(XString& path, XString& out);
    bool GetFileNameWithoutExtension(XString& path, XString& out);

    // ----- numbered blocks of the current file -----
    int GetNumBlocks(int blockSize);
    bool ReadBlock(int blockIndex, int blockSize, DataBuffer& out);
    bool ReadBlockBd(int blockIndex, int blockSize, ClsBinData& bd);
    bool readBlockDb(int blockIndex, int blockSize, DataBuffer& out, LogBase& log);

    // ----- whole-file algorithms -----
    bool SplitFile(XString& path, XString& prefix, XString& extension, int partSize,
                   XString& destDir);
    bool ReassembleFile(XString& srcDirPath, XString& prefix, XString& splitExtension,
                        XString& outFilePath);
    bool FileContentsEqual(XString& path1, XString& path2);
    int ReplaceStrings(XString& path, XString& charset, XString& str1, XString& str2);
    bool GenBlockId(int index, int length, XString& encoding, XString& out);
    bool ReadBinaryToEncoded(XString& path, XString& encoding, XString& out);

    // ----- records between markers; shortcut files -----
    int ReadNextFragment(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                         XString& charset, ClsStringBuilder& sb);
    // Hands onFragment exactly the records that successive ReadNextFragment calls (the first
    // with startAtBeginning) would append to fresh builders, and leaves the scan offset, the
    // end-of-file flag and the file position as those calls would. Stops after maxCount
    // records (no limit when 0 or less), after a record for which onFragment returns false,
    // or where the next call would return 0 or -1. Returns the number of records handed over,
    // or -1 when the calls would have ended with -1 (records handed over before stay handed
    // over). The text passed is valid during the call only; onFragment must not call methods
    // of this object. Reads the file in large blocks, so a record costs no system call.
    int ScanFragments(bool startAtBeginning, int maxCount, XString& beginMarker,
                      XString& endMarker, XString& charset,
                      const std::function<bool(const XString& fragment)>& onFragment);
    static bool readShortcut(XString& path, _ovShortcutInfo& info, LogBase& log);
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
