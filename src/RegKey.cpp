// RegistryKey: opening on demand, closing, and the enumeration cursors.
#include "RegKey.h"

#include <cassert>

namespace {

// Closes a handle that this key opened and holds alone: the platform has
// no reason to refuse that.
void CloseOwned(HKEY key)
{
    [[maybe_unused]] LONG status = RegCloseKey(key);
    assert(status == ERROR_SUCCESS);
}

} // namespace

RegistryKey::RegistryKey() : RegistryEntry(), handle(HANDLE_NOT_AVAIL), accessMask(KEY_READ) {}

RegistryKey::RegistryKey(char const *name, unsigned long access, BOOLTYPE underDefaultPath)
    : RegistryEntry(name, underDefaultPath), handle(HANDLE_NOT_AVAIL), accessMask(access)
{
}

RegistryKey::RegistryKey(HKEY hive, char const *name, unsigned long access, BOOLTYPE underDefaultPath)
    : RegistryEntry(hive, name, underDefaultPath), handle(HANDLE_NOT_AVAIL), accessMask(access)
{
}

RegistryKey::RegistryKey(char const *name, RegistryKey &parent, unsigned long access)
    : RegistryEntry(name, parent), handle(HANDLE_NOT_AVAIL), accessMask(access)
{
}

RegistryKey::~RegistryKey()
{
    if (handle.load() != HANDLE_NOT_AVAIL)
        Close();
}

HKEY RegistryKey::OpenNew(LONG &status)
{
    HKEY opened = HANDLE_NOT_AVAIL;
    if (!localName) {
        status = ERROR_INVALID_HANDLE; // a placeholder names no key
        return HANDLE_NOT_AVAIL;
    }
    if (parentKeyPtr && *localName) {
        // Opens the parent first if it is not open yet, and so up the chain.
        HKEY parentHandle = parentKeyPtr->GetHandle();
        if (parentHandle == HANDLE_NOT_AVAIL) {
            status = ERROR_INVALID_HANDLE;
            return HANDLE_NOT_AVAIL;
        }
        status = RegOpenKeyExA(parentHandle, localName, 0, accessMask, &opened);
    } else {
        // By the full path from the hive; a key with a parent and an empty
        // name leaves the parent object alone.
        char const *path = GetFullPath();
        if (!path) {
            status = ERROR_NOT_ENOUGH_MEMORY;
            return HANDLE_NOT_AVAIL;
        }
        status = RegOpenKeyExA(baseHive, path, 0, accessMask, &opened);
    }
    return status == ERROR_SUCCESS ? opened : HANDLE_NOT_AVAIL;
}

BOOLTYPE RegistryKey::Open()
{
    LONG status;
    HKEY opened = OpenNew(status);
    if (opened == HANDLE_NOT_AVAIL)
        return FALSE;
    // An open key gives up its earlier handle rather than leaking it.
    if (HKEY earlier = handle.exchange(opened))
        CloseOwned(earlier);
    return TRUE;
}

BOOLTYPE RegistryKey::Close()
{
    HKEY held = handle.exchange(HANDLE_NOT_AVAIL);
    return RegCloseKey(held) == ERROR_SUCCESS ? TRUE : FALSE;
}

HKEY RegistryKey::GetHandle()
{
    HKEY current = handle.load(std::memory_order_acquire);
    if (current != HANDLE_NOT_AVAIL)
        return current;
    LONG status;
    HKEY opened = OpenNew(status);
    if (opened == HANDLE_NOT_AVAIL)
        return HANDLE_NOT_AVAIL;
    if (handle.compare_exchange_strong(current, opened, std::memory_order_acq_rel))
        return opened;
    CloseOwned(opened); // another thread opened the key first: use its handle
    return current;
}

int RegistryKey::Enumerate(bool values, unsigned int index, unsigned int *cursor, char *name, unsigned int capacity)
{
    if (!cursor)
        return ERROR_INVALID_PARAMETER;
    LONG status;
    if (!name) {
        status = ERROR_INVALID_PARAMETER;
    } else if (values) {
        DWORD room = capacity; // the platform overwrites its copy, never the caller's number
        status = RegEnumValueA(GetHandle(), index, name, &room, nullptr, nullptr, nullptr, nullptr);
    } else {
        status = RegEnumKeyA(GetHandle(), index, name, capacity);
    }
    *cursor = status == ERROR_SUCCESS ? index + 1 : 0;
    return static_cast<int>(status);
}

int RegistryKey::Enumerate(bool values, unsigned int index, unsigned int *cursor, CString *name)
{
    if (!name)
        return Enumerate(values, index, cursor, static_cast<char *>(nullptr), 0);
    int capacity = regEntryNameDefaultMaxLength;
    if (capacity < 0)
        capacity = 0; // the platform then refuses the empty buffer
    char *buffer;
    try {
        buffer = name->GetBuffer(capacity);
    } catch (CException *e) {
        e->Delete();
        name->Empty();
        if (cursor)
            *cursor = 0;
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    int status = Enumerate(values, index, cursor, buffer, static_cast<unsigned int>(capacity));
    name->ReleaseBuffer(status == ERROR_SUCCESS ? -1 : 0);
    return status;
}

int RegistryKey::GetStartSubkey(unsigned int *cursor, char *name, unsigned int capacity)
{
    return Enumerate(false, 0, cursor, name, capacity);
}

int RegistryKey::GetStartSubkey(unsigned int *cursor, CString *name) { return Enumerate(false, 0, cursor, name); }

int RegistryKey::GetNextSubkey(unsigned int *cursor, char *name, unsigned int capacity)
{
    return Enumerate(false, cursor ? *cursor : 0, cursor, name, capacity);
}

int RegistryKey::GetNextSubkey(unsigned int *cursor, CString *name)
{
    return Enumerate(false, cursor ? *cursor : 0, cursor, name);
}

int RegistryKey::GetStartValue(unsigned int *cursor, char *name, unsigned int capacity)
{
    return Enumerate(true, 0, cursor, name, capacity);
}

int RegistryKey::GetStartValue(unsigned int *cursor, CString *name) { return Enumerate(true, 0, cursor, name); }

int RegistryKey::GetNextValue(unsigned int *cursor, char *name, unsigned int capacity)
{
    return Enumerate(true, cursor ? *cursor : 0, cursor, name, capacity);
}

int RegistryKey::GetNextValue(unsigned int *cursor, CString *name)
{
    return Enumerate(true, cursor ? *cursor : 0, cursor, name);
}
