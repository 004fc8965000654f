// GenericText: character copy and plain real conversion.
#include "GenTxt.h"

#include <mbstring.h>
#include <stdlib.h>

const DiagGuard::ClassNameIndex GenericText::CLASS_INDEX;

GenericText::~GenericText() {}

char *GenericText::CopyFirstCharString(char *out, const char *in)
{
    const unsigned char *from = reinterpret_cast<const unsigned char *>(in);
    if (!*from) {
        *out = 0;
        return out;
    }
    size_t bytes = static_cast<size_t>(_mbsinc(from) - from);
    _mbsncpy(reinterpret_cast<unsigned char *>(out), from, 1);
    out[bytes] = 0;
    return out;
}

unsigned short *GenericText::CopyFirstCharString(unsigned short *out, const unsigned short *in)
{
    if (!*in) {
        *out = 0;
        return out;
    }
    out[0] = in[0];
    out[1] = 0;
    return out;
}

double GenericText::StringToReal(const char *text) { return text ? atof(text) : 0.0; }

char *GenericText::RealToString(const double &value, char *out, int digits) { return _gcvt(value, digits, out); }
