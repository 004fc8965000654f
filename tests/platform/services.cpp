// The service manager's client calls against a real service process: the
// life of a service, the error codes, deletion, and the manager's own
// deadlines. On Windows the same cases run against the system's manager.
#include "ServiceFixture.h"

using tstest::ServiceTest;

namespace {

DWORD Control(SC_HANDLE svc, DWORD control, SERVICE_STATUS &st)
{
    st = SERVICE_STATUS{};
    return ControlService(svc, control, &st) ? ERROR_SUCCESS : GetLastError();
}

void WINAPI NeverRuns(DWORD, LPSTR *) {}

// The registry is written through tsreg, so that this process keeps no
// store of a machine root that a later test replaces.
void SetPipeTimeout(DWORD ms)
{
    std::string out;
    ASSERT_EQ(tstest::RunCaptured("tsreg",
                                  "add 'HKLM\\SYSTEM\\CurrentControlSet\\Control' /v ServicesPipeTimeout /t REG_DWORD /d " +
                                      std::to_string(ms) + " /f",
                                  out),
              0)
        << out;
}

} // namespace

TEST_F(ServiceTest, StartPauseContinueInterrogateStopDelete)
{
    std::string name;
    SC_HANDLE svc = Create("slowstop 200", SERVICE_DEMAND_START, &name); // stop pending for a while
    ASSERT_NE(svc, nullptr);
    SERVICE_STATUS st{};
    ASSERT_TRUE(QueryServiceStatus(svc, &st));
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(st.dwServiceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_STOP, st), static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED)); // filled for this code

    const char *args[] = {"one", "two"};
    ASSERT_TRUE(StartServiceA(svc, 2, args)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING, &st));
    EXPECT_EQ(st.dwServiceSpecificExitCode, 2u) << "the start arguments reach the service main function";
    EXPECT_EQ(st.dwControlsAccepted,
              static_cast<DWORD>(SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PAUSE_CONTINUE));
    EXPECT_EQ(tstest::ErrorOf(StartServiceA(svc, 0, nullptr)), static_cast<DWORD>(ERROR_SERVICE_ALREADY_RUNNING));

    // Each control returns after the handler, with what it reported.
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_PAUSE, st), 0u);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_PAUSED));
    ASSERT_TRUE(QueryServiceStatus(svc, &st));
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_PAUSED));
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_CONTINUE, st), 0u);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_INTERROGATE, st), 0u);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));

    EXPECT_EQ(Control(svc, SERVICE_CONTROL_STOP, st), 0u);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOP_PENDING));
    EXPECT_EQ(st.dwWaitHint, 5000u);
    ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED, &st));
    EXPECT_EQ(st.dwWin32ExitCode, 0u);
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_INTERROGATE, st), static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));

    // It can run again, then goes for good.
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING, &st));
    EXPECT_EQ(st.dwServiceSpecificExitCode, 0u);
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_STOP, st), 0u);
    ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED));
    EXPECT_TRUE(DeleteService(svc));
    EXPECT_TRUE(CloseServiceHandle(svc));
    // Windows removes the service once its process has gone as well, which
    // may be a moment after the stopped report.
    DWORD openError = 0;
    EXPECT_TRUE(tstest::Eventually([&] {
        SC_HANDLE again = OpenServiceA(scm_, name.c_str(), SERVICE_QUERY_STATUS);
        openError = GetLastError();
        if (again)
            CloseServiceHandle(again);
        return again == nullptr;
    }));
    EXPECT_EQ(openError, static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
}

