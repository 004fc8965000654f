// The service manager under faults: a service process killed at each step
// of its start and its stop, and the manager itself killed and started
// again while services run.
#include "ScratchDir.h"
#include "ServiceFixture.h"
#include "ManagerProcess.h"

#include <signal.h>

#include <cstdlib>
#include <string>
#include <thread>

using tstest::ServiceTest;

namespace {

bool Alive(DWORD pid) { return kill(static_cast<pid_t>(pid), 0) == 0; }

// The process id that the test service wrote where it holds.
DWORD HeldProcess(const std::string &file)
{
    if (!tstest::AwaitFile(file))
        return 0;
    return static_cast<DWORD>(strtoul(tstest::ReadWholeFile(file).c_str(), nullptr, 10));
}

// Waits for a process that is not this one's child to end.
bool Ended(DWORD pid)
{
    return tstest::Eventually([&] { return !Alive(pid) || tstest::ReadWholeFile("/proc/" + std::to_string(pid) + "/stat").find(") Z") != std::string::npos; });
}

} // namespace

// Wherever a service process dies in its start or its stop, the manager
// reports it stopped, never pending, with ERROR_PROCESS_ABORTED unless it
// had reported SERVICE_STOPPED itself (then its own exit code stands), and
// the service starts again.
TEST_F(ServiceTest, ServiceProcessKilledAtEachStepIsReportedStopped)
{
    struct Step {
        const char *name;
        bool duringStart; // held before its dispatcher answered StartService
        bool duringStop;  // held after the stop control was sent
        DWORD exitCode;
    } steps[] = {
        {"dispatcher", true, false, ERROR_PROCESS_ABORTED},  {"main", false, false, ERROR_PROCESS_ABORTED},
        {"startpending", false, false, ERROR_PROCESS_ABORTED}, {"running", false, false, ERROR_PROCESS_ABORTED},
        {"stophandler", false, true, ERROR_PROCESS_ABORTED},   {"stoppending", false, true, ERROR_PROCESS_ABORTED},
        {"stopped", false, true, NO_ERROR},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE(step.name);
        std::string held = root_.path() + "/held-" + step.name;
        SC_HANDLE svc = Create(std::string("holdat ") + step.name + " \"" + held + "\"");
        ASSERT_NE(svc, nullptr);
        DWORD startError = 0;
        std::thread starter([&] { startError = tstest::ErrorOf(StartServiceA(svc, 0, nullptr)); });
        if (!step.duringStart) {
            starter.join();
            ASSERT_EQ(startError, 0u);
        }
        std::thread stopper;
        DWORD stopError = 0;
        if (step.duringStop) {
            ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
            stopper = std::thread([&] {
                SERVICE_STATUS st{};
                stopError = tstest::ErrorOf(ControlService(svc, SERVICE_CONTROL_STOP, &st));
            });
        }
        DWORD pid = HeldProcess(held);
        ASSERT_NE(pid, 0u) << "the service never came to the step";
        ASSERT_TRUE(tstest::KillProcess(pid));
        if (starter.joinable())
            starter.join();
        if (stopper.joinable())
            stopper.join();
        if (step.duringStart) {
            EXPECT_EQ(startError, static_cast<DWORD>(ERROR_PROCESS_ABORTED));
        }
        SERVICE_STATUS st{};
        ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED, &st)) << "left in state " << st.dwCurrentState;
        EXPECT_EQ(st.dwWin32ExitCode, step.exitCode);
        EXPECT_EQ(st.dwControlsAccepted, 0u);
        if (step.exitCode == NO_ERROR) { // the handler had answered before the process held
            EXPECT_EQ(stopError, 0u);
        }
        CloseServiceHandle(svc);
    }
    // The same service starts again after a death in its start.
    SC_HANDLE again = Create();
    ASSERT_TRUE(StartServiceA(again, 0, nullptr)) << GetLastError();
    EXPECT_TRUE(WaitForState(again, SERVICE_RUNNING));
    CloseServiceHandle(again);
}

