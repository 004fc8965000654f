// The machine root: the folder below which all persistent state of the
// emulated machine lives ($TSUTIL_ROOT, default $HOME/.tsutil).
#pragma once

#include <string>

namespace tsp {

// The root as a canonical absolute path, created with mode 0700 (its
// parents too) when missing. Read afresh at each call, so a test may name
// a new root; the reference stays valid until the calling thread calls
// again. Empty, with errno set, when the folder cannot be made.
const std::string &machineRoot();

// The root as the environment names it now, without a trailing slash;
// nothing is checked or created.
std::string machineRootPath();

} // namespace tsp
