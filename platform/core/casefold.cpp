// Case folding.
#include "casefold.h"

#include "unittable.h"

#include <cstdint>

namespace tsp {

namespace {

struct UpcasePair {
    uint16_t unit, upper;
};
const UpcasePair kUpcasePairs[] = {
#include "upcase_table.inc"
};

// Every unit's upper case, made once from the pairs, as the distance to it
// (zero for the units without one).
class UpcaseTable {
public:
    UpcaseTable()
    {
        for (const UpcasePair &p : kUpcasePairs)
            delta_.set(p.unit, static_cast<uint16_t>(p.upper - p.unit));
    }
    char16_t operator()(char16_t u) const { return static_cast<char16_t>(u + delta_[u]); }

private:
    UnitTable<uint16_t> delta_{0};
};

const UpcaseTable &upcaseTable()
{
    static const UpcaseTable *const table = new UpcaseTable; // never destroyed: folds run to the process's end
    return *table;
}

} // namespace

char16_t upperUnit(char16_t u) { return upcaseTable()(u); }

std::u16string foldUpper(std::u16string s)
{
    const UpcaseTable &t = upcaseTable();
    for (char16_t &u : s)
        u = t(u);
    return s;
}

bool equalNoCase(const std::u16string &a, const std::u16string &b)
{
    if (a.size() != b.size())
        return false;
    const UpcaseTable &t = upcaseTable();
    for (size_t i = 0; i < a.size(); ++i)
        if (t(a[i]) != t(b[i]))
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
