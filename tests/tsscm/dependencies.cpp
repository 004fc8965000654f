// Dependencies between services, in-process: a start brings up what the
// service depends on first, and is refused as Windows refuses it when a
// dependency cannot start, is missing or leads back; a stop is refused
// while a dependent runs; shutdown stops dependents first.
#include "ManagerFakes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

using namespace tsscmtest;
using tsscm::Manager;

namespace {

constexpr pid_t kClient = 77;
constexpr DWORD kAccepts = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN;

// Plays every service process the manager launches: its dispatcher
// connects and it reports SERVICE_RUNNING, and a stop or shutdown ends it;
// a process of a service named in `dies` ends before its dispatcher.
class Autopilot {
public:
    Autopilot(Manager &manager, FakeLauncher &launcher, std::set<std::string> dies)
        : manager_(manager), launcher_(launcher), dies_(std::move(dies)), thread_([this] { run(); })
    {
    }
    ~Autopilot()
    {
        launcher_.stopWaiting();
        thread_.join();
    }
    // The services in the order they were started, and stopped.
    std::vector<std::string> started()
    {
        std::lock_guard<std::mutex> g(lock_);
        return started_;
    }
    // Waits until the service has reported SERVICE_RUNNING; false after the bound.
    bool awaitRunning(const std::string &name)
    {
        std::unique_lock<std::mutex> g(lock_);
        return changed_.wait_for(g, kBound, [&] { return running_.count(name) > 0; });
    }
    std::vector<std::string> stopped()
    {
        std::lock_guard<std::mutex> g(lock_);
        return stopped_;
    }

private:
    void run()
    {
        for (pid_t last = 0;;) {
            pid_t pid = launcher_.awaitLaunch(last);
            if (pid == 0)
                return;
            last = pid;
            std::string name = launcher_.nameOf(pid);
            if (dies_.count(name)) {
                manager_.processEnded(pid);
                continue;
            }
            auto link = std::make_shared<FakeLink>();
            link->answer = [this, pid, name](FakeLink &l, uint32_t seq, DWORD) {
                {
                    std::lock_guard<std::mutex> g(lock_);
                    stopped_.push_back(name);
                }
                l.report(SERVICE_STOPPED, 2);
                l.done(seq);
                manager_.processEnded(pid);
            };
            links_.push_back(link);
            {
                std::lock_guard<std::mutex> g(lock_);
                started_.push_back(name); // before the start it ends can return
            }
            manager_.attachDispatcher(pid, [&](const std::string &, const std::vector<std::string> &) { return link; });
            manager_.setStatus(pid, SERVICE_STATUS{SERVICE_WIN32_OWN_PROCESS, SERVICE_RUNNING, kAccepts, 0, 0, 0, 0},
                               1);
            std::lock_guard<std::mutex> g(lock_);
            running_.insert(name);
            changed_.notify_all();
        }
    }

    Manager &manager_;
    FakeLauncher &launcher_;
    const std::set<std::string> dies_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<std::string> started_, stopped_;
    std::set<std::string> running_;
    std::vector<std::shared_ptr<FakeLink>> links_;
    std::thread thread_;
};

struct Service {
    const char *name;
    DWORD start;
    const char *group;
    std::vector<std::string> dependencies; // groups after '+'
};

// Creates the service; its id.
uint64_t Make(Manager &manager, const Service &s)
{
    Manager::CreateRequest r;
    r.name = s.name;
    r.type = SERVICE_WIN32_OWN_PROCESS;
    r.start = s.start;
    r.imagePath = std::string("/usr/lib/") + s.name;
    r.group = s.group;
    r.dependencies = s.dependencies;
    Manager::Opened o;
    EXPECT_EQ(manager.create(r, kClient, &o), 0u) << s.name;
    return o.id;
}

class DependencyTest : public ::testing::Test {
protected:
    uint64_t Make(const Service &s) { return ::Make(manager_, s); }

    MemoryDatabase db_;
    FakeLauncher launcher_;
    Manager manager_{db_, launcher_};
};

} // namespace