TEST_F(ServiceTest, ErrorCodesOfTheClientCalls)
{
    std::string name;
    SC_HANDLE svc = Create("nopause", SERVICE_DEMAND_START, &name);
    ASSERT_NE(svc, nullptr);

    // Names: taken, taken without regard to case, taken as a display name, bad.
    auto create = [&](const char *n, const char *display) {
        SC_HANDLE h = CreateServiceA(scm_, n, display, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                     SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                     ServiceTest::ServiceCommand("").c_str(), nullptr, nullptr, nullptr, nullptr,
                                     nullptr);
        DWORD e = h ? 0 : GetLastError();
        if (h) {
            DeleteService(h);
            CloseServiceHandle(h);
        }
        return e;
    };
    std::string upper = name;
    for (char &c : upper)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(create(name.c_str(), nullptr), static_cast<DWORD>(ERROR_SERVICE_EXISTS));
    EXPECT_EQ(create(upper.c_str(), nullptr), static_cast<DWORD>(ERROR_SERVICE_EXISTS));
    std::string other = name + "x";
    if (!tstest::RunningUnderWine()) { // Wine's manager does not compare display names with service names
        EXPECT_EQ(create(other.c_str(), name.c_str()), static_cast<DWORD>(ERROR_DUPLICATE_SERVICE_NAME));
    }
    EXPECT_EQ(create("", nullptr), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(create("a/b", nullptr), static_cast<DWORD>(ERROR_INVALID_NAME));
    EXPECT_EQ(create("a\\b", nullptr), static_cast<DWORD>(ERROR_INVALID_NAME));
    SC_HANDLE h = CreateServiceA(scm_, (name + "y").c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                 7, SERVICE_ERROR_NORMAL, "x", nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));

    SC_HANDLE opened = OpenServiceA(scm_, upper.c_str(), SERVICE_QUERY_STATUS);
    ASSERT_NE(opened, nullptr) << "names match without case";
    EXPECT_EQ(tstest::ErrorOf(StartServiceA(opened, 0, nullptr)), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(CloseServiceHandle(opened));
    EXPECT_EQ(OpenServiceA(scm_, (name + "missing").c_str(), SERVICE_ALL_ACCESS), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));

    // Handles that are not, or no longer, service handles.
    SERVICE_STATUS st{};
    EXPECT_EQ(tstest::ErrorOf(CloseServiceHandle(nullptr)), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(tstest::ErrorOf(QueryServiceStatus(scm_, &st)), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SC_HANDLE closed = OpenServiceA(scm_, name.c_str(), SERVICE_ALL_ACCESS);
    ASSERT_TRUE(CloseServiceHandle(closed));
    EXPECT_EQ(tstest::ErrorOf(CloseServiceHandle(closed)), static_cast<DWORD>(ERROR_INVALID_HANDLE));

    // A control the running service does not accept, and one that is no control.
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_PAUSE, st), static_cast<DWORD>(ERROR_INVALID_SERVICE_CONTROL));
    if (!tstest::RunningUnderWine()) { // Wine's manager leaves the status out for this code
        EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    }
    EXPECT_EQ(Control(svc, 0, st), static_cast<DWORD>(ERROR_INVALID_PARAMETER));

    // This process was not started by the manager.
    char tableName[] = "NotStartedByTheManager";
    SERVICE_TABLE_ENTRYA table[] = {{tableName, NeverRuns}, {nullptr, nullptr}};
    EXPECT_EQ(tstest::ErrorOf(StartServiceCtrlDispatcherA(table)),
              static_cast<DWORD>(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT));
}

