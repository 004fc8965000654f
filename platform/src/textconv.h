// The conversion engines between code pages and UTF-16. Each converts len
// input units into out, which has room units (bytes); with no out it only
// counts. They take no terminator of their own: a terminator in the input
// is converted as any other character.
#pragma once

#include "codepage.h"

#include <stddef.h>

namespace tsp {

// What a conversion found: the count of units (bytes) that the whole input
// takes, or a failure with the Win32 error (for ERROR_INSUFFICIENT_BUFFER
// with the count of units written until the room ran out).
struct Result {
    size_t count = 0;
    DWORD error = ERROR_SUCCESS;
    bool usedDefault = false; // a unit became the default character
};

inline bool isHighSurrogate(unsigned u) { return u >= 0xD800 && u <= 0xDBFF; }
inline bool isLowSurrogate(unsigned u) { return u >= 0xDC00 && u <= 0xDFFF; }

// A single- or double-byte page to UTF-16. strict: an invalid sequence
// fails with ERROR_NO_UNICODE_TRANSLATION; otherwise it becomes the page's
// wide default (in a double-byte page the second byte of a bad pair is
// read again on its own).
Result tableToWide(const CodePage &cp, const unsigned char *in, size_t len, WCHAR *out, size_t room, bool strict);
// UTF-16 to a single- or double-byte page; a unit that the page lacks
// becomes the defaultLen bytes of defaultChar. wantUsed: the caller reads
// usedDefault.
Result wideToTable(const CodePage &cp, const WCHAR *in, size_t len, char *out, size_t room,
                   const unsigned char *defaultChar, size_t defaultLen, bool wantUsed);
// UTF-8; an ill-formed part becomes U+FFFD unless strict, and a lone
// surrogate likewise on the way back.
Result utf8ToWide(const unsigned char *in, size_t len, WCHAR *out, size_t room, bool strict);
Result wideToUtf8(const WCHAR *in, size_t len, char *out, size_t room, bool strict);
// UTF-7; input that iconv refuses fails with ERROR_NO_UNICODE_TRANSLATION.
Result utf7ToWide(const char *in, size_t len, WCHAR *out, size_t room);
Result wideToUtf7(const WCHAR *in, size_t len, char *out, size_t room);

} // namespace tsp
