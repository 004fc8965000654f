// Mutex: the library's recursive lock, and Cond: its condition variable.
// Both are thin layers on the platform's mutexes and events, and their
// results are the platform's own numbers, untranslated.
#pragma once

#include "TSDefs.h"

// A recursive lock on one platform mutex. The holder may lock again and must
// unlock as often as it locked; only the holder can unlock; when a holder
// ends without unlocking, the next lock succeeds with 0x80 (abandoned).
//
// Copies share one platform mutex: the copy and its source are one lock.
// The mutex lives until the last object that shares it is destroyed (a
// count of users kept beside the handle, see Mutex.cpp).
class TSUTIL_API Mutex {
public:
    // Creates a free, unnamed platform mutex. A failed creation is not
    // tested here; it shows as -1 from lock.
    Mutex();
    // Shares other's lock: both objects then lock the same platform mutex.
    Mutex(Mutex const &other);
    // Makes this object share other's lock. Its former lock is given up,
    // and closed if no other object shares it.
    Mutex &operator=(Mutex const &other);
    // Calls destroy().
    virtual ~Mutex();

    // Gives up this object's share of the lock; the platform mutex is closed
    // with its last user. The object is unusable afterwards: lock and
    // trylock give -1, unlock 0. Always 1; a second call does nothing.
    int destroy();
    // The address of the cell that holds the platform handle; null after
    // destroy.
    void **getMutex();

    // Waits without a limit: 0 when acquired, 0x80 when acquired from a
    // thread that ended holding it, -1 when the wait failed.
    int lock();
    // Releases one hold: non-zero when released, 0 when the caller does not
    // hold the lock (nothing changes then).
    int unlock();
    // Takes the lock if that is possible at once, as one hold, like lock:
    // 0 (or 0x80) when acquired, 258 (WAIT_TIMEOUT) when another thread
    // holds it, -1 when the attempt failed.
    int trylock();
    // 1 when another thread holds the lock, 0 when it is free or held by
    // the calling thread. Leaves the lock as it found it.
    int IsLocked();

private:
    void **m_phMutex;
};

struct CondState;

// A condition variable without memory: signal wakes one waiting thread,
// broadcast every thread waiting at that moment, and with nobody waiting
// either is gone, so a later wait blocks. Callers test their condition in a
// loop around the wait. No wake-up is lost for a thread that was waiting
// when the signal came, nor for one that tested its condition under the
// Mutex it hands to wait before the signaller changed it under that Mutex.
//
// Lock order: the caller's Mutex is given up before the Cond's inner lock is
// taken, and the inner lock is never held while waiting.
class TSUTIL_API Cond {
public:
    // Allocates the state, creates the wake event and the inner lock. A
    // failed creation shows as -1 from the waits, 0 from signal.
    Cond();
    // Gives up this object's share of the state; the last user closes it.
    ~Cond();
    // Makes this object share other's condition; its former state is given
    // up, and closed if no other object shares it.
    Cond &operator=(Cond const &other);
    // No copy construction: copies come about only through assignment.
    Cond(Cond const &) = delete;

    // As the destructor; the object is unusable afterwards (waits give -1,
    // signal 0). Always 1.
    int destroy();

    // Waits without a limit. 0 when woken, -1 when the Cond is unusable.
    int wait();
    // m.unlock(), wait without a limit, m.lock(). Gives that lock's result:
    // 0 in the regular case.
    int wait(Mutex &m);
    // Waits at most seconds * 1000 milliseconds. 0 when woken, 258
    // (WAIT_TIMEOUT) when the limit ran out, -1 when the wait failed.
    int timedwait(long seconds);
    // As above with the limit seconds * 1000 + (nanoseconds mod 1e9) / 1e6
    // milliseconds in unsigned 32-bit arithmetic: what lies below a
    // millisecond is lost, and nanoseconds do not carry into seconds.
    int timedwait(long seconds, unsigned long nanoseconds);
    // m.unlock(), the wait above, m.lock(); gives the wait's result. m is
    // locked again on every path.
    int timedwait(Mutex &m, long seconds, unsigned long nanoseconds);

    // Wakes one waiting thread, the longest waiting. Non-zero for success
    // (also when nobody waits), 0 when the platform failed.
    int signal();
    // Wakes every thread waiting now. A wake-up the platform refuses is
    // reported as "Error status = <error>" on standard output, and the
    // broadcast goes on. Always 1.
    int broadcast();

private:
    // The core shared by the five waits; ticket is the signal count the
    // caller saw while its condition was still guarded.
    int waitCore(unsigned long ticket, DWORD milliseconds);
    // The signal count now, under the inner lock.
    unsigned long ticket() const;

    CondState *m_pState;
};
