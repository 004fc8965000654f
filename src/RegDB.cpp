// SetRegDB and qryRegDB: one value per call, on a key of the call's own.
#include "RegDB.h"

#include <string.h>

#include <cassert>

namespace {

// A key handle of one call, closed on every way out.
class CallKey {
public:
    CallKey() = default;
    ~CallKey()
    {
        if (handle) {
            [[maybe_unused]] LONG status = RegCloseKey(handle);
            assert(status == ERROR_SUCCESS); // the call's own open handle
        }
    }
    CallKey(CallKey const &) = delete;
    CallKey &operator=(CallKey const &) = delete;

    HKEY handle = nullptr;
};

int Write(CString &subkeyPath, CString &valueName, DWORD type, char const *keyClass, void const *data, DWORD count,
          HKEY hive)
{
    CallKey key;
    DWORD disposition;
    if (RegCreateKeyExA(hive, subkeyPath, 0, const_cast<LPSTR>(keyClass), 0, KEY_ALL_ACCESS, nullptr, &key.handle,
                        &disposition) != ERROR_SUCCESS)
        return 0;
    // 1 says that the key could be opened or made; a refused write is not
    // reported.
    RegSetValueExA(key.handle, valueName, 0, type, static_cast<BYTE const *>(data), count);
    return 1;
}

// Opens the call's key, never creating it; false when it cannot be opened.
bool OpenForCall(CString &subkeyPath, HKEY hive, CallKey &key)
{
    return RegOpenKeyExA(hive, subkeyPath, 0, KEY_ALL_ACCESS, &key.handle) == ERROR_SUCCESS;
}

// Reads the value into count bytes at data. On failure the size cell gets
// the error number, through the thread's last error so that it is the
// read's own status.
bool Query(CallKey &key, CString &valueName, void *data, DWORD &count, DWORD &type, unsigned long *size)
{
    LONG status = RegQueryValueExA(key.handle, valueName, nullptr, &type, static_cast<BYTE *>(data), &count);
    if (status == ERROR_SUCCESS)
        return true;
    SetLastError(static_cast<DWORD>(status));
    *size = GetLastError();
    return false;
}

} // namespace

int SetRegDB(CString &subkeyPath, CString &valueName, unsigned long type, CString &value, HKEY hive)
{
    char const *keyClass = type == REG_SZ ? "REG_SZ" : type == REG_EXPAND_SZ ? "REG_EXPAND_SZ" : nullptr;
    if (!keyClass)
        return 0;
    return Write(subkeyPath, valueName, static_cast<DWORD>(type), keyClass, static_cast<char const *>(value),
                 static_cast<DWORD>(value.GetLength()) + 1, hive);
}

int SetRegDB(CString &subkeyPath, CString &valueName, unsigned long type, unsigned long &value, HKEY hive)
{
    if (type != REG_DWORD)
        return 0;
    DWORD number = static_cast<DWORD>(value); // the stored word is 32 bits wherever long is wider
    return Write(subkeyPath, valueName, REG_DWORD, "REG_DWORD", &number, 4, hive);
}

int qryRegDB(CString &subkeyPath, CString &valueName, CString &value, unsigned long *size, unsigned long *type,
             HKEY hive)
{
    const int kRoom = 1024;
    if (!size || !type)
        return 0;
    *size = kRoom;
    CallKey key; // opened before the string is touched
    if (!OpenForCall(subkeyPath, hive, key))
        return 0;
    char *buffer;
    try {
        buffer = value.GetBufferSetLength(kRoom);
    } catch (CException *e) {
        e->Delete();
        return 0;
    }
    DWORD count = kRoom, found = REG_NONE;
    if (!Query(key, valueName, buffer, count, found, size)) {
        value.ReleaseBuffer(0);
        return 0;
    }
    *type = found;
    if (found != REG_SZ && found != REG_EXPAND_SZ) {
        value.ReleaseBuffer(0);
        *size = 0;
        return 0;
    }
    buffer[count] = 0; // text stored without a terminator ends here
    value.ReleaseBuffer(-1);
    *size = count;
    return 1;
}

int qryRegDB(CString &subkeyPath, CString &valueName, unsigned long *value, unsigned long *size, unsigned long *type,
             HKEY hive)
{
    if (!value || !size || !type)
        return 0;
    *size = 4;
    DWORD number = 0, count = 4, found = REG_NONE;
    CallKey key;
    if (!OpenForCall(subkeyPath, hive, key) || !Query(key, valueName, &number, count, found, size))
        return 0;
    *type = found;
    if (found != REG_DWORD) {
        *value = 0;
        *size = 0;
        return 0;
    }
    *value = number;
    *size = count;
    return 1;
}

int qryRegDB(CString &subkeyPath, CString &valueName, unsigned char *data, unsigned long *size, unsigned long *type,
             HKEY hive)
{
    if (!data || !size || !type || *size == 0)
        return 0;
    DWORD count = *size > 0xFFFFFFFFul ? 0xFFFFFFFFu : static_cast<DWORD>(*size);
    DWORD found = REG_NONE;
    CallKey key;
    if (!OpenForCall(subkeyPath, hive, key) || !Query(key, valueName, data, count, found, size))
        return 0;
    *type = found;
    if (found != REG_BINARY) {
        memset(data, 0, count);
        *size = 0;
        return 0;
    }
    *size = count;
    return 1;
}
