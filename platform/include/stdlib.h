/* <stdlib.h> with the Microsoft C runtime's additions. */
#include_next <stdlib.h>

#ifndef TSPLATFORM_STDLIB_H
#define TSPLATFORM_STDLIB_H

#ifndef TSCRT_API
#define TSCRT_API __attribute__((visibility("default")))
#endif

#define _MAX_PATH   260
#define _MAX_DRIVE  3
#define _MAX_DIR    256
#define _MAX_FNAME  256
#define _MAX_EXT    256
#define _CVTBUFSIZE 349

#ifdef __cplusplus
extern "C" {
#endif

/* value in the radix (2 to 36) into buffer; negative only in radix 10,
 * other radixes show the two's complement. Gives buffer. */
TSCRT_API char *_itoa(int value, char *buffer, int radix);
TSCRT_API char *_ltoa(long value, char *buffer, int radix);
TSCRT_API char *_ultoa(unsigned long value, char *buffer, int radix);
/* digits significant digits: decimal form when the exponent lies between
 * -4 and digits - 1, with the decimal point always written and trailing
 * zeros dropped ("-314150." for -3.1415e5 with 7 digits); otherwise
 * exponential form with a lower-case "e", a sign and three exponent digits
 * ("1.5e+010"). Gives buffer; there is no limit on what it writes. */
TSCRT_API char *_gcvt(double value, int digits, char *buffer);
/* Cuts path into drive ("x:" or empty), directory (up to and including the
 * last "\" or "/"), file name and extension (from the last dot of the final
 * component). Multibyte characters of the multibyte code page are stepped
 * over whole. Each part is cut to _MAX_DRIVE, _MAX_DIR, _MAX_FNAME and
 * _MAX_EXT bytes with its terminator; a null buffer is skipped. */
TSCRT_API void _splitpath(const char *path, char *drive, char *dir, char *fname, char *ext);

#ifdef __cplusplus
}
#endif

#endif /* TSPLATFORM_STDLIB_H */
