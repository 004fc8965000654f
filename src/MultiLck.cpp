// Multi-locks over interlocks, polled and blocking.
#include "MultiLck.h"

#include <new>

namespace {

// The list copy of both bases: counts the entries before the first null,
// replaces the array when the length changed, copies the entries. A failed
// allocation leaves an empty list.
template <class Base, class T> void CopyList(Base **&array, int &count, int &prevCount, T *const *list)
{
    prevCount = count;
    int n = 0;
    while (list && list[n])
        ++n;
    count = n;
    if (count != prevCount && array) {
        delete[] array;
        array = nullptr;
    }
    if (!array)
        array = new (std::nothrow) Base *[count > 0 ? count : 1];
    if (!array) {
        count = 0;
        return;
    }
    for (int i = 0; i < count; ++i)
        array[i] = list[i];
}

// The class rebuild's array: kept when the length stayed, else replaced.
template <class E> bool ResizeSyncObjects(E *&array, int count, int prevCount)
{
    if (prevCount != count && array) {
        delete[] array;
        array = nullptr;
    }
    if (!array)
        array = new (std::nothrow) E[count > 0 ? count : 1];
    return array != nullptr;
}

// The list copy followed by the class rebuild: one entry of sync for each
// interlock, as syncOf gives it. A failed allocation leaves an empty list.
template <class Base, class T, class E, class SyncOf>
void CopyListAndSyncObjects(Base **&array, int &count, int &prevCount, T *const *list, E *&sync, SyncOf syncOf)
{
    CopyList(array, count, prevCount, list);
    if (!ResizeSyncObjects(sync, count, prevCount)) {
        count = 0;
        return;
    }
    for (int i = 0; i < count; ++i)
        sync[i] = syncOf(list[i]);
}

// The index of the first raised cell (set to 1) among count, or -1.
int FirstRaised(int *const *cells, int count)
{
    for (int i = 0; i < count; ++i)
        if (cells[i] && *cells[i] == 1)
            return i;
    return -1;
}

// The index of the object among count that satisfied the wait, or -1 on a
// timeout or failure.
int WaitIndex(HANDLE *objects, int count, bool waitAll, unsigned long timeout)
{
    DWORD result = WaitForMultipleObjects(static_cast<DWORD>(count), objects, waitAll, static_cast<DWORD>(timeout));
    return result < static_cast<DWORD>(count) ? static_cast<int>(result) : -1;
}

// The single-entry report of the child waits and the polled parent wait:
// found is cleared, then given the entry at the index that find returns,
// TRUE; FALSE without found or when find gives -1.
template <class Found, class Entry, class Find> BOOLTYPE ReportOne(Found **found, Entry *const *entries, Find find)
{
    if (!found)
        return FALSE;
    *found = nullptr;
    int i = find();
    if (i < 0)
        return FALSE;
    *found = entries[i];
    return TRUE;
}

} // namespace

// ChildMultiLock

ChildMultiLock::ChildMultiLock() : m_ppInterlocks(nullptr), m_nCount(0), m_nPrevCount(0) {}

ChildMultiLock::ChildMultiLock(ChildInterlock **const list) : m_ppInterlocks(nullptr), m_nCount(0), m_nPrevCount(0)
{
    InitSyncObjects(list);
}

ChildMultiLock::~ChildMultiLock()
{
    delete[] m_ppInterlocks;
}

BOOLTYPE ChildMultiLock::DetectRequest(ChildInterlock **, unsigned long const &)
{
    return FALSE;
}

void ChildMultiLock::InitSyncObjects(ChildInterlock **list)
{
    CopyList(m_ppInterlocks, m_nCount, m_nPrevCount, list);
}

// ParentMultiLock

ParentMultiLock::ParentMultiLock() : m_ppInterlocks(nullptr), m_nCount(0), m_nPrevCount(0) {}

ParentMultiLock::ParentMultiLock(ParentInterlock **const list)
    : m_ppInterlocks(nullptr), m_nCount(0), m_nPrevCount(0)
{
    InitSyncObjects(list);
}

ParentMultiLock::~ParentMultiLock()
{
    delete[] m_ppInterlocks;
}

BOOLTYPE ParentMultiLock::WaitForResponse(unsigned long const &, BOOLTYPE, ParentInterlock **)
{
    return FALSE;
}

int ParentMultiLock::GetInterlockCount() const
{
    return m_nCount;
}

void ParentMultiLock::InitSyncObjects(ParentInterlock **list)
{
    CopyList(m_ppInterlocks, m_nCount, m_nPrevCount, list);
}

// ChildMultiLockSepJob

