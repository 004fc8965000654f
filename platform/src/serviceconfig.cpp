// A service's configuration: ChangeServiceConfigW, ChangeServiceConfig2W,
// QueryServiceConfigW and QueryServiceConfig2W.
#include "serviceclient.h"

#include <string.h>

using namespace tsp;
using namespace tsp::svc;

namespace {

using Wide = std::basic_string<WCHAR>;

DWORD queryConfig(ServiceObject *s, QueriedConfig &c)
{
    std::string reply;
    if (DWORD code = request(s->manager, serviceRequest(Op::QueryConfig, s), reply))
        return code;
    Reader r(reply);
    r.u32();
    return readQueried(r, c) ? ERROR_SUCCESS : static_cast<DWORD>(ERROR_INVALID_DATA);
}

// An optional text of a change: present when given; false when it is not
// well-formed UTF-16.
bool optional(LPCWSTR text, std::optional<std::string> &out)
{
    std::string s;
    if (!wideToWire(text, s))
        return false;
    if (text)
        out = std::move(s);
    return true;
}

// Sends a change of the service's configuration.
BOOL changeConfig(ServiceObject *s, const ConfigChange &c)
{
    Writer w = serviceRequest(Op::ChangeConfig, s);
    writeChange(w, c);
    std::string reply;
    if (DWORD code = request(s->manager, w, reply))
        return fail(code);
    return TRUE;
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
    ConfigChange c;
    c.type = dwServiceType;
    c.start = dwStartType;
    c.errorControl = dwErrorControl;
    if (!optional(lpBinaryPathName, c.imagePath) || !optional(lpServiceStartName, c.account) ||
        !optional(lpLoadOrderGroup, c.group) || !optional(lpDisplayName, c.display))
        return fail(ERROR_INVALID_PARAMETER);
    if (lpDependencies) {
        c.dependencies.emplace();
        if (!wideList(lpDependencies, *c.dependencies))
            return fail(ERROR_INVALID_PARAMETER);
    }
    return changeConfig(s, c);
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
    ConfigChange c;
    if (dwInfoLevel == SERVICE_CONFIG_DESCRIPTION) {
        if (!optional(static_cast<SERVICE_DESCRIPTIONW *>(lpInfo)->lpDescription, c.description))
            return fail(ERROR_INVALID_PARAMETER);
    } else {
        c.delayedAutostart = static_cast<SERVICE_DELAYED_AUTO_START_INFO *>(lpInfo)->fDelayedAutostart != FALSE;
    }
    return changeConfig(s, c);
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
    QueriedConfig c;
    if (DWORD code = queryConfig(s, c))
        return fail(code);
    QUERY_SERVICE_CONFIGW out{c.type, c.start, c.errorControl, nullptr, nullptr, 0, nullptr, nullptr, nullptr};
    Layout layout(reinterpret_cast<LPBYTE>(lpServiceConfig), cbBufSize, sizeof out);
    out.lpBinaryPathName = layout.put(wireToWide(c.imagePath));
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
    QueriedConfig c;
    if (DWORD code = queryConfig(s, c))
        return fail(code);
    if (dwInfoLevel == SERVICE_CONFIG_DELAYED_AUTO_START_INFO) {
        *pcbBytesNeeded = sizeof(SERVICE_DELAYED_AUTO_START_INFO);
        if (!lpBuffer || cbBufSize < sizeof(SERVICE_DELAYED_AUTO_START_INFO))
            return fail(ERROR_INSUFFICIENT_BUFFER);
        SERVICE_DELAYED_AUTO_START_INFO info{c.delayedAutostart ? TRUE : FALSE};
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
