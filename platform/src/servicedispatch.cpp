// The service process's side: StartServiceCtrlDispatcherA, the control
// handler and SetServiceStatus.
#include "check.h"
#include "service.h"
#include "svcwire.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <vector>

using namespace tsp::svc;

namespace {

struct Dispatcher {
    std::mutex lock;
    bool called = false;     // StartServiceCtrlDispatcherA ran in this process
    std::atomic<bool> connected{false}; // ... and the manager gave it a service
    std::string serviceName;
    LPSERVICE_MAIN_FUNCTIONA main = nullptr;
    std::vector<std::string> args;
    std::vector<char *> argv;
    LPHANDLER_FUNCTION handler = nullptr;
    LPHANDLER_FUNCTION_EX handlerEx = nullptr;
    void *context = nullptr;
    int wake[2] = {-1, -1}; // written when the service reports SERVICE_STOPPED
    bool stopped = false;

    std::mutex statusLock; // one SetServiceStatus exchange at a time
    int statusFd = -1;
    SERVICE_STATUS lastStatus{}; // the latest report, told again to a manager that restarted
    bool reported = false;

    int controlFd = -1; // the dispatcher's connection, set before the service thread starts
};

// True on the dispatcher's thread while a handler runs: its reports go on
// the dispatcher's connection, ahead of the handler's answer, and the
// manager applies them before it answers the control. They are held in
// handlerReports and written with the answer, in one write, so that the
// manager's thread wakes once for the whole control.
thread_local bool inHandler = false;
thread_local std::string handlerReports;

Dispatcher &dispatcher()
{
    static Dispatcher *d = new Dispatcher; // lives as long as the process
    return *d;
}

// A service process of another user than the manager's cannot reach the
// manager's socket in the machine root: the manager connected it before it
// took that user's identity, and left the connections at descriptors 3
// (the dispatcher's) and 4 (for the reports), open across exec. Each is
// taken once, when it is such a connection to a manager's socket; else -1.
int inheritedConnection(int fd)
{
    static std::mutex lock;
    static bool taken[2] = {false, false};
    std::lock_guard<std::mutex> g(lock);
    if (fd < 3 || fd > 4 || taken[fd - 3])
        return -1;
    taken[fd - 3] = true;
    // The library's own connections close on exec: an inherited one does not.
    int flags = fcntl(fd, F_GETFD);
    if (flags < 0 || (flags & FD_CLOEXEC))
        return -1;
    sockaddr_un peer{};
    socklen_t len = sizeof peer;
    if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &len) != 0 || peer.sun_family != AF_UNIX)
        return -1;
    std::string path(peer.sun_path, strnlen(peer.sun_path, sizeof peer.sun_path));
    // The manager binds its socket as "<name>.<pid>" and renames it once it listens.
    std::string tail = std::string("/run/") + kSocketName;
    size_t at = path.rfind(tail);
    std::string rest = at == std::string::npos ? std::string("?") : path.substr(at + tail.size());
    if (!rest.empty() && (rest[0] != '.' || rest.find_first_not_of("0123456789", 1) != std::string::npos))
        return -1;
    TS_CHECK(fcntl(fd, F_SETFD, FD_CLOEXEC) == 0, "fcntl(inherited manager connection)");
    return fd;
}

// A connection to the manager for the service process: the inherited one
// at `inherited` when there is one, else a new one.
int connectFromService(int inherited, unsigned long *err)
{
    int fd = inheritedConnection(inherited);
    return fd >= 0 ? fd : connectManager(false, err);
}

// The one status handle of the process's service.
int statusToken;
SERVICE_STATUS_HANDLE statusHandle() { return reinterpret_cast<SERVICE_STATUS_HANDLE>(&statusToken); }

DWORD WINAPI serviceMainThread(LPVOID)
{
    Dispatcher &d = dispatcher();
    d.main(static_cast<DWORD>(d.args.size()), d.argv.data());
    return 0;
}

BOOL fail(DWORD code)
{
    SetLastError(code);
    return FALSE;
}

SERVICE_STATUS_HANDLE registerHandler(LPCSTR name, LPHANDLER_FUNCTION h, LPHANDLER_FUNCTION_EX hx, void *ctx)
{
    if (!name) {
        SetLastError(ERROR_INVALID_NAME);
        return nullptr;
    }
    if (!h && !hx) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Dispatcher &d = dispatcher();
    std::lock_guard<std::mutex> g(d.lock);
    // An own-process service may name itself as it likes, as on Windows.
    if (!d.connected) {
        SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
        return nullptr;
    }
    d.handler = h;
    d.handlerEx = hx;
    d.context = ctx;
    return statusHandle();
}


