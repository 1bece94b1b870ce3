// Opening and closing the current file, and the open-error code and message it leaves.
#include <memory>

#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/OpenErrorText.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/FileSys.h"
#include "foundation/fs/OrvaneHandle.h"

namespace {

// Indexed by the code the file-system layer reports. The wording, trailing spaces and
// missing full stops included, is what callers have always seen and may compare against.
constexpr const char* kOpenErrorMessages[] = {
    "Success.",
    "Access denied.",
    "File not found.",
    "General (non-specific) open error.",
    "File aleady exists.",
    "Path refers to a directory and the access requested involves writing",
    "Too many symbolic links were encountered in resolving path.",
    "The process already has the maximum number of files open.",
    "Pathname is too long.",
    "The system limit on the total number of open files has been reached. ",
    "Pathname refers to a device special file and no corresponding device exists.",
    "Insufficient kernel memory was available. ",
    "Pathname was to be created but the device containing pathname has no room for the new "
    "file. ",
    "A component used as a directory in pathname is not, in fact, a directory.",
    "Pathname refers to a regular file, too large to be opened",
    "Pathname refers to a file on a read-only filesystem and write access was requested. ",
    "Pathname refers to an executable image which is currently being executed and write "
    "access was requested. ",
};
constexpr unsigned kNumOpenErrorMessages = sizeof(kOpenErrorMessages) / sizeof(*kOpenErrorMessages);
static_assert(kNumOpenErrorMessages == 17);

}  // namespace

const char* openErrorText(int code) {
    // Unsigned, so that every negative code falls outside the table too.
    const auto index = static_cast<unsigned>(code);
    return index < kNumOpenErrorMessages ? kOpenErrorMessages[index] : "Unknown file open error.";
}

bool ClsFileAccess::OpenForRead(XString& path) {
    StandardFrame f(*this, "OpenForRead");
    return f.result(openCurrentFile(&FileSys::openForReadOnly, path));
}

bool ClsFileAccess::OpenForWrite(XString& path) {
    StandardFrame f(*this, "OpenForWrite");
    return f.result(openCurrentFile(&FileSys::openForWriteOnly, path));
}

bool ClsFileAccess::OpenForReadWrite(XString& path) {
    StandardFrame f(*this, "OpenForReadWrite");
    return f.result(openCurrentFile(&FileSys::openForReadWrite, path));
}

bool ClsFileAccess::OpenForAppend(XString& path) {
    StandardFrame f(*this, "OpenForAppend");
    return f.result(openCurrentFile(&FileSys::openForAppend, path));
}

bool ClsFileAccess::FileOpen(XString&, uint64_t, uint64_t, uint64_t, uint64_t) {
    StandardFrame f(*this, "FileOpen");
    fileOpenUnsupported();
    return false;
}

void ClsFileAccess::FileClose() {
    StandardFrame f(*this, "FileClose");
    closeCurrentFile();
}

void ClsFileAccess::setLastFileOpenErrorStr() {
    m_fileOpenErrorMsg.setFromUtf8(openErrorText(m_fileOpenError));
}

// Every open starts from a clean slate: the previous file is closed before the new one is
// tried, so a failed open never leaves the old file open behind a failure report.
bool ClsFileAccess::openCurrentFile(LayerOpen open, XString& path) {
    m_fileOpenError = 0;
    m_fileOpenErrorMsg.clear();
    m_fragmentScanOffset = 0;
    closeCurrentFile();

    // The layer reports through an int&; the field is atomic for the lock-free getter, so
    // the code goes through a local and is stored whatever the outcome.
    int code = 0;
    std::unique_ptr<OrvaneHandle> opened(open(path, m_lockFileOnOpen, false, code, &m_log));
    m_fileOpenError = code;
    if (opened) m_handle->takeHandle(*opened);
    setLastFileOpenErrorStr();
    return opened != nullptr;
}

void ClsFileAccess::closeCurrentFile() {
    m_handle->closeHandle();
    m_endOfFile = false;
}

// This build has no open with Windows-style access and share modes; the call still resets
// the current file as any open attempt does, and leaves no message behind.
void ClsFileAccess::fileOpenUnsupported() {
    closeCurrentFile();
    m_fragmentScanOffset = 0;
    m_fileOpenError = 0;
    m_fileOpenErrorMsg.clear();
    m_log.LogError("Not implemented for Linux.");
}
