// The service manager's state machine.
#include "manager.h"

#include "log.h"
#include "svcwire.h"

#include <chrono>

using tsp::svc::foldServiceName;

namespace tsscm {

namespace {

constexpr DWORD kNeverStarted = 1077; // ERROR_SERVICE_NEVER_STARTED
constexpr DWORD kStartWaitHint = 2000;

bool accepts(DWORD control, DWORD accepted)
{
    switch (control) {
    case SERVICE_CONTROL_STOP: return accepted & SERVICE_ACCEPT_STOP;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE: return accepted & SERVICE_ACCEPT_PAUSE_CONTINUE;
    case SERVICE_CONTROL_INTERROGATE: return true;
    case SERVICE_CONTROL_SHUTDOWN: return accepted & SERVICE_ACCEPT_SHUTDOWN;
    case SERVICE_CONTROL_PARAMCHANGE: return accepted & SERVICE_ACCEPT_PARAMCHANGE;
    case SERVICE_CONTROL_NETBINDADD:
    case SERVICE_CONTROL_NETBINDREMOVE:
    case SERVICE_CONTROL_NETBINDENABLE:
    case SERVICE_CONTROL_NETBINDDISABLE: return accepted & SERVICE_ACCEPT_NETBINDCHANGE;
    default: return control >= 128 && control <= 255;
    }
}

bool validName(const std::string &n)
{
    return !n.empty() && n.size() <= 256 && n.find_first_of("/\\") == std::string::npos;
}

bool localSystem(const std::string &a)
{
    std::string f = foldServiceName(a);
    return f.empty() || f == "localsystem" || f == ".\\localsystem" || f == "nt authority\\system";
}

std::chrono::steady_clock::time_point after(DWORD ms)
{
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
}

} // namespace

struct Manager::Service {
    uint64_t id = 0;
    std::string name;
    SERVICE_STATUS status{};
    pid_t pid = 0;           // the running process, 0 for none
    bool launching = false;  // started, its dispatcher not yet connected
    DWORD launchError = 0;   // why the launch ended, when it failed
    std::vector<std::string> args;
    std::shared_ptr<ControlLink> link; // the dispatcher's connection
    bool deleteMark = false;
    bool controlBusy = false;
    uint64_t statusSeq = 0;  // the latest report applied, in the process's count
    uint32_t controlSeq = 0;
    int handles = 0;         // open handles of all clients

