// A fixture holding the object under test, with readers for the account its last call logged.
#pragma once

#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

using Names = std::vector<std::string>;

class FileAccessTest : public TempDirTest {
  protected:
    // Names of the named values, the version line left out, in the order written.
    Names valueNames() const {
        Names names;
        for (const LogEntry& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name != "Version") names.push_back(e.name);
        return names;
    }
    // Text of the first named value called `name`, or "<absent>".
    std::string value(const std::string& name) const {
        for (const LogEntry& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name == name) return e.text;
        return "<absent>";
    }
    // Text of the last entry: the success/failure line where a method writes one.
    std::string lastLine() const {
        const auto& all = fa.lastErrorLog().entries();
        return all.empty() ? "<empty>" : all.back().text;
    }
    int errorCount() const {
        int n = 0;
        for (const LogEntry& e : fa.lastErrorLog().entries()) n += e.kind == LogKind::Error;
        return n;
    }
    static XString X(const std::string& s) { return XString(s.c_str()); }

    ClsFileAccess fa;
};
