/* <fcntl.h> with the open flags of the Microsoft C runtime (_O_ names, with
 * Windows' values) for _open and _sopen of <io.h>. The POSIX O_ names keep
 * their own values. */
#include_next <fcntl.h>

#ifndef TSPLATFORM_FCNTL_H
#define TSPLATFORM_FCNTL_H

#define _O_RDONLY     0x0000
#define _O_WRONLY     0x0001
#define _O_RDWR       0x0002
#define _O_APPEND     0x0008
#define _O_NOINHERIT  0x0080
#define _O_CREAT      0x0100
#define _O_TRUNC      0x0200
#define _O_EXCL       0x0400
#define _O_TEXT       0x4000
#define _O_BINARY     0x8000

#endif /* TSPLATFORM_FCNTL_H */
