/// @file
/// The base of every library object: its lock, its last-error log and its verbose flag.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/base/CritSec.h"
#include "foundation/base/LogBase.h"
#include "foundation/text/XString.h"

/// The base of every library object: a lock, a last-error log and a verbose-logging flag.
///
/// The lock is the non-recursive critical section inherited through `RefCountedObject`. The
/// methods that take it hold it for their whole call, so they may be called from several
/// threads and run one at a time, each leaving its own account in `m_log`; a derived class
/// names its members that take no lock. Of the members declared here only `get_LastErrorText`
/// takes it; the others say so.
/// An object made with `new` or a `createNewCls` belongs to its maker, who frees it with
/// `delete` or with `decRefCount` (a new object holds one reference).
class FA_API ClsBase : public RefCountedObject {
public:
    /// Makes an object with an empty log, verbose logging off, empty uncommon options and
    /// debug-log path, and one reference.
    ClsBase() = default;
    /// Destroys the object. No thread may hold its lock or be inside one of its methods.
    ~ClsBase() override = default;

    /// The object's text form. The base empties `out` and returns true; takes no lock.
    virtual bool _toString(XString& out);
    /// A hook through which a derived class may receive a named status flag. The base ignores
    /// it: it does nothing and logs nothing.
    virtual void injectStatus(const char* name, bool value);
    /// A hook through which a derived class may receive a named error message. The base
    /// ignores it: it does nothing and logs nothing.
    virtual void injectError(const char* name, const char* message);
    /// Replaces the stored uncommon options with a copy of `options`. The base only keeps
    /// them; no behaviour of the library depends on them. Takes no lock.
    virtual void put_UncommonOptions(XString& options);
    /// Whether verbose logging is on (off for a new object). Takes no lock.
    virtual bool get_VerboseLogging();
    /// Turns verbose logging on or off; when on, methods write extra named values into the
    /// last-error log. The flag survives the clearing of the log. Takes no lock: set it before
    /// other threads use the object, not while one of its methods runs.
    virtual void put_VerboseLogging(bool verbose);
    /// Does nothing in the base; in particular it neither frees nor resets the object.
    virtual void dotNetDispose();
    /// Replaces `out` with the stored debug-log path (empty for a new object). Takes no lock.
    virtual void get_DebugLogFilePath(XString& out);
    /// Replaces the stored debug-log path with a copy of `path`. The base only keeps it: the
    /// library writes no file there. Takes no lock.
    virtual void put_DebugLogFilePath(XString& path);

    /// Replaces `out` with the text of the last-error log: one line per entry, each ending in
    /// a newline and indented two spaces per level of nesting; empty when the log is empty.
    /// Takes the object's lock, so it waits for a method running on another thread and must
    /// not be called by a thread that already holds the lock.
    void get_LastErrorText(XString& out);
    /// The last-error log itself, valid as long as the object lives. Takes no lock: the log
    /// changes with the next method call, so read it only while no other thread uses the object.
    const _ovLogger& lastErrorLog() const { return m_log; }

    /// Writes the named value "Version" with `libraryVersion()` into `log`, in its current
    /// context; the text form reads "Version: 1.0.0". Touches nothing of the object.
    void logOrvaneVersion(LogBase& log);
    /// Writes the line that tells whether the running method succeeded into the object's log,
    /// in its current context: the information line "Success." when `ok` is true, otherwise
    /// the error line "Failed.". Takes no lock; the caller holds it.
    void logSuccessFailure(bool ok);
    /// Enters the context `name` in the object's log. When no context is open yet (a method's
    /// own entry), the log is first cleared (the verbose flag is kept) and the version line
    /// follows the context line, so the log holds only this call's account. The caller leaves
    /// the context with `m_log.LeaveContext()`. Takes no lock; the caller holds it.
    void enterContextBase(const char* name);

    /// The library's version, such as "1.0.0", as a static string that is never freed.
    static const char* libraryVersion();

    /// The last-error log: the account of the latest method call that started a fresh log,
    /// and the verbose-logging flag. Guarded by the object's lock; outside the object read
    /// it through `get_LastErrorText`, or directly only while no other thread uses the object.
    _ovLogger m_log;

protected:
    /// The options stored by `put_UncommonOptions`; empty for a new object.
    XString m_uncommonOptions;
    /// The path stored by `put_DebugLogFilePath`; empty for a new object.
    XString m_debugLogFilePath;
};
