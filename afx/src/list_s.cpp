// CStringList: a doubly linked list of CString values.
#include <afxcoll.h>

#include "nodelist.h"

IMPLEMENT_DYNAMIC(CStringList, CObject)

using Nodes = NodeList<CStringList>;

CStringList::CStringList(int nBlockSize) { Nodes::Init(*this, nBlockSize); }
CStringList::~CStringList() { RemoveAll(); }

CStringList::CNode *CStringList::NewNode(CNode *pPrev, CNode *pNext) { return Nodes::NewNode(*this, pPrev, pNext); }
void CStringList::FreeNode(CNode *pNode) { Nodes::FreeNode(*this, pNode); }

CString CStringList::GetHead() const { return Nodes::GetHead(*this); }
CString CStringList::GetTail() const { return Nodes::GetTail(*this); }
CString CStringList::RemoveHead() { return Nodes::RemoveHead(*this); }
CString CStringList::RemoveTail() { return Nodes::RemoveTail(*this); }

POSITION CStringList::AddHead(const CString &newElement) { return Nodes::AddHead(*this, newElement); }
POSITION CStringList::AddTail(const CString &newElement) { return Nodes::AddTail(*this, newElement); }
POSITION CStringList::AddHead(LPCSTR newElement) { return AddHead(CString(newElement)); }
POSITION CStringList::AddTail(LPCSTR newElement) { return AddTail(CString(newElement)); }
void CStringList::AddHead(CStringList *pNewList) { Nodes::AddHead(*this, pNewList); }
void CStringList::AddTail(CStringList *pNewList) { Nodes::AddTail(*this, pNewList); }
void CStringList::RemoveAll() { Nodes::RemoveAll(*this); }

CString &CStringList::GetNext(POSITION &rPosition) { return Nodes::GetNext(rPosition); }
CString CStringList::GetNext(POSITION &rPosition) const { return Nodes::GetNext(rPosition); }
CString &CStringList::GetPrev(POSITION &rPosition) { return Nodes::GetPrev(rPosition); }
CString CStringList::GetPrev(POSITION &rPosition) const { return Nodes::GetPrev(rPosition); }
CString &CStringList::GetAt(POSITION position) { return Nodes::At(position)->data; }
CString CStringList::GetAt(POSITION position) const { return Nodes::At(position)->data; }
void CStringList::SetAt(POSITION pos, LPCSTR newElement) { Nodes::At(pos)->data = newElement; }

void CStringList::RemoveAt(POSITION position) { Nodes::RemoveAt(*this, position); }
POSITION CStringList::InsertBefore(POSITION position, LPCSTR newElement)
{
    return Nodes::InsertBefore(*this, position, newElement);
}
POSITION CStringList::InsertAfter(POSITION position, LPCSTR newElement)
{
    return Nodes::InsertAfter(*this, position, newElement);
}

POSITION CStringList::Find(LPCSTR searchValue, POSITION startAfter) const
{
    return Nodes::Find(*this, searchValue, startAfter);
}
POSITION CStringList::FindIndex(int nIndex) const { return Nodes::FindIndex(*this, nIndex); }

void CStringList::Serialize(CArchive &) {}

void CStringList::Dump(CDumpContext &dc) const
{
    CObject::Dump(dc);
    dc << "with " << m_nCount << " elements\n";
}

void CStringList::AssertValid() const {}
