// The registry calls of Advapi32 over the SQLite store (regstore.h): the W
// calls on UTF-16, the A calls converting around them (regtext.h).
#include "reghandle.h"
#include "regsql.h"
#include "regtext.h"

#include <string.h>

using namespace tsp;
using namespace tsp::reg;

namespace {

void toFileTime(int64_t t, PFILETIME ft)
{
    if (ft) {
        ft->dwLowDateTime = static_cast<DWORD>(static_cast<uint64_t>(t));
        ft->dwHighDateTime = static_cast<DWORD>(static_cast<uint64_t>(t) >> 32);
    }
}

// Copies text with its terminator into a buffer of *cch characters; sets
// *cch to the length without the terminator. ERROR_MORE_DATA when short.
template <class Ch, class Text> LONG copyName(const Text &s, Ch *buf, LPDWORD cch)
{
    if (s.size() + 1 > *cch)
        return ERROR_MORE_DATA;
    memcpy(buf, s.data(), s.size() * sizeof(Ch));
    buf[s.size()] = 0;
    *cch = static_cast<DWORD>(s.size());
    return ERROR_SUCCESS;
}

// Copies value data the way RegQueryValueEx does.
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

// The calls' work on UTF-16 names; the A and W calls convert around them.
LONG openKey(HKEY hKey, const Name &sub, REGSAM sam, PHKEY out)
{
    if (!out)
        return ERROR_INVALID_PARAMETER;
    KeyRef k;
    std::vector<Name> path;
    if (LONG e = resolvePath(hKey, sub, k, path))
        return e;
    if (path.empty() && k.hive) {
        *out = hKey; // a hive opens as itself, as on Windows
        return ERROR_SUCCESS;
    }
    KeyId id;
    if (LONG e = k.store->openKey(k.id, path, &id))
        return e;
    return newHandle(k, id, mapAccess(sam), out);
}

LONG createKey(HKEY hKey, const Name &sub, const Name *cls, DWORD options, REGSAM sam, PHKEY out,
               LPDWORD dispositionOut)
{
    if (!out || (options & REG_OPTION_CREATE_LINK))
        return ERROR_INVALID_PARAMETER;
    KeyRef k;
    std::vector<Name> path;
    if (LONG e = resolvePath(hKey, sub, k, path))
        return e;
    DWORD disposition = REG_OPENED_EXISTING_KEY;
    if (path.empty() && k.hive) {
        *out = hKey;
    } else {
        KeyId id;
        if (LONG e = k.store->createKey(k.id, path, cls, (options & REG_OPTION_VOLATILE) != 0, &id, &disposition))
            return e;
        if (LONG e = newHandle(k, id, mapAccess(sam), out))
            return e;
    }
    if (dispositionOut)
        *dispositionOut = disposition;
    return ERROR_SUCCESS;
}

// The entry at index of a key's subkeys or values, read through a handle
// with the access that the listing needs.
template <class Entry>
LONG entryAt(HKEY hKey, DWORD index, DWORD access,
             LONG (Store::*listing)(KeyId, std::shared_ptr<const std::vector<Entry>> *), const Entry **entry,
             std::shared_ptr<const std::vector<Entry>> &list)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, access, k))
        return e;
    if (LONG e = (k.store->*listing)(k.id, &list))
        return e;
    if (index >= list->size())
        return ERROR_NO_MORE_ITEMS;
    *entry = &(*list)[index];
    return ERROR_SUCCESS;
}

// The conversions of names and data for the W calls (none) and the A calls.
const Name &asStored(const Name &s) { return s; }
std::string narrowName(const Name &s) { return narrow(s); }
const std::string &dataAsStored(DWORD, const std::string &data) { return data; }

template <class Ch, class Convert>
LONG enumSubkey(HKEY hKey, DWORD index, Ch *lpName, LPDWORD lpcchName, Ch *lpClass, LPDWORD lpcchClass,
                PFILETIME lpftLastWriteTime, Convert text)
{
    const SubkeyEntry *e = nullptr;
    std::shared_ptr<const std::vector<SubkeyEntry>> list;
    if (LONG r = entryAt(hKey, index, KEY_ENUMERATE_SUB_KEYS, &Store::subkeys, &e, list))
        return r;
    if (!lpName || !lpcchName || (lpClass && !lpcchClass))
        return ERROR_INVALID_PARAMETER;
    auto name = text(e->name);
    if (name.size() + 1 > *lpcchName)
        return ERROR_MORE_DATA;
    if (lpClass) {
        if (LONG r = copyName(text(e->cls), lpClass, lpcchClass))
            return r;
    } else if (lpcchClass) {
        *lpcchClass = static_cast<DWORD>(text(e->cls).size());
    }
    copyName(name, lpName, lpcchName);
    toFileTime(e->lastWrite, lpftLastWriteTime);
    return ERROR_SUCCESS;
}

