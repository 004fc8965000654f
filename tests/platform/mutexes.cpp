// Mutexes: ownership, recursion, release by a stranger, abandonment.
#include "TestSupport.h"

TEST(Mutexes, RecursiveOwnershipNeedsAsManyReleases)
{
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    auto tryFromAnotherThread = [m] {
        return tstest::RunOnOtherThread([m] { return static_cast<unsigned>(WaitForSingleObject(m, 0)); });
    };
    EXPECT_EQ(tryFromAnotherThread(), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_EQ(tryFromAnotherThread(), static_cast<DWORD>(WAIT_TIMEOUT)) << "still held once";

    EXPECT_TRUE(ReleaseMutex(m));
    SetLastError(0);
    EXPECT_EQ(tstest::ErrorOf(ReleaseMutex(m)), static_cast<DWORD>(ERROR_NOT_OWNER));
    CloseHandle(m);
}

TEST(Mutexes, InitialOwnerAndReleaseByAnotherThread)
{
    HANDLE m = CreateMutexA(nullptr, TRUE, nullptr);
    // A failed release gives the thread's last error.
    EXPECT_EQ(tstest::RunOnOtherThread([m] { return ReleaseMutex(m) ? 0u : static_cast<unsigned>(GetLastError()); }),
              static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_TRUE(ReleaseMutex(m));
    CloseHandle(m);
}

TEST(Mutexes, OwnerEndingWhileHoldingAbandonsItOnce)
{
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    HANDLE t = tstest::StartThread([m] {
        WaitForSingleObject(m, 0);
        WaitForSingleObject(m, 0); // held twice
        return 0u;
    });
    ASSERT_EQ(WaitForSingleObject(t, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(m, tstest::kWaitBound), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(m)); // the new owner holds it once
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(m));
    CloseHandle(t);
    CloseHandle(m);
}

TEST(Mutexes, AbandonmentWakesABlockedWaiterWithItsIndex)
{
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    HANDLE e = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE holding = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE finish = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE owner = tstest::StartThread([&] {
        WaitForSingleObject(m, 0);
        SetEvent(holding);
        WaitForSingleObject(finish, tstest::kWaitBound);
        return 0u;
    });
    ASSERT_EQ(WaitForSingleObject(holding, tstest::kWaitBound), WAIT_OBJECT_0);
    DWORD result = 0;
    HANDLE waiter = tstest::StartThread([&] {
        HANDLE both[2] = {e, m};
        result = WaitForMultipleObjects(2, both, FALSE, tstest::kWaitBound);
        if (result == WAIT_ABANDONED_0 + 1)
            ReleaseMutex(m);
        return 0u;
    });
    SetEvent(finish);
    ASSERT_EQ(WaitForSingleObject(waiter, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(result, WAIT_ABANDONED_0 + 1);
    for (HANDLE h : {owner, waiter, m, e, holding, finish})
        CloseHandle(h);
}

// A mutex handed to a blocked wait for all belongs to the waiting thread
// as much as one it took at once: both are abandoned when it ends.
TEST(Mutexes, MutexesTakenInAWaitForAllAreAbandonedWithTheirThread)
{
    HANDLE both[2] = {CreateMutexA(nullptr, FALSE, nullptr), CreateMutexA(nullptr, TRUE, nullptr)};
    DWORD taken = WAIT_FAILED;
    HANDLE t = tstest::StartBlockedThread([&] {
        taken = WaitForMultipleObjects(2, both, TRUE, tstest::kWaitBound);
        return 0u;
    });
    EXPECT_TRUE(ReleaseMutex(both[1])); // hands it to the wait
    ASSERT_EQ(WaitForSingleObject(t, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(taken, WAIT_OBJECT_0);

    DWORD r = WaitForMultipleObjects(2, both, TRUE, tstest::kWaitBound);
    EXPECT_TRUE(r == WAIT_ABANDONED_0 || r == WAIT_ABANDONED_0 + 1) << r;
    for (HANDLE m : both) {
        EXPECT_TRUE(ReleaseMutex(m));
        EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0) << "abandoned once only";
        EXPECT_TRUE(ReleaseMutex(m));
        CloseHandle(m);
    }
    CloseHandle(t);
}

// A thread may close the last handle of a mutex it owns, and release
// others before it ends; its end abandons only what it still owns.
TEST(Mutexes, ThreadEndAbandonsOnlyWhatItStillOwns)
{
    HANDLE kept = CreateMutexA(nullptr, FALSE, nullptr);
    HANDLE released = CreateMutexA(nullptr, FALSE, nullptr);
    HANDLE t = tstest::StartThread([&] {
        HANDLE gone = CreateMutexA(nullptr, TRUE, nullptr);
        CloseHandle(gone);
        WaitForSingleObject(released, 0);
        WaitForSingleObject(kept, 0);
        ReleaseMutex(released);
        return 0u;
    });
    ASSERT_EQ(WaitForSingleObject(t, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(released, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(kept, 0), WAIT_ABANDONED);
    for (HANDLE h : {kept, released}) {
        ReleaseMutex(h);
        CloseHandle(h);
    }
    CloseHandle(t);
}

TEST(Mutexes, ContendedMutexKeepsACounterExact)
{
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    long counter = 0;
    HANDLE threads[4];
    for (HANDLE &t : threads)
        t = tstest::StartThread([&] {
            for (int i = 0; i < 2000; ++i) {
                WaitForSingleObject(m, INFINITE);
                ++counter;
                ReleaseMutex(m);
            }
            return 0u;
        });
    EXPECT_EQ(WaitForMultipleObjects(4, threads, TRUE, 60000), WAIT_OBJECT_0);
    EXPECT_EQ(counter, 8000);
    for (HANDLE t : threads)
        CloseHandle(t);
    CloseHandle(m);
}

// A release that meets a wait running out of time hands the mutex over
// exactly once: the wait either has it (a single wait, one for any with an
// unsignalled event before it, one for all with a set event beside it) or
// ended without it, and in both cases the mutex is free again afterwards.
TEST(Mutexes, HandOffAtTheMomentAWaitTimesOutIsNeverLost)
{
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    HANDLE idle = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE set = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    struct Kind {
        DWORD count;
        HANDLE handles[2];
        BOOL all;
        DWORD got; // the result when the mutex was handed over
    } kinds[] = {
        {1, {m}, FALSE, WAIT_OBJECT_0}, {2, {idle, m}, FALSE, WAIT_OBJECT_0 + 1}, {2, {m, set}, TRUE, WAIT_OBJECT_0}};
    for (const Kind &k : kinds) {
        int handed = 0, missed = 0;
        for (int i = 0; i < 200; ++i) {
            ASSERT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
            HANDLE t = tstest::StartThread([&k, m] {
                DWORD r = WaitForMultipleObjects(k.count, k.handles, k.all, 1);
                BOOL owned = ReleaseMutex(m);
                return r == k.got && owned ? 1u : r == WAIT_TIMEOUT && !owned ? 0u : 2u;
            });
            for (volatile int spin = 0; spin < (i % 8) * 300; ++spin) {
            }
            Sleep(i % 2);
            ASSERT_TRUE(ReleaseMutex(m));
            ASSERT_EQ(WaitForSingleObject(t, 10000), WAIT_OBJECT_0);
            DWORD code = 2;
            GetExitCodeThread(t, &code);
            CloseHandle(t);
            ASSERT_LT(code, 2u) << "iteration " << i << " of a wait on " << k.count;
            (code ? handed : missed)++;
            // Neither held nor abandoned.
            EXPECT_EQ(tstest::RunOnOtherThread([m] {
                          DWORD r = WaitForSingleObject(m, 0);
                          ReleaseMutex(m);
                          return static_cast<unsigned>(r);
                      }),
                      WAIT_OBJECT_0);
        }
        EXPECT_GT(handed, 0);
    }
    for (HANDLE h : {m, idle, set})
        CloseHandle(h);
}
