// Registry keys named by handles: the predefined hives, the handle table's
// key objects, the access they were opened with, and subkey paths below
// them.
#pragma once

#include "object.h"
#include "regstore.h"

#include <memory>
#include <vector>

namespace tsp {
namespace reg {

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
uint32_t hiveValue(HKEY h);
// The key a handle names; ERROR_INVALID_HANDLE for no key.
LONG resolve(HKEY h, KeyRef &k);
// As resolve, and ERROR_ACCESS_DENIED when the handle lacks needed.
LONG resolveFor(HKEY h, DWORD needed, KeyRef &k);
// Generic rights become the key rights they stand for.
DWORD mapAccess(REGSAM sam);
// The key a handle names and the levels of a subkey path below it, split
// at "\" with empty levels skipped: ERROR_BAD_PATHNAME for a leading "\",
// ERROR_INVALID_PARAMETER for a level longer than kMaxKeyNameLength.
LONG resolvePath(HKEY h, const Name &sub, KeyRef &k, std::vector<Name> &path);
// A new handle to key id of k's store.
LONG newHandle(KeyRef &k, KeyId id, DWORD access, PHKEY out);

} // namespace reg
} // namespace tsp
