// The service manager's starts: of a service and what it depends on, of
// the automatic services, and the processes' dispatchers and ends.
#include "managerservice.h"

#include "log.h"
#include "svcwire.h"

#include <algorithm>

using tsp::svc::foldServiceName;

namespace tsscm {

DWORD Manager::start(uint64_t id, std::vector<std::string> args)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    std::vector<std::string> chain;
    return startWithDependencies(s, std::move(args), g, chain);
}

// chain: the folded names of the services whose start waits for this one.
DWORD Manager::startWithDependencies(const ServicePtr &s, std::vector<std::string> args, Lock &g,
                                     std::vector<std::string> &chain)
{
    ServiceConfig config;
    if (!db_.readService(s->name, config))
        return ERROR_SERVICE_DOES_NOT_EXIST;
    // What keeps the service itself from starting is told before its dependencies.
    if (s->deleteMark)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (s->status.dwCurrentState != SERVICE_STOPPED || s->launching)
        return ERROR_SERVICE_ALREADY_RUNNING;
    if (config.start == SERVICE_DISABLED)
        return ERROR_SERVICE_DISABLED;
    chain.push_back(foldServiceName(s->name));
    DWORD result = ERROR_SUCCESS;
    for (const std::string &name : config.dependOnService) {
        ServicePtr d = lookupName(name);
        if (!d || d->deleteMark) {
            logLine("%s: depends on %s, which does not exist", s->name.c_str(), name.c_str());
            result = ERROR_SERVICE_DEPENDENCY_DELETED;
            break;
        }
        if ((result = runDependency(d, g, chain)) != ERROR_SUCCESS)
            break;
    }
    for (size_t i = 0; result == ERROR_SUCCESS && i < config.dependOnGroup.size(); ++i) {
        // A group is there when one of its members runs.
        std::string group = foldServiceName(config.dependOnGroup[i]);
        bool one = false;
        for (const ServiceConfig &member : db_.readAllServices()) {
            if (foldServiceName(member.group) != group)
                continue;
            ServicePtr d = lookupName(member.name);
            DWORD e = d ? runDependency(d, g, chain) : ERROR_SERVICE_DEPENDENCY_DELETED;
            if (e == ERROR_CIRCULAR_DEPENDENCY) {
                result = e;
                break;
            }
            one = one || e == ERROR_SUCCESS;
        }
        if (result == ERROR_SUCCESS && !one) {
            logLine("%s: no service of group %s runs", s->name.c_str(), config.dependOnGroup[i].c_str());
            result = ERROR_SERVICE_DEPENDENCY_FAIL;
        }
    }
    chain.pop_back();
    return result ? result : startLocked(s, std::move(args), g);
}

// Starts a dependency (and its own) unless it runs, and waits until it
// runs: ERROR_SUCCESS, ERROR_CIRCULAR_DEPENDENCY, or for any other failure
// ERROR_SERVICE_DEPENDENCY_FAIL (ERROR_SERVICE_DEPENDENCY_DELETED for a
// missing dependency of its own).
DWORD Manager::runDependency(const ServicePtr &d, Lock &g, std::vector<std::string> &chain)
{
    if (std::find(chain.begin(), chain.end(), foldServiceName(d->name)) != chain.end())
        return ERROR_CIRCULAR_DEPENDENCY;
    if (d->status.dwCurrentState == SERVICE_STOPPED && !d->launching) {
        DWORD e = startWithDependencies(d, {}, g, chain);
        if (e == ERROR_CIRCULAR_DEPENDENCY || e == ERROR_SERVICE_DEPENDENCY_DELETED)
            return e;
        if (e != ERROR_SUCCESS && e != ERROR_SERVICE_ALREADY_RUNNING) {
            logLine("%s: cannot start (%u)", d->name.c_str(), static_cast<unsigned>(e));
            return ERROR_SERVICE_DEPENDENCY_FAIL;
        }
    }
    auto settled = [&] {
        DWORD st = d->status.dwCurrentState;
        return !d->launching && (st == SERVICE_RUNNING || st == SERVICE_PAUSED || st == SERVICE_STOPPED ||
                                 st == SERVICE_STOP_PENDING);
    };
    changed_.wait_until(g, after(pipeTimeoutMs_), settled);
    DWORD st = d->status.dwCurrentState;
    return st == SERVICE_RUNNING || st == SERVICE_PAUSED ? ERROR_SUCCESS : ERROR_SERVICE_DEPENDENCY_FAIL;
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

void Manager::autoStart(const std::vector<ServiceConfig> &atBoot)
{
    Lock g(lock_);
    auto startAll = [&](bool delayed) {
        for (const ServiceConfig &c : atBoot) {
            if (c.start != SERVICE_AUTO_START || c.delayedAutostart != delayed || shuttingDown_)
                continue;
            ServicePtr s = lookupName(c.name);
            if (!s || s->running())
                continue; // deleted since, or started already as another's dependency
            std::vector<std::string> chain;
            DWORD e = startWithDependencies(s, {}, g, chain);
            logLine("%s: %sautomatic start %s (%u)", c.name.c_str(), delayed ? "delayed " : "", e ? "failed" : "done",
                    static_cast<unsigned>(e));
        }
    };
    startAll(false);
    bool anyDelayed = false;
    for (const ServiceConfig &c : atBoot)
        anyDelayed = anyDelayed || (c.start == SERVICE_AUTO_START && c.delayedAutostart);
    if (!anyDelayed)
        return;
    DWORD delaySeconds = db_.readControlValue("AutoStartDelay", 120);
    delayedStartPending_ = true; // an on-demand daemon stays for it
    changed_.wait_until(g, after(delaySeconds * 1000), [&] { return shuttingDown_; });
    startAll(true);
    delayedStartPending_ = false;
}

} // namespace tsscm
