#include "foundation/base/LogBase.h"

#include <cstring>
#include <string>

#include "foundation/text/StringBuffer.h"
#include "foundation/text/XString.h"

bool LogBase::LogDataX(const char* name, const XString& value) {
    LogData(name, value.getUtf8());
    return true;
}

bool LogBase::LogDataSb(const char* name, const StringBuffer& value) {
    LogData(name, value.getString());
    return true;
}

bool LogBase::LogDataLong(const char* name, long value) {
    LogData(name, std::to_string(value).c_str());
    return true;
}

bool LogBase::LogDataInt64(const char* name, long long value) {
    LogData(name, std::to_string(value).c_str());
    return true;
}

bool LogBase::LogDataBool(const char* name, bool value) {
    LogData(name, value ? "true" : "false");
    return true;
}

void LogBase::MemoryAllocFailed(int tag, unsigned size) {
    LogError("Memory allocation failed.");
    LogDataLong("allocTag", tag);
    LogDataInt64("allocSize", size);
}

void _ovLogger::add(LogKind kind, const char* name, const char* text) {
    m_entries.push_back(LogEntry{kind, m_depth, name ? name : "", text ? text : ""});
}

bool _ovLogger::LogError(const char* msg) {
    add(LogKind::Error, nullptr, msg);
    return true;
}

bool _ovLogger::LogInfo(const char* msg) {
    add(LogKind::Info, nullptr, msg);
    return true;
}

void _ovLogger::LogData(const char* name, const char* value) { add(LogKind::Data, name, value); }

void _ovLogger::EnterContext(const char* name) {
    add(LogKind::Context, name, nullptr);
    ++m_depth;
}

bool _ovLogger::LeaveContext() {
    if (m_depth == 0) return false;
    --m_depth;
    return true;
}

bool _ovLogger::ClearLog() {
    m_entries.clear();
    m_depth = 0;
    return true;
}

std::string _ovLogger::text() const {
    std::string out;
    for (const LogEntry& e : m_entries) {
        out.append(static_cast<size_t>(e.depth) * 2, ' ');
        switch (e.kind) {
            case LogKind::Context:
                out += e.name;
                out += ':';
                break;
            case LogKind::Error:
            case LogKind::Info:
                out += e.text;
                break;
            case LogKind::Data:
                out += e.name;
                out += ": ";
                out += e.text;
                break;
        }
        out += '\n';
    }
    return out;
}

void _ovLogger::getText(XString& out) const { out.setFromUtf8(text()); }

bool _ovLogger::hasErrors() const {
    for (const LogEntry& e : m_entries)
        if (e.kind == LogKind::Error) return true;
    return false;
}

bool _ovLogger::contains(const char* text) const {
    for (const LogEntry& e : m_entries)
        if (e.kind != LogKind::Context && e.text == text) return true;
    return false;
}
