// Waitable kernel objects and the wait queue that every wait goes through.
//
// Each waitable object has a lock of its own and a queue of the waits that
// are blocked on it. A wait registers one link on each of its objects and
// sleeps on a futex word of its own; whoever makes an object signalled
// hands it to the first waits in its queue that it can satisfy, under that
// object's lock. A wait for all objects is only satisfied with every one of
// its objects locked at once, so it takes all of them atomically or none.
#pragma once

#include "futex.h"
#include "object.h"

#include <atomic>
#include <mutex>

namespace tsp {

class ThreadObject;
class Waitable;
struct Waiter;

// One object's place in a wait. Left uninitialised until the wait sets up
// the links it uses: a wait holds room for 64, and most use one.
struct WaitLink {
    Waiter *waiter;
    Waitable *object;
    WaitLink *prev;
    WaitLink *next;
    DWORD index;
    bool queued; // guarded by object->lock
};

class Waitable : public KernelObject {
public:
    using KernelObject::KernelObject;
    Waitable *asWaitable() override { return this; }

    // Guards the queue and the state of the derived object.
    ObjectLock lock;

    // Under lock: can thread take the object now?
    virtual bool isSignaledFor(const ThreadObject *thread) const = 0;
    // Under lock, when isSignaledFor(thread): takes the object for thread.
    // Gives WAIT_ABANDONED_0 for an abandoned mutex, else WAIT_OBJECT_0.
    virtual DWORD acquire(ThreadObject *thread) = 0;
    // Under lock: would acquire report abandonment?
    virtual bool isAbandoned() const { return false; }

    // Changes the object's state with op (under lock) and then hands the
    // object to the waits it now satisfies, wait-all waits included; after
    // runs before the locks are given up (PulseEvent resets there).
    template <class Op, class After>
    void signal(Op op, After after);
    template <class Op>
    void signal(Op op)
    {
        signal(op, [] {});
    }

    // Queue, guarded by lock.
    WaitLink *head = nullptr;
    WaitLink *tail = nullptr;
    int waitAllCount = 0; // wait-all waits queued here

    void enqueue(WaitLink *link);
    void unlink(WaitLink *link);

private:
    // The slow path of signal, with the objects of every wait-all wait
    // queued here locked as well. Gives false when it could not lock them
    // all without a retry.
    bool signalWithWaitAllLocks(void (*op)(void *), void *opCtx, void (*after)(void *), void *afterCtx);
    void satisfyWaiters();
};

// Objects have no names here: a name given to a Create call is refused
// with ERROR_NOT_SUPPORTED (true), and no name passes (false).
inline bool refuseObjectName(LPCSTR name)
{
    if (name && *name) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return true;
    }
    return false;
}

// Enters a new object in the handle table for a Create call, which clears
// the last error on success.
inline HANDLE insertNewObject(KernelObject *object, DWORD access)
{
    HANDLE h = insertHandle(object, access);
    if (h)
        SetLastError(ERROR_SUCCESS);
    return h;
}

// Runs the wait of WaitForSingleObject / WaitForMultipleObjects on objects
// the caller keeps alive. Gives the Win32 result.
DWORD waitForObjects(DWORD count, Waitable *const *objects, bool waitAll, DWORD milliseconds);
// The same for one object: the test and the registration are one hold of
// its lock.
DWORD waitForObject(Waitable *object, DWORD milliseconds);

template <class Op, class After>
void Waitable::signal(Op op, After after)
{
    {
        std::unique_lock<ObjectLock> guard(lock);
        if (waitAllCount == 0) {
            op();
            satisfyWaiters();
            after();
            return;
        }
    }
    auto opThunk = [](void *ctx) { (*static_cast<Op *>(ctx))(); };
    auto afterThunk = [](void *ctx) { (*static_cast<After *>(ctx))(); };
    while (!signalWithWaitAllLocks(opThunk, &op, afterThunk, &after)) {
    }
}

} // namespace tsp
