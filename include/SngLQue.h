// SngLinkQue: a first-in, first-out queue of CObject pointers between
// threads, which can be closed; and Iterator, a small cursor over a CObList.
//
// Producers add at the tail and wake every waiting consumer; consumers take
// from the head, waiting for data without a limit, once for a limited time,
// or not at all. After CloseBroadcast consumers drain what is left and then
// stop waiting; inserting still works. An object in the queue is held, not
// owned: a take hands it to the caller, Flush deletes what is in the queue,
// and the destructor deletes nothing.
//
// Texts on standard output: "Will Wait on DATA" before each block of a
// waiting GetWait, "Exception caught: Unable to insert object." when an
// insertion fails.
#pragma once

#include "Mutex.h"
#include "TSDefs.h"

#include <afxcoll.h>

class TSUTIL_API SngLinkQue : public CObList {
public:
    // An open, empty queue whose nodes come in blocks of 10.
    SngLinkQue();
    // Drops the nodes only: objects still in the queue stay alive.
    virtual ~SngLinkQue();

    // Takes the head. remaining is set to the objects left behind it.
    // With noWait: an empty queue gives null and remaining 0. Without: an
    // empty open queue is waited on without a limit; an empty closed one
    // gives null with remaining 0xFFFFFFFF, which tells a closed and empty
    // queue from anything else (a null object that was inserted comes
    // back with a remaining below that).
    virtual CObject *GetWait(unsigned int &remaining, int noWait = 0);
    // Takes the head; on an empty open queue waits once, for at most the
    // limit (seconds * 1000 + (nanoseconds mod 1e9) / 1e6 milliseconds).
    // waitResult: 0 when no wait was needed or a wake-up came, 258 when
    // the limit ran out, -1 when the wait failed. Null when the queue is
    // still empty after that one wait (also when another consumer took
    // what woke this one) and at once on a closed empty queue.
    virtual CObject *GetTimedWait(long seconds, unsigned long nanoseconds, unsigned long &waitResult);
    // Deletes the objects in the queue, through their virtual destructor,
    // up to the end or the first null entry, and empties the queue.
    virtual void Flush();
    // Adds the object at the tail and wakes every waiting consumer; the
    // new node's position. A failure (no node could be allocated) is
    // reported on standard output and gives null; the object stays the
    // caller's. A closed queue accepts objects too.
    virtual POSITION InsertBroadcast(CObject *object);

    // Closes the queue for good and wakes every waiting consumer. 1.
    int CloseBroadcast();

private:
    SngLinkQue(const SngLinkQue &) = delete;
    SngLinkQue &operator=(const SngLinkQue &) = delete;

    // Wakes every waiting consumer; the condition's result.
    int Broadcast();
    // Take and give up m_queueLock; the lock's results.
    int lock();
    int unlock();

    Mutex m_queueLock; // guards the list and m_bClosed
    Cond m_dataCond;   // wakes consumers
    int m_bClosed;     // 0 until CloseBroadcast, then 1 for good
};

// A cursor over a CObList. It takes no lock: the list must stand still
// while it walks (the caller holds whatever guards the list).
class TSUTIL_API Iterator {
public:
    // Starts at the list's head (null for an empty list).
    explicit Iterator(CObList &list);
    // Leaves the list alone.
    ~Iterator();

    // The object at the cursor, and the cursor moves on; null when the
    // list is empty or the cursor has passed the end (and it stays there).
    CObject *operator()();
    // The same step as operator(): the object at the cursor, not the one
    // after it.
    CObject *operator++();
    // The object at place n, counted from 1 at the head; the cursor does
    // not move. Null when n is not between 1 and the count.
    CObject *operator+=(unsigned int n);
    // The list itself.
    CObject *container();

private:
    CObList *m_pList;
    POSITION m_pCursor;
};

// The list, the lock (table pointer and cell), the condition and the flag.
static_assert(sizeof(SngLinkQue) == 11 * sizeof(void *), "SngLinkQue layout");
static_assert(sizeof(Iterator) == 2 * sizeof(void *), "Iterator layout");
