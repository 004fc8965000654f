/* <time.h> with the Microsoft C runtime's additions. */
#include_next <time.h>

#ifndef TSPLATFORM_TIME_H
#define TSPLATFORM_TIME_H

#include "tscrtapi.h"

TSCRT_BEGIN_DECLS

/* Takes up the time zone setting (TZ) afresh. */
TSCRT_API void _tzset(void);
/* The local date as "mm/dd/yy" (9 bytes with the terminator); gives buffer. */
TSCRT_API char *_strdate(char *buffer);
/* The local time as "hh:mm:ss"; gives buffer. */
TSCRT_API char *_strtime(char *buffer);

TSCRT_END_DECLS

#endif /* TSPLATFORM_TIME_H */
