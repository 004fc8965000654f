// ASCII case folding.
#include "casefold.h"

namespace tsp {

std::string foldLower(std::string s)
{
    for (char &c : s)
        c = asciiLower(c);
    return s;
}

std::string foldUpper(std::string s)
{
    for (char &c : s)
        c = asciiUpper(c);
    return s;
}

bool equalNoCase(const std::string &a, const std::string &b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (asciiLower(a[i]) != asciiLower(b[i]))
            return false;
    return true;
}

} // namespace tsp
