// What tssc prints.
#include "output.h"

#include "console.h"

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

namespace tssc {

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
    case ERROR_DEPENDENT_SERVICES_RUNNING:
        return "A stop control has been sent to a service that other running services are dependent on.";
    case ERROR_CIRCULAR_DEPENDENCY: return "Circular service dependency was specified.";
    case ERROR_SERVICE_DEPENDENCY_FAIL: return "The dependency service or group failed to start.";
    case ERROR_SERVICE_LOGON_FAILED: return "The service did not start due to a logon failure.";
    case ERROR_SERVICE_DEPENDENCY_DELETED:
        return "The dependency service does not exist or has been marked for deletion.";
    case ERROR_INVALID_COMMAND_LINE: return "Invalid command line argument. Consult the Windows Installer SDK for detailed command line help.";
    case ERROR_INSUFFICIENT_BUFFER: return "The data area passed to a system call is too small.";
    case ERROR_INVALID_LEVEL: return "The system call level is not correct.";
    case ERROR_NO_UNICODE_TRANSLATION:
        return "No mapping for the Unicode character exists in the target multi-byte code page.";
    case ERROR_MORE_DATA: return "More data is available.";
    case RPC_S_SERVER_UNAVAILABLE: return "The RPC server is unavailable.";
    default: return "The operation failed.";
    }
}

// The name of a value that numbers its names from 0; "UNKNOWN" past them.
template <size_t N> const char *nameOf(const char *const (&names)[N], DWORD value)
{
    return value < N ? names[value] : "UNKNOWN";
}

const char *const stateNames[] = {"",        "STOPPED",          "START_PENDING", "STOP_PENDING",
                                  "RUNNING", "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};
const char *const startNames[] = {"BOOT_START", "SYSTEM_START", "AUTO_START", "DEMAND_START", "DISABLED"};
const char *const errorControlNames[] = {"IGNORE", "NORMAL", "SEVERE", "CRITICAL"};

} // namespace

void say(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0)
        vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    writeText(text);
}

int failed(const char *call, DWORD code)
{
    say("[SC] %s FAILED %lu:\n\n%s\n\n", call, static_cast<unsigned long>(code), messageOf(code));
    return static_cast<int>(code);
}

std::string typeName(DWORD t)
{
    std::string name;
    switch (t & ~static_cast<DWORD>(SERVICE_INTERACTIVE_PROCESS)) {
    case SERVICE_WIN32_OWN_PROCESS: name = "WIN32_OWN_PROCESS"; break;
    case SERVICE_WIN32_SHARE_PROCESS: name = "WIN32_SHARE_PROCESS"; break;
    case SERVICE_KERNEL_DRIVER: name = "KERNEL_DRIVER"; break;
    case SERVICE_FILE_SYSTEM_DRIVER: name = "FILE_SYSTEM_DRIVER"; break;
    default: name = "WIN32"; break;
    }
    if (t & SERVICE_INTERACTIVE_PROCESS)
        name += " (interactive)";
    return name;
}

const char *startName(DWORD start) { return nameOf(startNames, start); }

const char *errorControlName(DWORD e) { return nameOf(errorControlNames, e); }

void printStatus(const std::string &name, const std::string *display, const SERVICE_STATUS_PROCESS &s, bool ex)
{
    say("SERVICE_NAME: %s\n", name.c_str());
    if (display)
        say("DISPLAY_NAME: %s\n", display->c_str());
    say("        TYPE               : %lx  %s\n", static_cast<unsigned long>(s.dwServiceType),
        typeName(s.dwServiceType).c_str());
    say("        STATE              : %lu  %s\n", static_cast<unsigned long>(s.dwCurrentState),
        nameOf(stateNames, s.dwCurrentState));
    std::string accepts = s.dwControlsAccepted & SERVICE_ACCEPT_STOP ? "STOPPABLE" : "NOT_STOPPABLE";
    accepts += s.dwControlsAccepted & SERVICE_ACCEPT_PAUSE_CONTINUE ? ", PAUSABLE" : ", NOT_PAUSABLE";
    accepts += s.dwControlsAccepted & SERVICE_ACCEPT_SHUTDOWN ? ", ACCEPTS_SHUTDOWN" : ", IGNORES_SHUTDOWN";
    say("                                (%s)\n", accepts.c_str());
    say("        WIN32_EXIT_CODE    : %lu  (0x%lx)\n", static_cast<unsigned long>(s.dwWin32ExitCode),
        static_cast<unsigned long>(s.dwWin32ExitCode));
    say("        SERVICE_EXIT_CODE  : %lu  (0x%lx)\n", static_cast<unsigned long>(s.dwServiceSpecificExitCode),
        static_cast<unsigned long>(s.dwServiceSpecificExitCode));
    say("        CHECKPOINT         : 0x%lx\n", static_cast<unsigned long>(s.dwCheckPoint));
    say("        WAIT_HINT          : 0x%lx\n", static_cast<unsigned long>(s.dwWaitHint));
    if (ex) {
        say("        PID                : %lu\n", static_cast<unsigned long>(s.dwProcessId));
        say("        FLAGS              : \n");
    }
    say("\n");
}

} // namespace tssc
