// Extension modules: the record a library keeps of itself, the framework's
// list of loaded extension libraries, and the module state that says where
// resources are looked up first.
#pragma once

#include <windows.h>

#ifndef TSAFX_API
#define TSAFX_API
#endif

class CDynLinkLibrary;

// The module state, AFX_MODULE_STATE, with the thread's state.
#include "afxstat_.h"

// What an extension library keeps of itself while it is loaded. Zero
// (not initialised) until AfxInitExtensionModule.
struct AFX_EXTENSION_MODULE {
    BOOL bInitialized;
    HMODULE hModule;    // the library's own module
    HMODULE hResource;  // where its resources are found; the module itself
};

// The current resource handle of the module state (null until someone sets
// one), and its replacement.
TSAFX_API HINSTANCE AfxGetResourceHandle();
TSAFX_API void AfxSetResourceHandle(HINSTANCE hInstResource);

// Records hModule in state as the library's module and resource handle.
// TRUE, also on a repeated call for the same module; FALSE for a null
// module or when state already records another module.
TSAFX_API BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE &state, HMODULE hModule);

// Unwires and deletes the CDynLinkLibrary objects of state's module (of every
// module with bAll TRUE) and marks state as no longer initialised. Does
// nothing for a state that was never initialised.
TSAFX_API void AfxTermExtensionModule(AFX_EXTENSION_MODULE &state, BOOL bAll = FALSE);

// One loaded extension library in the module state's list. Building it
// wires it in (newest first), destroying it unwires it. Built on the heap by
// the library's load code; from then on it belongs to the framework, which
// deletes it in AfxTermExtensionModule.
class TSAFX_API CDynLinkLibrary {
public:
    // Wires the library of state into AfxGetModuleState()'s list. bSystem
    // marks a library of the framework itself.
    explicit CDynLinkLibrary(AFX_EXTENSION_MODULE &state, BOOL bSystem = FALSE);
    virtual ~CDynLinkLibrary();

    CDynLinkLibrary(const CDynLinkLibrary &) = delete;
    CDynLinkLibrary &operator=(const CDynLinkLibrary &) = delete;

    HMODULE m_hModule;
    HMODULE m_hResource;
    BOOL m_bSystem;
    CDynLinkLibrary *m_pNextDLL;
};

// Counts the libraries of hModule in the module state's list (all of them
// for a null hModule). For callers that check what is wired in.
TSAFX_API int AfxCountDynLinkLibraries(HMODULE hModule);
