/* Base types of the Win32 subset, with the sizes Windows gives them:
 * DWORD and LONG are 32 bits on every platform (LLP64), pointers and the
 * *_PTR types follow the pointer size, WCHAR is a 16-bit unit. */
#ifndef TSPLATFORM_WINDEF_H
#define TSPLATFORM_WINDEF_H

#include <stddef.h>
#include <stdint.h>

#ifndef WINAPI
#define WINAPI
#endif
#ifndef CALLBACK
#define CALLBACK
#endif
#ifndef APIENTRY
#define APIENTRY
#endif
#ifndef WINBASEAPI
#define WINBASEAPI __attribute__((visibility("default")))
#endif
#ifndef __cdecl
#define __cdecl
#endif
#ifndef __stdcall
#define __stdcall
#endif
#ifndef CONST
#define CONST const
#endif
#ifndef VOID
#define VOID void
#endif
#ifndef IN
#define IN
#endif
#ifndef OUT
#define OUT
#endif
#ifndef OPTIONAL
#define OPTIONAL
#endif

#ifdef __cplusplus
#define TS_EXTERN_C_BEGIN extern "C" {
#define TS_EXTERN_C_END }
#else
#define TS_EXTERN_C_BEGIN
#define TS_EXTERN_C_END
#endif

#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif
#ifndef NULL
#define NULL 0
#endif

typedef int BOOL;
typedef BOOL *PBOOL, *LPBOOL;
typedef unsigned char BYTE, UCHAR, BOOLEAN;
typedef BYTE *PBYTE, *LPBYTE;
typedef unsigned short WORD, USHORT;
typedef WORD *PWORD, *LPWORD;
typedef uint32_t DWORD;
typedef DWORD *PDWORD, *LPDWORD;
typedef int32_t LONG;
typedef LONG *PLONG, *LPLONG;
typedef uint32_t ULONG;
typedef ULONG *PULONG;
typedef int INT;
typedef unsigned int UINT;
typedef UINT *PUINT;
typedef short SHORT;
typedef char CHAR;
typedef float FLOAT;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG, DWORD64;
typedef unsigned short WCHAR;
typedef WCHAR *PWSTR, *LPWSTR;
typedef const WCHAR *PCWSTR, *LPCWSTR;
typedef char *PSTR, *LPSTR;
typedef const char *PCSTR, *LPCSTR;
typedef char TCHAR;
typedef LPSTR LPTSTR;
typedef LPCSTR LPCTSTR;
typedef void *PVOID, *LPVOID;
typedef const void *LPCVOID;

typedef intptr_t INT_PTR, LONG_PTR;
typedef uintptr_t UINT_PTR, ULONG_PTR, DWORD_PTR, SIZE_T;
typedef intptr_t SSIZE_T;
typedef ULONG_PTR *PULONG_PTR;
typedef DWORD_PTR *PDWORD_PTR;
typedef SIZE_T *PSIZE_T;
typedef LONG_PTR LRESULT;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG HRESULT;

typedef void *HANDLE;
typedef HANDLE *PHANDLE, *LPHANDLE;
#define DECLARE_HANDLE(name) struct name##__ { int unused; }; typedef struct name##__ *name
DECLARE_HANDLE(HINSTANCE);
typedef HINSTANCE HMODULE;
DECLARE_HANDLE(HWND);
DECLARE_HANDLE(HKEY);
typedef HKEY *PHKEY;
typedef HANDLE HGLOBAL, HLOCAL;
typedef WORD ATOM;

#define MAKEWORD(a, b) ((WORD)(((BYTE)((DWORD_PTR)(a) & 0xff)) | ((WORD)((BYTE)((DWORD_PTR)(b) & 0xff))) << 8))
#define MAKELONG(a, b) ((LONG)(((WORD)((DWORD_PTR)(a) & 0xffff)) | ((DWORD)((WORD)((DWORD_PTR)(b) & 0xffff))) << 16))
#define LOWORD(l) ((WORD)((DWORD_PTR)(l) & 0xffff))
#define HIWORD(l) ((WORD)((DWORD_PTR)(l) >> 16))
#define LOBYTE(w) ((BYTE)((DWORD_PTR)(w) & 0xff))
#define HIBYTE(w) ((BYTE)((DWORD_PTR)(w) >> 8))

#ifndef MAX_PATH
#define MAX_PATH 260
#endif

typedef union _LARGE_INTEGER {
    struct { DWORD LowPart; LONG HighPart; } u;
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

/* The standard and generic access rights every kind of handle shares. */
#define DELETE                  0x00010000L
#define READ_CONTROL            0x00020000L
#define WRITE_DAC               0x00040000L
#define WRITE_OWNER             0x00080000L
#define SYNCHRONIZE             0x00100000L
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#define STANDARD_RIGHTS_ALL     0x001F0000L
#define GENERIC_READ            0x80000000L
#define GENERIC_WRITE           0x40000000L
#define GENERIC_EXECUTE         0x20000000L
#define GENERIC_ALL             0x10000000L

#ifdef __cplusplus
static_assert(sizeof(DWORD) == 4 && sizeof(LONG) == 4 && sizeof(WORD) == 2 && sizeof(WCHAR) == 2,
              "Windows' integer sizes");
static_assert(sizeof(DWORD_PTR) == sizeof(void *) && sizeof(HANDLE) == sizeof(void *), "pointer-sized types");
#endif

#endif /* TSPLATFORM_WINDEF_H */
