// The framework's threads: CWinThread started through CreateThread and
// both forms of AfxBeginThread, suspended creation, the choice of work and
// the exit codes, deleting the object at the end, quitting the default Run
// and AfxEndThread.
#include <afxwin.h>

#include <TestSupport.h>

using tstest::kWaitBound;

// Only DECLARE_DYNAMIC: AfxBeginThread cannot make one.
class UncreatableThread : public CWinThread {
    DECLARE_DYNAMIC(UncreatableThread)
};
IMPLEMENT_DYNAMIC(UncreatableThread, CWinThread)

namespace {

// Manual-reset, initially unset; closed with the test.
class Event {
public:
    Event() : h_(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}
    ~Event() { CloseHandle(h_); }
    operator HANDLE() const { return h_; }
    bool IsSet() const { return WaitForSingleObject(h_, 0) == WAIT_OBJECT_0; }
    bool Await() const { return WaitForSingleObject(h_, kWaitBound) == WAIT_OBJECT_0; }

private:
    HANDLE h_;
};

// What a thread saw of itself, and the gates the test opens for it.
struct Probe {
    Event entered;   // the thread's work began
    Event go;        // the test lets the work go on
    Event destroyed; // the thread object's destructor ran
    CWinThread *seenThread = nullptr;
    DWORD seenId = 0;
    AFX_MODULE_STATE *seenModuleState = nullptr;
    bool ranOn = false; // code after AfxEndThread ran
    bool ranRun = false;
    UINT messagesSeen = 0;
    BOOL deleteAtEnd = FALSE; // what EndingWorker asks of AfxEndThread
};

Probe *probe;

// A copy of the thread's handle that outlives an object that deletes itself.
HANDLE DuplicateOf(HANDLE thread)
{
    HANDLE copy = nullptr;
    EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &copy, 0, FALSE,
                                DUPLICATE_SAME_ACCESS));
    return copy;
}

UINT Worker(LPVOID param)
{
    Probe *p = static_cast<Probe *>(param);
    p->seenThread = AfxGetThread();
    p->seenId = GetCurrentThreadId();
    p->seenModuleState = AfxGetModuleState();
    SetEvent(p->entered);
    return WaitForSingleObject(p->go, kWaitBound) == WAIT_OBJECT_0 ? 17 : 1;
}

UINT EndingWorker(LPVOID param)
{
    Probe *p = static_cast<Probe *>(param);
    if (WaitForSingleObject(p->go, kWaitBound) != WAIT_OBJECT_0)
        return 1;
    AfxEndThread(33, p->deleteAtEnd);
    p->ranOn = true;
    return 0;
}

// A thread class whose life the probe follows. Its command: exitCode from
// InitInstance when refuse is set; otherwise the default Run.
class TracedThread : public CWinThread {
    DECLARE_DYNCREATE(TracedThread)
public:
    ~TracedThread() override { SetEvent(probe->destroyed); }

    BOOL InitInstance() override
    {
        probe->seenThread = AfxGetThread();
        probe->seenId = GetCurrentThreadId();
        SetEvent(probe->entered);
        if (WaitForSingleObject(probe->go, kWaitBound) != WAIT_OBJECT_0)
            return FALSE;
        if (quitInInit)
            AfxPostQuitMessage(quitInInit);
        return !refuse;
    }

    int Run() override
    {
        probe->ranRun = true;
        return CWinThread::Run();
    }

    BOOL PreTranslateMessage(MSG *pMsg) override
    {
        if (pMsg->message == WM_APP)
            probe->messagesSeen += static_cast<UINT>(pMsg->wParam);
        return TRUE;
    }

    int ExitInstance() override { return refuse ? 61 : CWinThread::ExitInstance(); }

    static bool refuse;
    static int quitInInit;
};
IMPLEMENT_DYNCREATE(TracedThread, CWinThread)
bool TracedThread::refuse = false;
int TracedThread::quitInInit = 0;

class Threads : public ::testing::Test {
protected:
    void SetUp() override
    {
        probe = &probe_;
        TracedThread::refuse = false;
        TracedThread::quitInInit = 0;
    }
    void TearDown() override { probe = nullptr; }

    DWORD ExitCodeOf(HANDLE thread)
    {
        DWORD code = 0xFFFFFFFF;
        EXPECT_EQ(WaitForSingleObject(thread, kWaitBound), WAIT_OBJECT_0);
        EXPECT_TRUE(GetExitCodeThread(thread, &code));
        return code;
    }

    Probe probe_;
};

TEST_F(Threads, WorkerRunsAsItselfAtItsPriorityAndEndsWithItsResult)
{
    CWinThread *thread = AfxBeginThread(Worker, &probe_, THREAD_PRIORITY_BELOW_NORMAL);
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(probe_.entered.Await());
    thread->m_bAutoDelete = FALSE; // the worker waits for go: the object is still there
    EXPECT_EQ(static_cast<HANDLE>(*thread), thread->m_hThread);
    EXPECT_EQ(probe_.seenThread, thread);
    EXPECT_EQ(probe_.seenId, thread->m_nThreadID);
    EXPECT_EQ(probe_.seenModuleState, AfxGetModuleState());
    EXPECT_EQ(thread->m_pModuleState, AfxGetModuleState());
    EXPECT_EQ(thread->GetThreadPriority(), THREAD_PRIORITY_BELOW_NORMAL);
    SetEvent(probe_.go);
    EXPECT_EQ(ExitCodeOf(*thread), 17u);
    delete thread;
}

