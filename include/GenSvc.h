// GenericService: the base class of a program that runs as a service under
// the service manager, or from a console, on one and the same run loop.
//
// A program derives one class, builds one object of it with the naming
// constructor, and then uses it either as a control tool (Install, Remove,
// start_svc, stop_svc, check_status) or as the service itself (Begin). The
// library parses no command line: which of these a run does is the
// program's choice.
//
// The run: Begin blocks until the service has ended. The service thread
// builds four interlocks (start, stop, pause, continue) and a group over
// them, calls InitPrimaryService and loops: CyclePrimaryService, a wait of
// at most cycleWaitTime for an answer, action on the answer. Controls,
// console events, StopService, PauseService and ContinueService only raise
// requests; the derived service's workers answer them through the child
// interlocks (SpawnChildInterlockSepThread on the interlock fields), and
// only an answer changes the reported state. The start interlock has no
// requester: its answer alone says that the service is up. The stop answer
// is the loop's only way out.
//
// What the service manager sees (state, wait hint, check point):
//   service main entered       START_PENDING, startTimeout, 1
//   start answered             RUNNING, 0, 0
//   pause control              PAUSE_PENDING, pauseTimeout, 1
//   pause answered             PAUSED, 0, 0
//   continue control           CONTINUE_PENDING, continueTimeout, 1
//   continue answered          RUNNING, 0, 0
//   stop or shutdown control   STOP_PENDING, max(stopTimeout, 15000), 1
//   stop answered              (threadDeletionDelay slept) STOPPED, 0, 0
// The timeouts are hints only; nothing acts when one runs out.
//
// All handoff goes through the interlocks' events. The one lock, taken by
// the handlers, StopService, PauseService and ContinueService, the teardown
// of the interlocks and the destructor, lets a console event or a control
// arrive at any moment, also while the run ends and the object goes.
// Nothing in it ends the process.
#pragma once

#include "MultiLck.h"

class CWinThread;

class TSUTIL_API GenericService {
public:
    // Clears the interlock fields, statusHandle, both names and
    // serviceHandle and leaves the rest unset; primaryServicePtr is not
    // touched. Such an object can be destroyed, but is no service.
    GenericService();
    // The one for real use. Writes this to primaryServicePtr (the object
    // built last wins), keeps each name in a zero-filled block of 256 bytes
    // of its own, cut to what fits: at most 255 characters and 255 bytes,
    // never in the middle of a double-byte character. A null name is taken
    // as the empty text. Timeouts: start and continue 20000, stop and pause
    // 15000, threadDeletionDelay 2000 (milliseconds). The status record:
    // own process, SERVICE_STOPPED, accepts stop, pause and continue, and
    // shutdown, exit codes 0, check point 1, wait hint 0.
    // When a name block cannot be allocated the name reads as the empty
    // text: the object stays safe to use, and the control operations then
    // fail as for a service that does not exist.
    GenericService(char const *shortName, char const *longName, BOOLTYPE runAsService,
                   unsigned long cycleWaitTime);
    // Clears statusHandle and frees the name blocks; clears
    // primaryServicePtr when it names this object (waiting for a handler
    // call that is on the object to end). Leaves the interlocks and
    // serviceHandle alone.
    virtual ~GenericService();

    GenericService(GenericService const &) = delete;
    GenericService &operator=(GenericService const &) = delete;

    // --- The control tool. Synchronous calls into the service manager,
    // from one thread; runAsService plays no part. Messages go to standard
    // output; a failure leaves the object usable and the call repeatable.

