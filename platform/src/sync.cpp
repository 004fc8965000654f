// Events, mutexes and the waits on them.
#include "futex.h"
#include "threadobj.h"

#include <sched.h>

#include <algorithm>
#include <vector>

namespace tsp {

// ---------------------------------------------------------------------------
// Waits

// One blocked wait. Its state word is the futex the thread sleeps on: 0
// while waiting, the Win32 result + 1 once satisfied, kCancelled once the
// waiting thread has given up (time-out). Only one compare-and-swap from 0
// wins, so a wait is satisfied once or cancelled, never both.
struct Waiter {
    static constexpr uint32_t kWaiting = 0;
    static constexpr uint32_t kCancelled = 0xFFFFFFFFu;

    std::atomic<uint32_t> state{kWaiting};
    ThreadObject *thread = nullptr;
    bool waitAll = false;
    DWORD count = 0;
    WaitLink links[MAXIMUM_WAIT_OBJECTS];

    bool claim(DWORD result)
    {
        uint32_t expected = kWaiting;
        return state.compare_exchange_strong(expected, result + 1, std::memory_order_acq_rel);
    }
};

void Waitable::enqueue(WaitLink *link)
{
    link->prev = tail;
    link->next = nullptr;
    if (tail)
        tail->next = link;
    else
        head = link;
    tail = link;
    link->queued = true;
    lock.setBits(ObjectLock::kQueued);
    if (link->waiter->waitAll)
        ++waitAllCount;
}

void Waitable::unlink(WaitLink *link)
{
    if (!link->queued)
        return;
    if (link->prev)
        link->prev->next = link->next;
    else
        head = link->next;
    if (link->next)
        link->next->prev = link->prev;
    else
        tail = link->prev;
    link->prev = link->next = nullptr;
    link->queued = false;
    if (!head)
        lock.clearBits(ObjectLock::kQueued);
    if (link->waiter->waitAll)
        --waitAllCount;
}

namespace {

bool allSignaled(const Waiter *w)
{
    for (DWORD i = 0; i < w->count; ++i)
        if (!w->links[i].object->isSignaledFor(w->thread))
            return false;
    return true;
}

// Takes every object of a wait-all wait (all locked by the caller). The
// result names the first abandoned mutex, as Windows does.
DWORD acquireAll(Waitable *const *objects, DWORD count, ThreadObject *thread)
{
    DWORD result = WAIT_OBJECT_0;
    for (DWORD i = 0; i < count; ++i)
        if (objects[i]->acquire(thread) == WAIT_ABANDONED_0 && result == WAIT_OBJECT_0)
            result = WAIT_ABANDONED_0 + i;
    return result;
}

void wakeWaiter(Waiter *w) { futexWake(&w->state, 1); }

// A set of objects to lock together: the distinct objects in address
// order, the order in which several object locks are always taken, so no
// two threads deadlock. Up to 64 objects need no allocation.
class LockSet {
public:
    LockSet(Waitable *const *objects, size_t count)
    {
        if (count > kInline) {
            for (size_t i = 0; i < count; ++i)
                add(objects[i]);
            return;
        }
        // Sorted at once: added one at a time, each would move up to 63.
        std::copy(objects, objects + count, inline_);
        std::sort(inline_, inline_ + count);
        size_ = static_cast<size_t>(std::unique(inline_, inline_ + count) - inline_);
    }
    void add(Waitable *o)
    {
        Waitable **first = data(), **last = first + size_;
        Waitable **at = std::lower_bound(first, last, o);
        if (at != last && *at == o)
            return;
        size_t pos = at - first;
        if (size_ == kInline && overflow_.empty())
            overflow_.assign(inline_, inline_ + kInline);
        if (!overflow_.empty()) {
            overflow_.insert(overflow_.begin() + pos, o);
        } else {
            std::move_backward(at, last, last + 1);
            inline_[pos] = o;
        }
        ++size_;
    }
    bool contains(Waitable *o) const { return std::binary_search(data(), data() + size_, o); }
    size_t size() const { return size_; }
    void lockAll() const
    {
        for (size_t i = 0; i < size_; ++i)
            data()[i]->lock.lock();
    }
    void unlockAll() const
    {
        for (size_t i = size_; i-- > 0;)
            data()[i]->lock.unlock();
    }
    void addRefAll() const
    {
        for (size_t i = 0; i < size_; ++i)
            data()[i]->addRef();
    }
    void releaseAll() const
    {
        for (size_t i = 0; i < size_; ++i)
            data()[i]->release();
    }

private:
    static constexpr size_t kInline = MAXIMUM_WAIT_OBJECTS;
    Waitable *const *data() const { return overflow_.empty() ? inline_ : overflow_.data(); }
    Waitable **data() { return overflow_.empty() ? inline_ : overflow_.data(); }
    Waitable *inline_[kInline];
    std::vector<Waitable *> overflow_;
    size_t size_ = 0;
};

} // namespace

// Under lock (and, for the wait-all waits queued here, with all of their
// objects locked): hands this object to the waits in queue order.
void Waitable::satisfyWaiters()
{
    WaitLink *link = head;
    while (link) {
        WaitLink *next = link->next;
        Waiter *w = link->waiter;
        if (w->state.load(std::memory_order_acquire) != Waiter::kWaiting) {
            // A wait that was satisfied elsewhere or timed out: drop its link.
            unlink(link);
        } else if (!w->waitAll) {
            if (isSignaledFor(w->thread)) {
                DWORD result = (isAbandoned() ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + link->index;
                // Read and unlink before the claim: once claimed, the waiting
                // thread may return and its links are gone.
                ThreadObject *thread = w->thread;
                unlink(link);
                if (w->claim(result)) {
                    acquire(thread);
                    wakeWaiter(w);
                }
            }
        } else if (allSignaled(w)) {
            Waitable *objects[MAXIMUM_WAIT_OBJECTS];
            for (DWORD i = 0; i < w->count; ++i)
                objects[i] = w->links[i].object;
            DWORD result = WAIT_OBJECT_0;
            for (DWORD i = 0; i < w->count; ++i)
                if (objects[i]->isAbandoned()) {
                    result = WAIT_ABANDONED_0 + i;
                    break;
                }
            // A wait for all has one link in each queue (no object twice),
            // so next stays valid.
            for (DWORD i = 0; i < w->count; ++i)
                objects[i]->unlink(&w->links[i]);
            ThreadObject *thread = w->thread;
            DWORD count = w->count;
            if (w->claim(result)) {
                acquireAll(objects, count, thread);
                wakeWaiter(w);
            }
        }
        link = next;
    }
}

bool Waitable::signalWithWaitAllLocks(void (*op)(void *), void *opCtx, void (*after)(void *), void *afterCtx)
{
    // Collect, under this object's lock, every object of the wait-all waits
    // queued here, and keep them alive while the lock is given up.
    LockSet needed(nullptr, 0);
    needed.add(this);
    {
        std::lock_guard<ObjectLock> guard(lock);
        for (WaitLink *l = head; l; l = l->next)
            if (l->waiter->waitAll && l->waiter->state.load(std::memory_order_acquire) == Waiter::kWaiting)
                for (DWORD i = 0; i < l->waiter->count; ++i)
                    needed.add(l->waiter->links[i].object);
        needed.addRefAll();
    }
    needed.lockAll();
    // Waits may have come meanwhile; all their objects must be locked too.
    bool complete = true;
    for (WaitLink *l = head; l && complete; l = l->next)
        if (l->waiter->waitAll && l->waiter->state.load(std::memory_order_acquire) == Waiter::kWaiting)
            for (DWORD i = 0; i < l->waiter->count; ++i)
                if (!needed.contains(l->waiter->links[i].object)) {
                    complete = false;
                    break;
                }
    if (complete) {
        op(opCtx);
        satisfyWaiters();
        after(afterCtx);
    }
    needed.unlockAll();
    needed.releaseAll();
    return complete;
}

DWORD waitForObjects(DWORD count, Waitable *const *objects, bool waitAll, DWORD milliseconds)
{
    ThreadObject *self = currentThreadObject();
    LockSet ordered(objects, count);
    if (waitAll && ordered.size() != count) {
        // The same object twice in a wait for all of them.
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }

    ordered.lockAll();
    if (!waitAll) {
        for (DWORD i = 0; i < count; ++i)
            if (objects[i]->isSignaledFor(self)) {
                DWORD r = objects[i]->acquire(self) + i;
                ordered.unlockAll();
                return r;
            }
    } else if (std::all_of(objects, objects + count, [self](Waitable *o) { return o->isSignaledFor(self); })) {
        DWORD r = acquireAll(objects, count, self);
        ordered.unlockAll();
        return r;
    }
    if (milliseconds == 0) {
        ordered.unlockAll();
        return WAIT_TIMEOUT;
    }

    Waiter w;
    w.thread = self;
    w.waitAll = waitAll;
    w.count = count;
    for (DWORD i = 0; i < count; ++i) {
        w.links[i].waiter = &w;
        w.links[i].object = objects[i];
        w.links[i].index = i;
        objects[i]->enqueue(&w.links[i]);
    }
    ordered.unlockAll();

    Deadline deadline = Deadline::after(milliseconds);
    uint32_t s;
    for (;;) {
        s = w.state.load(std::memory_order_acquire);
        if (s != Waiter::kWaiting)
            break;
        if (!futexWait(&w.state, Waiter::kWaiting, deadline) || deadline.passed()) {
            uint32_t expected = Waiter::kWaiting;
            if (w.state.compare_exchange_strong(expected, Waiter::kCancelled, std::memory_order_acq_rel)) {
                s = Waiter::kCancelled;
                break;
            }
        }
    }

    // Take the links that are still queued out of their queues. A wait-any
    // that was satisfied lost its satisfied link already; a satisfied
    // wait-all lost all of them.
    DWORD result = s == Waiter::kCancelled ? WAIT_TIMEOUT : s - 1;
    if (s == Waiter::kCancelled || !waitAll) {
        DWORD satisfied = s == Waiter::kCancelled ? MAXIMUM_WAIT_OBJECTS : (result & ~WAIT_ABANDONED_0);
        for (DWORD i = 0; i < count; ++i) {
            if (i == satisfied)
                continue;
            std::lock_guard<ObjectLock> guard(objects[i]->lock);
            objects[i]->unlink(&w.links[i]);
        }
    }
    return result;
}

// ---------------------------------------------------------------------------
// Events

namespace {

class EventObject : public Waitable {
public:
    EventObject(bool manual, bool initial) : Waitable(ObjectKind::Event), manual_(manual), signaled_(initial) {}

    bool isSignaledFor(const ThreadObject *) const override { return signaled_; }
    DWORD acquire(ThreadObject *) override
    {
        if (!manual_)
            signaled_ = false;
        return WAIT_OBJECT_0;
    }

    void set() { signaled_ = true; }
    void reset() { signaled_ = false; }

private:
    const bool manual_;
    bool signaled_; // under lock
};

// ---------------------------------------------------------------------------
// Mutexes

// Puts link into the list of thread, which now owns the mutex.
void linkOwned(OwnedMutexLink *link, ThreadObject *thread)
{
    thread->addRef();
    futexLock(&thread->ownedLock);
    link->thread = thread;
    link->prev = nullptr;
    link->next = thread->ownedHead;
    if (link->next)
        link->next->prev = link;
    thread->ownedHead = link;
    futexUnlock(&thread->ownedLock);
}

// Under the list's lock: takes link out of it.
void unlinkLocked(OwnedMutexLink *link)
{
    ThreadObject *thread = link->thread;
    if (link->prev)
        link->prev->next = link->next;
    else
        thread->ownedHead = link->next;
    if (link->next)
        link->next->prev = link->prev;
    link->thread = nullptr;
    link->prev = link->next = nullptr;
}

// Takes link out of its owner's list, if it is in one. Only the owner's
// own calls, and the destructor of a mutex nobody can reach any more,
// come here, so the owner cannot change meanwhile.
void unlinkOwned(OwnedMutexLink *link)
{
    ThreadObject *thread = link->thread;
    if (!thread)
        return;
    futexLock(&thread->ownedLock);
    unlinkLocked(link);
    futexUnlock(&thread->ownedLock);
    thread->release();
}

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

bool refuseName(LPCSTR name)
{
    if (name && *name) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return true;
    }
    return false;
}

Waitable *waitableOf(HANDLE h, HandleRef &ref)
{
    if (!lookupHandle(h, ref))
        return nullptr;
    return ref.get()->asWaitable();
}

} // namespace

void abandonMutexesOf(ThreadObject *thread)
{
    std::vector<MutexObject *> held;
    futexLock(&thread->ownedLock);
    for (OwnedMutexLink *link = thread->ownedHead; link;) {
        OwnedMutexLink *next = link->next;
        MutexObject *m = static_cast<MutexObject *>(link);
        // A mutex whose last handle is going away is not abandoned to
        // anybody; its destructor takes it out of the list.
        if (m->tryAddRef()) {
            unlinkLocked(link);
            held.push_back(m);
        }
        link = next;
    }
    futexUnlock(&thread->ownedLock);
    for (MutexObject *m : held) {
        thread->release(); // the list's reference; the thread keeps its own
        m->signal([m, thread] { m->abandonIfOwnedBy(thread); });
        m->release();
    }
}

} // namespace tsp

