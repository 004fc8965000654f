// The identity of the running boot of the system.
#pragma once

#include <string>

namespace tsp {

// The kernel's boot id (a UUID that changes at each boot), without the
// line's end; empty when the system does not give one.
std::string bootId();

} // namespace tsp
