// A client of the service manager, for the multi-process tests:
//   scmclient open             opens the manager; exit code 0, or the error's low byte
//   scmclient open-as UID GID  the same after becoming that user (POSIX, as root)
//   scmclient hold NAME FILE   opens the service, then creates FILE and waits
//                              to be killed, its handle open
#include <windows.h>

#include "TestSupport.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char **argv)
{
    if (argc < 2)
        return 100;
    if (!strcmp(argv[1], "hold") && argc == 4) {
        SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
        SC_HANDLE svc = scm ? OpenServiceA(scm, argv[2], SERVICE_QUERY_STATUS) : nullptr;
        if (!svc)
            return static_cast<int>(GetLastError() & 0xFF);
        FILE *ready = fopen(argv[3], "w");
        if (!ready)
            return 102;
        fclose(ready);
        Sleep(INFINITE);
        return 0;
    }
    if (!strcmp(argv[1], "open-as") && argc == 4) {
        if (!tstest::BecomeUser(static_cast<unsigned>(atoi(argv[2])), static_cast<unsigned>(atoi(argv[3]))))
            return 101;
    } else if (strcmp(argv[1], "open") != 0) {
        return 100;
    }
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!scm)
        return static_cast<int>(GetLastError() & 0xFF);
    CloseServiceHandle(scm);
    return 0;
}
