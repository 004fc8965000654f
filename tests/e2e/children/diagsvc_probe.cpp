// A service whose threads fail gated assertions under the service manager,
// for the end-to-end tests of DiagGuardService. Installed with the words
//
//   diagsvc_probe HIVE BASE FILE named|other
//
// it reads the installation's settings below HIVE\BASE (HKCU or HKLM),
// starts, and once running makes a thread of the framework, named in
// GenericService::serviceDiagExecThreadPtr before it builds its guard. Then
//   named   the named thread fails an assertion: the service is asked to
//           stop, and the process ends before anything reports the stop;
//   other   the service's worker thread fails one: SERVICE_STOPPED is
//           reported, then the process ends.
// Each failing thread has a DiagGuardService of its own writing to FILE;
// the process ends with exit code 1. Started by hand it ends with 2.
#include "WorkerService.h"

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

// The named thread waits until it has been named: a guard takes its
// snapshot of serviceDiagExecThreadPtr when it is built.
struct Naming {
    HANDLE named;
    bool fail;
};

UINT NamedThread(LPVOID p)
{
    Naming *naming = static_cast<Naming *>(p);
    WaitForSingleObject(naming->named, INFINITE);
    if (naming->fail)
        FailHere("named thread");
    else
        Sleep(INFINITE); // named, and never failing
    return 0;
}

class ProbeService : public WorkerService {
public:
    explicit ProbeService(bool failOnNamed) : WorkerService(kShortName, kLongName, TRUE, INFINITE)
    {
        naming_.named = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        naming_.fail = failOnNamed;
    }

protected:
    // On the worker thread, once the service runs.
    void Started() override
    {
        // A worker of the framework, started without AfxBeginThread, which
        // suspends the thread on its way.
        CWinThread *named = new CWinThread(NamedThread, &naming_);
        if (!naming_.named || !named->CreateThread()) {
            delete named;
            return;
        }
        GenericService::serviceDiagExecThreadPtr = named;
        SetEvent(naming_.named);
        if (!naming_.fail)
            FailHere("worker thread");
    }

private:
    Naming naming_;
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
