// The framework's lists: CObList (of CObject pointers) and CStringList (of
// CString values). Doubly linked; nodes come from blocks of nBlockSize nodes
// that are kept until RemoveAll or the destructor, so most additions
// allocate nothing. Adding throws CMemoryException * when a block cannot be
// allocated, and leaves the list as it was.
//
// A POSITION is a node; GetNext/GetPrev give the element at the position
// and move it on (to null after the end). Positions stay valid until their
// node is removed. No list locks anything: the caller serialises access.
#pragma once

#include "afx.h"

struct CPlex;

class TSAFX_API CObList : public CObject {
    DECLARE_DYNAMIC(CObList)
public:
    struct CNode {
        CNode *pNext;
        CNode *pPrev;
        CObject *data;
    };

    explicit CObList(int nBlockSize = 10); // nBlockSize below 1 counts as 1
    virtual ~CObList();                    // drops the nodes; deletes no object

    // The number of elements; whether there are none.
    int GetCount() const { return m_nCount; }
    BOOL IsEmpty() const { return m_nCount == 0; }

    // Head and tail of a non-empty list; null for an empty one.
    CObject *GetHead() const;
    CObject *GetTail() const;
    // Remove and give the head (tail); an empty list gives null and stays.
    CObject *RemoveHead();
    CObject *RemoveTail();

    // Add one element (giving its node), or a copy of every element of
    // another list, at the head (tail).
    POSITION AddHead(CObject *newElement);
    POSITION AddTail(CObject *newElement);
    void AddHead(CObList *pNewList);
    void AddTail(CObList *pNewList);
    // Drops every node; the objects stay the caller's.
    void RemoveAll();

    // The walk (see the top of this header): the first and last node (null
    // for an empty list); the element at a node, moving on or back; the
    // element at a node in place; removal of a node; a new node before
    // (after) a node, or at the head (tail) for a null position.
    POSITION GetHeadPosition() const { return reinterpret_cast<POSITION>(m_pNodeHead); }
    POSITION GetTailPosition() const { return reinterpret_cast<POSITION>(m_pNodeTail); }
    CObject *&GetNext(POSITION &rPosition);
    CObject *GetNext(POSITION &rPosition) const;
    CObject *&GetPrev(POSITION &rPosition);
    CObject *GetPrev(POSITION &rPosition) const;
    CObject *&GetAt(POSITION position);
    CObject *GetAt(POSITION position) const;
    void SetAt(POSITION pos, CObject *newElement);
    void RemoveAt(POSITION position);
    POSITION InsertBefore(POSITION position, CObject *newElement);
    POSITION InsertAfter(POSITION position, CObject *newElement);

    // The first node holding searchValue after startAfter (or from the head).
    POSITION Find(CObject *searchValue, POSITION startAfter = nullptr) const;
    // The node at nIndex counted from 0, or null.
    POSITION FindIndex(int nIndex) const;

    // Serialize and AssertValid do nothing; Dump writes CObject's text and
    // "with <count> elements" and a line feed.
    virtual void Serialize(CArchive &ar);
    virtual void Dump(CDumpContext &dc) const;
    virtual void AssertValid() const;

protected:
    template <class> friend struct NodeList; // the shared list machinery (afx/src)
    // A node from the free nodes (a new block when none is left; throws
    // CMemoryException * when it cannot be had); back to the free nodes.
    CNode *NewNode(CNode *pPrev, CNode *pNext);
    void FreeNode(CNode *pNode);

    CNode *m_pNodeHead;
    CNode *m_pNodeTail;
    int m_nCount;
    CNode *m_pNodeFree;
    CPlex *m_pBlocks;
    int m_nBlockSize;
};

class TSAFX_API CStringList : public CObject {
    DECLARE_DYNAMIC(CStringList)
public:
    struct CNode {
        CNode *pNext;
        CNode *pPrev;
        CString data;
    };

    explicit CStringList(int nBlockSize = 10); // nBlockSize below 1 counts as 1
    virtual ~CStringList();                    // drops the nodes and their strings

    // The number of elements; whether there are none.
    int GetCount() const { return m_nCount; }
    BOOL IsEmpty() const { return m_nCount == 0; }

    // Head and tail of a non-empty list; the empty string for an empty one.
    CString GetHead() const;
    CString GetTail() const;
    // Remove and give the head (tail); an empty list gives the empty string.
    CString RemoveHead();
    CString RemoveTail();

    // As CObList's, with copies of the strings.
    POSITION AddHead(LPCSTR newElement);
    POSITION AddTail(LPCSTR newElement);
    POSITION AddHead(const CString &newElement);
    POSITION AddTail(const CString &newElement);
    void AddHead(CStringList *pNewList);
    void AddTail(CStringList *pNewList);
    void RemoveAll();

    // The walk, as CObList's.
    POSITION GetHeadPosition() const { return reinterpret_cast<POSITION>(m_pNodeHead); }
    POSITION GetTailPosition() const { return reinterpret_cast<POSITION>(m_pNodeTail); }
    CString &GetNext(POSITION &rPosition);
    CString GetNext(POSITION &rPosition) const;
    CString &GetPrev(POSITION &rPosition);
    CString GetPrev(POSITION &rPosition) const;
    CString &GetAt(POSITION position);
    CString GetAt(POSITION position) const;
    void SetAt(POSITION pos, LPCSTR newElement);
    void RemoveAt(POSITION position);
    POSITION InsertBefore(POSITION position, LPCSTR newElement);
    POSITION InsertAfter(POSITION position, LPCSTR newElement);

    // The first node whose string equals searchValue after startAfter (or
    // from the head); the node at nIndex from 0; null when none.
    POSITION Find(LPCSTR searchValue, POSITION startAfter = nullptr) const;
    POSITION FindIndex(int nIndex) const;

    // Serialize and AssertValid do nothing; Dump writes CObject's text and
    // "with <count> elements" and a line feed.
    virtual void Serialize(CArchive &ar);
    virtual void Dump(CDumpContext &dc) const;
    virtual void AssertValid() const;

protected:
    template <class> friend struct NodeList; // the shared list machinery (afx/src)
    // A node from the free nodes (a new block when none is left; throws
    // CMemoryException * when it cannot be had); back to the free nodes.
    CNode *NewNode(CNode *pPrev, CNode *pNext);
    void FreeNode(CNode *pNode);

    CNode *m_pNodeHead;
    CNode *m_pNodeTail;
    int m_nCount;
    CNode *m_pNodeFree;
    CPlex *m_pBlocks;
    int m_nBlockSize;
};

// The layouts that derived classes of other modules rely on: a table
// pointer and six fields, each int padded to a pointer's width.
static_assert(sizeof(CObList) == 7 * sizeof(void *), "CObList layout");
static_assert(sizeof(CStringList) == 7 * sizeof(void *), "CStringList layout");
