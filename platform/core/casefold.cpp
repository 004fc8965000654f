// Case folding.
#include "casefold.h"

#include <cstdint>

namespace tsp {

namespace {

struct UpcasePair {
    uint16_t unit, upper;
};
const UpcasePair kUpcasePairs[] = {
#include "upcase_table.inc"
};

// Every unit's upper case, made once from the pairs: one look-up per unit.
const char16_t *upcaseTable()
{
    static const char16_t *const table = [] {
        char16_t *t = new char16_t[0x10000];
        for (uint32_t u = 0; u < 0x10000; ++u)
            t[u] = static_cast<char16_t>(u);
        for (const UpcasePair &p : kUpcasePairs)
            t[p.unit] = static_cast<char16_t>(p.upper);
        return t;
    }();
    return table;
}

} // namespace

char16_t upperUnit(char16_t u) { return upcaseTable()[u]; }

std::u16string foldUpper(std::u16string s)
{
    const char16_t *t = upcaseTable();
    for (char16_t &u : s)
        u = t[u];
    return s;
}

bool equalNoCase(const std::u16string &a, const std::u16string &b)
{
    if (a.size() != b.size())
        return false;
    const char16_t *t = upcaseTable();
    for (size_t i = 0; i < a.size(); ++i)
        if (t[a[i]] != t[b[i]])
            return false;
    return true;
}

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
