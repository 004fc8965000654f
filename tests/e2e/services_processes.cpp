// The service manager between processes: clients racing to start it, a
// service process killed, another user refused, and tssc round trips.
#include "../platform/ScratchDir.h"
#include "../platform/ServiceFixture.h"

#include <sys/stat.h>

using tstest::ChildProcess;
using tstest::RunCaptured;
using tstest::ServiceTest;

namespace {

size_t Count(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

// tssc's exit code as the platform keeps it: POSIX keeps the low byte.
int ExitCodeOf(DWORD error) { return tstest::RunningOnPosix() ? static_cast<int>(error & 0xFF) : static_cast<int>(error); }

} // namespace

TEST(ServiceManagerStart, RacingFirstClientsEndWithOneDaemon)
{
    TS_SKIP_ON_WINE("the system manager is already running");
    tstest::ScopedMachineRoot root;
    constexpr int kClients = 4;
    ChildProcess clients[kClients];
    for (ChildProcess &c : clients)
        ASSERT_TRUE(c.Start("scmclient", {"open"}));
    for (ChildProcess &c : clients)
        EXPECT_EQ(c.Wait(), 0);
    std::string log = tstest::ReadWholeFile(root.path() + "/run/tsscm.log");
    EXPECT_EQ(Count(log, "listening on"), 1u) << log;
    EXPECT_EQ(tstest::StopManager(), 0);
}

TEST(ServiceManagerStart, AnotherUserIsRefused)
{
    TS_SKIP_ON_WINE("one user under Wine");
    if (!tstest::MayBecomeAnotherUser())
        GTEST_SKIP() << "needs root to run a client as a second user";
    tstest::ScopedMachineRoot root;
    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    ASSERT_NE(scm, nullptr) << GetLastError();
    // Let the other user reach the socket: only the daemon's own check is left.
    ASSERT_TRUE(tstest::SetPermissions(root.path(), 0711));
    ASSERT_TRUE(tstest::SetPermissions(root.path() + "/run", 0711));
    ASSERT_TRUE(tstest::SetPermissions(root.path() + "/run/tsscm.sock", 0666));
    ChildProcess other;
    ASSERT_TRUE(other.Start("scmclient", {"open-as", "65534", "65534"}));
    EXPECT_EQ(other.Wait(), ERROR_ACCESS_DENIED);
    CloseServiceHandle(scm);
    EXPECT_EQ(tstest::StopManager(), 0);
}

TEST_F(ServiceTest, KilledServiceProcessIsReportedAborted)
{
    TS_SKIP_ON_WINE("Wine's service manager does not notice a service process that died");
    SC_HANDLE svc = Create("reportpid");
    ASSERT_NE(svc, nullptr);
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    SERVICE_STATUS st{};
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING, &st));
    ASSERT_GT(st.dwServiceSpecificExitCode, 1u);
    ASSERT_TRUE(tstest::KillProcess(st.dwServiceSpecificExitCode));
    ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED, &st));
    EXPECT_EQ(st.dwWin32ExitCode, static_cast<DWORD>(ERROR_PROCESS_ABORTED));
    EXPECT_EQ(tstest::ErrorOf(ControlService(svc, SERVICE_CONTROL_STOP, &st)),
              static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));
    // And it starts again.
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
}

TEST_F(ServiceTest, HandlesOfAKilledClientAreClosed)
{
    // A client that ends without closing its handle to a service marked
    // for deletion no longer keeps the service.
    std::string name;
    SC_HANDLE svc = Create("", SERVICE_DEMAND_START, &name);
    ASSERT_NE(svc, nullptr);
    // In the machine root on POSIX, in the current folder on Windows.
    std::string ready = (root_.path().empty() ? std::string() : root_.path() + "/") + name + ".holding";
    tstest::ChildProcess holder;
    ASSERT_TRUE(holder.Start("scmclient", {"hold", name, ready}));
    ASSERT_TRUE(tstest::AwaitFile(ready));
    ASSERT_TRUE(DeleteService(svc)) << GetLastError();
    EXPECT_TRUE(CloseServiceHandle(svc));
    SC_HANDLE held = OpenServiceA(scm_, name.c_str(), SERVICE_QUERY_STATUS);
    EXPECT_NE(held, nullptr) << "the holder's handle keeps the service";
    if (held)
        CloseServiceHandle(held);

    holder.Kill();
    EXPECT_TRUE(WaitUntilGone(name));
    EXPECT_EQ(remove(ready.c_str()), 0);
}

