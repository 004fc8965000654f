// The service database in the registry.
#include "database.h"

#include "svcwire.h"

namespace tsscm {

namespace {

std::string keyPath(const std::string &name) { return std::string(tsp::svc::kServicesKey) + "\\" + name; }

std::string readString(HKEY key, const char *value)
{
    DWORD type = 0, size = 0;
    if (RegQueryValueExA(key, value, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ))
        return std::string();
    std::string s(size, '\0');
    if (RegQueryValueExA(key, value, nullptr, &type, reinterpret_cast<BYTE *>(s.data()), &size) != ERROR_SUCCESS)
        return std::string();
    s.resize(size);
    while (!s.empty() && s.back() == '\0')
        s.pop_back();
    return s;
}

bool readDword(HKEY key, const char *value, DWORD &out)
{
    DWORD type = 0, v = 0, size = sizeof v;
    if (RegQueryValueExA(key, value, nullptr, &type, reinterpret_cast<BYTE *>(&v), &size) != ERROR_SUCCESS ||
        type != REG_DWORD)
        return false;
    out = v;
    return true;
}

bool readOpen(HKEY key, const std::string &name, ServiceConfig &out)
{
    out = ServiceConfig();
    out.name = name;
    if (!readDword(key, "Type", out.type) || !(out.type & SERVICE_WIN32))
        return false;
    out.imagePath = readString(key, "ImagePath");
    out.displayName = readString(key, "DisplayName");
    if (out.displayName.empty())
        out.displayName = name;
    readDword(key, "Start", out.start);
    readDword(key, "ErrorControl", out.errorControl);
    out.account = readString(key, "ObjectName");
    return true;
}

// The key's name as stored, found without regard to case.
bool storedName(const std::string &name, std::string &out)
{
    HKEY services;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, tsp::svc::kServicesKey, 0, KEY_READ, &services) != ERROR_SUCCESS)
        return false;
    std::string folded = tsp::svc::foldServiceName(name);
    char buf[512];
    bool found = false;
    for (DWORD i = 0; RegEnumKeyA(services, i, buf, sizeof buf) == ERROR_SUCCESS; ++i)
        if (tsp::svc::foldServiceName(buf) == folded) {
            out = buf;
            found = true;
            break;
        }
    RegCloseKey(services);
    return found;
}

LONG deleteTree(HKEY parent, const std::string &sub)
{
    HKEY key;
    LONG r = RegOpenKeyExA(parent, sub.c_str(), 0, KEY_ALL_ACCESS, &key);
    if (r != ERROR_SUCCESS)
        return r;
    char buf[512];
    std::vector<std::string> children;
    for (DWORD i = 0; RegEnumKeyA(key, i, buf, sizeof buf) == ERROR_SUCCESS; ++i)
        children.push_back(buf);
    for (const std::string &c : children)
        deleteTree(key, c);
    RegCloseKey(key);
    return RegDeleteKeyA(parent, sub.c_str());
}

} // namespace

bool RegistryDatabase::readService(const std::string &name, ServiceConfig &out)
{
    std::string stored;
    if (!storedName(name, stored))
        return false;
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath(stored).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    bool ok = readOpen(key, stored, out);
    RegCloseKey(key);
    return ok;
}

std::vector<ServiceConfig> RegistryDatabase::readAllServices()
{
    std::vector<ServiceConfig> all;
    HKEY services;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, tsp::svc::kServicesKey, 0, KEY_READ, &services) != ERROR_SUCCESS)
        return all;
    char buf[512];
    for (DWORD i = 0; RegEnumKeyA(services, i, buf, sizeof buf) == ERROR_SUCCESS; ++i) {
        HKEY key;
        if (RegOpenKeyExA(services, buf, 0, KEY_READ, &key) != ERROR_SUCCESS)
            continue;
        ServiceConfig c;
        if (readOpen(key, buf, c))
            all.push_back(std::move(c));
        RegCloseKey(key);
    }
    RegCloseKey(services);
    return all;
}

LONG RegistryDatabase::writeService(const ServiceConfig &c)
{
    HKEY key;
    DWORD disposition = 0;
    LONG r = RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyPath(c.name).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                             &disposition);
    if (r != ERROR_SUCCESS)
        return r;
    auto str = [&](const char *name, const std::string &v, DWORD type) {
        if (r == ERROR_SUCCESS)
            r = RegSetValueExA(key, name, 0, type, reinterpret_cast<const BYTE *>(v.c_str()),
                               static_cast<DWORD>(v.size() + 1));
    };
    auto dword = [&](const char *name, DWORD v) {
        if (r == ERROR_SUCCESS)
            r = RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&v), sizeof v);
    };
    dword("Type", c.type);
    dword("Start", c.start);
    dword("ErrorControl", c.errorControl);
    str("ImagePath", c.imagePath, REG_EXPAND_SZ);
    str("DisplayName", c.displayName, REG_SZ);
    str("ObjectName", c.account, REG_SZ);
    RegCloseKey(key);
    return r;
}

LONG RegistryDatabase::deleteService(const std::string &name)
{
    HKEY services;
    LONG r = RegOpenKeyExA(HKEY_LOCAL_MACHINE, tsp::svc::kServicesKey, 0, KEY_ALL_ACCESS, &services);
    if (r != ERROR_SUCCESS)
        return r;
    r = deleteTree(services, name);
    RegCloseKey(services);
    return r;
}

DWORD RegistryDatabase::readControlValue(const char *value, DWORD fallback)
{
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, tsp::svc::kControlKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return fallback;
    DWORD v = fallback;
    if (!readDword(key, value, v))
        v = fallback;
    RegCloseKey(key);
    return v;
}

} // namespace tsscm
