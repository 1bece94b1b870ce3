/// @file
/// The log every operation writes its account into: the `LogBase` interface and the
/// concrete `_ovLogger`.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>
#include <string>
#include <vector>

class XString;
class StringBuffer;

/// What a log entry is; it decides which of `LogEntry::name` and `LogEntry::text` are used.
enum class LogKind {
    Context,  ///< A context entered (a method or step): `name` only; later entries nest in it.
    Error,    ///< An error line: `text` holds the message.
    Info,     ///< An information line: `text` holds the message.
    Data      ///< A named value: `name` and the value's text in `text`.
};

/// One entry of an `_ovLogger`: what was written, and at which nesting depth.
struct FA_API LogEntry {
    /// What the entry is.
    LogKind kind;
    /// The number of contexts open when the entry was written (0 at the top level); a
    /// context's own entry has the depth outside it.
    int depth;
    /// The context's name, or the name of a named value; empty for error and information lines.
    std::string name;
    /// The message of an error or information line, or a named value's text; empty for a
    /// context.
    std::string text;
};

/// The interface internal operations write their account through.
///
/// An operation enters a context for itself and for each step, writes error lines,
/// information lines and named values inside it, and leaves the context again. A log is
/// neither copyable nor movable. Thread safety: as for a value type, no locks are taken; one
/// log must not be written by one thread while another thread uses it, distinct logs are
/// independent, and the log a `ClsBase` object keeps is guarded by that object's lock.
class FA_API LogBase {
public:
    /// An empty log, not verbose.
    LogBase() = default;
    /// Not copyable: a log belongs to the one operation or object that writes it.
    LogBase(const LogBase&) = delete;
    /// Not assignable.
    LogBase& operator=(const LogBase&) = delete;
    /// Destroys the log.
    virtual ~LogBase() = default;

    /// True when operations should also write the values they log only in verbose mode;
    /// read directly by such methods. False at first; `_ovLogger::ClearLog` keeps it.
    bool m_verboseLogging = false;

    /// Writes an error line with the message `msg` (null reads as empty) in the current
    /// context. True; the library's logs never answer otherwise.
    virtual bool LogError(const char* msg) = 0;
    /// Writes an information line with the message `msg` (null reads as empty) in the current
    /// context. True; the library's logs never answer otherwise.
    virtual bool LogInfo(const char* msg) = 0;
    /// Writes the named value `name` with the text `value` (null reads as empty) in the
    /// current context.
    virtual void LogData(const char* name, const char* value) = 0;
    /// Enters a context named `name`: its entry is written at the current depth, and every
    /// later entry nests one level deeper until the matching `LeaveContext`.
    virtual void EnterContext(const char* name) = 0;
    /// Leaves the innermost open context; false, with nothing changed, when none is open.
    virtual bool LeaveContext() = 0;

    /// Writes the named value `name` with the UTF-8 text of `value`; always true.
    bool LogDataX(const char* name, const XString& value);
    /// Writes the named value `name` with the text `value` holds (up to its first NUL);
    /// always true.
    bool LogDataSb(const char* name, const StringBuffer& value);
    /// Writes the named value `name` with `value` in decimal; always true.
    bool LogDataLong(const char* name, long value);
    /// Writes the named value `name` with `value` in decimal; always true.
    bool LogDataInt64(const char* name, long long value);
    /// Writes the named value `name` with the text `true` or `false`; always true.
    bool LogDataBool(const char* name, bool value);

    /// Records that `size` bytes could not be reserved at the call site identified by `tag`.
    /// It writes the error line `Memory allocation failed.` and then the named values
    /// `allocTag` (`tag`) and `allocSize` (`size`), in decimal.
    void MemoryAllocFailed(int tag, unsigned size);
};

/// The concrete log: keeps every entry in the order written, with its depth, to be read
/// back as a list or as indented text.
///
/// Each library object keeps one as its last-error log (`ClsBase::m_log`), and any code may
/// make one of its own to collect an operation's account. Entries are only added until
/// `ClearLog` removes them all. Not copyable; thread safety as for `LogBase`.
class FA_API _ovLogger : public LogBase {
public:
    /// An empty log at depth 0, not verbose.
    _ovLogger() = default;

    /// Adds an error entry with the message `msg` (null reads as empty) at the current depth;
    /// always true.
    bool LogError(const char* msg) override;
    /// Adds an information entry with the message `msg` (null reads as empty) at the current
    /// depth; always true.
    bool LogInfo(const char* msg) override;
    /// Adds a named-value entry (a null name or value reads as empty) at the current depth.
    void LogData(const char* name, const char* value) override;
    /// Adds a context entry named `name` (null reads as empty) at the current depth, then
    /// makes the depth one greater.
    void EnterContext(const char* name) override;
    /// Makes the depth one less, leaving the innermost open context; false, with nothing
    /// changed, when none is open. Entries already written keep their depth.
    bool LeaveContext() override;

    /// Removes every entry and sets the depth to 0, closing every open context; the verbose
    /// flag is kept. Always true.
    bool ClearLog();

    /// Replaces `out` with `text()`.
    void getText(XString& out) const;
    /// The log as text: one line per entry, each ended by a newline and indented two spaces
    /// per level of its depth. A context reads `name:`, an error or information line is the
    /// message alone, a named value reads `name: value`. Empty for an empty log; line
    /// breaks inside a message are kept as they are, without indentation.
    std::string text() const;

    /// Every entry, in the order written. The reference is valid as long as the log is;
    /// references and iterators to its elements only until the next entry or `ClearLog`.
    const std::vector<LogEntry>& entries() const { return m_entries; }
    /// The number of contexts open now; 0 when none is.
    int depth() const { return m_depth; }
    /// True when some entry is an error line.
    bool hasErrors() const;
    /// True when the message of some error or information line, or the text of some named
    /// value, equals `text` whole and with case; names are not searched. `text` must not be
    /// null.
    bool contains(const char* text) const;

private:
    void add(LogKind kind, const char* name, const char* text);

    std::vector<LogEntry> m_entries;
    int m_depth = 0;
};
