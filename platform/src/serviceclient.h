// What the service client calls share: the manager and service handles'
// objects and the exchange of one request with the daemon.
#pragma once

#include "object.h"
#include "service.h"
#include "svcconfigwire.h"
#include "svcwire.h"

#include <unistd.h>

#include <mutex>
#include <string>
#include <vector>

namespace tsp::svc {

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
            // The daemon answers each request with one frame: a connection
            // that has delivered more is out of step and not kept.
            FrameAssembler in;
            if (sendFrame(fd, req.data()) && in.readFrame(fd, reply)) {
                if (in.partial())
                    close(fd);
                else
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

DWORD mapManagerAccess(DWORD a);
DWORD mapServiceAccess(DWORD a);
// The object behind a handle of that kind; null with ERROR_INVALID_HANDLE.
ManagerObject *manager(SC_HANDLE h, HandleRef &ref);
ServiceObject *service(SC_HANDLE h, HandleRef &ref);
// The service behind h when the handle holds the right; null with the
// error set otherwise.
ServiceObject *serviceWith(SC_HANDLE h, HandleRef &ref, DWORD right);
// The service behind h for a call that fills in a status; null with the
// error set when the handle or the status pointer is bad.
ServiceObject *serviceForStatus(SC_HANDLE h, HandleRef &ref, LPSERVICE_STATUS status);
// The status that a control or query reply carries after its result word.
bool statusOfReply(const std::string &reply, LPSERVICE_STATUS status);
// The start of a request about one service: the operation and the service.
Writer serviceRequest(Op op, const ServiceObject *s);
// Sends a request; gives the reply's code (or the transport's).
DWORD request(ManagerObject *m, const Writer &w, std::string &reply);
BOOL fail(DWORD code);
bool isLocalMachine(const char *name);
// A handle to the service that a Create or Open reply names.
SC_HANDLE openedService(ManagerObject *m, const std::string &reply, DWORD access);

// One service of an enumeration, as the manager gives it (UTF-8).
struct ListedService {
    std::string name, display;
    SERVICE_STATUS status{};
    DWORD pid = 0;
};
// The services of those types and states, in name order; a Win32 error.
// listing: the handle needs SC_MANAGER_ENUMERATE_SERVICE.
DWORD listServices(SC_HANDLE hSCManager, DWORD type, DWORD state, std::vector<ListedService> &out,
                   bool listing = true);

// listServices for EnumServicesStatus: ERROR_INVALID_ADDRESS for a null
// count (with the right to list).
DWORD enumerate(SC_HANDLE hSCManager, DWORD type, DWORD state, LPDWORD needed, LPDWORD returned,
                std::vector<ListedService> &out);

// Text between the calls and the wire (UTF-8). From UTF-16: false when it
// is not well-formed (a lone surrogate). The A calls' text is in the ANSI
// code page.
bool wideToWire(LPCWSTR text, std::string &out);
// A list of strings after each other, ended by an empty one (null: none).
bool wideList(LPCWSTR block, std::vector<std::string> &out);
std::basic_string<WCHAR> wireToWide(const std::string &text);
std::string wireToAnsi(const std::string &text);

} // namespace tsp::svc
