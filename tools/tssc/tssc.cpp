// tssc: installs, controls and queries services, in the manner of sc.exe.
//
//   tssc create NAME binPath= PATH [DisplayName= TEXT] [start= auto|demand|disabled]
//   tssc delete|start|stop|pause|continue|interrogate NAME
//   tssc start NAME [ARG...]
//   tssc query [NAME] [state= active|inactive|all]
//
// Exit code 0 on success, else the Windows error number (POSIX keeps its
// low 8 bits), with the failed call and a readable message on standard
// output, as sc.exe prints them.
#include <windows.h>

#include "command.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

namespace {

const char *messageOf(DWORD code)
{
    switch (code) {
    case ERROR_FILE_NOT_FOUND: return "The system cannot find the file specified.";
    case ERROR_PATH_NOT_FOUND: return "The system cannot find the path specified.";
    case ERROR_ACCESS_DENIED: return "Access is denied.";
    case ERROR_INVALID_HANDLE: return "The handle is invalid.";
    case ERROR_INVALID_PARAMETER: return "The parameter is incorrect.";
    case ERROR_INVALID_NAME: return "The filename, directory name, or volume label syntax is incorrect.";
    case ERROR_INVALID_DATA: return "The data is invalid.";
    case ERROR_INVALID_SERVICE_CONTROL: return "The requested control is not valid for this service.";
    case ERROR_SERVICE_REQUEST_TIMEOUT:
        return "The service did not respond to the start or control request in a timely fashion.";
    case ERROR_SERVICE_NO_THREAD: return "A thread could not be created for the service.";
    case ERROR_SERVICE_ALREADY_RUNNING: return "An instance of the service is already running.";
    case ERROR_INVALID_SERVICE_ACCOUNT:
        return "The account name is invalid or does not exist, or the password is invalid for the account name specified.";
    case ERROR_SERVICE_DISABLED:
        return "The service cannot be started, either because it is disabled or because it has no enabled devices associated with it.";
    case ERROR_SERVICE_DOES_NOT_EXIST: return "The specified service does not exist as an installed service.";
    case ERROR_SERVICE_CANNOT_ACCEPT_CTRL: return "The service cannot accept control messages at this time.";
    case ERROR_SERVICE_NOT_ACTIVE: return "The service has not been started.";
    case ERROR_FAILED_SERVICE_CONTROLLER_CONNECT:
        return "The service process could not connect to the service controller.";
    case ERROR_PROCESS_ABORTED: return "The process terminated unexpectedly.";
    case ERROR_SERVICE_MARKED_FOR_DELETE: return "The specified service has been marked for deletion.";
    case ERROR_SERVICE_EXISTS: return "The specified service already exists.";
    case ERROR_DUPLICATE_SERVICE_NAME:
        return "The name is already in use as either a service name or a service display name.";
    case ERROR_DATABASE_DOES_NOT_EXIST: return "The database specified does not exist.";
    case RPC_S_SERVER_UNAVAILABLE: return "The RPC server is unavailable.";
    default: return "The operation failed.";
    }
}

int failed(const char *call, DWORD code)
{
    printf("[SC] %s FAILED %lu:\n\n%s\n\n", call, static_cast<unsigned long>(code), messageOf(code));
    return static_cast<int>(code);
}

const char *stateName(DWORD s)
{
    static const char *const names[] = {"",        "STOPPED",          "START_PENDING", "STOP_PENDING",
                                        "RUNNING", "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};
    return s <= SERVICE_PAUSED ? names[s] : "UNKNOWN";
}

const char *typeName(DWORD t)
{
    switch (t & ~static_cast<DWORD>(SERVICE_INTERACTIVE_PROCESS)) {
    case SERVICE_WIN32_OWN_PROCESS: return "WIN32_OWN_PROCESS";
    case SERVICE_WIN32_SHARE_PROCESS: return "WIN32_SHARE_PROCESS";
    case SERVICE_KERNEL_DRIVER: return "KERNEL_DRIVER";
    case SERVICE_FILE_SYSTEM_DRIVER: return "FILE_SYSTEM_DRIVER";
    default: return "WIN32";
    }
}

void printStatus(const char *name, const char *display, const SERVICE_STATUS &s)
{
    printf("SERVICE_NAME: %s\n", name);
    if (display)
        printf("DISPLAY_NAME: %s\n", display);
    printf("        TYPE               : %lx  %s\n", static_cast<unsigned long>(s.dwServiceType), typeName(s.dwServiceType));
    printf("        STATE              : %lu  %s\n", static_cast<unsigned long>(s.dwCurrentState),
           stateName(s.dwCurrentState));
    std::string accepts = s.dwControlsAccepted & SERVICE_ACCEPT_STOP ? "STOPPABLE" : "NOT_STOPPABLE";
    accepts += s.dwControlsAccepted & SERVICE_ACCEPT_PAUSE_CONTINUE ? ", PAUSABLE" : ", NOT_PAUSABLE";
    accepts += s.dwControlsAccepted & SERVICE_ACCEPT_SHUTDOWN ? ", ACCEPTS_SHUTDOWN" : ", IGNORES_SHUTDOWN";
    printf("                                (%s)\n", accepts.c_str());
    printf("        WIN32_EXIT_CODE    : %lu  (0x%lx)\n", static_cast<unsigned long>(s.dwWin32ExitCode),
           static_cast<unsigned long>(s.dwWin32ExitCode));
    printf("        SERVICE_EXIT_CODE  : %lu  (0x%lx)\n", static_cast<unsigned long>(s.dwServiceSpecificExitCode),
           static_cast<unsigned long>(s.dwServiceSpecificExitCode));
    printf("        CHECKPOINT         : 0x%lx\n", static_cast<unsigned long>(s.dwCheckPoint));
    printf("        WAIT_HINT          : 0x%lx\n\n", static_cast<unsigned long>(s.dwWaitHint));
}

int usage()
{
    printf("Usage:\n"
           "  tssc create NAME binPath= PATH [DisplayName= TEXT] [start= auto|demand|disabled]\n"
           "  tssc delete|stop|pause|continue|interrogate NAME\n"
           "  tssc start NAME [ARG...]\n"
           "  tssc query [NAME] [state= active|inactive|all]\n");
    return ERROR_INVALID_PARAMETER;
}

int create(SC_HANDLE scm, const tssc::Command &c)
{
    SC_HANDLE svc = CreateServiceA(scm, c.name.c_str(), c.hasDisplayName ? c.displayName.c_str() : nullptr,
                                   SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, c.startType, SERVICE_ERROR_NORMAL,
                                   c.binPath.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    if (!svc)
        return failed("CreateService", GetLastError());
    CloseServiceHandle(svc);
    printf("[SC] CreateService SUCCESS\n");
    return 0;
}

int queryAll(SC_HANDLE scm, DWORD state)
{
    DWORD resume = 0;
    std::vector<char> buf(16384);
    for (;;) {
        DWORD needed = 0, count = 0;
        BOOL ok = EnumServicesStatusA(scm, SERVICE_WIN32, state, reinterpret_cast<ENUM_SERVICE_STATUSA *>(buf.data()),
                                      static_cast<DWORD>(buf.size()), &needed, &count, &resume);
        DWORD err = ok ? 0 : GetLastError();
        if (!ok && err != ERROR_MORE_DATA)
            return failed("EnumServicesStatus", err);
        auto *entries = reinterpret_cast<ENUM_SERVICE_STATUSA *>(buf.data());
        for (DWORD i = 0; i < count; ++i)
            printStatus(entries[i].lpServiceName, entries[i].lpDisplayName, entries[i].ServiceStatus);
        if (ok)
            return 0;
        if (count == 0)
            buf.resize(buf.size() + needed);
    }
}

} // namespace

int main(int argc, char **argv)
{
    tssc::Command c;
    if (!tssc::parseCommand(argc, argv, c))
        return usage();
    DWORD managerAccess = SC_MANAGER_CONNECT | (c.verb == tssc::Command::Create ? SC_MANAGER_CREATE_SERVICE : 0) |
                          (c.verb == tssc::Command::QueryAll ? SC_MANAGER_ENUMERATE_SERVICE : 0);
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, managerAccess);
    if (!scm)
        return failed("OpenSCManager", GetLastError());
    int rc;
    if (c.verb == tssc::Command::QueryAll) {
        rc = queryAll(scm, c.state);
    } else if (c.verb == tssc::Command::Create) {
        rc = create(scm, c);
    } else {
        const char *name = c.name.c_str();
        SC_HANDLE svc = OpenServiceA(scm, name, SERVICE_ALL_ACCESS);
        if (!svc) {
            rc = failed("OpenService", GetLastError());
        } else if (c.verb == tssc::Command::Delete) {
            rc = DeleteService(svc) ? (printf("[SC] DeleteService SUCCESS\n"), 0)
                                    : failed("DeleteService", GetLastError());
        } else if (c.verb == tssc::Command::Start) {
            std::vector<const char *> args;
            for (const std::string &a : c.args)
                args.push_back(a.c_str());
            if (!StartServiceA(svc, static_cast<DWORD>(args.size()), args.empty() ? nullptr : args.data())) {
                rc = failed("StartService", GetLastError());
            } else {
                SERVICE_STATUS st{};
                QueryServiceStatus(svc, &st);
                printStatus(name, nullptr, st);
                rc = 0;
            }
        } else if (c.verb == tssc::Command::Query) {
            SERVICE_STATUS st{};
            if (!QueryServiceStatus(svc, &st)) {
                rc = failed("QueryServiceStatus", GetLastError());
            } else {
                printStatus(name, nullptr, st);
                rc = 0;
            }
        } else {
            DWORD control = c.verb == tssc::Command::Stop       ? SERVICE_CONTROL_STOP
                            : c.verb == tssc::Command::Pause    ? SERVICE_CONTROL_PAUSE
                            : c.verb == tssc::Command::Continue ? SERVICE_CONTROL_CONTINUE
                                                                : SERVICE_CONTROL_INTERROGATE;
            SERVICE_STATUS st{};
            if (!ControlService(svc, control, &st)) {
                rc = failed("ControlService", GetLastError());
            } else {
                printStatus(name, nullptr, st);
                rc = 0;
            }
        }
        if (svc)
            CloseServiceHandle(svc);
    }
    CloseServiceHandle(scm);
    return rc;
}
