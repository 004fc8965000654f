/* Advapi32 registry subset. The keys live in one SQLite database per
 * machine root ($TSUTIL_ROOT/registry.db), shared by every process of that
 * root; each write is a committed transaction when the call returns (see
 * RegFlushKey for when it is on disk). Results are the Win32 error numbers
 * the calls return on Windows.
 *
 * Names: a key name is at most 255 characters, a value name at most 16383;
 * "\" separates the levels of a path ("/" is an ordinary character), a path
 * must not start with "\", and empty levels are skipped. Names keep their
 * case and compare without it (ASCII letters; other bytes compare exactly).
 * Subkeys enumerate sorted by their upper-case names, values in the order
 * they were first created. The six predefined hives are separate roots.
 *
 * Handles: an opened key is a handle of the process table (counted by
 * GetProcessHandleCount); the predefined hive values are not in the table.
 * The null handle and unknown values fail with ERROR_INVALID_HANDLE. A key
 * deleted while a handle is open on it makes every call through that handle
 * but RegCloseKey fail with ERROR_KEY_DELETED. Access masks are honoured:
 * reading values (RegQueryValueExA, RegEnumValueA, RegQueryInfoKeyA) needs
 * KEY_QUERY_VALUE, RegEnumKey(Ex)A KEY_ENUMERATE_SUB_KEYS, RegSetValueExA
 * and RegDeleteValueA KEY_SET_VALUE; otherwise ERROR_ACCESS_DENIED. As on
 * Windows, creating or deleting a subkey is not limited by the access of
 * the parent's handle. */
#ifndef TSPLATFORM_WINREG_H
#define TSPLATFORM_WINREG_H

#include "windef.h"

typedef LONG LSTATUS;
typedef DWORD REGSAM;
typedef DWORD ACCESS_MASK;

#define HKEY_CLASSES_ROOT           ((HKEY)(ULONG_PTR)((LONG)0x80000000))
#define HKEY_CURRENT_USER           ((HKEY)(ULONG_PTR)((LONG)0x80000001))
#define HKEY_LOCAL_MACHINE          ((HKEY)(ULONG_PTR)((LONG)0x80000002))
#define HKEY_USERS                  ((HKEY)(ULONG_PTR)((LONG)0x80000003))
#define HKEY_PERFORMANCE_DATA       ((HKEY)(ULONG_PTR)((LONG)0x80000004))
#define HKEY_CURRENT_CONFIG         ((HKEY)(ULONG_PTR)((LONG)0x80000005))
#define HKEY_DYN_DATA               ((HKEY)(ULONG_PTR)((LONG)0x80000006))

/* Value types. */
#define REG_NONE                        0
#define REG_SZ                          1
#define REG_EXPAND_SZ                   2
#define REG_BINARY                      3
#define REG_DWORD                       4
#define REG_DWORD_LITTLE_ENDIAN         4
#define REG_DWORD_BIG_ENDIAN            5
#define REG_LINK                        6
#define REG_MULTI_SZ                    7
#define REG_RESOURCE_LIST               8
#define REG_FULL_RESOURCE_DESCRIPTOR    9
#define REG_RESOURCE_REQUIREMENTS_LIST  10
#define REG_QWORD                       11
#define REG_QWORD_LITTLE_ENDIAN         11

/* Access rights of a key handle (the standard and generic rights are in
 * windef.h). */
#ifndef STANDARD_RIGHTS_READ
#define STANDARD_RIGHTS_READ        READ_CONTROL
#define STANDARD_RIGHTS_WRITE       READ_CONTROL
#define STANDARD_RIGHTS_EXECUTE     READ_CONTROL
#endif
#ifndef MAXIMUM_ALLOWED
#define MAXIMUM_ALLOWED             0x02000000L
#endif
#define KEY_QUERY_VALUE             0x0001
#define KEY_SET_VALUE               0x0002
#define KEY_CREATE_SUB_KEY          0x0004
#define KEY_ENUMERATE_SUB_KEYS      0x0008
#define KEY_NOTIFY                  0x0010
#define KEY_CREATE_LINK             0x0020
#define KEY_WOW64_32KEY             0x0200
#define KEY_WOW64_64KEY             0x0100
#define KEY_WOW64_RES               0x0300
#define KEY_READ    ((STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY) & (~SYNCHRONIZE))
#define KEY_WRITE   ((STANDARD_RIGHTS_WRITE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY) & (~SYNCHRONIZE))
#define KEY_EXECUTE ((KEY_READ) & (~SYNCHRONIZE))
#define KEY_ALL_ACCESS ((STANDARD_RIGHTS_ALL | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | \
                         KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY | KEY_CREATE_LINK) & (~SYNCHRONIZE))

