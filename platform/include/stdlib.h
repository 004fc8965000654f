/* <stdlib.h> with the Microsoft C runtime's additions. */
#include_next <stdlib.h>

#ifndef TSPLATFORM_STDLIB_H
#define TSPLATFORM_STDLIB_H

#include "tscrtapi.h"

#define _MAX_PATH   260
#define _MAX_DRIVE  3
#define _MAX_DIR    256
#define _MAX_FNAME  256
#define _MAX_EXT    256
#define _CVTBUFSIZE 349

TSCRT_BEGIN_DECLS

/* value in the radix (2 to 36) into buffer; negative only in radix 10,
 * other radixes show the two's complement. Gives buffer. */
TSCRT_API char *_itoa(int value, char *buffer, int radix);
TSCRT_API char *_ltoa(long value, char *buffer, int radix);
TSCRT_API char *_ultoa(unsigned long value, char *buffer, int radix);
/* value with digits significant digits, as the Microsoft runtime writes
 * it: exponential form when the decimal exponent is below -1 or at least
 * digits, with digits - 1 decimals, a lower-case "e", a sign and three
 * exponent digits ("1.23e-002" for 0.0123 with 3 digits); otherwise fixed
 * form with digits - (exponent + 1) decimals. Then trailing zeros of the
 * decimals are dropped and the point kept: "100" for 100.0 with 3 digits,
 * "100." with 5, "0.5" for 0.5 with 3. Gives buffer; there is no limit on
 * what it writes (digits are capped at 40). */
TSCRT_API char *_gcvt(double value, int digits, char *buffer);
/* Cuts path into drive ("x:" or empty), directory (up to and including the
 * last "\" or "/"), file name and extension (from the last dot of the final
 * component). Multibyte characters of the multibyte code page are stepped
 * over whole. Each part is cut to _MAX_DRIVE, _MAX_DIR, _MAX_FNAME and
 * _MAX_EXT bytes with its terminator; a null buffer is skipped. */
TSCRT_API void _splitpath(const char *path, char *drive, char *dir, char *fname, char *ext);

TSCRT_END_DECLS

#ifdef __cplusplus
/* mbstowcs and wcstombs for 16-bit wide strings (WCHAR, unsigned short),
 * as the Microsoft runtime has them where wchar_t is 16 bits. The text is
 * in the ANSI code page (GetACP). mbstowcs writes at most count units: the
 * characters, then the terminator if room is left (the result never counts
 * it, and a result equal to count means no terminator was written); a
 * character of two units that does not fit is left out whole. wcstombs
 * likewise writes at most count bytes and never half of a double-byte
 * character. A null output gives the size the whole text takes, without
 * the terminator, whatever count says. An invalid byte sequence, or a unit
 * that the code page lacks, gives (size_t)-1 with errno EILSEQ; a null
 * input gives (size_t)-1 with errno EINVAL. */
TSCRT_API size_t mbstowcs(unsigned short *wcstr, const char *mbstr, size_t count);
TSCRT_API size_t wcstombs(char *mbstr, const unsigned short *wcstr, size_t count);
#endif

#endif /* TSPLATFORM_STDLIB_H */
