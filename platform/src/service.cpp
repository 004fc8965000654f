// The service manager's client calls: OpenSCManagerA and the calls on
// manager and service handles, over the daemon's socket (svcwire.h).
#include "service.h"

#include "daemonlocation.h"
#include "object.h"
#include "svcwire.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <mutex>
#include <vector>

namespace tsp::svc {

namespace {

std::string folderOf(const std::string &p)
{
    std::string::size_type slash = p.find_last_of('/');
    return slash == std::string::npos ? std::string(".") : p.substr(0, slash);
}

std::string canonical(const std::string &p)
{
    char resolved[PATH_MAX];
    return realpath(p.c_str(), resolved) ? std::string(resolved) : std::string();
}

// The daemon that belongs to this library: the build tree's while the
// library runs from the build tree, else the installed one, at its place
// relative to the library. Never a daemon of another build.
std::string findDaemon()
{
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void *>(&connectManager), &info) || !info.dli_fname)
        return std::string();
    std::string libraryDir = folderOf(canonical(info.dli_fname));
    std::string buildDir = canonical(TSPLATFORM_BUILD_LIBRARY_DIR);
    std::string daemon = !buildDir.empty() && buildDir == libraryDir
                             ? std::string(TSPLATFORM_BUILD_DAEMON)
                             : libraryDir + "/" + TSPLATFORM_INSTALLED_DAEMON;
    return access(daemon.c_str(), X_OK) == 0 ? daemon : std::string();
}

// Starts the daemon detached (its own session, output to run/tsscm.log, no
// descriptor of ours but the readiness pipe) and waits until it listens.
bool launchDaemon(const std::string &run)
{
    std::string program = findDaemon();
    if (program.empty())
        return false;
    std::string log = run + "/" + kLogName;
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0)
        return false;
    int notifyFd = fcntl(ready[1], F_DUPFD_CLOEXEC, 10);
    close(ready[1]);
    if (notifyFd < 0) {
        close(ready[0]);
        return false;
    }
    const char *argv[] = {program.c_str(), "--on-demand", "--notify-fd=3", nullptr};
    pid_t child = fork();
    if (child < 0) {
        close(ready[0]);
        close(notifyFd);
        return false;
    }
    if (child == 0) {
        // Only async-signal-safe calls from here on.
        setsid();
        if (fork() != 0)
            _exit(0);
        int nul = open("/dev/null", O_RDONLY);
        int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (nul < 0 || out < 0)
            _exit(127);
        dup2(nul, 0);
        dup2(out, 1);
        dup2(out, 2);
        dup2(notifyFd, 3);
        if (syscall(SYS_close_range, 4u, ~0u, 0u) != 0)
            for (int fd = 4; fd < 4096; ++fd)
                close(fd);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        for (int sig : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGPIPE, SIGCHLD})
            signal(sig, SIG_DFL);
        execv(argv[0], const_cast<char *const *>(argv));
        _exit(127);
    }
    close(notifyFd);
    int status;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    char byte = 0;
    bool ok = readAll(ready[0], &byte, 1, 20000) && byte == 'R';
    close(ready[0]);
    return ok;
}

} // namespace

int connectManager(bool startIfNeeded, unsigned long *error)
{
    std::string run = runFolder();
    if (run.empty()) {
        *error = RPC_S_SERVER_UNAVAILABLE;
        return -1;
    }
    std::string sock = run + "/" + kSocketName;
    int fd = connectSocket(sock);
    if (fd < 0 && errno == EACCES) {
        *error = ERROR_ACCESS_DENIED;
        return -1;
    }
    if (fd >= 0 || !startIfNeeded) {
        if (fd < 0)
            *error = RPC_S_SERVER_UNAVAILABLE;
        return fd;
    }
    // One starter at a time: a racing client waits here, then finds the
    // daemon that the first one started.
    std::string lockPath = run + "/" + kStartLockName;
    int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0) {
        *error = errno == EACCES ? ERROR_ACCESS_DENIED : RPC_S_SERVER_UNAVAILABLE;
        return -1;
    }
    while (flock(lock, LOCK_EX) != 0 && errno == EINTR) {
    }
    fd = connectSocket(sock);
    if (fd < 0 && launchDaemon(run))
        fd = connectSocket(sock);
    close(lock); // releases the lock
    if (fd < 0)
        *error = errno == EACCES ? ERROR_ACCESS_DENIED : RPC_S_SERVER_UNAVAILABLE;
    return fd;
}

} // namespace tsp::svc

