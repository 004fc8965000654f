// The registry's text conversions.
#include "regtext.h"

#include "regsql.h"

#include <string.h>

namespace tsp {
namespace reg {

Name widen(const char *s, size_t n)
{
    Name out(n, u'\0'); // never more units than bytes
    if (n) {
        int got = MultiByteToWideChar(CP_ACP, 0, s, static_cast<int>(n), reinterpret_cast<LPWSTR>(&out[0]),
                                      static_cast<int>(n));
        out.resize(got > 0 ? static_cast<size_t>(got) : 0);
    }
    return out;
}

std::string narrow(const Name &text)
{
    const char16_t *s = text.data();
    size_t n = text.size();
    if (!n)
        return std::string();
    LPCWSTR w = reinterpret_cast<LPCWSTR>(s);
    int size = WideCharToMultiByte(CP_ACP, 0, w, static_cast<int>(n), nullptr, 0, nullptr, nullptr);
    std::string out(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    if (size > 0)
        TS_CHECK(WideCharToMultiByte(CP_ACP, 0, w, static_cast<int>(n), &out[0], size, nullptr, nullptr) == size,
                 "WideCharToMultiByte(CP_ACP)");
    return out;
}

bool widenName(LPCSTR s, Name &out)
{
    out = s ? widen(s, strlen(s)) : Name();
    return s != nullptr;
}

Name nameOfW(LPCWSTR s)
{
    if (!s)
        return Name();
    size_t n = 0;
    while (s[n])
        ++n;
    return Name(reinterpret_cast<const char16_t *>(s), n);
}

bool isStringType(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

std::string dataFromAnsi(const BYTE *data, DWORD size)
{
    return size ? nameBytes(widen(reinterpret_cast<const char *>(data), size)) : std::string();
}

std::string dataToAnsi(DWORD type, const std::string &data)
{
    if (!isStringType(type))
        return data;
    return narrow(nameOf(data.data(), data.size()));
}

} // namespace reg
} // namespace tsp
