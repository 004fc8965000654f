// The mutex object: a recursive lock owned by a thread, in the list of the
// mutexes its owner holds so that the owner's end can abandon it.
#pragma once

#include "threadobj.h"

namespace tsp {

// Puts link into the list of thread, which now owns the mutex.
void linkOwned(OwnedMutexLink *link, ThreadObject *thread);
// Takes link out of its owner's list, if it is in one. Only the owner's
// own calls, and the destructor of a mutex nobody can reach any more,
// come here, so the owner cannot change meanwhile.
void unlinkOwned(OwnedMutexLink *link);

// A mutex keeps its owner in the pointer bits of its lock word and its
// abandonment in the object flag, so an acquire of a free mutex and a
// release with nobody waiting are one compare-and-swap each (and the
// owner's list). The depth is touched only by the owner.
class MutexObject : public Waitable, public OwnedMutexLink {
public:
    MutexObject() : Waitable(ObjectKind::Mutex) {}
    // The last handle of a mutex may go while a thread owns it.
    ~MutexObject() override { unlinkOwned(this); }

    bool isSignaledFor(const ThreadObject *t) const override
    {
        const void *owner = lock.pointer();
        return owner == nullptr || owner == t;
    }
    bool isAbandoned() const override { return lock.load() & ObjectLock::kObjectFlag; }
    DWORD acquire(ThreadObject *t) override
    {
        if (lock.pointer() == t) {
            ++recursion_;
            return WAIT_OBJECT_0;
        }
        lock.setPointer(t);
        recursion_ = 1;
        linkOwned(this, t);
        if (isAbandoned()) {
            lock.clearBits(ObjectLock::kObjectFlag);
            return WAIT_ABANDONED_0;
        }
        return WAIT_OBJECT_0;
    }

    // Without the lock: takes a free mutex, or deepens the caller's hold.
    bool tryFastAcquire(ThreadObject *t)
    {
        uint64_t mine = reinterpret_cast<uintptr_t>(t);
        uint64_t w = lock.word().load(std::memory_order_acquire);
        if (w == mine) {
            ++recursion_;
            return true;
        }
        if (w == 0 && lock.word().compare_exchange_strong(w, mine, std::memory_order_acquire,
                                                          std::memory_order_relaxed)) {
            recursion_ = 1;
            linkOwned(this, t);
            return true;
        }
        return false;
    }

    // Without the lock: gives up one hold of the caller's when nobody waits.
    bool tryFastRelease(const ThreadObject *t)
    {
        uint64_t mine = reinterpret_cast<uintptr_t>(t);
        // With the lock free, whoever last made the caller the owner is done
        // with the depth too.
        uint64_t w = lock.word().load(std::memory_order_acquire);
        if ((w & ObjectLock::kLockBits) || (w & ~ObjectLock::kFlagBits) != mine)
            return false;
        if (recursion_ > 1) {
            --recursion_;
            return true;
        }
        if (w != mine)
            return false;
        // Out of the list before the mutex is free: the next owner links
        // it into its own.
        unlinkOwned(this);
        recursion_ = 0;
        if (lock.word().compare_exchange_strong(w, 0, std::memory_order_release, std::memory_order_relaxed))
            return true;
        recursion_ = 1;
        linkOwned(this, const_cast<ThreadObject *>(t));
        return false;
    }

    // Under lock. False when t does not own the mutex.
    bool releaseBy(const ThreadObject *t)
    {
        if (lock.pointer() != t)
            return false;
        if (--recursion_ == 0) {
            unlinkOwned(this);
            lock.setPointer(nullptr);
        }
        return true;
    }

    // Under lock: the owner ended while holding it (and has taken it out
    // of its list).
    void abandonIfOwnedBy(const ThreadObject *t)
    {
        if (lock.pointer() == t) {
            lock.setPointer(nullptr);
            recursion_ = 0;
            lock.setBits(ObjectLock::kObjectFlag);
        }
    }

private:
    DWORD recursion_ = 0;
};

} // namespace tsp
