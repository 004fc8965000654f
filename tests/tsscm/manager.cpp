// The service manager's state machine, in-process: starts, controls,
// deaths, deletion, time-outs and shutdown, with the processes and the
// dispatchers played by the test.
#include "ManagerFakes.h"

#include <gtest/gtest.h>

#include <future>

using namespace tsscmtest;
using tsscm::Manager;

namespace {

constexpr pid_t kClient = 77;
constexpr pid_t kOtherClient = 78;
constexpr DWORD kAcceptsAll = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PAUSE_CONTINUE;

class ManagerTest : public ::testing::Test {
protected:
    uint64_t Create(const std::string &name)
    {
        Manager::CreateRequest r;
        r.name = name;
        r.type = SERVICE_WIN32_OWN_PROCESS;
        r.start = SERVICE_DEMAND_START;
        r.imagePath = "/usr/lib/service " + name;
        Manager::Opened o;
        EXPECT_EQ(manager_.create(r, kClient, &o), 0u);
        return o.id;
    }

    std::future<DWORD> StartAsync(uint64_t id, std::vector<std::string> args = {})
    {
        return std::async(std::launch::async, [this, id, args] { return manager_.start(id, args); });
    }

    static DWORD Result(std::future<DWORD> &f)
    {
        return f.wait_for(kBound) == std::future_status::ready ? f.get() : 0xFFFFFFFFu;
    }

    // Starts the service, lets its dispatcher connect and report
    // SERVICE_RUNNING; gives the dispatcher's link.
    std::shared_ptr<FakeLink> Run(uint64_t id, pid_t *pid, DWORD accepted = kAcceptsAll)
    {
        auto started = StartAsync(id);
        *pid = launcher_.awaitLaunch(lastPid_);
        lastPid_ = *pid;
        auto link = std::make_shared<FakeLink>();
        EXPECT_TRUE(manager_.attachDispatcher(*pid, [&](const std::string &, const std::vector<std::string> &) {
            return link;
        }));
        EXPECT_EQ(Result(started), 0u);
        SERVICE_STATUS running{SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, accepted, 0, 0, 0, 0};
        EXPECT_EQ(manager_.setStatus(*pid, running, 1), 0u);
        return link;
    }

    SERVICE_STATUS Query(uint64_t id)
    {
        SERVICE_STATUS st{};
        EXPECT_EQ(manager_.query(id, &st), 0u);
        return st;
    }

    MemoryDatabase db_;
    FakeLauncher launcher_;
    Manager manager_{db_, launcher_};
    pid_t lastPid_ = 0;
};

} // namespace

