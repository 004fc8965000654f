// A test with the machine's service manager: on POSIX a machine root of its
// own (whose daemon is stopped at the end), on Windows the system's manager,
// where every service the test made is removed again.
#pragma once

#include "TestSupport.h"

#include <atomic>
#include <string>
#include <vector>

namespace tstest {

class ServiceTest : public ::testing::Test {
public:
    // ImagePath of the test service with these words after it.
    static std::string ServiceCommand(const std::string &args);
    // Polls the status until the state is reached (true) or kWaitBound
    // passes; the last status read is left in *out.
    static bool WaitForState(SC_HANDLE svc, DWORD state, SERVICE_STATUS *out = nullptr);

protected:
    void SetUp() override;
    void TearDown() override;

    // Opens the service until it no longer exists (true) or kWaitBound
    // passes: a deleted service may go a moment after its last handle.
    bool WaitUntilGone(const std::string &name);

    // Installs the test service with these words after its path; a name
    // of the test's own unless one is given. Gives an all-access handle.
    SC_HANDLE Create(const std::string &args = "", DWORD start = SERVICE_DEMAND_START, std::string *name = nullptr);

    ScopedMachineRoot root_;
    SC_HANDLE scm_ = nullptr;
    std::vector<std::string> created_;
};

// Stops the POSIX service manager of the machine root with "tsscm --stop";
// gives its exit code.
int StopManager();

} // namespace tstest

namespace tstest {

inline std::atomic<int> serviceSerial{0};

inline std::string ServiceTest::ServiceCommand(const std::string &args)
{
    std::string cmd = "\"" + SiblingProgram("testservice") + "\"";
    return args.empty() ? cmd : cmd + " " + args;
}

inline void ServiceTest::SetUp()
{
    scm_ = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    ASSERT_NE(scm_, nullptr) << GetLastError();
}

inline SC_HANDLE ServiceTest::Create(const std::string &args, DWORD start, std::string *name)
{
    std::string n = "TsTest" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(serviceSerial++);
    if (name && !name->empty())
        n = *name;
    SC_HANDLE svc = CreateServiceA(scm_, n.c_str(), nullptr, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, start,
                                   SERVICE_ERROR_NORMAL, ServiceCommand(args).c_str(), nullptr, nullptr, nullptr,
                                   nullptr, nullptr);
    EXPECT_NE(svc, nullptr) << "CreateServiceA: " << GetLastError();
    if (svc)
        created_.push_back(n);
    if (name)
        *name = n;
    return svc;
}

inline bool ServiceTest::WaitForState(SC_HANDLE svc, DWORD state, SERVICE_STATUS *out)
{
    SERVICE_STATUS st{};
    for (DWORD waited = 0; waited <= kWaitBound; waited += 5) {
        if (!QueryServiceStatus(svc, &st))
            break;
        if (st.dwCurrentState == state) {
            if (out)
                *out = st;
            return true;
        }
        Sleep(5);
    }
    if (out)
        *out = st;
    return false;
}

inline bool ServiceTest::WaitUntilGone(const std::string &name)
{
    for (DWORD waited = 0; waited <= kWaitBound; waited += 5) {
        SC_HANDLE svc = OpenServiceA(scm_, name.c_str(), SERVICE_QUERY_STATUS);
        if (!svc)
            return GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST;
        CloseServiceHandle(svc);
        Sleep(5);
    }
    return false;
}

inline void ServiceTest::TearDown()
{
    for (const std::string &n : created_) {
        SC_HANDLE svc = OpenServiceA(scm_, n.c_str(), SERVICE_ALL_ACCESS);
        if (!svc)
            continue;
        SERVICE_STATUS st{};
        if (ControlService(svc, SERVICE_CONTROL_STOP, &st) || GetLastError() == ERROR_SERVICE_CANNOT_ACCEPT_CTRL)
            WaitForState(svc, SERVICE_STOPPED);
        DeleteService(svc);
        CloseServiceHandle(svc);
    }
    if (scm_)
        CloseServiceHandle(scm_);
    if (RunningOnPosix()) { // leave no daemon behind: it stops its services and ends
        EXPECT_EQ(StopManager(), 0);
    }
}

inline int StopManager()
{
    return RunChild("tsscm", {"--stop"});
}

} // namespace tstest
