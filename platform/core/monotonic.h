// The monotonic clock (CLOCK_MONOTONIC) that every timed wait of the layer
// and the service manager measures by; never the wall clock.
#pragma once

#include <stdint.h>
#include <time.h>

namespace tsp {

timespec monotonicNow();
uint64_t monotonicNs();
int64_t monotonicMs();

} // namespace tsp
