// ThreadBase.
#include "ThrdBase.h"

#include "TimeRule.h"

#include <errno.h>
#include <process.h>

#include <iostream>

// Built at load, before the module entry runs, and torn down after it.
Mutex ThreadBase::m_condMutex;
Cond ThreadBase::m_condVar;
int ThreadBase::m_nPredicate = 0;
Mutex ThreadBase::m_ptr_lock_;
void *ThreadBase::m_pPtr_ = nullptr;
std::atomic<int> ThreadBase::m_nReady_{0};
int ThreadBase::m_nOnetime = 0;

namespace {
constexpr int kBarrierHolds = 0;
constexpr int kBarrierOpen = 1;
constexpr int kBarrierStop = 2;
constexpr int kKilled = 2;
} // namespace

ThreadBase::ThreadBase() : m_tid(0), m_pStartRoutine(&ThreadBase::cover_routine), m_nState(0) {}

ThreadBase::ThreadBase(ThreadBase const &other)
    : m_tid(other.m_tid), m_pStartRoutine(other.m_pStartRoutine), m_nState(other.m_nState),
      m_stateLock(other.m_stateLock)
{
}

ThreadBase &ThreadBase::operator=(ThreadBase const &other)
{
    m_tid = other.m_tid;
    m_pStartRoutine = other.m_pStartRoutine;
    m_nState = other.m_nState;
    m_stateLock = other.m_stateLock;
    return *this;
}

ThreadBase::~ThreadBase() {}

int ThreadBase::create(void *, int, unsigned int stackSize)
{
    m_ptr_lock_.lock();
    m_pPtr_ = this;
    // m_tid holds the creator's id, known already; it is set before the new
    // thread exists so that the thread may read it (equal) without a race.
    long formerTid = m_tid;
    m_tid = getThread();
    // The new thread gets its object as the start argument, not through
    // m_pPtr_, which the next create may change before the thread reads it.
    uintptr_t handle = _beginthread(m_pStartRoutine, stackSize, this);
    if (handle == static_cast<uintptr_t>(-1)) {
        int error = errno;
        m_tid = formerTid;
        std::cout << "Error " << error << ": failed to create the thread" << std::endl;
        m_ptr_lock_.unlock();
        return error;
    }
    m_nReady_.store(0);
    m_ptr_lock_.unlock();
    return static_cast<int>(handle);
}

void ThreadBase::cover_routine(void *arg)
{
    ThreadBase *self = static_cast<ThreadBase *>(arg);
    m_nReady_.store(1);
    self->routine(self);
}

void ThreadBase::waitToStart()
{
    m_condMutex.lock();
    while (m_nPredicate != kBarrierOpen) {
        m_stateLock.lock();
        if (m_nState == kKilled) {
            m_stateLock.unlock();
            m_condMutex.unlock();
            texit(nullptr);
        }
        m_stateLock.unlock();
        m_condVar.wait(m_condMutex);
    }
    m_condMutex.unlock();
}

void ThreadBase::Start()
{
    m_condMutex.lock();
    m_nPredicate = kBarrierOpen;
    m_condVar.broadcast();
    m_condMutex.unlock();
}

void ThreadBase::Stop()
{
    m_condMutex.lock();
    m_nPredicate = kBarrierStop;
    m_condMutex.unlock();
}

int ThreadBase::stopSign()
{
    m_condMutex.lock();
    bool stopped = m_nPredicate == kBarrierStop;
    m_condMutex.unlock();
    if (stopped)
        return 1;
    m_stateLock.lock();
    bool killed = m_nState == kKilled;
    m_stateLock.unlock();
    return killed ? 1 : 0;
}

void ThreadBase::kill()
{
    m_stateLock.lock();
    m_nState = kKilled;
    m_stateLock.unlock();
}

void ThreadBase::die()
{
    texit(nullptr);
}

void ThreadBase::texit(void *)
{
    _endthread();
}

long ThreadBase::getThread()
{
    return static_cast<long>(GetCurrentThreadId());
}

long ThreadBase::self()
{
    return getThread();
}

int ThreadBase::equal(ThreadBase &)
{
    return m_tid == getThread() ? 1 : 0;
}

int ThreadBase::getPrio()
{
    return GetThreadPriority(GetCurrentThread());
}

int ThreadBase::setPrio(int priority)
{
    return SetThreadPriority(GetCurrentThread(), priority);
}

int ThreadBase::setProcessor(unsigned long mask)
{
    HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION, 0, GetCurrentProcessId());
    if (!process)
        return 0;
    DWORD_PTR processMask = 0, systemMask = 0;
    BOOL result = GetProcessAffinityMask(process, &processMask, &systemMask);
    CloseHandle(process);
    if (processMask != systemMask) {
        // Asked again with the right to change the process, whose answer
        // then stands; that open is not tested.
        process = OpenProcess(PROCESS_SET_INFORMATION, 0, GetCurrentProcessId());
        result = GetProcessAffinityMask(process, &processMask, &systemMask);
        if (process)
            CloseHandle(process);
    }
    if (!result)
        return 0;
    if (static_cast<DWORD_PTR>(mask) & ~processMask)
        return result;
    return SetThreadAffinityMask(GetCurrentThread(), static_cast<DWORD_PTR>(mask)) ? 1 : 0;
}

int ThreadBase::GetNumProcessors()
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return static_cast<int>(info.dwNumberOfProcessors);
}

int ThreadBase::delay(long seconds, unsigned long nanoseconds)
{
    Sleep(tsutil::MillisecondsOf(seconds, nanoseconds));
    return 1;
}

void ThreadBase::yield()
{
    Sleep(0);
}

int ThreadBase::keyCreate(int &key)
{
    key = static_cast<int>(TlsAlloc());
    return key != -1 ? 1 : 0;
}

int ThreadBase::getSpecific(int const &key, void *&value)
{
    value = TlsGetValue(static_cast<DWORD>(key));
    return value ? 1 : 0;
}

int ThreadBase::setSpecific(int const &key, void const *&value)
{
    return TlsSetValue(static_cast<DWORD>(key), const_cast<void *>(value));
}

int ThreadBase::once(void (*function)())
{
    m_ptr_lock_.lock();
    if (m_nOnetime == 0) {
        if (function)
            function();
        m_nOnetime = 1;
    }
    m_ptr_lock_.unlock();
    return 1;
}

int ThreadBase::cancel() { return 1; }
int ThreadBase::setCancel(int) { return 1; }
int ThreadBase::setAsynccancel(int) { return 1; }
int ThreadBase::detach() { return 0; }
int ThreadBase::getScheduler() { return 0; }
int ThreadBase::join(void *&) { return 0; }
void ThreadBase::lockGlobal() {}
void ThreadBase::unlockGlobal() {}
