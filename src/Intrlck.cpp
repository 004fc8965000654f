// The interlock bases, and the interlock pair across threads.
#include "Intrlck.h"

#include <new>

namespace {

BOOLTYPE AsBool(BOOL platformResult)
{
    return platformResult ? TRUE : FALSE;
}

} // namespace

ChildInterlock::ChildInterlock() {}
ChildInterlock::~ChildInterlock() {}
BOOLTYPE ChildInterlock::DetectRequest(unsigned long const &) { return FALSE; }
BOOLTYPE ChildInterlock::NotifyStateReached() { return FALSE; }

ParentInterlock::ParentInterlock(ParentInterlock *other) : m_bSharedRequest(other ? 1 : 0) {}
ParentInterlock::ParentInterlock(ChildInterlock *) : m_bSharedRequest(0) {}
ParentInterlock::~ParentInterlock() {}
BOOLTYPE ParentInterlock::MakeRequest() { return FALSE; }
BOOLTYPE ParentInterlock::WaitForResponse(unsigned long const &) { return FALSE; }
BOOLTYPE ParentInterlock::ResetInterlock() { return FALSE; }

ParentInterlockSepThread::ParentInterlockSepThread(BOOLTYPE manualReset)
    : ParentInterlock(static_cast<ParentInterlock *>(nullptr)), m_bManualReset(manualReset)
{
    InitSyncObjectsSepThread(nullptr);
}

ParentInterlockSepThread::ParentInterlockSepThread(ParentInterlockSepThread *other, BOOLTYPE manualReset)
    : ParentInterlock(other), m_bManualReset(manualReset)
{
    InitSyncObjectsSepThread(other);
}

ParentInterlockSepThread::ParentInterlockSepThread(ChildInterlockSepThread *child, BOOLTYPE manualReset)
    : ParentInterlockSepThread(child ? child->m_pParent : nullptr, manualReset)
{
}

ParentInterlockSepThread::~ParentInterlockSepThread()
{
    if (!m_bSharedRequest && m_hRequest)
        CloseHandle(m_hRequest);
    if (m_hResponse)
        CloseHandle(m_hResponse);
    delete m_pChild;
}

void ParentInterlockSepThread::InitSyncObjectsSepThread(ParentInterlockSepThread *other)
{
    m_hRequest = m_bSharedRequest && other ? other->m_hRequest
                                           : CreateEventA(nullptr, m_bManualReset != FALSE, 0, nullptr);
    m_hResponse = CreateEventA(nullptr, 1, 0, nullptr);
    m_pChild = nullptr;
}

BOOLTYPE ParentInterlockSepThread::MakeRequest()
{
    return AsBool(SetEvent(m_hRequest));
}

BOOLTYPE ParentInterlockSepThread::WaitForResponse(unsigned long const &timeout)
{
    return WaitForResponseComplete(timeout, FALSE);
}

BOOLTYPE ParentInterlockSepThread::ResetInterlock()
{
    BOOL request = ResetEvent(m_hRequest);
    BOOL response = ResetEvent(m_hResponse);
    return request && response ? TRUE : FALSE;
}

BOOLTYPE ParentInterlockSepThread::WaitForResponseComplete(unsigned long const &timeout, BOOLTYPE complete)
{
    if (WaitForSingleObject(m_hResponse, static_cast<DWORD>(timeout)) == WAIT_OBJECT_0)
        return TRUE;
    if (m_bManualReset != FALSE)
        return FALSE;
    // An auto-reset request still set has not been taken by any child: this
    // zero wait takes it back. Otherwise a child is at work on it.
    if (WaitForSingleObject(m_hRequest, 0) == WAIT_OBJECT_0)
        return FALSE;
    if (complete != TRUE)
        return FALSE;
    return WaitForSingleObject(m_hResponse, INFINITE) == WAIT_OBJECT_0 ? TRUE : FALSE;
}

ChildInterlockSepThread *ParentInterlockSepThread::SpawnChildInterlockSepThread()
{
    if (!m_pChild)
        m_pChild = new (std::nothrow) ChildInterlockSepThread(this);
    return m_pChild;
}

ChildInterlockSepThread::ChildInterlockSepThread() : m_pParent(nullptr) {}
ChildInterlockSepThread::ChildInterlockSepThread(ParentInterlockSepThread *parent) : m_pParent(parent) {}
ChildInterlockSepThread::~ChildInterlockSepThread() {}

BOOLTYPE ChildInterlockSepThread::DetectRequest(unsigned long const &timeout)
{
    if (!m_pParent)
        return FALSE;
    return WaitForSingleObject(m_pParent->m_hRequest, static_cast<DWORD>(timeout)) == WAIT_OBJECT_0 ? TRUE
                                                                                                     : FALSE;
}

BOOLTYPE ChildInterlockSepThread::NotifyStateReached()
{
    if (!m_pParent)
        return FALSE;
    return AsBool(SetEvent(m_pParent->m_hResponse));
}
