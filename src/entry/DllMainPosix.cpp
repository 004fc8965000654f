// The module entry on POSIX. One static object runs the load steps in its
// constructor and the unload steps in its destructor. src/CMakeLists.txt
// links this unit last, so its initialiser is the last of the library's
// .init_array: every other static object of the library is built before it,
// and, since statics are destroyed in the reverse order of their building,
// torn down after it. This holds for dlopen/dlclose and for process exit.
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

ModuleHooks hooks;

} // namespace