using namespace tsp;
using namespace tsp::svc;

namespace {

// A manager handle: a pool of connections to the daemon, so that calls on
// one handle from several threads do not wait for each other.
class ManagerObject : public KernelObject {
public:
    ManagerObject() : KernelObject(ObjectKind::ServiceManager) {}
    ~ManagerObject() override
    {
        for (int fd : idle_)
            close(fd);
    }

    void adopt(int fd) { put(fd); }

    // One request and its reply. False with the error set when the daemon
    // cannot be reached; the reply's own code is the caller's to read.
    bool call(const Writer &req, std::string &reply, DWORD &err)
    {
        for (int attempt = 0; attempt < 2; ++attempt) {
            bool reused = false;
            int fd = take(reused);
            if (fd < 0) {
                unsigned long e = RPC_S_SERVER_UNAVAILABLE;
                fd = connectManager(true, &e);
                if (fd < 0) {
                    err = static_cast<DWORD>(e);
                    return false;
                }
            }
            if (sendFrame(fd, req.data()) && recvFrame(fd, reply)) {
                put(fd);
                return true;
            }
            close(fd);
            if (!reused)
                break;
            // A pooled connection whose daemon has gone: once more on a new one.
        }
        err = RPC_S_SERVER_UNAVAILABLE;
        return false;
    }

    DWORD access = 0;

private:
    int take(bool &reused)
    {
        std::lock_guard<std::mutex> g(lock_);
        if (idle_.empty())
            return -1;
        int fd = idle_.back();
        idle_.pop_back();
        reused = true;
        return fd;
    }
    void put(int fd)
    {
        std::lock_guard<std::mutex> g(lock_);
        if (idle_.size() < 4)
            idle_.push_back(fd);
        else
            close(fd);
    }
    std::mutex lock_;
    std::vector<int> idle_;
};

class ServiceObject : public KernelObject {
public:
    ServiceObject(ManagerObject *m, uint64_t i, std::string n)
        : KernelObject(ObjectKind::Service), manager(m), id(i), name(std::move(n))
    {
        manager->addRef();
    }
    // The manager counts the handles of each process: a service marked for
    // deletion goes once the last is closed.
    ~ServiceObject() override
    {
        std::string reply;
        DWORD err = 0;
        manager->call(Writer().u32(static_cast<uint32_t>(Op::Close)).u64(id), reply, err);
        manager->release();
    }
    ManagerObject *const manager;
    const uint64_t id;
    const std::string name;
    DWORD access = 0;
};

DWORD mapManagerAccess(DWORD a)
{
    if (a & (GENERIC_ALL | 0x02000000 /* MAXIMUM_ALLOWED */))
        a |= SC_MANAGER_ALL_ACCESS;
    if (a & GENERIC_READ)
        a |= READ_CONTROL | SC_MANAGER_ENUMERATE_SERVICE | SC_MANAGER_QUERY_LOCK_STATUS;
    if (a & GENERIC_WRITE)
        a |= READ_CONTROL | SC_MANAGER_CREATE_SERVICE | SC_MANAGER_MODIFY_BOOT_CONFIG;
    if (a & GENERIC_EXECUTE)
        a |= READ_CONTROL | SC_MANAGER_CONNECT | SC_MANAGER_LOCK;
    return a | SC_MANAGER_CONNECT;
}

DWORD mapServiceAccess(DWORD a)
{
    if (a & (GENERIC_ALL | 0x02000000))
        a |= SERVICE_ALL_ACCESS;
    if (a & GENERIC_READ)
        a |= READ_CONTROL | SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS | SERVICE_INTERROGATE |
             SERVICE_ENUMERATE_DEPENDENTS;
    if (a & GENERIC_WRITE)
        a |= READ_CONTROL | SERVICE_CHANGE_CONFIG;
    if (a & GENERIC_EXECUTE)
        a |= READ_CONTROL | SERVICE_START | SERVICE_STOP | SERVICE_PAUSE_CONTINUE | SERVICE_USER_DEFINED_CONTROL;
    return a;
}

ManagerObject *manager(SC_HANDLE h, HandleRef &ref)
{
    return lookupAs<ManagerObject>(reinterpret_cast<HANDLE>(h), ObjectKind::ServiceManager, ref);
}

ServiceObject *service(SC_HANDLE h, HandleRef &ref)
{
    return lookupAs<ServiceObject>(reinterpret_cast<HANDLE>(h), ObjectKind::Service, ref);
}

// The service behind h when the handle holds the right; null with the
// error set otherwise.
ServiceObject *serviceWith(SC_HANDLE h, HandleRef &ref, DWORD right)
{
    ServiceObject *s = service(h, ref);
    if (s && !(s->access & right)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return s;
}

// The service behind h for a call that fills in a status; null with the
// error set when the handle or the status pointer is bad.
ServiceObject *serviceForStatus(SC_HANDLE h, HandleRef &ref, LPSERVICE_STATUS status)
{
    ServiceObject *s = service(h, ref);
    if (s && !status) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return nullptr;
    }
    return s;
}

// The status that a control or query reply carries after its result word.
bool statusOfReply(const std::string &reply, LPSERVICE_STATUS status)
{
    Reader r(reply);
    r.u32();
    SERVICE_STATUS st = r.status();
    if (!r.ok())
        return false;
    *status = st;
    return true;
}

// The start of a request about one service: the operation and the service.
Writer serviceRequest(Op op, const ServiceObject *s)
{
    Writer w;
    w.u32(static_cast<uint32_t>(op)).u64(s->id);
    return w;
}

// Sends a request; gives the reply's code (or the transport's) and leaves
// the reader after it.
DWORD request(ManagerObject *m, const Writer &w, std::string &reply)
{
    DWORD err = 0;
    if (!m->call(w, reply, err))
        return err;
    Reader r(reply);
    DWORD code = r.u32();
    return r.ok() ? code : static_cast<DWORD>(RPC_S_SERVER_UNAVAILABLE);
}

BOOL fail(DWORD code)
{
    SetLastError(code);
    return FALSE;
}

bool isLocalMachine(const char *name)
{
    if (!name || !*name)
        return true;
    while (*name == '\\')
        ++name;
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    std::string a = foldServiceName(name), b = foldServiceName(host);
    return a == b || a == "localhost" || a == "." || a == "127.0.0.1";
}

SC_HANDLE openedService(ManagerObject *m, const std::string &reply, DWORD access)
{
    Reader r(reply);
    r.u32();
    uint64_t id = r.u64();
    std::string name = r.str();
    auto *obj = new ServiceObject(m, id, name);
    obj->access = mapServiceAccess(access);
    return reinterpret_cast<SC_HANDLE>(insertHandle(obj, obj->access));
}

} // namespace

