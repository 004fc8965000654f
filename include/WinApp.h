// WinApp and WinThread: the application object and the thread objects of an
// ordinary program, each bringing a diagnostic guard for its thread. They
// are started the framework's way (the application by the framework's
// entry, a thread by CreateThread or AfxBeginThread), and the framework
// calls their InitInstance and ExitInstance on the thread concerned; their
// Run is the framework's.
//
// InitInstance, after the base's: the guard given to the constructor, or a
// new DiagGuard writing to the object's file, becomes the thread's guard;
// then the messages (bits 0x80 and 0x20 of the class's own index)
//   "WinApp diagnostic file handle: 0x<handle>\n\n"   ("WinThread ..." likewise)
//   "WinApp initializing -- InitInstance().\n"
// and the base's result is returned: the guard is in force even when that
// is 0. A guard that cannot be allocated leaves the thread without one,
// with every gate shut.
//
// ExitInstance, before the base's: the message
//   "   and WinApp exiting -- ExitInstance().\n"
// then the guard's file flushed, and a guard of the object's own deleted
// (the thread then has none: the base's ExitInstance and whatever runs
// after it must not reach a gate). A given guard stays alive and in force.
// The base's result is returned.
//
// A derived InitInstance calls this one before its first gate, a derived
// ExitInstance calls this one after its last.
//
// The application's guard is the main thread's only: other threads need a
// WinThread or ServiceThread of their own, and may be given the
// application's guard so that the whole program writes one file. Objects
// built by their default constructors all name "defWDiag.txt"; the second
// guard to write finds it taken and writes "defWDia2.txt", a third
// "defWDia3.txt", and so on.
#pragma once

#include "TSDefs.h"
#include "DiagGrd.h"

#include <afxwin.h>

// A program derives its application class from WinApp and defines one
// global object of it; it has no main of its own but links the framework's
// entry (tsafx_main). The framework calls InitInstance on the main thread,
// then Run if it gave non-zero, else ExitInstance, and the process exits
// with the result. The framework's Run does not pump window messages: it
// waits until the main thread is asked to quit (AfxPostQuitMessage on it,
// or PostThreadMessage with WM_QUIT from another thread) and then returns
// ExitInstance(), which gives the quit's exit code.
class TSUTIL_API WinApp : public CWinApp {
public:
    static const DiagGuard::ClassNameIndex CLASS_INDEX = DiagGuard::WinAppIndex;

    // No application name (the framework takes the program's); the guard
    // will write to "defWDiag.txt".
    WinApp();
    // The guard will write to diagFileName, cut at 255 bytes; appName goes
    // to CWinApp.
    WinApp(char const *diagFileName, char const *appName);
    // The application will work with guard, which stays its creator's;
    // appName goes to CWinApp.
    WinApp(DiagGuard *guard, char const *appName);
    // Gives back the name's block; a guard of its own is gone by then
    // (ExitInstance), a given one stays its creator's.
    virtual ~WinApp();

    // See the top of this header.
    virtual BOOL InitInstance() override;
    virtual int ExitInstance() override;

protected:
    char *diagFileName;          // block of 256 bytes; null when a guard was given
    DiagGuard *givenDiagGuard;   // not owned
    DiagGuard *currentDiagGuard; // the guard in force; null before InitInstance and after dropping its own
};

// A framework thread with a guard. Its work is the framework's Run (the
// thread's messages until WM_QUIT), or a derived class's.
class TSUTIL_API WinThread : public CWinThread {
public:
    static const DiagGuard::ClassNameIndex CLASS_INDEX = DiagGuard::WinThreadIndex;

    // The guard will write to "defWDiag.txt".
    WinThread();
    // The guard will write to diagFileName, cut at 255 bytes.
    explicit WinThread(char const *diagFileName);
    // The thread will work with guard, which stays its creator's.
    explicit WinThread(DiagGuard *guard);
    // As WinApp's.
    virtual ~WinThread();

    // See the top of this header.
    virtual BOOL InitInstance() override;
    virtual int ExitInstance() override;

protected:
    char *diagFileName;
    DiagGuard *givenDiagGuard;
    DiagGuard *currentDiagGuard;
};
