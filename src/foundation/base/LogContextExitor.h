// A scoped context in a log: entered by the constructor, left by the destructor.
#pragma once

#include "foundation/base/LogBase.h"

class ClsBase;

class LogContextExitor {
public:
    // Enters `name` in `log`.
    LogContextExitor(LogBase& log, const char* name);
    // Enters `name` in the object's log, as ClsBase::enterContextBase does: a method's
    // outermost context starts a fresh log with the version line.
    LogContextExitor(ClsBase& obj, const char* name);
    ~LogContextExitor();
    LogContextExitor(const LogContextExitor&) = delete;
    LogContextExitor& operator=(const LogContextExitor&) = delete;

private:
    LogBase& m_log;
};
