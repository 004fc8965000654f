// tssc: installs, configures, controls and queries services, in the manner
// of sc.exe (command.h has the grammar, usage.cpp the verbs and options).
//
// Exit code 0 on success, else the Windows error number (POSIX keeps its
// low 8 bits), with the failed call and its message on standard output as
// sc.exe prints them; a command line that is not a command prints the
// usage and ends with ERROR_INVALID_COMMAND_LINE (1639). Text is UTF-8 on
// POSIX and the wide command line and console on Windows (console.h); the
// service calls are the wide ones, so names, display names and
// descriptions in any language are kept exactly.
#include <windows.h>

#include "command.h"
#include "console.h"
#include "output.h"
#include "widetext.h"

#include <string.h>

#include <deque>
#include <string>
#include <vector>

namespace {

using tssc::Command;
using tssc::failed;
using tssc::say;
using Wide = tstools::WString;

// UTF-8 to UTF-16 (false for text that is not UTF-8), and what a W call
// gave back as UTF-8.
bool toWide(const std::string &s, Wide &out) { return tstools::utf8ToWide(s, out); }
std::string toUtf8(LPCWSTR w) { return tstools::utf8Of(w); }

// The wide forms of a command's texts, kept alive for the calls.
class Texts {
public:
    // Null for an absent option; false when a text is not UTF-8.
    bool add(const std::optional<std::string> &s, LPCWSTR *out)
    {
        *out = nullptr;
        if (!s)
            return true;
        held_.emplace_back();
        if (!toWide(*s, held_.back()))
            return false;
        *out = held_.back().c_str();
        return true;
    }
    // depend=: names separated by '/', as a double-terminated list ("/"
    // alone: none).
    bool addList(const std::optional<std::string> &s, LPCWSTR *out)
    {
        *out = nullptr;
        if (!s)
            return true;
        Wide list;
        size_t at = 0;
        while (at <= s->size()) {
            size_t end = s->find('/', at);
            if (end == std::string::npos)
                end = s->size();
            Wide one;
            if (!toWide(s->substr(at, end - at), one))
                return false;
            if (!one.empty())
                list += one + Wide(1, 0);
            at = end + 1;
        }
        list += Wide(2, 0);
        held_.push_back(list);
        *out = held_.back().c_str();
        return true;
    }

private:
    std::deque<Wide> held_; // growing at its end, it moves none of its strings
};

SERVICE_STATUS_PROCESS withoutProcess(const SERVICE_STATUS &s)
{
    return SERVICE_STATUS_PROCESS{s.dwServiceType,   s.dwCurrentState, s.dwControlsAccepted,
                                  s.dwWin32ExitCode, s.dwServiceSpecificExitCode,
                                  s.dwCheckPoint,    s.dwWaitHint,     0, 0};
}

int notText() { return failed("MultiByteToWideChar", ERROR_NO_UNICODE_TRANSLATION); }

// The options that ChangeServiceConfig2W takes: the description and the
// delayed start.
int changeConfig2(SC_HANDLE svc, const Command &c, bool delayedGiven)
{
    if (delayedGiven) {
        SERVICE_DELAYED_AUTO_START_INFO info{c.delayedAuto ? TRUE : FALSE};
        if (!ChangeServiceConfig2W(svc, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, &info))
            return failed("ChangeServiceConfig2", GetLastError());
    }
    if (c.description) {
        Wide text;
        if (!toWide(*c.description, text))
            return notText();
        SERVICE_DESCRIPTIONW d{&text[0]};
        if (!ChangeServiceConfig2W(svc, SERVICE_CONFIG_DESCRIPTION, &d))
            return failed("ChangeServiceConfig2", GetLastError());
    }
    return 0;
}

void warnInteractive(const Command &c)
{
    if (c.type && (*c.type & SERVICE_INTERACTIVE_PROCESS))
        say("[SC] WARNING: The service %s is configured as interactive whose support is being deprecated. "
            "The service may not function properly.\n",
            c.name.c_str());
}

int create(SC_HANDLE scm, const Command &c)
{
    Texts t;
    LPCWSTR name, display, path, group, depend, obj, password;
    if (!t.add(c.name, &name) || !t.add(c.displayName, &display) || !t.add(c.binPath, &path) ||
        !t.add(c.group, &group) || !t.addList(c.depend, &depend) || !t.add(c.obj, &obj) ||
        !t.add(c.password, &password))
        return notText();
    SC_HANDLE svc = CreateServiceW(scm, name, display, SERVICE_ALL_ACCESS, c.type.value_or(SERVICE_WIN32_OWN_PROCESS),
                                   c.start.value_or(SERVICE_DEMAND_START), c.errorControl.value_or(SERVICE_ERROR_NORMAL),
                                   path, group, nullptr, depend, obj, password);
    if (!svc)
        return failed("CreateService", GetLastError());
    int rc = changeConfig2(svc, c, c.delayedAuto);
    CloseServiceHandle(svc);
    if (rc)
        return rc;
    say("[SC] CreateService SUCCESS\n");
    warnInteractive(c);
    return 0;
}

int config(SC_HANDLE svc, const Command &c)
{
    Texts t;
    LPCWSTR display, path, group, depend, obj, password;
    if (!t.add(c.displayName, &display) || !t.add(c.binPath, &path) || !t.add(c.group, &group) ||
        !t.addList(c.depend, &depend) || !t.add(c.obj, &obj) || !t.add(c.password, &password))
        return notText();
    bool basic = c.type || c.start || c.errorControl || path || group || depend || obj || password || display;
    if (basic && !ChangeServiceConfigW(svc, c.type.value_or(SERVICE_NO_CHANGE), c.start.value_or(SERVICE_NO_CHANGE),
                                       c.errorControl.value_or(SERVICE_NO_CHANGE), path, group, nullptr, depend, obj,
                                       password, display))
        return failed("ChangeServiceConfig", GetLastError());
    // A start type given says whether the start is delayed: delayed-auto
    // sets it, another start type clears it where it is set.
    bool delayedChange = c.delayedAuto;
    if (c.start && !c.delayedAuto) {
        SERVICE_DELAYED_AUTO_START_INFO now{FALSE};
        DWORD needed = 0;
        delayedChange = QueryServiceConfig2W(svc, SERVICE_CONFIG_DELAYED_AUTO_START_INFO,
                                             reinterpret_cast<BYTE *>(&now), sizeof now, &needed) &&
                        now.fDelayedAutostart;
    }
    if (int rc = changeConfig2(svc, c, delayedChange))
        return rc;
    say("[SC] ChangeServiceConfig SUCCESS\n");
    warnInteractive(c);
    return 0;
}

int queryConfig(SC_HANDLE svc, const Command &c)
{
    std::vector<BYTE> buf(c.bufSize);
    DWORD needed = 0;
    auto *q = reinterpret_cast<QUERY_SERVICE_CONFIGW *>(buf.data());
    if (!QueryServiceConfigW(svc, buf.size() >= sizeof *q ? q : nullptr, c.bufSize, &needed)) {
        DWORD e = GetLastError();
        int rc = failed("QueryServiceConfig", e);
        if (e == ERROR_INSUFFICIENT_BUFFER)
            say("[SC] GetServiceConfig needs %lu bytes\n", static_cast<unsigned long>(needed));
        return rc;
    }
    SERVICE_DELAYED_AUTO_START_INFO delayed{FALSE};
    if (!QueryServiceConfig2W(svc, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, reinterpret_cast<BYTE *>(&delayed),
                              sizeof delayed, &needed))
        delayed.fDelayedAutostart = FALSE;
    say("[SC] QueryServiceConfig SUCCESS\n\n");
    say("SERVICE_NAME: %s\n", c.name.c_str());
    say("        TYPE               : %lx  %s\n", static_cast<unsigned long>(q->dwServiceType),
        tssc::typeName(q->dwServiceType).c_str());
    say("        START_TYPE         : %lu   %s%s\n", static_cast<unsigned long>(q->dwStartType),
        tssc::startName(q->dwStartType),
        delayed.fDelayedAutostart && q->dwStartType == SERVICE_AUTO_START ? "  (DELAYED)" : "");
    say("        ERROR_CONTROL      : %lu   %s\n", static_cast<unsigned long>(q->dwErrorControl),
        tssc::errorControlName(q->dwErrorControl));
    say("        BINARY_PATH_NAME   : %s\n", toUtf8(q->lpBinaryPathName).c_str());
    say("        LOAD_ORDER_GROUP   : %s\n", toUtf8(q->lpLoadOrderGroup).c_str());
    say("        TAG                : %lu\n", static_cast<unsigned long>(q->dwTagId));
    say("        DISPLAY_NAME       : %s\n", toUtf8(q->lpDisplayName).c_str());
    const WCHAR *d = q->lpDependencies;
    if (!d || !*d)
        say("        DEPENDENCIES       : \n");
    for (bool first = true; d && *d; first = false) {
        say("%s%s\n", first ? "        DEPENDENCIES       : " : "                           : ", toUtf8(d).c_str());
        while (*d)
            ++d;
        ++d;
    }
    say("        SERVICE_START_NAME : %s\n", toUtf8(q->lpServiceStartName).c_str());
    return 0;
}

int queryDescription(SC_HANDLE svc, const Command &c)
{
    std::vector<BYTE> buf(c.bufSize);
    DWORD needed = 0;
    if (!QueryServiceConfig2W(svc, SERVICE_CONFIG_DESCRIPTION, buf.data(), c.bufSize, &needed)) {
        DWORD e = GetLastError();
        int rc = failed("QueryServiceConfig2", e);
        if (e == ERROR_INSUFFICIENT_BUFFER)
            say("[SC] QueryServiceConfig2 needs %lu bytes\n", static_cast<unsigned long>(needed));
        return rc;
    }
    auto *d = reinterpret_cast<SERVICE_DESCRIPTIONW *>(buf.data());
    say("[SC] QueryServiceConfig2 SUCCESS\n\nSERVICE_NAME: %s\nDESCRIPTION:  %s\n", c.name.c_str(),
        toUtf8(d->lpDescription).c_str());
    return 0;
}

int lookUpName(SC_HANDLE scm, const Command &c)
{
    Wide given;
    if (!toWide(c.name, given))
        return notText();
    bool display = c.verb == Command::GetDisplayName;
    const char *call = display ? "GetServiceDisplayName" : "GetServiceKeyName";
    DWORD chars = c.bufSize;
    std::vector<WCHAR> buf(chars + 1);
    BOOL ok = display ? GetServiceDisplayNameW(scm, given.c_str(), buf.data(), &chars)
                      : GetServiceKeyNameW(scm, given.c_str(), buf.data(), &chars);
    if (!ok) {
        DWORD e = GetLastError();
        int rc = failed(call, e);
        if (e == ERROR_INSUFFICIENT_BUFFER)
            say("[SC] %s needs %lu characters\n", call, static_cast<unsigned long>(chars + 1));
        return rc;
    }
    say("[SC] %s SUCCESS\nName = %s\n", call, toUtf8(buf.data()).c_str());
    return 0;
}

// Every service of the types and states, from the resume index on; the
// buffer grows as the calls ask.
int queryAll(SC_HANDLE scm, const Command &c)
{
    DWORD resume = c.resumeIndex;
    std::vector<BYTE> buf(c.bufSize < 64 ? 64 : c.bufSize);
    for (;;) {
        DWORD needed = 0, count = 0;
        BOOL ok = EnumServicesStatusExW(scm, SC_ENUM_PROCESS_INFO, c.queryType, c.state, buf.data(),
                                        static_cast<DWORD>(buf.size()), &needed, &count, &resume, nullptr);
        DWORD err = ok ? 0 : GetLastError();
        if (!ok && err != ERROR_MORE_DATA)
            return failed("EnumServicesStatusEx", err);
        auto *entries = reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSW *>(buf.data());
        for (DWORD i = 0; i < count; ++i) {
            std::string display = toUtf8(entries[i].lpDisplayName);
            tssc::printStatus(toUtf8(entries[i].lpServiceName), &display, entries[i].ServiceStatusProcess,
                              c.verb == Command::QueryEx);
        }
        if (ok)
            return 0;
        if (count == 0)
            buf.resize(buf.size() + needed);
    }
}

int statusEx(SC_HANDLE svc, const Command &c, const char *call)
{
    SERVICE_STATUS_PROCESS st{};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(svc, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE *>(&st), sizeof st, &needed))
        return failed(call, GetLastError());
    tssc::printStatus(c.name, nullptr, st, c.verb != Command::Query);
    return 0;
}

