// GenericService without a service manager: the object's defaults, the
// control handler's reports, the run loop driven by requests and answers,
// and the console handler. A service main run in a process that the
// manager did not start gets no status handle, so its reports land in the
// status record alone, where the tests read them.
#include <GenSvc.h>

#include "TestSupport.h"

#include <mbctype.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

using tstest::kWaitBound;

namespace {

// A service whose worker is the test itself: it answers on the children of
// the four interlocks, which InitPrimaryService spawns. Every call of
// CyclePrimaryService logs the state the record holds and signals cycled.
class ProbeService : public GenericService {
public:
    // No time limit on the wait: the hook runs once per answer, and once
    // at the start.
    explicit ProbeService(BOOLTYPE asService)
        : GenericService("TSProbe", "TSUtil Probe Service", asService, 0xFFFFFFFF)
    {
        threadDeletionDelay = 0;
        cycled = CreateEventA(nullptr, 0, 0, nullptr);
        initDone = CreateEventA(nullptr, 1, 0, nullptr);
    }
    ~ProbeService() override
    {
        CloseHandle(cycled);
        CloseHandle(initDone);
    }

    using GenericService::CommonServiceControlHandler;
    using GenericService::CommonServiceMain;
    using GenericService::ConsoleControlHandler;
    using GenericService::serviceStatus;
    using GenericService::stopTimeout;

    void Control(DWORD control) { CommonServiceControlHandler(control, this); }
    bool Reported(DWORD state, DWORD hint, DWORD checkPoint) const
    {
        return serviceStatus.dwCurrentState == state && serviceStatus.dwWaitHint == hint &&
               serviceStatus.dwCheckPoint == checkPoint;
    }
    // Answers on one child and returns once the loop has acted on it.
    void Answer(ChildInterlockSepThread *child)
    {
        ResetEvent(cycled);
        ASSERT_EQ(child->NotifyStateReached(), TRUE);
        ASSERT_EQ(WaitForSingleObject(cycled, kWaitBound), WAIT_OBJECT_0);
    }
    std::vector<DWORD> CycleStates()
    {
        std::lock_guard<std::mutex> hold(logLock);
        return cycleStates;
    }
    bool HasInterlocks() const { return stopInterlockPtr || interlockGroupPtr; }

    BOOLTYPE initResult = TRUE;
    bool answerAllInInit = false;
    ChildInterlockSepThread *start = nullptr, *stop = nullptr, *pause = nullptr, *cont = nullptr;
    HANDLE cycled, initDone;

protected:
    BOOLTYPE InitPrimaryService() override
    {
        start = startInterlockPtr->SpawnChildInterlockSepThread();
        stop = stopInterlockPtr->SpawnChildInterlockSepThread();
        pause = pauseInterlockPtr->SpawnChildInterlockSepThread();
        cont = continueInterlockPtr->SpawnChildInterlockSepThread();
        if (answerAllInInit) {
            stop->NotifyStateReached();
            start->NotifyStateReached();
        }
        SetEvent(initDone);
        return initResult;
    }
    BOOLTYPE CyclePrimaryService() override
    {
        {
            std::lock_guard<std::mutex> hold(logLock);
            cycleStates.push_back(serviceStatus.dwCurrentState);
        }
        SetEvent(cycled);
        return TRUE;
    }

private:
    std::mutex logLock;
    std::vector<DWORD> cycleStates;
};

// Waits for InitPrimaryService and, when the loop is to run, for its first
// cycle: the loop then waits for answers.
void AwaitLoop(ProbeService &probe)
{
    EXPECT_EQ(WaitForSingleObject(probe.initDone, kWaitBound), WAIT_OBJECT_0);
    if (probe.initResult) {
        EXPECT_EQ(WaitForSingleObject(probe.cycled, kWaitBound), WAIT_OBJECT_0);
    }
}

// Runs the service main function for probe on a thread of its own, as the
// platform would.
HANDLE RunServiceMain(ProbeService &probe)
{
    HANDLE thread = tstest::StartThread([&probe] {
        ProbeService::CommonServiceMain(0, nullptr, &probe);
        return 0u;
    });
    AwaitLoop(probe);
    return thread;
}

void Join(HANDLE thread)
{
    EXPECT_TRUE(tstest::Joined(thread)) << "the service main function ended";
}

} // namespace

