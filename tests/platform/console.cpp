// Console control events from real signals: SIGINT, SIGQUIT, SIGHUP and
// SIGTERM reach the handlers as CTRL_C, CTRL_BREAK, CTRL_CLOSE and
// CTRL_SHUTDOWN events, last added first, on a thread of their own.
#include "TestSupport.h"

#include <initializer_list>

namespace {

const char kNoConsole[] = "console events come from a console, which a test under Wine has none of";

// consoleprobe in one mode, and the events a test sends it.
class ConsoleProbe {
public:
    // With signalsBlocked the child's threads block the console signals and
    // the watcher reads them pending; otherwise the signal handler takes them.
    explicit ConsoleProbe(const std::string &mode, bool signalsBlocked = true)
    {
        ready_ = root_.path() + "/ready";
        std::vector<std::string> args{mode, ready_};
        if (!signalsBlocked)
            args.push_back("unblocked");
        started_ = child_.Start("consoleprobe", args);
    }
    // Sends the events in turn once the handlers are in place; gives the
    // child's exit code.
    int Send(std::initializer_list<DWORD> events)
    {
        EXPECT_TRUE(started_ && tstest::AwaitFile(ready_));
        for (DWORD event : events)
            EXPECT_TRUE(tstest::SendConsoleEventToNewestChild(event)) << "event " << event;
        return child_.Wait();
    }

private:
    tstest::ScopedMachineRoot root_;
    tstest::ChildProcess child_;
    std::string ready_;
    bool started_ = false;
};

BOOL WINAPI PassOn(DWORD) { return FALSE; }

} // namespace

TEST(ConsoleEvents, SignalsBecomeEventsForTheLastHandlerFirst)
{
    TS_SKIP_ON_WINE(kNoConsole);
    for (DWORD event : {CTRL_C_EVENT, CTRL_BREAK_EVENT, CTRL_CLOSE_EVENT, CTRL_SHUTDOWN_EVENT}) {
        // TRUE from a handler keeps the process running: it ends by itself.
        EXPECT_EQ(ConsoleProbe("handled").Send({event}), static_cast<int>(10 + event)) << "event " << event;
    }
    EXPECT_EQ(ConsoleProbe("chain").Send({CTRL_C_EVENT}), 10 + CTRL_C_EVENT)
        << "FALSE passes the event to the handler added before";
}

TEST(ConsoleEvents, UnhandledEventEndsTheProcessByItsSignal)
{
    TS_SKIP_ON_WINE(kNoConsole);
    for (DWORD event : {CTRL_C_EVENT, CTRL_SHUTDOWN_EVENT})
        EXPECT_EQ(ConsoleProbe("unhandled").Send({event}), tstest::ExitCodeOfUnhandledEvent(event));
}

TEST(ConsoleEvents, RepeatedSignalDoesNotKillAProcessThatIsStopping)
{
    TS_SKIP_ON_WINE(kNoConsole);
    EXPECT_EQ(ConsoleProbe("stopping").Send({CTRL_C_EVENT, CTRL_C_EVENT, CTRL_C_EVENT}), 10 + CTRL_C_EVENT);
    // Ctrl+C is ignored altogether; a repeated shutdown is handled again,
    // never by the default.
    EXPECT_EQ(ConsoleProbe("ignore").Send({CTRL_C_EVENT, CTRL_SHUTDOWN_EVENT, CTRL_SHUTDOWN_EVENT}),
              10 + CTRL_SHUTDOWN_EVENT);
}

TEST(ConsoleEvents, SignalsTakenByTheSignalHandlerBecomeEventsToo)
{
    TS_SKIP_ON_WINE(kNoConsole);
    if (tstest::kThreadSanitizer)
        GTEST_SKIP() << "ThreadSanitizer defers a signal handler and can lose the signal meanwhile";
    EXPECT_EQ(ConsoleProbe("chain", false).Send({CTRL_BREAK_EVENT}), 10 + CTRL_BREAK_EVENT);
    EXPECT_EQ(ConsoleProbe("unhandled", false).Send({CTRL_SHUTDOWN_EVENT}),
              tstest::ExitCodeOfUnhandledEvent(CTRL_SHUTDOWN_EVENT));
}

TEST(ConsoleEvents, RemovingAHandlerThatIsNotThereFails)
{
    PHANDLER_ROUTINE handler = PassOn;
    EXPECT_EQ(tstest::ErrorOf(SetConsoleCtrlHandler(handler, FALSE)), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(SetConsoleCtrlHandler(handler, TRUE));
    EXPECT_TRUE(SetConsoleCtrlHandler(handler, FALSE));
}
