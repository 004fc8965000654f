/* User32 subset: the message box and the thread message queue. */
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

/* Thread messages. There are no windows: every message is a thread
 * message, and an hWnd other than null names no window. */
#define WM_NULL   0x0000
#define WM_QUIT   0x0012
#define WM_USER   0x0400
#define WM_APP    0x8000

#define PM_NOREMOVE 0x0000
#define PM_REMOVE   0x0001
#define PM_NOYIELD  0x0002

typedef struct tagPOINT {
    LONG x;
    LONG y;
} POINT, *PPOINT, *LPPOINT;

typedef struct tagMSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
} MSG, *PMSG, *LPMSG;

TS_EXTERN_C_BEGIN

/* A thread has a message queue from its first call of PeekMessageA,
 * GetMessageA or PostQuitMessage on; the queue goes when the thread ends.
 * PostThreadMessageA to a thread without one fails with
 * ERROR_INVALID_THREAD_ID. Messages come in the order posted; a filter of
 * 0, 0 takes every message, min > max none (as Wine has it), and
 * WM_QUIT passes every filter. PostQuitMessage marks the queue: WM_QUIT
 * (wParam the exit code) is given once no posted message matches. */
WINBASEAPI BOOL WINAPI PostThreadMessageA(DWORD idThread, UINT Msg, WPARAM wParam, LPARAM lParam);
WINBASEAPI void WINAPI PostQuitMessage(int nExitCode);
/* Waits for a message: FALSE for WM_QUIT, TRUE for any other, -1 with
 * ERROR_INVALID_WINDOW_HANDLE for a non-null hWnd or ERROR_NOACCESS for a
 * null lpMsg. */
WINBASEAPI BOOL WINAPI GetMessageA(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax);
/* Does not wait: TRUE with the message (taken away with PM_REMOVE), FALSE
 * when none matches. */
WINBASEAPI BOOL WINAPI PeekMessageA(LPMSG lpMsg, HWND hWnd, UINT wMsgFilterMin, UINT wMsgFilterMax,
                                    UINT wRemoveMsg);

/* There is no desktop on POSIX: the caption (when given) and the text go to
 * standard error as one line, and the call gives IDOK at once. */
WINBASEAPI int WINAPI MessageBoxA(HWND hWnd, LPCSTR lpText, LPCSTR lpCaption, UINT uType);

TS_EXTERN_C_END

#define MessageBox MessageBoxA
#define PostThreadMessage PostThreadMessageA
#define GetMessage GetMessageA
#define PeekMessage PeekMessageA

#endif /* TSPLATFORM_WINUSER_H */
