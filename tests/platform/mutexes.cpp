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
