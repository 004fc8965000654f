// The services of one machine root and their state machine: creation,
// handles, start (with the deadline to reach the dispatcher), controls
// (one at a time per service, bounded by ServicesPipeTimeout), the reports
// of the service processes, their deaths, deletion and shutdown. It knows
// no socket and starts no process itself: a ProcessLauncher starts them,
// and a ControlLink carries the controls to a service's dispatcher, so
// that a test drives it in-process.
#pragma once

#include "database.h"
#include "svcconfigwire.h"

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tsscm {

// Starts and ends service processes. A process's end is reported back
// with Manager::processEnded.
class ProcessLauncher {
public:
    virtual ~ProcessLauncher() = default;
    // Starts the service's command line (its ImagePath) as its account
    // (ObjectName); ERROR_SUCCESS with *pid set, or the Win32 error why it
    // cannot.
    virtual DWORD launch(const ServiceConfig &config, pid_t *pid) = 0;
    // Ends the process at once.
    virtual void kill(pid_t pid) = 0;
    // The service's process runs (remember) or has ended (forget): kept
    // where a daemon that starts after this one died finds it.
    virtual void remember(const std::string &serviceName, pid_t pid) {}
    virtual void forget(const std::string &serviceName) {}
};

// What a service's dispatcher sends back while a control runs.
struct ControlEvent {
    enum Kind { Status, Done } kind = Done;
    SERVICE_STATUS status{}; // Status: what the handler reported ...
    uint64_t statusSeq = 0;  // ... and its place in the process's count
    uint32_t seq = 0;        // Done: the control answered ...
    DWORD result = 0;        // ... and the handler's result
};

// The connection to a service's dispatcher. Used by one control at a
// time; closed when the last holder lets it go.
class ControlLink {
public:
    virtual ~ControlLink() = default;
    // Delivers control number seq; false when the dispatcher is gone.
    virtual bool send(uint32_t seq, DWORD control) = 0;
    // The next event, waiting at most timeoutMs. False on time-out
    // (*timedOut true) or when the dispatcher is gone (*timedOut false).
    virtual bool receive(ControlEvent &event, int timeoutMs, bool *timedOut) = 0;
};

class Manager {
public:
    Manager(ServiceDatabase &db, ProcessLauncher &launcher);
    ~Manager();
    Manager(const Manager &) = delete;
    Manager &operator=(const Manager &) = delete;

    // A handle's view of a service.
    struct Opened {
        uint64_t id = 0;
        std::string name; // the name as stored
    };
    // What create and changeConfig take, as the wire carries it.
    using CreateRequest = tsp::svc::CreateConfig;
    using ChangeRequest = tsp::svc::ConfigChange;
    struct Listed {
        std::string name, display;
        SERVICE_STATUS status{};
        DWORD pid = 0;
    };

    // The service calls of a client process; client is its pid, under
    // which the handles that create and open give are counted. The
    // results are the Win32 errors of the calls.
    DWORD create(const CreateRequest &request, pid_t client, Opened *out);
    DWORD open(const std::string &name, pid_t client, Opened *out);
    DWORD closeHandle(uint64_t id, pid_t client);
    // The client has no connection left: its handles are closed.
    void clientGone(pid_t client);
    // Starts the process and waits (ServicesPipeTimeout) until it reaches
    // its dispatcher, it ends, or the time is up (the process is killed:
    // ERROR_SERVICE_REQUEST_TIMEOUT). The services it depends on (its
    // DependOnService, and the members of its DependOnGroup groups, of
    // which one must start) are started first, each until it runs:
    // ERROR_SERVICE_DEPENDENCY_FAIL when one cannot start (whatever its own
    // error, a disabled one too), ERROR_SERVICE_DEPENDENCY_DELETED when one
    // does not exist, ERROR_CIRCULAR_DEPENDENCY when they lead back.
    DWORD start(uint64_t id, std::vector<std::string> args);
    // Delivers a control and waits (ServicesPipeTimeout) for the handler's
    // return; *status is the service's status after it. A stop while a
    // service that depends on this one runs: ERROR_DEPENDENT_SERVICES_RUNNING.
    DWORD control(uint64_t id, DWORD control, SERVICE_STATUS *status);
    // The status, and the service's process id (0 for none).
    DWORD query(uint64_t id, SERVICE_STATUS *status, DWORD *pid = nullptr);
    DWORD changeConfig(uint64_t id, const ChangeRequest &change);
    DWORD queryConfig(uint64_t id, ServiceConfig *config);
    // DeleteService: marks the service; it goes once it is stopped and no
    // handle to it is open.
    DWORD remove(uint64_t id);
    std::vector<Listed> enumerate(DWORD type, DWORD state);

    // A service process's SetServiceStatus, on an ordinary connection.
    DWORD setStatus(pid_t pid, const SERVICE_STATUS &status, uint64_t seq);
    // A service process's dispatcher connects: greet tells it the name of
    // the service that pid was started for and the start arguments, and
    // gives the link to it, which the service takes. False when pid is no
    // process that the manager is starting, or greet gives no link.
    using Greeting = std::function<std::shared_ptr<ControlLink>(const std::string &, const std::vector<std::string> &)>;
    bool attachDispatcher(pid_t pid, const Greeting &greet);
    // The launcher saw a service process end.
    void processEnded(pid_t pid);

    // A process of the service that an earlier daemon started still runs:
    // it is the service's process, started until its dispatcher connects
    // again (and reports its state), and never started a second time.
    void adopt(const std::string &serviceName, pid_t pid);
    // Starts the SERVICE_AUTO_START services of atBoot, the database as it
    // was when the manager started (as Windows starts what was configured at
    // boot: a service created or changed to automatic since waits for the
    // next boot); then, after
    // HKLM\SYSTEM\CurrentControlSet\Control\AutoStartDelay seconds (default
    // 120), those with DelayedAutostart, unless shutdown began meanwhile.
    void autoStart(const std::vector<ServiceConfig> &atBoot);
    // Sends SERVICE_CONTROL_SHUTDOWN (or stop) to every running service,
    // dependents before the services they depend on, each round waited for,
    // waits for the processes (WaitToKillServiceTimeout in all) and kills
    // the rest.
    void shutdown();
    // True while a service process runs or is being started, or a delayed
    // automatic start is to come.
    bool hasProcesses();
    // Called (without the manager's lock) when a process has ended.
    void onProcessEnded(std::function<void()> hook);
    // Called when shutdown begins.
    void onShutdown(std::function<void()> hook);

private:
    struct Service;
    using ServicePtr = std::shared_ptr<Service>;
    using Lock = std::unique_lock<std::mutex>;

    ServicePtr lookupName(const std::string &name);
    ServicePtr lookupId(uint64_t id);
    void addHandle(const ServicePtr &s, pid_t client);
    void dropHandle(const ServicePtr &s);
    void settle(const ServicePtr &s);
    DWORD startLocked(const ServicePtr &s, std::vector<std::string> args, Lock &g);
    DWORD startWithDependencies(const ServicePtr &s, std::vector<std::string> args, Lock &g,
                                std::vector<std::string> &chain);
    DWORD runDependency(const ServicePtr &s, Lock &g, std::vector<std::string> &chain);
    DWORD store(const ServiceConfig &config);
    bool dependsOn(const ServiceConfig &config, const ServiceConfig &on, const std::vector<ServiceConfig> &all);
    bool hasRunningDependents(const ServicePtr &s);
    DWORD controlLocked(const ServicePtr &s, DWORD control, Lock &g);
    void applyReport(const ServicePtr &s, const SERVICE_STATUS &status, uint64_t seq);

    ServiceDatabase &db_;
    ProcessLauncher &launcher_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::string, ServicePtr> services_; // by folded name
    std::map<pid_t, std::map<uint64_t, int>> handles_; // client -> service id -> open handles
    uint64_t nextId_ = 1;
    // HKLM\SYSTEM\CurrentControlSet\Control\ServicesPipeTimeout: how long a
    // started process may take to reach its dispatcher, and a handler to
    // return. Read at each start.
    DWORD pipeTimeoutMs_ = 30000;
    std::function<void()> processEndedHook_;
    std::function<void()> shutdownHook_;
    bool shuttingDown_ = false;
    bool delayedStartPending_ = false;
};

} // namespace tsscm
