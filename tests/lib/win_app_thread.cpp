// WinApp and WinThread in one process: the guard each puts in force for
// its thread and drops again, the results of the framework's
// InitInstance, Run and ExitInstance passed on, and an application with
// two threads sharing one given guard and writing one file of whole
// messages.
#include "DiagFixture.h"

#include "DiagSvc.h"
#include "WinApp.h"

#include <regex>
#include <sstream>
#include <string>

namespace {

using tstest::DiagTest;

const DiagGuard::ClassNameIndex kWorkClass = static_cast<DiagGuard::ClassNameIndex>(12);
const int kMessages = 200;

// A thread that writes kMessages messages of several pieces each, then
// ends through ExitInstance. Kept after its end for the test to look at.
class TalkingThread : public WinThread {
public:
    TalkingThread(DiagGuard *guard, int number) : WinThread(guard), number_(number) { m_bAutoDelete = FALSE; }
    int Run() override
    {
        guardSeen = DiagGuard::GetThreadDiagGuardPtr();
        for (int i = 0; i < kMessages; ++i)
            DIAG_MSG(kWorkClass, "thread " << number_ << " message " << i << " of" << " many\n");
        return ExitInstance();
    }
    DiagGuard *Current() const { return currentDiagGuard; }
    DiagGuard *guardSeen = nullptr;

private:
    int number_;
};

// The framework's Run: the thread waits for WM_QUIT. Kept after its end.
class QuietThread : public WinThread {
public:
    explicit QuietThread(char const *file) : WinThread(file) { m_bAutoDelete = FALSE; }
    BOOL InitInstance() override
    {
        BOOL result = WinThread::InitInstance();
        guardSeen = DiagGuard::GetThreadDiagGuardPtr();
        SetEvent(initialised);
        return result;
    }
    DiagGuard *Current() const { return currentDiagGuard; }
    DiagGuard *guardSeen = nullptr;
    HANDLE initialised = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    ~QuietThread() override { CloseHandle(initialised); }
};

class Application : public WinApp {
public:
    using WinApp::WinApp;
    DiagGuard *Current() const { return currentDiagGuard; }
    char const *FileName() const { return diagFileName; }
};

DWORD ExitCodeAfterEnd(CWinThread &thread)
{
    EXPECT_EQ(WaitForSingleObject(thread.m_hThread, tstest::kWaitBound), WAIT_OBJECT_0);
    DWORD code = 0xDEADBEEF;
    EXPECT_TRUE(GetExitCodeThread(thread.m_hThread, &code));
    return code;
}

class WinAppThreadTest : public DiagTest {};

} // namespace

TEST_F(WinAppThreadTest, AnApplicationAndTwoThreadsShareOneGuardAndOneFile)
{
    AssignWithDiagnostics(1);
    DiagGuard shared(File("one.txt").c_str());
    Application app(&shared, "shared app");
    EXPECT_EQ(app.FileName(), nullptr);
    EXPECT_STREQ(app.m_pszAppName, "shared app");
    ASSERT_EQ(app.InitInstance(), TRUE) << "the base's result";
    EXPECT_EQ(DiagGuard::GetThreadDiagGuardPtr(), &shared);
    EXPECT_EQ(app.Current(), &shared);

    TalkingThread one(&shared, 1), two(&shared, 2);
    ASSERT_TRUE(one.CreateThread());
    ASSERT_TRUE(two.CreateThread());
    for (int i = 0; i < kMessages; ++i)
        DIAG_MSG(kWorkClass, "thread 0 message " << i << " of" << " many\n");
    EXPECT_EQ(ExitCodeAfterEnd(one), 0u);
    EXPECT_EQ(ExitCodeAfterEnd(two), 0u);
    EXPECT_EQ(one.guardSeen, &shared);
    EXPECT_EQ(two.Current(), &shared) << "a given guard stays after ExitInstance";
    EXPECT_EQ(app.ExitInstance(), 0) << "the base's result: no quit came";
    EXPECT_EQ(DiagGuard::GetThreadDiagGuardPtr(), &shared);
    EXPECT_EQ(app.Current(), &shared);

    // Every line is one whole message, and every message is there.
    std::istringstream lines(Content("one.txt"));
    std::regex talk(R"(thread (\d) message (\d+) of many\r)");
    int counts[3] = {};
    int appLines = 0, threadInits = 0, threadExits = 0, other = 0;
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        if (std::regex_match(line, m, talk))
            ++counts[std::stoi(m[1].str())];
        else if (line == "WinApp initializing -- InitInstance().\r" || line == "   and WinApp exiting -- ExitInstance().\r")
            ++appLines;
        else if (line == "WinThread initializing -- InitInstance().\r")
            ++threadInits;
        else if (line == "   and WinThread exiting -- ExitInstance().\r")
            ++threadExits;
        else
            ADD_FAILURE() << "not a whole message: " << line << (++other, "");
    }
    EXPECT_EQ(counts[0], kMessages);
    EXPECT_EQ(counts[1], kMessages);
    EXPECT_EQ(counts[2], kMessages);
    EXPECT_EQ(appLines, 2);
    EXPECT_EQ(threadInits, 2);
    EXPECT_EQ(threadExits, 2);
}

