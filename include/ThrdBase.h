// ThreadBase: the base of a worker thread in the POSIX shape, with one
// start barrier for the whole process.
#pragma once

#include "Mutex.h"

#include <atomic>

// A program derives from ThreadBase, writes the thread's work in routine
// and calls create. The usual order: create each thread; each routine
// begins with waitToStart and holds there; the program calls Start and all
// of them run; each routine asks stopSign in its loop and returns when it
// gives 1; kill asks one thread to end, Stop all of them.
//
// The barrier: 0 holds (the state at load), 1 open after Start, 2 after
// Stop. Start and Stop may follow each other in any order and any number of
// times. Nothing but the thread itself ends a thread: kill and Stop only
// leave a sign that stopSign and waitToStart read.
//
// Operations "on the calling thread" act on whoever calls them, whatever
// object they are called on. Several keep a POSIX name and do nothing.
class TSUTIL_API ThreadBase {
public:
    // No thread yet, not killed; create starts routine through cover_routine.
    ThreadBase();
    // The copy shares the source's state lock, and copies its thread id,
    // start routine and state.
    ThreadBase(ThreadBase const &other);
    // The same for an existing object, which then shares the source's lock.
    ThreadBase &operator=(ThreadBase const &other);
    // Does not touch a running thread: the object must outlive its thread.
    virtual ~ThreadBase();

    // The thread's work; its value is not looked at. The thread ends when
    // it returns. arg is this object.
    virtual void *routine(void *arg) = 0;

    // Starts a thread that runs this object's routine, with stackSize bytes
    // of stack (0: the platform's default); the first two arguments are not
    // read. Does not wait for the thread to run. Gives the platform's
    // thread handle as a number; on failure writes "Error <errno>: failed
    // to create the thread" to standard output and gives errno. Both are
    // non-zero. The object stays usable for another create.
    int create(void *arg = nullptr, int flags = 0, unsigned int stackSize = 0);

    // Called by the thread itself: holds while the barrier is not open.
    // Ends the thread instead (without returning to routine) when this
    // object was killed and the barrier is not open.
    void waitToStart();
    // Opens the barrier and wakes every thread held in waitToStart.
    static void Start();
    // Sets the barrier to stop. Wakes nobody: held threads stay held.
    static void Stop();
    // 1 after Stop (and no Start since) or after kill of this object, else 0.
    int stopSign();
    // Asks this object's thread to end; the thread sees it at its next
    // stopSign or waitToStart. Does not end or wake the thread.
    void kill();
    // Ends the calling thread (texit). Does not return.
    void die();
    // Ends the calling thread through the C runtime. Does not return. The
    // argument is not read.
    void texit(void *value);

    // The calling thread's id (both).
    long getThread();
    long self();
    // 1 when the calling thread is the one that called create on this
    // object, else 0. other has no influence.
    int equal(ThreadBase &other);
    // The calling thread's priority, the platform's number.
    int getPrio();
    // Sets the calling thread's priority; the platform's result, non-zero
    // for success.
    int setPrio(int priority);
    // Binds the calling thread to the processors of mask (bit n: processor
    // n). 1 when done, 0 when the platform refused (mask 0, say, or the
    // process could not be queried). A mask with a processor outside the
    // process's own mask changes nothing and gives a non-zero result.
    int setProcessor(unsigned long mask);
    // The number of processors of the machine.
    int GetNumProcessors();
    // Sleeps seconds * 1000 + (nanoseconds mod 1e9) / 1e6 milliseconds.
    // Always 1.
    int delay(long seconds, unsigned long nanoseconds);
    // Gives up the rest of the calling thread's time slice.
    void yield();

    // A new per-thread slot: its index goes into key in any case (-1 when
    // none is left). 1 when there was one, else 0.
    int keyCreate(int &key);
    // value = the calling thread's value in slot key. 1 when it is not
    // null, else 0 (so a stored null reads as a failure).
    int getSpecific(int const &key, void *&value);
    // Stores value in slot key for the calling thread; the platform's
    // result, non-zero for success.
    int setSpecific(int const &key, void const *&value);

    // Runs function if no once call of the process has run one yet, on any
    // object and with any function. Always 1.
    int once(void (*function)());

    // Present for the shape of the interface; they do nothing.
    int cancel();               // 1
    int setCancel(int);         // 1
    int setAsynccancel(int);    // 1
    int detach();               // 0
    int getScheduler();         // 0
    int join(void *&);          // 0; waits for nothing, writes nothing
    static void lockGlobal();   // takes no lock
    static void unlockGlobal(); // gives up no lock

private:
    // The new thread's start: tells create that it runs, then calls the
    // routine of arg (a ThreadBase).
    static void cover_routine(void *arg);

    long m_tid;                          // who called create; not the new thread

protected:
    // What create starts, with this object as its argument: cover_routine,
    // which runs routine. A derived class may start its thread elsewhere.
    void (*m_pStartRoutine)(void *);

private:
    int m_nState;                        // 0, or 2 after kill
    Mutex m_stateLock;                   // guards m_nState

    static Mutex m_condMutex;            // guards m_nPredicate
    static Cond m_condVar;               // the barrier's condition
    static int m_nPredicate;             // 0 holds, 1 open, 2 stop
    static Mutex m_ptr_lock_;            // held by create and once
    static void *m_pPtr_;                // the object create is starting
    static std::atomic<int> m_nReady_;   // 1 from a new thread, 0 from create
    static int m_nOnetime;               // 1 once once has run
};
