// Interlocks: a request and response handshake between two tasks. A parent
// asks (MakeRequest), a child notices (DetectRequest), does the work and
// reports (NotifyStateReached), the parent sees the report
// (WaitForResponse) and clears the pair (ResetInterlock).
//
// The order users keep: MakeRequest before the child's detection,
// NotifyStateReached before the parent's success, and ResetInterlock only
// after the parent has seen the response and before the next MakeRequest.
//
// This header holds the family's bases and the variant for a parent and a
// child in separate threads, which blocks on platform events. Time limits
// are milliseconds, 0 tests at once, 0xFFFFFFFF is no limit.
#pragma once

#include "TSDefs.h"

class ChildMultiLockSepThread;
class ChildResp1MultiLockSepThread;
class ParentMultiLockSepThread;

// The responding side. The base's operations work, do nothing and give FALSE.
class TSUTIL_API ChildInterlock {
public:
    // No state: the derived classes hold the parent.
    ChildInterlock();
    virtual ~ChildInterlock();
    // Waits at most timeout for the parent's request: TRUE when it is there.
    virtual BOOLTYPE DetectRequest(unsigned long const &timeout);
    // Tells the parent that the requested state is reached: TRUE when told.
    virtual BOOLTYPE NotifyStateReached();
};

// The requesting side. The base's operations work, do nothing and give FALSE.
class TSUTIL_API ParentInterlock {
public:
    // m_bSharedRequest is 1 when other is not null: the request object then
    // belongs to another parent.
    ParentInterlock(ParentInterlock *other = nullptr);
    // The argument is not read; m_bSharedRequest is 0.
    ParentInterlock(ChildInterlock *child);
    virtual ~ParentInterlock();
    // Raises the request: TRUE when raised.
    virtual BOOLTYPE MakeRequest();
    // Waits at most timeout for the child's response: TRUE when it is there.
    virtual BOOLTYPE WaitForResponse(unsigned long const &timeout);
    // Clears request and response for the next round: TRUE when cleared.
    virtual BOOLTYPE ResetInterlock();

protected:
    int m_bSharedRequest;
};

class ChildInterlockSepThread;

// A parent whose child runs in another thread: a request event and a
// response event of its own (manual reset). Several parents may share one
// request event: a parent built from another parent (or from a child, for
// that child's parent) takes over its request event and creates only its
// own response event. One MakeRequest on any member then reaches the
// children of all of them, and each child answers its own parent.
//
// The parent that created the request event closes it and must outlive
// every parent that shares it. The child from SpawnChildInterlockSepThread
// is deleted with the parent.
class TSUTIL_API ParentInterlockSepThread : public ParentInterlock {
public:
    // A parent with a request event of its own: manual reset with TRUE (a
    // detection leaves the request standing until ResetInterlock), auto
    // reset with FALSE (the first detection takes it).
    ParentInterlockSepThread(BOOLTYPE manualReset = TRUE);
    // Shares other's request event (or, with null, as the form above).
    // manualReset must name the shared event's kind: it chooses the rule of
    // WaitForResponseComplete and does not change the event.
    ParentInterlockSepThread(ParentInterlockSepThread *other, BOOLTYPE manualReset = TRUE);
    // Shares the request event of child's parent; a child without a parent
    // gives a parent with an event of its own. child must not be null (a
    // null child is taken as a child without a parent).
    ParentInterlockSepThread(ChildInterlockSepThread *child, BOOLTYPE manualReset = TRUE);
    // Closes the request event unless it is shared, the response event, and
    // deletes the spawned child.
    virtual ~ParentInterlockSepThread();

    ParentInterlockSepThread(ParentInterlockSepThread const &) = delete;
    ParentInterlockSepThread &operator=(ParentInterlockSepThread const &) = delete;

    // Signals the request event. TRUE when the platform call succeeded.
    virtual BOOLTYPE MakeRequest();
    // WaitForResponseComplete(timeout, FALSE).
    virtual BOOLTYPE WaitForResponse(unsigned long const &timeout);
    // Clears the request event, then the response event. TRUE when both
    // succeeded.
    virtual BOOLTYPE ResetInterlock();
    // Waits at most timeout for the response: TRUE when it is there. On a
    // time-out with a manual-reset request, FALSE: the request stays and the
    // child may still answer. With an auto-reset request, a request that no
    // child has taken yet is withdrawn (FALSE); one that a child has taken
    // is seen through to its response, however long that takes, when
    // complete is exactly TRUE, and otherwise gives FALSE.
    virtual BOOLTYPE WaitForResponseComplete(unsigned long const &timeout, BOOLTYPE complete);

    // This parent's one child, made on the first call; null when it cannot
    // be allocated (the next call tries again). Call it from one thread,
    // before the child's thread starts.
    ChildInterlockSepThread *SpawnChildInterlockSepThread();

protected:
    // The constructors' work: other's request event (null: a new one of
    // this parent's kind) and a new manual-reset response event, both
    // unsignalled. An event that cannot be made stays null, and the
    // operations that need it give FALSE.
    void InitSyncObjectsSepThread(ParentInterlockSepThread *other);

private:
    friend class ChildInterlockSepThread;
    friend class ChildMultiLockSepThread;
    friend class ChildResp1MultiLockSepThread;
    friend class ParentMultiLockSepThread;

    HANDLE m_hRequest;
    HANDLE m_hResponse;
    BOOLTYPE m_bManualReset;
    ChildInterlockSepThread *m_pChild;
};

// The child side of ParentInterlockSepThread. It has no events of its own:
// it acts on its parent's.
class TSUTIL_API ChildInterlockSepThread : public ChildInterlock {
public:
    // A child without a parent: it serves only as an argument to a parent's
    // constructor; its DetectRequest and NotifyStateReached give FALSE.
    ChildInterlockSepThread();
    // The child of parent, which is not owned and must outlive it.
    ChildInterlockSepThread(ParentInterlockSepThread *parent);
    // Touches neither the parent nor its events.
    virtual ~ChildInterlockSepThread();

    // Waits at most timeout for the parent's request. TRUE when it is there
    // (and, with an auto-reset request, taken); FALSE on time-out or
    // failure alike. A manual-reset request stays detected until reset.
    virtual BOOLTYPE DetectRequest(unsigned long const &timeout);
    // Signals the parent's response event; needs no preceding request.
    // TRUE when the platform call succeeded.
    virtual BOOLTYPE NotifyStateReached();

private:
    friend class ParentInterlockSepThread;
    friend class ChildMultiLockSepThread;
    friend class ChildResp1MultiLockSepThread;

    ParentInterlockSepThread *m_pParent;
};
