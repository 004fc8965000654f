// CWinThread, and starting, finding and ending the framework's threads.
#include <afxwin.h>

#include "msgqueue.h"

#include <assert.h>
#include <process.h>

IMPLEMENT_DYNAMIC(CWinThread, CObject)

namespace {

// Lives on the creator's stack for the length of CreateThread: the new
// thread reads it only before it sets startedEvent.
struct ThreadStartup {
    CWinThread *thread;
    AFX_MODULE_STATE *creatorModuleState;
    HANDLE startedEvent; // set by the new thread once its set-up is over
    HANDLE resumeEvent;  // set by the creator to let it go on
    BOOL failed;         // set by the new thread if its set-up failed
};

unsigned __stdcall ThreadEntry(void *param)
{
    ThreadStartup *startup = static_cast<ThreadStartup *>(param);
    CWinThread *thread = startup->thread;
    bool setUp = false;
    try {
        AfxGetThreadState()->m_pModuleState = startup->creatorModuleState;
        thread->m_pModuleState = AfxGetModuleState();
        AfxGetModuleThreadState()->m_pCurrentWinThread = thread;
        AfxMakeMessageQueue();
        setUp = true;
    } catch (CException *e) {
        e->Delete();
    }
    if (!setUp) {
        startup->failed = TRUE;
        [[maybe_unused]] BOOL set = ::SetEvent(startup->startedEvent);
        assert(set && "the start-up event is the creator's");
        AfxEndThread(static_cast<UINT>(-1), FALSE); // the creator still holds the object
    }
    HANDLE resumeEvent = startup->resumeEvent; // the record is gone after the next step
    [[maybe_unused]] BOOL set = ::SetEvent(startup->startedEvent);
    assert(set && "the start-up event is the creator's");
    [[maybe_unused]] DWORD waited = ::WaitForSingleObject(resumeEvent, INFINITE);
    assert(waited == WAIT_OBJECT_0);
    ::CloseHandle(resumeEvent);

    UINT exitCode;
    if (thread->m_pfnThreadProc)
        exitCode = thread->m_pfnThreadProc(thread->m_pThreadParams);
    else if (!thread->InitInstance())
        exitCode = static_cast<UINT>(thread->ExitInstance());
    else
        exitCode = static_cast<UINT>(thread->Run());
    AfxEndThread(exitCode, TRUE);
}

// CreateThread, and AfxBeginThread's start with a priority (when given) set
// while the new thread waits at the end of its set-up, before any of its
// work runs. Only a caller that asks for a suspended thread has it
// suspended (a thread standing in a wait, which POSIX stops by a signal).
BOOL StartThread(CWinThread *thread, DWORD dwCreateFlags, UINT nStackSize, LPSECURITY_ATTRIBUTES lpSecurityAttrs,
                 const int *priority)
{
    if (thread->m_hThread)
        return FALSE;
    ThreadStartup startup = {};
    startup.thread = thread;
    startup.creatorModuleState = AfxGetModuleState();
    startup.startedEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    startup.resumeEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (!startup.startedEvent || !startup.resumeEvent) {
        if (startup.startedEvent)
            ::CloseHandle(startup.startedEvent);
        if (startup.resumeEvent)
            ::CloseHandle(startup.resumeEvent);
        return FALSE;
    }
    // Suspended at first whatever the caller asked, so that the handle and
    // id are in place before the thread reads them.
    unsigned threadId = 0;
    thread->m_hThread = reinterpret_cast<HANDLE>(_beginthreadex(lpSecurityAttrs, nStackSize, ThreadEntry, &startup,
                                                        dwCreateFlags | CREATE_SUSPENDED, &threadId));
    if (!thread->m_hThread) {
        ::CloseHandle(startup.startedEvent);
        ::CloseHandle(startup.resumeEvent);
        return FALSE;
    }
    thread->m_nThreadID = threadId;
    [[maybe_unused]] DWORD count = ::ResumeThread(thread->m_hThread);
    assert(count == 1);
    [[maybe_unused]] DWORD waited = ::WaitForSingleObject(startup.startedEvent, INFINITE);
    assert(waited == WAIT_OBJECT_0);
    ::CloseHandle(startup.startedEvent);
    if (startup.failed) {
        waited = ::WaitForSingleObject(thread->m_hThread, INFINITE);
        assert(waited == WAIT_OBJECT_0);
        ::CloseHandle(thread->m_hThread);
        thread->m_hThread = nullptr;
        thread->m_nThreadID = 0;
        ::CloseHandle(startup.resumeEvent);
        return FALSE;
    }
    // The thread now waits for resumeEvent. A priority the platform
    // refuses leaves it at its own.
    if (priority)
        ::SetThreadPriority(thread->m_hThread, *priority);
    // A caller that asked for a suspended thread gets it stopped there until
    // its ResumeThread.
    if (dwCreateFlags & CREATE_SUSPENDED) {
        count = ::SuspendThread(thread->m_hThread);
        assert(count == 0);
    }
    // After this the thread may end and, with m_bAutoDelete, delete itself.
    [[maybe_unused]] BOOL set = ::SetEvent(startup.resumeEvent);
    assert(set);
    return TRUE;
}

// AfxBeginThread's common part: a thread object that cannot be started is
// disposed of.
CWinThread *StartThreadObject(CWinThread *thread, int nPriority, UINT nStackSize, DWORD dwCreateFlags,
                              LPSECURITY_ATTRIBUTES lpSecurityAttrs)
{
    if (!StartThread(thread, dwCreateFlags, nStackSize, lpSecurityAttrs, &nPriority)) {
        thread->Delete();
        return nullptr;
    }
    return thread;
}

} // namespace

