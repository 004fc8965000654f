// Mutex and Cond.
#include "Mutex.h"

#include "TimeRule.h"

#include <atomic>
#include <cassert>
#include <cstddef>
#include <iostream>
#include <new>

namespace {

// The cell behind Mutex::m_phMutex. The handle comes first, so the cell's
// address is the address of the handle that getMutex hands out. Copies
// share the cell and count themselves in users; the last one to leave
// closes the handle and frees the cell.
struct MutexCell {
    void *handle;
    std::atomic<long> users;
};
static_assert(offsetof(MutexCell, handle) == 0, "the handle is the cell's first member");

MutexCell *CellOf(void **phMutex)
{
    return reinterpret_cast<MutexCell *>(phMutex);
}

void **Share(void **phMutex)
{
    if (phMutex)
        CellOf(phMutex)->users.fetch_add(1, std::memory_order_relaxed);
    return phMutex;
}

void Leave(void **phMutex)
{
    if (!phMutex)
        return;
    MutexCell *cell = CellOf(phMutex);
    if (cell->users.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        if (cell->handle)
            CloseHandle(cell->handle);
        delete cell;
    }
}

bool Acquired(DWORD waitResult)
{
    return waitResult == WAIT_OBJECT_0 || waitResult == WAIT_ABANDONED;
}

} // namespace

Mutex::Mutex() : m_phMutex(nullptr)
{
    MutexCell *cell = new (std::nothrow) MutexCell;
    if (!cell)
        return;
    cell->handle = CreateMutexA(nullptr, 0, nullptr);
    cell->users.store(1, std::memory_order_relaxed);
    m_phMutex = &cell->handle;
}

Mutex::Mutex(Mutex const &other) : m_phMutex(Share(other.m_phMutex)) {}

Mutex &Mutex::operator=(Mutex const &other)
{
    if (m_phMutex != other.m_phMutex) {
        void **former = m_phMutex;
        m_phMutex = Share(other.m_phMutex);
        Leave(former);
    }
    return *this;
}

Mutex::~Mutex()
{
    destroy();
}

int Mutex::destroy()
{
    Leave(m_phMutex);
    m_phMutex = nullptr;
    return 1;
}

void **Mutex::getMutex()
{
    return m_phMutex;
}

int Mutex::lock()
{
    if (!m_phMutex) {
        SetLastError(ERROR_INVALID_HANDLE);
        return static_cast<int>(WAIT_FAILED);
    }
    return static_cast<int>(WaitForSingleObject(*m_phMutex, INFINITE));
}

int Mutex::unlock()
{
    if (!m_phMutex) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return ReleaseMutex(*m_phMutex);
}

int Mutex::trylock()
{
    if (!m_phMutex) {
        SetLastError(ERROR_INVALID_HANDLE);
        return static_cast<int>(WAIT_FAILED);
    }
    return static_cast<int>(WaitForSingleObject(*m_phMutex, 0));
}

int Mutex::IsLocked()
{
    if (!m_phMutex)
        return 1;
    DWORD r = WaitForSingleObject(*m_phMutex, 0);
    if (!Acquired(r))
        return 1;
    // The attempt took a hold; a query must not keep it. (Taking over an
    // abandoned mutex clears its abandoned state all the same.)
    ReleaseMutex(*m_phMutex);
    return 0;
}

// The state behind Cond. Every waiting thread queues a record of its own,
// with an auto-reset event of its own, and a wake-up is a SetEvent on the
// record of a thread that is in the queue. A thread in the queue is thus
// woken even if it has not reached its wait on the event yet, and a
// wake-up with nobody queued reaches nobody. Records are kept for reuse,
// so a wait creates no event once the Cond has seen as many waiters at once.
//
// "signals" counts signal and broadcast calls. A wait with a Mutex reads it
// before it gives the Mutex up; if it has moved by the time the thread is
// queued, a signal came after the caller tested its condition, and the
// wait returns at once instead of sleeping through it.
//
// A wake-up is decided under hLock (the record leaves the queue, marked
// woken) and delivered after hLock is given up, so that the woken thread
// does not run straight into the lock its waker still holds. Until the
// event is set the record stays its waiter's: a waiter that finds itself
// woken waits for that event before it reuses the record.
struct CondWaiter {
    HANDLE hEvent;
    CondWaiter *prev;
    CondWaiter *next;
    CondWaiter *wakeNext; // the chain of one signal or broadcast
    bool woken;
};

