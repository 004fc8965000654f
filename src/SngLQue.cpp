// SngLinkQue and Iterator.
#include "SngLQue.h"

#include <iostream>

SngLinkQue::SngLinkQue() : CObList(10), m_bClosed(0) {}

SngLinkQue::~SngLinkQue()
{
    // The members go in reverse order: m_dataCond, then m_queueLock, then
    // the list's nodes.
}

int SngLinkQue::lock() { return m_queueLock.lock(); }

int SngLinkQue::unlock() { return m_queueLock.unlock(); }

int SngLinkQue::Broadcast()
{
    lock();
    int result = m_dataCond.broadcast();
    unlock();
    return result;
}

CObject *SngLinkQue::GetWait(unsigned int &remaining, int noWait)
{
    remaining = 0;
    if (noWait) {
        lock();
        CObject *object = nullptr;
        if (GetCount() > 0) {
            remaining = static_cast<unsigned int>(GetCount() - 1);
            object = RemoveHead();
        }
        unlock();
        return object;
    }
    lock();
    for (;;) {
        // The test of the count and the removal are one hold of the lock.
        int count = GetCount();
        if (count > 0) {
            remaining = static_cast<unsigned int>(count - 1);
            CObject *object = RemoveHead();
            unlock();
            return object;
        }
        if (m_bClosed) {
            remaining = static_cast<unsigned int>(count - 1); // 0xFFFFFFFF: closed and empty
            unlock();
            return nullptr;
        }
        std::cout << "Will Wait on DATA" << std::endl;
        // The wait registers while the lock still guards the test above,
        // so a broadcast that comes after it cannot be missed; the lock is
        // not held during the wait, and is held again when it returns.
        m_dataCond.wait(m_queueLock);
    }
}

CObject *SngLinkQue::GetTimedWait(long seconds, unsigned long nanoseconds, unsigned long &waitResult)
{
    waitResult = 0;
    lock();
    if (GetCount() < 1) {
        if (!m_bClosed)
            waitResult = static_cast<unsigned long>(m_dataCond.timedwait(m_queueLock, seconds, nanoseconds));
        if (GetCount() < 1) {
            unlock();
            return nullptr;
        }
    }
    CObject *object = RemoveHead();
    unlock();
    return object;
}

void SngLinkQue::Flush()
{
    lock();
    Iterator walk(*this);
    while (CObject *object = walk())
        delete object;
    RemoveAll();
    unlock();
}

POSITION SngLinkQue::InsertBroadcast(CObject *object)
{
    lock();
    POSITION position = nullptr;
    bool failed = false;
    try {
        position = AddTail(object);
        m_dataCond.broadcast();
    } catch (CException *e) {
        e->Delete();
        failed = true;
    } catch (...) {
        failed = true;
    }
    if (failed) {
        std::cout << "Exception caught: Unable to insert object." << std::endl;
        position = nullptr;
    }
    unlock();
    return position;
}

int SngLinkQue::CloseBroadcast()
{
    lock();
    m_bClosed = 1;
    int result = m_dataCond.broadcast();
    unlock();
    return result;
}

Iterator::Iterator(CObList &list) : m_pList(&list), m_pCursor(list.GetHeadPosition()) {}

Iterator::~Iterator() {}

CObject *Iterator::operator()()
{
    if (m_pList->GetCount() < 1 || !m_pCursor)
        return nullptr;
    return m_pList->GetNext(m_pCursor);
}

CObject *Iterator::operator++() { return (*this)(); }

CObject *Iterator::operator+=(unsigned int n)
{
    int count = m_pList->GetCount();
    if (count < 1 || n < 1 || n > static_cast<unsigned int>(count))
        return nullptr;
    return m_pList->GetAt(m_pList->FindIndex(static_cast<int>(n - 1)));
}

CObject *Iterator::container() { return m_pList; }
