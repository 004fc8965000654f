// A small service written directly against the Win32 service calls, for
// the service manager tests. Its behaviour comes from its command line
// (the words after the program in ImagePath):
//   (none)       starts, runs, pauses, continues and stops on request;
//                reports its start arguments' count in
//                dwServiceSpecificExitCode while it runs
//   slowstop MS  stays SERVICE_STOP_PENDING for MS milliseconds after a stop
//   nopause      does not accept pause and continue
//   reportpid    reports its process id in dwServiceSpecificExitCode instead
//   silent       never calls StartServiceCtrlDispatcherA (and never ends)
//   quit         ends at once with exit code 3
//   holdat STEP FILE
//                at STEP of its start or stop writes its process id to FILE
//                and stops there, to be killed: dispatcher (before it is
//                called), main (ServiceMain entered), startpending,
//                running, stophandler (inside the stop control),
//                stoppending, stopped (reported, the process not ended)
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

namespace {

SERVICE_STATUS_HANDLE statusHandle;
SERVICE_STATUS status;
HANDLE stopEvent;
DWORD slowStopMs = 0;
bool acceptPause = true;
bool reportPid = false;
const char *holdStep = "";
const char *holdFile = nullptr;

// Stops here for good when this is the step to hold at.
void HoldAt(const char *step)
{
    if (!holdFile || strcmp(step, holdStep) != 0)
        return;
    std::string part = std::string(holdFile) + ".part";
    FILE *f = fopen(part.c_str(), "w");
    if (f) {
        fprintf(f, "%lu\n", static_cast<unsigned long>(GetCurrentProcessId()));
        fclose(f);
        rename(part.c_str(), holdFile);
    }
    for (;;)
        Sleep(INFINITE);
}

void Report(DWORD state, DWORD checkPoint = 0, DWORD waitHint = 0)
{
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING || state == SERVICE_STOPPED
                                    ? 0
                                    : SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN |
                                          (acceptPause ? SERVICE_ACCEPT_PAUSE_CONTINUE : 0);
    status.dwCheckPoint = checkPoint;
    status.dwWaitHint = waitHint;
    SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI Handler(DWORD control, DWORD, LPVOID, LPVOID)
{
    switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        HoldAt("stophandler");
        Report(SERVICE_STOP_PENDING, 1, 5000);
        SetEvent(stopEvent);
        return NO_ERROR;
    case SERVICE_CONTROL_PAUSE:
        Report(SERVICE_PAUSED);
        return NO_ERROR;
    case SERVICE_CONTROL_CONTINUE:
        Report(SERVICE_RUNNING);
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void WINAPI ServiceMain(DWORD argc, LPSTR *argv)
{
    HoldAt("main");
    statusHandle = RegisterServiceCtrlHandlerExA(argv[0], Handler, nullptr);
    if (!statusHandle)
        return;
    stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    Report(SERVICE_START_PENDING, 1, 3000);
    HoldAt("startpending");
    // The start arguments after the name, or who we are.
    status.dwServiceSpecificExitCode = reportPid ? GetCurrentProcessId() : argc - 1;
    Report(SERVICE_RUNNING);
    HoldAt("running");
    WaitForSingleObject(stopEvent, INFINITE);
    HoldAt("stoppending");
    if (slowStopMs)
        Sleep(slowStopMs); // a service that takes its time to stop
    status.dwServiceSpecificExitCode = 0;
    status.dwWin32ExitCode = 0;
    Report(SERVICE_STOPPED);
}

} // namespace

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "slowstop") && i + 1 < argc)
            slowStopMs = static_cast<DWORD>(atol(argv[++i]));
        else if (!strcmp(argv[i], "reportpid"))
            reportPid = true;
        else if (!strcmp(argv[i], "nopause"))
            acceptPause = false;
        else if (!strcmp(argv[i], "silent"))
            for (;;)
                Sleep(INFINITE);
        else if (!strcmp(argv[i], "quit"))
            return 3;
        else if (!strcmp(argv[i], "holdat") && i + 2 < argc) {
            holdStep = argv[++i];
            holdFile = argv[++i];
        }
    }
    HoldAt("dispatcher");
    char name[] = "TestService";
    SERVICE_TABLE_ENTRYA table[] = {{name, ServiceMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherA(table))
        return static_cast<int>(GetLastError() & 0xFF);
    HoldAt("stopped");
    return 0;
}