// A thread's own guard lives from its InitInstance to its ExitInstance; the
// framework's Run ends at WM_QUIT, whose code ExitInstance passes on as
// the thread's exit code.
TEST_F(WinAppThreadTest, AThreadsOwnGuardLivesFromInitToExit)
{
    AssignWithDiagnostics(1);
    QuietThread thread(File("own.txt").c_str());
    ASSERT_TRUE(thread.CreateThread());
    ASSERT_EQ(WaitForSingleObject(thread.initialised, tstest::kWaitBound), WAIT_OBJECT_0);
    EXPECT_NE(thread.guardSeen, nullptr);
    EXPECT_EQ(DiagGuard::GetThreadDiagGuardPtr(), nullptr) << "the guard is the thread's only";
    ASSERT_TRUE(thread.PostThreadMessage(WM_QUIT, 4, 0));
    EXPECT_EQ(ExitCodeAfterEnd(thread), 4u);
    EXPECT_EQ(thread.Current(), nullptr) << "its own guard was deleted";
    EXPECT_EQ(Content("own.txt"),
              "WinThread initializing -- InitInstance().\r\n   and WinThread exiting -- ExitInstance().\r\n");
}

// The application's own guard is the calling thread's from InitInstance to
// ExitInstance, with its file's handle in the verbose message when the
// class's mask lets it through.
TEST_F(WinAppThreadTest, AnApplicationsOwnGuardIsTheMainThreadsUntilExit)
{
    AssignWithDiagnostics(1);
    Application app(File("app.txt").c_str(), nullptr);
    EXPECT_EQ(app.m_pszAppName, nullptr);
    ASSERT_EQ(app.InitInstance(), TRUE);
    DiagGuard *guard = DiagGuard::GetThreadDiagGuardPtr();
    ASSERT_NE(guard, nullptr);
    EXPECT_EQ(app.Current(), guard);
    EXPECT_EQ(dynamic_cast<DiagGuardService *>(guard), nullptr) << "a plain DiagGuard";
    EXPECT_EQ(app.ExitInstance(), 0);
    EXPECT_EQ(DiagGuard::GetThreadDiagGuardPtr(), nullptr);
    EXPECT_EQ(app.Current(), nullptr);
    EXPECT_EQ(Content("app.txt"),
              "WinApp initializing -- InitInstance().\r\n   and WinApp exiting -- ExitInstance().\r\n");

    DiagGuard shared(File("verbose.txt").c_str());
    tstest::GuardFields::SetMask(shared, WinApp::CLASS_INDEX, 0xF3);
    Application given(&shared, nullptr);
    ASSERT_EQ(given.InitInstance(), TRUE);
    std::regex verbose(R"(WinApp diagnostic file handle: 0x[0-9A-F]+\r\n\r\nWinApp initializing -- InitInstance\(\)\.\r\n)");
    EXPECT_TRUE(std::regex_match(Content("verbose.txt"), verbose)) << Content("verbose.txt");
    EXPECT_EQ(given.ExitInstance(), 0);
}
