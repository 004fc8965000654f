// Helpers shared by the service client calls and the dispatcher.
#pragma once

#include <string>

namespace tsp::svc {

// A connected socket to the machine root's daemon, or -1 with *error set:
// ERROR_ACCESS_DENIED when the socket is not ours to use, else
// RPC_S_SERVER_UNAVAILABLE. With startIfNeeded, a daemon that does not
// answer is started first (one starter at a time, under a lock file).
int connectManager(bool startIfNeeded, unsigned long *error);

} // namespace tsp::svc
