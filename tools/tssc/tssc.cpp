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

#include "casefold.h"

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

// "key= value" pairs after the name, as sc.exe takes them (the value is
// the next word; "key=value" in one word is taken too).
bool options(int argc, char **argv, int from, std::vector<std::pair<std::string, std::string>> &out)
{
    for (int i = from; i < argc; ++i) {
        std::string a = argv[i];
        std::string::size_type eq = a.find('=');
        if (eq == std::string::npos)
            return false;
        std::string key = a.substr(0, eq + 1), value = a.substr(eq + 1);
        if (value.empty()) {
            if (i + 1 >= argc)
                return false;
            value = argv[++i];
        }
        out.emplace_back(tsp::foldLower(key), value);
    }
    return true;
}

int create(SC_HANDLE scm, const char *name, int argc, char **argv)
{
    std::vector<std::pair<std::string, std::string>> opts;
    if (!options(argc, argv, 3, opts))
        return usage();
    std::string path, display;
    bool hasDisplay = false;
    DWORD start = SERVICE_DEMAND_START;
    for (auto &o : opts) {
        if (o.first == "binpath=")
            path = o.second;
        else if (o.first == "displayname=") {
            display = o.second;
            hasDisplay = true;
        } else if (o.first == "start=") {
            if (o.second == "auto")
                start = SERVICE_AUTO_START;
            else if (o.second == "demand")
                start = SERVICE_DEMAND_START;
            else if (o.second == "disabled")
                start = SERVICE_DISABLED;
            else
                return usage();
        } else
            return usage();
    }
    if (path.empty())
        return usage();
    SC_HANDLE svc = CreateServiceA(scm, name, hasDisplay ? display.c_str() : nullptr, SERVICE_ALL_ACCESS,
                                   SERVICE_WIN32_OWN_PROCESS, start, SERVICE_ERROR_NORMAL, path.c_str(), nullptr,
                                   nullptr, nullptr, nullptr, nullptr);
    if (!svc)
        return failed("CreateService", GetLastError());
    CloseServiceHandle(svc);
    printf("[SC] CreateService SUCCESS\n");
    return 0;
}

int queryAll(SC_HANDLE scm, int argc, char **argv, int from)
{
    std::vector<std::pair<std::string, std::string>> opts;
    if (!options(argc, argv, from, opts))
        return usage();
    DWORD state = SERVICE_ACTIVE;
    for (auto &o : opts) {
        if (o.first != "state=")
            return usage();
        if (o.second == "all")
            state = SERVICE_STATE_ALL;
        else if (o.second == "inactive")
            state = SERVICE_INACTIVE;
        else if (o.second != "active")
            return usage();
    }
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
    if (argc < 2)
        return usage();
    std::string cmd = tsp::foldLower(argv[1]);
    bool known = cmd == "create" || cmd == "delete" || cmd == "start" || cmd == "stop" || cmd == "pause" ||
                 cmd == "continue" || cmd == "interrogate" || cmd == "query";
    if (!known)
        return usage();
    DWORD managerAccess = SC_MANAGER_CONNECT | (cmd == "create" ? SC_MANAGER_CREATE_SERVICE : 0) |
                          (cmd == "query" ? SC_MANAGER_ENUMERATE_SERVICE : 0);
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, managerAccess);
    if (!scm)
        return failed("OpenSCManager", GetLastError());
    int rc;
    if (cmd == "query" && (argc < 3 || strchr(argv[2], '='))) {
        rc = queryAll(scm, argc, argv, 2);
    } else if (argc < 3) {
        rc = usage();
    } else if (cmd == "create") {
        rc = create(scm, argv[2], argc, argv);
    } else {
        const char *name = argv[2];
        SC_HANDLE svc = OpenServiceA(scm, name, SERVICE_ALL_ACCESS);
        if (!svc) {
            rc = failed("OpenService", GetLastError());
        } else if (cmd == "delete") {
            rc = argc != 3 ? usage() : DeleteService(svc) ? (printf("[SC] DeleteService SUCCESS\n"), 0)
                                                           : failed("DeleteService", GetLastError());
        } else if (cmd == "start") {
            std::vector<const char *> args;
            for (int i = 3; i < argc; ++i)
                args.push_back(argv[i]);
            if (!StartServiceA(svc, static_cast<DWORD>(args.size()), args.empty() ? nullptr : args.data())) {
                rc = failed("StartService", GetLastError());
            } else {
                SERVICE_STATUS st{};
                QueryServiceStatus(svc, &st);
                printStatus(name, nullptr, st);
                rc = 0;
            }
        } else if (cmd == "query") {
            SERVICE_STATUS st{};
            if (!QueryServiceStatus(svc, &st)) {
                rc = failed("QueryServiceStatus", GetLastError());
            } else {
                printStatus(name, nullptr, st);
                rc = 0;
            }
        } else {
            DWORD control = cmd == "stop"       ? SERVICE_CONTROL_STOP
                            : cmd == "pause"    ? SERVICE_CONTROL_PAUSE
                            : cmd == "continue" ? SERVICE_CONTROL_CONTINUE
                                                : SERVICE_CONTROL_INTERROGATE;
            SERVICE_STATUS st{};
            if (argc != 3) {
                rc = usage();
            } else if (!ControlService(svc, control, &st)) {
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
