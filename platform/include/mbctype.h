/* The multibyte code page of the Microsoft C runtime. */
#ifndef TSPLATFORM_MBCTYPE_H
#define TSPLATFORM_MBCTYPE_H

#include "tscrtapi.h"

#define _MB_CP_SBCS    0
#define _MB_CP_OEM     (-2)
#define _MB_CP_ANSI    (-3)
#define _MB_CP_LOCALE  (-4)

TSCRT_BEGIN_DECLS

/* Sets the code page that the _mbs functions follow: a single-byte or
 * double-byte code page (932, 936, 949, 950, 1250-1258, 437, 850, ...),
 * _MB_CP_SBCS (bytes only), _MB_CP_ANSI or _MB_CP_LOCALE (the ANSI code
 * page) or _MB_CP_OEM. 0 on success; -1 for an unknown page (UTF-8 and
 * UTF-7 included), which leaves the setting. At start it is the ANSI code
 * page. Process-wide. */
TSCRT_API int _setmbcp(int codepage);
TSCRT_API int _getmbcp(void);
/* Non-zero when c is a lead (trail) byte of the multibyte code page. */
TSCRT_API int _ismbblead(unsigned int c);
TSCRT_API int _ismbbtrail(unsigned int c);

TSCRT_END_DECLS

#endif /* TSPLATFORM_MBCTYPE_H */