    bool running() const { return pid != 0 || status.dwCurrentState != SERVICE_STOPPED; }
};

Manager::Manager(ServiceDatabase &db, ProcessLauncher &launcher) : db_(db), launcher_(launcher)
{
    pipeTimeoutMs_ = db_.readControlValue("ServicesPipeTimeout", 30000);
}

Manager::~Manager() = default;

void Manager::onProcessEnded(std::function<void()> hook)
{
    Lock g(lock_);
    processEndedHook_ = std::move(hook);
}

// The entry of a service in the database, made on first sight. Null when
// the database has no such service (an entry still running stays).
Manager::ServicePtr Manager::lookupName(const std::string &name)
{
    std::string folded = foldServiceName(name);
    auto it = services_.find(folded);
    ServiceConfig config;
    if (!db_.readService(name, config)) {
        if (it != services_.end() && !it->second->running() && it->second->handles == 0) {
            services_.erase(it);
            return nullptr;
        }
        return it == services_.end() ? nullptr : it->second;
    }
    if (it != services_.end())
        return it->second;
    auto s = std::make_shared<Service>();
    s->id = nextId_++;
    s->name = config.name;
    s->status.dwServiceType = config.type & SERVICE_WIN32;
    s->status.dwCurrentState = SERVICE_STOPPED;
    s->status.dwWin32ExitCode = kNeverStarted;
    services_[folded] = s;
    return s;
}

Manager::ServicePtr Manager::lookupId(uint64_t id)
{
    for (auto &entry : services_)
        if (entry.second->id == id)
            return entry.second;
    return nullptr;
}

void Manager::addHandle(const ServicePtr &s, pid_t client)
{
    ++s->handles;
    ++handles_[client][s->id];
}

void Manager::dropHandle(const ServicePtr &s)
{
    --s->handles;
    settle(s);
}

// A service marked for deletion goes once it is stopped, its process has
// reached the end of its start, and no handle is open (as on Windows,
// whose manager keeps it while a handle remains).
void Manager::settle(const ServicePtr &s)
{
    if (s->deleteMark && s->status.dwCurrentState == SERVICE_STOPPED && !s->launching && s->handles == 0) {
        if (LONG e = db_.deleteService(s->name))
            logLine("%s: cannot remove its entry (%ld)", s->name.c_str(), static_cast<long>(e));
        services_.erase(foldServiceName(s->name));
        logLine("%s deleted", s->name.c_str());
    }
    changed_.notify_all();
}

DWORD Manager::create(const CreateRequest &r, pid_t client, Opened *out)
{
    if (!validName(r.name))
        return ERROR_INVALID_NAME;
    DWORD base = r.type & ~static_cast<DWORD>(SERVICE_INTERACTIVE_PROCESS);
    if ((base != SERVICE_WIN32_OWN_PROCESS && base != SERVICE_WIN32_SHARE_PROCESS) ||
        (r.start != SERVICE_AUTO_START && r.start != SERVICE_DEMAND_START && r.start != SERVICE_DISABLED) ||
        r.errorControl > SERVICE_ERROR_CRITICAL || r.imagePath.empty())
        return ERROR_INVALID_PARAMETER;
    if (!localSystem(r.account))
        return ERROR_INVALID_SERVICE_ACCOUNT;
    std::string display = r.hasDisplay && !r.display.empty() ? r.display : r.name;
    Lock g(lock_);
    if (ServicePtr existing = lookupName(r.name))
        return existing->deleteMark ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SERVICE_EXISTS;
    std::string foldedDisplay = foldServiceName(display);
    for (const ServiceConfig &c : db_.readAllServices())
        if (foldServiceName(c.name) == foldedDisplay || foldServiceName(c.displayName) == foldedDisplay)
            return ERROR_DUPLICATE_SERVICE_NAME;
    ServiceConfig c;
    c.name = r.name;
    c.displayName = display;
    c.imagePath = r.imagePath;
    c.type = r.type;
    c.start = r.start;
    c.errorControl = r.errorControl;
    c.account = "LocalSystem";
    if (LONG e = db_.writeService(c))
        return static_cast<DWORD>(e);
    ServicePtr s = lookupName(r.name);
    if (!s)
        return ERROR_GEN_FAILURE;
    logLine("%s created", s->name.c_str());
    addHandle(s, client);
    *out = Opened{s->id, s->name};
    return ERROR_SUCCESS;
}

DWORD Manager::open(const std::string &name, pid_t client, Opened *out)
{
    if (!validName(name))
        return ERROR_INVALID_NAME;
    Lock g(lock_);
    ServicePtr s = lookupName(name);
    if (!s)
        return ERROR_SERVICE_DOES_NOT_EXIST;
    addHandle(s, client);
    *out = Opened{s->id, s->name};
    return ERROR_SUCCESS;
}

DWORD Manager::closeHandle(uint64_t id, pid_t client)
{
    Lock g(lock_);
    auto owner = handles_.find(client);
    if (owner == handles_.end())
        return ERROR_INVALID_HANDLE;
    auto held = owner->second.find(id);
    if (held == owner->second.end())
        return ERROR_INVALID_HANDLE;
    if (--held->second == 0)
        owner->second.erase(held);
    if (owner->second.empty())
        handles_.erase(owner);
    if (ServicePtr s = lookupId(id))
        dropHandle(s);
    return ERROR_SUCCESS;
}

void Manager::clientGone(pid_t client)
{
    Lock g(lock_);
    auto owner = handles_.find(client);
    if (owner == handles_.end())
        return;
    std::map<uint64_t, int> held = std::move(owner->second);
    handles_.erase(owner);
    for (auto &entry : held)
        if (ServicePtr s = lookupId(entry.first)) {
            s->handles -= entry.second - 1;
            dropHandle(s);
        }
}

DWORD Manager::start(uint64_t id, std::vector<std::string> args)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    return startLocked(s, std::move(args), g);
}

