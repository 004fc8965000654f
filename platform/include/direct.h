/* Directory calls of the Microsoft C runtime, with Windows paths. */
#ifndef TSPLATFORM_DIRECT_H
#define TSPLATFORM_DIRECT_H

#include <stddef.h>

#include "tscrtapi.h"

TSCRT_BEGIN_DECLS

/* 0, or -1 with errno (EEXIST, ENOENT). */
TSCRT_API int _mkdir(const char *dirname);
TSCRT_API int _rmdir(const char *dirname);
TSCRT_API int _chdir(const char *dirname);
/* The current directory in Windows form; a null buffer gets one from
 * malloc of at least maxlen bytes. Null with ERANGE when it does not fit. */
TSCRT_API char *_getcwd(char *buffer, int maxlen);

TSCRT_END_DECLS

#endif /* TSPLATFORM_DIRECT_H */
