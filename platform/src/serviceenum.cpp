// Enumerating the services: EnumServicesStatusA, and the list of services
// that the enumerations and the name look-ups share.
#include "serviceclient.h"

#include <string.h>

using namespace tsp;
using namespace tsp::svc;

namespace tsp::svc {

DWORD listServices(SC_HANDLE hSCManager, DWORD type, DWORD state, std::vector<ListedService> &out, bool listing)
{
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return GetLastError();
    if (listing && !(m->access & SC_MANAGER_ENUMERATE_SERVICE))
        return ERROR_ACCESS_DENIED;
    if (!type || (type & ~static_cast<DWORD>(SERVICE_TYPE_ALL)) || !state ||
        (state & ~static_cast<DWORD>(SERVICE_STATE_ALL)))
        return ERROR_INVALID_PARAMETER;
    std::string reply;
    if (DWORD code = request(m, Writer().u32(static_cast<uint32_t>(Op::Enumerate)).u32(type).u32(state), reply))
        return code;
    Reader r(reply);
    r.u32();
    DWORD count = r.u32();
    for (DWORD i = 0; i < count && r.ok(); ++i) {
        ListedService e;
        e.name = r.str();
        e.display = r.str();
        e.status = r.status();
        e.pid = r.u32();
        out.push_back(std::move(e));
    }
    return r.ok() ? ERROR_SUCCESS : static_cast<DWORD>(ERROR_INVALID_DATA);
}

DWORD enumerate(SC_HANDLE hSCManager, DWORD type, DWORD state, LPDWORD needed, LPDWORD returned,
                std::vector<ListedService> &out)
{
    HandleRef ref;
    ManagerObject *m = manager(hSCManager, ref);
    if (!m)
        return GetLastError();
    if ((m->access & SC_MANAGER_ENUMERATE_SERVICE) && (!needed || !returned))
        return ERROR_INVALID_ADDRESS;
    return listServices(hSCManager, type, state, out);
}

} // namespace tsp::svc

extern "C" {

BOOL WINAPI EnumServicesStatusA(SC_HANDLE hSCManager, DWORD dwServiceType, DWORD dwServiceState,
                                LPENUM_SERVICE_STATUSA lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded,
                                LPDWORD lpServicesReturned, LPDWORD lpResumeHandle)
{
    std::vector<ListedService> all;
    if (DWORD code = enumerate(hSCManager, dwServiceType, dwServiceState, pcbBytesNeeded, lpServicesReturned, all))
        return fail(code);
    for (ListedService &e : all) {
        e.name = wireToAnsi(e.name);
        e.display = wireToAnsi(e.display);
    }
    using Entry = ListedService;
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
