/* Kernel32 files, directories and paths.
 *
 * Paths are Windows paths, translated at this layer's boundary: "\" and "/"
 * both separate; "c:" is $TSUTIL_ROOT/drive_c, "z:" is "/", another letter
 * is $TSUTIL_ROOT/dosdevices/<letter>: when that link exists (else the drive
 * does not exist: ERROR_PATH_NOT_FOUND); a path that begins with one "/" is
 * a POSIX absolute path and passes unchanged; "\name" is below the root of
 * the current drive; "\\server\share\..." is $TSUTIL_ROOT/unc/server/share/...
 * (a missing server folder gives ERROR_BAD_NETPATH, a missing share
 * folder ERROR_BAD_NET_NAME, a path without a share ERROR_BAD_PATHNAME);
 * "." and ".." are resolved by name, as Windows does, never above a drive's
 * root. Names keep their case and match with case; drive letters match
 * without case. Paths handed back (current directory, module name) are in
 * Windows form: "C:\..." below drive_c, "Z:\..." elsewhere.
 *
 * Share modes hold between processes and within one process. A file
 * handle is never inherited by a program started with exec on POSIX. */
#ifndef TSPLATFORM_FILEAPI_H
#define TSPLATFORM_FILEAPI_H

#include "windef.h"

#define FILE_SHARE_READ                 0x00000001
#define FILE_SHARE_WRITE                0x00000002
#define FILE_SHARE_DELETE               0x00000004

#define CREATE_NEW                      1
#define CREATE_ALWAYS                   2
#define OPEN_EXISTING                   3
#define OPEN_ALWAYS                     4
#define TRUNCATE_EXISTING               5

#define FILE_ATTRIBUTE_READONLY         0x00000001
#define FILE_ATTRIBUTE_HIDDEN           0x00000002
#define FILE_ATTRIBUTE_SYSTEM           0x00000004
#define FILE_ATTRIBUTE_DIRECTORY        0x00000010
#define FILE_ATTRIBUTE_ARCHIVE          0x00000020
#define FILE_ATTRIBUTE_NORMAL           0x00000080
#define FILE_ATTRIBUTE_TEMPORARY        0x00000100
#define INVALID_FILE_ATTRIBUTES         ((DWORD)-1)

#define FILE_FLAG_WRITE_THROUGH         0x80000000
#define FILE_FLAG_OVERLAPPED            0x40000000
#define FILE_FLAG_NO_BUFFERING          0x20000000
#define FILE_FLAG_RANDOM_ACCESS         0x10000000
#define FILE_FLAG_SEQUENTIAL_SCAN       0x08000000
#define FILE_FLAG_DELETE_ON_CLOSE       0x04000000
#define FILE_FLAG_BACKUP_SEMANTICS      0x02000000

#define FILE_BEGIN                      0
#define FILE_CURRENT                    1
#define FILE_END                        2
#define INVALID_SET_FILE_POINTER        ((DWORD)-1)
#define INVALID_FILE_SIZE               ((DWORD)0xFFFFFFFF)

typedef struct _OVERLAPPED {
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    DWORD Offset;
    DWORD OffsetHigh;
    HANDLE hEvent;
} OVERLAPPED, *LPOVERLAPPED;

typedef struct _WIN32_FIND_DATAA {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    CHAR cFileName[MAX_PATH];
    CHAR cAlternateFileName[14];
} WIN32_FIND_DATAA, *PWIN32_FIND_DATAA, *LPWIN32_FIND_DATAA;

TS_EXTERN_C_BEGIN

/* Opens or creates a file. dwShareMode is checked against every other open
 * of the same file, in any process: a conflict gives ERROR_SHARING_VIOLATION
 * and changes nothing (CREATE_ALWAYS and TRUNCATE_EXISTING empty the file
 * only after the check passed). A file whose read-only attribute is set
 * cannot be opened for writing (ERROR_ACCESS_DENIED), also for root. A
 * directory opens only with FILE_FLAG_BACKUP_SEMANTICS. CREATE_ALWAYS and
 * OPEN_ALWAYS on an existing file succeed with ERROR_ALREADY_EXISTS. */
WINBASEAPI HANDLE WINAPI CreateFileA(LPCSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                                     LPSECURITY_ATTRIBUTES lpSecurityAttributes, DWORD dwCreationDisposition,
                                     DWORD dwFlagsAndAttributes, HANDLE hTemplateFile);
