// Threads, thread local storage, the last error, and the own process.
#include "check.h"
#include "futex.h"
#include "threadobj.h"

#include <process.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>

#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tsp {

__attribute__((tls_model("initial-exec"))) thread_local ThreadObject *tlsCurrentThread = nullptr;

namespace {

// Read on every call: the initial-exec model makes each read one load.
__attribute__((tls_model("initial-exec"))) thread_local DWORD tlsLastError = ERROR_SUCCESS;

pthread_key_t exitKey;
std::once_flag exitKeyOnce;

DWORD kernelThreadId() { return static_cast<DWORD>(syscall(SYS_gettid)); }

// The processors this process may run on, as a Windows mask. Linux keeps
// an affinity per thread only, so the process's mask is the one the
// process started with, read once when the layer is loaded.
DWORD_PTR readAffinityMask()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) != 0)
        return 1;
    DWORD_PTR mask = 0;
    for (unsigned i = 0; i < sizeof(DWORD_PTR) * CHAR_BIT; ++i)
        if (CPU_ISSET(i, &set))
            mask |= static_cast<DWORD_PTR>(1) << i;
    return mask;
}

const DWORD_PTR startMask = readAffinityMask();

DWORD_PTR processMask() { return startMask; }

DWORD_PTR systemMask()
{
    long n = sysconf(_SC_NPROCESSORS_CONF);
    unsigned bits = sizeof(DWORD_PTR) * CHAR_BIT;
    if (n <= 0)
        n = 1;
    if (static_cast<unsigned long>(n) >= bits)
        return ~static_cast<DWORD_PTR>(0);
    return (static_cast<DWORD_PTR>(1) << n) - 1;
}

// The end of a thread, whatever way it ends: its mutexes are abandoned,
// its handle becomes signalled, and its own reference goes.
void threadEnded(void *p)
{
    ThreadObject *t = static_cast<ThreadObject *>(p);
    {
        std::lock_guard<std::mutex> guard(t->suspendLock);
        t->exiting = true;
    }
    abandonMutexesOf(t);
    t->signal([t] {
        t->ended = true;
        t->exitCode.store(t->result.load());
    });
    if (t->autoCloseHandle)
        TS_CHECK(CloseHandle(t->autoCloseHandle), "CloseHandle of a _beginthread handle");
    if (tlsCurrentThread == t)
        tlsCurrentThread = nullptr;
    t->release();
}

void bindCurrent(ThreadObject *t)
{
    std::call_once(exitKeyOnce,
                   [] { TS_CHECK_CODE(pthread_key_create(&exitKey, threadEnded), "pthread_key_create"); });
    tlsCurrentThread = t;
    // Without it the thread's end goes unseen: its handle never signals.
    TS_CHECK_CODE(pthread_setspecific(exitKey, t), "pthread_setspecific of the thread's end");
}

// Suspension: the thread sleeps here while its count is above zero.
void park(ThreadObject *t)
{
    uint32_t c;
    while ((c = t->suspendCount.load(std::memory_order_acquire)) > 0)
        futexWait(&t->suspendCount, c, Deadline());
}

// A thread suspended from another thread is stopped by this signal, which
// the layer takes for itself when SuspendThread is first used.
int suspendSignal() { return SIGRTMIN + 3; }

void suspendHandler(int)
{
    int saved = errno;
    if (ThreadObject *t = tlsCurrentThread) {
        t->parkSeq.fetch_add(1, std::memory_order_acq_rel);
        futexWake(&t->parkSeq, INT_MAX);
        park(t);
    }
    errno = saved;
}

void installSuspendHandler()
{
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction sa = {};
        sa.sa_handler = suspendHandler;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;
        TS_CHECK(sigaction(suspendSignal(), &sa, nullptr) == 0, "sigaction of the suspend signal");
    });
}

void *threadMain(void *p)
{
    ThreadObject *t = static_cast<ThreadObject *>(p);
    t->pthread = pthread_self();
    bindCurrent(t);
    t->tid.store(kernelThreadId(), std::memory_order_release);
    futexWake(&t->tid, INT_MAX);
    park(t); // created suspended
    if (t->startEx)
        t->result.store(t->startEx(t->arg));
    else
        t->startPlain(t->arg);
    return nullptr;
}

