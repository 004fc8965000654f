// The registry calls of Advapi32 over the SQLite store (regstore.h).
#include "object.h"
#include "regstore.h"

#include <string.h>

using namespace tsp;
using namespace tsp::reg;

namespace {

// An open key: the table owns one of these per handle.
class RegKeyObject : public KernelObject {
public:
    RegKeyObject(std::shared_ptr<Store> s, KeyId k) : KernelObject(ObjectKind::RegistryKey), store(std::move(s)), id(k) {}
    const std::shared_ptr<Store> store;
    const KeyId id;
};

// A key named by a handle, held for the length of one call.
struct KeyRef {
    Store *store = nullptr;
    std::shared_ptr<Store> hold; // the store of a predefined hive
    KeyId id = 0;
    DWORD access = 0;
    bool hive = false;
    HandleRef ref;
};

// The low 32 bits of a predefined hive value, or 0. The headers define the
// hives sign-extended, as Windows does; the zero-extended form is taken too.
uint32_t hiveValue(HKEY h)
{
    uint64_t v = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(h));
    uint64_t high = v & ~static_cast<uint64_t>(0xFFFFFFFFu);
    if (high != 0 && high != ~static_cast<uint64_t>(0xFFFFFFFFu))
        return 0;
    return hiveKeyId(static_cast<uint32_t>(v)) ? static_cast<uint32_t>(v) : 0;
}

LONG resolve(HKEY h, KeyRef &k)
{
    if (uint32_t hive = hiveValue(h)) {
        LONG err = ERROR_SUCCESS;
        k.hold = Store::current(&err);
        if (!k.hold)
            return err;
        k.store = k.hold.get();
        k.id = hiveKeyId(hive);
        k.access = KEY_ALL_ACCESS;
        k.hive = true;
        return ERROR_SUCCESS;
    }
    RegKeyObject *obj = lookupAs<RegKeyObject>(reinterpret_cast<HANDLE>(h), ObjectKind::RegistryKey, k.ref);
    if (!obj)
        return ERROR_INVALID_HANDLE;
    k.store = obj->store.get();
    k.id = obj->id;
    k.access = k.ref.access();
    return ERROR_SUCCESS;
}

LONG resolveFor(HKEY h, DWORD needed, KeyRef &k)
{
    if (LONG e = resolve(h, k))
        return e;
    return (k.access & needed) == needed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

// Generic rights become the key rights they stand for.
DWORD mapAccess(REGSAM sam)
{
    DWORD a = sam & ~static_cast<DWORD>(KEY_WOW64_RES);
    if (a & GENERIC_READ)
        a |= KEY_READ;
    if (a & GENERIC_WRITE)
        a |= KEY_WRITE;
    if (a & GENERIC_EXECUTE)
        a |= KEY_EXECUTE;
    if (a & (GENERIC_ALL | MAXIMUM_ALLOWED))
        a |= KEY_ALL_ACCESS;
    return a & ~static_cast<DWORD>(GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL | MAXIMUM_ALLOWED);
}

// Splits a subkey path at "\"; empty levels are skipped.
LONG splitPath(LPCSTR sub, std::vector<std::string> &out)
{
    out.clear();
    if (!sub)
        return ERROR_SUCCESS;
    if (*sub == '\\')
        return ERROR_BAD_PATHNAME;
    const char *p = sub;
    while (*p) {
        const char *end = strchr(p, '\\');
        size_t n = end ? static_cast<size_t>(end - p) : strlen(p);
        if (n > kMaxKeyNameLength)
            return ERROR_INVALID_PARAMETER;
        if (n)
            out.emplace_back(p, n);
        p += n;
        if (*p)
            ++p;
    }
    return ERROR_SUCCESS;
}

// The key a handle names and the path of a subkey below it.
LONG resolvePath(HKEY h, LPCSTR sub, KeyRef &k, std::vector<std::string> &path)
{
    if (LONG e = resolve(h, k))
        return e;
    return splitPath(sub, path);
}

LONG newHandle(KeyRef &k, KeyId id, DWORD access, PHKEY out)
{
    std::shared_ptr<Store> store = k.hold ? k.hold : static_cast<RegKeyObject *>(k.ref.get())->store;
    HANDLE h = insertHandle(new RegKeyObject(std::move(store), id), access);
    if (!h)
        return ERROR_NOT_ENOUGH_MEMORY;
    *out = static_cast<HKEY>(h);
    return ERROR_SUCCESS;
}

void toFileTime(int64_t t, PFILETIME ft)
{
    if (ft) {
        ft->dwLowDateTime = static_cast<DWORD>(static_cast<uint64_t>(t));
        ft->dwHighDateTime = static_cast<DWORD>(static_cast<uint64_t>(t) >> 32);
    }
}

std::string valueName(LPCSTR name) { return name ? std::string(name) : std::string(); }

// Copies text with its terminator into a buffer of *cch characters; sets
// *cch to the length without the terminator. ERROR_MORE_DATA when short.
LONG copyName(const std::string &s, LPSTR buf, LPDWORD cch)
{
    if (s.size() + 1 > *cch)
        return ERROR_MORE_DATA;
    memcpy(buf, s.data(), s.size());
    buf[s.size()] = '\0';
    *cch = static_cast<DWORD>(s.size());
    return ERROR_SUCCESS;
}

// Copies value data the way RegQueryValueExA does.
LONG copyData(const std::string &data, LPBYTE buf, LPDWORD cb)
{
    DWORD size = static_cast<DWORD>(data.size());
    if (buf) {
        if (size > *cb) {
            *cb = size;
            return ERROR_MORE_DATA;
        }
        if (size)
            memcpy(buf, data.data(), size);
    }
    if (cb)
        *cb = size;
    return ERROR_SUCCESS;
}

} // namespace

