// The message box, which has no desktop on POSIX.
#include <windows.h>

#include <stdio.h>

extern "C" int WINAPI MessageBoxA(HWND, LPCSTR lpText, LPCSTR lpCaption, UINT)
{
    if (lpCaption && *lpCaption)
        fprintf(stderr, "%s: %s\n", lpCaption, lpText ? lpText : "");
    else
        fprintf(stderr, "%s\n", lpText ? lpText : "");
    fflush(stderr);
    return IDOK;
}
