// Extension modules and the resource handle.
#include <afxdll_.h>

#include <mutex>

namespace {

// Guards the library list; constexpr-constructed like the state.
std::mutex &ListLock()
{
    static std::mutex lock;
    return lock;
}

} // namespace

HINSTANCE AfxGetResourceHandle()
{
    return AfxGetModuleState()->m_hCurrentResourceHandle;
}

void AfxSetResourceHandle(HINSTANCE hInstResource)
{
    AfxGetModuleState()->m_hCurrentResourceHandle = hInstResource;
}

BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE &state, HMODULE hModule)
{
    if (!hModule)
        return 0;
    if (state.bInitialized)
        return state.hModule == hModule ? 1 : 0;
    state.hModule = hModule;
    state.hResource = hModule;
    state.bInitialized = 1;
    return 1;
}

void AfxTermExtensionModule(AFX_EXTENSION_MODULE &state, BOOL bAll)
{
    if (!state.bInitialized)
        return;
    // Unlink under the lock, delete outside it: a destructor unwires itself
    // and takes the lock again.
    CDynLinkLibrary *doomed = nullptr;
    {
        std::lock_guard<std::mutex> hold(ListLock());
        CDynLinkLibrary **link = &AfxGetModuleState()->m_libraryList;
        while (*link) {
            CDynLinkLibrary *lib = *link;
            if (bAll || lib->m_hModule == state.hModule) {
                *link = lib->m_pNextDLL;
                lib->m_pNextDLL = doomed;
                doomed = lib;
            } else {
                link = &lib->m_pNextDLL;
            }
        }
    }
    while (doomed) {
        CDynLinkLibrary *next = doomed->m_pNextDLL;
        doomed->m_pNextDLL = nullptr;
        delete doomed;
        doomed = next;
    }
    state.bInitialized = 0;
}

CDynLinkLibrary::CDynLinkLibrary(AFX_EXTENSION_MODULE &state, BOOL bSystem)
    : m_hModule(state.hModule), m_hResource(state.hResource), m_bSystem(bSystem), m_pNextDLL(nullptr)
{
    std::lock_guard<std::mutex> hold(ListLock());
    AFX_MODULE_STATE *moduleState = AfxGetModuleState();
    m_pNextDLL = moduleState->m_libraryList;
    moduleState->m_libraryList = this;
}

CDynLinkLibrary::~CDynLinkLibrary()
{
    std::lock_guard<std::mutex> hold(ListLock());
    for (CDynLinkLibrary **link = &AfxGetModuleState()->m_libraryList; *link; link = &(*link)->m_pNextDLL) {
        if (*link == this) {
            *link = m_pNextDLL;
            break;
        }
    }
}

int AfxCountDynLinkLibraries(HMODULE hModule)
{
    std::lock_guard<std::mutex> hold(ListLock());
    int n = 0;
    for (CDynLinkLibrary *lib = AfxGetModuleState()->m_libraryList; lib; lib = lib->m_pNextDLL)
        if (!hModule || lib->m_hModule == hModule)
            ++n;
    return n;
}
