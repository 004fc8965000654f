// Text of the service calls: UTF-16 or the ANSI code page at the calls,
// UTF-8 on the wire.
#include "serviceclient.h"

#include "nls.h"
#include "textconv.h"

namespace tsp::svc {

bool wideToWire(LPCWSTR text, std::string &out)
{
    out.clear();
    if (!text)
        return true;
    size_t len = 0;
    while (text[len])
        ++len;
    Result need = wideToUtf8(text, len, nullptr, 0, true);
    if (need.error)
        return false;
    out.resize(need.count);
    return wideToUtf8(text, len, out.data(), out.size(), true).error == ERROR_SUCCESS;
}

bool wideList(LPCWSTR block, std::vector<std::string> &out)
{
    for (LPCWSTR d = block; d && *d;) {
        std::string one;
        if (!wideToWire(d, one))
            return false;
        out.push_back(std::move(one));
        while (*d)
            ++d;
        ++d;
    }
    return true;
}

std::basic_string<WCHAR> wireToWide(const std::string &text)
{
    const auto *in = reinterpret_cast<const unsigned char *>(text.data());
    Result need = utf8ToWide(in, text.size(), nullptr, 0, false);
    std::basic_string<WCHAR> out(need.count, 0);
    utf8ToWide(in, text.size(), out.data(), out.size(), false);
    return out;
}

std::string wireToAnsi(const std::string &text)
{
    std::basic_string<WCHAR> wide = wireToWide(text);
    return narrowText(wide.c_str(), CP_ACP);
}

} // namespace tsp::svc
