// Thread message queues: a queue from the thread's first message call,
// posted messages in order through the filters, the quit mark after them.
#include "TestSupport.h"

namespace {

// A thread that makes its queue, says so, and then takes messages with
// GetMessageA until WM_QUIT, adding up the wParams of WM_APP messages; its
// exit code is that sum times 100 plus the quit code.
HANDLE StartReceiver(DWORD &threadId, HANDLE ready)
{
    HANDLE thread = tstest::StartThread([ready] {
        MSG msg;
        PeekMessageA(&msg, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
        SetEvent(ready);
        unsigned sum = 0;
        BOOL got;
        while ((got = GetMessageA(&msg, nullptr, 0, 0)) > 0)
            if (msg.message == WM_APP && msg.hwnd == nullptr)
                sum += static_cast<unsigned>(msg.wParam);
        return got == 0 ? sum * 100 + static_cast<unsigned>(msg.wParam) : 0xDEADu;
    });
    threadId = GetThreadId(thread);
    return thread;
}

TEST(Messages, PostingNeedsTheThreadsQueueAndEndsWithItsThread)
{
    HANDLE ready = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE gate = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    // A thread that has made no message call has no queue.
    HANDLE idle = tstest::StartThread([gate] { return WaitForSingleObject(gate, tstest::kWaitBound); });
    EXPECT_EQ(tstest::ErrorOf(PostThreadMessageA(GetThreadId(idle), WM_APP, 0, 0)),
              static_cast<DWORD>(ERROR_INVALID_THREAD_ID));
    SetEvent(gate);
    EXPECT_EQ(tstest::ThreadResult(idle), static_cast<DWORD>(WAIT_OBJECT_0));

    DWORD id = 0;
    HANDLE receiver = StartReceiver(id, ready);
    ASSERT_EQ(WaitForSingleObject(ready, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_TRUE(PostThreadMessageA(id, WM_APP, 3, 0));
    EXPECT_TRUE(PostThreadMessageA(id, WM_APP, 4, 0));
    EXPECT_TRUE(PostThreadMessageA(id, WM_QUIT, 6, 0));
    ASSERT_EQ(WaitForSingleObject(receiver, tstest::kWaitBound), WAIT_OBJECT_0);
    // The ended thread's object is still held here: its id names a thread
    // that has no queue any more.
    EXPECT_EQ(tstest::ErrorOf(PostThreadMessageA(id, WM_APP, 0, 0)), static_cast<DWORD>(ERROR_INVALID_THREAD_ID));
    EXPECT_EQ(tstest::ThreadResult(receiver), 706u);
    CloseHandle(ready);
    CloseHandle(gate);
}

TEST(Messages, FiltersTakeInOrderAndQuitComesAfterPostedMessages)
{
    unsigned result = tstest::RunOnOtherThread([] {
        DWORD self = GetCurrentThreadId();
        MSG msg;
        if (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
            return 1u; // a new queue is empty
        PostThreadMessageA(self, WM_USER + 5, 1, 0);
        PostThreadMessageA(self, WM_APP, 2, 0);
        PostThreadMessageA(self, WM_USER + 5, 3, 0);
        // A range takes the first message inside it; PM_NOREMOVE leaves it.
        if (!PeekMessageA(&msg, nullptr, WM_APP, WM_APP, PM_NOREMOVE) || msg.wParam != 2)
            return 2u;
        if (!PeekMessageA(&msg, nullptr, WM_APP, WM_APP, PM_REMOVE) || msg.wParam != 2)
            return 3u;
        // min > max takes nothing.
        if (PeekMessageA(&msg, nullptr, WM_USER + 6, WM_USER + 5, PM_REMOVE))
            return 4u;
        PostQuitMessage(8);
        if (!PeekMessageA(&msg, nullptr, WM_USER + 5, WM_USER + 5, PM_REMOVE) || msg.wParam != 1)
            return 8u;
        // The quit mark passes any filter, but only after posted messages.
        if (GetMessageA(&msg, nullptr, 0, 0) != TRUE || msg.wParam != 3)
            return 5u;
        if (GetMessageA(&msg, nullptr, WM_APP, WM_APP) != FALSE || msg.message != WM_QUIT || msg.wParam != 8)
            return 6u;
        if (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
            return 7u; // the quit was taken once
        return 0u;
    });
    EXPECT_EQ(result, 0u);
}

TEST(Messages, AWindowHandleNamesNoWindow)
{
    MSG msg;
    HWND bogus = reinterpret_cast<HWND>(static_cast<UINT_PTR>(0x1234));
    SetLastError(0);
    EXPECT_EQ(GetMessageA(&msg, bogus, 0, 0), -1);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
    EXPECT_FALSE(PeekMessageA(&msg, bogus, 0, 0, PM_REMOVE));
}

} // namespace
