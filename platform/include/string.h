/* <string.h> with the Microsoft C runtime's additions. */
#include_next <string.h>

#ifndef TSPLATFORM_STRING_H
#define TSPLATFORM_STRING_H

#include "tscrtapi.h"

TSCRT_BEGIN_DECLS

/* A copy from malloc, or null (for a null source too). */
TSCRT_API char *_strdup(const char *s);
/* Comparisons that fold ASCII letters to lower case. */
TSCRT_API int _stricmp(const char *a, const char *b);
TSCRT_API int _strnicmp(const char *a, const char *b, size_t n);

TSCRT_END_DECLS

#endif /* TSPLATFORM_STRING_H */
