// The service processes of a machine root, kept on disk while they run
// ($TSUTIL_ROOT/run/services/<name>), so that a daemon that starts after
// another one died finds the services still running and takes them over
// instead of starting them a second time. A record names the boot, the
// process id and the process's start time, so a process id used again by
// another program is never taken for the service.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tsscm {

class ProcessRecords {
public:
    // Records below runFolder/services (made with mode 0700 when missing).
    explicit ProcessRecords(const std::string &runFolder);

    // The service's process runs now; false (logged) when it cannot be kept.
    bool remember(const std::string &serviceName, pid_t pid);
    // The service's process ended.
    void forget(const std::string &serviceName);

    struct Running {
        std::string serviceName;
        pid_t pid;
    };
    // The recorded processes that still run; the records of the others go.
    std::vector<Running> stillRunning();

private:
    std::string fileOf(const std::string &serviceName) const;
    std::string folder_;
};

// The start time of a process (in clock ticks since boot, as /proc gives
// it); empty when no such process runs.
std::string processStartTime(pid_t pid);

} // namespace tsscm
