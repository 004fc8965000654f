// Critical sections: a recursive lock in the caller's CRITICAL_SECTION,
// with no allocation. LockCount is the futex word: 0 free, 1 held, 2 held
// with sleepers; OwningThread holds the owner's thread id.
#include "check.h"
#include "futex.h"

#include <windows.h>

#include <climits>

namespace {

std::atomic<uint32_t> *lockWord(LPCRITICAL_SECTION cs)
{
    static_assert(sizeof(LONG) == sizeof(std::atomic<uint32_t>), "lock word");
    return reinterpret_cast<std::atomic<uint32_t> *>(&cs->LockCount);
}

DWORD ownerOf(LPCRITICAL_SECTION cs)
{
    return static_cast<DWORD>(__atomic_load_n(reinterpret_cast<uintptr_t *>(&cs->OwningThread), __ATOMIC_RELAXED));
}

void setOwner(LPCRITICAL_SECTION cs, DWORD id)
{
    __atomic_store_n(reinterpret_cast<uintptr_t *>(&cs->OwningThread), static_cast<uintptr_t>(id), __ATOMIC_RELAXED);
}

} // namespace

extern "C" {

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION cs)
{
    cs->DebugInfo = nullptr;
    cs->LockCount = 0;
    cs->RecursionCount = 0;
    cs->OwningThread = nullptr;
    cs->LockSemaphore = nullptr;
    cs->SpinCount = 0;
}

BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION cs, DWORD dwSpinCount)
{
    InitializeCriticalSection(cs);
    cs->SpinCount = dwSpinCount;
    return TRUE;
}

void WINAPI EnterCriticalSection(LPCRITICAL_SECTION cs)
{
    DWORD self = GetCurrentThreadId();
    if (ownerOf(cs) == self) {
        ++cs->RecursionCount;
        return;
    }
    tsp::futexLock(lockWord(cs));
    setOwner(cs, self);
    cs->RecursionCount = 1;
}

BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION cs)
{
    DWORD self = GetCurrentThreadId();
    if (ownerOf(cs) == self) {
        ++cs->RecursionCount;
        return TRUE;
    }
    if (!tsp::futexTryLock(lockWord(cs)))
        return FALSE;
    setOwner(cs, self);
    cs->RecursionCount = 1;
    return TRUE;
}

// Leaving a section the caller does not hold is a programming error that
// Windows does not catch; here it is reported (a debug build aborts), and
// in a release build another thread's hold is left intact.
void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION cs)
{
    if (!TS_CHECK_CODE(ownerOf(cs) == GetCurrentThreadId() ? 0 : EPERM,
                       "LeaveCriticalSection (the caller is not the owner)"))
        return;
    if (--cs->RecursionCount > 0)
        return;
    setOwner(cs, 0);
    tsp::futexUnlock(lockWord(cs));
}

void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION cs)
{
    // Nothing is allocated; the section is only made unusable-looking.
    cs->LockCount = 0;
    cs->RecursionCount = 0;
    cs->OwningThread = nullptr;
}

} // extern "C"
