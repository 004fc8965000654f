// The framework's state: per-thread objects (CNoTrackObject,
// CThreadLocalObject), the module state with its per-thread part, and the
// state of each thread.
#pragma once

#include "afx.h"

#include <stddef.h>

class CDynLinkLibrary;
class CWinApp;
class CWinThread;
struct AFX_EXCEPTION_LINK;

// A memory failure handler in the manner of _set_new_handler.
typedef int(__cdecl *AFX_PNH)(size_t);

// Base of the framework's per-thread objects: they come from the process
// heap, zero-filled, outside any tracking of the program's own allocations.
class TSAFX_API CNoTrackObject {
public:
    // Throws CMemoryException * when no memory can be had.
    void *operator new(size_t nSize);
    void operator delete(void *p);
    virtual ~CNoTrackObject() {}
};

// One object per thread, made on a thread's first GetData and deleted when
// that thread ends (also on a thread the framework did not start). Static
// storage needs no constructor: a zero slot is taken on first use. The
// object must outlive every thread that used it, as the module state does.
class TSAFX_API CThreadLocalObject {
public:
    // The calling thread's object; pfnCreateObject makes it on first use.
    // Throws what pfnCreateObject throws (CMemoryException * for a failed
    // allocation); nothing is kept then, and the next call tries again.
    CNoTrackObject *GetData(CNoTrackObject *(*pfnCreateObject)());
    // The calling thread's object, or null when it has none (yet, or any
    // more while the thread ends).
    CNoTrackObject *GetDataNA();

    DWORD m_nSlot; // 0 until first use, then the object's slot in each thread
};

template <class TYPE>
class CThreadLocal : public CThreadLocalObject {
public:
    TYPE *GetData() { return static_cast<TYPE *>(CThreadLocalObject::GetData(&CreateObject)); }
    TYPE *GetDataNA() { return static_cast<TYPE *>(CThreadLocalObject::GetDataNA()); }
    operator TYPE *() { return GetData(); }
    TYPE *operator->() { return GetData(); }

    static CNoTrackObject *CreateObject() { return new TYPE; }
};

// A module's state for one thread: the framework thread object running on
// it (AfxGetThread) and a memory failure handler that the thread's starter
// may keep there for the program (the framework itself calls none).
class TSAFX_API AFX_MODULE_THREAD_STATE : public CNoTrackObject {
public:
    AFX_MODULE_THREAD_STATE();
    virtual ~AFX_MODULE_THREAD_STATE();

    CWinThread *m_pCurrentWinThread; // null on a thread no CWinThread runs
    AFX_PNH m_pfnNewHandler;
};

// The state of one module of the program: the application object, the
// current instance and resource handles, the list of extension libraries
// wired into it, and its per-thread part. There is one for the process,
// statically zero-initialised so that libraries find it ready in their load
// code; a thread may put another in force (_AFX_THREAD_STATE), which is
// why callers reach it only through AfxGetModuleState.
struct AFX_MODULE_STATE {
    CWinApp *m_pCurrentWinApp;       // the application object, or null
    LPCSTR m_lpszCurrentAppName;     // its name once it runs, or null
    HINSTANCE m_hCurrentInstanceHandle;
    HINSTANCE m_hCurrentResourceHandle;
    CDynLinkLibrary *m_libraryList;  // newest first; guarded inside the framework
    CThreadLocal<AFX_MODULE_THREAD_STATE> m_thread;
};

// The innermost guarded section of a thread (TRY, AFX_EXCEPTION_LINK).
struct AFX_EXCEPTION_CONTEXT {
    AFX_EXCEPTION_LINK *m_pLinkTop;
};

// The framework's record of one thread, made on its first use there.
class TSAFX_API _AFX_THREAD_STATE : public CNoTrackObject {
public:
    _AFX_THREAD_STATE();
    virtual ~_AFX_THREAD_STATE();

    // The module state in force on this thread; null means the process's.
    AFX_MODULE_STATE *m_pModuleState;
    AFX_EXCEPTION_CONTEXT m_exceptionContext;
};

// The calling thread's record. Throws CMemoryException * when it has to be
// made and no memory can be had.
TSAFX_API _AFX_THREAD_STATE *AfxGetThreadState();

// The module state in effect for the calling thread: the one its thread
// state names, else the process's. Never null; usable from the load code of
// any library that links the framework.
TSAFX_API AFX_MODULE_STATE *AfxGetModuleState();

// AfxGetModuleState()'s part for the calling thread, made on first use
// (throws CMemoryException * as AfxGetThreadState does).
TSAFX_API AFX_MODULE_THREAD_STATE *AfxGetModuleThreadState();
