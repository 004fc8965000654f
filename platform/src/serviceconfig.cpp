// A service's configuration: ChangeServiceConfigW, ChangeServiceConfig2W,
// QueryServiceConfigW and QueryServiceConfig2W.
#include "serviceclient.h"

#include <string.h>

using namespace tsp;
using namespace tsp::svc;

namespace {

using Wide = std::basic_string<WCHAR>;

// What QueryConfig replies, as UTF-8.
struct Config {
    DWORD type = 0, start = 0, errorControl = 0;
    std::string path, account, group, display, description;
    bool delayed = false;
    std::vector<std::string> dependencies;
};

DWORD queryConfig(ServiceObject *s, Config &c)
{
    std::string reply;
    if (DWORD code = request(s->manager, serviceRequest(Op::QueryConfig, s), reply))
        return code;
    Reader r(reply);
    r.u32();
    c.type = r.u32();
    c.start = r.u32();
    c.errorControl = r.u32();
    c.path = r.str();
    c.account = r.str();
    c.group = r.str();
    c.display = r.str();
    c.description = r.str();
    c.delayed = r.u32() != 0;
    for (DWORD i = 0, n = r.u32(); i < n && r.ok(); ++i)
        c.dependencies.push_back(r.str());
    return r.ok() ? ERROR_SUCCESS : static_cast<DWORD>(ERROR_INVALID_DATA);
}

// An optional text of a change: present when given.
bool optional(Writer &w, LPCWSTR text)
{
    std::string s;
    if (!wideToWire(text, s))
        return false;
    w.u32(text ? 1 : 0).str(s);
    return true;
}

// Lays strings out after a record in a caller's buffer.
class Layout {
public:
    Layout(LPBYTE buffer, DWORD size, DWORD record) : buffer_(buffer), size_(size), used_(record) {}
    // The place of the text in the buffer (null while it does not fit);
    // counted in any case.
    LPWSTR put(const Wide &text)
    {
        DWORD bytes = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
        LPWSTR at = fits(used_ + bytes) ? reinterpret_cast<LPWSTR>(buffer_ + used_) : nullptr;
        if (at)
            memcpy(at, text.c_str(), bytes);
        used_ += bytes;
        return at;
    }
    bool fits(DWORD total) const { return buffer_ && total <= size_; }
    DWORD used() const { return used_; }

private:
    LPBYTE buffer_;
    DWORD size_, used_;
};

} // namespace

extern "C" {

BOOL WINAPI ChangeServiceConfigW(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                                 LPCWSTR lpBinaryPathName, LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId,
                                 LPCWSTR lpDependencies, LPCWSTR lpServiceStartName, LPCWSTR /* password: not kept */,
                                 LPCWSTR lpDisplayName)
{
    HandleRef ref;
    ServiceObject *s = serviceWith(hService, ref, SERVICE_CHANGE_CONFIG);
    if (!s)
        return FALSE;
    if (lpdwTagId)
        return fail(ERROR_INVALID_PARAMETER);
    Writer w = serviceRequest(Op::ChangeConfig, s);
    w.u32(dwServiceType).u32(dwStartType).u32(dwErrorControl);
    if (!optional(w, lpBinaryPathName) || !optional(w, lpServiceStartName) || !optional(w, lpLoadOrderGroup) ||
        !optional(w, lpDisplayName) || !optional(w, nullptr))
        return fail(ERROR_INVALID_PARAMETER);
    w.u32(lpDependencies ? 1 : 0);
    if (lpDependencies) {
        std::vector<std::string> list;
        for (LPCWSTR d = lpDependencies; *d;) {
            std::string one;
            if (!wideToWire(d, one))
                return fail(ERROR_INVALID_PARAMETER);
            list.push_back(one);
            while (*d)
                ++d;
            ++d;
        }
        w.u32(static_cast<uint32_t>(list.size()));
        for (const std::string &d : list)
            w.str(d);
    }
    w.u32(0).u32(0); // the delayed start stays
    std::string reply;
    if (DWORD code = request(s->manager, w, reply))
        return fail(code);
    return TRUE;
}

BOOL WINAPI ChangeServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo)
{
    HandleRef ref;
    ServiceObject *s = serviceWith(hService, ref, SERVICE_CHANGE_CONFIG);
    if (!s)
        return FALSE;
    if (dwInfoLevel != SERVICE_CONFIG_DESCRIPTION && dwInfoLevel != SERVICE_CONFIG_DELAYED_AUTO_START_INFO)
        return fail(ERROR_INVALID_LEVEL);
    if (!lpInfo)
        return fail(ERROR_INVALID_ADDRESS);
    Writer w = serviceRequest(Op::ChangeConfig, s);
    w.u32(SERVICE_NO_CHANGE).u32(SERVICE_NO_CHANGE).u32(SERVICE_NO_CHANGE);
    for (int i = 0; i < 4; ++i)
        w.u32(0).str(std::string());
    if (dwInfoLevel == SERVICE_CONFIG_DESCRIPTION) {
        if (!optional(w, static_cast<SERVICE_DESCRIPTIONW *>(lpInfo)->lpDescription))
            return fail(ERROR_INVALID_PARAMETER);
        w.u32(0).u32(0).u32(0);
    } else {
        w.u32(0).str(std::string()).u32(0);
        w.u32(1).u32(static_cast<SERVICE_DELAYED_AUTO_START_INFO *>(lpInfo)->fDelayedAutostart ? 1 : 0);
    }
    std::string reply;
    if (DWORD code = request(s->manager, w, reply))
        return fail(code);
    return TRUE;
}