/* Options of RegCreateKeyExA. A volatile key lasts until the machine
 * restarts (on POSIX: until the boot id of the system changes); a
 * non-volatile key cannot be made below it (ERROR_CHILD_MUST_BE_VOLATILE).
 * Links are not supported here (ERROR_INVALID_PARAMETER). */
#define REG_OPTION_RESERVED         0x00000000L
#define REG_OPTION_NON_VOLATILE     0x00000000L
#define REG_OPTION_VOLATILE         0x00000001L
#define REG_OPTION_CREATE_LINK      0x00000002L
#define REG_OPTION_BACKUP_RESTORE   0x00000004L
#define REG_OPTION_OPEN_LINK        0x00000008L
#define REG_LEGAL_OPTION            (REG_OPTION_RESERVED | REG_OPTION_NON_VOLATILE | REG_OPTION_VOLATILE | \
                                     REG_OPTION_CREATE_LINK | REG_OPTION_BACKUP_RESTORE | REG_OPTION_OPEN_LINK)

/* Dispositions of RegCreateKeyExA. */
#define REG_CREATED_NEW_KEY         0x00000001L
#define REG_OPENED_EXISTING_KEY     0x00000002L

TS_EXTERN_C_BEGIN

/* Opens lpSubKey below hKey; never creates. An empty or null subkey gives a
 * new handle to hKey's own key (for a predefined hive, the hive value
 * itself). ERROR_FILE_NOT_FOUND when a level is missing, ERROR_BAD_PATHNAME
 * for a leading "\", ERROR_INVALID_PARAMETER for a null phkResult. */
WINBASEAPI LSTATUS WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                                        PHKEY phkResult);

/* Opens lpSubKey below hKey, creating every missing level in one
 * transaction; the class text is recorded for the keys it creates only.
 * *lpdwDisposition (may be null) tells REG_CREATED_NEW_KEY or
 * REG_OPENED_EXISTING_KEY. lpSecurityAttributes is ignored. */
WINBASEAPI LSTATUS WINAPI RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD Reserved, LPSTR lpClass,
                                          DWORD dwOptions, REGSAM samDesired,
                                          const LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult,
                                          LPDWORD lpdwDisposition);

/* Closes a handle; closing a predefined hive succeeds and does nothing. */
WINBASEAPI LSTATUS WINAPI RegCloseKey(HKEY hKey);

/* The subkey at dwIndex (sorted order) into lpName of cchName characters,
 * terminator included: ERROR_MORE_DATA when it does not fit,
 * ERROR_NO_MORE_ITEMS past the last. */
WINBASEAPI LSTATUS WINAPI RegEnumKeyA(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD cchName);

/* As RegEnumKeyA; *lpcchName is the capacity in, the length without the
 * terminator out. The class and last write time are given when asked for;
 * a class that does not fit fails with ERROR_MORE_DATA. */
WINBASEAPI LSTATUS WINAPI RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcchName,
                                        LPDWORD lpReserved, LPSTR lpClass, LPDWORD lpcchClass,
                                        PFILETIME lpftLastWriteTime);

/* The value at dwIndex (creation order). *lpcchValueName: capacity in,
 * length out; a name that does not fit gives ERROR_MORE_DATA and leaves the
 * count. Data as in RegQueryValueExA: a null lpData with lpcbData gives the
 * size; a buffer too small gives ERROR_MORE_DATA and the size needed. */
