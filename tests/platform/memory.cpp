// Global and heap memory, and critical sections.
#include "TestSupport.h"

#include <cstring>

TEST(Memory, GlobalAllocZeroFillsAndFreeGivesNull)
{
    unsigned char *p = static_cast<unsigned char *>(GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, 300));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(p[i], 0) << i;
    EXPECT_GE(GlobalSize(p), 300u);
    EXPECT_EQ(GlobalFree(p), nullptr);
    EXPECT_EQ(GlobalFree(nullptr), nullptr);
}

TEST(Memory, ProcessHeapAllocReAllocAndFree)
{
    HANDLE heap = GetProcessHeap();
    ASSERT_NE(heap, nullptr);
    char *p = static_cast<char *>(HeapAlloc(heap, HEAP_ZERO_MEMORY, 16));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p[15], 0);
    memcpy(p, "0123456789abcde", 16);
    EXPECT_EQ(HeapSize(heap, 0, p), 16u);
    p = static_cast<char *>(HeapReAlloc(heap, HEAP_ZERO_MEMORY, p, 4096));
    ASSERT_NE(p, nullptr);
    EXPECT_STREQ(p, "0123456789abcde");
    EXPECT_EQ(p[4095], 0) << "grown part is zeroed";
    EXPECT_EQ(HeapSize(heap, 0, p), 4096u);
    char *same = static_cast<char *>(HeapReAlloc(heap, HEAP_REALLOC_IN_PLACE_ONLY, p, 8));
    EXPECT_EQ(same, p);
    EXPECT_TRUE(HeapFree(heap, 0, p));
    EXPECT_TRUE(HeapFree(heap, 0, nullptr));
}

// Leaving a section that another thread holds is a bug of the caller:
// reported, and fatal in a debug build; a release build leaves the hold
// alone.
TEST(CriticalSections, LeaveByAThreadThatDoesNotOwnItIsReported)
{
    TS_SKIP_ON_WINE("Windows does not check who leaves a section");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    EnterCriticalSection(&cs);
    auto leaveFromAnotherThread = [&] {
        tstest::RunOnOtherThread([&] {
            LeaveCriticalSection(&cs);
            return 0u;
        });
    };
#ifndef NDEBUG
    EXPECT_DEATH(leaveFromAnotherThread(), "LeaveCriticalSection .the caller is not the owner. failed");
#else
    leaveFromAnotherThread();
    EXPECT_EQ(tstest::RunOnOtherThread([&] { return static_cast<unsigned>(TryEnterCriticalSection(&cs)); }), 0u);
#endif
    LeaveCriticalSection(&cs);
    DeleteCriticalSection(&cs);
}

TEST(CriticalSections, RecursiveAndExclusive)
{
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EXPECT_TRUE(TryEnterCriticalSection(&cs)); // recursion
    EXPECT_EQ(tstest::RunOnOtherThread([&] { return static_cast<unsigned>(TryEnterCriticalSection(&cs)); }), 0u);
    LeaveCriticalSection(&cs);
    LeaveCriticalSection(&cs);

    long counter = 0;
    HANDLE threads[4];
    for (HANDLE &h : threads)
        h = tstest::StartThread([&] {
            for (int i = 0; i < 20000; ++i) {
                EnterCriticalSection(&cs);
                EnterCriticalSection(&cs);
                ++counter;
                LeaveCriticalSection(&cs);
                LeaveCriticalSection(&cs);
            }
            return 0u;
        });
    EXPECT_EQ(WaitForMultipleObjects(4, threads, TRUE, 60000), WAIT_OBJECT_0);
    EXPECT_EQ(counter, 80000);
    for (HANDLE h : threads)
        CloseHandle(h);
    DeleteCriticalSection(&cs);
}
