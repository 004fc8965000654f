// The interlock pair within one job loop.
#include "IntrlJob.h"

#include <new>

ParentInterlockSepJob::ParentInterlockSepJob(ParentInterlockSepJob *other) : ParentInterlock(other)
{
    InitSyncObjectsSepJob(other);
}

ParentInterlockSepJob::ParentInterlockSepJob(ChildInterlockSepJob *child)
    : ParentInterlockSepJob(child ? child->m_pParent : nullptr)
{
}

ParentInterlockSepJob::~ParentInterlockSepJob()
{
    if (!m_bSharedRequest)
        delete m_pRequestFlag;
    delete m_pResponseFlag;
    delete m_pChild;
}

void ParentInterlockSepJob::InitSyncObjectsSepJob(ParentInterlockSepJob *other)
{
    m_pRequestFlag = m_bSharedRequest && other ? other->m_pRequestFlag : new (std::nothrow) int(0);
    m_pResponseFlag = new (std::nothrow) int(0);
    m_pChild = nullptr;
}

BOOLTYPE ParentInterlockSepJob::MakeRequest()
{
    if (!m_pRequestFlag)
        return FALSE;
    *m_pRequestFlag = 1;
    return TRUE;
}

BOOLTYPE ParentInterlockSepJob::WaitForResponse(unsigned long const &)
{
    return m_pResponseFlag && *m_pResponseFlag == 1 ? TRUE : FALSE;
}

BOOLTYPE ParentInterlockSepJob::ResetInterlock()
{
    if (m_pRequestFlag)
        *m_pRequestFlag = 0;
    if (m_pResponseFlag)
        *m_pResponseFlag = 0;
    return m_pRequestFlag && m_pResponseFlag ? TRUE : FALSE;
}

ChildInterlockSepJob *ParentInterlockSepJob::SpawnChildInterlockSepJob()
{
    if (!m_pChild)
        m_pChild = new (std::nothrow) ChildInterlockSepJob(this);
    return m_pChild;
}

ChildInterlockSepJob::ChildInterlockSepJob() : m_pParent(nullptr) {}
ChildInterlockSepJob::ChildInterlockSepJob(ParentInterlockSepJob *parent) : m_pParent(parent) {}
ChildInterlockSepJob::~ChildInterlockSepJob() {}

BOOLTYPE ChildInterlockSepJob::DetectRequest(unsigned long const &)
{
    return m_pParent && m_pParent->m_pRequestFlag && *m_pParent->m_pRequestFlag == 1 ? TRUE : FALSE;
}

BOOLTYPE ChildInterlockSepJob::NotifyStateReached()
{
    if (!m_pParent || !m_pParent->m_pResponseFlag)
        return FALSE;
    *m_pParent->m_pResponseFlag = 1;
    return TRUE;
}
