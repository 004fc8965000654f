// The process's module state, and the state of each thread.
#include <afx.h>
#include <afxstat_.h>

#include <type_traits>

namespace {

// Zero-initialised before any code runs, so that libraries loaded after the
// framework find it ready in their own load code, and never torn down.
AFX_MODULE_STATE processModuleState;
static_assert(std::is_trivially_destructible<AFX_MODULE_STATE>::value, "the process's module state outlives every thread");

CThreadLocal<_AFX_THREAD_STATE> threadState;

} // namespace

AFX_MODULE_THREAD_STATE::AFX_MODULE_THREAD_STATE() : m_pCurrentWinThread(nullptr), m_pfnNewHandler(nullptr) {}

AFX_MODULE_THREAD_STATE::~AFX_MODULE_THREAD_STATE() {}

_AFX_THREAD_STATE::_AFX_THREAD_STATE() : m_pModuleState(nullptr), m_exceptionContext{nullptr} {}

_AFX_THREAD_STATE::~_AFX_THREAD_STATE() {}

_AFX_THREAD_STATE *AfxGetThreadState()
{
    return threadState.GetData();
}

AFX_MODULE_STATE *AfxGetModuleState()
{
    // Looked up without making the thread's record: a thread that never set
    // a module state of its own uses the process's.
    _AFX_THREAD_STATE *state = threadState.GetDataNA();
    if (state && state->m_pModuleState)
        return state->m_pModuleState;
    return &processModuleState;
}

AFX_MODULE_THREAD_STATE *AfxGetModuleThreadState()
{
    return AfxGetModuleState()->m_thread.GetData();
}
