// Conversions between code pages and UTF-16: MultiByteToWideChar,
// WideCharToMultiByte, GetACP, GetOEMCP, the C runtime's mbstowcs and
// wcstombs for 16-bit strings, and the layer's own conversions. The
// engines are in textconv.cpp.
#include <stdlib.h>
#include <windows.h>

#include "codepage.h"
#include "nls.h"
#include "textconv.h"

#include <assert.h>
#include <errno.h>
#include <string.h>

#include <string>

using namespace tsp;

namespace {

int finish(const Result &r)
{
    if (r.error != ERROR_SUCCESS) {
        SetLastError(r.error);
        return 0;
    }
    if (r.count > static_cast<size_t>(INT32_MAX)) {
        SetLastError(ERROR_ARITHMETIC_OVERFLOW);
        return 0;
    }
    return static_cast<int>(r.count);
}

int fail(DWORD error)
{
    SetLastError(error);
    return 0;
}

size_t wideLength(const WCHAR *s)
{
    size_t n = 0;
    while (s[n])
        ++n;
    return n;
}

} // namespace

extern "C" {

UINT WINAPI GetACP(void) { return ansiCodePage(); }

UINT WINAPI GetOEMCP(void) { return oemCodePage(); }

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar)
{
    if (!lpMultiByteStr || cbMultiByte == 0 || cbMultiByte < -1 || cchWideChar < 0 ||
        (cchWideChar && !lpWideCharStr) ||
        static_cast<const void *>(lpMultiByteStr) == static_cast<const void *>(lpWideCharStr))
        return fail(ERROR_INVALID_PARAMETER);
    UINT id = resolveCodePage(CodePage);
    const unsigned char *in = reinterpret_cast<const unsigned char *>(lpMultiByteStr);
    size_t len = cbMultiByte == -1 ? strlen(lpMultiByteStr) + 1 : static_cast<size_t>(cbMultiByte);
    WCHAR *out = cchWideChar ? lpWideCharStr : nullptr;
    size_t room = static_cast<size_t>(cchWideChar);
    bool strict = dwFlags & MB_ERR_INVALID_CHARS;
    if (id == CP_UTF8) {
        if (dwFlags & ~static_cast<DWORD>(MB_ERR_INVALID_CHARS))
            return fail(ERROR_INVALID_FLAGS);
        return finish(utf8ToWide(in, len, out, room, strict));
    }
    if (id == CP_UTF7) {
        if (dwFlags)
            return fail(ERROR_INVALID_FLAGS);
        return finish(utf7ToWide(lpMultiByteStr, len, out, room));
    }
    const tsp::CodePage *cp = codePage(id);
    if (!cp)
        return fail(ERROR_INVALID_PARAMETER);
    const DWORD known = MB_PRECOMPOSED | MB_COMPOSITE | MB_USEGLYPHCHARS | MB_ERR_INVALID_CHARS;
    if ((dwFlags & ~known) || ((dwFlags & MB_PRECOMPOSED) && (dwFlags & MB_COMPOSITE)))
        return fail(ERROR_INVALID_FLAGS);
    return finish(tableToWide(*cp, in, len, out, room, strict));
}

int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCCH lpDefaultChar,
                               LPBOOL lpUsedDefaultChar)
{
    if (!lpWideCharStr || cchWideChar == 0 || cchWideChar < -1 || cbMultiByte < 0 ||
        (cbMultiByte && !lpMultiByteStr) ||
        static_cast<const void *>(lpMultiByteStr) == static_cast<const void *>(lpWideCharStr))
        return fail(ERROR_INVALID_PARAMETER);
    UINT id = resolveCodePage(CodePage);
    size_t len = cchWideChar == -1 ? wideLength(lpWideCharStr) + 1 : static_cast<size_t>(cchWideChar);
    char *out = cbMultiByte ? lpMultiByteStr : nullptr;
    size_t room = static_cast<size_t>(cbMultiByte);
    if (id == CP_UTF8 || id == CP_UTF7) {
        // The Unicode pages have no default character to speak of.
        if (lpDefaultChar || lpUsedDefaultChar)
            return fail(ERROR_INVALID_PARAMETER);
        if (id == CP_UTF7) {
            if (dwFlags)
                return fail(ERROR_INVALID_FLAGS);
            return finish(wideToUtf7(lpWideCharStr, len, out, room));
        }
        if (dwFlags & ~static_cast<DWORD>(WC_ERR_INVALID_CHARS))
            return fail(ERROR_INVALID_FLAGS);
        return finish(wideToUtf8(lpWideCharStr, len, out, room, dwFlags & WC_ERR_INVALID_CHARS));
    }
    const tsp::CodePage *cp = codePage(id);
    if (!cp)
        return fail(ERROR_INVALID_PARAMETER);
    // The composite checks are taken and have nothing to do: the tables
    // hold precomposed characters only, and no character is made of
    // parts. Best fits are never made, so WC_NO_BEST_FIT_CHARS is what
    // every conversion does: a character that the page lacks becomes the
    // default character.
    const DWORD known = WC_COMPOSITECHECK | WC_DISCARDNS | WC_SEPCHARS | WC_DEFAULTCHAR | WC_NO_BEST_FIT_CHARS;
    if (dwFlags & ~known)
        return fail(ERROR_INVALID_FLAGS);
    unsigned char defaultChar[2] = {'?', 0};
    size_t defaultLen = 1;
    if (lpDefaultChar) {
        defaultChar[0] = static_cast<unsigned char>(lpDefaultChar[0]);
        defaultChar[1] = static_cast<unsigned char>(lpDefaultChar[1]);
        if (cp->lead[defaultChar[0]] && defaultChar[1])
            defaultLen = 2;
    }
    Result r = wideToTable(*cp, lpWideCharStr, len, out, room, defaultChar, defaultLen, lpUsedDefaultChar != nullptr);
    if (lpUsedDefaultChar)
        *lpUsedDefaultChar = r.usedDefault ? TRUE : FALSE;
    return finish(r);
}

} // extern "C"

