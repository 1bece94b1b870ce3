/// @file
/// The lock every library object carries, its scoped holder and the reference-counted root.
#pragma once

#include "foundation/base/Api.h"

#include <mutex>

/// A critical section: a non-recursive lock that one thread at a time may hold.
///
/// It may be entered and left from any thread; it cannot be copied. A thread that holds it
/// must not enter it again (that deadlocks), and only the holder may leave it.
class FA_API OrvaneCritSec {
public:
    /// Makes a critical section that no thread holds.
    OrvaneCritSec() = default;
    /// Not copyable.
    OrvaneCritSec(const OrvaneCritSec&) = delete;
    /// Not assignable.
    OrvaneCritSec& operator=(const OrvaneCritSec&) = delete;

    /// Blocks until the calling thread holds the critical section. The caller must not
    /// already hold it.
    void enterCriticalSection() { m_mutex.lock(); }
    /// Releases the critical section. Only the thread that holds it may call this.
    void leaveCriticalSection() { m_mutex.unlock(); }

private:
    // Not recursive: no method of the library takes an object's lock while holding it.
    std::mutex m_mutex;
};

/// Holds a critical section from its construction to its destruction; a null pointer holds
/// nothing. It lives on the stack of one thread and cannot be copied.
class FA_API CritSecExitor {
public:
    /// Enters `cs`, blocking until the calling thread holds it; does nothing when `cs` is
    /// null. The critical section must outlive this holder.
    explicit CritSecExitor(OrvaneCritSec* cs) : m_cs(cs) {
        if (m_cs) m_cs->enterCriticalSection();
    }
    /// Leaves the critical section entered by the constructor, if any.
    ~CritSecExitor() {
        if (m_cs) m_cs->leaveCriticalSection();
    }
    /// Not copyable.
    CritSecExitor(const CritSecExitor&) = delete;
    /// Not assignable.
    CritSecExitor& operator=(const CritSecExitor&) = delete;

private:
    OrvaneCritSec* m_cs;
};

/// The root of every library object: its critical section and a reference count.
///
/// A new object holds one reference, owned by whoever made it; `decRefCount` deletes the
/// object when the count reaches zero. The count is a plain integer guarded by nothing:
/// `incRefCount` and `decRefCount` take no lock and must not run concurrently on one object.
class FA_API RefCountedObject : public OrvaneCritSec {
public:
    /// Destroys the object; deleting a derived object through this base is safe.
    virtual ~RefCountedObject() = default;
    /// Adds one reference. Takes no lock.
    void incRefCount() { ++m_refCount; }
    /// Drops one reference and deletes the object (`delete this`) when the count reaches
    /// zero, after which no pointer to it may be used. Only for objects made with `new` (such
    /// as those of `createNewCls`); on a new object it deletes it at once. Takes no lock.
    void decRefCount() {
        if (--m_refCount == 0) delete this;
    }

private:
    int m_refCount = 1;
};
