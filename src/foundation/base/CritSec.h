// The lock every library object carries, and its scoped holder.
#pragma once

#include "foundation/base/Api.h"

#include <mutex>

class FA_API OrvaneCritSec {
public:
    OrvaneCritSec() = default;
    OrvaneCritSec(const OrvaneCritSec&) = delete;
    OrvaneCritSec& operator=(const OrvaneCritSec&) = delete;

    void enterCriticalSection() { m_mutex.lock(); }
    void leaveCriticalSection() { m_mutex.unlock(); }

private:
    // Not recursive: no method of the library takes an object's lock while holding it.
    std::mutex m_mutex;
};

// Holds the critical section from construction to destruction. A null pointer holds nothing.
class FA_API CritSecExitor {
public:
    explicit CritSecExitor(OrvaneCritSec* cs) : m_cs(cs) {
        if (m_cs) m_cs->enterCriticalSection();
    }
    ~CritSecExitor() {
        if (m_cs) m_cs->leaveCriticalSection();
    }
    CritSecExitor(const CritSecExitor&) = delete;
    CritSecExitor& operator=(const CritSecExitor&) = delete;

private:
    OrvaneCritSec* m_cs;
};

// The root of every library object: its critical section and a reference count.
class FA_API RefCountedObject : public OrvaneCritSec {
public:
    virtual ~RefCountedObject() = default;
    void incRefCount() { ++m_refCount; }
    // Deletes the object when the last reference goes.
    void decRefCount() {
        if (--m_refCount == 0) delete this;
    }

private:
    int m_refCount = 1;
};