extern "C" {

SC_HANDLE WINAPI OpenSCManagerA(LPCSTR lpMachineName, LPCSTR lpDatabaseName, DWORD dwDesiredAccess)
{
    if (!isLocalMachine(lpMachineName)) {
        SetLastError(RPC_S_SERVER_UNAVAILABLE);
        return nullptr;
    }
    if (lpDatabaseName && strcmp(lpDatabaseName, SERVICES_ACTIVE_DATABASEA) != 0) {
        SetLastError(strcmp(lpDatabaseName, SERVICES_FAILED_DATABASEA) == 0 ? ERROR_DATABASE_DOES_NOT_EXIST
                                                                             : ERROR_INVALID_NAME);
        return nullptr;
    }
    // The first exchange tells whether the daemon takes us at all. A daemon
    // that ended just as we connected is started again, once.
    int fd = -1;
    for (int attempt = 0; attempt < 2 && fd < 0; ++attempt) {
        unsigned long err = 0;
        fd = connectManager(true, &err);
        if (fd < 0) {
            SetLastError(static_cast<DWORD>(err));
            return nullptr;
        }
        std::string reply;
        if (!sendFrame(fd, Writer().u32(static_cast<uint32_t>(Op::Hello)).data()) || !recvFrame(fd, reply, 30000)) {
            close(fd);
            fd = -1;
            continue;
        }
        Reader r(reply);
        DWORD code = r.u32();
        if (!r.ok() || code != ERROR_SUCCESS) {
            close(fd);
            SetLastError(r.ok() ? code : static_cast<DWORD>(RPC_S_SERVER_UNAVAILABLE));
            return nullptr;
        }
    }
    if (fd < 0) {
        SetLastError(RPC_S_SERVER_UNAVAILABLE);
        return nullptr;
    }
    auto *m = new ManagerObject;
    m->adopt(fd);
    m->access = mapManagerAccess(dwDesiredAccess);
    return reinterpret_cast<SC_HANDLE>(insertHandle(m, m->access));
}

SC_HANDLE WINAPI CreateServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, LPCSTR lpDisplayName,
                                DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                                LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId,
                                LPCSTR lpDependencies, LPCSTR lpServiceStartName, LPCSTR lpPassword)
{
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return nullptr;
    if (!(m->access & SC_MANAGER_CREATE_SERVICE)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    if (!lpServiceName) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return nullptr;
    }
    if (!lpBinaryPathName || !*lpBinaryPathName || lpdwTagId) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Writer w;
    w.u32(static_cast<uint32_t>(Op::Create))
        .str(lpServiceName)
        .str(lpDisplayName ? lpDisplayName : "")
        .u32(lpDisplayName ? 1 : 0)
        .u32(dwServiceType)
        .u32(dwStartType)
        .u32(dwErrorControl)
        .str(lpBinaryPathName)
        .str(lpServiceStartName ? lpServiceStartName : "");
    std::string reply;
    if (DWORD code = request(m, w, reply)) {
        SetLastError(code);
        return nullptr;
    }
    return openedService(m, reply, dwDesiredAccess);
}

