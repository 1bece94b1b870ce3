// The log every operation writes its account into.
//
// A log is a list of entries: contexts (one per method or step entered), error lines,
// information lines and named values. Each entry remembers the nesting depth at which it
// was written, so the text form can indent it. `LogBase` is the interface internal
// operations log through; `_ovLogger` is the concrete log an object keeps as its last-error
// log, and any code may make one of its own to collect an operation's account.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>
#include <string>
#include <vector>

class XString;
class StringBuffer;

enum class LogKind { Context, Error, Info, Data };

struct FA_API LogEntry {
    LogKind kind;
    int depth;         // number of contexts open when the entry was written
    std::string name;  // context name, or the name of a named value; empty otherwise
    std::string text;  // message of an error/info line, or the value of a named value
};

class FA_API LogBase {
public:
    LogBase() = default;
    LogBase(const LogBase&) = delete;
    LogBase& operator=(const LogBase&) = delete;
    virtual ~LogBase() = default;

    // Read directly by methods that log some values only in verbose mode.
    bool m_verboseLogging = false;

    virtual bool LogError(const char* msg) = 0;
    virtual bool LogInfo(const char* msg) = 0;
    virtual void LogData(const char* name, const char* value) = 0;
    virtual void EnterContext(const char* name) = 0;
    virtual bool LeaveContext() = 0;

    // Named values of other types; all end in LogData with the value's text form.
    bool LogDataX(const char* name, const XString& value);
    bool LogDataSb(const char* name, const StringBuffer& value);
    bool LogDataLong(const char* name, long value);
    bool LogDataInt64(const char* name, long long value);
    bool LogDataBool(const char* name, bool value);

    // Records that `size` bytes could not be reserved at the call site identified by `tag`.
    void MemoryAllocFailed(int tag, unsigned size);
};

class FA_API _ovLogger : public LogBase {
public:
    _ovLogger() = default;

    bool LogError(const char* msg) override;
    bool LogInfo(const char* msg) override;
    void LogData(const char* name, const char* value) override;
    void EnterContext(const char* name) override;
    // Leaves the innermost open context; false when none is open.
    bool LeaveContext() override;

    // Empties the log and closes every open context. The verbose flag is kept.
    bool ClearLog();

    // The log as text: one line per entry, indented two spaces per level of nesting.
    // A context reads "name:", an error or information line is the message alone, a
    // named value reads "name: value".
    void getText(XString& out) const;
    std::string text() const;

    const std::vector<LogEntry>& entries() const { return m_entries; }
    int depth() const { return m_depth; }
    bool hasErrors() const;
    // True when some error or information line, or some named value's text, equals `text`.
    bool contains(const char* text) const;

private:
    void add(LogKind kind, const char* name, const char* text);

    std::vector<LogEntry> m_entries;
    int m_depth = 0;
};
