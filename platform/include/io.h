/* Low-level file calls of the Microsoft C runtime, with Windows paths. */
#ifndef TSPLATFORM_IO_H
#define TSPLATFORM_IO_H

#include "tscrtapi.h"

TSCRT_BEGIN_DECLS

/* mode 0 exists, 2 may be written, 4 may be read, 6 both. 0 when so; else
 * -1 with errno ENOENT (nothing there), EACCES (a file whose read-only
 * attribute is set, asked for writing; or no permission to look) or EINVAL
 * (another mode). A directory counts as writable. */
TSCRT_API int _access(const char *path, int mode);

/* Opens a file with a Windows path and gives its descriptor, or -1 with
 * errno. oflag: one of _O_RDONLY, _O_WRONLY, _O_RDWR, with _O_APPEND,
 * _O_CREAT, _O_TRUNC, _O_EXCL, _O_NOINHERIT, _O_TEXT, _O_BINARY (<fcntl.h>);
 * text and binary mode read and write the same bytes (no CR LF
 * translation, as with _fsopen). pmode, read with _O_CREAT only: _S_IREAD,
 * _S_IWRITE (<sys/stat.h>); a new file without _S_IWRITE gets the
 * read-only attribute. shflag (<share.h>) holds against every other open
 * of the file as with _fsopen and CreateFileA; _open shares everything.
 * errno: EEXIST (_O_CREAT | _O_EXCL and the file is there), ENOENT,
 * EACCES (a sharing conflict, a read-only file asked for writing, a
 * folder), EINVAL (a bad oflag or shflag). Descriptors are never inherited
 * by a program started with exec. */
TSCRT_API int _open(const char *filename, int oflag, ...);
TSCRT_API int _sopen(const char *filename, int oflag, int shflag, ...);
/* Closes the descriptor: 0, or -1 with errno EBADF. */
TSCRT_API int _close(int fd);
/* Reads at most count bytes: the count read, 0 at the end, -1 with errno
 * (EBADF for a bad descriptor or one opened for writing only). */
TSCRT_API int _read(int fd, void *buffer, unsigned int count);
/* Writes count bytes: the count written, or -1 with errno (EBADF for a bad
 * descriptor or one opened for reading only, ENOSPC). */
TSCRT_API int _write(int fd, const void *buffer, unsigned int count);
/* Moves the position: origin SEEK_SET, SEEK_CUR or SEEK_END. The new
 * position, or -1L with errno EBADF or EINVAL (a bad origin, a position
 * before the start). */
TSCRT_API long _lseek(int fd, long offset, int origin);

TSCRT_END_DECLS

#endif /* TSPLATFORM_IO_H */
