// ServiceThread in one process: its start with the set-up done before
// ServiceCreateThread returns, a suspended creation that runs nothing until
// one ResumeThread, the choice of work, the guard it makes or is given, and
// the name of its file cut at 255 bytes.
#include "DiagFixture.h"

#include "DiagSvc.h"
#include "SvcThrd.h"

#include <atomic>
#include <string>
#include <vector>

namespace {

using tstest::DiagTest;

const DiagGuard::ClassNameIndex kWorkClass = static_cast<DiagGuard::ClassNameIndex>(12);

// What a probe thread saw on its own thread.
struct Seen {
    HANDLE runEntered = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::atomic<bool> ran{false};
    CWinThread *afxThread = nullptr;
    DiagGuard *threadGuard = nullptr;
    bool serviceGuard = false; // the guard was a DiagGuardService
    DWORD threadId = 0;
    HANDLE handle = nullptr;
    ~Seen() { CloseHandle(runEntered); }
};

// Keeps its object after the end (m_bAutoDelete off) so that the test can
// wait on the handle and look at the fields.
class ProbeThread : public ServiceThread {
public:
    template <class Arg>
    ProbeThread(Arg arg, Seen &seen, int runResult = 7) : ServiceThread(arg), seen_(seen), runResult_(runResult)
    {
        m_bAutoDelete = FALSE;
    }
    explicit ProbeThread(Seen &seen) : seen_(seen), runResult_(7) { m_bAutoDelete = FALSE; }

    int Run() override
    {
        seen_.afxThread = AfxGetThread();
        seen_.threadGuard = DiagGuard::GetThreadDiagGuardPtr();
        seen_.serviceGuard = dynamic_cast<DiagGuardService *>(seen_.threadGuard) != nullptr;
        seen_.threadId = m_nThreadID;
        seen_.handle = m_hThread;
        seen_.ran = true;
        DIAG_MSG(kWorkClass, "work of " << name_ << "\n");
        SetEvent(seen_.runEntered);
        ExitInstance();
        return runResult_;
    }

    DWORD Join()
    {
        EXPECT_EQ(WaitForSingleObject(m_hThread, tstest::kWaitBound), WAIT_OBJECT_0);
        DWORD code = 0xDEADBEEF;
        EXPECT_TRUE(GetExitCodeThread(m_hThread, &code));
        return code;
    }

    char const *FileName() const { return diagFileName; }
    DiagGuard *Given() const { return givenDiagGuard; }
    DiagGuard *Current() const { return currentDiagGuard; }
    char const *name_ = "probe";

private:
    Seen &seen_;
    int runResult_;
};

// A derived InitInstance that refuses after the base's.
class RefusingThread : public ProbeThread {
public:
    using ProbeThread::ProbeThread;
    BOOL InitInstance() override
    {
        ServiceThread::InitInstance();
        return FALSE;
    }
};

class ServiceThreadTest : public DiagTest {};

} // namespace

// Started without flags: the set-up is over when ServiceCreateThread
// returns, Run sees its own object, handle and id and a DiagGuardService
// of the thread's own, and the thread's exit code is Run's result. Its
// guard is gone after ExitInstance.
TEST_F(ServiceThreadTest, RunsOnItsOwnObjectWithAGuardOfItsOwn)
{
    Seen seen;
    ProbeThread thread(File("own.txt").c_str(), seen);
    ASSERT_EQ(thread.ServiceCreateThread(0, 0, nullptr), 1);
    EXPECT_NE(thread.m_hThread, nullptr);
    EXPECT_NE(thread.m_nThreadID, 0u);
    EXPECT_EQ(thread.Join(), 7u);
    EXPECT_TRUE(seen.ran);
    EXPECT_EQ(seen.afxThread, &thread);
    EXPECT_EQ(seen.threadId, thread.m_nThreadID);
    EXPECT_EQ(seen.handle, thread.m_hThread);
    EXPECT_NE(seen.threadGuard, nullptr);
    EXPECT_TRUE(seen.serviceGuard);
    EXPECT_EQ(thread.Current(), nullptr) << "its own guard was deleted by ExitInstance";
    EXPECT_EQ(thread.Given(), nullptr);
    EXPECT_EQ(thread.m_pModuleState, AfxGetModuleState()) << "the creator's module state";
    EXPECT_EQ(thread.ServiceCreateThread(0, 0, nullptr), 0) << "the object has a thread already";
}

