// The frame every exported class shares: the export macro, the two-valued
// BOOLTYPE and the library's exported constants.
#pragma once

#include <windows.h>

// BOOLTYPE takes the names FALSE and TRUE; the platform's macros of those
// names would turn them into plain numbers. <windows.h> is included above,
// so its guards keep the macros from coming back.
#undef FALSE
#undef TRUE

// TSUTIL_API marks what the library exports (export while building the
// library, import for its users); the build generates it, see
// src/CMakeLists.txt.
#include "TSUtilExport.h"

// Two values of the width of int: FALSE (0) and TRUE (1).
enum BOOLTYPE { FALSE = 0, TRUE = 1 };
static_assert(sizeof(BOOLTYPE) == sizeof(int), "BOOLTYPE has the width of int");

// The library's exported constants. The text constants are arrays that
// hold their characters, so their names are the text itself.
extern TSUTIL_API double const ZERO64;      // 0.0
extern TSUTIL_API double const MATH_PI;     // 3.141592654: ten digits, not the double nearest pi
extern TSUTIL_API double const NUMERIC_EPS; // 1e-15
extern TSUTIL_API char const _TCR[2];       // one line feed, "\n"
extern TSUTIL_API char const _TBS[2];       // one backslash, the path separator
extern TSUTIL_API char const _TBLANK[1];    // the empty text
