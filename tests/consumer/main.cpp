// Uses the library's frame, the platform's kernel objects and its service
// manager through the umbrella header, as a program built on TSUtil does.
//   consumer           checks, then installs itself as a service, runs and
//                      stops it, and removes it again
//   consumer service   runs as that service
#include <TSUtil.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

SERVICE_STATUS_HANDLE statusHandle;
HANDLE stopEvent;

void Report(DWORD state)
{
    SERVICE_STATUS st{SERVICE_WIN32_OWN_PROCESS, state, state == SERVICE_RUNNING ? DWORD(SERVICE_ACCEPT_STOP) : 0,
                      0, 0, 0, 0};
    SetServiceStatus(statusHandle, &st);
}

DWORD WINAPI Handler(DWORD control, DWORD, LPVOID, LPVOID)
{
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(stopEvent);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, LPSTR *)
{
    statusHandle = RegisterServiceCtrlHandlerExA("TsConsumer", Handler, nullptr);
    Report(SERVICE_RUNNING);
    WaitForSingleObject(stopEvent, 30000);
    Report(SERVICE_STOPPED);
}

bool WaitForState(SC_HANDLE svc, DWORD state)
{
    SERVICE_STATUS st{};
    for (int i = 0; i < 2000; ++i) {
        if (!QueryServiceStatus(svc, &st))
            return false;
        if (st.dwCurrentState == state)
            return true;
        Sleep(5);
    }
    return false;
}

// The service manager starts this program as a service and stops it.
bool RunsAsAService()
{
    char self[MAX_PATH];
    if (!GetModuleFileNameA(nullptr, self, sizeof self))
        return false;
    std::string image = std::string("\"") + self + "\" service";
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!scm) {
        std::printf("consumer: OpenSCManagerA: %lu\n", static_cast<unsigned long>(GetLastError()));
        return false;
    }
    SC_HANDLE svc = CreateServiceA(scm, "TsConsumer", nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                   SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, image.c_str(), nullptr, nullptr,
                                   nullptr, nullptr, nullptr);
    bool ok = svc && StartServiceA(svc, 0, nullptr) && WaitForState(svc, SERVICE_RUNNING);
    SERVICE_STATUS st{};
    ok = ok && ControlService(svc, SERVICE_CONTROL_STOP, &st) && WaitForState(svc, SERVICE_STOPPED);
    if (!ok)
        std::printf("consumer: the service did not run: %lu\n", static_cast<unsigned long>(GetLastError()));
    if (svc) {
        DeleteService(svc);
        CloseServiceHandle(svc);
    }
    CloseServiceHandle(scm);
    return ok;
}

} // namespace

int main(int argc, char **argv)
{
    stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (argc > 1 && std::strcmp(argv[1], "service") == 0) {
        char name[] = "TsConsumer";
        SERVICE_TABLE_ENTRYA table[] = {{name, ServiceMain}, {nullptr, nullptr}};
        return StartServiceCtrlDispatcherA(table) ? 0 : 1;
    }
    HANDLE e = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SetEvent(e);
    bool ok = WaitForSingleObject(e, 0) == WAIT_OBJECT_0;
    CloseHandle(e);
    ok = ok && RunsAsAService();
    BOOLTYPE b = ok ? TRUE : FALSE;
    std::printf("consumer: %s\n", b == TRUE ? "ok" : "failed");
    return b == TRUE ? 0 : 1;
}