TEST_F(Threads, SuspendedCreationIsSetUpButRunsNothingUntilResumed)
{
    if (tstest::kThreadSanitizer)
        GTEST_SKIP() << "ThreadSanitizer holds back the signal that suspends a thread standing in a wait";
    CWinThread *thread = AfxBeginThread(Worker, &probe_, THREAD_PRIORITY_NORMAL, 0, CREATE_SUSPENDED);
    ASSERT_NE(thread, nullptr);
    thread->m_bAutoDelete = FALSE;
    EXPECT_TRUE(thread->PostThreadMessage(WM_APP, 0, 0)) << "its queue is made";
    EXPECT_FALSE(probe_.entered.IsSet());
    EXPECT_EQ(thread->ResumeThread(), 1u);
    ASSERT_TRUE(probe_.entered.Await());
    EXPECT_EQ(probe_.seenThread, thread);
    SetEvent(probe_.go);
    EXPECT_EQ(ExitCodeOf(*thread), 17u);
    delete thread;
}

TEST_F(Threads, ClassFormRunsInitInstanceThenRunUntilQuitWithItsCode)
{
    CWinThread *thread = AfxBeginThread(RUNTIME_CLASS(TracedThread));
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(probe_.entered.Await()); // InitInstance waits for go: the object is still there
    EXPECT_TRUE(thread->IsKindOf(RUNTIME_CLASS(TracedThread)));
    EXPECT_EQ(probe_.seenThread, thread);
    HANDLE handle = DuplicateOf(*thread);
    DWORD id = thread->m_nThreadID;
    // Posted before Run: kept for it, the quit after the others.
    EXPECT_TRUE(thread->PostThreadMessage(WM_APP, 2, 0));
    EXPECT_TRUE(thread->PostThreadMessage(WM_APP, 3, 0));
    EXPECT_TRUE(thread->PostThreadMessage(WM_QUIT, 9, 0));
    SetEvent(probe_.go);

    // The object deletes itself at the end (m_bAutoDelete), and the queue
    // goes with the thread.
    EXPECT_EQ(ExitCodeOf(handle), 9u);
    EXPECT_TRUE(probe_.destroyed.Await());
    EXPECT_TRUE(probe_.ranRun);
    EXPECT_EQ(probe_.messagesSeen, 5u);
    EXPECT_EQ(tstest::ErrorOf(PostThreadMessage(id, WM_APP, 0, 0)), static_cast<DWORD>(ERROR_INVALID_THREAD_ID));
    CloseHandle(handle);
}

TEST_F(Threads, CreateThreadWithoutFlagsRunsAtOnceAndQuitsFromItsOwnThread)
{
    TracedThread::quitInInit = 4;
    TracedThread *thread = new TracedThread;
    thread->m_bAutoDelete = FALSE;
    ASSERT_TRUE(thread->CreateThread());
    // InitInstance is under way without a ResumeThread.
    ASSERT_TRUE(probe_.entered.Await());
    EXPECT_FALSE(thread->CreateThread()) << "one thread per object";
    SetEvent(probe_.go);
    EXPECT_EQ(ExitCodeOf(*thread), 4u);
    EXPECT_TRUE(probe_.ranRun);
    EXPECT_FALSE(probe_.destroyed.IsSet());
    delete thread;
    EXPECT_TRUE(probe_.destroyed.IsSet());
}

TEST_F(Threads, RefusedInitInstanceEndsWithExitInstanceAndNoRun)
{
    TracedThread::refuse = true;
    CWinThread *thread = AfxBeginThread(RUNTIME_CLASS(TracedThread));
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(probe_.entered.Await());
    thread->m_bAutoDelete = FALSE;
    SetEvent(probe_.go);
    EXPECT_EQ(ExitCodeOf(*thread), 61u);
    EXPECT_FALSE(probe_.ranRun);
    delete thread;
}

TEST_F(Threads, EndThreadEndsAtOnceAndDeletesOnlyWhenAsked)
{
    for (BOOL deleteObject : {FALSE, TRUE}) {
        Probe local;
        local.deleteAtEnd = deleteObject;
        TracedThread *thread = new TracedThread; // its destructor tells the probe
        thread->m_pfnThreadProc = EndingWorker;
        thread->m_pThreadParams = &local;
        ASSERT_TRUE(thread->CreateThread());
        HANDLE handle = DuplicateOf(*thread); // the worker waits for go
        SetEvent(local.go);
        EXPECT_EQ(ExitCodeOf(handle), 33u);
        EXPECT_FALSE(local.ranOn);
        EXPECT_EQ(probe_.destroyed.IsSet(), deleteObject == TRUE);
        if (!deleteObject)
            delete thread;
        ResetEvent(probe_.destroyed);
        CloseHandle(handle);
    }
}

TEST_F(Threads, BeginThreadRefusesWhatCannotRun)
{
    EXPECT_EQ(AfxBeginThread(static_cast<AFX_THREADPROC>(nullptr), nullptr), nullptr);
    EXPECT_EQ(AfxBeginThread(static_cast<CRuntimeClass *>(nullptr)), nullptr);
    EXPECT_EQ(AfxBeginThread(RUNTIME_CLASS(CFile)), nullptr);
    EXPECT_EQ(AfxBeginThread(RUNTIME_CLASS(UncreatableThread)), nullptr);
    CWinThread unstarted(Worker, &probe_);
    EXPECT_EQ(tstest::ErrorOf(unstarted.PostThreadMessage(WM_APP, 0, 0)),
              static_cast<DWORD>(ERROR_INVALID_THREAD_ID));
}

TEST_F(Threads, NoApplicationAndNoThreadObjectOnAPlainThread)
{
    EXPECT_EQ(AfxGetApp(), nullptr);
    EXPECT_EQ(AfxGetThread(), nullptr);
    EXPECT_EQ(tstest::RunOnOtherThread([] { return AfxGetThread() == nullptr ? 1u : 0u; }), 1u);
}

} // namespace
