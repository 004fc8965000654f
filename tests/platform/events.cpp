// Events: manual and auto reset, set, reset and pulse.
#include "TestSupport.h"

#include <atomic>
#include <string>
#include <vector>

namespace {

// Threads blocked in WaitForSingleObject on one event, counting wake-ups.
class Sleepers {
public:
    Sleepers(HANDLE event, int n) : woke_(CreateEventA(nullptr, FALSE, FALSE, nullptr))
    {
        for (int i = 0; i < n; ++i)
            threads_.push_back(tstest::StartBlockedThread([this, event] {
                DWORD r = WaitForSingleObject(event, tstest::kWaitBound);
                if (r == WAIT_OBJECT_0) {
                    count_.fetch_add(1);
                    SetEvent(woke_);
                }
                return static_cast<unsigned>(r);
            }));
    }
    ~Sleepers()
    {
        for (HANDLE t : threads_) {
            WaitForSingleObject(t, tstest::kWaitBound);
            CloseHandle(t);
        }
        CloseHandle(woke_);
    }
    int count() const { return count_.load(); }
    // Waits for the next wake-up, or gives false after ms.
    bool nextWake(DWORD ms)
    {
        DWORD start = GetTickCount();
        for (;;) {
            if (count_ > seen_) {
                ++seen_;
                return true;
            }
            DWORD elapsed = GetTickCount() - start;
            if (elapsed >= ms)
                return false;
            WaitForSingleObject(woke_, ms - elapsed);
        }
    }

private:
    HANDLE woke_;
    std::vector<HANDLE> threads_;
    std::atomic<int> count_{0};
    int seen_ = 0;
};

} // namespace

TEST(Events, InitialStateAndManualVersusAutoReset)
{
    HANDLE manual = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    HANDLE autoReset = CreateEventA(nullptr, FALSE, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_OBJECT_0); // stays set
    EXPECT_EQ(WaitForSingleObject(autoReset, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(autoReset, 0), static_cast<DWORD>(WAIT_TIMEOUT)); // consumed
    EXPECT_TRUE(ResetEvent(manual));
    EXPECT_EQ(WaitForSingleObject(manual, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(SetEvent(autoReset));
    EXPECT_TRUE(SetEvent(autoReset)); // a second set is not counted
    EXPECT_EQ(WaitForSingleObject(autoReset, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(autoReset, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    CloseHandle(manual);
    CloseHandle(autoReset);
}

TEST(Events, TimedWaitOnAnUnsetEventTimesOut)
{
    HANDLE e = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    DWORD start = GetTickCount();
    EXPECT_EQ(WaitForSingleObject(e, 50), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_GE(GetTickCount() - start, 40u);
    CloseHandle(e);
}

TEST(Events, PulseWithNobodyWaitingIsForgotten)
{
    for (BOOL manual : {FALSE, TRUE}) {
        HANDLE e = CreateEventA(nullptr, manual, FALSE, nullptr);
        EXPECT_TRUE(PulseEvent(e));
        EXPECT_EQ(WaitForSingleObject(e, 0), static_cast<DWORD>(WAIT_TIMEOUT));
        // A pulse also resets a set event.
        SetEvent(e);
        EXPECT_TRUE(PulseEvent(e));
        EXPECT_EQ(WaitForSingleObject(e, 0), static_cast<DWORD>(WAIT_TIMEOUT));
        CloseHandle(e);
    }
}

// Blocked threads released by pulses or sets: an auto-reset event lets one
// thread go for each, a manual one all of them; afterwards only a set
// manual event is still set.
TEST(Events, PulseAndSetReleaseOneBlockedThreadOrAll)
{
    const struct {
        BOOL manual;
        bool pulse;
        int sleepers, perAction;
    } cases[] = {
        {FALSE, true, 3, 1},
        {TRUE, true, 4, 4},
        {FALSE, false, 2, 1},
        {TRUE, false, 3, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.manual ? "manual " : "auto-reset ") + (c.pulse ? "pulse" : "set"));
        HANDLE e = CreateEventA(nullptr, c.manual, FALSE, nullptr);
        {
            Sleepers sleepers(e, c.sleepers);
            for (int released = c.perAction; released <= c.sleepers; released += c.perAction) {
                EXPECT_TRUE(c.pulse ? PulseEvent(e) : SetEvent(e));
                for (int i = 0; i < c.perAction; ++i)
                    ASSERT_TRUE(sleepers.nextWake(tstest::kWaitBound)) << i;
                if (released < c.sleepers) {
                    EXPECT_FALSE(sleepers.nextWake(100)) << "more threads went than the event lets go";
                }
                EXPECT_EQ(sleepers.count(), released);
                EXPECT_EQ(WaitForSingleObject(e, 0),
                          c.manual && !c.pulse ? WAIT_OBJECT_0 : static_cast<DWORD>(WAIT_TIMEOUT));
            }
        }
        CloseHandle(e);
    }
}

TEST(Events, PulseRacingARegisteringWaiterIsNeverRemembered)
{
    // Each pulse either reaches the thread or falls before its wait and is
    // gone; pulses go on until one reaches it, and none is left behind.
    HANDLE e = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    for (int round = 0; round < 100; ++round) {
        HANDLE t = tstest::StartThread([e] { return static_cast<unsigned>(WaitForSingleObject(e, tstest::kWaitBound)); });
        DWORD start = GetTickCount();
        do
            PulseEvent(e);
        while (WaitForSingleObject(t, 1) != WAIT_OBJECT_0 && GetTickCount() - start < tstest::kWaitBound);
        DWORD code = 0;
        GetExitCodeThread(t, &code);
        EXPECT_EQ(code, WAIT_OBJECT_0) << "round " << round;
        CloseHandle(t);
        ASSERT_EQ(WaitForSingleObject(e, 0), static_cast<DWORD>(WAIT_TIMEOUT)) << "round " << round;
    }
    CloseHandle(e);
}

TEST(Events, NamedEventsAreRefusedOnPosix)
{
    TS_SKIP_ON_WINE("Windows has a namespace of named objects shared between processes");
    SetLastError(0);
    EXPECT_EQ(CreateEventA(nullptr, TRUE, FALSE, "Global\\Something"), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_SUPPORTED));
}
