// Threads and the application: CWinThread, CWinApp, and the calls that
// start, find and end them. There are no windows: a thread's messages are
// thread messages (PostThreadMessage), and the default Run waits for
// WM_QUIT where a windowed framework would pump window messages.
#pragma once

#include "afx.h"
#include "afxstat_.h"

// The function a worker thread runs; its result is the thread's exit code.
typedef UINT(__cdecl *AFX_THREADPROC)(LPVOID);

// A thread of the framework. Either a worker, which runs m_pfnThreadProc
// with m_pThreadParams, or a class derived from CWinThread, whose
// InitInstance, Run and ExitInstance the framework calls on the new thread:
// Run if InitInstance gave non-zero, ExitInstance if it gave zero. The
// thread's exit code is the result of the function, of Run, or of
// ExitInstance after a failed InitInstance.
//
// With m_bAutoDelete (the default) the object deletes itself when its
// thread ends, closing m_hThread: the creator must not use the object or
// the handle once the thread may have ended (clear m_bAutoDelete to wait on
// the handle and delete the object yourself).
class TSAFX_API CWinThread : public CObject {
    DECLARE_DYNAMIC(CWinThread)
public:
    // For a derived class; no thread exists until CreateThread.
    CWinThread();
    // A worker that will run pfnThreadProc(pParam).
    CWinThread(AFX_THREADPROC pfnThreadProc, LPVOID pParam);
    // Closes m_hThread if it is open; the thread itself is not stopped.
    virtual ~CWinThread();

    // Starts the thread and returns once it is set up: AfxGetThread gives
    // this object on it and it can be sent messages. With CREATE_SUSPENDED
    // in dwCreateFlags the thread then stands until ResumeThread; otherwise
    // it may be running InitInstance before CreateThread returns.
    // nStackSize 0 takes the default size. FALSE when the thread cannot be
    // started, or when this object already has one (m_hThread is set).
    BOOL CreateThread(DWORD dwCreateFlags = 0, UINT nStackSize = 0, LPSECURITY_ATTRIBUTES lpSecurityAttrs = nullptr);

    // The thread handle, null until started.
    operator HANDLE() const { return m_hThread; }
    // The platform's calls on m_hThread, with their results.
    int GetThreadPriority();
    BOOL SetThreadPriority(int nPriority);
    DWORD SuspendThread();
    DWORD ResumeThread();
    // Posts a message to the thread's queue (WM_QUIT with an exit code in
    // wParam ends the default Run). FALSE with ERROR_INVALID_THREAD_ID when
    // the thread has not been started or has ended.
    BOOL PostThreadMessage(UINT message, WPARAM wParam, LPARAM lParam);

    // The thread's own set-up; the base does nothing and gives TRUE.
    virtual BOOL InitInstance();
    // The thread's work. The base waits for the thread's messages and gives
    // each to PreTranslateMessage; at WM_QUIT (PostThreadMessage from any
    // thread, AfxPostQuitMessage on this one) it returns ExitInstance().
    // An override that ends on its own calls ExitInstance itself.
    virtual int Run();
    // A message taken by the base Run; TRUE when handled. Messages that no
    // override handles are dropped: there are no windows to send them to.
    // The base handles none.
    virtual BOOL PreTranslateMessage(MSG *pMsg);
    // The thread's clean-up. The base gives the exit code of the last
    // WM_QUIT (its wParam), 0 when none came.
    virtual int ExitInstance();
    // Called when the thread ends: deletes the object if m_bAutoDelete.
    virtual void Delete();

    BOOL m_bAutoDelete;           // TRUE: the object goes with its thread
    HANDLE m_hThread;             // null until started
    DWORD m_nThreadID;            // 0 until started
    LPVOID m_pThreadParams;       // a worker's parameter
    AFX_THREADPROC m_pfnThreadProc; // a worker's function; null for a derived class
    AFX_MODULE_STATE *m_pModuleState; // the module state the thread runs in
    MSG m_msgCur;                 // the message the base Run took last
};