DWORD Manager::startLocked(const ServicePtr &s, std::vector<std::string> args, Lock &g)
{
    if (s->deleteMark)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    // A process that reported SERVICE_STOPPED and is still ending does not
    // hold up the next start.
    if (s->status.dwCurrentState != SERVICE_STOPPED || s->launching)
        return ERROR_SERVICE_ALREADY_RUNNING;
    ServiceConfig config;
    if (!db_.readService(s->name, config))
        return ERROR_SERVICE_DOES_NOT_EXIST;
    if (config.start == SERVICE_DISABLED)
        return ERROR_SERVICE_DISABLED;
    pid_t pid = 0;
    if (DWORD e = launcher_.launch(config, &pid))
        return e;
    s->pid = pid;
    launcher_.remember(s->name, pid);
    s->args = std::move(args);
    s->statusSeq = 0;
    s->launching = true;
    s->launchError = 0;
    s->status = SERVICE_STATUS{config.type & SERVICE_WIN32, SERVICE_START_PENDING, 0, 0, 0, 0, kStartWaitHint};
    logLine("%s: started process %d", s->name.c_str(), static_cast<int>(pid));
    DWORD timeout = pipeTimeoutMs_ = db_.readControlValue("ServicesPipeTimeout", 30000);
    changed_.wait_until(g, after(timeout), [&] { return !s->launching || s->pid != pid; });
    if (s->launching && s->pid == pid) {
        // It never reached its dispatcher: as on Windows, error 1053.
        logLine("%s: no dispatcher within %u ms", s->name.c_str(), static_cast<unsigned>(timeout));
        launcher_.kill(pid);
        s->launching = false;
        s->status.dwCurrentState = SERVICE_STOPPED;
        s->status.dwWin32ExitCode = ERROR_SERVICE_REQUEST_TIMEOUT;
        s->status.dwWaitHint = 0;
        settle(s);
        return ERROR_SERVICE_REQUEST_TIMEOUT;
    }
    return s->launchError;
}

DWORD Manager::control(uint64_t id, DWORD control, SERVICE_STATUS *status)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    DWORD e = controlLocked(s, control, g);
    *status = s->status;
    return e;
}

void Manager::applyReport(const ServicePtr &s, const SERVICE_STATUS &status, uint64_t seq)
{
    if (seq > s->statusSeq) { // else a later report came first, on the other connection
        s->statusSeq = seq;
        s->status = status;
        settle(s);
    }
}

