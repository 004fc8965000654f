// GenericText: the library's text primitives. The character copy and the
// plain real conversions are here; the conversions between narrow and
// wide text join them in the same class.
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

    virtual ~GenericText();

    // Copies the first character of in (one or two bytes) and a
    // terminator to out, which has MAX_MBCS_BYTES + 1 bytes; an empty in
    // gives an empty out. Gives out.
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

protected:
    GenericText() = default; // never instantiated: a holder of static operations
};