// With CREATE_SUSPENDED the thread is set up and stands before Run: its
// suspend count is one, and the caller's one ResumeThread starts the work.
TEST_F(ServiceThreadTest, SuspendedCreationRunsNothingUntilOneResume)
{
    Seen seen;
    ProbeThread thread(File("suspended.txt").c_str(), seen);
    ASSERT_EQ(thread.ServiceCreateThread(CREATE_SUSPENDED, 0, nullptr), 1);
    EXPECT_NE(thread.m_hThread, nullptr);
    EXPECT_EQ(WaitForSingleObject(seen.runEntered, 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_FALSE(seen.ran);
    EXPECT_EQ(thread.ResumeThread(), 1u) << "suspended once, by the start";
    EXPECT_EQ(WaitForSingleObject(seen.runEntered, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_EQ(thread.Join(), 7u);
    EXPECT_EQ(seen.afxThread, &thread);
}

// The choice of work: a thread function runs instead of InitInstance and
// Run; an InitInstance that gives 0 leads to ExitInstance, whose 0 is the
// exit code, and Run never runs.
TEST_F(ServiceThreadTest, TheWorkIsTheFunctionOrInitInstanceThenRunOrExitInstance)
{
    Seen withFunction;
    ProbeThread functionThread(File("function.txt").c_str(), withFunction);
    functionThread.m_pfnThreadProc = [](LPVOID p) -> UINT {
        *static_cast<DiagGuard **>(p) = DiagGuard::GetThreadDiagGuardPtr();
        return AfxGetThread() ? 21 : 0;
    };
    DiagGuard *guardInFunction = reinterpret_cast<DiagGuard *>(1);
    functionThread.m_pThreadParams = &guardInFunction;
    ASSERT_EQ(functionThread.ServiceCreateThread(0, 0, nullptr), 1);
    EXPECT_EQ(functionThread.Join(), 21u);
    EXPECT_EQ(guardInFunction, nullptr) << "no InitInstance, no guard";
    EXPECT_FALSE(withFunction.ran);

    Seen refused;
    RefusingThread refusing(File("refused.txt").c_str(), refused, 5);
    ASSERT_EQ(refusing.ServiceCreateThread(0, 0, nullptr), 1);
    EXPECT_EQ(refusing.Join(), 0u);
    EXPECT_FALSE(refused.ran);
    EXPECT_EQ(refusing.Current(), nullptr) << "ExitInstance dropped the guard";
}

// Threads given one guard write one file, each message whole, and leave
// the guard alive and in force; a default-built thread names defSDiag.txt;
// a name of 300 bytes is cut to 255 for the guard's file.
TEST_F(ServiceThreadTest, AGivenGuardIsSharedAndOutlivesItsThreads)
{
    AssignWithDiagnostics(1);
    DiagGuard shared(File("shared.txt").c_str());
    Seen seenA, seenB;
    ProbeThread a(&shared, seenA), b(&shared, seenB);
    a.name_ = "a";
    b.name_ = "b";
    EXPECT_EQ(a.FileName(), nullptr);
    ASSERT_EQ(a.ServiceCreateThread(0, 0, nullptr), 1);
    ASSERT_EQ(b.ServiceCreateThread(0, 0, nullptr), 1);
    EXPECT_EQ(a.Join(), 7u);
    EXPECT_EQ(b.Join(), 7u);
    EXPECT_EQ(seenA.threadGuard, &shared);
    EXPECT_EQ(seenB.threadGuard, &shared);
    EXPECT_EQ(a.Current(), &shared) << "a given guard stays the thread's";
    EXPECT_EQ(b.Current(), &shared);

    std::string text = Content("shared.txt");
    const std::string init = "ServiceThread (base class) initializing -- InitInstance().\r\n";
    const std::string exit = "   and ServiceThread (base class) exiting -- ExitInstance().\r\n";
    for (const std::string &line : {init, exit, std::string("work of a\r\n"), std::string("work of b\r\n")}) {
        size_t first = text.find(line);
        ASSERT_NE(first, std::string::npos) << line << " in:\n" << text;
        if (line == init || line == exit) {
            EXPECT_NE(text.find(line, first + 1), std::string::npos) << "twice: " << line;
        }
    }
    EXPECT_EQ(text.size(), 2 * (init.size() + exit.size()) + 2 * strlen("work of a\r\n")) << text;
    DIAG_MSG(kWorkClass, "still alive\n"); // the test thread has no guard: nothing
    DiagGuard::SetThreadDiagGuardPtr(&shared);
    DIAG_MSG(kWorkClass, "still alive\n");
    EXPECT_EQ(Content("shared.txt"), text + "still alive\r\n");
}

TEST_F(ServiceThreadTest, FileNamesAreDefaultedOrCutAt255Bytes)
{
    Seen seen;
    ProbeThread byDefault(seen);
    EXPECT_STREQ(byDefault.FileName(), "defSDiag.txt");

    // A path whose first 255 bytes name a file in the scratch folder.
    std::string path = File("");
    path += std::string(300 - path.size() - 4, 'n') + ".txt";
    ASSERT_EQ(path.size(), 300u);
    ProbeThread cut(path.c_str(), seen);
    ASSERT_NE(cut.FileName(), nullptr);
    EXPECT_EQ(std::string(cut.FileName()), path.substr(0, 255));

    AssignWithDiagnostics(1);
    ASSERT_EQ(cut.ServiceCreateThread(0, 0, nullptr), 1);
    EXPECT_EQ(cut.Join(), 7u);
    EXPECT_EQ(tstest::ReadWholeFile(path.substr(0, 255)),
              "ServiceThread (base class) initializing -- InitInstance().\r\nwork of probe\r\n"
              "   and ServiceThread (base class) exiting -- ExitInstance().\r\n");
}

// The verbose message gives the handle of the guard's file once the class's
// mask lets it through; with diagnostics off nothing is written at all.
TEST_F(ServiceThreadTest, VerboseMessageShowsTheFileHandle)
{
    AssignWithDiagnostics(1);
    DiagGuard shared(File("verbose.txt").c_str());
    tstest::GuardFields::SetMask(shared, ServiceThread::CLASS_INDEX, 0xF3);
    Seen seen;
    ProbeThread thread(&shared, seen);
    ASSERT_EQ(thread.ServiceCreateThread(0, 0, nullptr), 1);
    EXPECT_EQ(thread.Join(), 7u);
    std::string text = Content("verbose.txt");
    const std::string prefix = "ServiceThread diagnostic file handle: 0x";
    ASSERT_EQ(text.compare(0, prefix.size(), prefix), 0) << text;
    size_t end = text.find("\r\n\r\nServiceThread (base class) initializing -- InitInstance().\r\n");
    ASSERT_NE(end, std::string::npos) << text;
    std::string digits = text.substr(prefix.size(), end - prefix.size());
    EXPECT_EQ(digits.find_first_not_of("0123456789ABCDEF"), std::string::npos) << digits;
    EXPECT_NE(digits, "FFFFFFFF") << "the file was open when its handle was written";
}

TEST_F(ServiceThreadTest, DiagnosticsOffWriteNothing)
{
    Seen seen;
    ProbeThread thread(File("off.txt").c_str(), seen);
    ASSERT_EQ(thread.ServiceCreateThread(0, 0, nullptr), 1);
    EXPECT_EQ(thread.Join(), 7u);
    EXPECT_NE(seen.threadGuard, nullptr);
    EXPECT_EQ(Content("off.txt"), "<missing>");
}