// Sends the Dispatcher request on a new connection; the connection once
// the manager took it, else -1.
int attachToManager(const std::string &request, std::string &reply)
{
    unsigned long err = 0;
    int fd = connectManager(false, &err);
    if (fd < 0)
        return -1;
    if (!sendFrame(fd, request) || !recvFrame(fd, reply, 30000) || Reader(reply).u32() != ERROR_SUCCESS) {
        close(fd);
        return -1;
    }
    return fd;
}

// The manager died while the service runs: waits until a new manager
// listens (its socket appears in the run folder) and attaches to it, which
// takes this process over as the service's, then tells it the service's
// state. The new connection; -1 once the service reports SERVICE_STOPPED
// first (the wake pipe) or when nothing can tell that a manager came.
int rejoinManager(Dispatcher &d, const std::string &request)
{
    int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    std::string run = runFolder();
    if (watch < 0 || run.empty() || inotify_add_watch(watch, run.c_str(), IN_CREATE | IN_MOVED_TO) < 0) {
        if (watch >= 0)
            close(watch);
        return -1;
    }
    int fd = -1;
    for (;;) {
        std::string reply;
        if ((fd = attachToManager(request, reply)) >= 0)
            break;
        pollfd pfd[2] = {{d.wake[0], POLLIN, 0}, {watch, POLLIN, 0}};
        if (poll(pfd, 2, -1) < 0 && errno != EINTR)
            break;
        if (pfd[0].revents)
            break;
        char events[4096];
        while (read(watch, events, sizeof events) > 0) {
        }
    }
    close(watch);
    if (fd >= 0) {
        SERVICE_STATUS last;
        bool reported;
        {
            std::lock_guard<std::mutex> g(d.lock);
            last = d.lastStatus;
            reported = d.reported;
        }
        if (reported)
            SetServiceStatus(statusHandle(), &last);
    }
    return fd;
}

} // namespace