BOOL WINAPI QueryServiceConfigW(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGW lpServiceConfig, DWORD cbBufSize,
                                LPDWORD pcbBytesNeeded)
{
    HandleRef ref;
    ServiceObject *s = serviceWith(hService, ref, SERVICE_QUERY_CONFIG);
    if (!s)
        return FALSE;
    if (!pcbBytesNeeded)
        return fail(ERROR_INVALID_ADDRESS);
    Config c;
    if (DWORD code = queryConfig(s, c))
        return fail(code);
    QUERY_SERVICE_CONFIGW out{c.type, c.start, c.errorControl, nullptr, nullptr, 0, nullptr, nullptr, nullptr};
    Layout layout(reinterpret_cast<LPBYTE>(lpServiceConfig), cbBufSize, sizeof out);
    out.lpBinaryPathName = layout.put(wireToWide(c.path));
    out.lpLoadOrderGroup = layout.put(wireToWide(c.group));
    Wide dependencies;
    for (const std::string &d : c.dependencies)
        dependencies += wireToWide(d) + Wide(1, 0);
    out.lpDependencies = layout.put(dependencies); // ends with two terminators
    out.lpServiceStartName = layout.put(wireToWide(c.account));
    out.lpDisplayName = layout.put(wireToWide(c.display));
    *pcbBytesNeeded = layout.used();
    if (!layout.fits(layout.used()))
        return fail(ERROR_INSUFFICIENT_BUFFER);
    memcpy(lpServiceConfig, &out, sizeof out);
    return TRUE;
}

BOOL WINAPI QueryServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                                 LPDWORD pcbBytesNeeded)
{
    HandleRef ref;
    ServiceObject *s = serviceWith(hService, ref, SERVICE_QUERY_CONFIG);
    if (!s)
        return FALSE;
    if (dwInfoLevel != SERVICE_CONFIG_DESCRIPTION && dwInfoLevel != SERVICE_CONFIG_DELAYED_AUTO_START_INFO)
        return fail(ERROR_INVALID_LEVEL);
    if (!pcbBytesNeeded)
        return fail(ERROR_INVALID_ADDRESS);
    Config c;
    if (DWORD code = queryConfig(s, c))
        return fail(code);
    if (dwInfoLevel == SERVICE_CONFIG_DELAYED_AUTO_START_INFO) {
        *pcbBytesNeeded = sizeof(SERVICE_DELAYED_AUTO_START_INFO);
        if (!lpBuffer || cbBufSize < sizeof(SERVICE_DELAYED_AUTO_START_INFO))
            return fail(ERROR_INSUFFICIENT_BUFFER);
        SERVICE_DELAYED_AUTO_START_INFO info{c.delayed ? TRUE : FALSE};
        memcpy(lpBuffer, &info, sizeof info);
        return TRUE;
    }
    // No description: a null pointer, as Windows gives it.
    SERVICE_DESCRIPTIONW out{nullptr};
    Layout layout(lpBuffer, cbBufSize, sizeof out);
    if (!c.description.empty())
        out.lpDescription = layout.put(wireToWide(c.description));
    *pcbBytesNeeded = layout.used();
    if (!layout.fits(layout.used()))
        return fail(ERROR_INSUFFICIENT_BUFFER);
    memcpy(lpBuffer, &out, sizeof out);
    return TRUE;
}

} // extern "C"
