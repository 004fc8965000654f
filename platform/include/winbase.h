/* Kernel32 subset: handles, kernel objects and waits, threads and thread
 * local storage, critical sections, memory and system information. Each
 * call has the results and GetLastError codes that Windows documents;
 * where this layer differs, the declaration says so. */
#ifndef TSPLATFORM_WINBASE_H
#define TSPLATFORM_WINBASE_H

#include "windef.h"
#include "winerror.h"

#define INFINITE                0xFFFFFFFF
#define INVALID_HANDLE_VALUE    ((HANDLE)(LONG_PTR)-1)

#define WAIT_OBJECT_0           0x00000000L
#define WAIT_ABANDONED          0x00000080L
#define WAIT_ABANDONED_0        0x00000080L
#define WAIT_FAILED             ((DWORD)0xFFFFFFFF)
#define MAXIMUM_WAIT_OBJECTS    64
#define STILL_ACTIVE            259L
#define STATUS_PENDING          0x00000103L

/* Access rights of kernel objects (the standard and generic rights are in
 * windef.h). This layer grants every handle full access to the objects of
 * its own process; the masks are accepted and kept for DuplicateHandle. */
#define EVENT_MODIFY_STATE      0x0002
#define EVENT_ALL_ACCESS        (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0x3)
#define MUTEX_MODIFY_STATE      0x0001
#define MUTEX_ALL_ACCESS        (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0x1)
#define THREAD_TERMINATE        0x0001
#define THREAD_SUSPEND_RESUME   0x0002
#define THREAD_SET_INFORMATION  0x0020
#define THREAD_QUERY_INFORMATION 0x0040
#define THREAD_ALL_ACCESS       (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0xFFFF)
#define PROCESS_TERMINATE       0x0001
#define PROCESS_DUP_HANDLE      0x0040
#define PROCESS_SET_INFORMATION 0x0200
#define PROCESS_QUERY_INFORMATION 0x0400
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000
#define PROCESS_ALL_ACCESS      (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0xFFFF)

#define DUPLICATE_CLOSE_SOURCE  0x00000001
#define DUPLICATE_SAME_ACCESS   0x00000002

#define CREATE_SUSPENDED        0x00000004
#define STACK_SIZE_PARAM_IS_A_RESERVATION 0x00010000
#define MAXIMUM_SUSPEND_COUNT   0x7F

#define THREAD_PRIORITY_LOWEST          (-2)
#define THREAD_PRIORITY_BELOW_NORMAL    (-1)
#define THREAD_PRIORITY_NORMAL          0
#define THREAD_PRIORITY_HIGHEST         2
#define THREAD_PRIORITY_ABOVE_NORMAL    1
#define THREAD_PRIORITY_ERROR_RETURN    (0x7FFFFFFF)
#define THREAD_PRIORITY_TIME_CRITICAL   15
#define THREAD_PRIORITY_IDLE            (-15)

#define TLS_OUT_OF_INDEXES      ((DWORD)0xFFFFFFFF)
#define TLS_MINIMUM_AVAILABLE   64

#define GMEM_FIXED              0x0000
#define GMEM_MOVEABLE           0x0002
#define GMEM_ZEROINIT           0x0040
#define GMEM_MODIFY             0x0080
#define GMEM_INVALID_HANDLE     0x8000
#define GPTR                    (GMEM_FIXED | GMEM_ZEROINIT)
#define GHND                    (GMEM_MOVEABLE | GMEM_ZEROINIT)

#define HEAP_NO_SERIALIZE           0x00000001
#define HEAP_GENERATE_EXCEPTIONS    0x00000004
#define HEAP_ZERO_MEMORY            0x00000008
#define HEAP_REALLOC_IN_PLACE_ONLY  0x00000010

#define PROCESSOR_ARCHITECTURE_INTEL 0
#define PROCESSOR_ARCHITECTURE_ARM   5
#define PROCESSOR_ARCHITECTURE_AMD64 9
#define PROCESSOR_ARCHITECTURE_ARM64 12
#define PROCESSOR_INTEL_386     386
#define PROCESSOR_INTEL_486     486
#define PROCESSOR_INTEL_PENTIUM 586
#define PROCESSOR_AMD_X8664     8664

