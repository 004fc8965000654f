// Interlocks for a parent and a child that take turns in one thread, as
// jobs of the same loop: the handshake of ParentInterlockSepThread on plain
// flag cells. No operation blocks, sleeps or makes a platform call; time
// limits are accepted and not read. The waiting is the caller's: a job
// asks, goes on with other work and asks again.
//
// The cells have no lock and no atomic access: the pair is for one thread.
#pragma once

#include "Intrlck.h"

class ChildInterlockSepJob;
class ChildMultiLockSepJob;
class ParentMultiLockSepJob;

// A request stands until ResetInterlock, as with a manual-reset event.
// Parents share a request cell as ParentInterlockSepThread parents share a
// request event; the parent that allocated the cell frees it and must
// outlive those that share it. The spawned child is deleted with the parent.
class TSUTIL_API ParentInterlockSepJob : public ParentInterlock {
public:
    // Shares other's request cell, or with null has a cell of its own.
    ParentInterlockSepJob(ParentInterlockSepJob *other = nullptr);
    // Shares the request cell of child's parent; a child without a parent
    // (or a null child) gives a parent with a cell of its own.
    ParentInterlockSepJob(ChildInterlockSepJob *child);
    // Frees the request cell unless it is shared, the response cell, and
    // deletes the spawned child.
    virtual ~ParentInterlockSepJob();

    ParentInterlockSepJob(ParentInterlockSepJob const &) = delete;
    ParentInterlockSepJob &operator=(ParentInterlockSepJob const &) = delete;

    // Sets the request cell. TRUE (FALSE only for a parent whose cells could
    // not be allocated, as for every operation here).
    virtual BOOLTYPE MakeRequest();
    // The response cell, at once.
    virtual BOOLTYPE WaitForResponse(unsigned long const &timeout);
    // Clears the request cell, then this parent's response cell. TRUE.
    virtual BOOLTYPE ResetInterlock();

    // This parent's one child, made on the first call; null when it cannot
    // be allocated.
    ChildInterlockSepJob *SpawnChildInterlockSepJob();

protected:
    // The constructors' work: other's request cell (null: a new one) and a
    // new response cell, both clear; a cell that cannot be allocated stays
    // null and the parent's operations give FALSE.
    void InitSyncObjectsSepJob(ParentInterlockSepJob *other);

private:
    friend class ChildInterlockSepJob;
    friend class ChildMultiLockSepJob;
    friend class ParentMultiLockSepJob;

    int *m_pRequestFlag;
    int *m_pResponseFlag;
    ChildInterlockSepJob *m_pChild;
};

class TSUTIL_API ChildInterlockSepJob : public ChildInterlock {
public:
    // A child without a parent: it serves only as an argument to a parent's
    // constructor; its operations give FALSE.
    ChildInterlockSepJob();
    // The child of parent, which is not owned and must outlive it.
    ChildInterlockSepJob(ParentInterlockSepJob *parent);
    // Touches neither the parent nor its cells.
    virtual ~ChildInterlockSepJob();

    // The parent's request cell, at once. A request stays detected until
    // ResetInterlock: the child remembers for itself that it took it.
    virtual BOOLTYPE DetectRequest(unsigned long const &timeout);
    // Sets the parent's response cell; needs no preceding request. TRUE.
    virtual BOOLTYPE NotifyStateReached();

private:
    friend class ParentInterlockSepJob;
    friend class ChildMultiLockSepJob;

    ParentInterlockSepJob *m_pParent;
};
