/* Code pages. The tables of a code page are built once, from iconv, the
 * first time the page is used. */
#ifndef TSPLATFORM_WINNLS_H
#define TSPLATFORM_WINNLS_H

#include "windef.h"

#define CP_ACP        0
#define CP_OEMCP      1
#define CP_MACCP      2
#define CP_THREAD_ACP 3
#define CP_UTF7       65000
#define CP_UTF8       65001

#define MAX_LEADBYTES     12
#define MAX_DEFAULTCHAR   2

typedef struct _cpinfo {
    UINT MaxCharSize;
    BYTE DefaultChar[MAX_DEFAULTCHAR];
    BYTE LeadByte[MAX_LEADBYTES];
} CPINFO, *LPCPINFO;

TS_EXTERN_C_BEGIN

/* True when TestChar begins a double-byte character of the code page;
 * an unknown code page gives FALSE with ERROR_INVALID_PARAMETER. */
WINBASEAPI BOOL WINAPI IsDBCSLeadByteEx(UINT CodePage, BYTE TestChar);
/* Largest character size, the default character and the lead-byte ranges
 * (pairs, ended by two zeros). */
WINBASEAPI BOOL WINAPI GetCPInfo(UINT CodePage, LPCPINFO lpCPInfo);
WINBASEAPI BOOL WINAPI IsValidCodePage(UINT CodePage);

TS_EXTERN_C_END

#endif /* TSPLATFORM_WINNLS_H */
