// The service manager's client calls in their A form and those without
// text, over the daemon's socket (svcwire.h). The A forms convert their text
// and call the wide forms (servicewide.cpp); the configuration calls are in
// serviceconfig.cpp, the enumeration in serviceenum.cpp.
#include "serviceclient.h"

#include "nls.h"

#include <string.h>
#include <unistd.h>

using namespace tsp;
using namespace tsp::svc;

namespace {

// An A call's text as its W call takes it: UTF-16 through the ANSI code
// page, as the registry's A calls convert; null stays null.
class WideArg {
public:
    explicit WideArg(LPCSTR text) : given_(text != nullptr)
    {
        if (text)
            wide_ = wideText(text, CP_ACP);
    }
    // A list of texts after each other, ended by an empty one.
    static WideArg list(LPCSTR block)
    {
        WideArg out(nullptr);
        out.given_ = block != nullptr;
        for (const char *d = block; d && *d; d += strlen(d) + 1) {
            std::vector<WCHAR> one = wideText(d, CP_ACP);
            out.wide_.insert(out.wide_.end(), one.begin(), one.end());
        }
        out.wide_.push_back(0);
        return out;
    }
    LPCWSTR get() const { return given_ ? wide_.data() : nullptr; }

private:
    bool given_;
    std::vector<WCHAR> wide_;
};

} // namespace

namespace tsp::svc {

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

} // namespace tsp::svc

extern "C" {

SC_HANDLE WINAPI OpenSCManagerA(LPCSTR lpMachineName, LPCSTR lpDatabaseName, DWORD dwDesiredAccess)
{
    return OpenSCManagerW(WideArg(lpMachineName).get(), WideArg(lpDatabaseName).get(), dwDesiredAccess);
}

SC_HANDLE WINAPI CreateServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, LPCSTR lpDisplayName,
                                DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                                LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId,
                                LPCSTR lpDependencies, LPCSTR lpServiceStartName, LPCSTR lpPassword)
{
    return CreateServiceW(hSCManager, WideArg(lpServiceName).get(), WideArg(lpDisplayName).get(), dwDesiredAccess,
                          dwServiceType, dwStartType, dwErrorControl, WideArg(lpBinaryPathName).get(),
                          WideArg(lpLoadOrderGroup).get(), lpdwTagId, WideArg::list(lpDependencies).get(),
                          WideArg(lpServiceStartName).get(), WideArg(lpPassword).get());
}

SC_HANDLE WINAPI OpenServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, DWORD dwDesiredAccess)
{
    return OpenServiceW(hSCManager, WideArg(lpServiceName).get(), dwDesiredAccess);
}

BOOL WINAPI StartServiceA(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCSTR *lpServiceArgVectors)
{
    std::vector<WideArg> args;
    std::vector<LPCWSTR> vectors;
    for (DWORD i = 0; lpServiceArgVectors && i < dwNumServiceArgs; ++i)
        args.emplace_back(lpServiceArgVectors[i]);
    for (const WideArg &a : args)
        vectors.push_back(a.get());
    return StartServiceW(hService, dwNumServiceArgs, lpServiceArgVectors ? vectors.data() : nullptr);
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

} // extern "C"