SC_HANDLE WINAPI OpenServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, DWORD dwDesiredAccess)
{
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return nullptr;
    if (!lpServiceName) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return nullptr;
    }
    std::string reply;
    if (DWORD code = request(m, Writer().u32(static_cast<uint32_t>(Op::Open)).str(lpServiceName), reply)) {
        SetLastError(code);
        return nullptr;
    }
    return openedService(m, reply, dwDesiredAccess);
}

BOOL WINAPI StartServiceA(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCSTR *lpServiceArgVectors)
{
    HandleRef ref;
    ServiceObject *s = serviceWith(hService, ref, SERVICE_START);
    if (!s)
        return FALSE;
    if (dwNumServiceArgs && !lpServiceArgVectors)
        return fail(ERROR_INVALID_PARAMETER);
    Writer w = serviceRequest(Op::Start, s);
    w.u32(dwNumServiceArgs);
    for (DWORD i = 0; i < dwNumServiceArgs; ++i) {
        if (!lpServiceArgVectors[i])
            return fail(ERROR_INVALID_PARAMETER);
        w.str(lpServiceArgVectors[i]);
    }
    std::string reply;
    if (DWORD code = request(s->manager, w, reply))
        return fail(code);
    return TRUE;
}

BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus)
{
    HandleRef ref;
    ServiceObject *s = serviceForStatus(hService, ref, lpServiceStatus);
    if (!s)
        return FALSE;
    DWORD needed = SERVICE_USER_DEFINED_CONTROL;
    switch (dwControl) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN: needed = SERVICE_STOP; break;
    case SERVICE_CONTROL_INTERROGATE: needed = SERVICE_INTERROGATE; break;
    default:
        if (dwControl < 128)
            needed = SERVICE_PAUSE_CONTINUE;
    }
    if (dwControl == 0 || dwControl > 255)
        return fail(ERROR_INVALID_PARAMETER);
    if (!(s->access & needed))
        return fail(ERROR_ACCESS_DENIED);
    std::string reply;
    DWORD code = request(s->manager, serviceRequest(Op::Control, s).u32(dwControl), reply);
    if (code == ERROR_SUCCESS || code == ERROR_INVALID_SERVICE_CONTROL || code == ERROR_SERVICE_CANNOT_ACCEPT_CTRL ||
        code == ERROR_SERVICE_NOT_ACTIVE)
        statusOfReply(reply, lpServiceStatus);
    return code == ERROR_SUCCESS ? TRUE : fail(code);
}

BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus)
{
    HandleRef ref;
    ServiceObject *s = serviceForStatus(hService, ref, lpServiceStatus);
    if (!s)
        return FALSE;
    if (!(s->access & SERVICE_QUERY_STATUS))
        return fail(ERROR_ACCESS_DENIED);
    std::string reply;
    if (DWORD code = request(s->manager, serviceRequest(Op::Query, s), reply))
        return fail(code);
    // A reply without a whole status would be the manager's fault.
    return statusOfReply(reply, lpServiceStatus) ? TRUE : fail(ERROR_INVALID_DATA);
}

