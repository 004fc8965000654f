// tsscm: the service manager of one machine root.
//
//   tsscm               runs in the foreground until SIGTERM or SIGINT (for
//                       an init system), starting SERVICE_AUTO_START services
//   tsscm --stop        stops the running daemon: its services get
//                       SERVICE_CONTROL_SHUTDOWN, and it ends when they have
//   --on-demand         how the layer starts it: ends by itself after
//                       --idle-exit=MS (default 2000) with no client
//                       connected and no service process running
//   --notify-fd=N       writes "R" to N once it listens
//
// One thread per connection; all state sits under one lock, which a
// request gives up while it waits for a service. A service
// process is known by its pid: a dispatcher that connects from a pid the
// daemon did not start is refused.
#include "database.h"
#include "machineroot.h"
#include "serviceproto.h"

#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

extern char **environ;

using namespace tsp::svc;
using tsscm::ServiceConfig;

namespace {

constexpr DWORD kNeverStarted = 1077; // ERROR_SERVICE_NEVER_STARTED
constexpr DWORD kStartWaitHint = 2000;

struct Service {
    uint64_t id = 0;
    std::string name;
    SERVICE_STATUS status{};
    pid_t pid = 0;           // the running process, 0 for none
    bool launching = false;  // started, its dispatcher not yet connected
    DWORD launchError = 0;   // why the launch ended, when it failed
    std::vector<std::string> args;
    int controlFd = -1;      // the dispatcher's connection
    bool deleteMark = false;
    bool controlBusy = false;
    uint64_t statusSeq = 0;  // the latest report applied, in the process's count
    uint32_t controlSeq = 0;
};
using ServicePtr = std::shared_ptr<Service>;

std::mutex lock;
std::condition_variable changed;
std::map<std::string, ServicePtr> services; // by folded name
uint64_t nextId = 1;
int connections = 0;
bool stopping = false;
bool onDemand = false;
long idleExitMs = 2000;
std::string socketPath;
ino_t socketInode = 0;
int listenFd = -1;
// HKLM\SYSTEM\CurrentControlSet\Control\ServicesPipeTimeout: how long a
// started process may take to reach its dispatcher, and a handler to
// return. Read when the daemon starts and at each service start.
DWORD pipeTimeoutMs = 30000;

void logLine(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void logLine(const char *fmt, ...)
{
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    time_t now = time(nullptr);
    char when[32];
    strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", localtime(&now));
    fprintf(stderr, "%s tsscm[%d]: %s\n", when, static_cast<int>(getpid()), buf);
}

bool running(const Service &s) { return s.pid != 0 || s.status.dwCurrentState != SERVICE_STOPPED; }

// The entry of a service in the database, made on first sight. Null when
// the registry has no such service (an entry still running stays).
ServicePtr lookupName(const std::string &name)
{
    std::string folded = foldServiceName(name);
    auto it = services.find(folded);
    ServiceConfig config;
    if (!tsscm::readService(name, config)) {
        if (it != services.end() && !running(*it->second)) {
            services.erase(it);
            return nullptr;
        }
        return it == services.end() ? nullptr : it->second;
    }
    if (it != services.end())
        return it->second;
    auto s = std::make_shared<Service>();
    s->id = nextId++;
    s->name = config.name;
    s->status.dwServiceType = config.type & SERVICE_WIN32;
    s->status.dwCurrentState = SERVICE_STOPPED;
    s->status.dwWin32ExitCode = kNeverStarted;
    services[folded] = s;
    return s;
}

ServicePtr lookupId(uint64_t id)
{
    for (auto &entry : services)
        if (entry.second->id == id)
            return entry.second;
    return nullptr;
}

void removeEntry(const ServicePtr &s)
{
    tsscm::deleteService(s->name);
    services.erase(foldServiceName(s->name));
    logLine("%s deleted", s->name.c_str());
}

// Whatever stopped it, a stopped service marked for deletion goes now.
void settle(const ServicePtr &s)
{
    if (s->deleteMark && s->status.dwCurrentState == SERVICE_STOPPED)
        removeEntry(s);
    changed.notify_all();
}

// ---- starting a service process

std::string translatePath(const std::string &p)
{
    if (p.size() >= 3 && p[1] == ':' && (p[2] == '\\' || p[2] == '/')) {
        char drive = static_cast<char>(p[0] | 0x20);
        std::string rest = p.substr(2);
        for (char &c : rest)
            if (c == '\\')
                c = '/';
        if (drive == 'c')
            return tsp::machineRoot() + "/drive_c" + rest;
        if (drive == 'z')
            return rest;
        return tsp::machineRoot() + "/dosdevices/" + std::string(1, drive) + ":" + rest;
    }
    return p;
}

// ImagePath as a command line: a path that names a file as a whole needs
// no quotes (as GetModuleFileNameA's result is stored); otherwise words
// split at blanks and double quotes group.
std::vector<std::string> commandLine(const std::string &image)
{
    if (access(translatePath(image).c_str(), F_OK) == 0)
        return {translatePath(image)};
    std::vector<std::string> words;
    std::string cur;
    bool quoted = false, any = false;
    for (char c : image) {
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (any || !cur.empty())
                words.push_back(cur);
            cur.clear();
            any = false;
        } else {
            cur += c;
        }
    }
    if (any || !cur.empty())
        words.push_back(cur);
    if (!words.empty())
        words[0] = translatePath(words[0]);
    return words;
}

void reap(pid_t pid);

DWORD launch(const ServicePtr &s, const ServiceConfig &config)
{
    std::vector<std::string> words = commandLine(config.imagePath);
    if (words.empty())
        return ERROR_PATH_NOT_FOUND;
    struct stat st;
    if (stat(words[0].c_str(), &st) != 0)
        return ERROR_FILE_NOT_FOUND;
    if (!S_ISREG(st.st_mode) || access(words[0].c_str(), X_OK) != 0)
        return ERROR_ACCESS_DENIED;
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &all);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    pid_t pid = 0;
    int e = posix_spawn(&pid, argv[0], nullptr, &attr, argv.data(), environ);
    posix_spawnattr_destroy(&attr);
    if (e != 0)
        return e == ENOENT ? ERROR_FILE_NOT_FOUND : e == EACCES ? ERROR_ACCESS_DENIED : ERROR_BAD_FORMAT;
    s->pid = pid;
    std::thread(reap, pid).detach();
    return ERROR_SUCCESS;
}

