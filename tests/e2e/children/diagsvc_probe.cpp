// A service whose threads fail gated assertions under the service manager,
// for the end-to-end tests of DiagGuardService. Installed with the words
//
//   diagsvc_probe HIVE BASE FILE named|other
//
// it reads the installation's settings below HIVE\BASE (HKCU or HKLM),
// starts, and once running makes a thread of the framework, named in
// GenericService::serviceDiagExecThreadPtr before it starts. Then
//   named   the named thread fails an assertion: the service is asked to
//           stop, and the process ends before anything reports the stop;
//   other   the service's worker thread fails one: SERVICE_STOPPED is
//           reported, then the process ends.
// Each failing thread has a DiagGuardService of its own writing to FILE;
// the process ends with exit code 1. Started by hand it ends with 2.
#include "../../../examples/service/WorkerService.h"

#include "DiagSvc.h"
#include "RegEntry.h"
#include "TessInit.h"

#include <afxwin.h>

#include <stdio.h>
#include <string.h>

namespace {

char const kShortName[] = "TSDiagSvcProbe";
char const kLongName[] = "TSUtil DiagGuardService Probe";
const DiagGuard::ClassNameIndex kProbeClass = static_cast<DiagGuard::ClassNameIndex>(12);

char const *diagFile = nullptr;

// A thread's guard, a message, and the assertion.
void FailHere(char const *where)
{
    DiagGuardService guard(diagFile);
    DiagGuard::SetThreadDiagGuardPtr(&guard);
    DIAG_MSG(kProbeClass, where << "\n");
    DIAG_ASSERT(kProbeClass, FALSE);
    DIAG_MSG(kProbeClass, "went on\n"); // only with the gate shut
    DiagGuard::SetThreadDiagGuardPtr(nullptr);
}

UINT NamedThread(LPVOID fail)
{
    if (fail)
        FailHere("named thread");
    else
        Sleep(INFINITE); // named, and never failing
    return 0;
}

class ProbeService : public WorkerService {
public:
    explicit ProbeService(bool failOnNamed)
        : WorkerService(kShortName, kLongName, TRUE, INFINITE), failOnNamed_(failOnNamed)
    {
    }

protected:
    // On the worker thread, once the service runs.
    void Started() override
    {
        CWinThread *named = AfxBeginThread(NamedThread, failOnNamed_ ? this : nullptr, THREAD_PRIORITY_NORMAL, 0,
                                           CREATE_SUSPENDED);
        if (!named)
            return;
        GenericService::serviceDiagExecThreadPtr = named;
        named->ResumeThread();
        if (!failOnNamed_)
            FailHere("worker thread");
    }

private:
    bool failOnNamed_;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5 || (strcmp(argv[4], "named") != 0 && strcmp(argv[4], "other") != 0)) {
        fprintf(stderr, "usage: diagsvc_probe HKCU|HKLM BASE FILE named|other\n");
        return 64;
    }
    HKEY hive = strcmp(argv[1], "HKLM") == 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    if (RegistryEntry::SetRegistryDefaults(argv[2], hive, 0, 0) != TRUE)
        return 65;
    TessaviInitInfo::AssignRegistryObjects();
    diagFile = argv[3];
    ProbeService service(strcmp(argv[4], "named") == 0);
    BOOLTYPE ran = service.Begin();
    service.Join();
    TessaviInitInfo::UnassignRegistryObjects();
    return ran ? 0 : 2;
}
