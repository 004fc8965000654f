// Mutexes: the owned-mutex lists of threads, abandonment at a thread's
// end, CreateMutexA and ReleaseMutex.
#include "mutexobj.h"

#include <mutex>
#include <vector>

namespace tsp {

void linkOwned(OwnedMutexLink *link, ThreadObject *thread)
{
    thread->addRef();
    futexLock(&thread->ownedLock);
    link->thread = thread;
    link->prev = nullptr;
    link->next = thread->ownedHead;
    if (link->next)
        link->next->prev = link;
    thread->ownedHead = link;
    futexUnlock(&thread->ownedLock);
}

namespace {

// Under the list's lock: takes link out of it.
void unlinkLocked(OwnedMutexLink *link)
{
    ThreadObject *thread = link->thread;
    if (link->prev)
        link->prev->next = link->next;
    else
        thread->ownedHead = link->next;
    if (link->next)
        link->next->prev = link->prev;
    link->thread = nullptr;
    link->prev = link->next = nullptr;
}

} // namespace

void unlinkOwned(OwnedMutexLink *link)
{
    ThreadObject *thread = link->thread;
    if (!thread)
        return;
    futexLock(&thread->ownedLock);
    unlinkLocked(link);
    futexUnlock(&thread->ownedLock);
    thread->release();
}

void abandonMutexesOf(ThreadObject *thread)
{
    std::vector<MutexObject *> held;
    futexLock(&thread->ownedLock);
    for (OwnedMutexLink *link = thread->ownedHead; link;) {
        OwnedMutexLink *next = link->next;
        MutexObject *m = static_cast<MutexObject *>(link);
        // A mutex whose last handle is going away is not abandoned to
        // anybody; its destructor takes it out of the list.
        if (m->tryAddRef()) {
            unlinkLocked(link);
            held.push_back(m);
        }
        link = next;
    }
    futexUnlock(&thread->ownedLock);
    for (MutexObject *m : held) {
        thread->release(); // the list's reference; the thread keeps its own
        m->signal([m, thread] { m->abandonIfOwnedBy(thread); });
        m->release();
    }
}

} // namespace tsp

using namespace tsp;

extern "C" {

HANDLE WINAPI CreateMutexA(LPSECURITY_ATTRIBUTES, BOOL bInitialOwner, LPCSTR lpName)
{
    if (refuseObjectName(lpName))
        return nullptr;
    MutexObject *m = new MutexObject;
    if (bInitialOwner) {
        std::lock_guard<ObjectLock> guard(m->lock);
        m->acquire(currentThreadObject());
    }
    return insertNewObject(m, MUTEX_ALL_ACCESS);
}

BOOL WINAPI ReleaseMutex(HANDLE hMutex)
{
    HandleRef ref;
    MutexObject *m = lookupCachedAs<MutexObject>(hMutex, ObjectKind::Mutex, ref);
    if (!m)
        return FALSE;
    ThreadObject *self = currentThreadObject();
    if (m->tryFastRelease(self))
        return TRUE;
    bool released = false;
    m->signal([m, self, &released] { released = m->releaseBy(self); });
    if (!released) {
        SetLastError(ERROR_NOT_OWNER);
        return FALSE;
    }
    return TRUE;
}

} // extern "C"
