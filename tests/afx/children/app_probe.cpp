// An application program with no main of its own: the framework's entry
// runs its one CWinApp object. app_probe <mode> <n> gives n as its exit
// code when everything ran as it should, or a code from 90 up that names
// what did not:
//   quit n     InitInstance calls AfxPostQuitMessage(n); the default Run ends
//   post n     a worker posts WM_USER + 1 and then WM_QUIT with n to the main thread
//   refuse n   InitInstance gives FALSE; only ExitInstance runs, giving n
//   own n      Run is the program's own and gives n; the entry adds nothing
//   args ...   the command line reaches m_lpCmdLine quoted: gives 0
#include <afxwin.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

enum Failure {
    kWrongObjects = 90,   // AfxGetApp / AfxGetThread / the thread id
    kWrongName = 91,      // m_pszAppName, m_pszExeName, AfxGetAppName
    kRunAfterRefusal = 92,
    kExitAfterOwnRun = 93,
    kMessageMissed = 94,
    kWorkerNotStarted = 95,
    kBadCommandLine = 96,
};

UINT PostToMainThread(LPVOID param)
{
    DWORD mainThread = static_cast<DWORD>(reinterpret_cast<UINT_PTR>(param));
    int code = atoi(AfxGetApp()->m_lpCmdLine + strlen("post "));
    if (!PostThreadMessage(mainThread, WM_USER + 1, 0, 0) ||
        !PostThreadMessage(mainThread, WM_QUIT, static_cast<WPARAM>(code), 0))
        return 1;
    return 0;
}

class ProbeApp : public CWinApp {
public:
    BOOL InitInstance() override
    {
        if (AfxGetApp() != this || AfxGetThread() != this || m_nThreadID != GetCurrentThreadId())
            _Exit(kWrongObjects);
        if (!m_pszAppName || strcmp(m_pszAppName, "app_probe") || !m_pszExeName ||
            strcmp(m_pszExeName, "app_probe") || AfxGetAppName() != m_pszAppName)
            _Exit(kWrongName);
        char mode[16] = {};
        if (sscanf(m_lpCmdLine, "%15s %d", mode, &code_) < 1)
            _Exit(kBadCommandLine);
        mode_ = mode;
        if (mode_ == "args")
            _Exit(strcmp(m_lpCmdLine, "args \"two words\" \"\" back\\slash") ? kBadCommandLine : 0);
        if (mode_ == "quit")
            AfxPostQuitMessage(code_);
        if (mode_ == "post" &&
            !AfxBeginThread(PostToMainThread, reinterpret_cast<LPVOID>(static_cast<UINT_PTR>(m_nThreadID))))
            _Exit(kWorkerNotStarted);
        return mode_ != "refuse";
    }

    int Run() override
    {
        if (mode_ == "refuse")
            _Exit(kRunAfterRefusal);
        if (mode_ == "own")
            return code_;
        return CWinApp::Run();
    }

    BOOL PreTranslateMessage(MSG *pMsg) override
    {
        sawUserMessage_ = sawUserMessage_ || pMsg->message == WM_USER + 1;
        return TRUE;
    }

    int ExitInstance() override
    {
        if (mode_ == "own")
            _Exit(kExitAfterOwnRun);
        if (mode_ == "post" && !sawUserMessage_)
            _Exit(kMessageMissed);
        if (mode_ == "refuse")
            return code_;
        return CWinApp::ExitInstance();
    }

private:
    CString mode_;
    int code_ = 0;
    bool sawUserMessage_ = false;
};

ProbeApp theApp;

} // namespace
