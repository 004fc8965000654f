// The service manager between processes: clients racing to start it, a
// service process killed, another user refused, and tssc round trips.
#include "ScratchDir.h"
#include "ServiceFixture.h"

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
    EXPECT_EQ(tstest::RunChild("scmclient", {"open-as", "65534", "65534"}), ERROR_ACCESS_DENIED);
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

// tssc takes the lines sc.exe takes and refuses those it refuses, with
// sc.exe's messages and exit codes: one line after another on the same
// services (N, and D that N comes to depend on), from creation to deletion.
// {N}, {D} and {BIN} stand for the services' names and the test service's
// command line.
TEST_F(ServiceTest, TsscReadsScExeLines)
{
    const std::string n = "TsTbl" + std::to_string(GetCurrentProcessId()), d = n + "Dep", x = n + "X";
    created_ = {n, d, x};
    std::string bin = "\"" + ServiceCommand("") + "\"";
    if (!tstest::RunningOnPosix())
        bin = "\"\\\"" + tstest::SiblingProgram("testservice") + "\\\"\"";
    constexpr DWORD kUsage = ERROR_INVALID_COMMAND_LINE;
    struct Row {
        const char *line;
        DWORD result;     // the exit code: 0 or the error
        const char *text; // what the output holds
        const char *wine; // why Wine's service manager answers otherwise (the row is passed over there)
    };
    const Row rows[] = {
        {"create {N} binPath= {BIN}", 0, "[SC] CreateService SUCCESS", nullptr},
        {"create {N} binPath= {BIN}", ERROR_SERVICE_EXISTS, "[SC] CreateService FAILED 1073:", nullptr},
        {"create {X} binpath={BIN}", kUsage, "binPath= ", nullptr}, // no space after '=': no option
        {"create {X}", kUsage, "USAGE:", nullptr},
        {"create {X} binPath=", kUsage, "USAGE:", nullptr},
        {"create {X} binPath= {BIN} start= sometimes", kUsage, "delayed-auto", nullptr},
        {"create {X} binPath= {BIN} start= boot", ERROR_INVALID_PARAMETER, "[SC] CreateService FAILED 87:",
         "takes a boot start for a Win32 service"},
        {"create {X} binPath= {BIN} start= system", ERROR_INVALID_PARAMETER, "FAILED 87:",
         "takes a system start for a Win32 service"},
        {"create {X} binPath= {BIN} type= interact", ERROR_INVALID_PARAMETER, "FAILED 87:",
         "takes an interactive type alone"},
        {"create {X} binPath= {BIN} obj= NoSuchAccountTs", ERROR_INVALID_SERVICE_ACCOUNT,
         "[SC] CreateService FAILED 1057:", "checks no account"},
        {"CREATE {D} BINPATH= {BIN} START= DEMAND DISPLAYNAME= \"Dep Display\"", 0, "CreateService SUCCESS", nullptr},
        {"config {N} depend= {D} start= AUTO error= Severe", 0, "[SC] ChangeServiceConfig SUCCESS", nullptr},
        {"qc {N}", 0, "DEPENDENCIES       : {D}", "keeps no dependencies that ChangeServiceConfigW gives"},
        {"qc {N}", 0, "ERROR_CONTROL      : 2   SEVERE", nullptr},
        {"config {N} start= delayed-auto", 0, "ChangeServiceConfig SUCCESS", "has no delayed automatic start"},
        {"qc {N}", 0, "START_TYPE         : 2   AUTO_START  (DELAYED)", "has no delayed automatic start"},
        {"qc {N} 10", ERROR_INSUFFICIENT_BUFFER, "[SC] QueryServiceConfig FAILED 122:", nullptr},
        {"qc {N} ten", kUsage, "USAGE:", nullptr},
        {"config {N}", kUsage, "USAGE:", nullptr},
        {"config {N} obj= .\\NoSuchAccountTs", ERROR_INVALID_SERVICE_ACCOUNT, "ChangeServiceConfig FAILED 1057:",
         "checks no account"},
        {"config {N} depend= {N}", ERROR_CIRCULAR_DEPENDENCY, "ChangeServiceConfig FAILED 1059:",
         "takes circular dependencies"},
        {"config {D} depend= {N}", ERROR_CIRCULAR_DEPENDENCY, "ChangeServiceConfig FAILED 1059:",
         "takes circular dependencies"},
        {"description {N} \"A service's text\"", 0, "[SC] ChangeServiceConfig2 SUCCESS", nullptr},
        {"qdescription {N}", 0, "DESCRIPTION:  A service's text", nullptr},
        {"description {N}", kUsage, "USAGE:", nullptr},
        // Text in any language is kept as given (the Windows leg's command line here is narrow).
        {"config {N} DisplayName= \"Grüße 世界\"", 0, "ChangeServiceConfig SUCCESS", "a narrow command line"},
        {"getdisplayname {N}", 0, "Name = Grüße 世界", "a narrow command line"},
        {"getkeyname \"GRÜSSE 世界\"", ERROR_SERVICE_DOES_NOT_EXIST, "FAILED 1060:", "a narrow command line"},
        {"description {N} \"Описание ✓\"", 0, "ChangeServiceConfig2 SUCCESS", "a narrow command line"},
        {"qdescription {N}", 0, "DESCRIPTION:  Описание ✓", "a narrow command line"},
        {"getdisplayname {D}", 0, "Name = Dep Display", nullptr},
        {"getkeyname \"dep display\"", 0, "Name = {D}", nullptr},
        {"getkeyname NoSuchDisplayTs", ERROR_SERVICE_DOES_NOT_EXIST, "GetServiceKeyName FAILED 1060:", nullptr},
        {"query state=all", ERROR_SERVICE_DOES_NOT_EXIST, "[SC] OpenService FAILED 1060:", nullptr},
        {"query type= service state= all", 0, "SERVICE_NAME: {N}", nullptr},
        {"QUERY STATE= INACTIVE bufsize= 100 ri= 0", 0, "DISPLAY_NAME: Dep Display", nullptr},
        {"query type= bogus", kUsage, "USAGE:", nullptr},
        {"queryex {N}", 0, "PID                : 0", nullptr},
        {"query {N}", 0, "STATE              : 1  STOPPED", nullptr},
        {"query {N}", 0, "TYPE               : 10  WIN32_OWN_PROCESS", nullptr},
        {"start {N} one two", 0, "SERVICE_NAME: {N}", nullptr},
        {"query {D}", 0, "STATE              : 4  RUNNING", "starts no dependencies"},
        {"start {D}", ERROR_SERVICE_ALREADY_RUNNING, "[SC] StartService FAILED 1056:", "starts no dependencies"},
        {"stop {D}", ERROR_DEPENDENT_SERVICES_RUNNING, "[SC] ControlService FAILED 1051:", "starts no dependencies"},
        {"pause {N}", 0, "STATE              : 7  PAUSED", nullptr},
        {"continue {N}", 0, "SERVICE_NAME: {N}", nullptr},
        {"interrogate {N}", 0, "STATE              : 4  RUNNING", nullptr},
        {"query {N}", 0, "(STOPPABLE, PAUSABLE, ACCEPTS_SHUTDOWN)", nullptr},
        {"query", 0, "SERVICE_NAME: {N}", nullptr},
        {"start {N}", ERROR_SERVICE_ALREADY_RUNNING, "[SC] StartService FAILED 1056:", nullptr},
        {"stop {N} now", kUsage, "USAGE:", nullptr},
        {"stop {N}", 0, "SERVICE_NAME: {N}", nullptr},
        {"stop {N}", ERROR_SERVICE_NOT_ACTIVE, "The service has not been started.", nullptr},
        {"stop", kUsage, "USAGE:", nullptr},
        {"delete {X}", ERROR_SERVICE_DOES_NOT_EXIST, "[SC] OpenService FAILED 1060:", nullptr},
        {"delete {N}", 0, "[SC] DeleteService SUCCESS", nullptr},
        {"query {N}", ERROR_SERVICE_DOES_NOT_EXIST, "[SC] OpenService FAILED 1060:", nullptr},
        {"frobnicate", kUsage, "Commands:", nullptr},
        {"", kUsage, "Commands:", nullptr},
    };
    auto expand = [&](std::string s) {
        for (auto &p : {std::make_pair(std::string("{N}"), n), std::make_pair(std::string("{D}"), d),
                        std::make_pair(std::string("{X}"), x), std::make_pair(std::string("{BIN}"), bin)})
            for (size_t at; (at = s.find(p.first)) != std::string::npos;)
                s.replace(at, p.first.size(), p.second);
        return s;
    };
    for (const Row &row : rows) {
        if (!tstest::RunningOnPosix() && row.wine)
            continue;
        std::string line = expand(row.line), out;
        int rc = RunCaptured("tssc", line, out);
        EXPECT_EQ(rc, ExitCodeOf(row.result)) << line << "\n" << out;
        EXPECT_NE(out.find(expand(row.text)), std::string::npos) << line << "\n" << out;
        if (line == "stop " + n) { // the next rows need it stopped
            SC_HANDLE svc = OpenServiceA(scm_, n.c_str(), SERVICE_QUERY_STATUS);
            ASSERT_NE(svc, nullptr);
            EXPECT_TRUE(WaitForState(svc, SERVICE_STOPPED));
            CloseServiceHandle(svc);
        }
    }
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
    EXPECT_EQ(tstest::RunChild("tsscm", {}), 1) << "one daemon per machine root";
    EXPECT_EQ(tstest::RunChild("scmclient", {"open"}), 0);
    EXPECT_EQ(tstest::StopManager(), 0);
    EXPECT_EQ(daemon.Wait(), 0);
    struct stat st;
    EXPECT_NE(stat(sock.c_str(), &st), 0) << "the socket goes with the daemon";
}