typedef struct _SYSTEM_INFO {
    union {
        DWORD dwOemId;
        struct {
            WORD wProcessorArchitecture;
            WORD wReserved;
        } s;
    } u;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
} SYSTEM_INFO, *LPSYSTEM_INFO;

/* The layout of Windows' RTL_CRITICAL_SECTION. On POSIX, LockCount is the
 * lock word (0 free, 1 held, 2 held with sleepers), OwningThread holds the
 * owner's thread id and RecursionCount its depth; no memory is allocated. */
typedef struct _RTL_CRITICAL_SECTION {
    PVOID DebugInfo;
    LONG LockCount;
    LONG RecursionCount;
    HANDLE OwningThread;
    HANDLE LockSemaphore;
    ULONG_PTR SpinCount;
} RTL_CRITICAL_SECTION, CRITICAL_SECTION, *PCRITICAL_SECTION, *LPCRITICAL_SECTION;

typedef DWORD (WINAPI *LPTHREAD_START_ROUTINE)(LPVOID);

TS_EXTERN_C_BEGIN

/* Errors: per thread. */
WINBASEAPI DWORD WINAPI GetLastError(void);
WINBASEAPI void WINAPI SetLastError(DWORD dwErrCode);

/* Handles. Pseudo handles: GetCurrentProcess() is (HANDLE)-1 and
 * GetCurrentThread() is (HANDLE)-2; DuplicateHandle turns them into real
 * handles. Only the own process can be a source or target process. */
WINBASEAPI BOOL WINAPI CloseHandle(HANDLE hObject);
WINBASEAPI BOOL WINAPI DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle,
                                       HANDLE hTargetProcessHandle, LPHANDLE lpTargetHandle,
                                       DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwOptions);
WINBASEAPI BOOL WINAPI GetProcessHandleCount(HANDLE hProcess, PDWORD pdwHandleCount);

/* Events and mutexes. Named objects are refused (ERROR_NOT_SUPPORTED): this
 * layer has no namespace shared between processes, and a name that only
 * held within one process would pretend otherwise. */
WINBASEAPI HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                                      BOOL bInitialState, LPCSTR lpName);
WINBASEAPI BOOL WINAPI SetEvent(HANDLE hEvent);
WINBASEAPI BOOL WINAPI ResetEvent(HANDLE hEvent);
WINBASEAPI BOOL WINAPI PulseEvent(HANDLE hEvent);
WINBASEAPI HANDLE WINAPI CreateMutexA(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner,
                                      LPCSTR lpName);
WINBASEAPI BOOL WINAPI ReleaseMutex(HANDLE hMutex);

/* Waits. Results WAIT_OBJECT_0 + i, WAIT_ABANDONED_0 + i, WAIT_TIMEOUT or
 * WAIT_FAILED. Event, mutex, thread and process handles are waitable. */
WINBASEAPI DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
WINBASEAPI DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE *lpHandles, BOOL bWaitAll,
                                               DWORD dwMilliseconds);
WINBASEAPI void WINAPI Sleep(DWORD dwMilliseconds);
WINBASEAPI BOOL WINAPI SwitchToThread(void);

/* Threads. SuspendThread of a running thread stops it at once (through a
 * signal of the layer's own on POSIX); the counts follow Windows. */
WINBASEAPI HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T dwStackSize,
                                      LPTHREAD_START_ROUTINE lpStartAddress, LPVOID lpParameter,
                                      DWORD dwCreationFlags, LPDWORD lpThreadId);
WINBASEAPI void WINAPI ExitThread(DWORD dwExitCode);
WINBASEAPI DWORD WINAPI ResumeThread(HANDLE hThread);
WINBASEAPI DWORD WINAPI SuspendThread(HANDLE hThread);
WINBASEAPI BOOL WINAPI GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode);
WINBASEAPI DWORD WINAPI GetCurrentThreadId(void);
WINBASEAPI HANDLE WINAPI GetCurrentThread(void);
WINBASEAPI DWORD WINAPI GetThreadId(HANDLE Thread);
WINBASEAPI int WINAPI GetThreadPriority(HANDLE hThread);
WINBASEAPI BOOL WINAPI SetThreadPriority(HANDLE hThread, int nPriority);
WINBASEAPI DWORD_PTR WINAPI SetThreadAffinityMask(HANDLE hThread, DWORD_PTR dwThreadAffinityMask);

