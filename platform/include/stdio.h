/* <stdio.h> with the Microsoft C runtime's additions. */
#include_next <stdio.h>

#ifndef TSPLATFORM_STDIO_H
#define TSPLATFORM_STDIO_H

#include "tscrtapi.h"

TSCRT_BEGIN_DECLS

/* fopen with a Windows path and a share flag of <share.h>: the file is
 * checked against every other open of it as CreateFileA does, and a
 * conflict gives null with errno EACCES. Mode letters as for fopen ("r",
 * "w", "a", "+", "b", "t"; "N" and "D"-style extras are accepted). The
 * stream is never inherited by a program started with exec. */
TSCRT_API FILE *_fsopen(const char *filename, const char *mode, int shflag);

TSCRT_END_DECLS

#endif /* TSPLATFORM_STDIO_H */
