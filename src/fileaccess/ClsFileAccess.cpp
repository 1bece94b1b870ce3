// The object itself: construction, destruction and the simple properties.
#include "fileaccess/ClsFileAccess.h"

#include <new>

#include "fileaccess/MarkerSearch.h"
#include "foundation/fs/FileSys.h"

ClsFileAccess::ClsFileAccess()
    : m_scanMarkers(std::make_unique<fragments::Markers>()),
      m_endOfFile(false),
      m_handle(std::make_unique<OrvaneHandle>()),
      m_lockFileOnOpen(false),
      m_fileOpenError(0),
      m_fragmentScanOffset(0) {}

// Members go in reverse order: the message, then the handle (closing a file still open),
// then the base. No lock, no log.
ClsFileAccess::~ClsFileAccess() = default;

ClsFileAccess* ClsFileAccess::createNewCls() {
    try {
        return new ClsFileAccess();
    } catch (...) {
        return nullptr;
    }
}

void ClsFileAccess::get_CurrentDir(XString& out) {
    out.clear();
    FileSys::getCurrentDir(out);
}

bool ClsFileAccess::SetCurrentDir(XString& dir) { return FileSys::setCurrentDir(dir); }

int ClsFileAccess::get_FileOpenError() { return m_fileOpenError; }

void ClsFileAccess::get_FileOpenErrorMsg(XString& out) {
    CritSecExitor lock(this);
    out.copyFromX(m_fileOpenErrorMsg);
}

bool ClsFileAccess::get_EndOfFile() { return m_endOfFile; }

bool ClsFileAccess::get_LockFileOnOpen() { return m_lockFileOnOpen; }

void ClsFileAccess::put_LockFileOnOpen(bool value) { m_lockFileOnOpen = value; }