// Starts a thread held at its start until its suspend count is zero.
// Gives the object with the creator's reference, or null and errno.
ThreadObject *startThread(unsigned stackSize, uint32_t initialSuspend, int &error)
{
    ThreadObject *t = new ThreadObject;
    t->suspendCount.store(initialSuspend);
    t->affinity.store(processMask());
    t->addRef(); // the thread's own reference, released at its end
    pthread_attr_t attr;
    TS_CHECK_CODE(pthread_attr_init(&attr), "pthread_attr_init");
    TS_CHECK_CODE(pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED), "pthread_attr_setdetachstate");
    if (stackSize) {
        size_t size = stackSize < PTHREAD_STACK_MIN ? PTHREAD_STACK_MIN : stackSize;
        long page = sysconf(_SC_PAGESIZE);
        size = (size + page - 1) / page * page;
        TS_CHECK_CODE(pthread_attr_setstacksize(&attr, size), "pthread_attr_setstacksize");
    }
    pthread_t id;
    error = pthread_create(&id, &attr, threadMain, t);
    TS_CHECK_CODE(pthread_attr_destroy(&attr), "pthread_attr_destroy");
    if (error) {
        t->release();
        t->release();
        return nullptr;
    }
    // The thread id is known to the creator at once, as on Windows.
    while (t->tid.load(std::memory_order_acquire) == 0)
        futexWait(&t->tid, 0, Deadline());
    return t;
}

void resumeStart(ThreadObject *t)
{
    t->suspendCount.store(0, std::memory_order_release);
    futexWake(&t->suspendCount, INT_MAX);
}

bool validPriority(int p)
{
    return p == THREAD_PRIORITY_IDLE || p == THREAD_PRIORITY_TIME_CRITICAL ||
           (p >= THREAD_PRIORITY_LOWEST && p <= THREAD_PRIORITY_HIGHEST);
}

[[noreturn]] void endCurrentThread(DWORD code)
{
    currentThreadObject()->result.store(code);
    pthread_exit(nullptr);
}

// Thread local storage: a generation per index, so that a value set under
// an index that was freed and allocated again reads as null, as Windows
// clears a freed index in every thread.
constexpr DWORD kTlsSlots = TLS_MINIMUM_AVAILABLE + 1024;

struct TlsIndexes {
    std::mutex lock;
    bool used[kTlsSlots] = {};
    std::atomic<uint32_t> gen[kTlsSlots] = {};
};

TlsIndexes &tlsIndexes()
{
    static TlsIndexes *t = new TlsIndexes;
    return *t;
}

struct TlsValue {
    void *value;
    uint32_t gen;
};
thread_local std::unique_ptr<TlsValue[]> tlsValues;

bool tlsIndexInUse(DWORD index, uint32_t &gen)
{
    if (index >= kTlsSlots)
        return false;
    gen = tlsIndexes().gen[index].load(std::memory_order_acquire);
    return gen & 1; // odd generations are allocated
}

} // namespace

ThreadObject *adoptCurrentThread()
{
    // A thread this layer did not start.
    ThreadObject *t = new ThreadObject;
    t->pthread = pthread_self();
    t->tid.store(kernelThreadId());
    t->affinity.store(processMask());
    bindCurrent(t);
    return t;
}

ProcessObject *processObject()
{
    static ProcessObject *p = new ProcessObject;
    return p;
}

} // namespace tsp

using namespace tsp;

extern "C" {

DWORD WINAPI GetLastError(void) { return tlsLastError; }
void WINAPI SetLastError(DWORD dwErrCode) { tlsLastError = dwErrCode; }

uintptr_t __cdecl _beginthreadex(void *, unsigned stack_size, unsigned(__stdcall *start_address)(void *),
                                 void *arglist, unsigned initflag, unsigned *thrdaddr)
{
    if (!start_address) {
        errno = EINVAL;
        return 0;
    }
    int error;
    ThreadObject *t = startThread(stack_size, 1, error);
    if (!t) {
        errno = error;
        return 0;
    }
    t->startEx = start_address;
    t->arg = arglist;
    HANDLE h = insertHandle(t, THREAD_ALL_ACCESS);
    if (thrdaddr)
        *thrdaddr = t->tid.load();
    if (!(initflag & CREATE_SUSPENDED) || !h)
        resumeStart(t);
    if (!h) {
        errno = EAGAIN;
        return 0;
    }
    return reinterpret_cast<uintptr_t>(h);
}

uintptr_t __cdecl _beginthread(void(__cdecl *start_address)(void *), unsigned stack_size, void *arglist)
{
    if (!start_address) {
        errno = EINVAL;
        return static_cast<uintptr_t>(-1);
    }
    int error;
    ThreadObject *t = startThread(stack_size, 1, error);
    if (!t) {
        errno = error;
        return static_cast<uintptr_t>(-1);
    }
    t->startPlain = start_address;
    t->arg = arglist;
    t->addRef();
    HANDLE h = insertHandle(t, THREAD_ALL_ACCESS);
    // The handle closes itself when the thread ends; it is set before the
    // thread may run so the end always finds it.
    t->autoCloseHandle = h;
    resumeStart(t);
    t->release();
    if (!h) {
        errno = EAGAIN;
        return static_cast<uintptr_t>(-1);
    }
    return reinterpret_cast<uintptr_t>(h);
}

void __cdecl _endthread(void) { endCurrentThread(0); }
void __cdecl _endthreadex(unsigned retval) { endCurrentThread(retval); }
int __cdecl _getpid(void) { return getpid(); }

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T dwStackSize, LPTHREAD_START_ROUTINE lpStartAddress,
                           LPVOID lpParameter, DWORD dwCreationFlags, LPDWORD lpThreadId)
{
    if (!lpStartAddress) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    int error;
    unsigned stack = dwStackSize > UINT_MAX ? UINT_MAX : static_cast<unsigned>(dwStackSize);
    ThreadObject *t = startThread(stack, 1, error);
    if (!t) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    t->startEx = reinterpret_cast<unsigned (*)(void *)>(lpStartAddress);
    t->arg = lpParameter;
    HANDLE h = insertHandle(t, THREAD_ALL_ACCESS);
    if (lpThreadId)
        *lpThreadId = t->tid.load();
    if (!(dwCreationFlags & CREATE_SUSPENDED) || !h)
        resumeStart(t);
    return h;
}

