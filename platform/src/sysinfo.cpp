// System information and clocks.
#include <windows.h>

#include "monotonic.h"

#include <climits>
#include <ctime>

#include <sched.h>
#include <unistd.h>

namespace {

ULONGLONG monotonicNanoseconds() { return tsp::monotonicNs(); }

} // namespace

extern "C" {

void WINAPI GetSystemInfo(LPSYSTEM_INFO info)
{
    *info = SYSTEM_INFO{};
#if defined(__x86_64__)
    info->u.s.wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    info->dwProcessorType = PROCESSOR_AMD_X8664;
#elif defined(__aarch64__)
    info->u.s.wProcessorArchitecture = PROCESSOR_ARCHITECTURE_ARM64;
#else
    info->u.s.wProcessorArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
    info->dwProcessorType = PROCESSOR_INTEL_PENTIUM;
#endif
    info->dwPageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    info->lpMinimumApplicationAddress = reinterpret_cast<LPVOID>(0x10000);
    info->lpMaximumApplicationAddress =
        reinterpret_cast<LPVOID>(sizeof(void *) == 8 ? static_cast<uintptr_t>(0x7FFFFFFEFFFFull) : 0x7FFEFFFFu);
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    unsigned bits = sizeof(DWORD_PTR) * CHAR_BIT;
    if (n <= 0)
        n = 1;
    if (static_cast<unsigned long>(n) > bits)
        n = bits;
    info->dwNumberOfProcessors = static_cast<DWORD>(n);
    info->dwActiveProcessorMask =
        static_cast<unsigned long>(n) == bits ? ~static_cast<DWORD_PTR>(0) : (static_cast<DWORD_PTR>(1) << n) - 1;
    info->dwAllocationGranularity = 65536;
    info->wProcessorLevel = 6;
    info->wProcessorRevision = 0;
}

DWORD WINAPI GetTickCount(void) { return static_cast<DWORD>(monotonicNanoseconds() / 1000000ull); }
ULONGLONG WINAPI GetTickCount64(void) { return monotonicNanoseconds() / 1000000ull; }

BOOL WINAPI QueryPerformanceCounter(LARGE_INTEGER *counter)
{
    counter->QuadPart = static_cast<LONGLONG>(monotonicNanoseconds());
    return TRUE;
}

BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER *frequency)
{
    frequency->QuadPart = 1000000000LL;
    return TRUE;
}

} // extern "C"