extern "C" {

LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult)
{
    if (!phkResult)
        return ERROR_INVALID_PARAMETER;
    KeyRef k;
    std::vector<std::string> path;
    if (LONG e = resolvePath(hKey, lpSubKey, k, path))
        return e;
    if (path.empty() && k.hive) {
        *phkResult = hKey; // a hive opens as itself, as on Windows
        return ERROR_SUCCESS;
    }
    KeyId id;
    if (LONG e = k.store->openKey(k.id, path, &id))
        return e;
    return newHandle(k, id, mapAccess(samDesired), phkResult);
}

LSTATUS WINAPI RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD Reserved, LPSTR lpClass, DWORD dwOptions,
                               REGSAM samDesired, const LPSECURITY_ATTRIBUTES lpSecurityAttributes,
                               PHKEY phkResult, LPDWORD lpdwDisposition)
{
    if (!phkResult || (dwOptions & REG_OPTION_CREATE_LINK))
        return ERROR_INVALID_PARAMETER;
    KeyRef k;
    std::vector<std::string> path;
    if (LONG e = resolvePath(hKey, lpSubKey, k, path))
        return e;
    DWORD disposition = REG_OPENED_EXISTING_KEY;
    if (path.empty() && k.hive) {
        *phkResult = hKey;
    } else {
        std::string cls = lpClass ? std::string(lpClass) : std::string();
        KeyId id;
        if (LONG e = k.store->createKey(k.id, path, lpClass ? &cls : nullptr, (dwOptions & REG_OPTION_VOLATILE) != 0,
                                        &id, &disposition))
            return e;
        if (LONG e = newHandle(k, id, mapAccess(samDesired), phkResult))
            return e;
    }
    if (lpdwDisposition)
        *lpdwDisposition = disposition;
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegCloseKey(HKEY hKey)
{
    if (hiveValue(hKey))
        return ERROR_SUCCESS;
    {
        HandleRef ref;
        if (!lookupAs<RegKeyObject>(reinterpret_cast<HANDLE>(hKey), ObjectKind::RegistryKey, ref))
            return ERROR_INVALID_HANDLE;
    }
    return closeTableHandle(reinterpret_cast<HANDLE>(hKey)) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LSTATUS WINAPI RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcchName, LPDWORD lpReserved,
                             LPSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_ENUMERATE_SUB_KEYS, k))
        return e;
    if (!lpName || !lpcchName || (lpClass && !lpcchClass))
        return ERROR_INVALID_PARAMETER;
    std::shared_ptr<const std::vector<SubkeyEntry>> list;
    if (LONG e = k.store->subkeys(k.id, &list))
        return e;
    if (dwIndex >= list->size())
        return ERROR_NO_MORE_ITEMS;
    const SubkeyEntry &entry = (*list)[dwIndex];
    if (entry.name.size() + 1 > *lpcchName)
        return ERROR_MORE_DATA;
    if (lpClass) {
        if (LONG e = copyName(entry.cls, lpClass, lpcchClass))
            return e;
    } else if (lpcchClass) {
        *lpcchClass = static_cast<DWORD>(entry.cls.size());
    }
    copyName(entry.name, lpName, lpcchName);
    toFileTime(entry.lastWrite, lpftLastWriteTime);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegEnumKeyA(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD cchName)
{
    return RegEnumKeyExA(hKey, dwIndex, lpName, &cchName, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS WINAPI RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcchValueName,
                             LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_QUERY_VALUE, k))
        return e;
    if (!lpValueName || !lpcchValueName || (lpData && !lpcbData))
        return ERROR_INVALID_PARAMETER;
    std::shared_ptr<const std::vector<ValueEntry>> list;
    if (LONG e = k.store->values(k.id, &list))
        return e;
    if (dwIndex >= list->size())
        return ERROR_NO_MORE_ITEMS;
    const ValueEntry &entry = (*list)[dwIndex];
    if (entry.name.size() + 1 > *lpcchValueName)
        return ERROR_MORE_DATA;
    if (lpType)
        *lpType = entry.type;
    if (LONG e = copyData(entry.data, lpData, lpcbData))
        return e;
    copyName(entry.name, lpValueName, lpcchValueName);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_QUERY_VALUE, k))
        return e;
    if ((lpData && !lpcbData) || lpReserved)
        return ERROR_INVALID_PARAMETER;
    DWORD type;
    std::string data;
    if (LONG e = k.store->queryValue(k.id, valueName(lpValueName), &type, &data))
        return e;
    if (lpType)
        *lpType = type;
    return copyData(data, lpData, lpcbData);
}

