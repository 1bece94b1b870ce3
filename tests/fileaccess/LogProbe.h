// Reads one call's account out of an object's last-error log.
#pragma once

#include <string>
#include <vector>

#include "foundation/base/ClsBase.h"

class LogProbe {
  public:
    explicit LogProbe(const ClsBase& obj) : m_obj(obj) {}

    // Names of the named values, the version line left out, in the order written.
    std::vector<std::string> valueNames() const {
        std::vector<std::string> names;
        for (const LogEntry& e : entries())
            if (e.kind == LogKind::Data && e.name != "Version") names.push_back(e.name);
        return names;
    }
    // Text of the first named value called `name`, or "<absent>".
    std::string value(const std::string& name) const {
        for (const LogEntry& e : entries())
            if (e.kind == LogKind::Data && e.name == name) return e.text;
        return "<absent>";
    }
    // Text of the last entry: the success/failure line where a method writes one.
    std::string lastLine() const { return entries().empty() ? "<empty>" : entries().back().text; }
    int errorCount() const {
        int n = 0;
        for (const LogEntry& e : entries()) n += e.kind == LogKind::Error;
        return n;
    }
    bool has(const char* text) const { return m_obj.lastErrorLog().contains(text); }

  private:
    const std::vector<LogEntry>& entries() const { return m_obj.lastErrorLog().entries(); }
    const ClsBase& m_obj;
};
