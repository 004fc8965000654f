// What a process holds at a moment, as the system counts it: open file
// descriptors (/proc/<pid>/fd), threads and resident memory
// (/proc/<pid>/status), and the platform's handles (GetProcessHandleCount).
#pragma once

#include <windows.h>

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tstest {

struct ResourceLevels {
    long fds = -1, threads = -1, rssKb = -1, handles = -1;
};

inline long StatusField(const std::string &status, const char *field)
{
    size_t at = status.find(std::string("\n") + field + ":");
    return at == std::string::npos ? -1 : atol(status.c_str() + at + strlen(field) + 2);
}

// The levels of process pid (0: this one); handles only for this one.
inline ResourceLevels LevelsOf(pid_t pid = 0)
{
    std::string proc = pid ? "/proc/" + std::to_string(pid) : std::string("/proc/self");
    ResourceLevels l;
    if (DIR *d = opendir((proc + "/fd").c_str())) {
        l.fds = 0;
        while (dirent *e = readdir(d))
            l.fds += e->d_name[0] != '.';
        closedir(d);
        if (!pid)
            --l.fds; // the descriptor that reads the folder
    }
    if (FILE *f = fopen((proc + "/status").c_str(), "re")) {
        std::string status = "\n";
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0)
            status.append(buf, n);
        fclose(f);
        l.threads = StatusField(status, "Threads");
        l.rssKb = StatusField(status, "VmRSS");
    }
    DWORD handles = 0;
    if (!pid && GetProcessHandleCount(GetCurrentProcess(), &handles))
        l.handles = static_cast<long>(handles);
    return l;
}

inline std::string Describe(const ResourceLevels &l)
{
    return "fds " + std::to_string(l.fds) + ", threads " + std::to_string(l.threads) + ", VmRSS " +
           std::to_string(l.rssKb) + " kB, handles " + std::to_string(l.handles);
}

} // namespace tstest
