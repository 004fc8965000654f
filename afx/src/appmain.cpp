// AfxWinMain: the body of a program whose application object is a CWinApp.
#include <afxwin.h>

#include "msgqueue.h"

#include <stdlib.h>
#include <string.h>

namespace {

// The application's names and command line, kept by the object. False
// when memory for them cannot be had.
bool SetCurrentNames(CWinApp *app, LPCSTR lpCmdLine)
{
    char path[_MAX_PATH + 1] = {};
    char name[_MAX_FNAME] = {};
    DWORD length = ::GetModuleFileNameA(nullptr, path, _MAX_PATH);
    if (length > 0 && length < _MAX_PATH)
        _splitpath(path, nullptr, nullptr, name, nullptr);
    app->m_pszExeName = _strdup(name);
    app->m_lpCmdLine = _strdup(lpCmdLine ? lpCmdLine : "");
    if (!app->m_pszAppName)
        app->m_pszAppName = _strdup(name);
    if (!app->m_pszExeName || !app->m_lpCmdLine || !app->m_pszAppName)
        return false;
    app->m_pModuleState->m_lpszCurrentAppName = app->m_pszAppName;
    return true;
}

} // namespace

int AfxWinMain(HINSTANCE hInstance, HINSTANCE, LPSTR lpCmdLine, int nCmdShow)
{
    CWinApp *app = AfxGetApp();
    CWinThread *thread = AfxGetThread();
    if (!app || !thread)
        return -1;
    app->m_hInstance = hInstance;
    app->m_nCmdShow = nCmdShow;
    if (!SetCurrentNames(app, lpCmdLine))
        return -1;
    // The main thread can be sent WM_QUIT from InitInstance on.
    AfxMakeMessageQueue();
    if (!thread->InitInstance())
        return thread->ExitInstance();
    return thread->Run();
}