void WINAPI ExitThread(DWORD dwExitCode) { endCurrentThread(dwExitCode); }

DWORD WINAPI SuspendThread(HANDLE hThread)
{
    HandleRef ref;
    ThreadObject *t = lookupAs<ThreadObject>(hThread, ObjectKind::Thread, ref);
    if (!t)
        return static_cast<DWORD>(-1);
    std::unique_lock<std::mutex> guard(t->suspendLock);
    uint32_t prev = t->suspendCount.load();
    if (prev >= MAXIMUM_SUSPEND_COUNT) {
        SetLastError(ERROR_SIGNAL_REFUSED);
        return static_cast<DWORD>(-1);
    }
    t->suspendCount.store(prev + 1, std::memory_order_release);
    if (prev == 0 && !t->exiting) {
        if (t == currentThreadObject()) {
            guard.unlock();
            park(t);
        } else {
            // Returns once the thread has stopped, so what it does after
            // this call is what it does after being resumed.
            installSuspendHandler();
            uint32_t seq = t->parkSeq.load(std::memory_order_acquire);
            // The thread has not reached its end (exiting is false), so it
            // is there to be signalled.
            if (TS_CHECK_CODE(pthread_kill(t->pthread, suspendSignal()), "pthread_kill of the suspend signal"))
                while (t->parkSeq.load(std::memory_order_acquire) == seq)
                    futexWait(&t->parkSeq, seq, Deadline());
        }
    }
    return prev;
}

DWORD WINAPI ResumeThread(HANDLE hThread)
{
    HandleRef ref;
    ThreadObject *t = lookupAs<ThreadObject>(hThread, ObjectKind::Thread, ref);
    if (!t)
        return static_cast<DWORD>(-1);
    std::lock_guard<std::mutex> guard(t->suspendLock);
    uint32_t prev = t->suspendCount.load();
    if (prev > 0) {
        t->suspendCount.store(prev - 1, std::memory_order_release);
        if (prev == 1)
            futexWake(&t->suspendCount, INT_MAX);
    }
    return prev;
}

BOOL WINAPI GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode)
{
    HandleRef ref;
    ThreadObject *t = lookupAs<ThreadObject>(hThread, ObjectKind::Thread, ref);
    if (!t)
        return FALSE;
    if (!lpExitCode) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    *lpExitCode = t->exitCode.load();
    return TRUE;
}

DWORD WINAPI GetCurrentThreadId(void)
{
    static thread_local DWORD id = kernelThreadId();
    return id;
}

HANDLE WINAPI GetCurrentThread(void) { return kCurrentThreadPseudo; }

DWORD WINAPI GetThreadId(HANDLE Thread)
{
    HandleRef ref;
    ThreadObject *t = lookupAs<ThreadObject>(Thread, ObjectKind::Thread, ref);
    return t ? t->tid.load() : 0;
}

int WINAPI GetThreadPriority(HANDLE hThread)
{
    HandleRef ref;
    ThreadObject *t = lookupAs<ThreadObject>(hThread, ObjectKind::Thread, ref);
    return t ? t->priority.load() : THREAD_PRIORITY_ERROR_RETURN;
}