struct CondState {
    HANDLE hEvent;     // the event of the first record, made with the Cond
    HANDLE hLock;      // guards everything below; never held during a wait
    DWORD nWaiters;    // threads queued now
    std::atomic<unsigned long> signals;
    std::atomic<long> users; // objects sharing this state
    CondWaiter *head;  // the queue, longest waiting first
    CondWaiter *tail;
    CondWaiter *idle;  // records ready for reuse, each event unsignalled
};

namespace {

bool TakeInnerLock(CondState *s)
{
    return Acquired(WaitForSingleObject(s->hLock, INFINITE));
}

void Unqueue(CondState *s, CondWaiter *w)
{
    (w->prev ? w->prev->next : s->head) = w->next;
    (w->next ? w->next->prev : s->tail) = w->prev;
    w->prev = w->next = nullptr;
    --s->nWaiters;
}

// Takes the longest waiting thread out of the queue, to be woken by
// Deliver; the caller holds hLock and the queue is not empty.
CondWaiter *ChooseFirst(CondState *s)
{
    CondWaiter *w = s->head;
    Unqueue(s, w);
    w->woken = true;
    w->wakeNext = nullptr;
    return w;
}

// Sets the events of a chain of chosen waiters, without hLock. Each record
// is read before its event is set: from then on its thread may reuse it.
// onFailure sees each refusal of the platform.
template <class F> BOOL Deliver(CondWaiter *chain, F onFailure)
{
    BOOL all = 1;
    while (chain) {
        CondWaiter *next = chain->wakeNext;
        if (!SetEvent(chain->hEvent)) {
            all = 0;
            onFailure();
        }
        chain = next;
    }
    return all;
}

CondWaiter *NewWaiter(HANDLE hEvent)
{
    CondWaiter *w = new (std::nothrow) CondWaiter{hEvent, nullptr, nullptr, nullptr, false};
    if (!w && hEvent)
        CloseHandle(hEvent);
    return w;
}

void FreeWaiters(CondWaiter *w)
{
    while (w) {
        CondWaiter *next = w->next;
        if (w->hEvent)
            CloseHandle(w->hEvent);
        delete w;
        w = next;
    }
}

void LeaveCond(CondState *s)
{
    if (!s || s->users.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    if (s->hLock)
        CloseHandle(s->hLock);
    // A destroyed Cond has nobody waiting, but a record left in the queue
    // by a failed wait is freed all the same.
    FreeWaiters(s->head);
    FreeWaiters(s->idle);
    delete s;
}

} // namespace

Cond::Cond() : m_pState(new (std::nothrow) CondState)
{
    if (!m_pState)
        return;
    CondState *s = m_pState;
    s->hEvent = CreateEventA(nullptr, 0, 0, nullptr);
    s->hLock = CreateMutexA(nullptr, 0, nullptr);
    s->nWaiters = 0;
    s->signals.store(0, std::memory_order_relaxed);
    s->users.store(1, std::memory_order_relaxed);
    s->head = s->tail = nullptr;
    s->idle = s->hEvent ? NewWaiter(s->hEvent) : nullptr;
}

Cond::~Cond()
{
    destroy();
}

int Cond::destroy()
{
    LeaveCond(m_pState);
    m_pState = nullptr;
    return 1;
}

Cond &Cond::operator=(Cond const &other)
{
    if (m_pState != other.m_pState) {
        CondState *former = m_pState;
        m_pState = other.m_pState;
        if (m_pState)
            m_pState->users.fetch_add(1, std::memory_order_relaxed);
        LeaveCond(former);
    }
    return *this;
}

unsigned long Cond::ticket() const
{
    return m_pState ? m_pState->signals.load(std::memory_order_acquire) : 0;
}

int Cond::waitCore(unsigned long ticket, DWORD milliseconds)
{
    CondState *s = m_pState;
    if (!s || !s->hLock) {
        SetLastError(ERROR_INVALID_HANDLE);
        return static_cast<int>(WAIT_FAILED);
    }
    if (!TakeInnerLock(s))
        return static_cast<int>(WAIT_FAILED);
    if (s->signals.load(std::memory_order_relaxed) != ticket) {
        ReleaseMutex(s->hLock);
        return WAIT_OBJECT_0;
    }
    CondWaiter *w = s->idle;
    if (w)
        s->idle = w->next;
    else
        w = NewWaiter(CreateEventA(nullptr, 0, 0, nullptr));
    if (!w || !w->hEvent) {
        delete w;
        ReleaseMutex(s->hLock);
        return static_cast<int>(WAIT_FAILED);
    }
    w->woken = false;
    w->next = nullptr;
    w->prev = s->tail;
    (s->tail ? s->tail->next : s->head) = w;
    s->tail = w;
    ++s->nWaiters;
    ReleaseMutex(s->hLock);

    DWORD r = WaitForSingleObject(w->hEvent, milliseconds);

    if (!TakeInnerLock(s)) {
        // The record cannot be taken back without the lock; it stays where
        // it is, and the state frees it with the Cond.
        return r == WAIT_OBJECT_0 ? WAIT_OBJECT_0 : static_cast<int>(WAIT_FAILED);
    }
    if (w->woken) {
        // A wake-up that crossed a time-out: it was meant for this thread,
        // so it counts. Its event is set (or is about to be, by a waker
        // that has given up hLock) and is consumed before the record is
        // reused.
        if (r != WAIT_OBJECT_0) {
            ReleaseMutex(s->hLock);
            DWORD consumed = WaitForSingleObject(w->hEvent, INFINITE);
            assert(consumed == WAIT_OBJECT_0);
            (void)consumed;
            r = WAIT_OBJECT_0;
            if (!TakeInnerLock(s))
                return static_cast<int>(r);
        }
    } else {
        Unqueue(s, w);
    }
    w->next = s->idle;
    s->idle = w;
    ReleaseMutex(s->hLock);
    return static_cast<int>(r);
}

int Cond::wait()
{
    int r = waitCore(ticket(), INFINITE);
    return r == static_cast<int>(WAIT_FAILED) ? r : 0;
}

int Cond::wait(Mutex &m)
{
    unsigned long t = ticket();
    m.unlock();
    waitCore(t, INFINITE);
    return m.lock();
}

int Cond::timedwait(long seconds)
{
    return waitCore(ticket(), static_cast<DWORD>(seconds) * 1000u);
}

int Cond::timedwait(long seconds, unsigned long nanoseconds)
{
    return waitCore(ticket(), tsutil::MillisecondsOf(seconds, nanoseconds));
}

int Cond::timedwait(Mutex &m, long seconds, unsigned long nanoseconds)
{
    unsigned long t = ticket();
    m.unlock();
    int r = waitCore(t, tsutil::MillisecondsOf(seconds, nanoseconds));
    m.lock();
    return r;
}

int Cond::signal()
{
    CondState *s = m_pState;
    if (!s || !s->hLock) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    if (!TakeInnerLock(s))
        return 0;
    s->signals.fetch_add(1, std::memory_order_release);
    CondWaiter *chosen = s->head ? ChooseFirst(s) : nullptr;
    ReleaseMutex(s->hLock);
    return Deliver(chosen, [] {});
}

int Cond::broadcast()
{
    CondState *s = m_pState;
    if (!s || !s->hLock || !TakeInnerLock(s))
        return 1;
    s->signals.fetch_add(1, std::memory_order_release);
    // Everyone queued now is chosen; a thread that queues later is not.
    CondWaiter *chain = nullptr, **link = &chain;
    while (s->head) {
        *link = ChooseFirst(s);
        link = &(*link)->wakeNext;
    }
    *link = nullptr;
    ReleaseMutex(s->hLock);
    Deliver(chain, [] {
        std::cout << "Error status = " << static_cast<unsigned long>(GetLastError()) << std::endl;
    });
    return 1;
}
