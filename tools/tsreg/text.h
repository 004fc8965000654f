// tsreg's text: UTF-8 inside the program, UTF-16 at the registry's W calls,
// the ANSI code page (GetACP) for REGEDIT4 files. Conversions are exact or
// fail: text is never altered in silence.
#pragma once

#include "widetext.h"

#include <string>

namespace tsreg {

using tstools::utf8ToWide;
using tstools::wideToUtf8;
using tstools::WString;

// The text of the ANSI code page as UTF-16 (always possible).
WString ansiToWide(const std::string &ansi);
// UTF-16 in the ANSI code page; false when a character is not in it.
bool wideToAnsi(const WString &wide, std::string &out);

// UTF-16 as the little-endian bytes the registry keeps, and back (an odd
// last byte is left out).
std::string wideBytes(const WString &wide);
WString wideOfBytes(const std::string &bytes);

// UTF-8 text as a W call takes it; the text must be valid (checked where
// it came in).
WString wide(const std::string &utf8);

// True when a and b are the same text but for letter case, as registry
// names compare (Unicode's simple upper case).
bool sameText(const std::string &a, const std::string &b);

} // namespace tsreg
