// CStringList: a doubly linked list of CString values.
#include <afxcoll.h>

#include "plex.h"

#include <new>

IMPLEMENT_DYNAMIC(CStringList, CObject)

CStringList::CStringList(int nBlockSize)
    : m_pNodeHead(nullptr), m_pNodeTail(nullptr), m_nCount(0), m_pNodeFree(nullptr), m_pBlocks(nullptr),
      m_nBlockSize(nBlockSize > 0 ? nBlockSize : 1)
{
}

CStringList::~CStringList() { RemoveAll(); }

CStringList::CNode *CStringList::NewNode(CNode *pPrev, CNode *pNext)
{
    if (!m_pNodeFree) {
        CPlex *block = CPlex::Create(m_pBlocks, static_cast<UINT>(m_nBlockSize), sizeof(CNode));
        CNode *node = static_cast<CNode *>(block->data()) + m_nBlockSize - 1;
        for (int i = m_nBlockSize - 1; i >= 0; --i, --node) {
            node->pNext = m_pNodeFree;
            m_pNodeFree = node;
        }
    }
    CNode *node = m_pNodeFree;
    m_pNodeFree = node->pNext;
    node->pPrev = pPrev;
    node->pNext = pNext;
    new (&node->data) CString;
    ++m_nCount;
    return node;
}

void CStringList::FreeNode(CNode *pNode)
{
    pNode->data.~CString();
    pNode->pNext = m_pNodeFree;
    m_pNodeFree = pNode;
    --m_nCount;
}

CString CStringList::GetHead() const { return m_pNodeHead ? m_pNodeHead->data : CString(); }
CString CStringList::GetTail() const { return m_pNodeTail ? m_pNodeTail->data : CString(); }

CString CStringList::RemoveHead()
{
    CNode *old = m_pNodeHead;
    if (!old)
        return CString();
    CString ret = old->data;
    m_pNodeHead = old->pNext;
    if (m_pNodeHead)
        m_pNodeHead->pPrev = nullptr;
    else
        m_pNodeTail = nullptr;
    FreeNode(old);
    return ret;
}

CString CStringList::RemoveTail()
{
    CNode *old = m_pNodeTail;
    if (!old)
        return CString();
    CString ret = old->data;
    m_pNodeTail = old->pPrev;
    if (m_pNodeTail)
        m_pNodeTail->pNext = nullptr;
    else
        m_pNodeHead = nullptr;
    FreeNode(old);
    return ret;
}

POSITION CStringList::AddHead(const CString &newElement)
{
    CNode *node = NewNode(nullptr, m_pNodeHead);
    node->data = newElement;
    if (m_pNodeHead)
        m_pNodeHead->pPrev = node;
    else
        m_pNodeTail = node;
    m_pNodeHead = node;
    return reinterpret_cast<POSITION>(node);
}

POSITION CStringList::AddTail(const CString &newElement)
{
    CNode *node = NewNode(m_pNodeTail, nullptr);
    node->data = newElement;
    if (m_pNodeTail)
        m_pNodeTail->pNext = node;
    else
        m_pNodeHead = node;
    m_pNodeTail = node;
    return reinterpret_cast<POSITION>(node);
}

POSITION CStringList::AddHead(LPCSTR newElement) { return AddHead(CString(newElement)); }
POSITION CStringList::AddTail(LPCSTR newElement) { return AddTail(CString(newElement)); }

void CStringList::AddHead(CStringList *pNewList)
{
    if (!pNewList || pNewList == this)
        return;
    POSITION pos = pNewList->GetTailPosition();
    while (pos)
        AddHead(pNewList->GetPrev(pos));
}

void CStringList::AddTail(CStringList *pNewList)
{
    if (!pNewList || pNewList == this)
        return;
    POSITION pos = pNewList->GetHeadPosition();
    while (pos)
        AddTail(pNewList->GetNext(pos));
}

