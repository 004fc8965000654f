/* C runtime threads: _beginthread, _beginthreadex, _endthread, _endthreadex. */
#ifndef TSPLATFORM_PROCESS_H
#define TSPLATFORM_PROCESS_H

#include "windef.h"

TS_EXTERN_C_BEGIN

/* Starts a thread whose handle closes itself when the thread ends.
 * Gives the handle, or (uintptr_t)-1 with errno set on failure. */
WINBASEAPI uintptr_t __cdecl _beginthread(void (__cdecl *start_address)(void *), unsigned stack_size,
                                          void *arglist);
/* Starts a thread (suspended with CREATE_SUSPENDED) whose handle the caller
 * closes. Gives the handle, or 0 with errno set on failure. */
WINBASEAPI uintptr_t __cdecl _beginthreadex(void *security, unsigned stack_size,
                                            unsigned (__stdcall *start_address)(void *), void *arglist,
                                            unsigned initflag, unsigned *thrdaddr);
/* Ends the calling thread; _endthread also closes its own handle. */
WINBASEAPI void __cdecl _endthread(void) __attribute__((noreturn));
WINBASEAPI void __cdecl _endthreadex(unsigned retval) __attribute__((noreturn));

WINBASEAPI int __cdecl _getpid(void);

TS_EXTERN_C_END

#endif /* TSPLATFORM_PROCESS_H */
