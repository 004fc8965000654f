// A program with diagnostic guards that fail gated assertions, for the
// end-to-end tests of the gated assertion and of DiagGuardService. It reads
// the installation's settings below HIVE\BASE (HKCU or HKLM), and its
// guards write to FILE:
//
//   diag_probe assert HIVE BASE FILE    the main thread's plain guard, the
//                                       condition argc < 0
//   diag_probe fail HIVE BASE FILE      the same, the place itself: FALSE
//   diag_probe console HIVE BASE FILE   a service's guard in a service
//                                       program run on a console
//
// Each emits a gated message and then fails its assertion. With the gate
// open the process ends in the assertion with exit code 1; with it shut the
// program goes on, emits "went on" and ends with 0.
//
//   diag_probe named|other HIVE BASE FILE
//
// is a service, installed with these words: once running it makes a thread
// of the framework, named in GenericService::serviceDiagExecThreadPtr
// before it builds its guard. Then
//   named   the named thread fails an assertion: the service is asked to
//           stop, and the process ends before anything reports the stop;
//   other   the service's worker thread fails one: SERVICE_STOPPED is
//           reported, then the process ends.
// Each failing thread has a DiagGuardService of its own; the process ends
// with exit code 1. Started by hand it ends with 2.
#include "WorkerService.h"

#include "DiagGrd.h"
#include "DiagSvc.h"
#include "RegEntry.h"
#include "TessInit.h"

#include <afxwin.h>

#include <stdio.h>
#include <string.h>

#include <memory>

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

// The main thread's guard, a message, and the assertion.
int FailOnMain(char const *mode, int argc)
{
    std::unique_ptr<GenericService> service;
    std::unique_ptr<DiagGuard> guard;
    if (strcmp(mode, "console") == 0) {
        service.reset(new GenericService("TSDiagProbe", "TSUtil Diagnostic Probe", FALSE, 1000));
        guard.reset(new DiagGuardService(diagFile));
    } else {
        guard.reset(new DiagGuard(diagFile));
    }
    DiagGuard::SetThreadDiagGuardPtr(guard.get());
    DIAG_MSG(kProbeClass, "probe " << mode << "\n");
    if (strcmp(mode, "fail") == 0)
        DIAG_ASSERT(kProbeClass, FALSE);
    else
        DIAG_ASSERT(kProbeClass, argc < 0);
    DIAG_MSG(kProbeClass, "went on\n");
    DiagGuard::SetThreadDiagGuardPtr(nullptr);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    char const *const modes[] = {"assert", "fail", "console", "named", "other"};
    int mode = 0;
    while (argc == 5 && mode < 5 && strcmp(argv[1], modes[mode]) != 0)
        ++mode;
    if (argc != 5 || mode == 5) {
        fprintf(stderr, "usage: diag_probe assert|fail|console|named|other HKCU|HKLM BASE FILE\n");
        return 64;
    }
    HKEY hive = strcmp(argv[2], "HKLM") == 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    if (RegistryEntry::SetRegistryDefaults(argv[3], hive, 0, 0) != TRUE)
        return 65;
    TessaviInitInfo::AssignRegistryObjects();
    diagFile = argv[4];
    int code = 0;
    if (mode < 3) {
        code = FailOnMain(argv[1], argc);
    } else {
        ProbeService service(mode == 3);
        code = service.Begin() ? 0 : 2;
        service.Join();
    }
    TessaviInitInfo::UnassignRegistryObjects();
    return code;
}
