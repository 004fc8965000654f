// RegistryKey: a registry key as an object. It owns one open handle at
// most, opens it on demand (a key built under a parent key opens the parent
// first, and so up the chain), walks the key's subkeys and values, and
// gives its handle to the values and subkeys built under it. It creates
// nothing in the registry: it opens keys that exist (SetRegDB in RegDB.h
// makes keys).
//
// The enumerations return the platform's status unchanged: 0, or
// ERROR_NO_MORE_ITEMS past the last entry, or another error (a name that
// does not fit the capacity, terminator included; a key that cannot be
// opened). Their first argument is the caller's cursor, the index that the
// next GetNext... call fetches: GetStart... fetches index 0 and leaves 1,
// GetNext... fetches the cursor's index and adds one; any failure leaves 0,
// so a walk that goes on past its end starts over. The CString forms use a
// buffer of regEntryNameDefaultMaxLength bytes and leave the string empty
// on any failure.
//
// Threads: GetHandle and the enumerations may share a key; the first
// opening on demand is safe when several threads race to it (one handle
// wins, the others are closed). Open and Close belong to one thread at a
// time.
#pragma once

#include "RegEntry.h"

#include <afx.h>

class TSUTIL_API RegistryKey : public RegistryEntry {
public:
    // A placeholder with KEY_READ: it has no path and never opens.
    RegistryKey();
    // By name below defaultBaseHive, under the default path when
    // underDefaultPath is TRUE (see RegistryEntry); an empty name with TRUE
    // is the default parent key itself. access: the rights asked for at
    // the open (KEY_READ, KEY_ALL_ACCESS, ...), passed on unchanged.
    RegistryKey(char const *name, unsigned long access, BOOLTYPE underDefaultPath);
    RegistryKey(HKEY hive, char const *name, unsigned long access, BOOLTYPE underDefaultPath);
    // The subkey name of parent (not owned; it must outlive every open of
    // this key). An empty name is the parent's own key, opened by its path
    // through a handle of its own.
    RegistryKey(char const *name, RegistryKey &parent, unsigned long access);
    // Closes this key's handle, if it holds one; never the parent's.
    virtual ~RegistryKey();

    // Opens the key (an open key first gives up its earlier handle). TRUE
    // when the platform opened it; FALSE when the key or a parent is
    // missing, the rights are refused, or the key is a placeholder.
    BOOLTYPE Open();
    // Closes the handle; the key can be opened again. FALSE when the
    // platform refused, also for a key that is not open.
    BOOLTYPE Close();
    // The open handle, opening the key first if needed;
    // HANDLE_NOT_AVAIL when it cannot be opened (the next call tries again).
    HKEY GetHandle();

    // The walks of the subkeys and of the values, by cursor (see the top of
    // this header): the platform's status, the name in name.
    int GetStartSubkey(unsigned int *cursor, char *name, unsigned int capacity);
    int GetStartSubkey(unsigned int *cursor, CString *name);
    int GetNextSubkey(unsigned int *cursor, char *name, unsigned int capacity);
    int GetNextSubkey(unsigned int *cursor, CString *name);
    int GetStartValue(unsigned int *cursor, char *name, unsigned int capacity);
    int GetStartValue(unsigned int *cursor, CString *name);
    int GetNextValue(unsigned int *cursor, char *name, unsigned int capacity);
    int GetNextValue(unsigned int *cursor, CString *name);

private:
    // One step of a walk: entry index of subkeys or of values into name.
    int Enumerate(bool values, unsigned int index, unsigned int *cursor, char *name, unsigned int capacity);
    int Enumerate(bool values, unsigned int index, unsigned int *cursor, CString *name);
    // A new handle to this key, or HANDLE_NOT_AVAIL with the status.
    HKEY OpenNew(LONG &status);

    std::atomic<HKEY> handle;
    unsigned long accessMask;
};
static_assert(sizeof(std::atomic<HKEY>) == sizeof(HKEY), "the handle cell is one handle wide");
