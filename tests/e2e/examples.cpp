// The example programs at work. The heartbeat service lives its whole life
// under the service manager as an operator drives it: its own commands
// install, start, query, stop and remove it, tsreg switches its diagnostics
// on while it runs, tssc pauses and continues it; its day-ring log and its
// diagnostic file tell what it did. The application writes one diagnostic
// file for its main thread and two threads that share its guard.
#include "ScratchDir.h"
#include "ServiceFixture.h"

#include <stdio.h>
#include <time.h>

#include <string>

namespace {

// Standard output of a program beside the test, line ends as plain line
// feeds; exit code into *code.
std::string Output(const std::string &program, const std::string &args, int *code = nullptr)
{
    std::string out, plain;
    int result = tstest::RunCaptured(program, args, out);
    if (code)
        *code = result;
    for (char c : out) {
        if (c != '\r')
            plain += c;
    }
    return plain;
}

// The text without its CRs, time stamps ("hh:mm:ss " at a line's start)
// and beat lines: the events in order.
std::string Events(const std::string &text)
{
    std::string events, line;
    for (char c : text) {
        if (c == '\r')
            continue;
        if (c != '\n') {
            line += c;
            continue;
        }
        if (line.size() > 9 && line[2] == ':' && line[5] == ':')
            line = line.substr(9);
        if (line.rfind("beat ", 0) != 0 && line.rfind("heartbeat beat ", 0) != 0)
            events += line + "\n";
        line.clear();
    }
    return events;
}

class ExampleServiceE2E : public tstest::ServiceTest {
protected:
    void SetUp() override
    {
        ServiceTest::SetUp();
        // A machine that keeps its registry between runs starts afresh too.
        Output("heartbeat", "remove");
        Output("tsreg", "delete \"HKLM\\SOFTWARE\\TSUtil\\Heartbeat\" /f");
    }
    void TearDown() override
    {
        Output("heartbeat", "remove");
        ServiceTest::TearDown();
    }
    bool Reaches(DWORD state)
    {
        SC_HANDLE svc = OpenServiceA(scm_, "TSHeartbeat", SERVICE_QUERY_STATUS);
        bool reached = svc && WaitForState(svc, state);
        if (svc)
            CloseServiceHandle(svc);
        return reached;
    }
};

TEST_F(ExampleServiceE2E, HeartbeatInstallsStartsPausesContinuesStopsAndRemovesItself)
{
    EXPECT_EQ(Output("heartbeat", "install"),
              "heartbeat: first use: settings created in HKLM\\SOFTWARE\\TSUtil\\Heartbeat\nTSHeartbeat installed\n");
    EXPECT_EQ(Output("heartbeat", "start"), "TSHeartbeat started...\n");
    ASSERT_TRUE(Reaches(SERVICE_RUNNING));
    EXPECT_EQ(Output("heartbeat", "status"), "TSHeartbeat: RUNNING\n");

    int code = -1;
    Output("tsreg", "add \"HKLM\\SOFTWARE\\TSUtil\\Heartbeat\\Diagnostics\" /v AllowDiagnostics /t REG_DWORD /d 1 /f",
           &code);
    EXPECT_EQ(code, 0);
    Output("tssc", "pause TSHeartbeat", &code);
    EXPECT_EQ(code, 0);
    ASSERT_TRUE(Reaches(SERVICE_PAUSED));
    EXPECT_EQ(Output("heartbeat", "status"), "TSHeartbeat: PAUSED\n");
    Output("tssc", "continue TSHeartbeat", &code);
    EXPECT_EQ(code, 0);
    ASSERT_TRUE(Reaches(SERVICE_RUNNING));

    EXPECT_EQ(Output("heartbeat", "stop"), "TSHeartbeat stopped...\n");
    ASSERT_TRUE(Reaches(SERVICE_STOPPED));
    EXPECT_EQ(Output("heartbeat", "status"), "TSHeartbeat: STOPPED\n");
    EXPECT_EQ(Output("heartbeat", "remove"), "TSHeartbeat removed\n");
    EXPECT_TRUE(WaitUntilGone("TSHeartbeat"));
    EXPECT_EQ(Output("heartbeat", "status", &code), "Unable to get service handle for TSUtil Heartbeat Service\n");
    EXPECT_EQ(code, 1);

    // The log has every event, and no beat while paused.
    time_t now = time(nullptr);
    char log[64];
    strftime(log, sizeof log, "c:\\TSData\\Heartbeat\\heartbeat%d.log", localtime(&now));
    EXPECT_EQ(Events(tstest::ReadWholeFile(log)), "started\npaused\ncontinued\nstopped\n");
    // The diagnostics, switched on after the start, from the pause on; the
    // worker's guard writes its last message as its thread ends.
    const std::string diag = "c:\\TSDiag\\Heartbeat\\heartbeat.txt";
    const std::string last = "   and ServiceThread (base class) exiting -- ExitInstance().\r\n";
    EXPECT_TRUE(tstest::Eventually([&] {
        std::string text = tstest::ReadWholeFile(diag);
        return text.size() >= last.size() && text.compare(text.size() - last.size(), last.size(), last) == 0;
    }));
    EXPECT_EQ(Events(tstest::ReadWholeFile(diag)),
              "heartbeat paused\nheartbeat continued\nheartbeat stopped\n" + last.substr(0, last.size() - 2) + "\n");
}

TEST(ExampleAppE2E, TsappWritesOneDiagnosticFileForItsThreeThreads)
{
    tstest::ScopedMachineRoot root;
    const std::string text = "WinApp initializing -- InitInstance().\n"
                             "WinThread initializing -- InitInstance().\n"
                             "thread A is ready\n"
                             "WinThread initializing -- InitInstance().\n"
                             "thread B is ready\n"
                             "application: both threads are ready; thread A begins\n"
                             "thread A counts 1\n"
                             "thread B counts 1\n"
                             "thread A counts 2\n"
                             "thread B counts 2\n"
                             "thread A counts 3\n"
                             "thread B counts 3\n"
                             "thread A ends\n"
                             "   and WinThread exiting -- ExitInstance().\n"
                             "thread B ends\n"
                             "   and WinThread exiting -- ExitInstance().\n"
                             "application: both threads have ended\n"
                             "   and WinApp exiting -- ExitInstance().\n";
    int code = -1;
    EXPECT_EQ(Output("tsapp", "", &code), "tsapp: the diagnostic file c:\\TSDiag\\App\\tsapp.txt:\n" + text);
    EXPECT_EQ(code, 0);
    std::string withCrLf;
    for (char c : text)
        withCrLf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(tstest::ReadWholeFile("c:\\TSDiag\\App\\tsapp.txt"), withCrLf);
}

} // namespace
