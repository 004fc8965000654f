/* Console control events. On POSIX, SIGINT is CTRL_C_EVENT, SIGQUIT
 * CTRL_BREAK_EVENT, SIGHUP CTRL_CLOSE_EVENT and SIGTERM CTRL_SHUTDOWN_EVENT. */
#ifndef TSPLATFORM_WINCON_H
#define TSPLATFORM_WINCON_H

#include "windef.h"

#define CTRL_C_EVENT        0
#define CTRL_BREAK_EVENT    1
#define CTRL_CLOSE_EVENT    2
#define CTRL_LOGOFF_EVENT   5
#define CTRL_SHUTDOWN_EVENT 6

typedef BOOL (WINAPI *PHANDLER_ROUTINE)(DWORD CtrlType);

TS_EXTERN_C_BEGIN

/* Adds (Add TRUE) or removes a handler. Each event runs the handlers on a
 * thread of its own, the last added first, until one returns TRUE; when
 * all return FALSE (or there are none) the process ends as the signal's
 * default action ends it. A null handler with Add TRUE makes the process
 * ignore CTRL_C_EVENT, with FALSE restores it. Removing a handler that is
 * not there fails with ERROR_INVALID_PARAMETER.
 * POSIX difference: Windows ends the process once a handler of a close,
 * logoff or shutdown event returns; here a process whose handler returned
 * TRUE runs on, so that it can stop in good order. The first call installs
 * the signal handlers; a signal that arrives again while the handlers of
 * the first still run is handled the same way, never by the default. */
WINBASEAPI BOOL WINAPI SetConsoleCtrlHandler(PHANDLER_ROUTINE HandlerRoutine, BOOL Add);

TS_EXTERN_C_END

#endif /* TSPLATFORM_WINCON_H */
