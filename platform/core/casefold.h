// Case folding: how the layer, the service manager and the tools compare
// names that match without case (registry keys and values, service names,
// drive letters, command words). One fold for all: each UTF-16 unit maps to
// its simple upper case where that goes both ways (upcase_table.inc, made
// by gen_upcase.py from the Unicode data), as Windows' upper-case table does; surrogates and units
// without an upper case stay. Narrow text of no known code page folds only
// its ASCII letters, the part of that table that every code page shares.
#pragma once

#include <string>

namespace tsp {

inline char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
inline char asciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// The string with every ASCII letter in lower (upper) case. The registry
// orders names by their upper-case fold, as Windows does, which puts "_"
// after the letters; the other users only compare.
std::string foldLower(std::string s);
std::string foldUpper(std::string s);

// True when a and b are equal but for the case of ASCII letters.
bool equalNoCase(const std::string &a, const std::string &b);

// The simple upper case of one UTF-16 unit.
char16_t upperUnit(char16_t u);

// The text with every unit in upper case; the registry keys names by it.
std::u16string foldUpper(std::u16string s);

// True when a and b have the same upper-case fold.
bool equalNoCase(const std::u16string &a, const std::u16string &b);

} // namespace tsp
