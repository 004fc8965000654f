// Stand-ins for platform functions that the library calls, in a probe
// program of the tests. A stand-in is defined with STAND_IN(name) and finds
// the real function through Real():
//   STAND_IN_API int WINAPI STAND_IN(GetACP)(void) { ... }
//   - on POSIX the program's own definition of the name comes before the
//     platform library's, so the library calls it; Real finds the platform's
//     through the dynamic linker, at the first use (the platform may call
//     before main runs);
//   - on Windows the library's import table is pointed at the stand-in by
//     Install, which keeps the real function for Real.
#pragma once

#include <string.h>
#include <windows.h>

#ifdef _WIN32
#define STAND_IN_API extern "C"
#define STAND_IN(name) StandIn_##name
#else
#include <dlfcn.h>
#define STAND_IN_API extern "C" __attribute__((visibility("default")))
#define STAND_IN(name) name
#endif

namespace standin {

template <typename Fn> Fn Real(Fn &slot, const char *name)
{
#ifndef _WIN32
    if (slot == nullptr)
        slot = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
#else
    (void)name; // Install has set the slot
#endif
    return slot;
}

#ifdef _WIN32
// Points every import of name in the import table of the module that holds
// addressInModule at hook, and keeps the function it stood for in slot;
// false when the module does not import it.
template <typename Fn> bool Install(const void *addressInModule, const char *name, Fn hook, Fn &slot)
{
    HMODULE module = nullptr;
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCSTR>(addressInModule), &module))
        return false;
    BYTE *base = reinterpret_cast<BYTE *>(module);
    IMAGE_NT_HEADERS *nt =
        reinterpret_cast<IMAGE_NT_HEADERS *>(base + reinterpret_cast<IMAGE_DOS_HEADER *>(base)->e_lfanew);
    IMAGE_DATA_DIRECTORY dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    bool found = false;
    for (IMAGE_IMPORT_DESCRIPTOR *imp = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR *>(base + dir.VirtualAddress);
         imp->Name != 0; ++imp) {
        IMAGE_THUNK_DATA *names = reinterpret_cast<IMAGE_THUNK_DATA *>(base + imp->OriginalFirstThunk);
        IMAGE_THUNK_DATA *slots = reinterpret_cast<IMAGE_THUNK_DATA *>(base + imp->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            IMAGE_IMPORT_BY_NAME *byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME *>(base + names->u1.AddressOfData);
            if (strcmp(reinterpret_cast<char *>(byName->Name), name) != 0)
                continue;
            DWORD old = 0;
            if (!VirtualProtect(&slots->u1.Function, sizeof(void *), PAGE_READWRITE, &old))
                return false;
            slot = reinterpret_cast<Fn>(slots->u1.Function);
            slots->u1.Function = reinterpret_cast<ULONG_PTR>(hook);
            VirtualProtect(&slots->u1.Function, sizeof(void *), old, &old);
            found = true;
        }
    }
    return found;
}
#define STAND_IN_INSTALL(addressInModule, name, slot) \
    ::standin::Install(addressInModule, #name, &StandIn_##name, slot)
#else
#define STAND_IN_INSTALL(addressInModule, name, slot) ((void)(addressInModule), ::standin::Real(slot, #name) != nullptr)
#endif

} // namespace standin
