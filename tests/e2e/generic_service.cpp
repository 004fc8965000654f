// GenericService with a real service manager and real processes: a probe
// service (children/gensvc_probe) is installed, started, paused, continued,
// interrogated, stopped and removed through the library's control tool,
// with every report of the run time and the exact texts of the tool; and a
// console run of the same program ends on Ctrl+C.
#include <GenSvc.h>

#include "ScratchDir.h"
#include "ServiceFixture.h"
#include "TestSupport.h"

#include <stdio.h>

#include <chrono>
#include <filesystem>
#include <string>

using tstest::kWaitBound;

namespace {

char const kShortName[] = "TSGenSvcProbe";
char const kLongName[] = "TSUtil GenericService Probe";
std::string const kNoHandle = std::string("Unable to get service handle for ") + kLongName + "\n";

std::filesystem::path ScratchFile(const char *what)
{
    return std::filesystem::temp_directory_path() /
           ("gensvc_" + std::to_string(GetCurrentProcessId()) + "_" + what + ".txt");
}

// Runs gensvc_probe in a control mode; gives its exit code and its output.
int RunControlTool(const char *mode, std::string &output)
{
    std::filesystem::path out = ScratchFile(mode);
    int code = tstest::RunChild("gensvc_probe", {mode, out.string()}, 60000); // Remove polls as long as the stop takes
    output = tstest::ReadWholeFile(out.string());
    std::filesystem::remove(out);
    return code;
}

// The service's status as the manager reports it.
struct Status {
    DWORD state, hint, checkPoint;
    bool operator==(const Status &o) const { return state == o.state && hint == o.hint && checkPoint == o.checkPoint; }
};
std::ostream &operator<<(std::ostream &os, const Status &s)
{
    return os << "{state " << s.state << ", hint " << s.hint << ", check point " << s.checkPoint << "}";
}
Status Of(const SERVICE_STATUS &s) { return {s.dwCurrentState, s.dwWaitHint, s.dwCheckPoint}; }

// Queries until the status is expected or kWaitBound has passed; gives the
// last status seen.
Status AwaitStatus(SC_HANDLE service, Status expected)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitBound);
    SERVICE_STATUS s{};
    while (QueryServiceStatus(service, &s) && !(Of(s) == expected) && std::chrono::steady_clock::now() < until)
        Sleep(10);
    return Of(s);
}

Status Control(SC_HANDLE service, DWORD control)
{
    SERVICE_STATUS s{};
    EXPECT_NE(ControlService(service, control, &s), 0) << "control " << control << ", error " << GetLastError();
    return Of(s);
}

class GenericServiceE2E : public testing::Test {
protected:
    void SetUp() override
    {
        manager_ = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        ASSERT_NE(manager_, nullptr) << "no service manager, error " << GetLastError();
        // A probe left by an earlier run that failed half-way.
        std::string ignored;
        RunControlTool("remove", ignored);
    }
    void TearDown() override
    {
        if (manager_) {
            std::string ignored;
            RunControlTool("remove", ignored);
            CloseServiceHandle(manager_);
        }
    }

    tstest::ScopedMachineRoot root_;
    SC_HANDLE manager_ = nullptr;
};

} // namespace

// Remove waits for a service that is stopping already, although the
// manager refuses it the stop control. (Before the test of the whole life:
// that one leaves a handle to its deleted service open for good, as the
// control tool keeps its handle for the life of its object.)
TEST_F(GenericServiceE2E, RemoveWaitsForAServiceThatIsStopping)
{
    std::string out;
    ASSERT_EQ(RunControlTool("install", out), 0);
    SC_HANDLE service = OpenServiceA(manager_, kShortName, SERVICE_ALL_ACCESS);
    ASSERT_NE(service, nullptr);
    ASSERT_NE(StartServiceA(service, 0, nullptr), 0);
    ASSERT_EQ(AwaitStatus(service, {SERVICE_RUNNING, 0, 0}), (Status{SERVICE_RUNNING, 0, 0}));
    EXPECT_EQ(Control(service, SERVICE_CONTROL_STOP), (Status{SERVICE_STOP_PENDING, 15000, 1}));
    // The probe holds its stop answer for 1.5 s, so a Remove that waits
    // takes at least its first poll of a second.
    auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(RunControlTool("remove", out), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1000));
    EXPECT_EQ(out, "");
    SERVICE_STATUS s{};
    if (QueryServiceStatus(service, &s)) { // the entry lives on while a handle is open
        EXPECT_EQ(Of(s), (Status{SERVICE_STOPPED, 0, 0})) << "Remove returned once the service had stopped";
    }
    CloseServiceHandle(service);
}

