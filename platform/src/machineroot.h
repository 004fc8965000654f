// The machine root: the folder below which all persistent state of the
// emulated machine lives ($TSUTIL_ROOT, default $HOME/.tsutil).
#pragma once

#include <string>

namespace tsp {

// The root's path as the environment names it now, without a trailing
// slash; the folder is created with mode 0700 when it does not exist yet
// (its parents too, with the same mode). Empty, with errno set, when it
// cannot be created or is not a folder.
std::string machineRoot();

// The same path, with nothing checked or created.
std::string machineRootPath();

} // namespace tsp