void CStringList::RemoveAll()
{
    for (CNode *node = m_pNodeHead; node; node = node->pNext)
        node->data.~CString();
    m_nCount = 0;
    m_pNodeHead = m_pNodeTail = m_pNodeFree = nullptr;
    if (m_pBlocks)
        m_pBlocks->FreeDataChain();
    m_pBlocks = nullptr;
}

CString &CStringList::GetNext(POSITION &rPosition)
{
    CNode *node = reinterpret_cast<CNode *>(rPosition);
    rPosition = reinterpret_cast<POSITION>(node->pNext);
    return node->data;
}

CString CStringList::GetNext(POSITION &rPosition) const
{
    CNode *node = reinterpret_cast<CNode *>(rPosition);
    rPosition = reinterpret_cast<POSITION>(node->pNext);
    return node->data;
}

CString &CStringList::GetPrev(POSITION &rPosition)
{
    CNode *node = reinterpret_cast<CNode *>(rPosition);
    rPosition = reinterpret_cast<POSITION>(node->pPrev);
    return node->data;
}

CString CStringList::GetPrev(POSITION &rPosition) const
{
    CNode *node = reinterpret_cast<CNode *>(rPosition);
    rPosition = reinterpret_cast<POSITION>(node->pPrev);
    return node->data;
}

CString &CStringList::GetAt(POSITION position) { return reinterpret_cast<CNode *>(position)->data; }
CString CStringList::GetAt(POSITION position) const { return reinterpret_cast<CNode *>(position)->data; }
void CStringList::SetAt(POSITION pos, LPCSTR newElement) { reinterpret_cast<CNode *>(pos)->data = newElement; }

void CStringList::RemoveAt(POSITION position)
{
    CNode *old = reinterpret_cast<CNode *>(position);
    if (!old)
        return;
    if (old == m_pNodeHead)
        m_pNodeHead = old->pNext;
    else
        old->pPrev->pNext = old->pNext;
    if (old == m_pNodeTail)
        m_pNodeTail = old->pPrev;
    else
        old->pNext->pPrev = old->pPrev;
    FreeNode(old);
}

POSITION CStringList::InsertBefore(POSITION position, LPCSTR newElement)
{
    if (!position)
        return AddHead(newElement);
    CNode *old = reinterpret_cast<CNode *>(position);
    CNode *node = NewNode(old->pPrev, old);
    node->data = newElement;
    if (old->pPrev)
        old->pPrev->pNext = node;
    else
        m_pNodeHead = node;
    old->pPrev = node;
    return reinterpret_cast<POSITION>(node);
}

POSITION CStringList::InsertAfter(POSITION position, LPCSTR newElement)
{
    if (!position)
        return AddTail(newElement);
    CNode *old = reinterpret_cast<CNode *>(position);
    CNode *node = NewNode(old, old->pNext);
    node->data = newElement;
    if (old->pNext)
        old->pNext->pPrev = node;
    else
        m_pNodeTail = node;
    old->pNext = node;
    return reinterpret_cast<POSITION>(node);
}

POSITION CStringList::Find(LPCSTR searchValue, POSITION startAfter) const
{
    CNode *node = startAfter ? reinterpret_cast<CNode *>(startAfter)->pNext : m_pNodeHead;
    for (; node; node = node->pNext)
        if (node->data == searchValue)
            return reinterpret_cast<POSITION>(node);
    return nullptr;
}

POSITION CStringList::FindIndex(int nIndex) const
{
    if (nIndex < 0 || nIndex >= m_nCount)
        return nullptr;
    CNode *node = m_pNodeHead;
    while (nIndex--)
        node = node->pNext;
    return reinterpret_cast<POSITION>(node);
}

void CStringList::Serialize(CArchive &) {}

void CStringList::Dump(CDumpContext &dc) const
{
    CObject::Dump(dc);
    dc << "with " << m_nCount << " elements\n";
}

void CStringList::AssertValid() const {}