int onService(SC_HANDLE svc, const Command &c)
{
    switch (c.verb) {
    case Command::Config: return config(svc, c);
    case Command::Description: {
        Command d = c;
        d.description = c.text;
        if (int rc = changeConfig2(svc, d, false))
            return rc;
        say("[SC] ChangeServiceConfig2 SUCCESS\n");
        return 0;
    }
    case Command::Qc: return queryConfig(svc, c);
    case Command::QDescription: return queryDescription(svc, c);
    case Command::Query:
    case Command::QueryEx: return statusEx(svc, c, "QueryServiceStatusEx");
    case Command::Delete:
        if (!DeleteService(svc))
            return failed("DeleteService", GetLastError());
        say("[SC] DeleteService SUCCESS\n");
        return 0;
    case Command::Start: {
        std::vector<Wide> wide(c.args.size());
        std::vector<LPCWSTR> args;
        for (size_t i = 0; i < c.args.size(); ++i) {
            if (!toWide(c.args[i], wide[i]))
                return notText();
            args.push_back(wide[i].c_str());
        }
        if (!StartServiceW(svc, static_cast<DWORD>(args.size()), args.empty() ? nullptr : args.data()))
            return failed("StartService", GetLastError());
        return statusEx(svc, c, "QueryServiceStatusEx");
    }
    default: {
        DWORD control = c.verb == Command::Stop       ? SERVICE_CONTROL_STOP
                        : c.verb == Command::Pause    ? SERVICE_CONTROL_PAUSE
                        : c.verb == Command::Continue ? SERVICE_CONTROL_CONTINUE
                                                      : SERVICE_CONTROL_INTERROGATE;
        SERVICE_STATUS st{};
        if (!ControlService(svc, control, &st))
            return failed("ControlService", GetLastError());
        tssc::printStatus(c.name, nullptr, withoutProcess(st), false);
        return 0;
    }
    }
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> words = tssc::arguments(argc, argv);
    std::vector<const char *> av;
    for (const std::string &w : words)
        av.push_back(w.c_str());
    Command c;
    tssc::ParseResult parsed = tssc::parseCommand(static_cast<int>(av.size()), av.data(), c);
    if (parsed != tssc::ParseResult::Ok) {
        tssc::writeText(tssc::usageText(parsed, c));
        return ERROR_INVALID_COMMAND_LINE;
    }
    bool all = (c.verb == Command::Query || c.verb == Command::QueryEx) && c.name.empty();
    DWORD managerAccess = SC_MANAGER_CONNECT | (c.verb == Command::Create ? SC_MANAGER_CREATE_SERVICE : 0) |
                          (all ? SC_MANAGER_ENUMERATE_SERVICE : 0);
    SC_HANDLE scm = OpenSCManagerW(nullptr, nullptr, managerAccess);
    if (!scm)
        return failed("OpenSCManager", GetLastError());
    int rc;
    if (all) {
        rc = queryAll(scm, c);
    } else if (c.verb == Command::Create) {
        rc = create(scm, c);
    } else if (c.verb == Command::GetDisplayName || c.verb == Command::GetKeyName) {
        rc = lookUpName(scm, c);
    } else {
        Wide name;
        SC_HANDLE svc = nullptr;
        if (!toWide(c.name, name))
            rc = notText();
        else if (!(svc = OpenServiceW(scm, name.c_str(), SERVICE_ALL_ACCESS)))
            rc = failed("OpenService", GetLastError());
        else
            rc = onService(svc, c);
        if (svc)
            CloseServiceHandle(svc);
    }
    CloseServiceHandle(scm);
    return rc;
}