// Names are cut to their block; the object built last is the process's
// service; the status record starts as a stopped own-process service.
TEST(GenericServiceTest, NamingConstructorNamesAndRecord)
{
    GenericService first("first", nullptr, TRUE, 500);
    EXPECT_EQ(GenericService::primaryServicePtr, &first);
    GenericService cut(std::string(300, 's').c_str(), std::string(300, 'l').c_str(), FALSE, 0);
    EXPECT_EQ(GenericService::primaryServicePtr, &cut) << "the object built last wins";
    EXPECT_EQ(std::string(cut.GetShortNameByPtr()), std::string(255, 's'));
    GenericService blank;
    EXPECT_EQ(GenericService::primaryServicePtr, &cut) << "the plain constructor leaves it alone";

    // 200 double-byte characters are 400 bytes: the block takes 127 of
    // them, and the last byte stays free rather than holding half of one.
    ASSERT_EQ(_setmbcp(932), 0);
    std::string kana;
    for (int i = 0; i < 200; ++i)
        kana += "\x82\xa0";
    GenericService dbcs(kana.c_str(), "", FALSE, 0);
    _setmbcp(_MB_CP_ANSI);
    EXPECT_EQ(std::string(dbcs.GetShortNameByPtr()), kana.substr(0, 254));

    ProbeService probe(TRUE);
    EXPECT_EQ(probe.serviceStatus.dwServiceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(probe.serviceStatus.dwControlsAccepted, 7u);
    EXPECT_EQ(probe.serviceStatus.dwWin32ExitCode, 0u);
    EXPECT_TRUE(probe.Reported(SERVICE_STOPPED, 0, 1));
}

// Before the interlocks exist, and after they are gone, the handler only
// reports SERVICE_STOPPED (a continue while not paused confirms RUNNING
// first); interrogate repeats the state.
TEST(GenericServiceTest, ControlsWithoutInterlocks)
{
    ProbeService probe(TRUE);
    probe.serviceStatus.dwCurrentState = SERVICE_START_PENDING;
    probe.Control(SERVICE_CONTROL_CONTINUE);
    EXPECT_TRUE(probe.Reported(SERVICE_RUNNING, 0, 0));
    for (DWORD control : {SERVICE_CONTROL_STOP, SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_PAUSE}) {
        probe.serviceStatus.dwCurrentState = SERVICE_START_PENDING;
        probe.serviceStatus.dwCheckPoint = 1;
        probe.Control(control);
        EXPECT_TRUE(probe.Reported(SERVICE_STOPPED, 0, 0)) << "control " << control;
    }
    probe.serviceStatus.dwCurrentState = SERVICE_START_PENDING;
    probe.Control(SERVICE_CONTROL_INTERROGATE);
    EXPECT_TRUE(probe.Reported(SERVICE_START_PENDING, 0, 0));
    probe.Control(200);
    EXPECT_TRUE(probe.Reported(SERVICE_START_PENDING, 0, 0)) << "an unknown code acts as interrogate";
}

// The whole life: start, pause and continue with their pending reports and
// repeats, a continue that overtakes a pending pause, and the stop with its
// floor on the hint. Each step is a control, or the worker's answer on one
// child; after it the record holds the report, the service knows whether
// it is paused, and the child's request stands or not (-1: not looked at).
TEST(GenericServiceTest, RunLoopReportsEveryStep)
{
    constexpr DWORD kAnswer = 0xFFFF;
    using Child = ChildInterlockSepThread *ProbeService::*;
    const Child start = &ProbeService::start, pause = &ProbeService::pause, cont = &ProbeService::cont,
                stop = &ProbeService::stop;
    const struct {
        DWORD control;
        Child child;
        DWORD state, hint, checkPoint;
        bool paused;
        int requested;
        const char *why;
    } steps[] = {
        {kAnswer, start, SERVICE_RUNNING, 0, 0, false, -1, "started"},
        {SERVICE_CONTROL_PAUSE, pause, SERVICE_PAUSE_PENDING, 15000, 1, false, TRUE, "pause raises its request"},
        {SERVICE_CONTROL_PAUSE, pause, SERVICE_PAUSE_PENDING, 0, 1, false, TRUE, "a repeat raises nothing"},
        {SERVICE_CONTROL_INTERROGATE, pause, SERVICE_PAUSE_PENDING, 0, 0, false, TRUE, "interrogate repeats"},
        {kAnswer, pause, SERVICE_PAUSED, 0, 0, true, FALSE, "the loop reset the pause interlock"},
        {SERVICE_CONTROL_PAUSE, pause, SERVICE_PAUSED, 0, 0, true, FALSE, "pause while paused confirms"},
        {SERVICE_CONTROL_CONTINUE, cont, SERVICE_CONTINUE_PENDING, 20000, 1, true, TRUE, "continue"},
        {SERVICE_CONTROL_CONTINUE, cont, SERVICE_CONTINUE_PENDING, 0, 1, true, TRUE, "a repeat raises nothing"},
        {kAnswer, cont, SERVICE_RUNNING, 0, 0, false, FALSE, "continued"},
        // A continue while a pause is pending confirms RUNNING and re-arms
        // the pause; the pause's later answer still lands.
        {SERVICE_CONTROL_PAUSE, pause, SERVICE_PAUSE_PENDING, 15000, 1, false, TRUE, "pause"},
        {SERVICE_CONTROL_CONTINUE, cont, SERVICE_RUNNING, 0, 0, false, FALSE, "continue overtakes the pause"},
        {SERVICE_CONTROL_PAUSE, pause, SERVICE_PAUSE_PENDING, 15000, 1, false, TRUE, "pauseAllowed was re-armed"},
        {kAnswer, pause, SERVICE_PAUSED, 0, 0, true, FALSE, "paused"},
        // Stop while paused, with stopTimeout below the floor.
        {SERVICE_CONTROL_STOP, stop, SERVICE_STOP_PENDING, 15000, 1, true, TRUE, "stop"},
        {SERVICE_CONTROL_SHUTDOWN, stop, SERVICE_STOP_PENDING, 0, 1, true, TRUE, "a second stop raises nothing"},
    };
    ProbeService probe(TRUE);
    probe.stopTimeout = 5000;
    HANDLE thread = RunServiceMain(probe);
    EXPECT_TRUE(probe.Reported(SERVICE_START_PENDING, 20000, 1));
    for (const auto &step : steps) {
        if (step.control == kAnswer)
            probe.Answer(probe.*step.child);
        else
            probe.Control(step.control);
        EXPECT_TRUE(probe.Reported(step.state, step.hint, step.checkPoint)) << step.why;
        EXPECT_EQ(probe.IsPaused() != 0, step.paused) << step.why;
        if (step.requested >= 0) {
            EXPECT_EQ((probe.*step.child)->DetectRequest(0), step.requested) << step.why;
        }
    }
    ASSERT_EQ(probe.stop->NotifyStateReached(), TRUE);
    Join(thread);
    EXPECT_TRUE(probe.Reported(SERVICE_STOPPED, 0, 0));
    EXPECT_TRUE(probe.IsPaused()) << "paused stays as the last answer left it";
    EXPECT_FALSE(probe.HasInterlocks());

    probe.Control(SERVICE_CONTROL_PAUSE);
    EXPECT_TRUE(probe.Reported(SERVICE_PAUSED, 0, 0)) << "paused wins over the missing interlock";
    probe.Control(SERVICE_CONTROL_STOP);
    EXPECT_TRUE(probe.Reported(SERVICE_STOPPED, 0, 0));
}

TEST(GenericServiceTest, StopHintAboveTheFloorAndStopServiceRepeat)
{
    ProbeService probe(TRUE);
    probe.stopTimeout = 30000;
    HANDLE thread = RunServiceMain(probe);
    probe.StopService();
    EXPECT_TRUE(probe.Reported(SERVICE_START_PENDING, 20000, 1)) << "StopService reports nothing";
    probe.Control(SERVICE_CONTROL_SHUTDOWN);
    EXPECT_TRUE(probe.Reported(SERVICE_STOP_PENDING, 30000, 1)) << "StopService left stopAllowed TRUE";
    ASSERT_EQ(probe.stop->NotifyStateReached(), TRUE);
    Join(thread);
    EXPECT_TRUE(probe.Reported(SERVICE_STOPPED, 0, 0));
    EXPECT_EQ(probe.CycleStates(), std::vector<DWORD>({SERVICE_START_PENDING}));
}

// Answers that stand at once come in the group's order: start before stop.
TEST(GenericServiceTest, StartAndStopAnsweredBeforeTheFirstWait)
{
    ProbeService probe(TRUE);
    probe.answerAllInInit = true;
    Join(RunServiceMain(probe));
    EXPECT_EQ(probe.CycleStates(), std::vector<DWORD>({SERVICE_START_PENDING, SERVICE_RUNNING}));
    EXPECT_TRUE(probe.Reported(SERVICE_STOPPED, 0, 0));
}

// InitPrimaryService giving FALSE ends the service in good order.
TEST(GenericServiceTest, FailedInitEndsTheService)
{
    ProbeService probe(TRUE);
    probe.initResult = FALSE;
    Join(RunServiceMain(probe));
    EXPECT_TRUE(probe.Reported(SERVICE_STOPPED, 0, 0));
    EXPECT_TRUE(probe.CycleStates().empty());
    EXPECT_FALSE(probe.HasInterlocks());
    EXPECT_EQ(probe.serviceStatus.dwWin32ExitCode, 0u);

    GenericService base("TSBase", "TSUtil Base", FALSE, 0);
    EXPECT_EQ(base.Begin(), TRUE) << "the base class's InitPrimaryService gives FALSE";
}

// On a console: console events stop the service, nothing is reported, and
// pause and continue come only from the program.
TEST(GenericServiceTest, ConsoleRunAndConsoleEvents)
{
    ProbeService probe(FALSE);
    BOOLTYPE begun = FALSE;
    HANDLE thread = tstest::StartThread([&probe, &begun] {
        begun = probe.Begin();
        return 0u;
    });
    AwaitLoop(probe);
    probe.Answer(probe.start);
    EXPECT_EQ(probe.GetCurrentState(), static_cast<unsigned long>(SERVICE_STOPPED)) << "nothing reported";

    probe.PauseService();
    EXPECT_EQ(probe.pause->DetectRequest(0), TRUE);
    probe.Answer(probe.pause);
    EXPECT_TRUE(probe.IsPaused());
    probe.ContinueService();
    probe.Answer(probe.cont);
    EXPECT_FALSE(probe.IsPaused());

    EXPECT_EQ(ProbeService::ConsoleControlHandler(3), 0) << "an event it does not know";
    EXPECT_EQ(probe.stop->DetectRequest(0), FALSE);
    EXPECT_EQ(ProbeService::ConsoleControlHandler(CTRL_C_EVENT), 1);
    EXPECT_EQ(probe.stop->DetectRequest(0), TRUE);
    EXPECT_EQ(ProbeService::ConsoleControlHandler(CTRL_C_EVENT), 1) << "a repeat is harmless";
    EXPECT_EQ(WaitForSingleObject(thread, 0), static_cast<DWORD>(WAIT_TIMEOUT)) << "runs on until answered";
    ASSERT_EQ(probe.stop->NotifyStateReached(), TRUE);
    Join(thread);
    EXPECT_EQ(begun, TRUE);
    EXPECT_EQ(probe.GetCurrentState(), static_cast<unsigned long>(SERVICE_STOPPED));
    EXPECT_EQ(ProbeService::ConsoleControlHandler(CTRL_BREAK_EVENT), 1) << "TRUE even without an interlock";
}

TEST(GenericServiceTest, ConsoleEventsInServiceMode)
{
    ProbeService probe(TRUE);
    HANDLE thread = RunServiceMain(probe);
    EXPECT_EQ(ProbeService::ConsoleControlHandler(CTRL_C_EVENT), 0);
    EXPECT_EQ(ProbeService::ConsoleControlHandler(CTRL_CLOSE_EVENT), 0);
    EXPECT_EQ(probe.stop->DetectRequest(0), FALSE);
    EXPECT_EQ(ProbeService::ConsoleControlHandler(CTRL_SHUTDOWN_EVENT), 0);
    EXPECT_EQ(probe.stop->DetectRequest(0), TRUE);
    EXPECT_TRUE(probe.Reported(SERVICE_START_PENDING, 20000, 1)) << "the console handler reports nothing";
    ASSERT_EQ(probe.stop->NotifyStateReached(), TRUE);
    Join(thread);
}

// A console event may come at any moment of a run's end: while the
// interlocks are torn down, and while the object goes. Each round runs a
// service to its stop answer and destroys it, with Ctrl+C arriving all the
// while, as from the console handler's thread.
TEST(GenericServiceTest, ConsoleEventsDuringTheEndOfARun)
{
    constexpr int kRounds = 200;
    std::atomic<bool> done{false};
    std::atomic<long> events{0};
    HANDLE sender = tstest::StartThread([&] {
        while (!done.load()) {
            ProbeService::ConsoleControlHandler(CTRL_C_EVENT);
            events.fetch_add(1);
        }
        return 0u;
    });
    struct StopSender {
        std::atomic<bool> &done;
        HANDLE sender;
        ~StopSender()
        {
            done.store(true);
            EXPECT_TRUE(tstest::Joined(sender));
        }
    } stopSender{done, sender};

    for (int round = 0; round < kRounds; ++round) {
        auto probe = std::make_unique<ProbeService>(FALSE);
        HANDLE thread = tstest::StartThread([&probe] {
            probe->Begin();
            return 0u;
        });
        AwaitLoop(*probe);
        ASSERT_EQ(probe->stop->NotifyStateReached(), TRUE);
        ASSERT_TRUE(tstest::Joined(thread)) << "round " << round;
        probe.reset();
    }
    EXPECT_GT(events.load(), 0);
}

