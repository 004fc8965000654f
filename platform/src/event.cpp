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

// Looks up hEvent and runs op on it; FALSE for a handle of no event.
template <class Op>
BOOL onEvent(HANDLE hEvent, Op op)
{
    HandleRef ref;
    EventObject *e = lookupCachedAs<EventObject>(hEvent, ObjectKind::Event, ref);
    if (!e)
        return FALSE;
    op(e);
    return TRUE;
}

} // namespace
} // namespace tsp

using namespace tsp;

extern "C" {

HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES, BOOL bManualReset, BOOL bInitialState, LPCSTR lpName)
{
    if (refuseObjectName(lpName))
        return nullptr;
    return insertNewObject(new EventObject(bManualReset != FALSE, bInitialState != FALSE), EVENT_ALL_ACCESS);
}

BOOL WINAPI SetEvent(HANDLE hEvent)
{
    return onEvent(hEvent, [](EventObject *e) { e->signal([e] { e->set(); }); });
}

BOOL WINAPI ResetEvent(HANDLE hEvent)
{
    return onEvent(hEvent, [](EventObject *e) {
        std::lock_guard<ObjectLock> guard(e->lock);
        e->reset();
    });
}

BOOL WINAPI PulseEvent(HANDLE hEvent)
{
    // Set, hand to the waits queued now, reset: all under the event's lock,
    // so a wait that registers a moment later finds the event unsignalled.
    return onEvent(hEvent, [](EventObject *e) { e->signal([e] { e->set(); }, [e] { e->reset(); }); });
}

} // extern "C"