namespace tsp {

std::string narrowText(LPCWSTR wide, UINT codePage)
{
    std::string out;
    if (!wide || !*wide)
        return out;
    int n = WideCharToMultiByte(codePage, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return out;
    out.resize(static_cast<size_t>(n));
    [[maybe_unused]] int written = WideCharToMultiByte(codePage, 0, wide, -1, &out[0], n, nullptr, nullptr);
    assert(written == n && "a conversion sized beforehand cannot fail");
    out.resize(static_cast<size_t>(n - 1));
    return out;
}

bool narrowTextExactly(LPCWSTR wide, UINT codePage, std::string &out)
{
    out.clear();
    if (!wide || !*wide)
        return true;
    BOOL lossy = FALSE;
    bool unicode = resolveCodePage(codePage) == CP_UTF8 || resolveCodePage(codePage) == CP_UTF7;
    DWORD flags = unicode ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
    if (resolveCodePage(codePage) == CP_UTF7)
        flags = 0;
    int n = WideCharToMultiByte(codePage, flags, wide, -1, nullptr, 0, nullptr, unicode ? nullptr : &lossy);
    if (n <= 0 || lossy)
        return false;
    out.resize(static_cast<size_t>(n));
    [[maybe_unused]] int written = WideCharToMultiByte(codePage, flags, wide, -1, &out[0], n, nullptr, nullptr);
    assert(written == n && "a conversion sized beforehand cannot fail");
    out.resize(static_cast<size_t>(n - 1));
    return true;
}

std::vector<WCHAR> wideText(const std::string &text, UINT codePage)
{
    int n = MultiByteToWideChar(codePage, 0, text.c_str(), -1, nullptr, 0);
    std::vector<WCHAR> out(n > 0 ? static_cast<size_t>(n) : 1, 0);
    if (n > 0) {
        [[maybe_unused]] int written = MultiByteToWideChar(codePage, 0, text.c_str(), -1, out.data(), n);
        assert(written == n && "a conversion sized beforehand cannot fail");
    }
    return out;
}

} // namespace tsp

// The C runtime's conversions for 16-bit strings, in the ANSI code page.

namespace {

Result ansiToWide(const char *mbstr, size_t len, WCHAR *out, size_t room)
{
    UINT id = ansiCodePage();
    const unsigned char *in = reinterpret_cast<const unsigned char *>(mbstr);
    if (id == CP_UTF8)
        return utf8ToWide(in, len, out, room, true);
    const tsp::CodePage *cp = codePage(id);
    assert(cp && "the ANSI code page is one that the layer knows");
    return tableToWide(*cp, in, len, out, room, true);
}

} // namespace

size_t mbstowcs(unsigned short *wcstr, const char *mbstr, size_t count)
{
    if (!mbstr) {
        errno = EINVAL;
        return static_cast<size_t>(-1);
    }
    size_t len = strlen(mbstr);
    Result all = ansiToWide(mbstr, len, nullptr, 0);
    if (all.error != ERROR_SUCCESS) {
        errno = EILSEQ;
        return static_cast<size_t>(-1);
    }
    if (!wcstr)
        return all.count;
    Result written = ansiToWide(mbstr, len, wcstr, count < all.count ? count : all.count);
    size_t n = written.count;
    if (n < all.count) {
        if (n && isHighSurrogate(wcstr[n - 1]))
            --n; // never half of a pair
        return n;
    }
    if (n < count)
        wcstr[n] = 0;
    return n;
}

size_t wcstombs(char *mbstr, const unsigned short *wcstr, size_t count)
{
    if (!wcstr) {
        errno = EINVAL;
        return static_cast<size_t>(-1);
    }
    UINT id = ansiCodePage();
    const tsp::CodePage *cp = id == CP_UTF8 ? nullptr : codePage(id);
    assert((id == CP_UTF8 || cp) && "the ANSI code page is one that the layer knows");
    // Character by character, so that the output ends on a whole one.
    size_t n = 0;
    for (size_t i = 0; wcstr[i]; ++i) {
        char bytes[4];
        size_t units = isHighSurrogate(wcstr[i]) && isLowSurrogate(wcstr[i + 1]) ? 2 : 1;
        Result r = cp ? wideToTable(*cp, wcstr + i, units, bytes, sizeof bytes, nullptr, 0, true)
                      : wideToUtf8(wcstr + i, units, bytes, sizeof bytes, true);
        if (r.error != ERROR_SUCCESS || r.usedDefault) {
            errno = EILSEQ;
            return static_cast<size_t>(-1);
        }
        if (mbstr) {
            if (count - n < r.count)
                return n;
            memcpy(mbstr + n, bytes, r.count);
        }
        n += r.count;
        i += units - 1;
    }
    if (mbstr && n < count)
        mbstr[n] = 0;
    return n;
}
