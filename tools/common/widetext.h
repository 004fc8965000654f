// The tools' one conversion between their UTF-8 text and the UTF-16 of the
// W calls, through the code page calls of the platform (or of Windows).
// A conversion is exact or fails: text is never altered in silence.
#pragma once

#include <windows.h>

#include <string>

namespace tstools {

using WString = std::basic_string<WCHAR>;

// Text of a code page as UTF-16. With MB_ERR_INVALID_CHARS, false for
// bytes that are not text of that code page; the empty text converts.
inline bool codePageToWide(UINT codePage, DWORD flags, const std::string &text, WString &out)
{
    out.clear();
    if (text.empty())
        return true;
    int len = static_cast<int>(text.size());
    int n = MultiByteToWideChar(codePage, flags, text.data(), len, nullptr, 0);
    if (n <= 0)
        return false;
    out.resize(static_cast<size_t>(n));
    return MultiByteToWideChar(codePage, flags, text.data(), len, &out[0], n) == n;
}

// UTF-16 in a code page. For UTF-8 with WC_ERR_INVALID_CHARS, false for a
// lone surrogate; other code pages give their default character for what
// they lack, as WideCharToMultiByte does.
inline bool wideToCodePage(UINT codePage, DWORD flags, const WCHAR *wide, size_t len, std::string &out)
{
    out.clear();
    if (len == 0)
        return true;
    int wlen = static_cast<int>(len);
    int n = WideCharToMultiByte(codePage, flags, wide, wlen, nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return false;
    out.resize(static_cast<size_t>(n));
    return WideCharToMultiByte(codePage, flags, wide, wlen, &out[0], n, nullptr, nullptr) == n;
}

// UTF-8 to UTF-16; false for bytes that are not UTF-8.
inline bool utf8ToWide(const std::string &utf8, WString &out)
{
    return codePageToWide(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, out);
}

// UTF-16 to UTF-8; false for a lone surrogate.
inline bool wideToUtf8(const WString &wide, std::string &out)
{
    return wideToCodePage(CP_UTF8, WC_ERR_INVALID_CHARS, wide.data(), wide.size(), out);
}

// A terminated UTF-16 text (null: empty) as UTF-8, for printing what a W
// call gave; a lone surrogate prints as U+FFFD.
inline std::string utf8Of(const WCHAR *wide)
{
    std::string out;
    if (!wide)
        return out;
    size_t len = 0;
    while (wide[len])
        ++len;
    wideToCodePage(CP_UTF8, 0, wide, len, out);
    return out;
}

} // namespace tstools
