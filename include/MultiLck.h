// Multi-locks: one task watches many interlocks in a single call. A child
// multi-lock waits for the first request on any of a list of child
// interlocks; a parent multi-lock for the response of any or all of a list
// of parent interlocks. They set and reset nothing: they only look at the
// request or response objects of the interlocks' parents.
//
// A list is an array of pointers that ends with a null entry (an empty
// list is one null entry; a null list counts as empty). It is read during
// the call only and copied; the interlocks stay the caller's and must live,
// with a parent for each child, while the list is in use. The handles and
// cells are copied when a list is given, so an interlock that goes away
// needs a revision first. A multi-lock has no lock: the thread that revises
// it is the one that waits on it.
//
// When several interlocks are ready, the lowest index wins, and since
// nothing is reset the same one is reported again until its parent calls
// ResetInterlock. The blocking variants take at most 64 interlocks (the
// platform's limit); with more, every wait gives FALSE.
#pragma once

#include "IntrlJob.h"
#include "Intrlck.h"

// The base of the child multi-locks; its DetectRequest gives FALSE and
// writes nothing.
class TSUTIL_API ChildMultiLock {
public:
    // An empty list.
    ChildMultiLock();
    // A copy of list (see the top of this header).
    ChildMultiLock(ChildInterlock **const list);
    // Frees the copied list; the interlocks stay the caller's.
    virtual ~ChildMultiLock();

    ChildMultiLock(ChildMultiLock const &) = delete;
    ChildMultiLock &operator=(ChildMultiLock const &) = delete;

    // Waits at most timeout for a request on any child of the list. found
    // must not be null: it is set to null first and gets the child.
    virtual BOOLTYPE DetectRequest(ChildInterlock **found, unsigned long const &timeout);

protected:
    // Copies list. A list of the length of the former one reuses the array;
    // when no memory can be had the list becomes empty.
    void InitSyncObjects(ChildInterlock **list);

    ChildInterlock **m_ppInterlocks; // the list's entries, without the null
    int m_nCount;
    int m_nPrevCount;                // m_nCount before the latest rebuild
};

// The base of the parent multi-locks; its WaitForResponse gives FALSE and
// writes nothing.
class TSUTIL_API ParentMultiLock {
public:
    // An empty list.
    ParentMultiLock();
    // A copy of list (see the top of this header).
    ParentMultiLock(ParentInterlock **const list);
    // Frees the copied list; the interlocks stay the caller's.
    virtual ~ParentMultiLock();

    ParentMultiLock(ParentMultiLock const &) = delete;
    ParentMultiLock &operator=(ParentMultiLock const &) = delete;

    // Waits at most timeout for a response of any parent of the list
    // (waitAll FALSE; found, if not null, is set to null first and gets the
    // parent) or of all of them (waitAll TRUE; found is not touched).
    virtual BOOLTYPE WaitForResponse(unsigned long const &timeout, BOOLTYPE waitAll, ParentInterlock **found);

    // The number of interlocks in the list.
    int GetInterlockCount() const;

protected:
    // Copies list, as ChildMultiLock's does.
    void InitSyncObjects(ParentInterlock **list);

    ParentInterlock **m_ppInterlocks;
    int m_nCount;
    int m_nPrevCount;
};

// Child multi-lock over polled interlocks: one pass over the request cells,
// at once; timeout is not read.
class TSUTIL_API ChildMultiLockSepJob : public ChildMultiLock {
public:
    // An empty list: DetectRequest gives FALSE.
    ChildMultiLockSepJob();
    // A copy of list with the request cell of each child's parent.
    ChildMultiLockSepJob(ChildInterlockSepJob **const list);
    // Frees the copies; the interlocks stay the caller's.
    virtual ~ChildMultiLockSepJob();

    // TRUE with the first child whose request stands; FALSE when none does.
    virtual BOOLTYPE DetectRequest(ChildInterlock **found, unsigned long const &timeout);
    // Replaces the list with a copy of list, and the cells with its
    // parents' (a child without a parent is never reported).
    void ReviseInterlocksSepJob(ChildInterlockSepJob **const list);

protected:
    // The work of the constructor and of the revision.
    void InitSyncObjectsSepJob(ChildInterlockSepJob **list);

    int **m_pSyncObjects; // the request cell of each child's parent
};

// Child multi-lock over interlocks across threads: one platform wait on the
// request events of the children's parents.
class TSUTIL_API ChildMultiLockSepThread : public ChildMultiLock {
public:
    // An empty list: DetectRequest gives FALSE at once.
    ChildMultiLockSepThread();
    // With deferSyncObjects FALSE the event array is built here; otherwise
    // it is left to a derived class, and until then DetectRequest gives
    // FALSE at once.
    ChildMultiLockSepThread(ChildInterlockSepThread **const list, BOOLTYPE deferSyncObjects = FALSE);
    // Frees the copies; the interlocks and their events stay the caller's.
    virtual ~ChildMultiLockSepThread();

