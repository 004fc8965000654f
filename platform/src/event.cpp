// Events: CreateEventA, SetEvent, ResetEvent, PulseEvent.
#include "threadobj.h"

#include <mutex>

namespace tsp {
namespace {

class EventObject : public Waitable {
public:
    EventObject(bool manual, bool initial) : Waitable(ObjectKind::Event), manual_(manual), signaled_(initial) {}

    bool isSignaledFor(const ThreadObject *) const override { return signaled_; }
    DWORD acquire(ThreadObject *) override
    {
        if (!manual_)
            signaled_ = false;
        return WAIT_OBJECT_0;
    }

    void set() { signaled_ = true; }
    void reset() { signaled_ = false; }

private:
    const bool manual_;
    bool signaled_; // under lock
};

} // namespace
} // namespace tsp

using namespace tsp;

extern "C" {

HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES, BOOL bManualReset, BOOL bInitialState, LPCSTR lpName)
{
    if (refuseObjectName(lpName))
        return nullptr;
    HANDLE h = insertHandle(new EventObject(bManualReset != FALSE, bInitialState != FALSE), EVENT_ALL_ACCESS);
    if (h)
        SetLastError(ERROR_SUCCESS);
    return h;
}

BOOL WINAPI SetEvent(HANDLE hEvent)
{
    HandleRef ref;
    EventObject *e = lookupCachedAs<EventObject>(hEvent, ObjectKind::Event, ref);
    if (!e)
        return FALSE;
    e->signal([e] { e->set(); });
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE hEvent)
{
    HandleRef ref;
    EventObject *e = lookupCachedAs<EventObject>(hEvent, ObjectKind::Event, ref);
    if (!e)
        return FALSE;
    std::lock_guard<ObjectLock> guard(e->lock);
    e->reset();
    return TRUE;
}

BOOL WINAPI PulseEvent(HANDLE hEvent)
{
    HandleRef ref;
    EventObject *e = lookupCachedAs<EventObject>(hEvent, ObjectKind::Event, ref);
    if (!e)
        return FALSE;
    // Set, hand to the waits queued now, reset: all under the event's lock,
    // so a wait that registers a moment later finds the event unsignalled.
    e->signal([e] { e->set(); }, [e] { e->reset(); });
    return TRUE;
}

} // extern "C"
