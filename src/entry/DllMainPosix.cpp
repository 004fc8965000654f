// The module entry on POSIX. One static object runs the load steps in its
// constructor and the unload steps in its destructor.
//
// Its place among the library's static objects does not come from the
// order in which the linker lays out their initialisers: init_priority puts
// its initialiser in a section of its own (.init_array.00101) that runs
// before the library's other static constructors wherever this unit is
// linked. Being built first, it is destroyed last: the C++ runtime tears
// statics down in the reverse order of their building, for dlclose and for
// process exit alike. So the module is registered with the framework for
// the whole life of every other static object of the library.
//
// Windows calls DllMain at the other end (after the DLL's statics are
// built, before they are torn down). The steps allow both: they use only
// the framework, a library loaded and initialised before this one, and a
// record of this library that is constant-initialised.
#include "../ModEntry.h"

#include <dlfcn.h>

namespace {

// The library's load address stands for its instance handle, as the module
// base does on Windows.
HINSTANCE ThisLibrary()
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void *>(&ThisLibrary), &info) && info.dli_fbase)
        return static_cast<HINSTANCE>(info.dli_fbase);
    return nullptr;
}

struct ModuleHooks {
    ModuleHooks() { tsutil::ModuleEntry(ThisLibrary(), tsutil::kModuleLoad); }
    ~ModuleHooks() { tsutil::ModuleEntry(ThisLibrary(), tsutil::kModuleUnload); }
};

// 101: the first priority open to programs (0-100 belong to the runtime).
ModuleHooks hooks __attribute__((init_priority(101)));

} // namespace
