/* Multibyte strings of the Microsoft C runtime. They follow the multibyte
 * code page of <mbctype.h>: a lead byte and the byte behind it make one
 * character. A lead byte right before the terminator is no character. */
#ifndef TSPLATFORM_MBSTRING_H
#define TSPLATFORM_MBSTRING_H

#include <stddef.h>

#include "mbctype.h"

TSCRT_BEGIN_DECLS

/* Characters before the terminator. */
TSCRT_API size_t _mbslen(const unsigned char *str);
/* The character after current: two bytes on for a lead byte with a
 * byte behind it, else one (also from the terminator). */
TSCRT_API unsigned char *_mbsinc(const unsigned char *current);
/* The previous character of current, or null at start. */
TSCRT_API unsigned char *_mbsdec(const unsigned char *start, const unsigned char *current);
/* Bytes of the character at c: 2 for a lead byte, else 1. */
TSCRT_API size_t _mbclen(const unsigned char *c);
/* Copies count characters; a shorter source is padded with zero bytes,
 * one for each character missing; no terminator is added when count
 * characters were copied. Gives dest. */
TSCRT_API unsigned char *_mbsncpy(unsigned char *dest, const unsigned char *src, size_t count);
/* Copies at most count bytes, never half a character (its lead byte
 * becomes a zero byte); a shorter source is padded with zero bytes up to
 * count. Gives dest. */
TSCRT_API unsigned char *_mbsnbcpy(unsigned char *dest, const unsigned char *src, size_t count);
/* Bytes taken by the first count characters. */
TSCRT_API size_t _mbsnbcnt(const unsigned char *str, size_t count);
/* The first character of str that is one of the characters of set. */
TSCRT_API unsigned char *_mbspbrk(const unsigned char *str, const unsigned char *set);
/* The first character c (a byte, or lead << 8 | trail); c 0 finds the
 * terminator. */
TSCRT_API unsigned char *_mbschr(const unsigned char *str, unsigned int c);
/* The last character c, as _mbschr. */
TSCRT_API unsigned char *_mbsrchr(const unsigned char *str, unsigned int c);
/* Character by character, ASCII letters folded to lower case (as the
 * "C" locale folds them); double-byte characters compare by code. */
TSCRT_API int _mbsicmp(const unsigned char *a, const unsigned char *b);
/* Compares at most count bytes, character by character; a character cut
 * by count is compared by its lead byte. */
TSCRT_API int _mbsnbcmp(const unsigned char *a, const unsigned char *b, size_t count);
TSCRT_API int _mbscmp(const unsigned char *a, const unsigned char *b);

TSCRT_END_DECLS

#endif /* TSPLATFORM_MBSTRING_H */
