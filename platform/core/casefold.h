// ASCII case folding: how the layer, the service manager and the tools
// compare names that match without case (registry keys and values,
// service names, drive letters, command words). Only A-Z and a-z fold, as
// in the C runtime's "C" locale; other bytes compare as they are.
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

} // namespace tsp