LSTATUS WINAPI RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE *lpData,
                              DWORD cbData)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_SET_VALUE, k))
        return e;
    std::string name = valueName(lpValueName);
    if (name.size() > kMaxValueNameLength)
        return ERROR_INVALID_PARAMETER;
    if (!lpData && cbData)
        return ERROR_NOACCESS;
    return k.store->setValue(k.id, name, dwType, lpData, cbData);
}

LSTATUS WINAPI RegFlushKey(HKEY hKey)
{
    KeyRef k;
    if (LONG e = resolve(hKey, k))
        return e;
    // The store is one database: flushing one key flushes them all.
    return k.store->flush();
}

LSTATUS WINAPI RegDeleteValueA(HKEY hKey, LPCSTR lpValueName)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_SET_VALUE, k))
        return e;
    return k.store->deleteValue(k.id, valueName(lpValueName));
}

LSTATUS WINAPI RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey)
{
    if (!lpSubKey)
        return ERROR_INVALID_PARAMETER;
    KeyRef k;
    std::vector<std::string> path;
    if (LONG e = resolvePath(hKey, lpSubKey, k, path))
        return e;
    return k.store->deleteKey(k.id, path);
}

LSTATUS WINAPI RegQueryInfoKeyA(HKEY hKey, LPSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen,
                                LPDWORD lpcValues, LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_QUERY_VALUE, k))
        return e;
    if (lpReserved || (lpClass && !lpcchClass))
        return ERROR_INVALID_PARAMETER;
    KeyInfo info;
    if (LONG e = k.store->info(k.id, &info))
        return e;
    if (lpClass) {
        if (info.cls.size() + 1 > *lpcchClass) {
            *lpcchClass = static_cast<DWORD>(info.cls.size());
            return ERROR_MORE_DATA;
        }
        copyName(info.cls, lpClass, lpcchClass);
    } else if (lpcchClass) {
        *lpcchClass = static_cast<DWORD>(info.cls.size());
    }
    if (lpcSubKeys)
        *lpcSubKeys = info.subkeys;
    if (lpcbMaxSubKeyLen)
        *lpcbMaxSubKeyLen = info.maxSubkeyLen;
    if (lpcbMaxClassLen)
        *lpcbMaxClassLen = info.maxClassLen;
    if (lpcValues)
        *lpcValues = info.values;
    if (lpcbMaxValueNameLen)
        *lpcbMaxValueNameLen = info.maxValueNameLen;
    if (lpcbMaxValueLen)
        *lpcbMaxValueLen = info.maxValueLen;
    if (lpcbSecurityDescriptor)
        *lpcbSecurityDescriptor = 0;
    toFileTime(info.lastWrite, lpftLastWriteTime);
    return ERROR_SUCCESS;
}

} // extern "C"
