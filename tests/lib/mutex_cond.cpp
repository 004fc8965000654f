// Mutex and Cond: a recursive lock with the platform's results, and a
// condition variable that loses no wake-up and remembers nothing.
#include <Mutex.h>

#include "TestSupport.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

using tstest::kWaitBound;
using tstest::MsSince;

namespace {

// Runs fn on another thread and gives its result.
int OnOtherThread(std::function<int()> fn)
{
    return static_cast<int>(tstest::RunOnOtherThread([&] { return static_cast<unsigned>(fn()); }));
}

} // namespace

TEST(MutexTest, RecursiveHoldBelongsToTheLockingThread)
{
    Mutex m;
    ASSERT_EQ(m.lock(), 0);
    ASSERT_EQ(m.lock(), 0);
    EXPECT_EQ(m.IsLocked(), 0) << "the own hold does not count";
    EXPECT_EQ(OnOtherThread([&] { return m.trylock(); }), static_cast<int>(WAIT_TIMEOUT));
    EXPECT_EQ(OnOtherThread([&] { return m.IsLocked(); }), 1);
    EXPECT_EQ(OnOtherThread([&] { return m.unlock(); }), 0) << "only the holder unlocks";

    EXPECT_NE(m.unlock(), 0);
    EXPECT_EQ(OnOtherThread([&] { return m.IsLocked(); }), 1) << "one hold is left";
    EXPECT_NE(m.unlock(), 0);
    EXPECT_EQ(m.unlock(), 0) << "nothing left to release";

    // A free lock: IsLocked takes no hold, trylock exactly one.
    EXPECT_EQ(OnOtherThread([&] { return m.IsLocked(); }), 0);
    EXPECT_EQ(OnOtherThread([&] { return m.trylock() == 0 && m.unlock() && !m.unlock() ? 1 : 0; }), 1);
}

TEST(MutexTest, LockFromAThreadThatEndedHoldingItIsAbandoned)
{
    Mutex m;
    ASSERT_EQ(OnOtherThread([&] { return m.lock(); }), 0);
    EXPECT_EQ(m.lock(), static_cast<int>(WAIT_ABANDONED));
    EXPECT_NE(m.unlock(), 0);
    EXPECT_EQ(m.lock(), 0);
    EXPECT_NE(m.unlock(), 0);
}

TEST(MutexTest, CopiesAreOneLockThatLivesUntilTheLastIsGone)
{
    Mutex *original = new Mutex;
    Mutex copy(*original);
    Mutex assigned;
    assigned = copy;
    EXPECT_EQ(copy.getMutex(), original->getMutex());
    EXPECT_EQ(assigned.getMutex(), original->getMutex());

    ASSERT_EQ(original->lock(), 0);
    EXPECT_EQ(OnOtherThread([&] { return assigned.IsLocked(); }), 1);
    EXPECT_NE(copy.unlock(), 0) << "releasing through a copy";
    delete original;

    // The copies still work on the platform mutex after the original went.
    EXPECT_EQ(copy.lock(), 0);
    EXPECT_EQ(OnOtherThread([&] { return assigned.trylock(); }), static_cast<int>(WAIT_TIMEOUT));
    EXPECT_NE(assigned.unlock(), 0);

    // destroy followed by the destructor releases once; the object then
    // reports failures instead of touching a closed handle.
    EXPECT_EQ(copy.destroy(), 1);
    EXPECT_EQ(copy.lock(), -1);
    EXPECT_EQ(assigned.lock(), 0);
    EXPECT_NE(assigned.unlock(), 0);
}

TEST(CondTest, TimeLimitsAndNoMemoryOfASignal)
{
    Cond c;
    EXPECT_EQ(c.timedwait(0), static_cast<int>(WAIT_TIMEOUT));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(c.timedwait(0, 999999), static_cast<int>(WAIT_TIMEOUT)) << "below a millisecond is lost";
    EXPECT_LT(MsSince(start), 500);

    EXPECT_NE(c.signal(), 0);
    EXPECT_EQ(c.broadcast(), 1);
    EXPECT_EQ(c.timedwait(0, 50000000), static_cast<int>(WAIT_TIMEOUT)) << "a signal with nobody waiting is gone";

    // 1,500,000,000 ns count as 500 ms: nothing is carried into the seconds
    // (which would make 1500).
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(c.timedwait(0, 1500000000), static_cast<int>(WAIT_TIMEOUT));
    long long waited = MsSince(start);
    EXPECT_GE(waited, 450);
    EXPECT_LT(waited, 1400);
}