// Waits for a service process's end and reports it stopped; a process that
// did not report SERVICE_STOPPED itself ends with ERROR_PROCESS_ABORTED.
void reap(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    std::lock_guard<std::mutex> g(lock);
    for (auto &entry : services) {
        ServicePtr s = entry.second;
        if (s->pid != pid)
            continue;
        s->pid = 0;
        if (!s->controlBusy && s->controlFd >= 0) {
            close(s->controlFd);
            s->controlFd = -1;
        }
        if (s->launching) {
            s->launching = false;
            s->launchError = ERROR_PROCESS_ABORTED;
        }
        if (s->status.dwCurrentState != SERVICE_STOPPED) {
            logLine("%s: process %d ended without reporting SERVICE_STOPPED", s->name.c_str(), static_cast<int>(pid));
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
    changed.notify_all();
}

DWORD startService(const ServicePtr &s, std::vector<std::string> args, std::unique_lock<std::mutex> &g)
{
    if (s->deleteMark)
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    // A process that reported SERVICE_STOPPED and is still ending does not
    // hold up the next start.
    if (s->status.dwCurrentState != SERVICE_STOPPED || s->launching)
        return ERROR_SERVICE_ALREADY_RUNNING;
    ServiceConfig config;
    if (!tsscm::readService(s->name, config))
        return ERROR_SERVICE_DOES_NOT_EXIST;
    if (config.start == SERVICE_DISABLED)
        return ERROR_SERVICE_DISABLED;
    s->args = std::move(args);
    s->statusSeq = 0;
    s->launching = true;
    s->launchError = 0;
    DWORD e = launch(s, config);
    if (e != ERROR_SUCCESS) {
        s->launching = false;
        return e;
    }
    s->status = SERVICE_STATUS{config.type & SERVICE_WIN32, SERVICE_START_PENDING, 0, 0, 0, 0, kStartWaitHint};
    logLine("%s: started process %d", s->name.c_str(), static_cast<int>(s->pid));
    DWORD timeout = pipeTimeoutMs = tsscm::readControlValue("ServicesPipeTimeout", 30000);
    pid_t pid = s->pid;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
    changed.wait_until(g, deadline, [&] { return !s->launching || s->pid != pid; });
    if (s->launching && s->pid == pid) {
        // It never reached its dispatcher: as on Windows, error 1053.
        logLine("%s: no dispatcher within %u ms", s->name.c_str(), static_cast<unsigned>(timeout));
        kill(pid, SIGKILL);
        s->launching = false;
        s->status.dwCurrentState = SERVICE_STOPPED;
        s->status.dwWin32ExitCode = ERROR_SERVICE_REQUEST_TIMEOUT;
        s->status.dwWaitHint = 0;
        return ERROR_SERVICE_REQUEST_TIMEOUT;
    }
    return s->launchError;
}

// ---- controls

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

// Delivers one control and waits for the handler's return. The caller's
// thread reads the answer from the dispatcher's connection itself: only
// one control at a time uses it.
DWORD controlService(const ServicePtr &s, DWORD control, std::unique_lock<std::mutex> &g)
{
    if (control == 0 || control > 255)
        return ERROR_INVALID_PARAMETER;
    DWORD timeout = pipeTimeoutMs;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
    while (s->controlBusy && running(*s))
        if (changed.wait_until(g, deadline) == std::cv_status::timeout && s->controlBusy)
            return ERROR_SERVICE_REQUEST_TIMEOUT;
    if (s->status.dwCurrentState == SERVICE_STOPPED)
        return ERROR_SERVICE_NOT_ACTIVE;
    if (s->status.dwCurrentState == SERVICE_START_PENDING || s->status.dwCurrentState == SERVICE_STOP_PENDING)
        return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    if (!accepts(control, s->status.dwControlsAccepted))
        return ERROR_INVALID_SERVICE_CONTROL;
    if (s->controlFd < 0)
        return ERROR_SERVICE_REQUEST_TIMEOUT; // its dispatcher is gone
    int fd = s->controlFd;
    uint32_t seq = ++s->controlSeq;
    s->controlBusy = true;
    bool answered = false, gone = false;
    DWORD result = 0;
    if (sendFrame(fd, Writer().u32(static_cast<uint32_t>(Push::Control)).u32(seq).u32(control).data())) {
        g.unlock();
        long long end = monotonicMs() + timeout;
        for (;;) {
            std::string frame;
            long long left = end - monotonicMs();
            if (!recvFrame(fd, frame, static_cast<int>(left < 0 ? 0 : left))) {
                gone = errno != ETIMEDOUT;
                break;
            }
            Reader c(frame);
            uint32_t op = c.u32();
            if (op == static_cast<uint32_t>(Op::SetStatus)) {
                // Reported by the handler itself: the manager has it before the answer.
                SERVICE_STATUS st = c.status();
                uint64_t reportSeq = c.u64();
                if (c.ok() && st.dwCurrentState >= SERVICE_STOPPED && st.dwCurrentState <= SERVICE_PAUSED) {
                    g.lock();
                    if (reportSeq > s->statusSeq) {
                        s->statusSeq = reportSeq;
                        s->status = st;
                        settle(s);
                    }
                    g.unlock();
                }
                continue;
            }
            // An answer to an earlier control that timed out is passed over.
            if (op == static_cast<uint32_t>(Op::ControlDone) && c.u32() == seq) {
                result = c.u32();
                answered = c.ok();
                break;
            }
        }
        g.lock();
    } else {
        gone = true;
    }
    s->controlBusy = false;
    changed.notify_all();
    if (s->controlFd != fd) {
        close(fd); // a new process's dispatcher took its place meanwhile
        gone = !answered;
    } else if (gone) {
        // The dispatcher ended (the process with it, or it returned).
        close(fd);
        s->controlFd = -1;
    }
    if (answered)
        return result;
    if (gone)
        return s->status.dwCurrentState == SERVICE_STOPPED ? ERROR_SUCCESS : ERROR_SERVICE_REQUEST_TIMEOUT;
    return ERROR_SERVICE_REQUEST_TIMEOUT;
}

// ---- requests

bool validName(const std::string &n)
{
    return !n.empty() && n.size() <= 256 && n.find_first_of("/\\") == std::string::npos;
}

bool localSystem(const std::string &a)
{
    std::string f = foldServiceName(a);
    return f.empty() || f == "localsystem" || f == ".\\localsystem" || f == "nt authority\\system";
}

std::string createService(Reader &r, Writer &w)
{
    std::string name = r.str(), display = r.str();
    bool hasDisplay = r.u32() != 0;
    DWORD type = r.u32(), start = r.u32(), errorControl = r.u32();
    std::string path = r.str(), account = r.str();
    if (!r.ok())
        return Writer().u32(ERROR_INVALID_PARAMETER).data();
    if (!validName(name))
        return Writer().u32(ERROR_INVALID_NAME).data();
    DWORD base = type & ~static_cast<DWORD>(SERVICE_INTERACTIVE_PROCESS);
    if ((base != SERVICE_WIN32_OWN_PROCESS && base != SERVICE_WIN32_SHARE_PROCESS) ||
        (start != SERVICE_AUTO_START && start != SERVICE_DEMAND_START && start != SERVICE_DISABLED) ||
        errorControl > SERVICE_ERROR_CRITICAL || path.empty())
        return Writer().u32(ERROR_INVALID_PARAMETER).data();
    if (!localSystem(account))
        return Writer().u32(ERROR_INVALID_SERVICE_ACCOUNT).data();
    if (!hasDisplay || display.empty())
        display = name;
    if (ServicePtr existing = lookupName(name))
        return Writer().u32(existing->deleteMark ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SERVICE_EXISTS).data();
    std::string foldedDisplay = foldServiceName(display);
    for (const ServiceConfig &c : tsscm::readAllServices())
        if (foldServiceName(c.name) == foldedDisplay || foldServiceName(c.displayName) == foldedDisplay)
            return Writer().u32(ERROR_DUPLICATE_SERVICE_NAME).data();
    ServiceConfig c;
    c.name = name;
    c.displayName = display;
    c.imagePath = path;
    c.type = type;
    c.start = start;
    c.errorControl = errorControl;
    c.account = "LocalSystem";
    if (LONG e = tsscm::writeService(c))
        return Writer().u32(static_cast<DWORD>(e)).data();
    ServicePtr s = lookupName(name);
    if (!s)
        return Writer().u32(ERROR_GEN_FAILURE).data();
    logLine("%s created", s->name.c_str());
    w.u32(0).u64(s->id).str(s->name);
    return w.data();
}

void shutdownServices(std::unique_lock<std::mutex> &g);

std::string handle(Reader &r, Op op, std::unique_lock<std::mutex> &g, pid_t peer)
{
    Writer w;
    switch (op) {
    case Op::Hello:
        return Writer().u32(0).data();
    case Op::Create:
        return createService(r, w);
    case Op::Open: {
        std::string name = r.str();
        if (!r.ok() || name.empty() || name.size() > 256)
            return Writer().u32(ERROR_INVALID_NAME).data();
        if (name.find_first_of("/\\") != std::string::npos)
            return Writer().u32(ERROR_INVALID_NAME).data();
        ServicePtr s = lookupName(name);
        if (!s)
            return Writer().u32(ERROR_SERVICE_DOES_NOT_EXIST).data();
        return w.u32(0).u64(s->id).str(s->name).data();
    }
    case Op::Start: {
        uint64_t id = r.u64();
        DWORD argc = r.u32();
        std::vector<std::string> args;
        for (DWORD i = 0; i < argc && r.ok(); ++i)
            args.push_back(r.str());
        if (!r.ok())
            return Writer().u32(ERROR_INVALID_PARAMETER).data();
        ServicePtr s = lookupId(id);
        if (!s)
            return Writer().u32(ERROR_SERVICE_MARKED_FOR_DELETE).data();
        return Writer().u32(startService(s, std::move(args), g)).data();
    }
    case Op::Control: {
        uint64_t id = r.u64();
        DWORD control = r.u32();
        ServicePtr s = lookupId(id);
        if (!s)
            return Writer().u32(ERROR_SERVICE_MARKED_FOR_DELETE).data();
        DWORD e = controlService(s, control, g);
        return w.u32(e).status(s->status).data();
    }
    case Op::Query: {
        ServicePtr s = lookupId(r.u64());
        if (!s)
            return Writer().u32(ERROR_SERVICE_MARKED_FOR_DELETE).data();
        return w.u32(0).status(s->status).data();
    }
    case Op::Delete: {
        ServicePtr s = lookupId(r.u64());
        if (!s || s->deleteMark)
            return Writer().u32(ERROR_SERVICE_MARKED_FOR_DELETE).data();
        s->deleteMark = true;
        // Stopped is enough: the process that reported it may still be ending.
        if (s->status.dwCurrentState == SERVICE_STOPPED && !s->launching)
            removeEntry(s);
        else
            logLine("%s marked for deletion", s->name.c_str());
        return Writer().u32(0).data();
    }
    case Op::Enumerate: {
        DWORD type = r.u32(), state = r.u32();
        std::vector<std::pair<ServiceConfig, SERVICE_STATUS>> chosen;
        std::map<std::string, ServiceConfig> sorted;
        for (ServiceConfig &c : tsscm::readAllServices())
            sorted[foldServiceName(c.name)] = std::move(c);
        for (auto &entry : sorted) {
            ServicePtr s = lookupName(entry.second.name);
            if (!s || !(entry.second.type & type))
                continue;
            bool active = s->status.dwCurrentState != SERVICE_STOPPED;
            if ((active && (state & SERVICE_ACTIVE)) || (!active && (state & SERVICE_INACTIVE)))
                chosen.emplace_back(entry.second, s->status);
        }
        w.u32(0).u32(static_cast<uint32_t>(chosen.size()));
        for (auto &c : chosen)
            w.str(c.first.name).str(c.first.displayName).status(c.second);
        return w.data();
    }
    case Op::SetStatus: {
        SERVICE_STATUS st = r.status();
        uint64_t reportSeq = r.u64();
        if (!r.ok())
            return Writer().u32(ERROR_INVALID_PARAMETER).data();
        if (st.dwCurrentState < SERVICE_STOPPED || st.dwCurrentState > SERVICE_PAUSED)
            return Writer().u32(ERROR_INVALID_DATA).data();
        for (auto &entry : services) {
            ServicePtr s = entry.second;
            if (s->pid != peer || peer == 0)
                continue;
            if (reportSeq > s->statusSeq) { // else a later report came first, on the other connection
                s->statusSeq = reportSeq;
                s->status = st;
                settle(s);
            }
            return Writer().u32(0).data();
        }
        return Writer().u32(ERROR_INVALID_HANDLE).data();
    }
    case Op::StopManager:
        shutdownServices(g);
        stopping = true;
        changed.notify_all();
        return Writer().u32(0).data();
    default:
        return Writer().u32(ERROR_INVALID_FUNCTION).data();
    }
}

// The dispatcher's connection: the reply names the service to run; the
// connection then belongs to the service and carries its controls. True
// when the service took it.
bool serveDispatcher(int fd, pid_t peer, std::unique_lock<std::mutex> &)
{
    ServicePtr s;
    for (auto &entry : services)
        if (entry.second->pid == peer && entry.second->launching && peer != 0)
            s = entry.second;
    if (!s) {
        sendFrame(fd, Writer().u32(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT).data());
        return false;
    }
    Writer w;
    w.u32(0).str(s->name).u32(static_cast<uint32_t>(s->args.size()));
    for (const std::string &a : s->args)
        w.str(a);
    if (!sendFrame(fd, w.data()))
        return false;
    if (s->controlFd >= 0 && !s->controlBusy)
        close(s->controlFd); // the previous process's, which reported SERVICE_STOPPED
                             // (a control still reading it closes it itself)
    s->controlFd = fd;
    s->launching = false;
    changed.notify_all();
    return true;
}

void serve(int fd)
{
    ucred cred{};
    socklen_t len = sizeof cred;
    bool ours = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 && cred.uid == getuid();
    std::unique_lock<std::mutex> g(lock);
    ++connections;
    changed.notify_all();
    for (;;) {
        g.unlock();
        std::string frame;
        bool ok = recvFrame(fd, frame);
        g.lock();
        if (!ok)
            break;
        if (!ours) {
            // Another user's process: refused, whatever it asks.
            sendFrame(fd, Writer().u32(ERROR_ACCESS_DENIED).data());
            break;
        }
        Reader r(frame);
        Op op = static_cast<Op>(r.u32());
        if (op == Op::Dispatcher) {
            if (serveDispatcher(fd, cred.pid, g))
                fd = -1; // the service's now
            break;
        }
        std::string reply = handle(r, op, g, cred.pid);
        if (!sendFrame(fd, reply))
            break;
    }
    --connections;
    changed.notify_all();
    g.unlock();
    if (fd >= 0)
        close(fd);
}

// Sends SERVICE_CONTROL_SHUTDOWN to each running service that accepts it,
// and waits (bounded) for every service process to end.
void shutdownServices(std::unique_lock<std::mutex> &g)
{
    std::vector<ServicePtr> live;
    for (auto &entry : services)
        if (running(*entry.second))
            live.push_back(entry.second);
    for (const ServicePtr &s : live) {
        if (s->status.dwControlsAccepted & SERVICE_ACCEPT_SHUTDOWN)
            controlService(s, SERVICE_CONTROL_SHUTDOWN, g);
        else if (s->status.dwControlsAccepted & SERVICE_ACCEPT_STOP)
            controlService(s, SERVICE_CONTROL_STOP, g);
    }
    DWORD timeout = tsscm::readControlValue("WaitToKillServiceTimeout", 20000);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
    changed.wait_until(g, deadline, [&] {
        for (const ServicePtr &s : live)
            if (s->pid != 0)
                return false;
        return true;
    });
    for (const ServicePtr &s : live)
        if (s->pid != 0) {
            logLine("%s: killed at shutdown", s->name.c_str());
            kill(s->pid, SIGKILL);
        }
}

void removeSocket()
{
    struct stat st;
    if (stat(socketPath.c_str(), &st) == 0 && st.st_ino == socketInode)
        unlink(socketPath.c_str());
}

// Ends the daemon when asked to, or (on demand) when it has been idle.
void watchdog()
{
    std::unique_lock<std::mutex> g(lock);
    for (;;) {
        if (stopping)
            break;
        bool idle = connections == 0;
        for (auto &entry : services)
            if (entry.second->pid != 0 || entry.second->launching)
                idle = false;
        if (onDemand && idle) {
            if (!changed.wait_for(g, std::chrono::milliseconds(idleExitMs), [&] {
                    if (stopping || connections != 0)
                        return true;
                    for (auto &entry : services)
                        if (entry.second->pid != 0 || entry.second->launching)
                            return true;
                    return false;
                }))
                break; // idle for the whole period
            continue;
        }
        changed.wait(g);
    }
    removeSocket();
    logLine("ends");
    fflush(stderr);
    _exit(0);
}

int signalPipe[2] = {-1, -1};
void onSignal(int sig)
{
    unsigned char b = static_cast<unsigned char>(sig);
    (void)!write(signalPipe[1], &b, 1);
}

// Foreground mode: SIGTERM or SIGINT stop the services and the daemon.
void signalWatcher()
{
    unsigned char b;
    while (read(signalPipe[0], &b, 1) < 0 && errno == EINTR) {
    }
    std::unique_lock<std::mutex> g(lock);
    logLine("signal %d: stopping", b);
    shutdownServices(g);
    stopping = true;
    changed.notify_all();
}

void autoStart()
{
    std::unique_lock<std::mutex> g(lock);
    for (const ServiceConfig &c : tsscm::readAllServices()) {
        if (c.start != SERVICE_AUTO_START)
            continue;
        ServicePtr s = lookupName(c.name);
        if (!s || running(*s))
            continue;
        DWORD e = startService(s, {}, g);
        logLine("%s: automatic start %s (%u)", c.name.c_str(), e ? "failed" : "done", static_cast<unsigned>(e));
    }
}

// On demand, automatic services start once per boot of the system for a
// machine root; a daemon in the foreground starts them every time.
bool firstStartThisBoot(const std::string &run)
{
    char boot[64] = {};
    if (FILE *f = fopen("/proc/sys/kernel/random/boot_id", "re")) {
        if (!fgets(boot, sizeof boot, f))
            boot[0] = 0;
        fclose(f);
    }
    std::string marker = run + "/booted";
    char seen[64] = {};
    if (FILE *f = fopen(marker.c_str(), "re")) {
        if (!fgets(seen, sizeof seen, f))
            seen[0] = 0;
        fclose(f);
    }
    if (boot[0] && strcmp(boot, seen) == 0)
        return false;
    if (FILE *f = fopen(marker.c_str(), "we")) {
        fputs(boot, f);
        fclose(f);
    }
    return true;
}

int stopDaemon()
{
    std::string run = runFolder();
    int fd = run.empty() ? -1 : connectSocket(run + "/" + kSocketName);
    if (fd < 0) {
        if (errno == EACCES) {
            fprintf(stderr, "tsscm: access denied\n");
            return 5;
        }
        printf("tsscm: not running\n");
        return 0;
    }
    std::string reply;
    bool ok = sendFrame(fd, Writer().u32(static_cast<uint32_t>(Op::StopManager)).data()) && recvFrame(fd, reply, 60000);
    if (!ok) {
        fprintf(stderr, "tsscm: no answer from the daemon\n");
        return 1;
    }
    // Wait for the end: the daemon closes our connection as it goes.
    char b;
    readAll(fd, &b, 1, 30000);
    close(fd);
    printf("tsscm: stopped\n");
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    int notifyFd = -1;
    bool stop = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--on-demand")
            onDemand = true;
        else if (a == "--stop")
            stop = true;
        else if (a.rfind("--notify-fd=", 0) == 0)
            notifyFd = atoi(a.c_str() + 12);
        else if (a.rfind("--idle-exit=", 0) == 0)
            idleExitMs = atol(a.c_str() + 12);
        else {
            fprintf(stderr, "usage: tsscm [--stop] [--on-demand] [--idle-exit=MS] [--notify-fd=N]\n");
            return 2;
        }
    }
    if (notifyFd >= 0)
        fcntl(notifyFd, F_SETFD, FD_CLOEXEC);
    if (stop)
        return stopDaemon();

    std::string root = tsp::machineRoot();
    std::string run = runFolder();
    if (root.empty() || run.empty()) {
        fprintf(stderr, "tsscm: cannot use the machine root: %s\n", strerror(errno));
        return 1;
    }
    setenv("TSUTIL_ROOT", root.c_str(), 1); // service processes see the same root
    signal(SIGPIPE, SIG_IGN);

    // One daemon per machine root: the lock is held for the daemon's life.
    std::string lockPath = run + "/" + kDaemonLockName;
    int lockFd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lockFd < 0) {
        fprintf(stderr, "tsscm: %s: %s\n", lockPath.c_str(), strerror(errno));
        return 1;
    }
    if (flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
        if (!onDemand) {
            fprintf(stderr, "tsscm: already running for %s\n", root.c_str());
            return 1;
        }
        // A daemon that is just ending: wait for it, for a bounded time.
        struct sigaction sa {};
        sa.sa_handler = [](int) {};
        sigaction(SIGALRM, &sa, nullptr);
        alarm(10);
        int r = flock(lockFd, LOCK_EX);
        alarm(0);
        if (r != 0) {
            logLine("another daemon holds %s", lockPath.c_str());
            return 1;
        }
    }

    // Bound under a name of its own and renamed once it listens, so that a
    // client never finds a socket that refuses it.
    socketPath = run + "/" + kSocketName;
    std::string bindPath = socketPath + "." + std::to_string(getpid());
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (bindPath.size() >= sizeof addr.sun_path) {
        fprintf(stderr, "tsscm: socket path too long: %s\n", bindPath.c_str());
        return 1;
    }
    memcpy(addr.sun_path, bindPath.c_str(), bindPath.size() + 1);
    unlink(bindPath.c_str());
    listenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    mode_t old = umask(077);
    int bound = listenFd < 0 ? -1 : bind(listenFd, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
    umask(old);
    if (bound != 0 || chmod(bindPath.c_str(), 0600) != 0 || listen(listenFd, 128) != 0 ||
        rename(bindPath.c_str(), socketPath.c_str()) != 0) {
        fprintf(stderr, "tsscm: cannot listen on %s: %s\n", socketPath.c_str(), strerror(errno));
        unlink(bindPath.c_str());
        return 1;
    }
    struct stat st;
    if (stat(socketPath.c_str(), &st) == 0)
        socketInode = st.st_ino;
    logLine("listening on %s%s", socketPath.c_str(), onDemand ? " (on demand)" : "");

    if (!onDemand) {
        if (pipe2(signalPipe, O_CLOEXEC) == 0) {
            struct sigaction sa {};
            sa.sa_handler = onSignal;
            sigaction(SIGTERM, &sa, nullptr);
            sigaction(SIGINT, &sa, nullptr);
            std::thread(signalWatcher).detach();
        }
    }
    pipeTimeoutMs = tsscm::readControlValue("ServicesPipeTimeout", 30000);
    std::thread(watchdog).detach();
    bool autostart = !onDemand || firstStartThisBoot(run);
    if (notifyFd >= 0) {
        (void)!write(notifyFd, "R", 1);
        close(notifyFd);
    }
    if (autostart)
        std::thread(autoStart).detach();

    for (;;) {
        int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED || errno == EMFILE || errno == ENFILE)
                continue;
            logLine("accept: %s", strerror(errno));
            break;
        }
        std::thread(serve, fd).detach();
    }
    return 1;
}