ChildMultiLockSepJob::ChildMultiLockSepJob() : m_pSyncObjects(nullptr) {}

// The constructors with a list copy it twice, as the base and then as the
// class; the second pass finds the length unchanged and keeps the array.
ChildMultiLockSepJob::ChildMultiLockSepJob(ChildInterlockSepJob **const list) : m_pSyncObjects(nullptr)
{
    CopyList(m_ppInterlocks, m_nCount, m_nPrevCount, list);
    InitSyncObjectsSepJob(list);
}

ChildMultiLockSepJob::~ChildMultiLockSepJob()
{
    delete[] m_pSyncObjects;
}

void ChildMultiLockSepJob::InitSyncObjectsSepJob(ChildInterlockSepJob **list)
{
    CopyListAndSyncObjects(m_ppInterlocks, m_nCount, m_nPrevCount, list, m_pSyncObjects,
                           [](ChildInterlockSepJob *child) -> int * {
                               ParentInterlockSepJob *parent = child->m_pParent;
                               return parent ? parent->m_pRequestFlag : nullptr;
                           });
}

void ChildMultiLockSepJob::ReviseInterlocksSepJob(ChildInterlockSepJob **const list)
{
    InitSyncObjectsSepJob(list);
}

BOOLTYPE ChildMultiLockSepJob::DetectRequest(ChildInterlock **found, unsigned long const &)
{
    return ReportOne(found, m_ppInterlocks, [this] { return FirstRaised(m_pSyncObjects, m_nCount); });
}

// ChildMultiLockSepThread

ChildMultiLockSepThread::ChildMultiLockSepThread() : m_pSyncObjects(nullptr) {}

ChildMultiLockSepThread::ChildMultiLockSepThread(ChildInterlockSepThread **const list, BOOLTYPE deferSyncObjects)
    : m_pSyncObjects(nullptr)
{
    CopyList(m_ppInterlocks, m_nCount, m_nPrevCount, list);
    if (deferSyncObjects == FALSE)
        InitSyncObjectsSepThread(list);
}

ChildMultiLockSepThread::~ChildMultiLockSepThread()
{
    delete[] m_pSyncObjects;
}

void ChildMultiLockSepThread::InitSyncObjectsSepThread(ChildInterlockSepThread **list)
{
    CopyListAndSyncObjects(m_ppInterlocks, m_nCount, m_nPrevCount, list, m_pSyncObjects,
                           [](ChildInterlockSepThread *child) -> HANDLE {
                               ParentInterlockSepThread *parent = child->m_pParent;
                               return parent ? parent->m_hRequest : nullptr;
                           });
}

void ChildMultiLockSepThread::ReviseInterlocksSepThread(ChildInterlockSepThread **const list)
{
    InitSyncObjectsSepThread(list);
}

BOOLTYPE ChildMultiLockSepThread::DetectRequest(ChildInterlock **found, unsigned long const &timeout)
{
    return ReportOne(found, m_ppInterlocks, [&] {
        // A deferred array that no derived class built has nothing to wait on.
        return m_pSyncObjects && m_nCount != 0 ? WaitIndex(m_pSyncObjects, m_nCount, false, timeout) : -1;
    });
}

// ChildResp1MultiLockSepThread

ChildResp1MultiLockSepThread::ChildResp1MultiLockSepThread() : m_pResponseParent(nullptr), m_nTotalCount(0) {}

ChildResp1MultiLockSepThread::ChildResp1MultiLockSepThread(ChildInterlockSepThread **const list,
                                                           ParentInterlockSepThread *responseParent)
    : ChildMultiLockSepThread(list, TRUE), m_pResponseParent(responseParent), m_nTotalCount(0)
{
    InitSyncObjectsResp1SepThread(list);
}

ChildResp1MultiLockSepThread::~ChildResp1MultiLockSepThread() {}

void ChildResp1MultiLockSepThread::InitSyncObjectsResp1SepThread(ChildInterlockSepThread **list)
{
    CopyList(m_ppInterlocks, m_nCount, m_nPrevCount, list);
    m_nTotalCount = m_nCount + (m_pResponseParent ? 1 : 0);
    // Always a new array: the response entry may have moved even when the
    // list kept its length.
    delete[] m_pSyncObjects;
    m_pSyncObjects = new (std::nothrow) HANDLE[m_nTotalCount > 0 ? m_nTotalCount : 1];
    if (!m_pSyncObjects) {
        m_nCount = m_nTotalCount = 0;
        return;
    }
    for (int i = 0; i < m_nCount; ++i) {
        ParentInterlockSepThread *parent = list[i]->m_pParent;
        m_pSyncObjects[i] = parent ? parent->m_hRequest : nullptr;
    }
    if (m_pResponseParent)
        m_pSyncObjects[m_nCount] = m_pResponseParent->m_hResponse;
}

