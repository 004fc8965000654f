// CObList: a doubly linked list of CObject pointers.
#include <afxcoll.h>

#include "nodelist.h"

IMPLEMENT_DYNAMIC(CObList, CObject)

using Nodes = NodeList<CObList>;

CObList::CObList(int nBlockSize) { Nodes::Init(*this, nBlockSize); }
CObList::~CObList() { RemoveAll(); }

CObList::CNode *CObList::NewNode(CNode *pPrev, CNode *pNext) { return Nodes::NewNode(*this, pPrev, pNext); }
void CObList::FreeNode(CNode *pNode) { Nodes::FreeNode(*this, pNode); }

CObject *CObList::GetHead() const { return Nodes::GetHead(*this); }
CObject *CObList::GetTail() const { return Nodes::GetTail(*this); }
CObject *CObList::RemoveHead() { return Nodes::RemoveHead(*this); }
CObject *CObList::RemoveTail() { return Nodes::RemoveTail(*this); }

POSITION CObList::AddHead(CObject *newElement) { return Nodes::AddHead(*this, newElement); }
POSITION CObList::AddTail(CObject *newElement) { return Nodes::AddTail(*this, newElement); }
void CObList::AddHead(CObList *pNewList) { Nodes::AddHead(*this, pNewList); }
void CObList::AddTail(CObList *pNewList) { Nodes::AddTail(*this, pNewList); }
void CObList::RemoveAll() { Nodes::RemoveAll(*this); }

CObject *&CObList::GetNext(POSITION &rPosition) { return Nodes::GetNext(rPosition); }
CObject *CObList::GetNext(POSITION &rPosition) const { return Nodes::GetNext(rPosition); }
CObject *&CObList::GetPrev(POSITION &rPosition) { return Nodes::GetPrev(rPosition); }
CObject *CObList::GetPrev(POSITION &rPosition) const { return Nodes::GetPrev(rPosition); }
CObject *&CObList::GetAt(POSITION position) { return Nodes::At(position)->data; }
CObject *CObList::GetAt(POSITION position) const { return Nodes::At(position)->data; }
void CObList::SetAt(POSITION pos, CObject *newElement) { Nodes::At(pos)->data = newElement; }

void CObList::RemoveAt(POSITION position) { Nodes::RemoveAt(*this, position); }
POSITION CObList::InsertBefore(POSITION position, CObject *newElement)
{
    return Nodes::InsertBefore(*this, position, newElement);
}
POSITION CObList::InsertAfter(POSITION position, CObject *newElement)
{
    return Nodes::InsertAfter(*this, position, newElement);
}

POSITION CObList::Find(CObject *searchValue, POSITION startAfter) const
{
    return Nodes::Find(*this, searchValue, startAfter);
}
POSITION CObList::FindIndex(int nIndex) const { return Nodes::FindIndex(*this, nIndex); }

void CObList::Serialize(CArchive &) {}

void CObList::Dump(CDumpContext &dc) const
{
    CObject::Dump(dc);
    dc << "with " << m_nCount << " elements\n";
}

void CObList::AssertValid() const {}
