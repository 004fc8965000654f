// The monotonic clock.
#include "monotonic.h"

#include "check.h"

namespace tsp {

timespec monotonicNow()
{
    timespec ts{};
    TS_CHECK(clock_gettime(CLOCK_MONOTONIC, &ts) == 0, "clock_gettime(CLOCK_MONOTONIC)");
    return ts;
}

uint64_t monotonicNs()
{
    timespec ts = monotonicNow();
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

int64_t monotonicMs() { return static_cast<int64_t>(monotonicNs() / 1000000ull); }

} // namespace tsp
