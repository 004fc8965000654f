// A service under the service manager whose worker is a ServiceThread
// (children/svcthread_probe): it answers start, pause, continue and stop,
// each seen by the manager, and its guard (a DiagGuardService of its own)
// writes one gated message per answer between the messages of its
// InitInstance and ExitInstance.
#include "ServiceProbeFixture.h"

#include <string>

namespace {

class ServiceThreadScmTest : public tstest::ServiceProbeTest {
protected:
    // The control's answer as the manager reports it once it is settled.
    DWORD Settled(DWORD control, DWORD state)
    {
        SERVICE_STATUS s{};
        EXPECT_NE(ControlService(service_, control, &s), 0) << "control " << control << ", error " << GetLastError();
        EXPECT_TRUE(tstest::ServiceTest::WaitForState(service_, state, &s)) << "state " << s.dwCurrentState;
        return s.dwCurrentState;
    }
};

} // namespace

TEST_F(ServiceThreadScmTest, AServiceThreadAnswersStartPauseContinueAndStop)
{
    ASSERT_NO_FATAL_FAILURE(InstallAndStart("TSSvcThread" + std::to_string(GetCurrentProcessId()), "svcthread_probe",
                                            "HKLM " + base_ + " " + File("worker.txt")));
    SERVICE_STATUS s{};
    ASSERT_TRUE(tstest::ServiceTest::WaitForState(service_, SERVICE_RUNNING, &s)) << "state " << s.dwCurrentState;

    EXPECT_EQ(Settled(SERVICE_CONTROL_PAUSE, SERVICE_PAUSED), static_cast<DWORD>(SERVICE_PAUSED));
    EXPECT_EQ(Settled(SERVICE_CONTROL_CONTINUE, SERVICE_RUNNING), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(Settled(SERVICE_CONTROL_STOP, SERVICE_STOPPED), static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(AwaitEnding("worker.txt", "   and ServiceThread (base class) exiting -- ExitInstance().\r\n"),
              "ServiceThread (base class) initializing -- InitInstance().\r\n"
                                              "answered start\r\n"
                                              "answered pause\r\n"
                                              "answered continue\r\n"
                                              "answered stop\r\n"
                                              "   and ServiceThread (base class) exiting -- ExitInstance().\r\n");
}
