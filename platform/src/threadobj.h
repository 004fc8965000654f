// Threads and the process as kernel objects.
#pragma once

#include "waitable.h"

#include <pthread.h>

#include <atomic>

namespace tsp {

class ThreadObject;

// A mutex's place in the list of the mutexes its owner thread owns. All
// three fields are guarded by the owner's ownedLock; thread is null while
// the mutex is in no list.
struct OwnedMutexLink {
    ThreadObject *thread = nullptr;
    OwnedMutexLink *prev = nullptr;
    OwnedMutexLink *next = nullptr;
};

class ThreadObject : public Waitable {
public:
    ThreadObject() : Waitable(ObjectKind::Thread) {}

    bool isSignaledFor(const ThreadObject *) const override { return ended; }
    DWORD acquire(ThreadObject *) override { return WAIT_OBJECT_0; }

    // Fixed once the thread runs.
    pthread_t pthread{};
    std::atomic<uint32_t> tid{0};
    // Suspension: the count, and a sequence that the thread advances each
    // time it enters its suspension point, so a suspender can tell it has.
    std::mutex suspendLock;
    std::atomic<uint32_t> suspendCount{0};
    std::atomic<uint32_t> parkSeq{0};
    bool exiting = false; // under suspendLock: no more suspension signals
    std::atomic<int> priority{THREAD_PRIORITY_NORMAL};
    std::atomic<DWORD_PTR> affinity{0};
    std::atomic<DWORD> exitCode{STILL_ACTIVE}; // STILL_ACTIVE until the end
    std::atomic<DWORD> result{0};               // what the end will report
    // The mutexes this thread owns, so that its end finds them without
    // looking at any other. A mutex in the list holds a reference to the
    // thread. The lock ranks after any object lock.
    std::atomic<uint32_t> ownedLock{0};
    OwnedMutexLink *ownedHead = nullptr; // under ownedLock
    bool ended = false; // under lock
    HANDLE autoCloseHandle = nullptr; // _beginthread's handle, closed at the end

    // Start routine, for threads this layer starts: one of the two.
    unsigned (*startEx)(void *) = nullptr;
    void (*startPlain)(void *) = nullptr;
    void *arg = nullptr;
};

class ProcessObject : public Waitable {
public:
    ProcessObject() : Waitable(ObjectKind::Process) {}
    // The own process never ends while a thread of it waits.
    bool isSignaledFor(const ThreadObject *) const override { return false; }
    DWORD acquire(ThreadObject *) override { return WAIT_OBJECT_0; }
};

// The calling thread's object; a thread this layer did not start (the main
// thread, a std::thread) gets one on first use.
extern __attribute__((tls_model("initial-exec"))) thread_local ThreadObject *tlsCurrentThread;
ThreadObject *adoptCurrentThread();
inline ThreadObject *currentThreadObject()
{
    ThreadObject *t = tlsCurrentThread;
    return t ? t : adoptCurrentThread();
}
ProcessObject *processObject();

// At the thread's end: abandons every mutex it still owns.
void abandonMutexesOf(ThreadObject *thread);

} // namespace tsp
