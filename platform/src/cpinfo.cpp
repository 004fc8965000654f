// Code page queries.
#include <windows.h>

#include "codepage.h"

using namespace tsp;

namespace {

const CodePage *resolve(UINT id) { return codePage(resolveCodePage(id)); }

} // namespace

extern "C" {

BOOL WINAPI IsDBCSLeadByteEx(UINT CodePage, BYTE TestChar)
{
    const tsp::CodePage *cp = resolve(CodePage);
    if (!cp) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return cp->lead[TestChar] ? TRUE : FALSE;
}

BOOL WINAPI GetCPInfo(UINT CodePage, LPCPINFO lpCPInfo)
{
    if (!lpCPInfo) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    CodePage = resolveCodePage(CodePage);
    if (CodePage == CP_UTF8 || CodePage == CP_UTF7) {
        lpCPInfo->MaxCharSize = CodePage == CP_UTF8 ? 4 : 5;
        lpCPInfo->DefaultChar[0] = '?';
        lpCPInfo->DefaultChar[1] = 0;
        for (BYTE &b : lpCPInfo->LeadByte)
            b = 0;
        return TRUE;
    }
    const tsp::CodePage *cp = codePage(CodePage);
    if (!cp) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    lpCPInfo->MaxCharSize = cp->doubleByte ? 2 : 1;
    lpCPInfo->DefaultChar[0] = '?';
    lpCPInfo->DefaultChar[1] = 0;
    for (BYTE &b : lpCPInfo->LeadByte)
        b = 0;
    // Ranges of lead bytes as pairs, at most five, ended by two zeros.
    int n = 0;
    for (int b = 0; b < 256 && n < MAX_LEADBYTES - 2;) {
        if (!cp->lead[b]) {
            ++b;
            continue;
        }
        int first = b;
        while (b < 256 && cp->lead[b])
            ++b;
        lpCPInfo->LeadByte[n++] = static_cast<BYTE>(first);
        lpCPInfo->LeadByte[n++] = static_cast<BYTE>(b - 1);
    }
    return TRUE;
}

BOOL WINAPI IsValidCodePage(UINT CodePage)
{
    if (CodePage == CP_UTF8 || CodePage == CP_UTF7)
        return TRUE;
    // The symbolic ids (CP_ACP and the like) are no code pages of their own.
    return CodePage > CP_THREAD_ACP && codePage(CodePage) ? TRUE : FALSE;
}

} // extern "C"
