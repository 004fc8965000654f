// Accounts of services as users of the system.
#include "account.h"

#include "svcwire.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace tsscm {

namespace {

enum class Builtin { None, System, Service };

Builtin builtinOf(const std::string &objectName)
{
    std::string f = tsp::svc::foldServiceName(objectName);
    if (f.empty() || f == "localsystem" || f == ".\\localsystem" || f == "nt authority\\system")
        return Builtin::System;
    if (f == "nt authority\\localservice" || f == "nt authority\\networkservice" || f == "localservice" ||
        f == "networkservice")
        return Builtin::Service;
    return Builtin::None;
}

bool fromPasswd(const char *name, Account &out)
{
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buf(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd pw{}, *found = nullptr;
    if (getpwnam_r(name, &pw, buf.data(), buf.size(), &found) != 0 || !found)
        return false;
    out.uid = pw.pw_uid;
    out.gid = pw.pw_gid;
    out.user = pw.pw_name;
    out.home = pw.pw_dir ? pw.pw_dir : "/";
    return true;
}

} // namespace

bool lookUpAccount(const std::string &objectName, Account &out)
{
    switch (builtinOf(objectName)) {
    case Builtin::System:
        if (!fromPasswd("root", out)) {
            out = Account{0, 0, "root", "/root"};
        }
        return true;
    case Builtin::Service:
        return fromPasswd("nobody", out);
    case Builtin::None:
        break;
    }
    std::string::size_type slash = objectName.find('\\');
    std::string user = slash == std::string::npos ? objectName : objectName.substr(slash + 1);
    return !user.empty() && fromPasswd(user.c_str(), out);
}

std::string storedAccountName(const std::string &objectName)
{
    switch (builtinOf(objectName)) {
    case Builtin::System: return "LocalSystem";
    case Builtin::Service: {
        std::string f = tsp::svc::foldServiceName(objectName);
        return f.find("network") != std::string::npos ? "NT AUTHORITY\\NetworkService" : "NT AUTHORITY\\LocalService";
    }
    case Builtin::None: break;
    }
    return objectName;
}

} // namespace tsscm
