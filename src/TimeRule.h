// The time limit rule of Cond::timedwait and ThreadBase::delay.
#pragma once

#include "TSDefs.h"

namespace tsutil {

// seconds * 1000 + (nanoseconds mod 1e9) / 1e6 milliseconds, in unsigned
// 32-bit arithmetic: below a millisecond is lost, and nanoseconds of a
// whole second or more do not carry into the seconds.
inline DWORD MillisecondsOf(long seconds, unsigned long nanoseconds)
{
    return static_cast<DWORD>(seconds) * 1000u + static_cast<DWORD>((nanoseconds % 1000000000ul) / 1000000ul);
}

} // namespace tsutil
