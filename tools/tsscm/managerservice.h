// What the manager's units share: a service's run-time entry and the
// clock of the waits.
#pragma once

#include "manager.h"

#include <chrono>

namespace tsscm {

constexpr DWORD kStartWaitHint = 2000;

inline std::chrono::steady_clock::time_point after(DWORD ms)
{
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
}

struct Manager::Service {
    uint64_t id = 0;
    std::string name;
    SERVICE_STATUS status{};
    pid_t pid = 0;           // the running process, 0 for none
    bool launching = false;  // started, its dispatcher not yet connected
    DWORD launchError = 0;   // why the launch ended, when it failed
    std::vector<std::string> args;
    std::shared_ptr<ControlLink> link; // the dispatcher's connection
    bool deleteMark = false;
    bool controlBusy = false;
    uint64_t statusSeq = 0;  // the latest report applied, in the process's count
    uint32_t controlSeq = 0;
    int handles = 0;         // open handles of all clients

    bool running() const { return pid != 0 || status.dwCurrentState != SERVICE_STOPPED; }
};

} // namespace tsscm
