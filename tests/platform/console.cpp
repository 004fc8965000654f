// Console control events from real signals: SIGINT, SIGQUIT, SIGHUP and
// SIGTERM reach the handlers as CTRL_C, CTRL_BREAK, CTRL_CLOSE and
// CTRL_SHUTDOWN events, last added first, on a thread of their own.
#include "TestSupport.h"

#include <string>
#include <vector>

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
    int Send(const std::vector<DWORD> &events)
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

// Each row: the probe's mode, the events sent in turn and the exit code.
// A handler's TRUE keeps the process running, so that it ends by itself
// with 10 + the event; an event no handler takes ends it by its signal.
TEST(ConsoleEvents, SignalsBecomeEventsForTheHandlersLastAddedFirst)
{
    TS_SKIP_ON_WINE(kNoConsole);
    const auto unhandled = tstest::ExitCodeOfUnhandledEvent;
    const struct {
        const char *mode;
        bool signalsBlocked; // false: the signal handler takes them, not the watcher
        std::vector<DWORD> events;
        int code;
        const char *what;
    } cases[] = {
        {"handled", true, {CTRL_C_EVENT}, 10 + CTRL_C_EVENT, "SIGINT is CTRL_C"},
        {"handled", true, {CTRL_BREAK_EVENT}, 10 + CTRL_BREAK_EVENT, "SIGQUIT is CTRL_BREAK"},
        {"handled", true, {CTRL_CLOSE_EVENT}, 10 + CTRL_CLOSE_EVENT, "SIGHUP is CTRL_CLOSE"},
        {"handled", true, {CTRL_SHUTDOWN_EVENT}, 10 + CTRL_SHUTDOWN_EVENT, "SIGTERM is CTRL_SHUTDOWN"},
        {"chain", true, {CTRL_C_EVENT}, 10 + CTRL_C_EVENT, "FALSE passes the event to the handler added before"},
        {"unhandled", true, {CTRL_C_EVENT}, unhandled(CTRL_C_EVENT), "no handler takes Ctrl+C"},
        {"unhandled", true, {CTRL_SHUTDOWN_EVENT}, unhandled(CTRL_SHUTDOWN_EVENT), "no handler takes the shutdown"},
        {"stopping", true, {CTRL_C_EVENT, CTRL_C_EVENT, CTRL_C_EVENT}, 10 + CTRL_C_EVENT,
         "a repeated signal does not kill a process that is stopping"},
        {"ignore", true, {CTRL_C_EVENT, CTRL_SHUTDOWN_EVENT, CTRL_SHUTDOWN_EVENT}, 10 + CTRL_SHUTDOWN_EVENT,
         "Ctrl+C ignored; a repeated shutdown handled again, never by the default"},
        {"chain", false, {CTRL_BREAK_EVENT}, 10 + CTRL_BREAK_EVENT, "the signal handler's event is handled"},
        {"unhandled", false, {CTRL_SHUTDOWN_EVENT}, unhandled(CTRL_SHUTDOWN_EVENT),
         "the signal handler's event ends the process by its signal"},
    };
    for (const auto &c : cases) {
        // ThreadSanitizer defers a signal handler and can lose the signal meanwhile.
        if (!c.signalsBlocked && tstest::kThreadSanitizer)
            continue;
        EXPECT_EQ(ConsoleProbe(c.mode, c.signalsBlocked).Send(c.events), c.code) << c.what;
    }
}

TEST(ConsoleEvents, RemovingAHandlerThatIsNotThereFails)
{
    PHANDLER_ROUTINE handler = PassOn;
    EXPECT_EQ(tstest::ErrorOf(SetConsoleCtrlHandler(handler, FALSE)), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(SetConsoleCtrlHandler(handler, TRUE));
    EXPECT_TRUE(SetConsoleCtrlHandler(handler, FALSE));
}