// Each round hands a token back and forth under the Mutex. A wake-up lost
// between a waiter's test and its sleep shows as a wait that runs into the
// bound; the rounds make that window likely on two cores.
TEST(CondTest, PingPongUnderAMutexLosesNoWakeUp)
{
    Mutex m;
    Cond c;
    int turn = 0; // 0: the main thread's turn, 1: the partner's
    const int rounds = 3000;
    std::atomic<int> partnerTimeouts{0};
    HANDLE h = tstest::StartThread([&] {
        for (int i = 0; i < rounds; ++i) {
            m.lock();
            while (turn != 1)
                if (c.timedwait(m, kWaitBound / 1000, 0) == static_cast<int>(WAIT_TIMEOUT)) {
                    ++partnerTimeouts;
                    break;
                }
            turn = 0;
            c.signal();
            m.unlock();
        }
        return 0u;
    });
    int timeouts = 0;
    for (int i = 0; i < rounds && timeouts == 0 && partnerTimeouts == 0; ++i) {
        m.lock();
        turn = 1;
        c.signal();
        while (turn != 0)
            if (c.timedwait(m, kWaitBound / 1000, 0) == static_cast<int>(WAIT_TIMEOUT)) {
                ++timeouts;
                break;
            }
        m.unlock();
    }
    ASSERT_EQ(WaitForSingleObject(h, 2 * kWaitBound), WAIT_OBJECT_0);
    CloseHandle(h);
    EXPECT_EQ(timeouts, 0);
    EXPECT_EQ(partnerTimeouts.load(), 0);
}

// A broadcast wakes every registered waiter, and only those: copies made by
// assignment are the same condition.
TEST(CondTest, BroadcastWakesEveryWaiterOfTheMomentAndNoLaterOne)
{
    Cond c;
    Cond alias;
    alias = c;
    const int n = 5;
    std::vector<HANDLE> threads;
    std::vector<int> results(n, -1);
    for (int i = 0; i < n; ++i) {
        threads.push_back(tstest::StartBlockedThread([&, i] {
            results[i] = (i % 2 ? c : alias).timedwait(kWaitBound / 1000, 0);
            return 0u;
        }));
    }
    EXPECT_EQ(alias.broadcast(), 1);
    for (HANDLE h : threads)
        EXPECT_TRUE(tstest::Joined(h));
    for (int r : results)
        EXPECT_EQ(r, 0);
    EXPECT_EQ(c.timedwait(0, 50000000), static_cast<int>(WAIT_TIMEOUT));
}

// Signals that cross short time-outs: every wait ends as woken or timed
// out, and once the storm is over nothing of it is left for a new waiter.
TEST(CondTest, SignalsCrossingTimeOutsLeaveNothingBehind)
{
    Cond c;
    const int waiters = 3, waitsEach = 1500;
    std::atomic<int> running{waiters}, odd{0}, woken{0};
    std::vector<HANDLE> threads;
    for (int t = 0; t < waiters; ++t)
        threads.push_back(tstest::StartThread([&] {
            for (int i = 0; i < waitsEach; ++i) {
                int r = c.timedwait(0, 1000000);
                if (r == 0)
                    ++woken;
                else if (r != static_cast<int>(WAIT_TIMEOUT))
                    ++odd;
            }
            --running;
            return 0u;
        }));
    // The waiters' own time-outs end them; the storm lasts until they have.
    auto start = std::chrono::steady_clock::now();
    while (running > 0 && tstest::MsSince(start) < tstest::kWaitBound) {
        c.signal();
        if (running % 2)
            c.broadcast();
    }
    EXPECT_EQ(running.load(), 0) << "the waiters did not end";
    for (HANDLE h : threads)
        EXPECT_TRUE(tstest::Joined(h));
    EXPECT_EQ(odd.load(), 0);
    EXPECT_GT(woken.load(), 0);
    EXPECT_EQ(c.timedwait(0, 20000000), static_cast<int>(WAIT_TIMEOUT));
    EXPECT_EQ(c.timedwait(0, 20000000), static_cast<int>(WAIT_TIMEOUT));
}
