// The base of every library object: its lock, its last-error log and its verbose flag.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/base/CritSec.h"
#include "foundation/base/LogBase.h"
#include "foundation/text/XString.h"

class FA_API ClsBase : public RefCountedObject {
public:
    ClsBase() = default;
    ~ClsBase() override = default;

    virtual bool _toString(XString& out);
    virtual void injectStatus(const char* name, bool value);
    virtual void injectError(const char* name, const char* message);
    virtual void put_UncommonOptions(XString& options);
    virtual bool get_VerboseLogging();
    virtual void put_VerboseLogging(bool verbose);
    virtual void dotNetDispose();
    virtual void get_DebugLogFilePath(XString& out);
    virtual void put_DebugLogFilePath(XString& path);

    // Replaces out with the text of the last-error log. Takes the object's lock.
    void get_LastErrorText(XString& out);
    const _ovLogger& lastErrorLog() const { return m_log; }

    // Writes the library's version line into the log, in its current context.
    void logOrvaneVersion(LogBase& log);
    // Writes the line that tells whether the running method succeeded.
    void logSuccessFailure(bool ok);
    // Enters a context in the object's log. When no context is open yet (a method's own
    // entry), the log is first cleared and the version line follows the context line, so
    // the log holds only this call's account.
    void enterContextBase(const char* name);

    static const char* libraryVersion();

    _ovLogger m_log;

protected:
    XString m_uncommonOptions;
    XString m_debugLogFilePath;
};
