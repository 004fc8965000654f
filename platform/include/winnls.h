/* Code pages. The tables of a code page are built once, from iconv, the
 * first time the page is used. */
#ifndef TSPLATFORM_WINNLS_H
#define TSPLATFORM_WINNLS_H

#include "windef.h"

#define CP_ACP        0
#define CP_OEMCP      1
#define CP_MACCP      2
#define CP_THREAD_ACP 3
#define CP_SYMBOL     42
#define CP_UTF7       65000
#define CP_UTF8       65001

#define MAX_LEADBYTES     12
#define MAX_DEFAULTCHAR   2

/* MultiByteToWideChar flags. */
#define MB_PRECOMPOSED       0x00000001
#define MB_COMPOSITE         0x00000002
#define MB_USEGLYPHCHARS     0x00000004
#define MB_ERR_INVALID_CHARS 0x00000008

/* WideCharToMultiByte flags. */
#define WC_DISCARDNS         0x00000010
#define WC_SEPCHARS          0x00000020
#define WC_DEFAULTCHAR       0x00000040
#define WC_ERR_INVALID_CHARS 0x00000080
#define WC_COMPOSITECHECK    0x00000200
#define WC_NO_BEST_FIT_CHARS 0x00000400

typedef const CHAR *LPCCH, *PCCH;
typedef const WCHAR *LPCWCH, *PCWCH;

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

/* The system's ANSI code page: the registry value "ACP" (REG_SZ, such as
 * "932") of HKLM\SYSTEM\CurrentControlSet\Control\Nls\CodePage when it
 * names a code page that this layer knows, else 1252. Read once, at the
 * first call in the process; the _mbs functions start in this page too. */
WINBASEAPI UINT WINAPI GetACP(void);
/* The OEM code page: the value "OEMCP" beside "ACP", else the one that goes
 * with the ANSI page (437 with 1252, 932 with 932, ...). */
WINBASEAPI UINT WINAPI GetOEMCP(void);

/* Text of a code page to UTF-16. CodePage: a code page, CP_ACP,
 * CP_THREAD_ACP (the ANSI page), CP_OEMCP, CP_MACCP (10000), CP_UTF8 or
 * CP_UTF7. cbMultiByte -1: the input ends with its terminator, which is
 * converted and counted too; otherwise exactly cbMultiByte bytes, zeros
 * included, and no terminator is added. cchWideChar 0: nothing is written
 * and the count needed is returned. Returns the units written (or needed);
 * 0 on failure with GetLastError:
 *   ERROR_INVALID_PARAMETER  null input, cbMultiByte 0 or below -1,
 *                            cchWideChar negative, output null with a size,
 *                            input and output the same, unknown code page;
 *   ERROR_INVALID_FLAGS      flags outside MB_PRECOMPOSED, MB_COMPOSITE,
 *                            MB_USEGLYPHCHARS and MB_ERR_INVALID_CHARS, the
 *                            first two together, anything but
 *                            MB_ERR_INVALID_CHARS for UTF-8, any flag for
 *                            UTF-7;
 *   ERROR_INSUFFICIENT_BUFFER the output is too small (part of it may have
 *                            been written);
 *   ERROR_NO_UNICODE_TRANSLATION  an invalid sequence with
 *                            MB_ERR_INVALID_CHARS.
 * Without MB_ERR_INVALID_CHARS an invalid sequence becomes U+FFFD in UTF-8
 * (one for each maximal ill-formed part), and in a double-byte page the
 * page's default (U+30FB in 932, '?' elsewhere), with the second byte of a
 * bad pair read again on its own. Characters come precomposed whatever the
 * flags ask. */
WINBASEAPI int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr, int cbMultiByte,
                                          LPWSTR lpWideCharStr, int cchWideChar);
/* UTF-16 to text of a code page, the sizes as above (cchWideChar -1: the
 * input ends with its terminator). A unit that the page lacks, a lone
 * surrogate and each half of a pair become the default character:
 * lpDefaultChar's first character (one byte, or two for a lead byte and
 * its trail), else '?'; *lpUsedDefaultChar tells whether that happened.
 * No best fits are made (as with WC_NO_BEST_FIT_CHARS), so the text always
 * converts back to the same units but for the replaced ones. Errors as
 * above, and ERROR_INVALID_PARAMETER for a default character or
 * lpUsedDefaultChar with UTF-8 or UTF-7; ERROR_INVALID_FLAGS for flags
 * outside WC_COMPOSITECHECK, WC_DISCARDNS, WC_SEPCHARS, WC_DEFAULTCHAR and
 * WC_NO_BEST_FIT_CHARS, or anything but WC_ERR_INVALID_CHARS for UTF-8;
 * with WC_ERR_INVALID_CHARS a lone surrogate fails with
 * ERROR_NO_UNICODE_TRANSLATION (without it, UTF-8 gets U+FFFD). */
WINBASEAPI int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr, int cchWideChar,
                                          LPSTR lpMultiByteStr, int cbMultiByte, LPCCH lpDefaultChar,
                                          LPBOOL lpUsedDefaultChar);

TS_EXTERN_C_END

#endif /* TSPLATFORM_WINNLS_H */
