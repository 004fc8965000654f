/* <wchar.h> with the Microsoft C runtime's additions. wchar_t is 32 bits on
 * POSIX; Windows programs use WCHAR (16 bits) with the Win32 calls. */
#include_next <wchar.h>

#ifndef TSPLATFORM_WCHAR_H
#define TSPLATFORM_WCHAR_H

#include "tscrtapi.h"

TSCRT_BEGIN_DECLS

/* A copy from malloc, or null (for a null source too). */
TSCRT_API wchar_t *_wcsdup(const wchar_t *s);
/* Comparisons that fold the ASCII letters to lower case. */
TSCRT_API int _wcsicmp(const wchar_t *a, const wchar_t *b);
TSCRT_API int _wcsnicmp(const wchar_t *a, const wchar_t *b, size_t n);

TSCRT_END_DECLS

#endif /* TSPLATFORM_WCHAR_H */
