/* Low-level file calls of the Microsoft C runtime, with Windows paths. */
#ifndef TSPLATFORM_IO_H
#define TSPLATFORM_IO_H

#ifndef TSCRT_API
#define TSCRT_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* mode 0 exists, 2 may be written, 4 may be read, 6 both. 0 when so; else
 * -1 with errno ENOENT (nothing there), EACCES (a file whose read-only
 * attribute is set, asked for writing; or no permission to look) or EINVAL
 * (another mode). A directory counts as writable. */
TSCRT_API int _access(const char *path, int mode);

#ifdef __cplusplus
}
#endif

#endif /* TSPLATFORM_IO_H */
