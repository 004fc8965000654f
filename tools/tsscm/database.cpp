// The service database in the registry.
#include "database.h"

#include "svcwire.h"
#include "widetext.h"

namespace tsscm {

namespace {

// The registry, in one place: every name and value that the database reads
// or writes passes through these functions, its text as UTF-8.
namespace text {

// The service database keeps its text as the registry does, in UTF-16,
// through the W calls; the manager's own text is UTF-8 (as on the wire).
// Names and values arrive as UTF-8 checked where they came in, so a text
// that does not convert is refused, never stored altered.
using tstools::WString;

WString wide(const std::string &utf8)
{
    WString w;
    return tstools::utf8ToWide(utf8, w) ? w : WString();
}

WString wide(const char *utf8) { return wide(std::string(utf8)); }

LONG openKey(HKEY parent, const std::string &path, REGSAM access, HKEY *out)
{
    WString w;
    if (!tstools::utf8ToWide(path, w))
        return ERROR_INVALID_NAME;
    return RegOpenKeyExW(parent, w.c_str(), 0, access, out);
}

LONG createKey(HKEY parent, const std::string &path, HKEY *out)
{
    WString w;
    if (!tstools::utf8ToWide(path, w))
        return ERROR_INVALID_NAME;
    DWORD disposition = 0;
    return RegCreateKeyExW(parent, w.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, out, &disposition);
}

LONG deleteKey(HKEY parent, const std::string &name)
{
    WString w;
    if (!tstools::utf8ToWide(name, w))
        return ERROR_INVALID_NAME;
    return RegDeleteKeyW(parent, w.c_str());
}

// The names of the key's subkeys, in the store's order.
std::vector<std::string> subkeys(HKEY key)
{
    std::vector<std::string> names;
    WCHAR buf[256]; // a key name has at most 255 characters
    for (DWORD i = 0;; ++i) {
        DWORD len = sizeof buf / sizeof buf[0];
        if (RegEnumKeyExW(key, i, buf, &len, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        std::string name;
        if (tstools::wideToUtf8(WString(buf, len), name))
            names.push_back(name);
    }
    return names;
}

// A REG_SZ, REG_EXPAND_SZ or REG_MULTI_SZ value's text without the
// terminators at its end; false when missing, of another type or not text.
bool readRaw(HKEY key, const char *value, DWORD wantType, std::string &out)
{
    WString name = wide(value);
    DWORD type = 0, size = 0;
    if (RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
        return false;
    bool fits = wantType == REG_MULTI_SZ ? type == REG_MULTI_SZ : (type == REG_SZ || type == REG_EXPAND_SZ);
    if (!fits)
        return false;
    WString w(size / sizeof(WCHAR) + 1, 0);
    if (RegQueryValueExW(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(&w[0]), &size) != ERROR_SUCCESS)
        return false;
    w.resize(size / sizeof(WCHAR));
    while (!w.empty() && w.back() == 0)
        w.pop_back();
    return tstools::wideToUtf8(w, out);
}

std::string readString(HKEY key, const char *value)
{
    std::string s;
    return readRaw(key, value, REG_SZ, s) ? s : std::string();
}

std::vector<std::string> readList(HKEY key, const char *value)
{
    std::string s;
    std::vector<std::string> list;
    if (!readRaw(key, value, REG_MULTI_SZ, s))
        return list;
    for (size_t at = 0; at < s.size();) {
        size_t end = s.find('\0', at);
        if (end == std::string::npos)
            end = s.size();
        if (end > at)
            list.push_back(s.substr(at, end - at));
        at = end + 1;
    }
    return list;
}

// Text stored with its terminators, as a W call of Windows stores it.
LONG writeWide(HKEY key, const char *value, DWORD type, const WString &data)
{
    return RegSetValueExW(key, wide(value).c_str(), 0, type, reinterpret_cast<const BYTE *>(data.c_str()),
                          static_cast<DWORD>((data.size() + 1) * sizeof(WCHAR)));
}

LONG writeString(HKEY key, const char *value, const std::string &v, DWORD type)
{
    WString w;
    if (!tstools::utf8ToWide(v, w))
        return ERROR_INVALID_DATA;
    return writeWide(key, value, type, w);
}

LONG writeList(HKEY key, const char *value, const std::vector<std::string> &list)
{
    WString block;
    for (const std::string &s : list) {
        WString w;
        if (!tstools::utf8ToWide(s, w))
            return ERROR_INVALID_DATA;
        block += w;
        block += WCHAR(0);
    }
    return writeWide(key, value, REG_MULTI_SZ, block); // the list's final empty string
}

bool readDword(HKEY key, const char *value, DWORD &out)
{
    DWORD type = 0, v = 0, size = sizeof v;
    if (RegQueryValueExW(key, wide(value).c_str(), nullptr, &type, reinterpret_cast<BYTE *>(&v), &size) !=
            ERROR_SUCCESS ||
        type != REG_DWORD)
        return false;
    out = v;
    return true;
}

LONG writeDword(HKEY key, const char *value, DWORD v)
{
    return RegSetValueExW(key, wide(value).c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&v), sizeof v);
}

LONG deleteValue(HKEY key, const char *value)
{
    LONG r = RegDeleteValueW(key, wide(value).c_str());
    return r == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : r;
}

} // namespace text

std::string keyPath(const std::string &name) { return std::string(tsp::svc::kServicesKey) + "\\" + name; }

bool readOpen(HKEY key, const std::string &name, ServiceConfig &out)
{
    out = ServiceConfig();
    out.name = name;
    if (!text::readDword(key, "Type", out.type) || !(out.type & SERVICE_WIN32))
        return false;
    out.imagePath = text::readString(key, "ImagePath");
    out.displayName = text::readString(key, "DisplayName");
    if (out.displayName.empty())
        out.displayName = name;
    text::readDword(key, "Start", out.start);
    text::readDword(key, "ErrorControl", out.errorControl);
    out.account = text::readString(key, "ObjectName");
    out.group = text::readString(key, "Group");
    out.dependOnService = text::readList(key, "DependOnService");
    out.dependOnGroup = text::readList(key, "DependOnGroup");
    out.description = text::readString(key, "Description");
    DWORD delayed = 0;
    out.delayedAutostart = text::readDword(key, "DelayedAutostart", delayed) && delayed != 0;
    return true;
}

// The key's name as stored, found without regard to case.
bool storedName(const std::string &name, std::string &out)
{
    HKEY services;
    if (text::openKey(HKEY_LOCAL_MACHINE, tsp::svc::kServicesKey, KEY_READ, &services) != ERROR_SUCCESS)
        return false;
    std::string folded = tsp::svc::foldServiceName(name);
    bool found = false;
    for (const std::string &n : text::subkeys(services))
        if (tsp::svc::foldServiceName(n) == folded) {
            out = n;
            found = true;
            break;
        }
    RegCloseKey(services);
    return found;
}

LONG deleteTree(HKEY parent, const std::string &sub)
{
    HKEY key;
    LONG r = text::openKey(parent, sub, KEY_ALL_ACCESS, &key);
    if (r != ERROR_SUCCESS)
        return r;
    for (const std::string &c : text::subkeys(key))
        deleteTree(key, c);
    RegCloseKey(key);
    return text::deleteKey(parent, sub);
}

} // namespace

bool RegistryDatabase::readService(const std::string &name, ServiceConfig &out)
{
    std::string stored;
    if (!storedName(name, stored))
        return false;
    HKEY key;
    if (text::openKey(HKEY_LOCAL_MACHINE, keyPath(stored), KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    bool ok = readOpen(key, stored, out);
    RegCloseKey(key);
    return ok;
}

std::vector<ServiceConfig> RegistryDatabase::readAllServices()
{
    std::vector<ServiceConfig> all;
    HKEY services;
    if (text::openKey(HKEY_LOCAL_MACHINE, tsp::svc::kServicesKey, KEY_READ, &services) != ERROR_SUCCESS)
        return all;
    for (const std::string &n : text::subkeys(services)) {
        HKEY key;
        if (text::openKey(services, n, KEY_READ, &key) != ERROR_SUCCESS)
            continue;
        ServiceConfig c;
        if (readOpen(key, n, c))
            all.push_back(std::move(c));
        RegCloseKey(key);
    }
    RegCloseKey(services);
    return all;
}

LONG RegistryDatabase::writeService(const ServiceConfig &c)
{
    HKEY key;
    LONG r = text::createKey(HKEY_LOCAL_MACHINE, keyPath(c.name), &key);
    if (r != ERROR_SUCCESS)
        return r;
    auto str = [&](const char *name, const std::string &v, DWORD type, bool keepEmpty) {
        if (r == ERROR_SUCCESS)
            r = v.empty() && !keepEmpty ? text::deleteValue(key, name) : text::writeString(key, name, v, type);
    };
    auto list = [&](const char *name, const std::vector<std::string> &v) {
        if (r == ERROR_SUCCESS)
            r = v.empty() ? text::deleteValue(key, name) : text::writeList(key, name, v);
    };
    auto dword = [&](const char *name, DWORD v) {
        if (r == ERROR_SUCCESS)
            r = text::writeDword(key, name, v);
    };
    dword("Type", c.type);
    dword("Start", c.start);
    dword("ErrorControl", c.errorControl);
    str("ImagePath", c.imagePath, REG_EXPAND_SZ, true);
    str("DisplayName", c.displayName, REG_SZ, true);
    str("ObjectName", c.account, REG_SZ, true);
    str("Group", c.group, REG_SZ, false);
    list("DependOnService", c.dependOnService);
    list("DependOnGroup", c.dependOnGroup);
    str("Description", c.description, REG_SZ, false);
    if (c.delayedAutostart)
        dword("DelayedAutostart", 1);
    else if (r == ERROR_SUCCESS)
        r = text::deleteValue(key, "DelayedAutostart");
    RegCloseKey(key);
    return r;
}

LONG RegistryDatabase::deleteService(const std::string &name)
{
    HKEY services;
    LONG r = text::openKey(HKEY_LOCAL_MACHINE, tsp::svc::kServicesKey, KEY_ALL_ACCESS, &services);
    if (r != ERROR_SUCCESS)
        return r;
    r = deleteTree(services, name);
    RegCloseKey(services);
    return r;
}

DWORD RegistryDatabase::readControlValue(const char *value, DWORD fallback)
{
    HKEY key;
    if (text::openKey(HKEY_LOCAL_MACHINE, tsp::svc::kControlKey, KEY_READ, &key) != ERROR_SUCCESS)
        return fallback;
    DWORD v = fallback;
    if (!text::readDword(key, value, v))
        v = fallback;
    RegCloseKey(key);
    return v;
}

} // namespace tsscm