    // TRUE with a child whose request came; FALSE on time-out, failure or
    // an empty list. An auto-reset request that is reported is taken.
    virtual BOOLTYPE DetectRequest(ChildInterlock **found, unsigned long const &timeout);
    // Replaces the list with a copy of list, and the events with its
    // parents' request events. Not for ChildResp1MultiLockSepThread, which
    // has its own revision (after this one its DetectRequest gives FALSE
    // until that revision).
    void ReviseInterlocksSepThread(ChildInterlockSepThread **const list);

protected:
    // The work of the constructor and of the revision.
    void InitSyncObjectsSepThread(ChildInterlockSepThread **list);

    HANDLE *m_pSyncObjects; // the request event of each child's parent
};

// A child multi-lock that also ends its wait on the response of one parent
// of its own: a task that serves requests while it has a request of its own
// outstanding waits in one place. A waiting request goes before the
// response (the lowest index wins), and the response stays signalled until
// that parent's ResetInterlock.
class TSUTIL_API ChildResp1MultiLockSepThread : public ChildMultiLockSepThread {
public:
    // An empty list and no response parent: DetectRequest gives FALSE.
    ChildResp1MultiLockSepThread();
    // responseParent may be null: the multi-lock then acts as a
    // ChildMultiLockSepThread.
    ChildResp1MultiLockSepThread(ChildInterlockSepThread **const list, ParentInterlockSepThread *responseParent);
    // Frees the copies; neither the interlocks nor the response parent are
    // owned.
    virtual ~ChildResp1MultiLockSepThread();

    // TRUE with a child: a request. TRUE with *found null: the response of
    // the response parent. FALSE: time-out or failure.
    virtual BOOLTYPE DetectRequest(ChildInterlock **found, unsigned long const &timeout);
    // Replaces the list and the response parent (null: none), as the
    // constructor sets them.
    void ReviseInterlocksResp1SepThread(ChildInterlockSepThread **const list, ParentInterlockSepThread *responseParent);

protected:
    // Copies list and builds the event array anew, the response parent's
    // response event last; without memory the list becomes empty.
    void InitSyncObjectsResp1SepThread(ChildInterlockSepThread **list);

    ParentInterlockSepThread *m_pResponseParent;
    int m_nTotalCount; // entries of m_pSyncObjects: m_nCount, +1 for the response
};

// Parent multi-lock over polled interlocks: one pass over the response
// cells, at once; timeout is not read.
class TSUTIL_API ParentMultiLockSepJob : public ParentMultiLock {
public:
    // An empty list: WaitForResponse gives FALSE.
    ParentMultiLockSepJob();
    // A copy of list with each parent's response cell.
    ParentMultiLockSepJob(ParentInterlockSepJob **const list);
    // Frees the copies; the interlocks stay the caller's.
    virtual ~ParentMultiLockSepJob();

    // waitAll TRUE: TRUE when every parent has its response (found is not
    // touched). waitAll FALSE with found: TRUE with the first parent that
    // has one. waitAll FALSE without found: FALSE, whatever the cells hold.
    // An empty list gives FALSE and writes nothing.
    virtual BOOLTYPE WaitForResponse(unsigned long const &timeout, BOOLTYPE waitAll, ParentInterlock **found);
    // Replaces the list with a copy of list, and the cells with its
    // parents'.
    void ReviseInterlocksSepJob(ParentInterlockSepJob **const list);

protected:
    // The work of the constructor and of the revision.
    void InitSyncObjectsSepJob(ParentInterlockSepJob **list);

    int **m_pSyncObjects; // the response cell of each parent
};

// Parent multi-lock over interlocks across threads: one platform wait on
// the parents' response events.
class TSUTIL_API ParentMultiLockSepThread : public ParentMultiLock {
public:
    // An empty list: WaitForResponse gives FALSE.
    ParentMultiLockSepThread();
    // A copy of list with each parent's response event.
    ParentMultiLockSepThread(ParentInterlockSepThread **const list);
    // Frees the copies; the interlocks and their events stay the caller's.
    virtual ~ParentMultiLockSepThread();

    // TRUE when a response (waitAll FALSE; the parent goes into found if it
    // is not null) or all responses (waitAll TRUE; found is not touched)
    // came within timeout; FALSE on time-out, failure or an empty list (the
    // last writes nothing).
    virtual BOOLTYPE WaitForResponse(unsigned long const &timeout, BOOLTYPE waitAll, ParentInterlock **found);
    // Replaces the list with a copy of list, and the events with its
    // parents' response events.
    void ReviseInterlocksSepThread(ParentInterlockSepThread **const list);

protected:
    // The work of the constructor and of the revision.
    void InitSyncObjectsSepThread(ParentInterlockSepThread **list);

    HANDLE *m_pSyncObjects; // the response event of each parent
};
