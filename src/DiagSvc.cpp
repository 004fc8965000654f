// DiagGuardService: a guard that stops its service before the process ends.
#include "DiagSvc.h"

#include "GenSvc.h"

#include <afxwin.h>
#include <stdlib.h>

DiagGuardService::DiagGuardService(char const *fileName)
    : DiagGuard(fileName), servicePtr(GenericService::primaryServicePtr),
      diagExecThreadPtr(GenericService::serviceDiagExecThreadPtr)
{
    diagContext.SetServiceFlag();
}

DiagGuardService::DiagGuardService() : DiagGuard(), servicePtr(nullptr), diagExecThreadPtr(nullptr)
{
    diagContext.SetServiceFlag();
}

DiagGuardService::~DiagGuardService() {}

void DiagGuardService::TellServiceOfAssert()
{
    if (servicePtr == nullptr || servicePtr->IsRunningAsService() != TRUE)
        return; // a console run ends like any other program
    // A null diagExecThreadPtr names no thread, also not one that the
    // framework does not know (whose AfxGetThread is null as well).
    if (diagExecThreadPtr != nullptr && AfxGetThread() == diagExecThreadPtr)
        servicePtr->StopService();
    else
        servicePtr->Conclude();
}

void DiagGuardService::ExitAfterAssert()
{
    TellServiceOfAssert();
    _Exit(1); // as _exit: at once, nothing else runs
}