TEST_F(ManagerTest, StartWaitsForTheDispatcherWhichGetsNameAndArguments)
{
    uint64_t id = Create("Alpha");
    EXPECT_EQ(Query(id).dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    auto started = StartAsync(id, {"one", "two"});
    pid_t pid = launcher_.awaitLaunch();
    ASSERT_NE(pid, 0);
    EXPECT_TRUE(manager_.hasProcesses());
    EXPECT_FALSE(manager_.attachDispatcher(pid + 1, [](auto &, auto &) { return std::make_shared<FakeLink>(); }))
        << "a process the manager did not start";
    std::string name;
    std::vector<std::string> args;
    EXPECT_TRUE(manager_.attachDispatcher(pid, [&](const std::string &n, const std::vector<std::string> &a) {
        name = n;
        args = a;
        return std::make_shared<FakeLink>();
    }));
    EXPECT_EQ(Result(started), 0u);
    EXPECT_EQ(name, "Alpha");
    EXPECT_EQ(args, (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(Query(id).dwCurrentState, static_cast<DWORD>(SERVICE_START_PENDING));
    EXPECT_EQ(manager_.start(id, {}), static_cast<DWORD>(ERROR_SERVICE_ALREADY_RUNNING));
}

TEST_F(ManagerTest, StartEndsWhenTheProcessDiesOrNeverReachesItsDispatcher)
{
    uint64_t id = Create("Beta");
    auto started = StartAsync(id);
    pid_t pid = launcher_.awaitLaunch();
    manager_.processEnded(pid);
    EXPECT_EQ(Result(started), static_cast<DWORD>(ERROR_PROCESS_ABORTED));
    EXPECT_EQ(Query(id).dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_FALSE(manager_.hasProcesses());

    db_.setControlValue("ServicesPipeTimeout", 100);
    EXPECT_EQ(manager_.start(id, {}), static_cast<DWORD>(ERROR_SERVICE_REQUEST_TIMEOUT));
    pid_t silent = launcher_.awaitLaunch(pid);
    EXPECT_EQ(launcher_.killed(), std::vector<pid_t>{silent});
    SERVICE_STATUS st = Query(id);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(st.dwWin32ExitCode, static_cast<DWORD>(ERROR_SERVICE_REQUEST_TIMEOUT));
    manager_.processEnded(silent);
    EXPECT_FALSE(manager_.hasProcesses());
}

TEST_F(ManagerTest, ControlsRelayTheHandlersReportsAndItsAnswer)
{
    uint64_t id = Create("Gamma");
    pid_t pid = 0;
    auto link = Run(id, &pid, SERVICE_ACCEPT_STOP);
    link->answer = [](FakeLink &l, uint32_t seq, DWORD control) {
        if (control == SERVICE_CONTROL_STOP)
            l.report(SERVICE_STOP_PENDING, 2);
        l.done(seq);
    };
    SERVICE_STATUS st{};
    EXPECT_EQ(manager_.control(id, 0, &st), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(manager_.control(id, SERVICE_CONTROL_PAUSE, &st), static_cast<DWORD>(ERROR_INVALID_SERVICE_CONTROL));
    EXPECT_EQ(manager_.control(id, SERVICE_CONTROL_INTERROGATE, &st), 0u);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(manager_.control(id, SERVICE_CONTROL_STOP, &st), 0u);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOP_PENDING)) << "the handler's report comes first";
    EXPECT_EQ(manager_.control(id, SERVICE_CONTROL_STOP, &st), static_cast<DWORD>(ERROR_SERVICE_CANNOT_ACCEPT_CTRL));

    // Reports from the service thread and from the handler meet out of order.
    SERVICE_STATUS stopped{SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0};
    SERVICE_STATUS stale{SERVICE_WIN32_OWN_PROCESS, SERVICE_STOP_PENDING, 0, 0, 0, 0, 0};
    EXPECT_EQ(manager_.setStatus(pid, stopped, 4), 0u);
    EXPECT_EQ(manager_.setStatus(pid, stale, 3), 0u);
    EXPECT_EQ(Query(id).dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(manager_.control(id, SERVICE_CONTROL_INTERROGATE, &st), static_cast<DWORD>(ERROR_SERVICE_NOT_ACTIVE));
    EXPECT_EQ(manager_.setStatus(pid + 100, stopped, 5), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    SERVICE_STATUS bogus{SERVICE_WIN32_OWN_PROCESS, 99, 0, 0, 0, 0, 0};
    EXPECT_EQ(manager_.setStatus(pid, bogus, 6), static_cast<DWORD>(ERROR_INVALID_DATA));
}

TEST_F(ManagerTest, HandlerThatDoesNotReturnTimesOutAndItsLateAnswerIsPassedOver)
{
    db_.setControlValue("ServicesPipeTimeout", 150);
    uint64_t id = Create("Delta");
    pid_t pid = 0;
    auto link = Run(id, &pid);
    SERVICE_STATUS st{};
    EXPECT_EQ(manager_.control(id, SERVICE_CONTROL_INTERROGATE, &st),
              static_cast<DWORD>(ERROR_SERVICE_REQUEST_TIMEOUT));
    link->answer = [](FakeLink &l, uint32_t seq, DWORD) {
        l.done(seq - 1, ERROR_GEN_FAILURE); // the answer to the control that timed out
        l.done(seq);
    };
    EXPECT_EQ(manager_.control(id, SERVICE_CONTROL_INTERROGATE, &st), 0u);
}

TEST_F(ManagerTest, ProcessThatDiesDuringAControlIsReportedAborted)
{
    uint64_t id = Create("Epsilon");
    pid_t pid = 0;
    auto link = Run(id, &pid);
    auto stopping = std::async(std::launch::async, [&] {
        SERVICE_STATUS st{};
        return manager_.control(id, SERVICE_CONTROL_STOP, &st);
    });
    ASSERT_TRUE(link->awaitControls(1));
    manager_.processEnded(pid);
    link->hangUp();
    EXPECT_EQ(Result(stopping), 0u) << "a stop that ends the process has done its work";
    SERVICE_STATUS st = Query(id);
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(st.dwWin32ExitCode, static_cast<DWORD>(ERROR_PROCESS_ABORTED));
    EXPECT_FALSE(manager_.hasProcesses());
    // It starts again, with a new dispatcher.
    pid_t again = 0;
    Run(id, &again);
    EXPECT_EQ(Query(id).dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
}

TEST_F(ManagerTest, DeletedServiceGoesOnceStoppedWithNoHandleOpen)
{
    uint64_t id = Create("Zeta");
    Manager::Opened other;
    ASSERT_EQ(manager_.open("ZETA", kOtherClient, &other), 0u);
    EXPECT_EQ(other.id, id);
    EXPECT_EQ(other.name, "Zeta");
    pid_t pid = 0;
    Run(id, &pid);
    EXPECT_EQ(manager_.remove(id), 0u);
    EXPECT_EQ(manager_.remove(id), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    Manager::CreateRequest r;
    r.name = "zeta";
    r.type = SERVICE_WIN32_OWN_PROCESS;
    r.start = SERVICE_DEMAND_START;
    r.imagePath = "/usr/lib/other";
    Manager::Opened o;
    EXPECT_EQ(manager_.create(r, kClient, &o), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));

    manager_.processEnded(pid);
    EXPECT_TRUE(db_.has("Zeta")) << "two handles are open";
    EXPECT_EQ(manager_.start(id, {}), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    EXPECT_EQ(manager_.closeHandle(id, kClient), 0u);
    EXPECT_EQ(manager_.closeHandle(id, kClient), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(db_.has("Zeta"));
    manager_.clientGone(kOtherClient); // its process ended without closing
    EXPECT_FALSE(db_.has("Zeta"));
    SERVICE_STATUS st{};
    EXPECT_EQ(manager_.query(id, &st), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    EXPECT_EQ(manager_.create(r, kClient, &o), 0u) << "the name is free again";
}

TEST_F(ManagerTest, ShutdownStopsTheServicesAndKillsWhatLingers)
{
    db_.setControlValue("WaitToKillServiceTimeout", 100);
    uint64_t polite = Create("Eta");
    uint64_t stubborn = Create("Theta");
    pid_t politePid = 0, stubbornPid = 0;
    auto politeLink = Run(polite, &politePid);
    auto stubbornLink = Run(stubborn, &stubbornPid, 0);
    politeLink->answer = [&](FakeLink &l, uint32_t seq, DWORD) {
        l.done(seq);
        manager_.processEnded(politePid);
    };
    manager_.shutdown();
    EXPECT_EQ(politeLink->controls(), std::vector<DWORD>{SERVICE_CONTROL_SHUTDOWN});
    EXPECT_TRUE(stubbornLink->controls().empty()) << "it accepts no control";
    EXPECT_EQ(launcher_.killed(), std::vector<pid_t>{stubbornPid});
}
