// Threads: start, suspension counts, exit codes, ids, priorities,
// affinity, thread local storage and the last error.
#include "TestSupport.h"

#include <process.h>

#include <atomic>

namespace {

std::atomic<long> plainRuns{0};
void __cdecl plainThread(void *event)
{
    ++plainRuns;
    SetEvent(static_cast<HANDLE>(event));
}

unsigned __stdcall endsEarly(void *)
{
    _endthreadex(42);
    return 1; // never reached
}

} // namespace

TEST(Threads, SuspendedStartRunsNothingUntilResumed)
{
    std::atomic<bool> ran{false};
    HANDLE t = tstest::StartThread([&] {
        ran = true;
        return 5u;
    }, true);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(WaitForSingleObject(t, 100), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_FALSE(ran);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(t, &code));
    EXPECT_EQ(code, static_cast<DWORD>(STILL_ACTIVE));
    EXPECT_EQ(SuspendThread(t), 1u); // counts on top of the start suspension
    EXPECT_EQ(ResumeThread(t), 2u);
    EXPECT_FALSE(ran);
    EXPECT_EQ(ResumeThread(t), 1u);
    ASSERT_EQ(WaitForSingleObject(t, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_TRUE(ran);
    EXPECT_TRUE(GetExitCodeThread(t, &code));
    EXPECT_EQ(code, 5u);
    EXPECT_EQ(ResumeThread(t), 0u); // not suspended: nothing happens
    CloseHandle(t);
}

TEST(Threads, SuspendingARunningThreadStopsItUntilTheCountIsZero)
{
    std::atomic<long> ticks{0};
    std::atomic<bool> stop{false};
    HANDLE t = tstest::StartThread([&] {
        while (!stop) {
            ++ticks;
            Sleep(0);
        }
        return 0u;
    });
    ASSERT_TRUE(tstest::Eventually([&] { return ticks >= 10; })) << "the thread does not run";
    EXPECT_EQ(SuspendThread(t), 0u);
    EXPECT_EQ(SuspendThread(t), 1u);
    long frozen = ticks;
    EXPECT_EQ(WaitForSingleObject(t, 50), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(ticks, frozen);
    EXPECT_EQ(ResumeThread(t), 2u);
    EXPECT_EQ(ticks, frozen);
    EXPECT_EQ(ResumeThread(t), 1u);
    EXPECT_TRUE(tstest::Eventually([&] { return ticks > frozen; })) << "the thread did not go on";
    stop = true;
    EXPECT_TRUE(tstest::Joined(t));
}

TEST(Threads, SuspendCountHasAMaximum)
{
    HANDLE t = tstest::StartThread([] { return 0u; }, true);
    DWORD n = 1;
    while (n < MAXIMUM_SUSPEND_COUNT)
        ASSERT_EQ(SuspendThread(t), n++);
    SetLastError(0);
    EXPECT_EQ(SuspendThread(t), static_cast<DWORD>(-1));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SIGNAL_REFUSED));
    while (n > 0)
        ASSERT_EQ(ResumeThread(t), n--);
    EXPECT_TRUE(tstest::Joined(t));
}

TEST(Threads, BeginThreadClosesItsOwnHandleAndEndThreadExSetsTheCode)
{
    HANDLE done = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    uintptr_t h = _beginthread(plainThread, 0, done);
    ASSERT_NE(h, static_cast<uintptr_t>(-1));
    EXPECT_EQ(WaitForSingleObject(done, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(plainRuns, 1);
    EXPECT_EQ(_beginthread(nullptr, 0, nullptr), static_cast<uintptr_t>(-1));
    CloseHandle(done);

    unsigned id = 0;
    HANDLE t = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, endsEarly, nullptr, 0, &id));
    ASSERT_NE(t, nullptr);
    EXPECT_NE(id, 0u);
    EXPECT_EQ(GetThreadId(t), id);
    EXPECT_EQ(tstest::ThreadResult(t), 42u);
}

TEST(Threads, IdsPrioritiesAndAffinity)
{
    DWORD mine = GetCurrentThreadId();
    DWORD other = 0;
    HANDLE t = tstest::StartThread([&] {
        other = GetCurrentThreadId();
        return 0u;
    });
    ASSERT_EQ(WaitForSingleObject(t, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_NE(other, mine);
    EXPECT_EQ(GetThreadId(t), other) << "the handle of an ended thread still tells its id";
    CloseHandle(t);
    EXPECT_EQ(GetCurrentProcessId(), static_cast<DWORD>(_getpid()));

    EXPECT_EQ(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_NORMAL);
    EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL));
    EXPECT_EQ(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_BELOW_NORMAL);
    SetLastError(0);
    EXPECT_EQ(tstest::ErrorOf(SetThreadPriority(GetCurrentThread(), 1000)),
              static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_NORMAL);
    EXPECT_EQ(GetThreadPriority(nullptr), THREAD_PRIORITY_ERROR_RETURN);

    DWORD_PTR process = 0, system = 0;
    ASSERT_TRUE(GetProcessAffinityMask(GetCurrentProcess(), &process, &system));
    EXPECT_NE(process, 0u);
    EXPECT_EQ(process & ~system, 0u);
    DWORD_PTR lowest = process & (~process + 1);
    DWORD_PTR previous = SetThreadAffinityMask(GetCurrentThread(), lowest);
    EXPECT_NE(previous, 0u);
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), process), lowest);
    SetLastError(0);
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), 0), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));

    SYSTEM_INFO info;
    GetSystemInfo(&info);
    EXPECT_GE(info.dwNumberOfProcessors, 1u);
    EXPECT_GE(info.dwPageSize, 4096u);
}

TEST(Threads, OwnProcessOpensAndOthersDoNot)
{
    HANDLE p = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, GetCurrentProcessId());
    ASSERT_NE(p, nullptr);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(p, &code));
    EXPECT_EQ(code, static_cast<DWORD>(STILL_ACTIVE));
    EXPECT_EQ(WaitForSingleObject(p, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(CloseHandle(p));
    SetLastError(0);
    EXPECT_EQ(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, 0), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST(Threads, ThreadLocalStorageAndLastErrorArePerThread)
{
    DWORD index = TlsAlloc();
    ASSERT_NE(index, TLS_OUT_OF_INDEXES);
    int mine = 1, theirs = 2;
    EXPECT_TRUE(TlsSetValue(index, &mine));
    SetLastError(1234);
    void *seenThere = &mine;
    DWORD errorThere = 0;
    ASSERT_TRUE(tstest::Joined(tstest::StartThread([&] {
        seenThere = TlsGetValue(index);
        TlsSetValue(index, &theirs);
        errorThere = GetLastError();
        SetLastError(99);
        return 0u;
    })));
    EXPECT_EQ(seenThere, nullptr);
    EXPECT_EQ(errorThere, 0u);
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(TlsGetValue(index), &mine);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS)); // a successful get clears it

    EXPECT_TRUE(TlsFree(index));
    SetLastError(0);
    EXPECT_EQ(tstest::ErrorOf(TlsFree(index)), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    DWORD again = TlsAlloc();
    if (again == index) {
        EXPECT_EQ(TlsGetValue(again), nullptr) << "a freed index starts empty again";
    }
    TlsFree(again);
}

TEST(Threads, SleepZeroYieldsAndSleepWaitsAtLeastItsTime)
{
    Sleep(0);
    LARGE_INTEGER freq, start, end;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&start);
    Sleep(30);
    QueryPerformanceCounter(&end);
    EXPECT_GE((end.QuadPart - start.QuadPart) * 1000.0 / freq.QuadPart, 29.0);
}