TEST_F(DependencyTest, StartBringsUpDependenciesOrFailsAsWindowsDoes)
{
    constexpr DWORD kDemand = SERVICE_DEMAND_START, kOff = SERVICE_DISABLED;
    struct Case {
        const char *what;
        std::vector<Service> services; // the last is started
        std::set<std::string> dies;
        DWORD result;
        std::vector<std::string> started; // in this order
    } cases[] = {
        {"a chain, dependencies first",
         {{"C", kDemand, "", {}}, {"B", kDemand, "", {"C"}}, {"A", kDemand, "", {"B"}}}, {}, 0, {"C", "B", "A"}},
        {"a disabled dependency", {{"B", kOff, "", {}}, {"A", kDemand, "", {"B"}}}, {},
         ERROR_SERVICE_DEPENDENCY_FAIL, {}},
        {"a missing dependency", {{"A", kDemand, "", {"Gone"}}}, {}, ERROR_SERVICE_DEPENDENCY_DELETED, {}},
        {"a dependency whose process dies", {{"B", kDemand, "", {}}, {"A", kDemand, "", {"B"}}}, {"B"},
         ERROR_SERVICE_DEPENDENCY_FAIL, {}},
        {"a dependency's own dependency fails",
         {{"C", kOff, "", {}}, {"B", kDemand, "", {"C"}}, {"A", kDemand, "", {"B"}}}, {},
         ERROR_SERVICE_DEPENDENCY_FAIL, {}},
        {"a group: one member that starts is enough",
         {{"B", kOff, "Net", {}}, {"C", kDemand, "net", {}}, {"A", kDemand, "", {"+NET"}}}, {}, 0, {"C", "A"}},
        {"a group of which none starts", {{"B", kOff, "Net", {}}, {"A", kDemand, "", {"+Net"}}}, {},
         ERROR_SERVICE_DEPENDENCY_FAIL, {}},
        {"a group with no member", {{"A", kDemand, "", {"+Empty"}}}, {}, ERROR_SERVICE_DEPENDENCY_FAIL, {}},
        {"a disabled service is refused before its dependencies", {{"B", kDemand, "", {}}, {"A", kOff, "", {"B"}}},
         {}, ERROR_SERVICE_DISABLED, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        MemoryDatabase db;
        FakeLauncher launcher;
        Manager manager(db, launcher);
        db.setControlValue("ServicesPipeTimeout", 2000);
        db.setControlValue("WaitToKillServiceTimeout", 200); // one that has not reported yet is killed
        Autopilot pilot(manager, launcher, c.dies);
        uint64_t id = 0;
        for (const Service &s : c.services)
            id = ::Make(manager, s);
        EXPECT_EQ(manager.start(id, {}), c.result);
        if (c.result == 0) {
            EXPECT_EQ(pilot.started(), c.started);
            EXPECT_TRUE(pilot.awaitRunning(c.started.back()));
        }
        manager.shutdown();
    }
}

TEST_F(DependencyTest, CirclesAreRefusedWhenMadeAndWhenFoundAtStart)
{
    Make({"B", SERVICE_DEMAND_START, "Net", {}});
    Manager::CreateRequest self;
    self.name = "Self";
    self.type = SERVICE_WIN32_OWN_PROCESS;
    self.start = SERVICE_DEMAND_START;
    self.imagePath = "/usr/lib/self";
    self.dependencies = {"self"};
    Manager::Opened o;
    EXPECT_EQ(manager_.create(self, kClient, &o), static_cast<DWORD>(ERROR_CIRCULAR_DEPENDENCY));
    uint64_t a = Make({"A", SERVICE_DEMAND_START, "", {"+net"}});
    Manager::ChangeRequest back;
    back.dependencies = std::vector<std::string>{"A"};
    uint64_t b = 0;
    ASSERT_EQ(manager_.open("B", kClient, &o), 0u);
    b = o.id;
    EXPECT_EQ(manager_.changeConfig(b, back), static_cast<DWORD>(ERROR_CIRCULAR_DEPENDENCY)) << "through a group";
    // A circle written into the registry by hand is found at the start.
    tsscm::ServiceConfig stored;
    ASSERT_TRUE(db_.readService("B", stored));
    stored.dependOnService = {"A"};
    ASSERT_EQ(db_.writeService(stored), 0);
    Autopilot pilot(manager_, launcher_, {});
    EXPECT_EQ(manager_.start(a, {}), static_cast<DWORD>(ERROR_CIRCULAR_DEPENDENCY));
    EXPECT_TRUE(pilot.started().empty());
}

TEST_F(DependencyTest, StopWaitsForDependentsAndShutdownStopsThemFirst)
{
    uint64_t c = Make({"C", SERVICE_DEMAND_START, "", {}});
    Make({"B", SERVICE_DEMAND_START, "", {"C"}});
    uint64_t a = Make({"A", SERVICE_DEMAND_START, "", {"B"}});
    Autopilot pilot(manager_, launcher_, {});
    ASSERT_EQ(manager_.start(a, {}), 0u);
    ASSERT_TRUE(pilot.awaitRunning("A"));
    SERVICE_STATUS st{};
    EXPECT_EQ(manager_.control(c, SERVICE_CONTROL_STOP, &st), static_cast<DWORD>(ERROR_DEPENDENT_SERVICES_RUNNING));
    EXPECT_EQ(st.dwCurrentState, static_cast<DWORD>(SERVICE_RUNNING));
    manager_.shutdown();
    EXPECT_EQ(pilot.stopped(), (std::vector<std::string>{"A", "B", "C"}));
}

TEST_F(DependencyTest, DelayedAutomaticServicesStartAfterTheOthersAndTheDelay)
{
    db_.setControlValue("AutoStartDelay", 1);
    Make({"Later", SERVICE_AUTO_START, "", {}});
    Make({"First", SERVICE_AUTO_START, "", {}});
    Make({"Never", SERVICE_DEMAND_START, "", {}});
    Manager::Opened o;
    ASSERT_EQ(manager_.open("Later", kClient, &o), 0u);
    Manager::ChangeRequest delayed;
    delayed.delayedAutostart = true;
    ASSERT_EQ(manager_.changeConfig(o.id, delayed), 0u);
    std::vector<ServiceConfig> atBoot = db_.readAllServices();
    Make({"MadeAfterBoot", SERVICE_AUTO_START, "", {}}); // waits for the next boot
    Autopilot pilot(manager_, launcher_, {});
    auto begun = std::chrono::steady_clock::now();
    manager_.autoStart(atBoot);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1));
    EXPECT_EQ(pilot.started(), (std::vector<std::string>{"First", "Later"}));
    EXPECT_TRUE(pilot.awaitRunning("Later"));
    manager_.shutdown();
}