/* Synchronous only: lpOverlapped must be null (ERROR_INVALID_PARAMETER). */
WINBASEAPI BOOL WINAPI ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead,
                                LPDWORD lpNumberOfBytesRead, LPOVERLAPPED lpOverlapped);
WINBASEAPI BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite,
                                 LPDWORD lpNumberOfBytesWritten, LPOVERLAPPED lpOverlapped);
WINBASEAPI BOOL WINAPI FlushFileBuffers(HANDLE hFile);
WINBASEAPI DWORD WINAPI SetFilePointer(HANDLE hFile, LONG lDistanceToMove, PLONG lpDistanceToMoveHigh,
                                       DWORD dwMoveMethod);
WINBASEAPI BOOL WINAPI SetEndOfFile(HANDLE hFile);
WINBASEAPI DWORD WINAPI GetFileSize(HANDLE hFile, LPDWORD lpFileSizeHigh);
WINBASEAPI BOOL WINAPI DeleteFileA(LPCSTR lpFileName);

/* Attributes: FILE_ATTRIBUTE_DIRECTORY for a directory, ARCHIVE for a
 * file, READONLY for a file without write permission bits. */
WINBASEAPI DWORD WINAPI GetFileAttributesA(LPCSTR lpFileName);
/* Only FILE_ATTRIBUTE_READONLY has an effect: it clears (or gives back the
 * owner's) write permission bits of a file. */
WINBASEAPI BOOL WINAPI SetFileAttributesA(LPCSTR lpFileName, DWORD dwFileAttributes);

/* One level: the parent must exist. ERROR_ALREADY_EXISTS, ERROR_PATH_NOT_FOUND. */
WINBASEAPI BOOL WINAPI CreateDirectoryA(LPCSTR lpPathName, LPSECURITY_ATTRIBUTES lpSecurityAttributes);
WINBASEAPI BOOL WINAPI RemoveDirectoryA(LPCSTR lpPathName);

/* A search of one directory: the last component may hold "*" and "?"
 * ("*.*" matches every name). "." and ".." are found like other entries.
 * Gives INVALID_HANDLE_VALUE with ERROR_FILE_NOT_FOUND when nothing
 * matches, ERROR_PATH_NOT_FOUND when the directory does not exist. */
WINBASEAPI HANDLE WINAPI FindFirstFileA(LPCSTR lpFileName, LPWIN32_FIND_DATAA lpFindFileData);
/* ERROR_NO_MORE_FILES at the end. */
WINBASEAPI BOOL WINAPI FindNextFileA(HANDLE hFindFile, LPWIN32_FIND_DATAA lpFindFileData);
WINBASEAPI BOOL WINAPI FindClose(HANDLE hFindFile);

/* The process's current directory, for all threads. */
WINBASEAPI BOOL WINAPI SetCurrentDirectoryA(LPCSTR lpPathName);
/* Gives the length without the terminator; when the buffer is too small,
 * the size needed with the terminator, and the buffer is left alone. */
WINBASEAPI DWORD WINAPI GetCurrentDirectoryA(DWORD nBufferLength, LPSTR lpBuffer);

/* The path of a module: the program's own when hModule is null; on POSIX
 * a module handle is the address at which the module is loaded, and an
 * address where no module starts gives ERROR_MOD_NOT_FOUND. A short buffer gets the path cut to nSize - 1
 * bytes and a terminator; the result is then nSize, with
 * ERROR_INSUFFICIENT_BUFFER. */
WINBASEAPI DWORD WINAPI GetModuleFileNameA(HMODULE hModule, LPSTR lpFilename, DWORD nSize);

TS_EXTERN_C_END

#define CreateFile CreateFileA
#define DeleteFile DeleteFileA
#define GetFileAttributes GetFileAttributesA
#define SetFileAttributes SetFileAttributesA
#define CreateDirectory CreateDirectoryA
#define RemoveDirectory RemoveDirectoryA
#define FindFirstFile FindFirstFileA
#define FindNextFile FindNextFileA
#define WIN32_FIND_DATA WIN32_FIND_DATAA
#define GetCurrentDirectory GetCurrentDirectoryA
#define GetModuleFileName GetModuleFileNameA

#endif /* TSPLATFORM_FILEAPI_H */
