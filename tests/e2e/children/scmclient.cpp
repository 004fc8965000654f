// A client of the service manager, for the multi-process tests:
//   scmclient open             opens the manager; exit code 0, or the error's low byte
//   scmclient open-as UID GID  the same after becoming that user (POSIX, as root)
#include <windows.h>

#include <stdlib.h>
#include <string.h>
#ifndef _WIN32
#include <unistd.h>
#endif

int main(int argc, char **argv)
{
    if (argc < 2)
        return 100;
#ifndef _WIN32
    if (!strcmp(argv[1], "open-as") && argc == 4) {
        if (setgid(static_cast<gid_t>(atoi(argv[3]))) != 0 || setuid(static_cast<uid_t>(atoi(argv[2]))) != 0)
            return 101;
    } else
#endif
        if (strcmp(argv[1], "open") != 0)
        return 100;
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!scm)
        return static_cast<int>(GetLastError() & 0xFF);
    CloseServiceHandle(scm);
    return 0;
}