    // Registers the running executable, by its full path as it stands, as
    // a service of its own process that starts automatically and runs as
    // LocalSystem, under shortName and longName. FALSE when the path cannot
    // be had (or does not fit in 255 bytes) or the service manager cannot
    // be opened, silently; when the service cannot be created, with one of
    // these texts for the platform's code, and silently for any other:
    //   5 "Access Denied", 6 "Invalid Service Handle.", 52 "Duplicate
    //   Service Name found.", 87 "Invalid Parameter supplied to
    //   CreateService()", 123 "Invalid Service Name", 1057 "Invalid Service
    //   Account.", 1059 "Circular Dependency found.", 1073 "Service is
    //   already installed." (each followed by a line feed).
    // An existing entry is not updated.
    virtual BOOLTYPE Install();
    // Runs the service (see the top of this header). Under the service
    // manager (runAsService TRUE) it connects to the manager and returns
    // TRUE once the service has stopped, or FALSE at once, silently, when
    // the connection fails (a program started by hand). On a console it
    // runs the service on the calling thread, reports nothing, takes
    // console events as stop requests, and returns TRUE at the end.
    virtual BOOLTYPE Begin();

    // Stops the service if it runs, waits for it to stop and deletes it;
    // prints nothing. A service that does not run is deleted at once. A
    // stopping one (whether this call stopped it or it was stopping
    // already) is polled once a second for as long as it says
    // SERVICE_STOP_PENDING and makes progress: when neither its check point
    // nor its wait hint has changed for longer than the larger of its wait
    // hint and stopTimeout, plus threadDeletionDelay, Remove gives up. FALSE
    // when the service cannot be opened, when its stop ends in any state
    // but SERVICE_STOPPED (it then stays installed) or when it cannot be
    // deleted. The last status seen stays in serviceStatus.
    BOOLTYPE Remove();
    // Asks the service manager to start the service with these arguments;
    // does not wait for it to run. Prints "<shortName> started..." or
    // "Unable to start <shortName>".
    BOOLTYPE start_svc(unsigned long argc, char const **argv);
    // Sends the stop control; does not wait for the service to stop. Prints
    // "<shortName> stopped..." or "Unable to stop <shortName>".
    BOOLTYPE stop_svc();
    // The service's current state into state (untouched on failure), with
    // no message. serviceStatus is not touched.
    // start_svc, stop_svc and check_status print "Unable to get service
    // handle for <longName>" when the service cannot be opened.
    BOOLTYPE check_status(unsigned long &state);

    // --- The running service. Any thread.

    // Reports SERVICE_STOPPED.
    void Conclude();
    // Raise the request on their interlock, if it exists; report nothing
    // and touch no flag.
    void StopService();
    void PauseService();
    void ContinueService();

    // The fields as the constructor and the derived class set them.
    BOOLTYPE IsRunningAsService() const { return runAsService; }
    char const *GetShortNameByPtr() const { return shortName; }
    unsigned long GetServiceStartTimeout() const { return startTimeout; }
    unsigned long GetServiceStopTimeout() const { return stopTimeout; }
    unsigned long GetServicePauseTimeout() const { return pauseTimeout; }
    unsigned long GetServiceContinueTimeout() const { return continueTimeout; }
    unsigned long GetDelayForThreadDeletion() const { return threadDeletionDelay; }
    // The state last reported; on a console SERVICE_STOPPED throughout.
    unsigned long GetCurrentState() const { return serviceStatus.dwCurrentState; }
    // TRUE between a completed pause and a completed continue; safe to call
    // from any thread (the run loop writes the flag atomically).
    BOOLTYPE IsPaused() const { return __atomic_load_n(&paused, __ATOMIC_ACQUIRE); }

    // The service of this process: written by the naming constructor,
    // cleared by nothing.
    static GenericService *primaryServicePtr;
    // The thread the program names as executing the service's work; set by
    // the program, read by the service's diagnostic guard.
    static CWinThread *serviceDiagExecThreadPtr;
    // Open to the program; the library neither reads nor writes them.
    static unsigned long serviceProcessPriorityClass;
    static int serviceThreadPriority;

protected:
    // Called once on the service thread, after the start-pending report and
    // after the interlocks exist: the place to start the workers. TRUE
    // enters the run loop; FALSE ends the service at once, in good order
    // (SERVICE_STOPPED, reported at the start of the clean-up and at its
    // end). This class gives FALSE.
    virtual BOOLTYPE InitPrimaryService();
    // Called again and again on the service thread, also while paused.
    // TRUE: wait on the interlocks (at most cycleWaitTime) before the next
    // call; FALSE: skip that wait. Answers are only seen in a wait, so a
    // service must return TRUE, or block, often enough. This class gives
    // FALSE.
    virtual BOOLTYPE CyclePrimaryService();

