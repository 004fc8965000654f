// Console control events from real signals: SIGINT, SIGQUIT, SIGHUP and
// SIGTERM reach the handlers as CTRL_C, CTRL_BREAK, CTRL_CLOSE and
// CTRL_SHUTDOWN events, last added first, on a thread of their own.
#include "TestSupport.h"

#include <stdio.h>
#ifndef _WIN32
#include <signal.h>
#endif

namespace {

class ConsoleProbe {
public:
    explicit ConsoleProbe(const std::string &mode)
    {
        ready_ = root_.path() + "/ready";
        started_ = child_.Start("consoleprobe", {mode, ready_});
    }
    // True once the child's handlers are in place.
    bool Ready()
    {
        for (DWORD waited = 0; started_ && waited < tstest::kWaitBound; waited += 2) {
            if (FILE *f = fopen(ready_.c_str(), "r")) {
                fclose(f);
                return true;
            }
            Sleep(2);
        }
        return false;
    }
    tstest::ChildProcess &child() { return child_; }

private:
    tstest::ScopedMachineRoot root_;
    tstest::ChildProcess child_;
    std::string ready_;
    bool started_ = false;
};

BOOL WINAPI PassOn(DWORD) { return FALSE; }

} // namespace

#ifndef _WIN32
// The child's pid is not kept by ChildProcess: signal it through its group
// of one, found as the newest child of ours.
static pid_t LastChild()
{
    pid_t newest = 0;
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/task/%d/children", getpid(), getpid());
    if (FILE *f = fopen(path, "r")) {
        int pid;
        while (fscanf(f, "%d", &pid) == 1)
            newest = pid;
        fclose(f);
    }
    return newest;
}

static void Signal(int sig)
{
    pid_t pid = LastChild();
    ASSERT_GT(pid, 0);
    ASSERT_EQ(kill(pid, sig), 0);
}
#endif

TEST(ConsoleEvents, SignalsBecomeEventsForTheLastHandlerFirst)
{
    TS_SKIP_ON_WINE("console events come from a console, which a test under Wine has none of");
#ifndef _WIN32
    const struct {
        int sig;
        DWORD event;
    } cases[] = {{SIGINT, CTRL_C_EVENT}, {SIGQUIT, CTRL_BREAK_EVENT}, {SIGHUP, CTRL_CLOSE_EVENT},
                 {SIGTERM, CTRL_SHUTDOWN_EVENT}};
    for (const auto &c : cases) {
        ConsoleProbe probe("handled");
        ASSERT_TRUE(probe.Ready());
        Signal(c.sig);
        // TRUE from a handler keeps the process running: it ends by itself.
        EXPECT_EQ(probe.child().Wait(), static_cast<int>(10 + c.event)) << "signal " << c.sig;
    }
    ConsoleProbe chain("chain");
    ASSERT_TRUE(chain.Ready());
    Signal(SIGINT);
    EXPECT_EQ(chain.child().Wait(), 10 + CTRL_C_EVENT) << "FALSE passes the event to the handler added before";
#endif
}

TEST(ConsoleEvents, UnhandledEventEndsTheProcessByItsSignal)
{
    TS_SKIP_ON_WINE("console events come from a console, which a test under Wine has none of");
#ifndef _WIN32
    for (int sig : {SIGINT, SIGTERM}) {
        ConsoleProbe probe("unhandled");
        ASSERT_TRUE(probe.Ready());
        Signal(sig);
        EXPECT_EQ(probe.child().Wait(), 128 + sig);
    }
#endif
}

TEST(ConsoleEvents, RepeatedSignalDoesNotKillAProcessThatIsStopping)
{
    TS_SKIP_ON_WINE("console events come from a console, which a test under Wine has none of");
#ifndef _WIN32
    ConsoleProbe probe("stopping");
    ASSERT_TRUE(probe.Ready());
    Signal(SIGINT);
    Signal(SIGINT);
    Signal(SIGINT);
    EXPECT_EQ(probe.child().Wait(), 10 + CTRL_C_EVENT);

    ConsoleProbe ignoring("ignore");
    ASSERT_TRUE(ignoring.Ready());
    Signal(SIGINT); // ignored altogether
    Signal(SIGTERM);
    Signal(SIGTERM); // handled again, never by the default
    EXPECT_EQ(ignoring.child().Wait(), 10 + CTRL_SHUTDOWN_EVENT);
#endif
}

TEST(ConsoleEvents, RemovingAHandlerThatIsNotThereFails)
{
    PHANDLER_ROUTINE handler = PassOn;
    EXPECT_FALSE(SetConsoleCtrlHandler(handler, FALSE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(SetConsoleCtrlHandler(handler, TRUE));
    EXPECT_TRUE(SetConsoleCtrlHandler(handler, FALSE));
}
