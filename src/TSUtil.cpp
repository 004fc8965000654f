// The library's frame: the exported constants and the module entry's steps.
#include "ModEntry.h"

#include <afxdll_.h>

#include <new>

// extern: a const at namespace scope would otherwise have internal linkage.
extern TSUTIL_API double const ZERO64 = 0.0;
extern TSUTIL_API double const MATH_PI = 3.141592654;
extern TSUTIL_API double const NUMERIC_EPS = 1e-15;
extern TSUTIL_API char const _TCR[2] = "\n";
extern TSUTIL_API char const _TBS[2] = "\\";
extern TSUTIL_API char const _TBLANK[1] = "";

namespace {

// The library's record with the framework, alive while the library is
// loaded. Zero-initialised, so it is ready before any constructor runs.
AFX_EXTENSION_MODULE moduleRecord;

} // namespace

namespace tsutil {

int ModuleEntry(HINSTANCE instance, DWORD reason)
{
    if (reason == kModuleLoad) {
        // The result is not looked at: a library the framework will not
        // record still loads, it only finds no resources through it.
        AfxInitExtensionModule(moduleRecord, instance);
        AFX_MODULE_STATE *state = AfxGetModuleState();
        if (!state->m_hCurrentResourceHandle)
            state->m_hCurrentResourceHandle = instance;
        // The framework owns the object from here on and deletes it in
        // AfxTermExtensionModule. A failed allocation only skips the step.
        new (std::nothrow) CDynLinkLibrary(moduleRecord, 0);
    } else if (reason == kModuleUnload) {
        AfxTermExtensionModule(moduleRecord, 0);
    }
    return 1;
}

} // namespace tsutil