// The probe driven by an operator with tssc: each control prints the status
// the service's handler reported, with its wait hint. (Before the test of
// the whole life, for the reason given above.)
TEST_F(GenericServiceE2E, LifeThroughTssc)
{
    std::string out;
    ASSERT_EQ(RunControlTool("install", out), 0) << out;
    SC_HANDLE service = OpenServiceA(manager_, kShortName, SERVICE_ALL_ACCESS);
    ASSERT_NE(service, nullptr);
    const std::string name = kShortName;
    auto tssc = [&](const std::string &args) { return tstest::RunCaptured("tssc", args, out); };

    ASSERT_EQ(tssc("start " + name), 0) << out;
    EXPECT_NE(out.find("STATE              : 2  START_PENDING"), std::string::npos) << out;
    ASSERT_EQ(AwaitStatus(service, {SERVICE_RUNNING, 0, 0}), (Status{SERVICE_RUNNING, 0, 0}));

    ASSERT_EQ(tssc("pause " + name), 0) << out;
    EXPECT_NE(out.find("STATE              : 6  PAUSE_PENDING"), std::string::npos) << out;
    EXPECT_NE(out.find("WAIT_HINT          : 0x3e80"), std::string::npos) << out; // 16000
    ASSERT_EQ(AwaitStatus(service, {SERVICE_PAUSED, 0, 0}), (Status{SERVICE_PAUSED, 0, 0}));
    ASSERT_EQ(tssc("interrogate " + name), 0) << out;
    EXPECT_NE(out.find("STATE              : 7  PAUSED"), std::string::npos) << out;

    ASSERT_EQ(tssc("continue " + name), 0) << out;
    EXPECT_NE(out.find("STATE              : 5  CONTINUE_PENDING"), std::string::npos) << out;
    EXPECT_NE(out.find("WAIT_HINT          : 0x55f0"), std::string::npos) << out; // 22000
    ASSERT_EQ(AwaitStatus(service, {SERVICE_RUNNING, 0, 0}), (Status{SERVICE_RUNNING, 0, 0}));

    ASSERT_EQ(tssc("stop " + name), 0) << out;
    EXPECT_NE(out.find("STATE              : 3  STOP_PENDING"), std::string::npos) << out;
    EXPECT_NE(out.find("WAIT_HINT          : 0x3a98"), std::string::npos) << out; // 15000
    EXPECT_EQ(AwaitStatus(service, {SERVICE_STOPPED, 0, 0}).state, static_cast<DWORD>(SERVICE_STOPPED));
    CloseServiceHandle(service);
    EXPECT_EQ(RunControlTool("remove", out), 0) << out;
}

