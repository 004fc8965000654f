// The service manager daemon of a machine root, as a process.
#pragma once

#include "ScratchDir.h"

#include <sys/types.h>

#include <cstdlib>
#include <string>

namespace tstest {

// Its process id, from the newest line of its log that says it listens;
// 0 when none does.
inline pid_t ManagerProcessOf(const std::string &root)
{
    std::string log = ReadWholeFile(root + "/run/tsscm.log");
    size_t at = log.rfind(": listening on");
    size_t open = at == std::string::npos ? std::string::npos : log.rfind("tsscm[", at);
    return open == std::string::npos ? 0 : static_cast<pid_t>(atoi(log.c_str() + open + 6));
}

} // namespace tstest
