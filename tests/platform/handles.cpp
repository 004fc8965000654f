// The handle table: closing, duplicating, bogus handles, counts.
#include "TestSupport.h"

#include <vector>

TEST(Handles, BogusAndClosedHandlesFailWithInvalidHandle)
{
    HANDLE e = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(e, nullptr);
    EXPECT_TRUE(CloseHandle(e));

    for (HANDLE h : {e, static_cast<HANDLE>(nullptr), reinterpret_cast<HANDLE>(0x12345678),
                     reinterpret_cast<HANDLE>(0x7FFFFFFC), reinterpret_cast<HANDLE>(3)}) {
        SetLastError(0);
        EXPECT_EQ(tstest::ErrorOf(CloseHandle(h)), static_cast<DWORD>(ERROR_INVALID_HANDLE)) << h;
        SetLastError(0);
        EXPECT_EQ(tstest::ErrorOf(SetEvent(h)), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(h, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    // Pseudo handles close without effect.
    EXPECT_TRUE(CloseHandle(GetCurrentProcess()));
    EXPECT_TRUE(CloseHandle(GetCurrentThread()));
}

TEST(Handles, WrongKindOfObjectIsAnInvalidHandle)
{
    HANDLE m = CreateMutexA(nullptr, FALSE, nullptr);
    SetLastError(0);
    EXPECT_EQ(tstest::ErrorOf(SetEvent(m)), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    HANDLE e = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    SetLastError(0);
    EXPECT_EQ(tstest::ErrorOf(ReleaseMutex(e)), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    CloseHandle(m);
    CloseHandle(e);
}

TEST(Handles, DuplicatesShareTheObjectWhichLivesUntilTheLastClose)
{
    HANDLE e = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE dup = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), e, GetCurrentProcess(), &dup, 0, FALSE,
                                DUPLICATE_SAME_ACCESS));
    EXPECT_NE(dup, e);
    EXPECT_TRUE(CloseHandle(e));
    EXPECT_TRUE(SetEvent(dup));
    EXPECT_EQ(WaitForSingleObject(dup, 0), WAIT_OBJECT_0);

    HANDLE moved = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), dup, GetCurrentProcess(), &moved, 0, FALSE,
                                DUPLICATE_SAME_ACCESS | DUPLICATE_CLOSE_SOURCE));
    EXPECT_EQ(WaitForSingleObject(moved, 0), WAIT_OBJECT_0);
    if (moved != dup) { // the value of the closed source may be the new one's
        EXPECT_FALSE(CloseHandle(dup));
    }
    EXPECT_TRUE(CloseHandle(moved));
}

TEST(Handles, CurrentThreadPseudoHandleDuplicatesToARealWaitableHandle)
{
    HANDLE real = nullptr;
    HANDLE started = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE t = tstest::StartThread([&] {
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &real, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        SetEvent(started);
        WaitForSingleObject(go, tstest::kWaitBound);
        return 7u;
    });
    ASSERT_EQ(WaitForSingleObject(started, tstest::kWaitBound), WAIT_OBJECT_0);
    ASSERT_NE(real, nullptr);
    EXPECT_NE(real, GetCurrentThread());
    EXPECT_EQ(WaitForSingleObject(real, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    SetEvent(go);
    EXPECT_EQ(WaitForSingleObject(real, tstest::kWaitBound), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(real, &code));
    EXPECT_EQ(code, 7u);
    for (HANDLE h : {real, t, started, go})
        CloseHandle(h);
}

TEST(Handles, CountReturnsToWhereItWasAfterManyOpensAndCloses)
{
    DWORD before = 0, after = 0;
    ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &before));
    for (int i = 0; i < 20000; ++i) {
        HANDLE e = CreateEventA(nullptr, i & 1, FALSE, nullptr);
        ASSERT_NE(e, nullptr);
        ASSERT_TRUE(CloseHandle(e));
    }
    // Many held at once, across the table's growth: each names its own event.
    std::vector<HANDLE> held;
    for (int i = 0; i < 3000; ++i) {
        held.push_back(CreateEventA(nullptr, TRUE, FALSE, nullptr));
        ASSERT_NE(held.back(), nullptr);
    }
    for (size_t i = 0; i < held.size(); i += 3)
        ASSERT_TRUE(SetEvent(held[i]));
    for (size_t i = 0; i < held.size(); ++i)
        ASSERT_EQ(WaitForSingleObject(held[i], 0), i % 3 == 0 ? WAIT_OBJECT_0 : static_cast<DWORD>(WAIT_TIMEOUT)) << i;
    for (HANDLE h : held)
        ASSERT_TRUE(CloseHandle(h));
    ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &after));
    EXPECT_EQ(before, after);
}

TEST(Handles, CloseWhileAnotherThreadWaitsKeepsTheObjectAlive)
{
    HANDLE e = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    HANDLE keep = nullptr;
    DuplicateHandle(GetCurrentProcess(), e, GetCurrentProcess(), &keep, 0, FALSE, DUPLICATE_SAME_ACCESS);
    DWORD result = 0;
    HANDLE t = tstest::StartBlockedThread([&] {
        result = WaitForSingleObject(e, tstest::kWaitBound);
        return 0u;
    });
    EXPECT_TRUE(CloseHandle(e));
    EXPECT_TRUE(SetEvent(keep));
    ASSERT_EQ(WaitForSingleObject(t, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(result, WAIT_OBJECT_0);
    CloseHandle(t);
    CloseHandle(keep);
}