CWinThread::CWinThread()
    : m_bAutoDelete(TRUE), m_hThread(nullptr), m_nThreadID(0), m_pThreadParams(nullptr), m_pfnThreadProc(nullptr),
      m_pModuleState(AfxGetModuleState()), m_msgCur()
{
}

CWinThread::CWinThread(AFX_THREADPROC pfnThreadProc, LPVOID pParam) : CWinThread()
{
    m_pfnThreadProc = pfnThreadProc;
    m_pThreadParams = pParam;
}

CWinThread::~CWinThread()
{
    if (m_hThread) {
        [[maybe_unused]] BOOL closed = ::CloseHandle(m_hThread);
        assert(closed && "the thread's handle is the object's own");
    }
    // No lookup that makes state: this may run while the thread ends.
    AFX_MODULE_THREAD_STATE *state = m_pModuleState ? m_pModuleState->m_thread.GetDataNA() : nullptr;
    if (state && state->m_pCurrentWinThread == this)
        state->m_pCurrentWinThread = nullptr;
}

BOOL CWinThread::CreateThread(DWORD dwCreateFlags, UINT nStackSize, LPSECURITY_ATTRIBUTES lpSecurityAttrs)
{
    return StartThread(this, dwCreateFlags, nStackSize, lpSecurityAttrs, nullptr);
}

int CWinThread::GetThreadPriority()
{
    return ::GetThreadPriority(m_hThread);
}

BOOL CWinThread::SetThreadPriority(int nPriority)
{
    return ::SetThreadPriority(m_hThread, nPriority);
}

DWORD CWinThread::SuspendThread()
{
    return ::SuspendThread(m_hThread);
}

DWORD CWinThread::ResumeThread()
{
    return ::ResumeThread(m_hThread);
}

BOOL CWinThread::PostThreadMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    if (!m_nThreadID) {
        ::SetLastError(ERROR_INVALID_THREAD_ID);
        return FALSE;
    }
    return ::PostThreadMessage(m_nThreadID, message, wParam, lParam);
}

BOOL CWinThread::InitInstance()
{
    return TRUE;
}

int CWinThread::Run()
{
    for (;;) {
        BOOL got = ::GetMessage(&m_msgCur, nullptr, 0, 0);
        assert(got != -1 && "a thread's own queue always answers");
        if (got == 0 || got == -1)
            return ExitInstance();
        PreTranslateMessage(&m_msgCur);
    }
}

BOOL CWinThread::PreTranslateMessage(MSG *)
{
    return FALSE;
}

int CWinThread::ExitInstance()
{
    return m_msgCur.message == WM_QUIT ? static_cast<int>(m_msgCur.wParam) : 0;
}

void CWinThread::Delete()
{
    if (m_bAutoDelete)
        delete this;
}

CWinThread *AfxBeginThread(AFX_THREADPROC pfnThreadProc, LPVOID pParam, int nPriority, UINT nStackSize,
                           DWORD dwCreateFlags, LPSECURITY_ATTRIBUTES lpSecurityAttrs)
{
    if (!pfnThreadProc)
        return nullptr;
    return StartThreadObject(new CWinThread(pfnThreadProc, pParam), nPriority, nStackSize, dwCreateFlags,
                             lpSecurityAttrs);
}

CWinThread *AfxBeginThread(CRuntimeClass *pThreadClass, int nPriority, UINT nStackSize, DWORD dwCreateFlags,
                           LPSECURITY_ATTRIBUTES lpSecurityAttrs)
{
    if (!pThreadClass || !pThreadClass->IsDerivedFrom(RUNTIME_CLASS(CWinThread)))
        return nullptr;
    CWinThread *thread = static_cast<CWinThread *>(pThreadClass->CreateObject());
    if (!thread)
        return nullptr;
    return StartThreadObject(thread, nPriority, nStackSize, dwCreateFlags, lpSecurityAttrs);
}

void AfxEndThread(UINT nExitCode, BOOL bDelete)
{
    // No lookup that makes state: a thread whose state cannot be had still ends.
    AFX_MODULE_THREAD_STATE *state = AfxGetModuleState()->m_thread.GetDataNA();
    if (CWinThread *thread = state ? state->m_pCurrentWinThread : nullptr) {
        state->m_pCurrentWinThread = nullptr;
        if (bDelete)
            thread->Delete();
    }
    _endthreadex(nExitCode);
    __builtin_unreachable(); // not every runtime declares _endthreadex as not returning
}

CWinThread *AfxGetThread()
{
    AFX_MODULE_THREAD_STATE *state = AfxGetModuleState()->m_thread.GetDataNA();
    return state ? state->m_pCurrentWinThread : nullptr;
}

void AfxPostQuitMessage(int nExitCode)
{
    ::PostQuitMessage(nExitCode);
}
