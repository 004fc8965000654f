// The registry's text conversions between the A calls and the store: the
// process's ANSI code page (GetACP) and UTF-16, as Windows converts them (a
// character the code page lacks becomes its default character).
#pragma once

#include "regstore.h"

#include <string>

namespace tsp {
namespace reg {

Name widen(const char *s, size_t n);
std::string narrow(const Name &s);
// A null name stays null (false): it means something else than "".
bool widenName(LPCSTR s, Name &out);
// The units of a W call's name; "" for null.
Name nameOfW(LPCWSTR s);

bool isStringType(DWORD type);
// The text of an A call's string data as the store keeps it: UTF-16LE.
std::string dataFromAnsi(const BYTE *data, DWORD size);
// The stored data as an A call gives it: the string types' text in the
// code page (an odd last byte has no unit and is dropped, as on Windows),
// other types as they are.
std::string dataToAnsi(DWORD type, const std::string &data);

} // namespace reg
} // namespace tsp