TEST_F(ServiceTest, TsscRoundTrip)
{
    std::string name = "TsTestSc" + std::to_string(GetCurrentProcessId());
    created_.push_back(name);
    std::string out;
    std::string bin = "\"" + ServiceCommand("") + "\"";
    if (!tstest::RunningOnPosix())
        bin = "\"\\\"" + tstest::SiblingProgram("testservice") + "\\\"\"";
    ASSERT_EQ(RunCaptured("tssc", "create " + name + " binPath= " + bin + " DisplayName= \"Test service\"", out), 0)
        << out;
    EXPECT_NE(out.find("[SC] CreateService SUCCESS"), std::string::npos) << out;
    ASSERT_EQ(RunCaptured("tssc", "query " + name, out), 0) << out;
    EXPECT_NE(out.find("STATE              : 1  STOPPED"), std::string::npos) << out;
    EXPECT_NE(out.find("TYPE               : 10  WIN32_OWN_PROCESS"), std::string::npos) << out;

    ASSERT_EQ(RunCaptured("tssc", "start " + name, out), 0) << out;
    SC_HANDLE svc = OpenServiceA(scm_, name.c_str(), SERVICE_ALL_ACCESS);
    ASSERT_NE(svc, nullptr);
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    CloseServiceHandle(svc);
    ASSERT_EQ(RunCaptured("tssc", "query " + name, out), 0) << out;
    EXPECT_NE(out.find("STATE              : 4  RUNNING"), std::string::npos) << out;
    EXPECT_NE(out.find("(STOPPABLE, PAUSABLE, ACCEPTS_SHUTDOWN)"), std::string::npos) << out;
    ASSERT_EQ(RunCaptured("tssc", "query", out), 0) << out;
    EXPECT_NE(out.find("SERVICE_NAME: " + name), std::string::npos) << out;
    EXPECT_NE(out.find("DISPLAY_NAME: Test service"), std::string::npos) << out;

    // Pause, continue and interrogate through tssc: GenericServiceE2E.LifeThroughTssc.
    EXPECT_EQ(RunCaptured("tssc", "start " + name, out), ExitCodeOf(ERROR_SERVICE_ALREADY_RUNNING)) << out;
    EXPECT_NE(out.find("[SC] StartService FAILED 1056:"), std::string::npos) << out;
    ASSERT_EQ(RunCaptured("tssc", "stop " + name, out), 0) << out;
    svc = OpenServiceA(scm_, name.c_str(), SERVICE_ALL_ACCESS);
    ASSERT_NE(svc, nullptr);
    ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED));
    CloseServiceHandle(svc);
    EXPECT_EQ(RunCaptured("tssc", "stop " + name, out), ExitCodeOf(ERROR_SERVICE_NOT_ACTIVE)) << out;
    EXPECT_NE(out.find("The service has not been started."), std::string::npos) << out;

    ASSERT_EQ(RunCaptured("tssc", "delete " + name, out), 0) << out;
    EXPECT_NE(out.find("[SC] DeleteService SUCCESS"), std::string::npos) << out;
    EXPECT_EQ(RunCaptured("tssc", "query " + name, out), ExitCodeOf(ERROR_SERVICE_DOES_NOT_EXIST)) << out;
    EXPECT_NE(out.find("[SC] OpenService FAILED 1060:"), std::string::npos) << out;
    EXPECT_EQ(RunCaptured("tssc", "frobnicate", out), ExitCodeOf(ERROR_INVALID_COMMAND_LINE)) << out;
}

TEST(ServiceManagerStart, ForegroundDaemonServesUntilStopped)
{
    TS_SKIP_ON_WINE("the system manager is already running");
    tstest::ScopedMachineRoot root;
    ChildProcess daemon;
    ASSERT_TRUE(daemon.Start("tsscm", {}));
    // It listens once its socket exists; clients then reach it, not a new one.
    std::string sock = root.path() + "/run/tsscm.sock";
    ASSERT_TRUE(tstest::AwaitFile(sock));
    ChildProcess second;
    ASSERT_TRUE(second.Start("tsscm", {}));
    EXPECT_EQ(second.Wait(), 1) << "one daemon per machine root";
    ChildProcess client;
    ASSERT_TRUE(client.Start("scmclient", {"open"}));
    EXPECT_EQ(client.Wait(), 0);
    EXPECT_EQ(tstest::StopManager(), 0);
    EXPECT_EQ(daemon.Wait(), 0);
    struct stat st;
    EXPECT_NE(stat(sock.c_str(), &st), 0) << "the socket goes with the daemon";
}