extern "C" {

BOOL WINAPI StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA *lpServiceStartTable)
{
    if (!lpServiceStartTable || !lpServiceStartTable[0].lpServiceName || !lpServiceStartTable[0].lpServiceProc)
        return fail(ERROR_INVALID_PARAMETER);
    Dispatcher &d = dispatcher();
    {
        std::lock_guard<std::mutex> g(d.lock);
        if (d.called)
            return fail(ERROR_SERVICE_ALREADY_RUNNING);
        d.called = true;
    }
    // Only a process the manager started is taken: it knows us by our pid.
    auto refuse = [&d](int fd) {
        if (fd >= 0)
            close(fd);
        std::lock_guard<std::mutex> g(d.lock);
        d.called = false;
        return fail(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    };
    unsigned long err = 0;
    int fd = connectFromService(3, &err);
    if (fd < 0)
        return refuse(fd);
    Writer w;
    w.u32(static_cast<uint32_t>(Op::Dispatcher));
    std::vector<const SERVICE_TABLE_ENTRYA *> entries;
    for (const SERVICE_TABLE_ENTRYA *e = lpServiceStartTable; e->lpServiceName && e->lpServiceProc; ++e)
        entries.push_back(e);
    w.u32(static_cast<uint32_t>(entries.size()));
    for (const SERVICE_TABLE_ENTRYA *e : entries)
        w.str(e->lpServiceName);
    const std::string request = w.data();
    std::string reply;
    if (!sendFrame(fd, request) || !recvFrame(fd, reply, 30000))
        return refuse(fd);
    Reader r(reply);
    DWORD code = r.u32();
    std::string name = r.str();
    DWORD argc = r.u32();
    std::vector<std::string> args{name};
    for (DWORD i = 0; i < argc && r.ok(); ++i)
        args.push_back(r.str());
    if (!r.ok() || code != ERROR_SUCCESS)
        return refuse(fd);
    // An own-process service runs the first entry whatever its name.
    const SERVICE_TABLE_ENTRYA *chosen = entries[0];
    for (const SERVICE_TABLE_ENTRYA *e : entries)
        if (foldServiceName(e->lpServiceName) == foldServiceName(name))
            chosen = e;
    {
        std::lock_guard<std::mutex> g(d.lock);
        if (pipe2(d.wake, O_CLOEXEC) != 0) {
            close(fd);
            return fail(ERROR_NOT_ENOUGH_MEMORY);
        }
        d.serviceName = name;
        d.main = chosen->lpServiceProc;
        d.args = std::move(args);
        for (std::string &a : d.args)
            d.argv.push_back(a.data());
        d.argv.push_back(nullptr);
        d.connected = true;
    }
    d.controlFd = fd;
    HANDLE thread = CreateThread(nullptr, 0, serviceMainThread, nullptr, 0, nullptr);
    if (!thread) {
        close(fd);
        return fail(ERROR_SERVICE_NO_THREAD);
    }
    CloseHandle(thread);

    // Controls, one at a time, until the service reports SERVICE_STOPPED.
    bool managerGone = false;
    FrameAssembler in; // a control read with the one before it waits here
    for (;;) {
        bool buffered = in.whole();
        pollfd pfd[2] = {{d.wake[0], POLLIN, 0}, {managerGone ? -1 : fd, POLLIN, 0}};
        if (poll(pfd, 2, buffered ? 0 : -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (pfd[0].revents)
            break;
        if (!pfd[1].revents && !buffered)
            continue;
        // The poll said what is there: take it without waiting again.
        std::string frame;
        FrameAssembler::Result got = in.readFrom(fd, frame);
        if (got == FrameAssembler::Result::More)
            continue; // the rest of the control is on its way
        if (got != FrameAssembler::Result::Frame) {
            // The service runs on, and takes controls again from the
            // manager that comes next.
            close(fd);
            in = FrameAssembler();
            fd = d.controlFd = rejoinManager(d, request);
            managerGone = fd < 0;
            continue;
        }
        Reader c(frame);
        if (c.u32() != static_cast<uint32_t>(Push::Control))
            continue;
        uint32_t seq = c.u32();
        DWORD control = c.u32();
        LPHANDLER_FUNCTION h;
        LPHANDLER_FUNCTION_EX hx;
        void *ctx;
        {
            std::lock_guard<std::mutex> g(d.lock);
            h = d.handler;
            hx = d.handlerEx;
            ctx = d.context;
        }
        DWORD result = NO_ERROR;
        handlerReports.clear();
        inHandler = true;
        if (hx)
            result = hx(control, 0, nullptr, ctx);
        else if (h)
            h(control);
        inHandler = false;
        appendFrame(handlerReports, Writer().u32(static_cast<uint32_t>(Op::ControlDone)).u32(seq).u32(result).data());
        // A manager that is gone shows at the next read.
        sendFrames(fd, handlerReports);
    }
    if (fd >= 0)
        close(fd);
    return TRUE;
}

SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerA(LPCSTR lpServiceName, LPHANDLER_FUNCTION lpHandlerProc)
{
    return registerHandler(lpServiceName, lpHandlerProc, nullptr, nullptr);
}

SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExA(LPCSTR lpServiceName, LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                           LPVOID lpContext)
{
    return registerHandler(lpServiceName, nullptr, lpHandlerProc, lpContext);
}

BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus, LPSERVICE_STATUS lpServiceStatus)
{
    Dispatcher &d = dispatcher();
    if (hServiceStatus != statusHandle() || !d.connected)
        return fail(ERROR_INVALID_HANDLE);
    if (!lpServiceStatus)
        return fail(ERROR_INVALID_ADDRESS);
    SERVICE_STATUS st = *lpServiceStatus;
    if (st.dwCurrentState < SERVICE_STOPPED || st.dwCurrentState > SERVICE_PAUSED)
        return fail(ERROR_INVALID_DATA);
    // Reports travel on two connections; their order is the order of the
    // calls, which the manager restores from this count.
    static std::atomic<uint64_t> reports{0};
    uint64_t seq = ++reports;
    {
        std::lock_guard<std::mutex> g(d.lock);
        d.lastStatus = st;
        d.reported = true;
    }
    DWORD code = ERROR_SUCCESS;
    if (inHandler) {
        appendFrame(handlerReports, Writer().u32(static_cast<uint32_t>(Op::SetStatus)).status(st).u64(seq).data());
    } else {
        std::lock_guard<std::mutex> g(d.statusLock);
        for (int attempt = 0; attempt < 2; ++attempt) {
            if (d.statusFd < 0) {
                unsigned long err = 0;
                d.statusFd = connectFromService(4, &err);
                if (d.statusFd < 0) {
                    code = static_cast<DWORD>(err);
                    break;
                }
            }
            std::string reply;
            if (sendFrame(d.statusFd, Writer().u32(static_cast<uint32_t>(Op::SetStatus)).status(st).u64(seq).data()) &&
                recvFrame(d.statusFd, reply, 30000)) {
                Reader r(reply);
                code = r.u32();
                break;
            }
            close(d.statusFd);
            d.statusFd = -1;
            code = RPC_S_SERVER_UNAVAILABLE;
        }
    }
    if (st.dwCurrentState == SERVICE_STOPPED) {
        std::lock_guard<std::mutex> g(d.lock);
        if (!d.stopped) {
            d.stopped = true;
            char b = 1;
            // A full pipe has a wake-up in it already.
            TS_CHECK(write(d.wake[1], &b, 1) == 1 || errno == EAGAIN, "write(dispatcher wake pipe)");
        }
    }
    return code == ERROR_SUCCESS ? TRUE : fail(code);
}

} // extern "C"
