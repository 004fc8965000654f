// ServiceThread: the base class of a service's worker threads. It is a
// CWinThread that brings a diagnostic guard with it for the length of its
// life (its own, or one given to share), and that is started by
// ServiceCreateThread rather than the framework's CreateThread: the new
// thread's set-up gives it the creator's module state and makes the object
// its current thread (AfxGetThread), and does no message work at all.
//
// A derived class overrides Run with the thread's work, typically answering
// the requests of a GenericService through child interlocks. It may
// override InitInstance and ExitInstance too: a derived InitInstance calls
// this one first (before it the thread has no guard, and no gate may be
// reached), a derived ExitInstance calls this one after its last gate.
//
// As with every CWinThread, m_bAutoDelete (the default) deletes the object
// when its thread ends; clear it to wait on m_hThread and delete the
// object yourself.
#pragma once

#include "TSDefs.h"
#include "DiagGrd.h"

#include <afxwin.h>

class TSUTIL_API ServiceThread : public CWinThread {
public:
    static const DiagGuard::ClassNameIndex CLASS_INDEX = DiagGuard::ServiceThreadIndex;

    // The thread will make a DiagGuardService writing to "defSDiag.txt".
    ServiceThread();
    // The thread will make a DiagGuardService writing to diagFileName, cut
    // at 255 bytes.
    explicit ServiceThread(char const *diagFileName);
    // The thread will work with guard, which stays its creator's: the
    // thread neither replaces nor deletes it, and the creator deletes it
    // after the last thread that uses it has ended.
    explicit ServiceThread(DiagGuard *guard);
    // Gives back the name's block. A guard of the thread's own is gone by
    // then (ExitInstance).
    virtual ~ServiceThread();

    // On the new thread: the given guard, or a new DiagGuardService (which
    // takes its service from GenericService::primaryServicePtr as it stands
    // now), becomes the thread's guard; then the messages
    //   verbose  "ServiceThread diagnostic file handle: 0x<handle>\n\n"
    //   message  "ServiceThread (base class) initializing -- InitInstance().\n"
    // Always TRUE, whatever the base gives. A guard that cannot be
    // allocated leaves the thread without one, with every gate shut.
    virtual BOOL InitInstance() override;
    // The work, which a derived class must supply. This one reports
    //   error    "\nERROR: Should not be in ServiceThread base class Run().\n\n"
    // and a failed assertion, which ends the process with exit code 1 when
    // the gate for errors is open; with the gates shut it gives
    // ExitInstance().
    virtual int Run() override;
    // On the thread at its end: the message
    //   "   and ServiceThread (base class) exiting -- ExitInstance().\n"
    // then the guard's file flushed, and a guard of the thread's own
    // deleted (the thread then has none). A given guard stays in force.
    // Always 0, whatever the base gives.
    virtual int ExitInstance() override;

    // Starts the thread and returns once its set-up is over: 1, with
    // m_hThread and m_nThreadID set, or 0 when the thread could not be
    // started or set up (nothing is left open then, m_hThread is null, and
    // the object is still the caller's). With CREATE_SUSPENDED in
    // createFlags the thread stands, set up, until the caller's
    // ResumeThread; otherwise it may be in Run before this returns. 0 also
    // when the object has a thread already. stackSize 0 takes the default.
    virtual int ServiceCreateThread(unsigned long createFlags = 0, unsigned int stackSize = 0,
                                    _SECURITY_ATTRIBUTES *security = nullptr);

protected:
    // Where the new thread starts: its set-up, then the work (the thread
    // function if the object has one, else InitInstance and Run, or
    // ExitInstance when InitInstance gave 0), then AfxEndThread with the
    // work's result.
    static unsigned int __stdcall ServiceAfxThreadEntry(void *startupRecord);

    char *diagFileName;          // block of 256 bytes; null when a guard was given
    DiagGuard *givenDiagGuard;   // not owned
    DiagGuard *currentDiagGuard; // the guard in force; null before InitInstance and after dropping its own
};