using namespace tsp;

extern "C" {

HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES, BOOL bManualReset, BOOL bInitialState, LPCSTR lpName)
{
    if (refuseName(lpName))
        return nullptr;
    HANDLE h = insertHandle(new EventObject(bManualReset != FALSE, bInitialState != FALSE), EVENT_ALL_ACCESS);
    if (h)
        SetLastError(ERROR_SUCCESS);
    return h;
}

BOOL WINAPI SetEvent(HANDLE hEvent)
{
    HandleRef ref;
    EventObject *e = lookupCachedAs<EventObject>(hEvent, ObjectKind::Event, ref);
    if (!e)
        return FALSE;
    e->signal([e] { e->set(); });
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE hEvent)
{
    HandleRef ref;
    EventObject *e = lookupCachedAs<EventObject>(hEvent, ObjectKind::Event, ref);
    if (!e)
        return FALSE;
    std::lock_guard<ObjectLock> guard(e->lock);
    e->reset();
    return TRUE;
}

BOOL WINAPI PulseEvent(HANDLE hEvent)
{
    HandleRef ref;
    EventObject *e = lookupCachedAs<EventObject>(hEvent, ObjectKind::Event, ref);
    if (!e)
        return FALSE;
    // Set, hand to the waits queued now, reset: all under the event's lock,
    // so a wait that registers a moment later finds the event unsignalled.
    e->signal([e] { e->set(); }, [e] { e->reset(); });
    return TRUE;
}

