// The waits: WaitForSingleObject, WaitForMultipleObjects, Sleep.
#include "mutexobj.h"

#include <sched.h>

namespace tsp {
namespace {

Waitable *waitableOf(HANDLE h, HandleRef &ref)
{
    if (!lookupHandle(h, ref))
        return nullptr;
    return ref.get()->asWaitable();
}

} // namespace
} // namespace tsp

using namespace tsp;

extern "C" {

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds)
{
    HandleRef ref;
    Waitable *w = lookupHandleCached(hHandle, ref) ? ref.get()->asWaitable() : nullptr;
    if (!w) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    // Most waits find the object signalled: take it without the set-up of
    // a wait that may block.
    ThreadObject *self = currentThreadObject();
    if (w->kind() == ObjectKind::Mutex && static_cast<MutexObject *>(w)->tryFastAcquire(self))
        return WAIT_OBJECT_0;
    return waitForObject(w, dwMilliseconds);
}

DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE *lpHandles, BOOL bWaitAll, DWORD dwMilliseconds)
{
    if (nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS || !lpHandles) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    HandleRef refs[MAXIMUM_WAIT_OBJECTS];
    Waitable *objects[MAXIMUM_WAIT_OBJECTS];
    for (DWORD i = 0; i < nCount; ++i) {
        objects[i] = waitableOf(lpHandles[i], refs[i]);
        if (!objects[i]) {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
    }
    return waitForObjects(nCount, objects, bWaitAll != FALSE, dwMilliseconds);
}

void WINAPI Sleep(DWORD dwMilliseconds)
{
    if (dwMilliseconds == 0) {
        sched_yield();
        return;
    }
    // An unsignalled futex word that nobody wakes: the sleep ends at the
    // deadline only, whatever signals interrupt it.
    std::atomic<uint32_t> never{0};
    Deadline deadline = Deadline::after(dwMilliseconds);
    while (futexWait(&never, 0, deadline) && !deadline.passed()) {
    }
}

BOOL WINAPI SwitchToThread(void) { return sched_yield() == 0; }

} // extern "C"