// The service manager's state machine: its entries, handles and
// configuration. Starts are in managerstart.cpp, controls and shutdown in
// managercontrol.cpp.
#include "managerservice.h"

#include "account.h"
#include "log.h"
#include "svcwire.h"

#include <algorithm>

using tsp::svc::foldServiceName;

namespace tsscm {

namespace {

bool validName(const std::string &n)
{
    return !n.empty() && n.size() <= 256 && n.find_first_of("/\\") == std::string::npos;
}

bool validStart(DWORD start) { return start == SERVICE_AUTO_START || start == SERVICE_DEMAND_START || start == SERVICE_DISABLED; }

bool validType(DWORD type)
{
    DWORD base = type & ~static_cast<DWORD>(SERVICE_INTERACTIVE_PROCESS);
    return base == SERVICE_WIN32_OWN_PROCESS || base == SERVICE_WIN32_SHARE_PROCESS;
}

// Dependencies as the database keeps them: services and groups apart.
void splitDependencies(const std::vector<std::string> &all, ServiceConfig &c)
{
    c.dependOnService.clear();
    c.dependOnGroup.clear();
    for (const std::string &d : all) {
        if (d.empty())
            continue;
        if (d[0] == '+') {
            if (d.size() > 1)
                c.dependOnGroup.push_back(d.substr(1));
        } else {
            c.dependOnService.push_back(d);
        }
    }
}

} // namespace

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
    s->status.dwWin32ExitCode = ERROR_SERVICE_NEVER_STARTED;
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
    // Boot and system starts are for drivers, which this manager has not.
    if (!validType(r.type) || !validStart(r.start) || r.errorControl > SERVICE_ERROR_CRITICAL || r.imagePath.empty())
        return ERROR_INVALID_PARAMETER;
    Account account;
    if (!lookUpAccount(r.account, account))
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
    c.account = storedAccountName(r.account);
    c.group = r.group;
    splitDependencies(r.dependencies, c);
    if (DWORD e = store(c))
        return e;
    ServicePtr s = lookupName(r.name);
    if (!s)
        return ERROR_GEN_FAILURE;
    logLine("%s created", s->name.c_str());
    addHandle(s, client);
    *out = Opened{s->id, s->name};
    return ERROR_SUCCESS;
}

// True when config depends on `on`, by name or through a group, directly
// or through others (all: every service's configuration).
bool Manager::dependsOn(const ServiceConfig &config, const ServiceConfig &on, const std::vector<ServiceConfig> &all)
{
    std::string target = foldServiceName(on.name), targetGroup = foldServiceName(on.group);
    std::vector<const ServiceConfig *> todo{&config};
    std::vector<std::string> seen;
    auto find = [&](const std::string &name) -> const ServiceConfig * {
        std::string f = foldServiceName(name);
        if (f == foldServiceName(config.name))
            return &config; // its new form, not the stored one
        for (const ServiceConfig &c : all)
            if (foldServiceName(c.name) == f)
                return &c;
        return nullptr;
    };
    while (!todo.empty()) {
        const ServiceConfig *c = todo.back();
        todo.pop_back();
        std::string f = foldServiceName(c->name);
        if (std::find(seen.begin(), seen.end(), f) != seen.end())
            continue;
        seen.push_back(f);
        for (const std::string &d : c->dependOnService) {
            if (foldServiceName(d) == target)
                return true;
            if (const ServiceConfig *next = find(d))
                todo.push_back(next);
        }
        for (const std::string &grp : c->dependOnGroup) {
            std::string fg = foldServiceName(grp);
            if (!targetGroup.empty() && fg == targetGroup)
                return true;
            for (const ServiceConfig &member : all)
                if (foldServiceName(member.group) == fg)
                    if (const ServiceConfig *next = find(member.name))
                        todo.push_back(next);
        }
    }
    return false;
}

// Writes a configuration that holds together: an interactive service
// runs as LocalSystem, as on Windows (else ERROR_INVALID_PARAMETER), and
// dependencies lead not back to the service (ERROR_CIRCULAR_DEPENDENCY).
DWORD Manager::store(const ServiceConfig &config)
{
    if ((config.type & SERVICE_INTERACTIVE_PROCESS) && config.account != "LocalSystem")
        return ERROR_INVALID_PARAMETER;
    if (dependsOn(config, config, db_.readAllServices()))
        return ERROR_CIRCULAR_DEPENDENCY;
    LONG e = db_.writeService(config);
    return static_cast<DWORD>(e);
}

DWORD Manager::changeConfig(uint64_t id, const ChangeRequest &r)
{
    if ((r.type != SERVICE_NO_CHANGE && !validType(r.type)) || (r.start != SERVICE_NO_CHANGE && !validStart(r.start)) ||
        (r.errorControl != SERVICE_NO_CHANGE && r.errorControl > SERVICE_ERROR_CRITICAL) ||
        (r.imagePath && r.imagePath->empty()))
        return ERROR_INVALID_PARAMETER;
    Account account;
    if (r.account && !lookUpAccount(*r.account, account))
        return ERROR_INVALID_SERVICE_ACCOUNT;
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s || s->deleteMark)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    ServiceConfig c;
    if (!db_.readService(s->name, c))
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (r.display) {
        std::string display = r.display->empty() ? c.name : *r.display;
        std::string folded = foldServiceName(display);
        for (const ServiceConfig &other : db_.readAllServices())
            if (foldServiceName(other.name) != foldServiceName(c.name) &&
                (foldServiceName(other.name) == folded || foldServiceName(other.displayName) == folded))
                return ERROR_DUPLICATE_SERVICE_NAME;
        c.displayName = display;
    }
    if (r.type != SERVICE_NO_CHANGE)
        c.type = r.type;
    if (r.start != SERVICE_NO_CHANGE)
        c.start = r.start;
    if (r.errorControl != SERVICE_NO_CHANGE)
        c.errorControl = r.errorControl;
    if (r.imagePath)
        c.imagePath = *r.imagePath;
    if (r.account)
        c.account = storedAccountName(*r.account);
    if (r.group)
        c.group = *r.group;
    if (r.dependencies)
        splitDependencies(*r.dependencies, c);
    if (r.description)
        c.description = *r.description;
    if (r.delayedAutostart)
        c.delayedAutostart = *r.delayedAutostart;
    if (DWORD e = store(c))
        return e;
    logLine("%s: configuration changed", c.name.c_str());
    return ERROR_SUCCESS;
}

DWORD Manager::queryConfig(uint64_t id, ServiceConfig *config)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s || !db_.readService(s->name, *config))
        return ERROR_SERVICE_MARKED_FOR_DELETE;
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

DWORD Manager::query(uint64_t id, SERVICE_STATUS *status, DWORD *pid)
{
    Lock g(lock_);
    ServicePtr s = lookupId(id);
    if (!s)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    *status = s->status;
    if (pid)
        *pid = s->status.dwCurrentState == SERVICE_STOPPED ? 0 : static_cast<DWORD>(s->pid);
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
            chosen.push_back(Listed{entry.second.name, entry.second.displayName, s->status,
                                    active ? static_cast<DWORD>(s->pid) : 0});
    }
    return chosen;
}

bool Manager::hasProcesses()
{
    Lock g(lock_);
    if (delayedStartPending_)
        return true;
    for (auto &entry : services_)
        if (entry.second->pid != 0 || entry.second->launching)
            return true;
    return false;
}

} // namespace tsscm
