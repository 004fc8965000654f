// DiagGuardService: the diagnostic guard of a thread inside a service.
// Everything is DiagGuard's (gates, switches, masks, file, lock) except the
// end after a failed assertion: before the process ends, the service is
// either asked to stop or the stop is reported to the service manager,
// according to the thread on which the assertion failed. Its stream is
// marked as a service's, so that a diagnostic file that cannot be opened
// also reports the stop before the process ends.
#pragma once

#include "TSDefs.h"
#include "DiagGrd.h"

class CWinThread;
class GenericService;

class TSUTIL_API DiagGuardService : public DiagGuard {
public:
    // DiagGuard(fileName), then snapshots of GenericService::primaryServicePtr
    // and GenericService::serviceDiagExecThreadPtr as they stand now: the
    // service object (and the named thread, if any) must exist already and
    // outlive the guard; later changes of the statics do not reach it.
    explicit DiagGuardService(char const *fileName);
    // DiagGuard() with the stream marked; no service, no thread. Not a
    // working guard.
    DiagGuardService();
    virtual ~DiagGuardService();

    // Under the service manager, on the thread named by diagExecThreadPtr:
    // StopService() (the request is raised, not waited for); on any other
    // thread: Conclude() (SERVICE_STOPPED is reported). On a console, or
    // without a service: neither. Then the process ends at once with exit
    // code 1, whatever the service calls gave.
    virtual void ExitAfterAssert() override;

protected:
    // The part of ExitAfterAssert before the end of the process.
    void TellServiceOfAssert();

    GenericService *servicePtr;     // not owned
    CWinThread *diagExecThreadPtr;  // not owned; null: no thread is named
};