BOOL WINAPI DeleteService(SC_HANDLE hService)
{
    HandleRef ref;
    ServiceObject *s = serviceWith(hService, ref, DELETE);
    if (!s)
        return FALSE;
    std::string reply;
    if (DWORD code = request(s->manager, serviceRequest(Op::Delete, s), reply))
        return fail(code);
    return TRUE;
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject)
{
    HandleRef ref;
    if (!lookupHandle(reinterpret_cast<HANDLE>(hSCObject), ref) ||
        (ref.get()->kind() != ObjectKind::ServiceManager && ref.get()->kind() != ObjectKind::Service))
        return fail(ERROR_INVALID_HANDLE);
    ref.reset();
    if (!closeTableHandle(reinterpret_cast<HANDLE>(hSCObject)))
        return fail(ERROR_INVALID_HANDLE);
    return TRUE;
}

BOOL WINAPI EnumServicesStatusA(SC_HANDLE hSCManager, DWORD dwServiceType, DWORD dwServiceState,
                                LPENUM_SERVICE_STATUSA lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded,
                                LPDWORD lpServicesReturned, LPDWORD lpResumeHandle)
{
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return FALSE;
    if (!(m->access & SC_MANAGER_ENUMERATE_SERVICE))
        return fail(ERROR_ACCESS_DENIED);
    if (!pcbBytesNeeded || !lpServicesReturned)
        return fail(ERROR_INVALID_ADDRESS);
    if (!dwServiceType || (dwServiceType & ~static_cast<DWORD>(SERVICE_TYPE_ALL)) || !dwServiceState ||
        (dwServiceState & ~static_cast<DWORD>(SERVICE_STATE_ALL)))
        return fail(ERROR_INVALID_PARAMETER);
    std::string reply;
    if (DWORD code = request(m, Writer().u32(static_cast<uint32_t>(Op::Enumerate)).u32(dwServiceType).u32(dwServiceState),
                             reply))
        return fail(code);
    Reader r(reply);
    r.u32();
    DWORD count = r.u32();
    struct Entry {
        std::string name, display;
        SERVICE_STATUS status;
    };
    std::vector<Entry> all;
    for (DWORD i = 0; i < count && r.ok(); ++i) {
        Entry e;
        e.name = r.str();
        e.display = r.str();
        e.status = r.status();
        all.push_back(std::move(e));
    }
    DWORD start = lpResumeHandle ? *lpResumeHandle : 0;
    if (start > all.size())
        start = static_cast<DWORD>(all.size());
    // Records from the front of the buffer, their strings from its end.
    DWORD fitted = 0, used = 0;
    char *base = reinterpret_cast<char *>(lpServices);
    DWORD tail = cbBufSize;
    for (DWORD i = start; i < all.size(); ++i) {
        const Entry &e = all[i];
        DWORD strings = static_cast<DWORD>(e.name.size() + 1 + e.display.size() + 1);
        DWORD need = static_cast<DWORD>(sizeof(ENUM_SERVICE_STATUSA)) + strings;
        if (!base || used + need > cbBufSize || (fitted + 1) * sizeof(ENUM_SERVICE_STATUSA) > tail - strings)
            break;
        tail -= strings;
        char *names = base + tail;
        memcpy(names, e.name.c_str(), e.name.size() + 1);
        memcpy(names + e.name.size() + 1, e.display.c_str(), e.display.size() + 1);
        lpServices[fitted].lpServiceName = names;
        lpServices[fitted].lpDisplayName = names + e.name.size() + 1;
        lpServices[fitted].ServiceStatus = e.status;
        used += need;
        ++fitted;
    }
    *lpServicesReturned = fitted;
    DWORD rest = 0;
    for (DWORD i = start + fitted; i < all.size(); ++i)
        rest += static_cast<DWORD>(sizeof(ENUM_SERVICE_STATUSA) + all[i].name.size() + all[i].display.size() + 2);
    *pcbBytesNeeded = rest;
    if (start + fitted < all.size()) {
        if (lpResumeHandle)
            *lpResumeHandle = start + fitted;
        return fail(ERROR_MORE_DATA);
    }
    if (lpResumeHandle)
        *lpResumeHandle = 0;
    return TRUE;
}

} // extern "C"
