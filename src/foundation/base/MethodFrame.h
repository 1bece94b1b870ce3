// The frames public methods run in. Each holds the object's lock for the whole call and
// gives the method one context in the object's log:
//
//   StandardFrame  clears the log, enters the context, writes the version line;
//   ObjectFrame    enters the context through the object (LogContextExitor(ClsBase&, ...));
//   OlderFrame     enters through ClsBase::enterContextBase and leaves with an explicit
//                  _ovLogger::LeaveContext when the frame ends.
//
// A method that reports its outcome in the log returns `frame.result(ok)`, which writes the
// success/failure line inside the context before the frame leaves it.
#pragma once

#include "foundation/base/ClsBase.h"
#include "foundation/base/LogContextExitor.h"

class FrameBase {
public:
    FrameBase(const FrameBase&) = delete;
    FrameBase& operator=(const FrameBase&) = delete;

    _ovLogger& log() { return m_obj.m_log; }
    bool verbose() const { return m_obj.m_log.m_verboseLogging; }
    bool result(bool ok) {
        m_obj.logSuccessFailure(ok);
        return ok;
    }

protected:
    explicit FrameBase(ClsBase& obj) : m_obj(obj), m_lock(&obj) {}
    ~FrameBase() = default;

    ClsBase& m_obj;
    CritSecExitor m_lock;
};

class StandardFrame : public FrameBase {
public:
    StandardFrame(ClsBase& obj, const char* name)
        : FrameBase(obj), m_ctx(clearedLog(obj), name) {
        obj.logOrvaneVersion(obj.m_log);
    }

private:
    static LogBase& clearedLog(ClsBase& obj) {
        obj.m_log.ClearLog();
        return obj.m_log;
    }
    LogContextExitor m_ctx;
};

class ObjectFrame : public FrameBase {
public:
    ObjectFrame(ClsBase& obj, const char* name) : FrameBase(obj), m_ctx(obj, name) {}

private:
    LogContextExitor m_ctx;
};

class OlderFrame : public FrameBase {
public:
    OlderFrame(ClsBase& obj, const char* name) : FrameBase(obj) { obj.enterContextBase(name); }
    ~OlderFrame() { m_obj.m_log.LeaveContext(); }
};