void ChildResp1MultiLockSepThread::ReviseInterlocksResp1SepThread(ChildInterlockSepThread **const list,
                                                                  ParentInterlockSepThread *responseParent)
{
    m_pResponseParent = responseParent;
    InitSyncObjectsResp1SepThread(list);
}

BOOLTYPE ChildResp1MultiLockSepThread::DetectRequest(ChildInterlock **found, unsigned long const &timeout)
{
    if (!found)
        return FALSE;
    *found = nullptr;
    // A revision through ReviseInterlocksSepThread that changed the length
    // left the array and m_nTotalCount apart; nothing safe to wait on then.
    if (!m_pSyncObjects || m_nTotalCount == 0 || m_nTotalCount != m_nCount + (m_pResponseParent ? 1 : 0))
        return FALSE;
    int i = WaitIndex(m_pSyncObjects, m_nTotalCount, false, timeout);
    if (i < 0)
        return FALSE;
    if (i < m_nCount)
        *found = m_ppInterlocks[i];
    return TRUE; // i == m_nCount: the response, with *found null
}

// ParentMultiLockSepJob

ParentMultiLockSepJob::ParentMultiLockSepJob() : m_pSyncObjects(nullptr) {}

ParentMultiLockSepJob::ParentMultiLockSepJob(ParentInterlockSepJob **const list) : m_pSyncObjects(nullptr)
{
    CopyList(m_ppInterlocks, m_nCount, m_nPrevCount, list);
    InitSyncObjectsSepJob(list);
}

ParentMultiLockSepJob::~ParentMultiLockSepJob()
{
    delete[] m_pSyncObjects;
}

void ParentMultiLockSepJob::InitSyncObjectsSepJob(ParentInterlockSepJob **list)
{
    CopyListAndSyncObjects(m_ppInterlocks, m_nCount, m_nPrevCount, list, m_pSyncObjects,
                           [](ParentInterlockSepJob *parent) { return parent->m_pResponseFlag; });
}

void ParentMultiLockSepJob::ReviseInterlocksSepJob(ParentInterlockSepJob **const list)
{
    InitSyncObjectsSepJob(list);
}

BOOLTYPE ParentMultiLockSepJob::WaitForResponse(unsigned long const &, BOOLTYPE waitAll, ParentInterlock **found)
{
    if (m_nCount == 0)
        return FALSE;
    if (waitAll == TRUE) {
        for (int i = 0; i < m_nCount; ++i)
            if (!m_pSyncObjects[i] || *m_pSyncObjects[i] != 1)
                return FALSE;
        return TRUE;
    }
    // Without a place to put the parent, nothing can be reported.
    return ReportOne(found, m_ppInterlocks, [this] { return FirstRaised(m_pSyncObjects, m_nCount); });
}

// ParentMultiLockSepThread

ParentMultiLockSepThread::ParentMultiLockSepThread() : m_pSyncObjects(nullptr) {}

ParentMultiLockSepThread::ParentMultiLockSepThread(ParentInterlockSepThread **const list) : m_pSyncObjects(nullptr)
{
    CopyList(m_ppInterlocks, m_nCount, m_nPrevCount, list);
    InitSyncObjectsSepThread(list);
}

ParentMultiLockSepThread::~ParentMultiLockSepThread()
{
    delete[] m_pSyncObjects;
}

void ParentMultiLockSepThread::InitSyncObjectsSepThread(ParentInterlockSepThread **list)
{
    CopyListAndSyncObjects(m_ppInterlocks, m_nCount, m_nPrevCount, list, m_pSyncObjects,
                           [](ParentInterlockSepThread *parent) { return parent->m_hResponse; });
}

void ParentMultiLockSepThread::ReviseInterlocksSepThread(ParentInterlockSepThread **const list)
{
    InitSyncObjectsSepThread(list);
}

BOOLTYPE ParentMultiLockSepThread::WaitForResponse(unsigned long const &timeout, BOOLTYPE waitAll,
                                                   ParentInterlock **found)
{
    if (m_nCount == 0)
        return FALSE;
    if (waitAll == FALSE && found)
        *found = nullptr;
    int i = WaitIndex(m_pSyncObjects, m_nCount, waitAll != FALSE, timeout);
    if (i < 0)
        return FALSE;
    if (waitAll == FALSE && found)
        *found = m_ppInterlocks[i];
    return TRUE;
}
