// An application program with no main of its own, built on WinApp and
// WinThread: the framework's entry (tsafx_main) runs its one application
// object. Started as
//
//   winapp_probe HIVE BASE DIR
//
// it reads the installation's settings below HIVE\BASE (HKCU or HKLM) and
// works in the folder DIR. The application and one thread are built by
// their default constructors, so both name defWDiag.txt; the thread's guard
// writes second and takes defWDia2.txt. The thread runs the framework's Run
// until the application posts it WM_QUIT; then the application quits with
// 7, which is the process's exit code when all went well. Codes from 90 up
// name what did not.
#include "RegEntry.h"
#include "TessInit.h"
#include "WinApp.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

enum Failure {
    kBadCommandLine = 90,
    kNoGuard = 91,
    kThreadNotStarted = 92,
    kThreadDidNotEnd = 93,
};

const DiagGuard::ClassNameIndex kProbeClass = static_cast<DiagGuard::ClassNameIndex>(12);

class ProbeThread : public WinThread {
public:
    ProbeThread() { m_bAutoDelete = FALSE; }
    BOOL InitInstance() override
    {
        BOOL result = WinThread::InitInstance();
        DIAG_MSG(kProbeClass, "thread waits for its quit\n");
        SetEvent(initialised);
        return result;
    }
    HANDLE initialised = CreateEventA(nullptr, TRUE, FALSE, nullptr);
};

class ProbeApp : public WinApp {
public:
    BOOL InitInstance() override
    {
        char hive[8] = {}, base[256] = {}, dir[512] = {};
        if (!m_lpCmdLine || sscanf(m_lpCmdLine, "%7s %255s %511s", hive, base, dir) != 3 ||
            RegistryEntry::SetRegistryDefaults(base, strcmp(hive, "HKLM") == 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER,
                                               0, 0) != TRUE ||
            !SetCurrentDirectoryA(dir))
            _Exit(kBadCommandLine);
        TessaviInitInfo::AssignRegistryObjects(); // before the first guard
        BOOL result = WinApp::InitInstance();
        if (!DiagGuard::GetThreadDiagGuardPtr())
            _Exit(kNoGuard);
        // The thread's guard writes while the application's holds its file.
        if (!thread_.initialised || !thread_.CreateThread() ||
            WaitForSingleObject(thread_.initialised, INFINITE) != WAIT_OBJECT_0)
            _Exit(kThreadNotStarted);
        DIAG_MSG(kProbeClass, "application asks the thread to quit\n");
        if (!thread_.PostThreadMessage(WM_QUIT, 0, 0) || WaitForSingleObject(thread_.m_hThread, INFINITE) != WAIT_OBJECT_0)
            _Exit(kThreadDidNotEnd);
        AfxPostQuitMessage(7);
        return result;
    }
    int ExitInstance() override
    {
        DIAG_MSG(kProbeClass, "application ends\n");
        int result = WinApp::ExitInstance();
        TessaviInitInfo::UnassignRegistryObjects(); // after the last guard
        return result;
    }

private:
    ProbeThread thread_;
};

ProbeApp theApp;

} // namespace
