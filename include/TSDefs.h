// The frame every exported class shares: the export macro, the two-valued
// BOOLTYPE and the library's exported constants.
#pragma once

#include <windows.h>

// BOOLTYPE takes the names FALSE and TRUE; the platform's macros of those
// names would turn them into plain numbers. <windows.h> is included above,
// so its guards keep the macros from coming back.
#undef FALSE
#undef TRUE

#if defined(_WIN32)
#if defined(TSUTIL_BUILD)
#define TSUTIL_API __declspec(dllexport)
#else
#define TSUTIL_API __declspec(dllimport)
#endif
#else
#define TSUTIL_API __attribute__((visibility("default")))
#endif

// Two values of the width of int: FALSE (0) and TRUE (1).
enum BOOLTYPE { FALSE = 0, TRUE = 1 };
static_assert(sizeof(BOOLTYPE) == sizeof(int), "BOOLTYPE has the width of int");
