// The wait queue of every waitable object: how a wait registers, sleeps
// and is handed the objects that satisfy it.
#include "futex.h"
#include "threadobj.h"

#include <algorithm>
#include <vector>

namespace tsp {


// One blocked wait. Its state word is the futex the thread sleeps on: 0
// while waiting, the Win32 result + 1 once satisfied, kCancelled once the
// waiting thread has given up (time-out). Only one compare-and-swap from 0
// wins, so a wait is satisfied once or cancelled, never both.
struct Waiter {
    static constexpr uint32_t kWaiting = 0;
    static constexpr uint32_t kCancelled = 0xFFFFFFFFu;

    std::atomic<uint32_t> state{kWaiting};
    ThreadObject *thread;
    bool waitAll;
    DWORD count;
    WaitLink links[MAXIMUM_WAIT_OBJECTS]; // the first count are in use

    // Set up before any object is locked, so the locks are held only for
    // the test and the registration.
    Waiter(ThreadObject *self, bool all, DWORD n, Waitable *const *objects) : thread(self), waitAll(all), count(n)
    {
        for (DWORD i = 0; i < n; ++i) {
            links[i].waiter = this;
            links[i].object = objects[i];
            links[i].index = i;
            links[i].prev = links[i].next = nullptr;
            links[i].queued = false;
        }
    }

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

namespace {

// Sleeps until the registered wait w is satisfied or its limit passes,
// then takes its remaining links out of their queues. Gives the result.
DWORD sleepOn(Waiter &w, Waitable *const *objects, DWORD milliseconds)
{
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
    if (s == Waiter::kCancelled || !w.waitAll) {
        DWORD satisfied = s == Waiter::kCancelled ? MAXIMUM_WAIT_OBJECTS : (result & ~WAIT_ABANDONED_0);
        for (DWORD i = 0; i < w.count; ++i) {
            if (i == satisfied)
                continue;
            std::lock_guard<ObjectLock> guard(objects[i]->lock);
            objects[i]->unlink(&w.links[i]);
        }
    }
    return result;
}

} // namespace

DWORD waitForObjects(DWORD count, Waitable *const *objects, bool waitAll, DWORD milliseconds)
{
    ThreadObject *self = currentThreadObject();
    LockSet ordered(objects, count);
    if (waitAll && ordered.size() != count) {
        // The same object twice in a wait for all of them.
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    Waiter w(self, waitAll, count, objects);

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
    for (DWORD i = 0; i < count; ++i)
        objects[i]->enqueue(&w.links[i]);
    ordered.unlockAll();
    return sleepOn(w, objects, milliseconds);
}

DWORD waitForObject(Waitable *object, DWORD milliseconds)
{
    ThreadObject *self = currentThreadObject();
    Waiter w(self, false, 1, &object);
    {
        std::lock_guard<ObjectLock> guard(object->lock);
        if (object->isSignaledFor(self))
            return object->acquire(self);
        if (milliseconds == 0)
            return WAIT_TIMEOUT;
        object->enqueue(&w.links[0]);
    }
    return sleepOn(w, &object, milliseconds);
}

} // namespace tsp