// Starts a worker running pfnThreadProc(pParam) at nPriority (a priority
// the platform refuses leaves the thread at its own). The object deletes
// itself when the thread ends (m_bAutoDelete); with CREATE_SUSPENDED the
// thread waits for ResumeThread. Null for a null function or when the
// thread cannot be started.
TSAFX_API CWinThread *AfxBeginThread(AFX_THREADPROC pfnThreadProc, LPVOID pParam,
                                     int nPriority = THREAD_PRIORITY_NORMAL, UINT nStackSize = 0,
                                     DWORD dwCreateFlags = 0, LPSECURITY_ATTRIBUTES lpSecurityAttrs = nullptr);
// Makes an object of pThreadClass (a class derived from CWinThread that
// has DECLARE_DYNCREATE) and starts it, as above. Null when the class is
// not such a class or the thread cannot be started.
TSAFX_API CWinThread *AfxBeginThread(CRuntimeClass *pThreadClass, int nPriority = THREAD_PRIORITY_NORMAL,
                                     UINT nStackSize = 0, DWORD dwCreateFlags = 0,
                                     LPSECURITY_ATTRIBUTES lpSecurityAttrs = nullptr);

// Ends the calling thread with nExitCode; it does not return. With bDelete
// the thread's object is disposed of through Delete() (so only if its
// m_bAutoDelete is set); with FALSE it is left alone. Code after the call
// in the thread's function, Run or ExitInstance does not run.
[[noreturn]] TSAFX_API void AfxEndThread(UINT nExitCode, BOOL bDelete = TRUE);

// The CWinThread running on the calling thread: the application object on
// the main thread, a started thread's object on it, null on a thread the
// framework did not start.
TSAFX_API CWinThread *AfxGetThread();

// Asks the calling thread's Run to end: WM_QUIT with nExitCode as its
// wParam comes once the messages posted before it are taken.
TSAFX_API void AfxPostQuitMessage(int nExitCode);

// The program's application. A program derives its own class, overrides
// InitInstance, and defines exactly one global object of it; it has no
// main of its own, but links the framework's entry (target tsafx_main),
// which runs AfxWinMain: InitInstance on the main thread, then Run if it
// gave non-zero, else ExitInstance. The process's exit code is Run's result
// (by default ExitInstance's, which is the wParam of the WM_QUIT that ended
// it: AfxPostQuitMessage(n) on the main thread, or PostThreadMessage(WM_QUIT,
// n, 0) from another), or ExitInstance's after a failed InitInstance.
class TSAFX_API CWinApp : public CWinThread {
    DECLARE_DYNAMIC(CWinApp)
public:
    // Makes this the module's application object (AfxGetApp) and the main
    // thread's CWinThread (AfxGetThread). lpszAppName is copied; null
    // leaves the name to AfxWinMain, which takes the program's file name
    // without folder and extension.
    explicit CWinApp(LPCSTR lpszAppName = nullptr);
    virtual ~CWinApp();

    LPCSTR m_pszAppName; // the application's name; null until AfxWinMain if none was given
    LPCSTR m_pszExeName; // the program's file name without folder and extension, set by AfxWinMain
    HINSTANCE m_hInstance; // as given to AfxWinMain
    LPSTR m_lpCmdLine;   // the command line without the program's name, set by AfxWinMain
    int m_nCmdShow;
};

// The module's application object, or null when the program has none.
TSAFX_API CWinApp *AfxGetApp();
// The application's name, or null before AfxWinMain runs.
TSAFX_API LPCSTR AfxGetAppName();

// The body of a program whose application object is a CWinApp: sets the
// application's names and command line, readies the main thread's message
// queue, then InitInstance, Run or ExitInstance as told at CWinApp. Gives
// the process's exit code; -1 when the program defines no application
// object. lpCmdLine is the command line without the program's name.
TSAFX_API int AfxWinMain(HINSTANCE hInstance, HINSTANCE hPrevInstance, LPSTR lpCmdLine, int nCmdShow);
