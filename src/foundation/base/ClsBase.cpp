#include "foundation/base/ClsBase.h"

#include "foundation/base/ClsBinData.h"
#include "foundation/base/ClsStringBuilder.h"
#include "foundation/base/LogContextExitor.h"

#ifndef FA_VERSION_STRING
#define FA_VERSION_STRING "0.0.0"
#endif

const char* ClsBase::libraryVersion() { return FA_VERSION_STRING; }

bool ClsBase::_toString(XString& out) {
    out.clear();
    return true;
}

void ClsBase::injectStatus(const char*, bool) {}
void ClsBase::injectError(const char*, const char*) {}
void ClsBase::put_UncommonOptions(XString& options) { m_uncommonOptions.copyFromX(options); }
bool ClsBase::get_VerboseLogging() { return m_log.m_verboseLogging; }
void ClsBase::put_VerboseLogging(bool verbose) { m_log.m_verboseLogging = verbose; }
void ClsBase::dotNetDispose() {}
void ClsBase::get_DebugLogFilePath(XString& out) { out.copyFromX(m_debugLogFilePath); }
void ClsBase::put_DebugLogFilePath(XString& path) { m_debugLogFilePath.copyFromX(path); }

void ClsBase::get_LastErrorText(XString& out) {
    CritSecExitor lock(this);
    m_log.getText(out);
}

void ClsBase::logOrvaneVersion(LogBase& log) { log.LogData("Version", libraryVersion()); }

void ClsBase::logSuccessFailure(bool ok) {
    if (ok)
        m_log.LogInfo("Success.");
    else
        m_log.LogError("Failed.");
}

void ClsBase::enterContextBase(const char* name) {
    const bool outermost = m_log.depth() == 0;
    if (outermost) m_log.ClearLog();
    m_log.EnterContext(name);
    if (outermost) logOrvaneVersion(m_log);
}

LogContextExitor::LogContextExitor(LogBase& log, const char* name) : m_log(log) {
    m_log.EnterContext(name);
}

LogContextExitor::LogContextExitor(ClsBase& obj, const char* name) : m_log(obj.m_log) {
    obj.enterContextBase(name);
}

LogContextExitor::~LogContextExitor() { m_log.LeaveContext(); }

ClsBinData* ClsBinData::createNewCls() {
    try {
        return new ClsBinData();
    } catch (...) {
        return nullptr;
    }
}

ClsStringBuilder* ClsStringBuilder::createNewCls() {
    try {
        return new ClsStringBuilder();
    } catch (...) {
        return nullptr;
    }
}