// The A calls' text goes through the ANSI code page: the W calls give back
// each string of it, the dependency list one by one, as UTF-16.
TEST_F(ServiceTest, AnsiTextReachesTheManagerThroughTheCodePage)
{
    using Wide = std::basic_string<WCHAR>;
    auto widened = [](const char *text) {
        int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
        Wide out(n > 0 ? static_cast<size_t>(n) : 1, 0);
        MultiByteToWideChar(CP_ACP, 0, text, -1, &out[0], n);
        return out; // with its terminator
    };
    std::string name = "TsTestAnsi" + std::to_string(GetCurrentProcessId());
    const char display[] = "Caf\xe9 \xc4pfel", group[] = "Gr\xfcppe", dependencies[] = "Dep\xe9\0Zweite\0";
    SC_HANDLE svc = CreateServiceA(scm_, name.c_str(), display, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                   SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, ServiceCommand("").c_str(), group,
                                   nullptr, dependencies, nullptr, nullptr);
    ASSERT_NE(svc, nullptr) << GetLastError();
    created_.push_back(name);

    std::vector<BYTE> buf(8192);
    auto *config = reinterpret_cast<LPQUERY_SERVICE_CONFIGW>(buf.data());
    DWORD needed = 0;
    ASSERT_TRUE(QueryServiceConfigW(svc, config, static_cast<DWORD>(buf.size()), &needed)) << GetLastError();
    // A string, and a list of strings up to the empty one that ends it,
    // with their terminators.
    auto one = [](LPCWSTR text) {
        size_t n = 0;
        while (text[n])
            ++n;
        return Wide(text, n + 1);
    };
    auto list = [](LPCWSTR text) {
        size_t n = 0;
        while (text[n])
            while (text[n++])
                ;
        return Wide(text, n + 1);
    };
    EXPECT_TRUE(one(config->lpDisplayName) == widened(display));
    EXPECT_TRUE(one(config->lpLoadOrderGroup) == widened(group));
    if (!tstest::RunningUnderWine()) { // Wine's manager keeps no dependencies
        EXPECT_TRUE(list(config->lpDependencies) == widened("Dep\xe9") + widened("Zweite") + Wide(1, 0));
    }
    EXPECT_TRUE(CloseServiceHandle(svc));
}

TEST_F(ServiceTest, DeletedWhileRunningGoesWhenItStops)
{
    std::string name;
    SC_HANDLE svc = Create("", SERVICE_DEMAND_START, &name);
    ASSERT_NE(svc, nullptr);
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    ASSERT_TRUE(DeleteService(svc));
    EXPECT_EQ(tstest::ErrorOf(DeleteService(svc)), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    SC_HANDLE again = CreateServiceA(scm_, name.c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                     SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, ServiceCommand("").c_str(), nullptr,
                                     nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(again, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    SERVICE_STATUS st{};
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_STOP, st), 0u) << "a service marked for deletion still takes controls";
    // Stopped, it goes (on Windows once the last handle is closed, too);
    // the status may be gone before it reads as stopped.
    WaitForState(svc, SERVICE_STOPPED);
    CloseServiceHandle(svc);
    EXPECT_TRUE(WaitUntilGone(name));
}

TEST_F(ServiceTest, MarkedForDeletionUntilTheLastHandleCloses)
{
    std::string name;
    SC_HANDLE svc = Create("", SERVICE_DEMAND_START, &name);
    ASSERT_NE(svc, nullptr);
    SC_HANDLE second = OpenServiceA(scm_, name.c_str(), SERVICE_QUERY_STATUS);
    ASSERT_NE(second, nullptr) << GetLastError();
    ASSERT_TRUE(DeleteService(svc)) << GetLastError();
    EXPECT_TRUE(CloseServiceHandle(svc));

    // Stopped but still open elsewhere: the name stays taken, the handle works.
    auto create = [&] {
        return CreateServiceA(scm_, name.c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                              SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, ServiceCommand("").c_str(), nullptr,
                              nullptr, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    SERVICE_STATUS st{};
    ASSERT_TRUE(QueryServiceStatus(second, &st)) << GetLastError();
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));

    // The last handle closed, the service is gone and its name free.
    EXPECT_TRUE(CloseServiceHandle(second));
    EXPECT_TRUE(WaitUntilGone(name));
    SC_HANDLE again = create();
    EXPECT_NE(again, nullptr) << GetLastError();
    if (again)
        CloseServiceHandle(again);
}

TEST_F(ServiceTest, SecondStopWhileStoppingDoesNotKill)
{
    SC_HANDLE svc = Create("slowstop 1000");
    ASSERT_NE(svc, nullptr);
    ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING));
    SERVICE_STATUS st{};
    ASSERT_EQ(Control(svc, SERVICE_CONTROL_STOP, st), 0u);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOP_PENDING));
    EXPECT_EQ(Control(svc, SERVICE_CONTROL_STOP, st), static_cast<DWORD>(ERROR_SERVICE_CANNOT_ACCEPT_CTRL));
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOP_PENDING));
    ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED, &st));
    EXPECT_EQ(st.dwWin32ExitCode, 0u) << "it stopped by itself, in good order";
}