WINBASEAPI LSTATUS WINAPI RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcchValueName,
                                        LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);

/* Type, data and size of a value (null or "" names the default value).
 * The bytes are those that were stored, with no terminator added. A buffer
 * too small gives ERROR_MORE_DATA and the size needed; lpData without
 * lpcbData gives ERROR_INVALID_PARAMETER; a missing value
 * ERROR_FILE_NOT_FOUND. */
WINBASEAPI LSTATUS WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                           LPBYTE lpData, LPDWORD lpcbData);

/* Creates or replaces a value with exactly the cbData bytes given, of any
 * type; a replaced value keeps its place in the enumeration. A null lpData
 * with a nonzero size gives ERROR_NOACCESS, a name of more than 16383
 * characters ERROR_INVALID_PARAMETER. */
WINBASEAPI LSTATUS WINAPI RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD Reserved, DWORD dwType,
                                         const BYTE *lpData, DWORD cbData);

/* Removes a value; ERROR_FILE_NOT_FOUND when there is none. */
WINBASEAPI LSTATUS WINAPI RegDeleteValueA(HKEY hKey, LPCSTR lpValueName);

/* Writes reach the disk lazily: a write that returned survives the death
 * of any process at once, and a power cut once it is flushed. RegFlushKey
 * makes everything written so far, to any key and by any process, survive
 * a power cut before it returns (the whole store is flushed). */
WINBASEAPI LSTATUS WINAPI RegFlushKey(HKEY hKey);

/* Removes the key lpSubKey below hKey ("" is hKey's own key) with its
 * values. A key with subkeys, or a hive, is refused with
 * ERROR_ACCESS_DENIED; a null lpSubKey is ERROR_INVALID_PARAMETER. Other
 * handles open on the key become stale (ERROR_KEY_DELETED). */
WINBASEAPI LSTATUS WINAPI RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey);

/* Counts and longest lengths of a key: class, subkeys, values (name lengths
 * in characters without terminator, data in bytes), last write time. Every
 * out parameter may be null. lpcbSecurityDescriptor gives 0. */
WINBASEAPI LSTATUS WINAPI RegQueryInfoKeyA(HKEY hKey, LPSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                           LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                           LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                           LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                           LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);

/* The W calls: names, classes and string data in UTF-16, which the
 * registry keeps. Each behaves as its A call, with lengths in WCHARs where
 * the A call counts characters and data sizes in bytes. The A calls convert
 * through the ANSI code page (GetACP): names and classes, and the data of
 * REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ both ways (a character the code
 * page lacks reads as its default character); RegQueryInfoKeyA gives the
 * lengths of the stored UTF-16 names and sizes of the stored data. Names
 * compare without case by Unicode's simple upper case of each unit. */
WINBASEAPI LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                                        PHKEY phkResult);
WINBASEAPI LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass,
                                          DWORD dwOptions, REGSAM samDesired,
                                          const LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult,
                                          LPDWORD lpdwDisposition);
WINBASEAPI LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                                        LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                                        PFILETIME lpftLastWriteTime);
WINBASEAPI LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName,
                                        LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
WINBASEAPI LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                           LPBYTE lpData, LPDWORD lpcbData);
WINBASEAPI LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType,
                                         const BYTE *lpData, DWORD cbData);
WINBASEAPI LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);
WINBASEAPI LSTATUS WINAPI RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);
WINBASEAPI LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                           LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                           LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                           LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                           LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);

TS_EXTERN_C_END

#define RegOpenKeyEx     RegOpenKeyExA
#define RegCreateKeyEx   RegCreateKeyExA
#define RegEnumKey       RegEnumKeyA
#define RegEnumKeyEx     RegEnumKeyExA
#define RegEnumValue     RegEnumValueA
#define RegQueryValueEx  RegQueryValueExA
#define RegSetValueEx    RegSetValueExA
#define RegDeleteValue   RegDeleteValueA
#define RegDeleteKey     RegDeleteKeyA
#define RegQueryInfoKey  RegQueryInfoKeyA

#endif /* TSPLATFORM_WINREG_H */
