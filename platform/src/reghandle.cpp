// Registry keys named by handles.
#include "reghandle.h"

namespace tsp {
namespace reg {

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

namespace {

// Splits a subkey path at "\"; empty levels are skipped.
LONG splitPath(const Name &sub, std::vector<Name> &out)
{
    out.clear();
    if (!sub.empty() && sub[0] == u'\\')
        return ERROR_BAD_PATHNAME;
    size_t p = 0;
    while (p < sub.size()) {
        size_t end = sub.find(u'\\', p);
        size_t n = (end == Name::npos ? sub.size() : end) - p;
        if (n > kMaxKeyNameLength)
            return ERROR_INVALID_PARAMETER;
        if (n)
            out.push_back(sub.substr(p, n));
        p += n + 1;
    }
    return ERROR_SUCCESS;
}

} // namespace

LONG resolvePath(HKEY h, const Name &sub, KeyRef &k, std::vector<Name> &path)
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

} // namespace reg
} // namespace tsp
