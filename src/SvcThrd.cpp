// ServiceThread: a service's worker thread with its diagnostic guard, and
// its own start (ServiceCreateThread) and entry (ServiceAfxThreadEntry).
#include "SvcThrd.h"

#include "DiagSvc.h"
#include "ThrdGuard.h"

#include <afxstat_.h>
#include <process.h>

#include <assert.h>

#include <new>

const DiagGuard::ClassNameIndex ServiceThread::CLASS_INDEX;

namespace {

// Lives on the creator's stack for the length of ServiceCreateThread and
// is all that the new thread is given. The thread reads it only before it
// sets startedEvent; the creator reads startupFailed only after.
struct ThreadStartupRecord {
    _AFX_THREAD_STATE *creatorThreadState;
    ServiceThread *threadObject;
    unsigned long createFlags; // as the caller gave them; the entry does not read them
    AFX_PNH memoryHandler;     // stays null; the new thread's memory failure handler
    HANDLE startedEvent;       // set by the new thread when its set-up is over, in success and failure
    HANDLE resumeEvent;        // set by the creator to let the new thread go on
    int startupFailed;         // 1 when the new thread's set-up failed
};

tsutil::ThreadGuardTexts const kTexts = {
    ServiceThread::CLASS_INDEX,
    "ServiceThread diagnostic file handle: ",
    "ServiceThread (base class) initializing -- InitInstance().\n",
    "   and ServiceThread (base class) exiting -- ExitInstance().\n",
};

DiagGuard *MakeServiceGuard(char const *fileName) { return new (std::nothrow) DiagGuardService(fileName); }

// The new thread's wait for the creator's go-ahead, during which a creator
// that was asked for a suspended thread suspends it. ThreadSanitizer holds
// back the signal by which the POSIX platform layer stops a thread as long
// as that thread sits in one of the layer's waits, and delivers it only at
// the thread's next call into the C library; so in such a build the wait is
// made in short slices, each of which ends with such a call.
void WaitForResume(HANDLE resumeEvent)
{
#if defined(__SANITIZE_THREAD__)
    const DWORD slice = 1;
#else
    const DWORD slice = INFINITE;
#endif
    DWORD waited;
    while ((waited = WaitForSingleObject(resumeEvent, slice)) == WAIT_TIMEOUT) {
    }
    assert(waited == WAIT_OBJECT_0 && "the resume event is the thread's own");
}

void CloseOwnHandle(HANDLE handle)
{
    [[maybe_unused]] BOOL closed = CloseHandle(handle);
    assert(closed && "a handle of the start-up is ours to close");
}

} // namespace

ServiceThread::ServiceThread()
    : diagFileName(tsutil::NewDiagFileName("defSDiag.txt")), givenDiagGuard(nullptr), currentDiagGuard(nullptr)
{
}

ServiceThread::ServiceThread(char const *diagFileName_)
    : diagFileName(tsutil::NewDiagFileName(diagFileName_)), givenDiagGuard(nullptr), currentDiagGuard(nullptr)
{
}

ServiceThread::ServiceThread(DiagGuard *guard) : diagFileName(nullptr), givenDiagGuard(guard), currentDiagGuard(nullptr)
{
}

ServiceThread::~ServiceThread()
{
    tsutil::FreeDiagFileName(diagFileName);
}

BOOL ServiceThread::InitInstance()
{
    CWinThread::InitInstance(); // a service thread goes on whatever the base says
    tsutil::PutGuardInForce(kTexts, givenDiagGuard, diagFileName, MakeServiceGuard, currentDiagGuard);
    return TRUE;
}

int ServiceThread::Run()
{
    DIAG_ERR(CLASS_INDEX, "\nERROR: Should not be in ServiceThread base class Run().\n\n");
    DIAG_ASSERT(CLASS_INDEX, FALSE);
    return ExitInstance();
}

int ServiceThread::ExitInstance()
{
    tsutil::DropGuard(kTexts, givenDiagGuard, currentDiagGuard);
    CWinThread::ExitInstance(); // a service thread ends with 0 whatever the base says
    return 0;
}

