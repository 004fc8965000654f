// tsreg's text conversions.
#include "text.h"

#include "casefold.h"

namespace tsreg {

namespace {

std::u16string units(const std::string &utf8)
{
    WString w;
    utf8ToWide(utf8, w);
    return std::u16string(w.begin(), w.end());
}

} // namespace

WString ansiToWide(const std::string &ansi)
{
    WString out;
    tstools::codePageToWide(CP_ACP, 0, ansi, out);
    return out;
}

bool wideToAnsi(const WString &wide, std::string &out)
{
    out.clear();
    if (wide.empty())
        return true;
    int len = static_cast<int>(wide.size());
    BOOL usedDefault = FALSE;
    int n = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), len, nullptr, 0, nullptr, &usedDefault);
    if (n <= 0 || usedDefault)
        return false;
    out.resize(static_cast<size_t>(n));
    if (WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), len, &out[0], n, nullptr, &usedDefault) != n ||
        usedDefault)
        return false;
    return ansiToWide(out) == wide; // the round trip proves it exact
}

std::string wideBytes(const WString &wide)
{
    std::string out(wide.size() * 2, '\0');
    for (size_t i = 0; i < wide.size(); ++i) {
        out[2 * i] = static_cast<char>(wide[i] & 0xFF);
        out[2 * i + 1] = static_cast<char>((wide[i] >> 8) & 0xFF);
    }
    return out;
}

WString wideOfBytes(const std::string &bytes)
{
    WString out(bytes.size() / 2, 0);
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<WCHAR>(static_cast<unsigned char>(bytes[2 * i]) |
                                    (static_cast<unsigned char>(bytes[2 * i + 1]) << 8));
    return out;
}

WString wide(const std::string &utf8)
{
    WString w;
    utf8ToWide(utf8, w);
    return w;
}

bool sameText(const std::string &a, const std::string &b) { return tsp::equalNoCase(units(a), units(b)); }

} // namespace tsreg
