// Diagnostic files between processes (children/diagwriter): two processes
// racing for one name, a name that no process gets a tenth time, written
// text that survives an immediate exit, and a name that cannot be opened,
// which ends the process with code 1, after telling the service manager of
// the stop when the process is a service.
#include "ScratchDir.h"
#include "ServiceFixture.h"

#include <set>
#include <string>

using tstest::ChildProcess;
using tstest::ReadWholeFile;
using tstest::ScratchDir;

namespace {

// Waits at most kWaitBound for a file named by a path of the platform's
// own form (AwaitFile takes the host's).
bool AwaitPlatformFile(const std::string &path)
{
    return tstest::Eventually([&] { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; });
}

TEST(DiagProcesses, TwoProcessesRacingForOneNameGetOneFileEach)
{
    ScratchDir dir;
    ChildProcess first, second;
    ASSERT_TRUE(first.Start("diagwriter", {"hold", dir.path(), "race.txt", "first"}));
    ASSERT_TRUE(second.Start("diagwriter", {"hold", dir.path(), "race.txt", "second"}));
    ASSERT_TRUE(AwaitPlatformFile(dir / "ready-first"));
    ASSERT_TRUE(AwaitPlatformFile(dir / "ready-second"));
    std::set<std::string> contents = {ReadWholeFile(dir / "race.txt"), ReadWholeFile(dir / "rac2.txt")};
    EXPECT_EQ(contents, (std::set<std::string>{"first", "second"}));
    first.Kill();
    second.Kill();
}

TEST(DiagProcesses, TheTenthWriterOfANameEndsItsProcess)
{
    ScratchDir dir;
    EXPECT_EQ(tstest::RunChild("diagwriter", {"crowd", dir.path(), "defWDiag.txt"}), 1);
    EXPECT_EQ(ReadWholeFile(dir / "defWDiag.txt"), "1");
    for (int i = 2; i <= 9; ++i)
        EXPECT_EQ(ReadWholeFile(dir / ("defWDia" + std::to_string(i) + ".txt")), std::to_string(i));
}

TEST(DiagProcesses, WrittenTextSurvivesAnImmediateExit)
{
    ScratchDir dir;
    EXPECT_EQ(tstest::RunChild("diagwriter", {"exit", dir.path(), "exit.txt", "gone"}), 5);
    EXPECT_EQ(ReadWholeFile(dir / "exit.txt"), "gone");
}

TEST(DiagProcesses, ABareNameThatCannotBeOpenedEndsTheProcessWithCode1)
{
    ScratchDir dir;
    ASSERT_TRUE(CreateDirectoryA((dir / "taken").c_str(), nullptr)); // a folder of that name
    EXPECT_EQ(tstest::RunChild("diagwriter", {"write", dir.path(), "taken"}), 1);
}

class DiagServiceTest : public tstest::ServiceTest {};

TEST_F(DiagServiceTest, AServiceThatCannotOpenItsFileIsConcludedFirst)
{
    // A folder of the service test's own machine root (a ScratchDir would
    // bring another).
    std::string dir = "C:\\tsdiag" + std::to_string(GetCurrentProcessId());
    ASSERT_TRUE(CreateDirectoryA(dir.c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryA((dir + "\\taken").c_str(), nullptr));
    std::string name = "TsDiag" + std::to_string(GetCurrentProcessId());
    std::string command = "\"" + tstest::SiblingProgram("diagwriter") + "\" service " + dir + " taken";
    SC_HANDLE service = CreateServiceA(scm_, name.c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                       SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr,
                                       nullptr, nullptr, nullptr);
    ASSERT_NE(service, nullptr) << GetLastError();
    created_.push_back(name);
    ASSERT_TRUE(StartServiceA(service, 0, nullptr)) << GetLastError();
    SERVICE_STATUS status{};
    EXPECT_TRUE(WaitForState(service, SERVICE_STOPPED, &status));
    // Reported by the service itself: a process that died without a
    // report would end with ERROR_PROCESS_ABORTED.
    EXPECT_EQ(status.dwWin32ExitCode, static_cast<DWORD>(NO_ERROR));
    CloseServiceHandle(service);
    ScratchDir::RemoveTree(dir);
}

} // namespace