TEST_F(GenericServiceE2E, LifeThroughTheControlTool)
{
    unsigned long state = 99;
    {
        GenericService absent(kShortName, kLongName, TRUE, 0);
        EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(absent.Remove(), FALSE); }), "");
        EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(absent.start_svc(0, nullptr), FALSE); }), kNoHandle);
        EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(absent.stop_svc(), FALSE); }), kNoHandle);
        EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(absent.check_status(state), FALSE); }), kNoHandle);
        EXPECT_EQ(state, 99ul);
        GenericService badName("TS\\Bad", kLongName, TRUE, 0);
        EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(badName.Install(), FALSE); }), "Invalid Service Name\n");
    }

    std::string out;
    ASSERT_EQ(RunControlTool("install", out), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(RunControlTool("install", out), 1);
    EXPECT_EQ(out, "Service is already installed.\n");

    SC_HANDLE service = OpenServiceA(manager_, kShortName, SERVICE_ALL_ACCESS);
    ASSERT_NE(service, nullptr);
    GenericService tool(kShortName, kLongName, TRUE, 0);

    // Start: pending with the start hint while the worker holds its answer.
    EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(tool.start_svc(0, nullptr), TRUE); }),
              std::string(kShortName) + " started...\n");
    EXPECT_EQ(AwaitStatus(service, {SERVICE_START_PENDING, 21000, 1}), (Status{SERVICE_START_PENDING, 21000, 1}));
    EXPECT_EQ(AwaitStatus(service, {SERVICE_RUNNING, 0, 0}), (Status{SERVICE_RUNNING, 0, 0}));
    EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(tool.check_status(state), TRUE); }), "");
    EXPECT_EQ(state, static_cast<unsigned long>(SERVICE_RUNNING));
    EXPECT_EQ(tool.GetCurrentState(), static_cast<unsigned long>(SERVICE_STOPPED)) << "check_status keeps its own record";

    // Stop: the hint has its floor of 15000 over the probe's 5000.
    EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(tool.stop_svc(), TRUE); }), std::string(kShortName) + " stopped...\n");
    SERVICE_STATUS s{};
    ASSERT_NE(QueryServiceStatus(service, &s), 0);
    EXPECT_EQ(Of(s), (Status{SERVICE_STOP_PENDING, 15000, 1}));
    EXPECT_EQ(AwaitStatus(service, {SERVICE_STOPPED, 0, 0}), (Status{SERVICE_STOPPED, 0, 0}));
    ASSERT_NE(QueryServiceStatus(service, &s), 0);
    EXPECT_EQ(s.dwWin32ExitCode, 0u);
    EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(tool.stop_svc(), FALSE); }),
              std::string("Unable to stop ") + kShortName + "\n");

    // Remove stops a running service, waits for it and deletes it.
    EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(tool.start_svc(0, nullptr), TRUE); }),
              std::string(kShortName) + " started...\n");
    EXPECT_EQ(AwaitStatus(service, {SERVICE_RUNNING, 0, 0}), (Status{SERVICE_RUNNING, 0, 0}));
    EXPECT_EQ(tstest::PrintedBy([&] { EXPECT_EQ(tool.start_svc(0, nullptr), FALSE); }),
              std::string("Unable to start ") + kShortName + "\n");
    EXPECT_EQ(RunControlTool("remove", out), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(RunControlTool("remove", out), 1) << "already deleted";
    CloseServiceHandle(service);
}

// A program started by hand in service mode cannot reach the manager: Begin
// gives FALSE and the program ends.
TEST_F(GenericServiceE2E, ServiceModeStartedByHand)
{
    EXPECT_EQ(tstest::RunChild("gensvc_probe", {}, 60000), 2);
}

TEST(GenericServiceConsoleE2E, ConsoleRunEndsOnCtrlC)
{
    tstest::ScopedMachineRoot root;
    std::filesystem::path ready = ScratchFile("ready");
    std::filesystem::remove(ready);
    // Declared before the child, so the file goes once the child has ended.
    struct RemovedAtEnd {
        std::filesystem::path path;
        ~RemovedAtEnd() { std::error_code ignored; std::filesystem::remove(path, ignored); }
    } removed{ready};
    tstest::ChildProcess child;
    ASSERT_TRUE(child.Start("gensvc_probe", {"console", ready.string()}));
    ASSERT_TRUE(tstest::AwaitFile(ready.string())) << "the console run came up";
    if (!child.Interrupt()) {
        DWORD error = GetLastError();
        TS_SKIP_ON_WINE("GenerateConsoleCtrlEvent fails with error " + std::to_string(error) +
                        " for a program that Wine runs without a terminal");
        FAIL() << "the Ctrl+C could not be sent, error " << error;
    }
    EXPECT_EQ(child.Wait(), 0) << "Begin returned TRUE after the stop answer";
}