/* Processes: only the own process can be opened. */
WINBASEAPI DWORD WINAPI GetCurrentProcessId(void);
WINBASEAPI HANDLE WINAPI GetCurrentProcess(void);
WINBASEAPI HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId);
WINBASEAPI DWORD WINAPI GetProcessId(HANDLE Process);
WINBASEAPI BOOL WINAPI GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode);
WINBASEAPI BOOL WINAPI GetProcessAffinityMask(HANDLE hProcess, PDWORD_PTR lpProcessAffinityMask,
                                              PDWORD_PTR lpSystemAffinityMask);
WINBASEAPI void WINAPI ExitProcess(UINT uExitCode);
WINBASEAPI void WINAPI GetSystemInfo(LPSYSTEM_INFO lpSystemInfo);
WINBASEAPI DWORD WINAPI GetTickCount(void);
WINBASEAPI ULONGLONG WINAPI GetTickCount64(void);
WINBASEAPI BOOL WINAPI QueryPerformanceCounter(LARGE_INTEGER *lpPerformanceCount);
WINBASEAPI BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER *lpFrequency);

/* Thread local storage: TLS_MINIMUM_AVAILABLE + 1024 slots. */
WINBASEAPI DWORD WINAPI TlsAlloc(void);
WINBASEAPI LPVOID WINAPI TlsGetValue(DWORD dwTlsIndex);
WINBASEAPI BOOL WINAPI TlsSetValue(DWORD dwTlsIndex, LPVOID lpTlsValue);
WINBASEAPI BOOL WINAPI TlsFree(DWORD dwTlsIndex);

/* Critical sections: recursive, owned by a thread. */
WINBASEAPI void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
WINBASEAPI BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION lpCriticalSection,
                                                             DWORD dwSpinCount);
WINBASEAPI void WINAPI EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
WINBASEAPI BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
WINBASEAPI void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
WINBASEAPI void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection);

/* Memory. GMEM_MOVEABLE blocks never move here: GlobalLock gives the block. */
WINBASEAPI HGLOBAL WINAPI GlobalAlloc(UINT uFlags, SIZE_T dwBytes);
WINBASEAPI HGLOBAL WINAPI GlobalFree(HGLOBAL hMem);
WINBASEAPI HGLOBAL WINAPI GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags);
WINBASEAPI SIZE_T WINAPI GlobalSize(HGLOBAL hMem);
WINBASEAPI LPVOID WINAPI GlobalLock(HGLOBAL hMem);
WINBASEAPI BOOL WINAPI GlobalUnlock(HGLOBAL hMem);
WINBASEAPI HANDLE WINAPI GetProcessHeap(void);
WINBASEAPI LPVOID WINAPI HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes);
WINBASEAPI LPVOID WINAPI HeapReAlloc(HANDLE hHeap, DWORD dwFlags, LPVOID lpMem, SIZE_T dwBytes);
WINBASEAPI BOOL WINAPI HeapFree(HANDLE hHeap, DWORD dwFlags, LPVOID lpMem);
WINBASEAPI SIZE_T WINAPI HeapSize(HANDLE hHeap, DWORD dwFlags, LPCVOID lpMem);

/* Interlocked operations, as compiler intrinsics. */
static inline LONG InterlockedIncrement(LONG volatile *p) { return __atomic_add_fetch(p, 1, __ATOMIC_SEQ_CST); }
static inline LONG InterlockedDecrement(LONG volatile *p) { return __atomic_sub_fetch(p, 1, __ATOMIC_SEQ_CST); }
static inline LONG InterlockedExchange(LONG volatile *p, LONG v) { return __atomic_exchange_n(p, v, __ATOMIC_SEQ_CST); }
static inline LONG InterlockedExchangeAdd(LONG volatile *p, LONG v) { return __atomic_fetch_add(p, v, __ATOMIC_SEQ_CST); }
static inline LONG InterlockedCompareExchange(LONG volatile *p, LONG v, LONG cmp)
{
    __atomic_compare_exchange_n(p, &cmp, v, 0, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return cmp;
}

TS_EXTERN_C_END

#define CreateEvent CreateEventA
#define CreateMutex CreateMutexA

#endif /* TSPLATFORM_WINBASE_H */