    // Writes state, wait hint and check point into serviceStatus and, under
    // the service manager with a status handle, reports them; clears
    // dwWin32ExitCode on START_PENDING and RUNNING. On a console it changes
    // nothing and gives TRUE. FALSE when the report failed.
    BOOLTYPE InformSCMgr(unsigned long state, unsigned long waitHint, unsigned long checkPoint);

    // The function of the service table: CommonServiceMain for
    // primaryServicePtr.
    static void WINAPI PrimaryServiceMain(DWORD argc, LPSTR *argv);
    // The whole life of a running service. argc and argv are not read.
    static void CommonServiceMain(unsigned long argc, char **argv, GenericService *service);
    // The control handler given to the service manager: CommonServiceControlHandler
    // for primaryServicePtr.
    static void WINAPI PrimaryServiceControlHandler(DWORD control);
    // Reports first, then raises the request; never blocks. Stop and
    // shutdown raise the stop request once (a repeat reports STOP_PENDING
    // with hint 0); pause while paused and continue while not paused
    // confirm the state at once; interrogate and unknown codes report the
    // current state with hint and check point 0. Before the interlocks
    // exist, and after they are gone, stop, pause and continue report
    // SERVICE_STOPPED.
    static void CommonServiceControlHandler(unsigned long control, GenericService *service);
    // The console handler, for primaryServicePtr. On a console: Ctrl+C,
    // Ctrl+Break, close, log-off and shutdown raise the stop request and
    // give TRUE, any other event FALSE. Under the service manager only the
    // shutdown event raises it, and the result is FALSE.
    static BOOL WINAPI ConsoleControlHandler(DWORD eventType);

    // The interlocks and their group, in the order start, stop, pause,
    // continue; they exist only while the service runs. A derived service
    // spawns its workers' child interlocks from them.
    ParentInterlockSepThread *startInterlockPtr;
    ParentInterlockSepThread *stopInterlockPtr;
    ParentInterlockSepThread *pauseInterlockPtr;
    ParentInterlockSepThread *continueInterlockPtr;
    ParentMultiLockSepThread *interlockGroupPtr;
    // Keep the control handler from raising a request twice.
    BOOLTYPE stopAllowed;
    BOOLTYPE pauseAllowed;
    BOOLTYPE continueAllowed;
    BOOLTYPE paused;
    SERVICE_STATUS_HANDLE statusHandle;
    // Longest wait on the interlocks between two calls of CyclePrimaryService.
    DWORD cycleWaitTime;
    char *shortName;
    char *longName;
    // What goes to the service manager. A derived class may set
    // dwWin32ExitCode and dwServiceSpecificExitCode for the final report
    // (for instance before InitPrimaryService gives FALSE); the run time
    // clears dwWin32ExitCode on START_PENDING and RUNNING only.
    SERVICE_STATUS serviceStatus;
    BOOLTYPE runAsService;
    // Wait hints, in milliseconds, and the pause between the stop answer
    // and the clean-up. A derived class sets them in its constructor,
    // before Begin. A stopTimeout below 15000 is allowed; the stop hint
    // never goes below 15000.
    DWORD stopTimeout;
    DWORD startTimeout;
    DWORD pauseTimeout;
    DWORD continueTimeout;
    DWORD threadDeletionDelay;

private:
    // The service, opened on first use and kept (and never closed) for the
    // life of the object; null while it cannot be opened.
    void *getSvcHandle();

    SC_HANDLE serviceHandle;
};
