// The service manager's controls: delivery to a service's dispatcher, the
// reports of the service processes, and shutdown.
#include "managerservice.h"

#include "log.h"
#include "svcwire.h"

#include <map>

using tsp::svc::foldServiceName;

namespace tsscm {

namespace {

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

} // namespace

DWORD Manager::control(uint64_t id, DWORD control, SERVICE_STATUS *status)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (control == SERVICE_CONTROL_STOP && s->status.dwCurrentState != SERVICE_STOPPED && hasRunningDependents(s)) {
        *status = s->status;
        return ERROR_DEPENDENT_SERVICES_RUNNING;
    }
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
    shuttingDown_ = true;
    changed_.notify_all(); // a delayed automatic start waits no more
    std::vector<ServicePtr> live;
    for (auto &entry : services_)
        if (entry.second->running())
            live.push_back(entry.second);
    std::vector<ServiceConfig> all = db_.readAllServices();
    std::map<std::string, ServiceConfig> configs;
    for (const ServiceConfig &c : all)
        configs[foldServiceName(c.name)] = c;
    auto config = [&](const ServicePtr &s) {
        auto it = configs.find(foldServiceName(s->name));
        return it == configs.end() ? ServiceConfig{} : it->second;
    };
    DWORD timeout = db_.readControlValue("WaitToKillServiceTimeout", 20000);
    auto deadline = after(timeout);
    // Rounds: the services on which no other live one depends are stopped
    // and waited for, then those that they depended on, and so on. A
    // circle of them (which the manager refuses to make) is stopped at once.
    std::vector<ServicePtr> left = live;
    while (!left.empty()) {
        std::vector<ServicePtr> round, rest;
        for (const ServicePtr &s : left) {
            bool needed = false;
            for (const ServicePtr &other : left)
                needed = needed || (other != s && dependsOn(config(other), config(s), all));
            (needed ? rest : round).push_back(s);
        }
        if (round.empty())
            round.swap(rest);
        for (const ServicePtr &s : round) {
            if (s->status.dwControlsAccepted & SERVICE_ACCEPT_SHUTDOWN)
                controlLocked(s, SERVICE_CONTROL_SHUTDOWN, g);
            else if (s->status.dwControlsAccepted & SERVICE_ACCEPT_STOP)
                controlLocked(s, SERVICE_CONTROL_STOP, g);
        }
        changed_.wait_until(g, deadline, [&] {
            for (const ServicePtr &s : round)
                if (s->pid != 0)
                    return false;
            return true;
        });
        left.swap(rest);
    }
    for (const ServicePtr &s : live)
        if (s->pid != 0) {
            logLine("%s: killed at shutdown", s->name.c_str());
            launcher_.kill(s->pid);
        }
}

// Whether a service that depends on s (by name or through s's group) is
// not stopped.
bool Manager::hasRunningDependents(const ServicePtr &s)
{
    ServiceConfig self;
    if (!db_.readService(s->name, self))
        return false;
    std::string name = foldServiceName(self.name), group = foldServiceName(self.group);
    for (const ServiceConfig &c : db_.readAllServices()) {
        bool depends = false;
        for (const std::string &d : c.dependOnService)
            depends = depends || foldServiceName(d) == name;
        for (const std::string &d : c.dependOnGroup)
            depends = depends || (!group.empty() && foldServiceName(d) == group);
        if (!depends)
            continue;
        auto it = services_.find(foldServiceName(c.name));
        if (it != services_.end() && it->second->running() && it->second->status.dwCurrentState != SERVICE_STOPPED)
            return true;
    }
    return false;
}

} // namespace tsscm