template <class Ch, class Convert, class ConvertData>
LONG enumValue(HKEY hKey, DWORD index, Ch *lpValueName, LPDWORD lpcchValueName, LPDWORD lpType, LPBYTE lpData,
               LPDWORD lpcbData, Convert text, ConvertData dataOf)
{
    const ValueEntry *e = nullptr;
    std::shared_ptr<const std::vector<ValueEntry>> list;
    if (LONG r = entryAt(hKey, index, KEY_QUERY_VALUE, &Store::values, &e, list))
        return r;
    if (!lpValueName || !lpcchValueName || (lpData && !lpcbData))
        return ERROR_INVALID_PARAMETER;
    auto name = text(e->name);
    if (name.size() + 1 > *lpcchValueName)
        return ERROR_MORE_DATA;
    if (lpType)
        *lpType = e->type;
    if (LONG r = copyData(dataOf(e->type, e->data), lpData, lpcbData))
        return r;
    copyName(name, lpValueName, lpcchValueName);
    return ERROR_SUCCESS;
}

LONG queryValue(HKEY hKey, const Name &name, LPDWORD lpReserved, DWORD *type, std::string *data)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_QUERY_VALUE, k))
        return e;
    if (lpReserved)
        return ERROR_INVALID_PARAMETER;
    return k.store->queryValue(k.id, name, type, data);
}

LONG setValue(HKEY hKey, const Name &name, DWORD type, const void *data, size_t size)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_SET_VALUE, k))
        return e;
    if (name.size() > kMaxValueNameLength)
        return ERROR_INVALID_PARAMETER;
    return k.store->setValue(k.id, name, type, data, size);
}

LONG deleteValue(HKEY hKey, const Name &name)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_SET_VALUE, k))
        return e;
    return k.store->deleteValue(k.id, name);
}

LONG deleteKey(HKEY hKey, const Name &sub)
{
    KeyRef k;
    std::vector<Name> path;
    if (LONG e = resolvePath(hKey, sub, k, path))
        return e;
    return k.store->deleteKey(k.id, path);
}

template <class Ch, class Text>
LONG queryInfo(const KeyInfo &info, const Text &cls, Ch *lpClass, LPDWORD lpcchClass, LPDWORD lpcSubKeys,
               LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen, LPDWORD lpcValues, LPDWORD lpcbMaxValueNameLen,
               LPDWORD lpcbMaxValueLen, LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime)
{
    if (lpClass) {
        if (cls.size() + 1 > *lpcchClass) {
            *lpcchClass = static_cast<DWORD>(cls.size());
            return ERROR_MORE_DATA;
        }
        copyName(cls, lpClass, lpcchClass);
    } else if (lpcchClass) {
        *lpcchClass = static_cast<DWORD>(cls.size());
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

LONG keyInfo(HKEY hKey, LPDWORD lpReserved, bool classWanted, LPDWORD lpcchClass, KeyInfo *info)
{
    KeyRef k;
    if (LONG e = resolveFor(hKey, KEY_QUERY_VALUE, k))
        return e;
    if (lpReserved || (classWanted && !lpcchClass))
        return ERROR_INVALID_PARAMETER;
    return k.store->info(k.id, info);
}

} // namespace

extern "C" {

LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, REGSAM samDesired, PHKEY phkResult)
{
    return openKey(hKey, nameOfW(lpSubKey), samDesired, phkResult);
}

LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD, REGSAM samDesired, PHKEY phkResult)
{
    Name sub;
    widenName(lpSubKey, sub);
    return openKey(hKey, sub, samDesired, phkResult);
}

LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, LPWSTR lpClass, DWORD dwOptions,
                               REGSAM samDesired, const LPSECURITY_ATTRIBUTES, PHKEY phkResult,
                               LPDWORD lpdwDisposition)
{
    Name cls = nameOfW(lpClass);
    return createKey(hKey, nameOfW(lpSubKey), lpClass ? &cls : nullptr, dwOptions, samDesired, phkResult,
                     lpdwDisposition);
}

LSTATUS WINAPI RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD, LPSTR lpClass, DWORD dwOptions,
                               REGSAM samDesired, const LPSECURITY_ATTRIBUTES, PHKEY phkResult,
                               LPDWORD lpdwDisposition)
{
    Name sub, cls;
    widenName(lpSubKey, sub);
    bool hasClass = widenName(lpClass, cls);
    return createKey(hKey, sub, hasClass ? &cls : nullptr, dwOptions, samDesired, phkResult, lpdwDisposition);
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

LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD,
                             LPWSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime)
{
    return enumSubkey(hKey, dwIndex, reinterpret_cast<char16_t *>(lpName), lpcchName,
                      reinterpret_cast<char16_t *>(lpClass), lpcchClass, lpftLastWriteTime, asStored);
}

