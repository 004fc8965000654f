// What tssc prints, in sc.exe's form.
#pragma once

#include <windows.h>

#include <string>

namespace tssc {

// printf into the output (console.h).
void say(const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 1, 2)))
#endif
    ;
// "[SC] call FAILED code:" with the error's message; gives the exit code,
// which is the error.
int failed(const char *call, DWORD code);
// A service's status; ex adds its process id and flags (queryex, start).
void printStatus(const std::string &name, const std::string *display, const SERVICE_STATUS_PROCESS &s, bool ex);
// The names of a service type and a start type as sc.exe gives them.
std::string typeName(DWORD type);
const char *startName(DWORD start);
const char *errorControlName(DWORD errorControl);

} // namespace tssc