HANDLE WINAPI CreateMutexA(LPSECURITY_ATTRIBUTES, BOOL bInitialOwner, LPCSTR lpName)
{
    if (refuseName(lpName))
        return nullptr;
    MutexObject *m = new MutexObject;
    if (bInitialOwner) {
        std::lock_guard<ObjectLock> guard(m->lock);
        m->acquire(currentThreadObject());
    }
    HANDLE h = insertHandle(m, MUTEX_ALL_ACCESS);
    if (h)
        SetLastError(ERROR_SUCCESS);
    return h;
}

BOOL WINAPI ReleaseMutex(HANDLE hMutex)
{
    HandleRef ref;
    MutexObject *m = lookupCachedAs<MutexObject>(hMutex, ObjectKind::Mutex, ref);
    if (!m)
        return FALSE;
    ThreadObject *self = currentThreadObject();
    if (m->tryFastRelease(self))
        return TRUE;
    bool released = false;
    m->signal([m, self, &released] { released = m->releaseBy(self); });
    if (!released) {
        SetLastError(ERROR_NOT_OWNER);
        return FALSE;
    }
    return TRUE;
}

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds)
{
    HandleRef ref;
    Waitable *w = lookupHandleCached(hHandle, ref) ? ref.get()->asWaitable() : nullptr;
    if (!w) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    // Most waits find the object signalled: take it without the set-up of
    // a wait that may block.
    ThreadObject *self = currentThreadObject();
    if (w->kind() == ObjectKind::Mutex && static_cast<MutexObject *>(w)->tryFastAcquire(self))
        return WAIT_OBJECT_0;
    {
        std::lock_guard<ObjectLock> guard(w->lock);
        if (w->isSignaledFor(self))
            return w->acquire(self);
        if (dwMilliseconds == 0)
            return WAIT_TIMEOUT;
    }
    return waitForObjects(1, &w, false, dwMilliseconds);
}

DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE *lpHandles, BOOL bWaitAll, DWORD dwMilliseconds)
{
    if (nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS || !lpHandles) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    HandleRef refs[MAXIMUM_WAIT_OBJECTS];
    Waitable *objects[MAXIMUM_WAIT_OBJECTS];
    for (DWORD i = 0; i < nCount; ++i) {
        objects[i] = waitableOf(lpHandles[i], refs[i]);
        if (!objects[i]) {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
    }
    return waitForObjects(nCount, objects, bWaitAll != FALSE, dwMilliseconds);
}

void WINAPI Sleep(DWORD dwMilliseconds)
{
    if (dwMilliseconds == 0) {
        sched_yield();
        return;
    }
    // An unsignalled futex word that nobody wakes: the sleep ends at the
    // deadline only, whatever signals interrupt it.
    std::atomic<uint32_t> never{0};
    Deadline deadline = Deadline::after(dwMilliseconds);
    while (futexWait(&never, 0, deadline) && !deadline.passed()) {
    }
}

BOOL WINAPI SwitchToThread(void) { return sched_yield() == 0; }

} // extern "C"