int ServiceThread::ServiceCreateThread(unsigned long createFlags, unsigned int stackSize,
                                       _SECURITY_ATTRIBUTES *security)
{
    if (m_hThread)
        return 0;
    ThreadStartupRecord record = {};
    try {
        record.creatorThreadState = AfxGetThreadState();
    } catch (CException *e) {
        e->Delete();
        return 0;
    }
    record.threadObject = this;
    record.createFlags = createFlags;
    record.startedEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    record.resumeEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (!record.startedEvent || !record.resumeEvent) {
        if (record.startedEvent)
            CloseOwnHandle(record.startedEvent);
        if (record.resumeEvent)
            CloseOwnHandle(record.resumeEvent);
        return 0;
    }

    // Suspended at first whatever the caller asked, so that the handle and
    // the id are in the object before the thread can look at them.
    unsigned threadId = 0;
    m_hThread = reinterpret_cast<HANDLE>(_beginthreadex(security, stackSize, ServiceAfxThreadEntry, &record,
                                                        createFlags | CREATE_SUSPENDED, &threadId));
    if (!m_hThread) {
        CloseOwnHandle(record.startedEvent);
        CloseOwnHandle(record.resumeEvent);
        return 0;
    }
    m_nThreadID = threadId;

    // The set-up runs whatever the caller asked for.
    [[maybe_unused]] DWORD count = ::ResumeThread(m_hThread);
    assert(count == 1 && "the thread was made suspended once");
    [[maybe_unused]] DWORD waited = WaitForSingleObject(record.startedEvent, INFINITE);
    assert(waited == WAIT_OBJECT_0);
    CloseOwnHandle(record.startedEvent);

    // A failed set-up is looked at before any suspension: a thread that is
    // ending is waited for, never stopped on its way out.
    if (record.startupFailed) {
        waited = WaitForSingleObject(m_hThread, INFINITE);
        assert(waited == WAIT_OBJECT_0);
        CloseOwnHandle(m_hThread);
        m_hThread = nullptr;
        m_nThreadID = 0;
        CloseOwnHandle(record.resumeEvent);
        return 0;
    }
    // The thread now waits for resumeEvent; a caller that asked for a
    // suspended thread gets it stopped there, to go on at its ResumeThread.
    if (createFlags & CREATE_SUSPENDED) {
        count = ::SuspendThread(m_hThread);
        assert(count == 0 && "the thread runs in its wait for the go-ahead");
    }
    // After this the thread may end and, with m_bAutoDelete, take the
    // object with it.
    [[maybe_unused]] BOOL set = SetEvent(record.resumeEvent);
    assert(set);
    return 1;
}

unsigned int __stdcall ServiceThread::ServiceAfxThreadEntry(void *startupRecord)
{
    ThreadStartupRecord *record = static_cast<ThreadStartupRecord *>(startupRecord);
    ServiceThread *thread = record->threadObject;
    bool setUp = false;
    try {
        AFX_EXCEPTION_LINK guardedSection;
        AfxGetThreadState()->m_pModuleState = record->creatorThreadState->m_pModuleState;
        thread->m_pModuleState = AfxGetModuleState();
        AFX_MODULE_THREAD_STATE *moduleThreadState = thread->m_pModuleState->m_thread.GetData();
        moduleThreadState->m_pCurrentWinThread = thread;
        moduleThreadState->m_pfnNewHandler = record->memoryHandler;
        AfxTryCleanup();
        setUp = true;
    } catch (CException *e) {
        e->Delete();
    }
    // Outside the catch block: the thread's end does not unwind through it.
    if (!setUp) {
        record->startupFailed = 1;
        [[maybe_unused]] BOOL set = SetEvent(record->startedEvent);
        assert(set && "the start-up event is the creator's");
        AfxEndThread(static_cast<UINT>(-1), FALSE); // the creator still holds the object
    }

    HANDLE resumeEvent = record->resumeEvent; // the record is gone after the next step
    [[maybe_unused]] BOOL set = SetEvent(record->startedEvent);
    assert(set && "the start-up event is the creator's");
    WaitForResume(resumeEvent);
    CloseOwnHandle(resumeEvent);

    UINT exitCode;
    if (thread->m_pfnThreadProc)
        exitCode = thread->m_pfnThreadProc(thread->m_pThreadParams);
    else if (!thread->InitInstance())
        exitCode = static_cast<UINT>(thread->ExitInstance());
    else
        exitCode = static_cast<UINT>(thread->Run());
    AfxEndThread(exitCode, TRUE);
}
