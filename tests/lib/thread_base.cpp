// ThreadBase: the process-wide start barrier with Start, Stop and kill in
// each order, create from racing threads, and the calling-thread helpers.
//
// The barrier is one for the process, so each test sets the state it starts
// from (Stop holds as the load state does, but makes stopSign give 1) and
// opens the barrier again before its threads are left to end.
#include <ThrdBase.h>

#include "TestSupport.h"

#include <errno.h>

#include <atomic>
#include <string>
#include <vector>

using tstest::kWaitBound;

namespace {

HANDLE NewEvent(bool signalled)
{
    return CreateEventA(nullptr, TRUE, signalled ? TRUE : FALSE, nullptr);
}

bool IsSet(HANDLE event)
{
    return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

// A worker that reports each step of its life through events: entered
// (before waitToStart), passed (after it), finished (after stopSign gave 1).
class Worker : public ThreadBase {
public:
    Worker() : gate(NewEvent(true)), entered(NewEvent(false)), passed(NewEvent(false)), finished(NewEvent(false)) {}
    ~Worker() override
    {
        for (HANDLE h : {gate, entered, passed, finished})
            CloseHandle(h);
    }

    void *routine(void *arg) override
    {
        argument = arg;
        threadId = GetCurrentThreadId();
        equalOnThread = equal(*this);
        WaitForSingleObject(gate, kWaitBound);
        SetEvent(entered);
        waitToStart();
        SetEvent(passed);
        // stopSign is a poll by design: the loop asks it between pieces of
        // work. Without a stop the worker gives up after the tests' bound,
        // and finished stays unset.
        if (tstest::Eventually([this] { return stopSign() != 0; }))
            SetEvent(finished);
        return nullptr;
    }

    // Starts the thread and keeps a handle of our own to it: the one that
    // create gives closes itself when the thread ends. The gate holds the
    // thread before it uses the handle, so duplicating it is safe.
    HANDLE Launch(bool holdAtGate = false)
    {
        ResetEvent(gate);
        int handle = create(nullptr, 0, 0);
        HANDLE own = nullptr;
        DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(static_cast<intptr_t>(handle)),
                        GetCurrentProcess(), &own, 0, FALSE, DUPLICATE_SAME_ACCESS);
        if (!holdAtGate)
            SetEvent(gate);
        return own;
    }

    void WaitBlockedAtBarrier()
    {
        ASSERT_EQ(WaitForSingleObject(entered, kWaitBound), WAIT_OBJECT_0);
        tstest::WaitUntilBlocked(threadId);
    }

    HANDLE gate, entered, passed, finished;
    std::atomic<void *> argument{nullptr};
    std::atomic<DWORD> threadId{0};
    std::atomic<int> equalOnThread{-1};
};

// Ends a test's threads in good order, whatever the test left.
void Release(std::vector<HANDLE> threads)
{
    ThreadBase::Start();
    ThreadBase::Stop();
    for (HANDLE h : threads)
        EXPECT_TRUE(tstest::Joined(h));
    ThreadBase::Start();
}

} // namespace

