// Runs the library's calls with no file descriptor left: lowers its own
// RLIMIT_NOFILE, fills every descriptor, then tries a file, the registry,
// the service manager and a log, and prints one line per call with the
// Win32 error (or the errno a LogFile threw). Then it frees the
// descriptors and does the same again, which must now work. Exit 0 when
// no call crashed and all worked again; 77 in a sanitizer build.
#include <windows.h>

#include <LogFile.h>

#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

DWORD tryFile()
{
    HANDLE h = CreateFileA("c:\\probe.txt", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return GetLastError();
    CloseHandle(h);
    return 0;
}

DWORD tryRegistry()
{
    HKEY k;
    LONG r = RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\FdProbe", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k,
                             nullptr);
    if (r != ERROR_SUCCESS)
        return static_cast<DWORD>(r);
    DWORD v = 7;
    r = RegSetValueExA(k, "v", 0, REG_DWORD, reinterpret_cast<BYTE *>(&v), 4);
    RegCloseKey(k);
    return static_cast<DWORD>(r);
}

DWORD tryServices()
{
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!scm)
        return GetLastError();
    CloseServiceHandle(scm);
    return 0;
}

int tryLog(LogFile &log)
{
    try {
        log.Open("probe", 0);
        log.Log("a record\n");
        log.Close();
    } catch (int e) {
        return e;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
#if defined(__SANITIZE_ADDRESS__)
    // UndefinedBehaviorSanitizer checks each call of a class with virtual
    // functions through a pipe of its own, which a process without a free
    // descriptor cannot make: the probe means nothing in that build.
    return 77;
#endif
    std::string root = argv[1];
    rlimit limit{64, 64};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 2;
    // Made before the descriptors run out: making one touches no file.
    LogFile exhaustedLog((root + "/logs").c_str(), 1), laterLog((root + "/logs").c_str(), 1);
    std::vector<int> filled;
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
        filled.push_back(fd);
    printf("exhausted file %lu registry %lu services %lu log %d\n", static_cast<unsigned long>(tryFile()),
           static_cast<unsigned long>(tryRegistry()), static_cast<unsigned long>(tryServices()), tryLog(exhaustedLog));
    for (int fd : filled)
        close(fd);
    DWORD file = tryFile(), reg = tryRegistry(), svc = tryServices();
    int log = tryLog(laterLog);
    printf("afterwards file %lu registry %lu services %lu log %d\n", static_cast<unsigned long>(file),
           static_cast<unsigned long>(reg), static_cast<unsigned long>(svc), log);
    fflush(stdout);
    return file || reg || svc || log ? 1 : 0;
}