// Delivers one control and waits for the handler's return. The caller's
// thread reads the answer from the dispatcher's link itself: only one
// control at a time uses it.
DWORD Manager::controlLocked(const ServicePtr &s, DWORD control, Lock &g)
{
    if (control == 0 || control > 255)
        return ERROR_INVALID_PARAMETER;
    DWORD timeout = pipeTimeoutMs_;
    auto deadline = after(timeout);
    while (s->controlBusy && s->running())
        if (changed_.wait_until(g, deadline) == std::cv_status::timeout && s->controlBusy)
            return ERROR_SERVICE_REQUEST_TIMEOUT;
    if (s->status.dwCurrentState == SERVICE_STOPPED)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (s->status.dwCurrentState == SERVICE_START_PENDING || s->status.dwCurrentState == SERVICE_STOP_PENDING)
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    if (!accepts(control, s->status.dwControlsAccepted))
        return ERROR_INVALID_SERVICE_CONTROL;
    std::shared_ptr<ControlLink> link = s->link;
    if (!link)
        return ERROR_SERVICE_REQUEST_TIMEOUT; // its dispatcher is gone
    uint32_t seq = ++s->controlSeq;
    s->controlBusy = true;
    bool answered = false, gone = false;
    DWORD result = 0;
    g.unlock();
    if (link->send(seq, control)) {
        auto end = after(timeout);
        for (;;) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            ControlEvent event;
            bool timedOut = false;
            if (!link->receive(event, static_cast<int>(left.count() < 0 ? 0 : left.count()), &timedOut)) {
                gone = !timedOut;
                break;
            }
            if (event.kind == ControlEvent::Status) {
                // Reported by the handler itself: the manager has it before the answer.
                g.lock();
                applyReport(s, event.status, event.statusSeq);
                g.unlock();
                continue;
            }
            // An answer to an earlier control that timed out is passed over.
            if (event.seq == seq) {
                result = event.result;
                answered = true;
                break;
            }
        }
    } else {
        gone = true;
    }
    g.lock();
    s->controlBusy = false;
    changed_.notify_all();
    if (s->link != link) {
        gone = !answered; // a new process's dispatcher took its place meanwhile
    } else if (gone) {
        s->link.reset(); // the dispatcher ended (the process with it, or it returned)
    }
    if (answered)
        return result;
    if (gone && s->status.dwCurrentState == SERVICE_STOPPED)
        return ERROR_SUCCESS;
    return ERROR_SERVICE_REQUEST_TIMEOUT;
}

DWORD Manager::query(uint64_t id, SERVICE_STATUS *status)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    *status = s->status;
    return ERROR_SUCCESS;
}

DWORD Manager::remove(uint64_t id)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s || s->deleteMark)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    s->deleteMark = true;
    logLine("%s marked for deletion", s->name.c_str());
    settle(s);
    return ERROR_SUCCESS;
}

std::vector<Manager::Listed> Manager::enumerate(DWORD type, DWORD state)
{
    Lock g(lock_);
    std::map<std::string, ServiceConfig> sorted;
    for (ServiceConfig &c : db_.readAllServices())
        sorted[foldServiceName(c.name)] = std::move(c);
    std::vector<Listed> chosen;
    for (auto &entry : sorted) {
        ServicePtr s = lookupName(entry.second.name);
        if (!s || !(entry.second.type & type))
            continue;
        bool active = s->status.dwCurrentState != SERVICE_STOPPED;
        if ((active && (state & SERVICE_ACTIVE)) || (!active && (state & SERVICE_INACTIVE)))
            chosen.push_back(Listed{entry.second.name, entry.second.displayName, s->status});
    }
    return chosen;
}

DWORD Manager::setStatus(pid_t pid, const SERVICE_STATUS &status, uint64_t seq)
{
    if (status.dwCurrentState < SERVICE_STOPPED || status.dwCurrentState > SERVICE_PAUSED)
        return ERROR_INVALID_DATA;
    Lock g(lock_);
    for (auto &entry : services_) {
        ServicePtr s = entry.second;
        if (s->pid != pid || pid == 0)
            continue;
        applyReport(s, status, seq);
        return ERROR_SUCCESS;
    }
    return ERROR_INVALID_HANDLE;
}

bool Manager::attachDispatcher(pid_t pid, const Greeting &greet)
{
    Lock g(lock_);
    ServicePtr s;
    for (auto &entry : services_)
        if (entry.second->pid == pid && entry.second->launching && pid != 0)
            s = entry.second;
    if (!s)
        return false;
    std::shared_ptr<ControlLink> link = greet(s->name, s->args);
    if (!link)
        return false;
    s->link = link; // the previous process's, if any, closes when its last control lets it go
    s->launching = false;
    changed_.notify_all();
    return true;
}