TEST_F(ServiceTest, ProcessThatNeverReachesItsDispatcher)
{
    TS_SKIP_ON_WINE("the system manager's start deadline (30 s) is not ours to shorten");
    SetPipeTimeout(300);
    SC_HANDLE svc = Create("silent");
    ASSERT_NE(svc, nullptr);
    EXPECT_EQ(tstest::ErrorOf(StartServiceA(svc, 0, nullptr)), static_cast<DWORD>(ERROR_SERVICE_REQUEST_TIMEOUT));
    SERVICE_STATUS st{};
    ASSERT_TRUE(QueryServiceStatus(svc, &st));
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));

    SC_HANDLE quits = Create("quit");
    ASSERT_NE(quits, nullptr);
    EXPECT_EQ(tstest::ErrorOf(StartServiceA(quits, 0, nullptr)), static_cast<DWORD>(ERROR_PROCESS_ABORTED));

    SC_HANDLE missing = CreateServiceA(scm_, "TsTestMissingProgram", nullptr, SERVICE_ALL_ACCESS,
                                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                       "/nonexistent/program", nullptr, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(missing, nullptr);
    created_.push_back("TsTestMissingProgram");
    EXPECT_EQ(tstest::ErrorOf(StartServiceA(missing, 0, nullptr)), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(ServiceManagerStart, AutomaticServicesStartWithTheManager)
{
    TS_SKIP_ON_WINE("the system manager started before the test");
    // Entered in the registry alone, before any manager runs for this root.
    tstest::ScopedMachineRoot root;
    const std::string key = "'HKLM\\SYSTEM\\CurrentControlSet\\Services\\TsAuto'";
    std::string out;
    ASSERT_EQ(tstest::RunCaptured("tsreg", "add " + key + " /v ImagePath /t REG_EXPAND_SZ /d '" +
                                               ServiceTest::ServiceCommand("") + "' /f", out), 0) << out;
    ASSERT_EQ(tstest::RunCaptured("tsreg", "add " + key + " /v Type /t REG_DWORD /d 16 /f", out), 0) << out;
    ASSERT_EQ(tstest::RunCaptured("tsreg", "add " + key + " /v Start /t REG_DWORD /d 2 /f", out), 0) << out;

    SC_HANDLE scm = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    ASSERT_NE(scm, nullptr) << GetLastError();
    SC_HANDLE svc = OpenServiceA(scm, "tsauto", SERVICE_ALL_ACCESS);
    ASSERT_NE(svc, nullptr) << GetLastError();
    EXPECT_TRUE(ServiceTest::WaitForState(svc, SERVICE_RUNNING));
    CloseServiceHandle(svc);
    CloseServiceHandle(scm);
    EXPECT_EQ(tstest::StopManager(), 0) << "the manager's clean stop ends the service too";
}

TEST_F(ServiceTest, ReportsFromHandlerAndServiceThreadKeepTheirOrder)
{
    // The handler reports SERVICE_STOP_PENDING and the service thread
    // SERVICE_STOPPED a moment later: the manager must end with the last.
    SC_HANDLE svc = Create();
    ASSERT_NE(svc, nullptr);
    // Wine's manager now and then refuses a start (1359) while the process
    // of the last round is still ending: one round is its reference.
    const int rounds = tstest::RunningUnderWine() ? 1 : 20;
    for (int i = 0; i < rounds; ++i) {
        ASSERT_TRUE(StartServiceA(svc, 0, nullptr)) << "round " << i << ": " << GetLastError();
        ASSERT_TRUE(WaitForState(svc, SERVICE_RUNNING)) << "round " << i;
        SERVICE_STATUS st{};
        ASSERT_EQ(Control(svc, SERVICE_CONTROL_STOP, st), 0u) << "round " << i;
        SERVICE_STATUS end{};
        ASSERT_TRUE(WaitForState(svc, SERVICE_STOPPED, &end)) << "round " << i;
        EXPECT_EQ(end.dwWin32ExitCode, 0u);
    }
}