// The priority is kept and reported; Linux's normal scheduling class has no
// per-thread priorities that an unprivileged program could raise.
BOOL WINAPI SetThreadPriority(HANDLE hThread, int nPriority)
{
    HandleRef ref;
    ThreadObject *t = lookupAs<ThreadObject>(hThread, ObjectKind::Thread, ref);
    if (!t)
        return FALSE;
    if (!validPriority(nPriority)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    t->priority.store(nPriority);
    return TRUE;
}

DWORD_PTR WINAPI SetThreadAffinityMask(HANDLE hThread, DWORD_PTR dwThreadAffinityMask)
{
    HandleRef ref;
    ThreadObject *t = lookupAs<ThreadObject>(hThread, ObjectKind::Thread, ref);
    if (!t)
        return 0;
    if (dwThreadAffinityMask == 0 || (dwThreadAffinityMask & ~processMask())) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::lock_guard<std::mutex> guard(t->suspendLock);
    if (!t->exiting) {
        cpu_set_t set;
        CPU_ZERO(&set);
        for (unsigned i = 0; i < sizeof(DWORD_PTR) * CHAR_BIT; ++i)
            if (dwThreadAffinityMask & (static_cast<DWORD_PTR>(1) << i))
                CPU_SET(i, &set);
        int rc = pthread_setaffinity_np(t->pthread, sizeof set, &set);
        if (rc != 0) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
    }
    return t->affinity.exchange(dwThreadAffinityMask);
}

DWORD WINAPI GetCurrentProcessId(void) { return static_cast<DWORD>(getpid()); }
HANDLE WINAPI GetCurrentProcess(void) { return kCurrentProcessPseudo; }

HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL, DWORD dwProcessId)
{
    if (dwProcessId == static_cast<DWORD>(getpid())) {
        ProcessObject *p = processObject();
        p->addRef();
        return insertHandle(p, dwDesiredAccess);
    }
    // Only the own process can be opened: another existing process is
    // refused, a process id that names none is a bad parameter.
    bool exists = dwProcessId != 0 && (kill(static_cast<pid_t>(dwProcessId), 0) == 0 || errno == EPERM);
    SetLastError(exists ? ERROR_ACCESS_DENIED : ERROR_INVALID_PARAMETER);
    return nullptr;
}

DWORD WINAPI GetProcessId(HANDLE Process)
{
    HandleRef ref;
    if (!lookupAs<ProcessObject>(Process, ObjectKind::Process, ref))
        return 0;
    return static_cast<DWORD>(getpid());
}

BOOL WINAPI GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode)
{
    HandleRef ref;
    if (!lookupAs<ProcessObject>(hProcess, ObjectKind::Process, ref))
        return FALSE;
    if (!lpExitCode) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    *lpExitCode = STILL_ACTIVE;
    return TRUE;
}

BOOL WINAPI GetProcessAffinityMask(HANDLE hProcess, PDWORD_PTR lpProcessAffinityMask,
                                   PDWORD_PTR lpSystemAffinityMask)
{
    HandleRef ref;
    if (!lookupAs<ProcessObject>(hProcess, ObjectKind::Process, ref))
        return FALSE;
    if (!lpProcessAffinityMask || !lpSystemAffinityMask) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    *lpProcessAffinityMask = processMask();
    *lpSystemAffinityMask = systemMask();
    return TRUE;
}

void WINAPI ExitProcess(UINT uExitCode) { exit(static_cast<int>(uExitCode)); }

DWORD WINAPI TlsAlloc(void)
{
    TlsIndexes &t = tlsIndexes();
    std::lock_guard<std::mutex> guard(t.lock);
    for (DWORD i = 0; i < kTlsSlots; ++i)
        if (!t.used[i]) {
            t.used[i] = true;
            t.gen[i].fetch_add(1, std::memory_order_release); // now odd
            return i;
        }
    SetLastError(ERROR_NO_MORE_ITEMS);
    return TLS_OUT_OF_INDEXES;
}

BOOL WINAPI TlsFree(DWORD dwTlsIndex)
{
    TlsIndexes &t = tlsIndexes();
    std::lock_guard<std::mutex> guard(t.lock);
    if (dwTlsIndex >= kTlsSlots || !t.used[dwTlsIndex]) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    t.used[dwTlsIndex] = false;
    t.gen[dwTlsIndex].fetch_add(1, std::memory_order_release); // now even
    return TRUE;
}

LPVOID WINAPI TlsGetValue(DWORD dwTlsIndex)
{
    uint32_t gen;
    if (!tlsIndexInUse(dwTlsIndex, gen)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    if (!tlsValues || tlsValues[dwTlsIndex].gen != gen)
        return nullptr;
    return tlsValues[dwTlsIndex].value;
}

BOOL WINAPI TlsSetValue(DWORD dwTlsIndex, LPVOID lpTlsValue)
{
    uint32_t gen;
    if (!tlsIndexInUse(dwTlsIndex, gen)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!tlsValues)
        tlsValues.reset(new TlsValue[kTlsSlots]());
    tlsValues[dwTlsIndex] = {lpTlsValue, gen};
    return TRUE;
}

} // extern "C"
