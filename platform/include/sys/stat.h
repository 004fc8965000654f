/* <sys/stat.h> with the permission flags of the Microsoft C runtime, the
 * pmode of _open and _sopen. */
#include_next <sys/stat.h>

#ifndef TSPLATFORM_SYS_STAT_H
#define TSPLATFORM_SYS_STAT_H

#define _S_IREAD  0x0100
#define _S_IWRITE 0x0080

#endif /* TSPLATFORM_SYS_STAT_H */
