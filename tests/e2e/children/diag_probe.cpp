// A program with a diagnostic guard, for the end-to-end tests of the gated
// assertion. It reads the installation's settings below HIVE\BASE (HKCU or
// HKLM), makes a guard writing to FILE for its main thread, emits a gated
// message and then fails an assertion:
//
//   diag_probe assert HIVE BASE FILE    a plain guard, the condition argc < 0
//   diag_probe fail HIVE BASE FILE      a plain guard, the place itself: FALSE
//   diag_probe console HIVE BASE FILE   a service's guard in a service
//                                       program run on a console
//
// With the gate open the process ends in the assertion with exit code 1.
// With it shut the program goes on, emits "went on" and ends with 0.
#include "DiagGrd.h"
#include "DiagSvc.h"
#include "GenSvc.h"
#include "RegEntry.h"
#include "TessInit.h"

#include <stdio.h>
#include <string.h>

#include <memory>

namespace {

const DiagGuard::ClassNameIndex kProbeClass = static_cast<DiagGuard::ClassNameIndex>(12);

int Usage()
{
    fprintf(stderr, "usage: diag_probe assert|fail|console HKCU|HKLM BASE FILE\n");
    return 64;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5)
        return Usage();
    const char *mode = argv[1];
    HKEY hive = strcmp(argv[2], "HKLM") == 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    if (RegistryEntry::SetRegistryDefaults(argv[3], hive, 0, 0) != TRUE)
        return 65;
    TessaviInitInfo::AssignRegistryObjects();

    std::unique_ptr<GenericService> service;
    std::unique_ptr<DiagGuard> guard;
    if (strcmp(mode, "console") == 0) {
        service.reset(new GenericService("TSDiagProbe", "TSUtil Diagnostic Probe", FALSE, 1000));
        guard.reset(new DiagGuardService(argv[4]));
    } else if (strcmp(mode, "assert") == 0 || strcmp(mode, "fail") == 0) {
        guard.reset(new DiagGuard(argv[4]));
    } else {
        return Usage();
    }
    DiagGuard::SetThreadDiagGuardPtr(guard.get());

    DIAG_MSG(kProbeClass, "probe " << mode << "\n");
    if (strcmp(mode, "fail") == 0)
        DIAG_ASSERT(kProbeClass, FALSE);
    else
        DIAG_ASSERT(kProbeClass, argc < 0);
    DIAG_MSG(kProbeClass, "went on\n");

    DiagGuard::SetThreadDiagGuardPtr(nullptr);
    guard.reset();
    TessaviInitInfo::UnassignRegistryObjects();
    return 0;
}
