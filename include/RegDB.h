// SetRegDB and qryRegDB: one registry value read or written in a single
// call, with no registry objects and none of their defaults. Each call
// opens its key with KEY_ALL_ACCESS (so a caller without those rights
// fails, even to read), does its work and closes the key on every path. The
// hive is any open key handle; the subkey path below it is given whole,
// with backslashes between its levels. All give 1 for success, 0 for
// failure, and may run in any thread at once.
#pragma once

#include "TSDefs.h"

#include <afx.h>

// Writes a REG_SZ (type 1) or REG_EXPAND_SZ (type 2) value with its
// terminator, creating every missing level of the path; a key it creates
// gets the class text "REG_SZ" or "REG_EXPAND_SZ". 0 with nothing done for
// any other type, and when the key can be neither opened nor created. 1
// once the key is open, even when the platform then refuses the write.
TSUTIL_API int SetRegDB(CString &subkeyPath, CString &valueName, unsigned long type, CString &value, HKEY hive);
// The same for a REG_DWORD (type 4, class text "REG_DWORD") of the number's
// low 32 bits.
TSUTIL_API int SetRegDB(CString &subkeyPath, CString &valueName, unsigned long type, unsigned long &value,
                        HKEY hive);

// The size cell of the three reads tells the cases apart:
//   success                         1, size = the bytes stored (a string's
//                                   terminator included)
//   key missing or not openable     0, size as set on entry, nothing else touched
//   value missing or too large      0, size = the platform's error number
//                                   (ERROR_FILE_NOT_FOUND, ERROR_MORE_DATA)
//   value of another type           0, size = 0, the output cleared, type
//                                   = the type found
// Null output, size or type pointers give 0 with nothing touched. No key is
// ever created.

// A REG_SZ or REG_EXPAND_SZ value (not expanded) of at most 1024 bytes with
// its terminator; size is set to 1024 on entry. The string is left alone
// when the key cannot be opened, and empty after any other failure.
TSUTIL_API int qryRegDB(CString &subkeyPath, CString &valueName, CString &value, unsigned long *size,
                        unsigned long *type, HKEY hive);
// A REG_DWORD value; size is set to 4 on entry. Another type clears the
// number to 0; a value missing or too large leaves it as it was.
TSUTIL_API int qryRegDB(CString &subkeyPath, CString &valueName, unsigned long *value, unsigned long *size,
                        unsigned long *type, HKEY hive);
// A REG_BINARY value into the caller's *size bytes; a size of 0 on entry
// gives 0 at once. Another type clears the bytes that were stored and
// leaves the rest of the buffer alone.
TSUTIL_API int qryRegDB(CString &subkeyPath, CString &valueName, unsigned char *data, unsigned long *size,
                        unsigned long *type, HKEY hive);
