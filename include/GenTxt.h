// GenericText: the library's text primitives: the character copy, the
// conversions between narrow and wide text, and reals as text in both.
//
// Narrow strings are multibyte text of the multibyte code page in char;
// wide strings are 16-bit units in unsigned short, ended by a zero unit.
// No operation takes the size of its output: the caller gives the room
// that each declaration names.
#pragma once

#include "TSDefs.h"
#include "DiagGrd.h"

#include <afx.h>

class TSUTIL_API GenericText : public CObject {
public:
    // The class's index in a diagnostic guard's table of masks.
    static const DiagGuard::ClassNameIndex CLASS_INDEX = DiagGuard::GenericTextIndex;
    // The most bytes that one multibyte character may take.
    static const int MAX_MBCS_BYTES = 2;

    // The class holds no state of its own.
    virtual ~GenericText();

    // Copies the first character of in (one or two bytes) and a
    // terminator to out, which has MAX_MBCS_BYTES + 1 bytes; an empty in
    // gives an empty out. Gives out. A longer character fails a gated
    // assertion and, with the gate shut, is copied all the same.
    static char *CopyFirstCharString(char *out, const char *in);
    // Copies the first unit of in and a terminator unit to out (2 units);
    // a character of two units comes out as its first unit. Gives out.
    static unsigned short *CopyFirstCharString(unsigned short *out, const unsigned short *in);

    // The decimal number at the start of text (sign, fraction and
    // exponent optional); 0.0 when none starts it. Trailing text is
    // ignored.
    static double StringToReal(const char *text);
    // value with digits significant digits into out, in decimal form if it
    // can and in exponential form with a lower-case "e" if not; out needs
    // room for the whole text. Gives out.
    static char *RealToString(const double &value, char *out, int digits);

    // The conversions between the two kinds of string, in codePage (0: the
    // system's default code page). in ends with its terminator. out has
    // room for the whole text with its terminator: for ConvertToMBCS what
    // the text needs in the code page, for ConvertToUnicode one unit per
    // character of in and one more. Characters that the code page lacks are
    // replaced. When the platform refuses, a gated assertion reports which
    // error it was, and the result is FALSE.
    static BOOLTYPE ConvertToMBCS(const unsigned short *in, char *out, unsigned int codePage);
    static BOOLTYPE ConvertToUnicode(const char *in, unsigned short *out, unsigned int codePage);

    // The number at the start of a wide text of at most 31 bytes in the
    // default code page; 0.0 when none starts it or the text is longer.
    static double StringToReal(const unsigned short *text);
    // value with digits significant digits into out as wide text. digits is
    // taken as 1 to 24, so that the text always fits 31 bytes. Gives out.
    static unsigned short *RealToString(const double &value, unsigned short *out, int digits);

protected:
    GenericText() = default; // never instantiated: a holder of static operations
};
