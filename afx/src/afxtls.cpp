// Per-thread objects: CNoTrackObject and CThreadLocalObject.
#include <afx.h>
#include <afxstat_.h>

#include "threadend.h"

#include <assert.h>

#include <atomic>
#include <new>
#include <vector>

namespace {

std::atomic<DWORD> lastSlot{0};

// The calling thread's objects by slot, and whether the thread has ended.
// Both are trivially destroyed, so they stay readable while the thread
// ends.
thread_local std::vector<CNoTrackObject *> *tlsObjects = nullptr;
thread_local bool tlsEnded = false;

// Deletes the thread's objects when the thread ends, newest first. A
// destructor that asks for an object of the thread again makes one that
// this loop deletes as well.
void DeleteThreadObjects()
{
    std::vector<CNoTrackObject *> *objects = tlsObjects;
    while (objects) {
        size_t i = objects->size();
        while (i > 0 && !(*objects)[i - 1])
            --i;
        if (i == 0)
            break;
        CNoTrackObject *object = (*objects)[i - 1];
        (*objects)[i - 1] = nullptr;
        delete object;
    }
    delete objects;
    tlsObjects = nullptr;
    tlsEnded = true;
}

DWORD SlotOf(DWORD *slotCell)
{
    DWORD slot = __atomic_load_n(slotCell, __ATOMIC_ACQUIRE);
    if (slot)
        return slot;
    DWORD fresh = lastSlot.fetch_add(1, std::memory_order_relaxed) + 1;
    // A lost race leaves a slot number unused, which costs nothing.
    if (__atomic_compare_exchange_n(slotCell, &slot, fresh, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE))
        return fresh;
    return slot;
}

} // namespace

void *CNoTrackObject::operator new(size_t nSize)
{
    void *p = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, nSize);
    if (!p)
        AfxThrowMemoryException();
    return p;
}

void CNoTrackObject::operator delete(void *p)
{
    if (!p)
        return;
    [[maybe_unused]] HGLOBAL left = GlobalFree(p);
    assert(!left && "a per-thread object was not the heap's");
}

CNoTrackObject *CThreadLocalObject::GetData(CNoTrackObject *(*pfnCreateObject)())
{
    DWORD slot = SlotOf(&m_nSlot);
    if (!tlsObjects) {
        tlsObjects = new (std::nothrow) std::vector<CNoTrackObject *>;
        if (!tlsObjects)
            AfxThrowMemoryException();
        // A thread that asks again from a later part of its own end gets a
        // table that nothing deletes any more.
        if (!tlsEnded)
            afx::CallAtThreadEnd(DeleteThreadObjects);
    }
    std::vector<CNoTrackObject *> &objects = *tlsObjects;
    if (slot < objects.size() && objects[slot])
        return objects[slot];
    if (slot >= objects.size()) {
        try {
            objects.resize(slot + 1, nullptr);
        } catch (const std::bad_alloc &) {
            AfxThrowMemoryException();
        }
    }
    CNoTrackObject *object = pfnCreateObject();
    objects[slot] = object;
    return object;
}

CNoTrackObject *CThreadLocalObject::GetDataNA()
{
    DWORD slot = __atomic_load_n(&m_nSlot, __ATOMIC_ACQUIRE);
    std::vector<CNoTrackObject *> *objects = tlsObjects;
    if (!slot || !objects || slot >= objects->size())
        return nullptr;
    return (*objects)[slot];
}
