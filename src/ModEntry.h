// The module entry's steps, shared by the platform's two ways of running
// them (DllMain on Windows, load and unload hooks on POSIX).
#pragma once

#include "TSDefs.h"

namespace tsutil {

// The reasons the entry is called with.
constexpr DWORD kModuleUnload = 0;
constexpr DWORD kModuleLoad = 1;

// Load: registers the library with the framework as an extension module
// and wires in its CDynLinkLibrary. Unload: unwires it again. Any other
// reason does nothing. Always 1: a failed step never fails the load.
// It uses nothing of this library that a constructor builds at run time:
// on POSIX it runs before the library's other static constructors, on
// Windows after them.
int ModuleEntry(HINSTANCE instance, DWORD reason);

} // namespace tsutil