LSTATUS WINAPI RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcchName, LPDWORD,
                             LPSTR lpClass, LPDWORD lpcchClass, PFILETIME lpftLastWriteTime)
{
    return enumSubkey(hKey, dwIndex, lpName, lpcchName, lpClass, lpcchClass, lpftLastWriteTime, narrowName);
}

LSTATUS WINAPI RegEnumKeyA(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD cchName)
{
    return RegEnumKeyExA(hKey, dwIndex, lpName, &cchName, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName, LPDWORD,
                             LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData)
{
    return enumValue(hKey, dwIndex, reinterpret_cast<char16_t *>(lpValueName), lpcchValueName, lpType, lpData,
                     lpcbData, asStored, dataAsStored);
}

LSTATUS WINAPI RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcchValueName, LPDWORD,
                             LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData)
{
    return enumValue(hKey, dwIndex, lpValueName, lpcchValueName, lpType, lpData, lpcbData, narrowName, dataToAnsi);
}

LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData)
{
    if (lpData && !lpcbData)
        return ERROR_INVALID_PARAMETER;
    DWORD type;
    std::string data;
    if (LONG e = queryValue(hKey, nameOfW(lpValueName), lpReserved, &type, &data))
        return e;
    if (lpType)
        *lpType = type;
    return copyData(data, lpData, lpcbData);
}

LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                                LPDWORD lpcbData)
{
    if (lpData && !lpcbData)
        return ERROR_INVALID_PARAMETER;
    Name name;
    widenName(lpValueName, name);
    DWORD type;
    std::string data;
    if (LONG e = queryValue(hKey, name, lpReserved, &type, &data))
        return e;
    if (lpType)
        *lpType = type;
    return copyData(dataToAnsi(type, data), lpData, lpcbData);
}

LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD, DWORD dwType, const BYTE *lpData,
                              DWORD cbData)
{
    if (!lpData && cbData)
        return ERROR_NOACCESS;
    return setValue(hKey, nameOfW(lpValueName), dwType, lpData, cbData);
}

LSTATUS WINAPI RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD, DWORD dwType, const BYTE *lpData,
                              DWORD cbData)
{
    if (!lpData && cbData)
        return ERROR_NOACCESS;
    Name name;
    widenName(lpValueName, name);
    if (!isStringType(dwType))
        return setValue(hKey, name, dwType, lpData, cbData);
    std::string data = dataFromAnsi(lpData, cbData);
    return setValue(hKey, name, dwType, data.data(), data.size());
}

LSTATUS WINAPI RegFlushKey(HKEY hKey)
{
    KeyRef k;
    if (LONG e = resolve(hKey, k))
        return e;
    // The store is one database: flushing one key flushes them all.
    return k.store->flush();
}

LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) { return deleteValue(hKey, nameOfW(lpValueName)); }

LSTATUS WINAPI RegDeleteValueA(HKEY hKey, LPCSTR lpValueName)
{
    Name name;
    widenName(lpValueName, name);
    return deleteValue(hKey, name);
}

LSTATUS WINAPI RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey)
{
    if (!lpSubKey)
        return ERROR_INVALID_PARAMETER;
    return deleteKey(hKey, nameOfW(lpSubKey));
}

LSTATUS WINAPI RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey)
{
    Name sub;
    if (!widenName(lpSubKey, sub))
        return ERROR_INVALID_PARAMETER;
    return deleteKey(hKey, sub);
}

LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen,
                                LPDWORD lpcValues, LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime)
{
    KeyInfo info;
    if (LONG e = keyInfo(hKey, lpReserved, lpClass != nullptr, lpcchClass, &info))
        return e;
    return queryInfo(info, info.cls, reinterpret_cast<char16_t *>(lpClass), lpcchClass, lpcSubKeys,
                     lpcbMaxSubKeyLen, lpcbMaxClassLen, lpcValues, lpcbMaxValueNameLen, lpcbMaxValueLen,
                     lpcbSecurityDescriptor, lpftLastWriteTime);
}

// The lengths are those of the stored names, in units, and the data sizes
// those of the stored bytes, as on Windows.
LSTATUS WINAPI RegQueryInfoKeyA(HKEY hKey, LPSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen,
                                LPDWORD lpcValues, LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime)
{
    KeyInfo info;
    if (LONG e = keyInfo(hKey, lpReserved, lpClass != nullptr, lpcchClass, &info))
        return e;
    return queryInfo(info, narrow(info.cls), lpClass, lpcchClass, lpcSubKeys, lpcbMaxSubKeyLen,
                     lpcbMaxClassLen, lpcValues, lpcbMaxValueNameLen, lpcbMaxValueLen, lpcbSecurityDescriptor,
                     lpftLastWriteTime);
}

} // extern "C"
