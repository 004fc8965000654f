// The running service processes on disk.
#include "records.h"

#include "bootid.h"
#include "log.h"
#include "svcwire.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tsscm {

std::string processStartTime(pid_t pid)
{
    std::string path = "/proc/" + std::to_string(pid) + "/stat";
    FILE *f = fopen(path.c_str(), "re");
    if (!f)
        return std::string();
    char buf[1024];
    size_t n = fread(buf, 1, sizeof buf - 1, f);
    fclose(f);
    buf[n] = 0;
    // The command's name may hold anything: the fields start after its ')'.
    const char *p = strrchr(buf, ')');
    if (!p)
        return std::string();
    // state is field 3; starttime field 22.
    int field = 2;
    for (++p; *p && field < 21; ++p)
        if (*p == ' ')
            ++field;
    std::string start;
    while (*p && *p != ' ')
        start += *p++;
    // A process that has ended but not been reaped is no service that runs.
    const char *state = strrchr(buf, ')') + 2;
    return *state == 'Z' || *state == 'X' ? std::string() : start;
}

ProcessRecords::ProcessRecords(const std::string &runFolder) : folder_(runFolder + "/services")
{
    if (mkdir(folder_.c_str(), 0700) != 0 && errno != EEXIST)
        logLine("cannot make %s: %s", folder_.c_str(), strerror(errno));
}

// The folded name names the file; a name is never a path (it holds no "/"
// and is not "." or "..": the manager refuses such names).
std::string ProcessRecords::fileOf(const std::string &serviceName) const
{
    std::string name = tsp::svc::foldServiceName(serviceName);
    for (char &c : name)
        if (c == '/')
            c = '_';
    return folder_ + "/" + name + ".pid";
}

bool ProcessRecords::remember(const std::string &serviceName, pid_t pid)
{
    std::string text = tsp::bootId() + " " + std::to_string(pid) + " " + processStartTime(pid) + "\n";
    std::string file = fileOf(serviceName), part = file + ".new";
    int fd = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    bool ok = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (fd >= 0 && close(fd) != 0)
        ok = false;
    if (ok && rename(part.c_str(), file.c_str()) != 0)
        ok = false;
    if (!ok) {
        logLine("cannot keep the record %s: %s", file.c_str(), strerror(errno));
        unlink(part.c_str());
    }
    return ok;
}

void ProcessRecords::forget(const std::string &serviceName)
{
    std::string file = fileOf(serviceName);
    if (unlink(file.c_str()) != 0 && errno != ENOENT)
        logLine("cannot remove the record %s: %s", file.c_str(), strerror(errno));
}

std::vector<ProcessRecords::Running> ProcessRecords::stillRunning()
{
    std::vector<Running> out;
    DIR *d = opendir(folder_.c_str());
    if (!d)
        return out;
    const std::string boot = tsp::bootId();
    while (dirent *e = readdir(d)) {
        std::string entry = e->d_name;
        if (entry.size() < 5 || entry.compare(entry.size() - 4, 4, ".pid") != 0)
            continue;
        std::string file = folder_ + "/" + entry;
        FILE *f = fopen(file.c_str(), "re");
        char bootText[64] = "", startText[32] = "";
        long pid = 0;
        bool read = f && fscanf(f, "%63s %ld %31s", bootText, &pid, startText) == 3;
        if (f)
            fclose(f);
        if (read && pid > 0 && boot == bootText && processStartTime(static_cast<pid_t>(pid)) == startText) {
            out.push_back({entry.substr(0, entry.size() - 4), static_cast<pid_t>(pid)});
        } else if (unlink(file.c_str()) != 0) {
            logLine("cannot remove the record %s: %s", file.c_str(), strerror(errno));
        }
    }
    closedir(d);
    return out;
}

} // namespace tsscm