// A process that did not report SERVICE_STOPPED itself ends with
// ERROR_PROCESS_ABORTED.
void Manager::processEnded(pid_t pid)
{
    std::function<void()> hook;
    {
        Lock g(lock_);
        for (auto &entry : services_) {
            ServicePtr s = entry.second;
            if (s->pid != pid)
                continue;
            s->pid = 0;
            launcher_.forget(s->name);
            if (!s->controlBusy)
                s->link.reset();
            if (s->launching) {
                s->launching = false;
                s->launchError = ERROR_PROCESS_ABORTED;
            }
            if (s->status.dwCurrentState != SERVICE_STOPPED) {
                logLine("%s: process %d ended without reporting SERVICE_STOPPED", s->name.c_str(),
                        static_cast<int>(pid));
                s->status.dwCurrentState = SERVICE_STOPPED;
                s->status.dwControlsAccepted = 0;
                s->status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
                s->status.dwServiceSpecificExitCode = 0;
                s->status.dwCheckPoint = 0;
                s->status.dwWaitHint = 0;
            }
            settle(s);
            break;
        }
        changed_.notify_all();
        hook = processEndedHook_;
    }
    if (hook)
        hook();
}

void Manager::adopt(const std::string &serviceName, pid_t pid)
{
    Lock g(lock_);
    ServicePtr s = lookupName(serviceName);
    if (!s) {
        logLine("%s: process %d runs for a service that is gone; it is ended", serviceName.c_str(),
                static_cast<int>(pid));
        launcher_.kill(pid);
        launcher_.forget(serviceName);
        return;
    }
    s->pid = pid;
    s->launching = true; // its dispatcher connects again
    s->statusSeq = 0;
    s->status = SERVICE_STATUS{SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, 0, 0, 0, 0, kStartWaitHint};
    logLine("%s: took over process %d", s->name.c_str(), static_cast<int>(pid));
}

void Manager::autoStart()
{
    Lock g(lock_);
    for (const ServiceConfig &c : db_.readAllServices()) {
        if (c.start != SERVICE_AUTO_START)
            continue;
        ServicePtr s = lookupName(c.name);
        if (!s || s->running())
            continue;
        DWORD e = startLocked(s, {}, g);
        logLine("%s: automatic start %s (%u)", c.name.c_str(), e ? "failed" : "done", static_cast<unsigned>(e));
    }
}

void Manager::onShutdown(std::function<void()> hook)
{
    Lock g(lock_);
    shutdownHook_ = std::move(hook);
}

void Manager::shutdown()
{
    std::function<void()> hook;
    {
        Lock g(lock_);
        hook = shutdownHook_;
    }
    if (hook)
        hook();
    Lock g(lock_);
    std::vector<ServicePtr> live;
    for (auto &entry : services_)
        if (entry.second->running())
            live.push_back(entry.second);
    for (const ServicePtr &s : live) {
        if (s->status.dwControlsAccepted & SERVICE_ACCEPT_SHUTDOWN)
            controlLocked(s, SERVICE_CONTROL_SHUTDOWN, g);
        else if (s->status.dwControlsAccepted & SERVICE_ACCEPT_STOP)
            controlLocked(s, SERVICE_CONTROL_STOP, g);
    }
    DWORD timeout = db_.readControlValue("WaitToKillServiceTimeout", 20000);
    changed_.wait_until(g, after(timeout), [&] {
        for (const ServicePtr &s : live)
            if (s->pid != 0)
                return false;
        return true;
    });
    for (const ServicePtr &s : live)
        if (s->pid != 0) {
            logLine("%s: killed at shutdown", s->name.c_str());
            launcher_.kill(s->pid);
        }
}

bool Manager::hasProcesses()
{
    Lock g(lock_);
    for (auto &entry : services_)
        if (entry.second->pid != 0 || entry.second->launching)
            return true;
    return false;
}

} // namespace tsscm
