// A service that tells what it was started with: once running it writes
// its open descriptors ("fd N target" lines), its environment ("env
// NAME=VALUE" lines), its process id ("pid N") and its user and group
// ("id UID GID") to the file named by its one argument, then runs until
// stopped.
#include <windows.h>

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

extern char **environ;

namespace {

SERVICE_STATUS_HANDLE statusHandle;
HANDLE stopEvent;
const char *reportFile;

void Report(DWORD state)
{
    SERVICE_STATUS st{SERVICE_WIN32_OWN_PROCESS, state, state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0u, 0, 0, 0, 0};
    SetServiceStatus(statusHandle, &st);
}

void WriteReport()
{
    std::string part = std::string(reportFile) + ".part";
    FILE *f = fopen(part.c_str(), "we");
    if (!f)
        return;
    DIR *d = opendir("/proc/self/fd");
    while (dirent *e = d ? readdir(d) : nullptr) {
        int fd = atoi(e->d_name);
        if (e->d_name[0] == '.' || fd == dirfd(d) || fd == fileno(f))
            continue;
        char target[512];
        ssize_t n = readlink((std::string("/proc/self/fd/") + e->d_name).c_str(), target, sizeof target - 1);
        target[n > 0 ? n : 0] = 0;
        fprintf(f, "fd %d %s\n", fd, target);
    }
    if (d)
        closedir(d);
    for (char **v = environ; *v; ++v)
        fprintf(f, "env %s\n", *v);
    fprintf(f, "pid %d\nid %u %u\n", static_cast<int>(getpid()), static_cast<unsigned>(getuid()),
            static_cast<unsigned>(getgid()));
    fclose(f);
    rename(part.c_str(), reportFile);
}

DWORD WINAPI Handler(DWORD control, DWORD, LPVOID, LPVOID)
{
    if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
        SetEvent(stopEvent);
        return NO_ERROR;
    }
    return control == SERVICE_CONTROL_INTERROGATE ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
}

void WINAPI ServiceMain(DWORD, LPSTR *argv)
{
    statusHandle = RegisterServiceCtrlHandlerExA(argv[0], Handler, nullptr);
    stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    Report(SERVICE_RUNNING);
    WriteReport();
    WaitForSingleObject(stopEvent, INFINITE);
    Report(SERVICE_STOPPED);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    reportFile = argv[1];
    char name[] = "FdService";
    SERVICE_TABLE_ENTRYA table[] = {{name, ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(table) ? 0 : 1;
}