TEST(ThreadBaseTest, StartOpensTheBarrierAndStopSignsEveryThreadWithoutWakingHeldOnes)
{
    ThreadBase::Stop();
    Worker a, b;
    HANDLE ha = a.Launch(), hb = b.Launch();
    ASSERT_TRUE(ha && hb);
    a.WaitBlockedAtBarrier();
    b.WaitBlockedAtBarrier();
    EXPECT_FALSE(IsSet(a.passed));
    EXPECT_EQ(a.stopSign(), 1) << "after Stop every object signs stop";
    EXPECT_EQ(b.stopSign(), 1);

    ThreadBase::Start();
    EXPECT_EQ(WaitForSingleObject(a.passed, kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(b.passed, kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(a.stopSign(), 0);
    EXPECT_EQ(a.argument.load(), static_cast<void *>(&a)) << "the routine gets its own object";
    EXPECT_EQ(a.equal(a), 1) << "equal on the creating thread";
    EXPECT_EQ(a.equalOnThread.load(), 0) << "equal on the new thread";

    ThreadBase::Stop();
    EXPECT_EQ(WaitForSingleObject(a.finished, kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(b.finished, kWaitBound), WAIT_OBJECT_0);
    Release({ha, hb});
}

TEST(ThreadBaseTest, KillBeforeTheBarrierEndsTheThreadInsideWaitToStart)
{
    ThreadBase::Stop();
    Worker w;
    HANDLE h = w.Launch(true);
    ASSERT_TRUE(h);
    w.kill();
    EXPECT_EQ(w.stopSign(), 1);
    SetEvent(w.gate);
    EXPECT_EQ(WaitForSingleObject(h, kWaitBound), WAIT_OBJECT_0) << "the thread ended";
    EXPECT_FALSE(IsSet(w.passed)) << "it never came back to its routine";
    Release({h});
}

TEST(ThreadBaseTest, KillWhileHeldWakesNobodyAndStartLetsTheThreadPass)
{
    ThreadBase::Stop();
    Worker w;
    HANDLE h = w.Launch();
    ASSERT_TRUE(h);
    w.WaitBlockedAtBarrier();
    w.kill();
    EXPECT_EQ(WaitForSingleObject(h, 100), static_cast<DWORD>(WAIT_TIMEOUT)) << "kill woke the thread";
    ThreadBase::Start();
    EXPECT_EQ(WaitForSingleObject(w.passed, kWaitBound), WAIT_OBJECT_0) << "the barrier is tested first";
    EXPECT_EQ(WaitForSingleObject(w.finished, kWaitBound), WAIT_OBJECT_0) << "then stopSign sees the kill";
    Release({h});
}

TEST(ThreadBaseTest, AnOpenBarrierPassesEvenAKilledThread)
{
    ThreadBase::Stop();
    ThreadBase::Start();
    Worker w;
    HANDLE h = w.Launch(true);
    ASSERT_TRUE(h);
    w.kill();
    SetEvent(w.gate);
    EXPECT_EQ(WaitForSingleObject(w.passed, kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(w.finished, kWaitBound), WAIT_OBJECT_0);
    Release({h});
}

namespace {

class Counter : public ThreadBase {
public:
    void *routine(void *arg) override
    {
        // Nothing of the object is touched after the count: the test may
        // destroy it as soon as the last run has counted.
        if (arg != this)
            ++wrongObject;
        int want = expected;
        HANDLE event = done;
        if (++runs == want)
            SetEvent(event);
        return nullptr;
    }
    std::atomic<int> runs{0};
    std::atomic<int> wrongObject{0};
    int expected = 0;
    HANDLE done = nullptr;
};

} // namespace

// Several threads call create at once, each on objects of its own: every new
// thread must run the routine of the object it was created for.
TEST(ThreadBaseTest, RacingCreatesEachRunTheirOwnObject)
{
    const int creators = 4, objectsEach = 8, createsEach = 5;
    std::vector<Counter> objects(creators * objectsEach);
    for (Counter &c : objects) {
        c.expected = createsEach;
        c.done = NewEvent(false);
    }
    std::atomic<int> failures{0};
    std::vector<HANDLE> threads;
    for (int t = 0; t < creators; ++t)
        threads.push_back(tstest::StartThread([&, t] {
            for (int round = 0; round < createsEach; ++round)
                for (int i = 0; i < objectsEach; ++i)
                    if (objects[t * objectsEach + i].create(nullptr, 0, 0) == -1)
                        ++failures;
            return 0u;
        }));
    for (HANDLE h : threads)
        EXPECT_TRUE(tstest::Joined(h));
    EXPECT_EQ(failures.load(), 0);
    for (Counter &c : objects) {
        EXPECT_EQ(WaitForSingleObject(c.done, kWaitBound), WAIT_OBJECT_0);
        EXPECT_EQ(c.runs.load(), createsEach);
        EXPECT_EQ(c.wrongObject.load(), 0);
    }
    for (Counter &c : objects)
        CloseHandle(c.done);
}

// A thread the platform refuses to start: here, for want of a start routine.
class Unstartable : public Counter {
public:
    Unstartable() : original(m_pStartRoutine) { m_pStartRoutine = nullptr; }
    void Restore() { m_pStartRoutine = original; }

private:
    void (*original)(void *);
};

TEST(ThreadBaseTest, FailedCreateReportsErrnoOnStandardOutput)
{
    Unstartable c;
    c.expected = 1;
    c.done = NewEvent(false);
    int r = 0;
    std::string out = tstest::PrintedBy([&] { r = c.create(nullptr, 0, 0); });
    EXPECT_EQ(r, EINVAL);
    EXPECT_EQ(out, "Error " + std::to_string(EINVAL) + ": failed to create the thread\n");
    EXPECT_EQ(c.equal(c), 0) << "no thread was created from here";

    // The object stays usable for another create.
    c.Restore();
    EXPECT_NE(c.create(nullptr, 0, 0), EINVAL);
    EXPECT_EQ(WaitForSingleObject(c.done, kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(c.equal(c), 1);
    CloseHandle(c.done);
}

namespace {
int onceRuns = 0;
void FirstOnce() { ++onceRuns; }
void SecondOnce() { onceRuns += 100; }
} // namespace

TEST(ThreadBaseTest, OnceRunsOneFunctionForTheWholeProcess)
{
    Counter a, b;
    EXPECT_EQ(a.once(&FirstOnce), 1);
    EXPECT_EQ(b.once(&SecondOnce), 1);
    EXPECT_EQ(a.once(&FirstOnce), 1);
    EXPECT_EQ(onceRuns, 1);
}

TEST(ThreadBaseTest, SetProcessorTakesOnlyTheProcessMask)
{
    Counter t;
    // The process's own mask binds, a processor outside it changes
    // nothing, an empty mask is refused.
    DWORD_PTR processMask = 0, systemMask = 0;
    ASSERT_TRUE(GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask));
    EXPECT_EQ(t.setProcessor(static_cast<unsigned long>(processMask)), 1);
    unsigned long outside = 1ul << (sizeof(unsigned long) * 8 - 1);
    if (!(processMask & outside)) {
        EXPECT_NE(t.setProcessor(outside | static_cast<unsigned long>(processMask)), 0);
        EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), processMask), processMask);
    }
    EXPECT_EQ(t.setProcessor(0), 0);
}
