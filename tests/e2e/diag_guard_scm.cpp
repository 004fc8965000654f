// DiagGuardService in a real service process under the service manager
// (children/diag_probe): an assertion on the thread the program named
// asks the service to stop and ends the process before any stop report;
// one on another thread reports SERVICE_STOPPED first. Both write the
// report into the guard's file.
#include "ServiceProbeFixture.h"

#include <regex>
#include <string>

namespace {

class GuardServiceTest : public tstest::ServiceProbeTest {
protected:
    // Installs and starts the probe in a mode; its report goes to FILE.
    void Start(const std::string &mode)
    {
        InstallAndStart("TSDiagSvc" + std::to_string(GetCurrentProcessId()) + mode, "diag_probe",
                        mode + " HKLM " + base_ + " " + File(mode + ".txt"));
    }

    // Starts the probe in a mode and expects the report of a thread that
    // emitted where before its assertion.
    void ExpectReport(const std::string &mode, const std::string &where)
    {
        static const std::regex report(
            R"((.*)\r\n\r\n\r\n\*\*Tessavi Assertion Failed\*\*\r\n     File: .*diag_probe\.cpp ,  )"
            R"(Line: \d+\r\n       Time/date of compile: [^\r]+\r\n\r\n Assertion:\r\n  FALSE\r\n\r\n)");
        ASSERT_NO_FATAL_FAILURE(Start(mode));
        std::smatch m;
        std::string text = AwaitEnding(mode + ".txt", "\r\n Assertion:\r\n  FALSE\r\n\r\n");
        SERVICE_STATUS s{};
        QueryServiceStatus(service_, &s);
        ASSERT_TRUE(std::regex_match(text, m, report))
            << text << "\nservice state " << s.dwCurrentState << ", exit code " << s.dwWin32ExitCode;
        EXPECT_EQ(m[1].str(), where);
    }
};

// On a thread other than the named one: SERVICE_STOPPED comes from the
// guard, with the exit code the service had (0), before the process ends.
TEST_F(GuardServiceTest, AnotherThreadReportsTheStop)
{
    ExpectReport("other", "worker thread");
    SERVICE_STATUS s{};
    ASSERT_TRUE(tstest::ServiceTest::WaitForState(service_, SERVICE_STOPPED, &s));
    EXPECT_EQ(s.dwWin32ExitCode, 0u) << "the stop was reported, not found by the manager";
}

// On the named thread: the stop is requested and the process ends at once,
// so no stop report comes from the service; the manager finds the process
// gone.
TEST_F(GuardServiceTest, TheNamedThreadRequestsTheStop)
{
    ExpectReport("named", "named thread");
    TS_SKIP_ON_WINE("the service manager does not notice a service process that ends without reporting its stop");
    SERVICE_STATUS s{};
    ASSERT_TRUE(tstest::ServiceTest::WaitForState(service_, SERVICE_STOPPED, &s));
    EXPECT_EQ(s.dwWin32ExitCode, static_cast<DWORD>(ERROR_PROCESS_ABORTED)) << "no stop report came from the service";
}

} // namespace
