// WaitForMultipleObjects: wait-any, wait-all, limits and thread handles.
#include "TestSupport.h"

#include <atomic>
#include <vector>

namespace {

std::vector<HANDLE> makeEvents(int n, BOOL manual, BOOL set)
{
    std::vector<HANDLE> v;
    for (int i = 0; i < n; ++i)
        v.push_back(CreateEventA(nullptr, manual, set, nullptr));
    return v;
}

void closeAll(const std::vector<HANDLE> &v)
{
    for (HANDLE h : v)
        CloseHandle(h);
}

DWORD poll(HANDLE h) { return WaitForSingleObject(h, 0); }

} // namespace

TEST(Waits, BadCountsAndHandlesFail)
{
    std::vector<HANDLE> ev = makeEvents(65, TRUE, TRUE);
    for (DWORD n : {0u, 65u}) {
        SetLastError(0);
        EXPECT_EQ(WaitForMultipleObjects(n, ev.data(), FALSE, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    EXPECT_EQ(WaitForMultipleObjects(64, ev.data(), TRUE, 0), WAIT_OBJECT_0);
    HANDLE withBad[2] = {ev[0], reinterpret_cast<HANDLE>(0x4444)};
    SetLastError(0);
    EXPECT_EQ(WaitForMultipleObjects(2, withBad, FALSE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    closeAll(ev);
}

TEST(Waits, WaitAnyGivesTheLowestSignalledIndexAndConsumesOnlyIt)
{
    std::vector<HANDLE> ev = makeEvents(5, FALSE, FALSE);
    SetEvent(ev[3]);
    SetEvent(ev[1]);
    SetEvent(ev[4]);
    EXPECT_EQ(WaitForMultipleObjects(5, ev.data(), FALSE, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(poll(ev[3]), WAIT_OBJECT_0) << "an object that was not chosen was consumed";
    EXPECT_EQ(WaitForMultipleObjects(5, ev.data(), FALSE, 0), WAIT_OBJECT_0 + 4);
    EXPECT_EQ(WaitForMultipleObjects(5, ev.data(), FALSE, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    closeAll(ev);
}

TEST(Waits, WaitAnyOfABlockedThreadReportsTheObjectThatWasSet)
{
    std::vector<HANDLE> ev = makeEvents(64, FALSE, FALSE);
    for (int target : {63, 0, 17}) {
        HANDLE t = tstest::StartBlockedThread([&] {
            return static_cast<unsigned>(WaitForMultipleObjects(64, ev.data(), FALSE, tstest::kWaitBound));
        });
        SetEvent(ev[target]);
        EXPECT_EQ(tstest::ThreadResult(t), WAIT_OBJECT_0 + target);
        EXPECT_EQ(poll(ev[target]), static_cast<DWORD>(WAIT_TIMEOUT)) << "the wake consumed the event";
    }
    closeAll(ev);
}

TEST(Waits, WaitAllTakesEverythingAtOnceOrNothing)
{
    std::vector<HANDLE> ev = makeEvents(3, FALSE, FALSE);
    SetEvent(ev[0]);
    SetEvent(ev[2]);
    EXPECT_EQ(WaitForMultipleObjects(3, ev.data(), TRUE, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(poll(ev[0]), WAIT_OBJECT_0) << "a failed wait-all consumed an object";
    SetEvent(ev[0]);
    SetEvent(ev[1]);
    EXPECT_EQ(WaitForMultipleObjects(3, ev.data(), TRUE, 0), WAIT_OBJECT_0);
    for (HANDLE h : ev)
        EXPECT_EQ(poll(h), static_cast<DWORD>(WAIT_TIMEOUT));
    closeAll(ev);
}

TEST(Waits, WaitAllWithAnObjectTwiceIsRefused)
{
    TS_SKIP_ON_WINE("Wine accepts the same object twice in a wait for all");
    HANDLE e = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    HANDLE twice[2] = {e, e};
    SetLastError(0);
    EXPECT_EQ(WaitForMultipleObjects(2, twice, TRUE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    CloseHandle(e);
}

TEST(Waits, BlockedWaitAllWinsOnlyWhenTheLastObjectArrives)
{
    std::vector<HANDLE> ev = makeEvents(2, FALSE, FALSE);
    HANDLE m = CreateMutexA(nullptr, TRUE, nullptr);
    HANDLE t = tstest::StartBlockedThread([&] {
        HANDLE all[3] = {ev[0], m, ev[1]};
        DWORD r = WaitForMultipleObjects(3, all, TRUE, tstest::kWaitBound);
        if (r == WAIT_OBJECT_0)
            ReleaseMutex(m);
        return static_cast<unsigned>(r);
    });
    SetEvent(ev[0]);
    SetEvent(ev[1]);
    EXPECT_EQ(poll(t), static_cast<DWORD>(WAIT_TIMEOUT)) << "woke while the mutex was held";
    ReleaseMutex(m);
    EXPECT_EQ(tstest::ThreadResult(t), WAIT_OBJECT_0);
    EXPECT_EQ(poll(ev[0]), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(poll(ev[1]), static_cast<DWORD>(WAIT_TIMEOUT));
    CloseHandle(m);
    closeAll(ev);
}

TEST(Waits, WaitAllAgainstACompetingWaitAnyLosesNothing)
{
    // One thread waits for both events at once, another for either; every
    // pair of sets is taken whole by the first or piecewise by the second,
    // and no object is consumed twice or lost.
    std::vector<HANDLE> ev = makeEvents(2, FALSE, FALSE);
    std::atomic<bool> stop{false};
    std::atomic<long> allWins{0}, anyWins{0};
    HANDLE all = tstest::StartThread([&] {
        while (!stop)
            if (WaitForMultipleObjects(2, ev.data(), TRUE, 20) == WAIT_OBJECT_0)
                allWins += 2;
        return 0u;
    });
    HANDLE any = tstest::StartThread([&] {
        while (!stop)
            if (WaitForMultipleObjects(2, ev.data(), FALSE, 20) < WAIT_OBJECT_0 + 2)
                anyWins += 1;
        return 0u;
    });
    const long rounds = 1000;
    for (long i = 1; i <= rounds; ++i) {
        SetEvent(ev[0]);
        SetEvent(ev[1]);
        // Both must be taken before the next sets: a set of a set event
        // would be lost and the count could not tell.
        DWORD start = GetTickCount();
        while (allWins + anyWins < 2 * i && GetTickCount() - start < tstest::kWaitBound)
            Sleep(0);
        if (allWins + anyWins != 2 * i)
            break;
    }
    stop = true;
    HANDLE both[2] = {all, any};
    ASSERT_EQ(WaitForMultipleObjects(2, both, TRUE, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(allWins + anyWins, 2 * rounds);
    CloseHandle(all);
    CloseHandle(any);
    closeAll(ev);
}

TEST(Waits, CircularWaitAllsDoNotDeadlock)
{
    std::vector<HANDLE> ev = makeEvents(3, FALSE, TRUE);
    std::atomic<long> done{0};
    auto worker = [&](std::vector<int> order) {
        return [&, order] {
            HANDLE hs[3] = {ev[order[0]], ev[order[1]], ev[order[2]]};
            for (int i = 0; i < 3000; ++i) {
                if (WaitForMultipleObjects(3, hs, TRUE, tstest::kWaitBound) != WAIT_OBJECT_0)
                    return 1u;
                for (HANDLE h : hs)
                    SetEvent(h);
            }
            ++done;
            return 0u;
        };
    };
    HANDLE t[3] = {tstest::StartThread(worker({0, 1, 2})), tstest::StartThread(worker({1, 2, 0})),
                   tstest::StartThread(worker({2, 0, 1}))};
    ASSERT_EQ(WaitForMultipleObjects(3, t, TRUE, 60000), WAIT_OBJECT_0);
    EXPECT_EQ(done, 3);
    for (HANDLE h : t)
        CloseHandle(h);
    closeAll(ev);
}

TEST(Waits, ABlockedWaitOnSixtyFourHandlesUsesNoCpu)
{
    std::vector<HANDLE> ev = makeEvents(64, FALSE, FALSE);
    HANDLE t = tstest::StartBlockedThread(
        [&] { return static_cast<unsigned>(WaitForMultipleObjects(64, ev.data(), FALSE, 400)); });
    double before = tstest::ProcessCpuMs();
    EXPECT_EQ(tstest::ThreadResult(t), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_LT(tstest::ProcessCpuMs() - before, 100.0);
    closeAll(ev);
}

TEST(Waits, ThreadHandleIsSignalledWhenTheThreadEnds)
{
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE t = tstest::StartThread([go] {
        WaitForSingleObject(go, tstest::kWaitBound);
        return 3u;
    });
    EXPECT_EQ(poll(t), static_cast<DWORD>(WAIT_TIMEOUT));
    HANDLE either[2] = {go, t};
    SetEvent(go);
    EXPECT_EQ(WaitForMultipleObjects(2, either, FALSE, 0), WAIT_OBJECT_0); // the lower index
    EXPECT_EQ(WaitForSingleObject(t, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(poll(t), WAIT_OBJECT_0); // and stays signalled
    CloseHandle(t);
    CloseHandle(go);
}
