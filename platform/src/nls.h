// Conversions for the layer's own use, on the calls of nls.cpp.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace tsp {

// Wide text (null-ended; null is empty) in the code page. Exactly: false
// when the page lacks a character of it (for a page with a default
// character), with out empty.
std::string narrowText(LPCWSTR wide, UINT codePage);
bool narrowTextExactly(LPCWSTR wide, UINT codePage, std::string &out);

// Text of the code page as wide units, with the terminator.
std::vector<WCHAR> wideText(const std::string &text, UINT codePage);

} // namespace tsp
