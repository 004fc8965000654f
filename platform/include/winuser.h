/* User32 subset: the message box. */
#ifndef TSPLATFORM_WINUSER_H
#define TSPLATFORM_WINUSER_H

#include "windef.h"

#define MB_OK               0x00000000L
#define MB_OKCANCEL         0x00000001L
#define MB_ABORTRETRYIGNORE 0x00000002L
#define MB_YESNOCANCEL      0x00000003L
#define MB_YESNO            0x00000004L
#define MB_RETRYCANCEL      0x00000005L
#define MB_ICONHAND         0x00000010L
#define MB_ICONERROR        MB_ICONHAND
#define MB_ICONSTOP         MB_ICONHAND
#define MB_ICONQUESTION     0x00000020L
#define MB_ICONEXCLAMATION  0x00000030L
#define MB_ICONWARNING      MB_ICONEXCLAMATION
#define MB_ICONASTERISK     0x00000040L
#define MB_ICONINFORMATION  MB_ICONASTERISK
#define MB_SYSTEMMODAL      0x00001000L
#define MB_TASKMODAL        0x00002000L
#define MB_SETFOREGROUND    0x00010000L
#define MB_SERVICE_NOTIFICATION 0x00200000L

#define IDOK     1
#define IDCANCEL 2
#define IDABORT  3
#define IDRETRY  4
#define IDIGNORE 5
#define IDYES    6
#define IDNO     7

TS_EXTERN_C_BEGIN

/* There is no desktop on POSIX: the caption (when given) and the text go to
 * standard error as one line, and the call gives IDOK at once. */
WINBASEAPI int WINAPI MessageBoxA(HWND hWnd, LPCSTR lpText, LPCSTR lpCaption, UINT uType);

TS_EXTERN_C_END

#define MessageBox MessageBoxA

#endif /* TSPLATFORM_WINUSER_H */
