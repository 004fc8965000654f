// The machine root: the folder that holds all persistent state of the
// emulated machine.
#pragma once

#include <string>

namespace tsp {

// $TSUTIL_ROOT, or $HOME/.tsutil, as a canonical absolute path; created
// with mode 0700 when missing. Read afresh at each call, so a test may
// name a new root; the reference stays valid until the calling thread
// calls again. Empty when the folder cannot be made.
const std::string &machineRoot();

} // namespace tsp
