// CWinApp: the program's application object.
#include <afxwin.h>

#include <stdlib.h>
#include <string.h>

IMPLEMENT_DYNAMIC(CWinApp, CWinThread)

CWinApp::CWinApp(LPCSTR lpszAppName)
    : m_pszAppName(nullptr), m_pszExeName(nullptr), m_hInstance(nullptr), m_lpCmdLine(nullptr), m_nCmdShow(0)
{
    if (lpszAppName) {
        m_pszAppName = _strdup(lpszAppName);
        if (!m_pszAppName)
            AfxThrowMemoryException();
    }
    // Built before the program's entry runs, on the main thread: from here
    // on the application is that thread's CWinThread.
    m_pModuleState->m_pCurrentWinApp = this;
    m_pModuleState->m_thread.GetData()->m_pCurrentWinThread = this;
    m_nThreadID = ::GetCurrentThreadId();
    // A real handle of the main thread (null if the platform has none to
    // give), closed with the object like a started thread's.
    if (!::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentThread(), ::GetCurrentProcess(), &m_hThread, 0, FALSE,
                           DUPLICATE_SAME_ACCESS))
        m_hThread = nullptr;
}

CWinApp::~CWinApp()
{
    if (m_pModuleState->m_pCurrentWinApp == this) {
        m_pModuleState->m_pCurrentWinApp = nullptr;
        m_pModuleState->m_lpszCurrentAppName = nullptr;
    }
    free(const_cast<LPSTR>(m_pszAppName));
    free(const_cast<LPSTR>(m_pszExeName));
    free(m_lpCmdLine);
}

CWinApp *AfxGetApp()
{
    return AfxGetModuleState()->m_pCurrentWinApp;
}

LPCSTR AfxGetAppName()
{
    return AfxGetModuleState()->m_lpszCurrentAppName;
}
