// The module entry on Windows: the loader calls DllMain after the C++
// runtime has built the DLL's static objects, and before it tears them down.
#include "../ModEntry.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    return tsutil::ModuleEntry(instance, reason);
}
