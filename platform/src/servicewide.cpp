// The wide forms of the service calls, which the A forms call, and those
// that give process ids: their text goes to the manager as UTF-8 and comes
// back as UTF-16.
#include "serviceclient.h"

#include <string.h>
#include <unistd.h>

using namespace tsp;
using namespace tsp::svc;

namespace {

using Wide = std::basic_string<WCHAR>;

// The name a lookup found, copied as GetServiceDisplayNameW copies it.
BOOL copyName(const std::string &found, LPWSTR out, LPDWORD cch)
{
    Wide w = wireToWide(found);
    if (!out || *cch <= w.size()) {
        *cch = static_cast<DWORD>(w.size());
        if (out && *cch > 0)
            out[0] = 0;
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    memcpy(out, w.c_str(), (w.size() + 1) * sizeof(WCHAR));
    *cch = static_cast<DWORD>(w.size());
    return TRUE;
}

// The services, to find one by its key name (byKey) or its display name.
BOOL lookUpName(SC_HANDLE hSCManager, LPCWSTR given, bool byKey, LPWSTR out, LPDWORD cch)
{
    std::string name;
    if (!cch || !given)
        return fail(ERROR_INVALID_ADDRESS);
    if (!wideToWire(given, name))
        return fail(ERROR_INVALID_PARAMETER);
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return FALSE;
    // A look-up needs no right to list the services.
    std::vector<ListedService> all;
    if (DWORD code = listServices(hSCManager, SERVICE_WIN32, SERVICE_STATE_ALL, all, false))
        return fail(code);
    std::string folded = foldServiceName(name);
    for (const ListedService &e : all)
        if (foldServiceName(byKey ? e.name : e.display) == folded)
            return copyName(byKey ? e.display : e.name, out, cch);
    return fail(ERROR_SERVICE_DOES_NOT_EXIST);
}

} // namespace

extern "C" {

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName, DWORD dwDesiredAccess)
{
    std::string machine, database;
    if (!wideToWire(lpMachineName, machine) || !wideToWire(lpDatabaseName, database)) {
        SetLastError(ERROR_INVALID_NAME);
        return nullptr;
    }
    if (!isLocalMachine(machine.c_str())) {
        SetLastError(RPC_S_SERVER_UNAVAILABLE);
        return nullptr;
    }
    if (lpDatabaseName && database != SERVICES_ACTIVE_DATABASEA) {
        SetLastError(database == SERVICES_FAILED_DATABASEA ? ERROR_DATABASE_DOES_NOT_EXIST : ERROR_INVALID_NAME);
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

SC_HANDLE WINAPI CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPCWSTR lpDisplayName,
                                DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                                LPCWSTR lpBinaryPathName, LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId,
                                LPCWSTR lpDependencies, LPCWSTR lpServiceStartName, LPCWSTR /* password: not kept */)
{
    if (!lpServiceName) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return nullptr;
    }
    CreateConfig c;
    c.hasDisplay = lpDisplayName != nullptr;
    c.type = dwServiceType;
    c.start = dwStartType;
    c.errorControl = dwErrorControl;
    if (!wideToWire(lpServiceName, c.name) || !wideToWire(lpDisplayName, c.display) ||
        !wideToWire(lpBinaryPathName, c.imagePath) || !wideToWire(lpLoadOrderGroup, c.group) ||
        !wideToWire(lpServiceStartName, c.account) || !wideList(lpDependencies, c.dependencies)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return nullptr;
    if (!(m->access & SC_MANAGER_CREATE_SERVICE)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    if (c.imagePath.empty() || lpdwTagId) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Writer w;
    w.u32(static_cast<uint32_t>(Op::Create));
    writeCreate(w, c);
    std::string reply;
    if (DWORD code = request(m, w, reply)) {
        SetLastError(code);
        return nullptr;
    }
    return openedService(m, reply, dwDesiredAccess);
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess)
{
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return nullptr;
    std::string name;
    if (!lpServiceName || !wideToWire(lpServiceName, name)) {
        SetLastError(lpServiceName ? ERROR_INVALID_NAME : ERROR_INVALID_ADDRESS);
        return nullptr;
    }
    std::string reply;
    if (DWORD code = request(m, Writer().u32(static_cast<uint32_t>(Op::Open)).str(name), reply)) {
        SetLastError(code);
        return nullptr;
    }
    return openedService(m, reply, dwDesiredAccess);
}

BOOL WINAPI StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCWSTR *lpServiceArgVectors)
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
        std::string a;
        if (!lpServiceArgVectors[i] || !wideToWire(lpServiceArgVectors[i], a))
            return fail(ERROR_INVALID_PARAMETER);
        w.str(a);
    }
    std::string reply;
    if (DWORD code = request(s->manager, w, reply))
        return fail(code);
    return TRUE;
}