// The manager killed while services run: they run on, a manager started
// again takes them over (their status is true again, a start is refused as
// already running, a stop reaches them), and one that died meanwhile is
// reported stopped and starts again once.
TEST_F(ServiceTest, ManagerKilledAndStartedAgainTakesItsServicesOver)
{
    std::string keptName, diesName;
    SC_HANDLE kept = Create("reportpid", SERVICE_DEMAND_START, &keptName);
    SC_HANDLE dies = Create("reportpid", SERVICE_DEMAND_START, &diesName);
    ASSERT_TRUE(StartServiceA(kept, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(StartServiceA(dies, 0, nullptr)) << GetLastError();
    SERVICE_STATUS st{};
    ASSERT_TRUE(WaitForState(kept, SERVICE_RUNNING, &st));
    DWORD keptPid = st.dwServiceSpecificExitCode;
    ASSERT_TRUE(WaitForState(dies, SERVICE_RUNNING, &st));
    DWORD diesPid = st.dwServiceSpecificExitCode;
    CloseServiceHandle(kept);
    CloseServiceHandle(dies);
    CloseServiceHandle(scm_);
    scm_ = nullptr;

    for (int restart = 0; restart < 3; ++restart) {
        SCOPED_TRACE(restart);
        pid_t daemon = tstest::ManagerProcessOf(root_.path());
        ASSERT_GT(daemon, 0);
        ASSERT_TRUE(tstest::KillProcess(static_cast<DWORD>(daemon)));
        ASSERT_TRUE(Ended(static_cast<DWORD>(daemon)));
        EXPECT_TRUE(Alive(keptPid)) << "a service ended with its manager";
        if (restart == 0) {
            ASSERT_TRUE(tstest::KillProcess(diesPid)); // dies while no manager runs
            ASSERT_TRUE(Ended(diesPid));
        }

        // The next call starts a new manager.
        scm_ = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(scm_, nullptr) << GetLastError();
        ASSERT_NE(tstest::ManagerProcessOf(root_.path()), daemon);
        kept = OpenServiceA(scm_, keptName.c_str(), SERVICE_ALL_ACCESS);
        ASSERT_NE(kept, nullptr) << GetLastError();
        ASSERT_TRUE(WaitForState(kept, SERVICE_RUNNING, &st)) << "state " << st.dwCurrentState;
        EXPECT_EQ(st.dwServiceSpecificExitCode, keptPid) << "the same process, reported again";
        EXPECT_EQ(tstest::ErrorOf(StartServiceA(kept, 0, nullptr)), static_cast<DWORD>(ERROR_SERVICE_ALREADY_RUNNING));
        ASSERT_TRUE(ControlService(kept, SERVICE_CONTROL_INTERROGATE, &st)) << GetLastError();

        dies = OpenServiceA(scm_, diesName.c_str(), SERVICE_ALL_ACCESS);
        ASSERT_NE(dies, nullptr) << GetLastError();
        ASSERT_TRUE(QueryServiceStatus(dies, &st));
        if (restart == 0) {
            EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED)) << "a dead service is not running";
            ASSERT_TRUE(StartServiceA(dies, 0, nullptr)) << GetLastError();
            ASSERT_TRUE(WaitForState(dies, SERVICE_RUNNING, &st));
            diesPid = st.dwServiceSpecificExitCode;
        } else {
            ASSERT_TRUE(WaitForState(dies, SERVICE_RUNNING, &st));
            EXPECT_EQ(st.dwServiceSpecificExitCode, diesPid);
        }
        CloseServiceHandle(kept);
        CloseServiceHandle(dies);
        if (restart < 2) {
            CloseServiceHandle(scm_);
            scm_ = nullptr;
        }
    }

    // Controls reach the services again: both stop in good order.
    for (const std::string &name : {keptName, diesName}) {
        SC_HANDLE svc = OpenServiceA(scm_, name.c_str(), SERVICE_ALL_ACCESS);
        ASSERT_NE(svc, nullptr);
        ASSERT_TRUE(ControlService(svc, SERVICE_CONTROL_STOP, &st)) << GetLastError();
        ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED, &st));
        EXPECT_EQ(st.dwWin32ExitCode, 0u);
        CloseServiceHandle(svc);
    }
    EXPECT_TRUE(Ended(keptPid));
    EXPECT_TRUE(Ended(diesPid));
}
