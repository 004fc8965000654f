// GenericText: character copy, narrow and wide text, reals as text.
#include "GenTxt.h"

#include <mbstring.h>
#include <stdlib.h>
#include <windows.h>

#include <climits>

const DiagGuard::ClassNameIndex GenericText::CLASS_INDEX;

namespace {

// The room of the local buffers of the wide real conversions.
const int kRealTextRoom = 32;
// The most significant digits whose text fits kRealTextRoom - 1 bytes in
// either form: sign, digits, point and "e+308".
const int kMostRealDigits = kRealTextRoom - 8;

// Each platform error that a conversion can meet has its own assertion
// site, so that the report's line tells which it was.
void ReportRefusedToMBCS(DWORD error)
{
    switch (error) {
    case ERROR_INSUFFICIENT_BUFFER:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    case ERROR_INVALID_FLAGS:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    case ERROR_INVALID_PARAMETER:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    default:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    }
}

void ReportRefusedToUnicode(DWORD error)
{
    switch (error) {
    case ERROR_INSUFFICIENT_BUFFER:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    case ERROR_INVALID_FLAGS:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    case ERROR_INVALID_PARAMETER:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    case ERROR_NO_UNICODE_TRANSLATION:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    default:
        DIAG_ASSERT(GenericText::CLASS_INDEX, FALSE);
        break;
    }
}

// ConvertToMBCS with at most room bytes of output: a text that needs more
// is refused by the platform (ERROR_INSUFFICIENT_BUFFER) and reported as
// such, so that the wide StringToReal never writes past its buffer.
BOOLTYPE ToMBCSWithin(const unsigned short *in, char *out, UINT codePage, int room)
{
    if (codePage == 0)
        codePage = GetACP();
    const WCHAR *wide = reinterpret_cast<const WCHAR *>(in);
    int numBytesConvert = WideCharToMultiByte(codePage, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    int convertStatus = WideCharToMultiByte(codePage, 0, wide, -1, out, numBytesConvert < room ? numBytesConvert : room,
                                            nullptr, nullptr);
    if (convertStatus == 0) {
        ReportRefusedToMBCS(GetLastError());
        return FALSE;
    }
    DIAG_ASSERT(GenericText::CLASS_INDEX, convertStatus == numBytesConvert);
    return TRUE;
}

} // namespace

GenericText::~GenericText() {}

char *GenericText::CopyFirstCharString(char *out, const char *in_sourceStr)
{
    const unsigned char *from = reinterpret_cast<const unsigned char *>(in_sourceStr);
    if (!*from) {
        *out = 0;
        return out;
    }
    DIAG_ASSERT(CLASS_INDEX, _mbclen((const unsigned char*) in_sourceStr) <= MAX_MBCS_BYTES);
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

BOOLTYPE GenericText::ConvertToMBCS(const unsigned short *in, char *out, unsigned int codePage)
{
    return ToMBCSWithin(in, out, codePage, INT_MAX);
}

BOOLTYPE GenericText::ConvertToUnicode(const char *in, unsigned short *out, unsigned int codePage)
{
    // The code page goes to the platform as it came: 0 is resolved there.
    WCHAR *wide = reinterpret_cast<WCHAR *>(out);
    int numCharConvert = MultiByteToWideChar(codePage, 0, in, -1, nullptr, 0);
    int convertStatus = MultiByteToWideChar(codePage, 0, in, -1, wide, numCharConvert);
    if (convertStatus == 0) {
        ReportRefusedToUnicode(GetLastError());
        return FALSE;
    }
    DIAG_ASSERT(CLASS_INDEX, convertStatus == (INT) numCharConvert);
    return TRUE;
}

double GenericText::StringToReal(const unsigned short *text)
{
    char narrow[kRealTextRoom];
    if (ToMBCSWithin(text, narrow, 0, kRealTextRoom) == TRUE)
        return atof(narrow);
    return ZERO64;
}

unsigned short *GenericText::RealToString(const double &value, unsigned short *out, int digits)
{
    char narrow[kRealTextRoom];
    digits = digits < 1 ? 1 : digits > kMostRealDigits ? kMostRealDigits : digits;
    _gcvt(value, digits, narrow);
    ConvertToUnicode(narrow, out, 0); // a failure is reported by the conversion; out is given all the same
    return out;
}