BOOL WINAPI QueryServiceStatusEx(SC_HANDLE hService, SC_STATUS_TYPE InfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                                 LPDWORD pcbBytesNeeded)
{
    HandleRef ref;
    ServiceObject *s = service(hService, ref);
    if (!s)
        return FALSE;
    if (InfoLevel != SC_STATUS_PROCESS_INFO)
        return fail(ERROR_INVALID_LEVEL);
    if (!pcbBytesNeeded)
        return fail(ERROR_INVALID_ADDRESS);
    if (!(s->access & SERVICE_QUERY_STATUS))
        return fail(ERROR_ACCESS_DENIED);
    *pcbBytesNeeded = sizeof(SERVICE_STATUS_PROCESS);
    if (!lpBuffer || cbBufSize < sizeof(SERVICE_STATUS_PROCESS))
        return fail(ERROR_INSUFFICIENT_BUFFER);
    std::string reply;
    if (DWORD code = request(s->manager, serviceRequest(Op::Query, s), reply))
        return fail(code);
    Reader r(reply);
    r.u32();
    SERVICE_STATUS st = r.status();
    DWORD pid = r.u32();
    if (!r.ok())
        return fail(ERROR_INVALID_DATA);
    SERVICE_STATUS_PROCESS out{st.dwServiceType,   st.dwCurrentState,
                               st.dwControlsAccepted, st.dwWin32ExitCode,
                               st.dwServiceSpecificExitCode, st.dwCheckPoint,
                               st.dwWaitHint,      pid,
                               0};
    memcpy(lpBuffer, &out, sizeof out);
    return TRUE;
}

BOOL WINAPI EnumServicesStatusExW(SC_HANDLE hSCManager, SC_ENUM_TYPE InfoLevel, DWORD dwServiceType,
                                  DWORD dwServiceState, LPBYTE lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded,
                                  LPDWORD lpServicesReturned, LPDWORD lpResumeHandle, LPCWSTR pszGroupName)
{
    if (InfoLevel != SC_ENUM_PROCESS_INFO)
        return fail(ERROR_INVALID_LEVEL);
    if (pszGroupName)
        return fail(ERROR_INVALID_PARAMETER);
    std::vector<ListedService> all;
    if (DWORD code = enumerate(hSCManager, dwServiceType, dwServiceState, pcbBytesNeeded, lpServicesReturned, all))
        return fail(code);
    DWORD start = lpResumeHandle ? *lpResumeHandle : 0;
    if (start > all.size())
        start = static_cast<DWORD>(all.size());
    // Records from the front of the buffer, their strings from its end.
    constexpr DWORD kRecord = sizeof(ENUM_SERVICE_STATUS_PROCESSW);
    auto *records = reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSW *>(lpServices);
    DWORD fitted = 0, tail = cbBufSize;
    auto size = [](const Wide &a, const Wide &b) { return static_cast<DWORD>((a.size() + b.size() + 2) * sizeof(WCHAR)); };
    for (DWORD i = start; i < all.size(); ++i) {
        Wide name = wireToWide(all[i].name), display = wireToWide(all[i].display);
        DWORD strings = size(name, display);
        if (!lpServices || strings > tail || (fitted + 1) * kRecord > tail - strings)
            break;
        tail -= strings;
        tail -= tail % sizeof(WCHAR);
        auto *text = reinterpret_cast<WCHAR *>(lpServices + tail);
        memcpy(text, name.c_str(), (name.size() + 1) * sizeof(WCHAR));
        memcpy(text + name.size() + 1, display.c_str(), (display.size() + 1) * sizeof(WCHAR));
        const SERVICE_STATUS &st = all[i].status;
        records[fitted] = ENUM_SERVICE_STATUS_PROCESSW{
            text, text + name.size() + 1,
            SERVICE_STATUS_PROCESS{st.dwServiceType, st.dwCurrentState, st.dwControlsAccepted, st.dwWin32ExitCode,
                                   st.dwServiceSpecificExitCode, st.dwCheckPoint, st.dwWaitHint, all[i].pid, 0}};
        ++fitted;
    }
    *lpServicesReturned = fitted;
    DWORD rest = 0;
    for (DWORD i = start + fitted; i < all.size(); ++i)
        rest += kRecord + size(wireToWide(all[i].name), wireToWide(all[i].display));
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

BOOL WINAPI GetServiceDisplayNameW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPWSTR lpDisplayName,
                                   LPDWORD lpcchBuffer)
{
    return lookUpName(hSCManager, lpServiceName, true, lpDisplayName, lpcchBuffer);
}

BOOL WINAPI GetServiceKeyNameW(SC_HANDLE hSCManager, LPCWSTR lpDisplayName, LPWSTR lpServiceName,
                               LPDWORD lpcchBuffer)
{
    return lookUpName(hSCManager, lpDisplayName, false, lpServiceName, lpcchBuffer);
}

} // extern "C"
