// WinApp and WinThread: the application and thread objects with a
// diagnostic guard for their thread.
#include "WinApp.h"

#include "ThrdGuard.h"

#include <new>

const DiagGuard::ClassNameIndex WinApp::CLASS_INDEX;
const DiagGuard::ClassNameIndex WinThread::CLASS_INDEX;

namespace {

char const kDefaultFileName[] = "defWDiag.txt";

tsutil::ThreadGuardTexts const kAppTexts = {
    WinApp::CLASS_INDEX,
    "WinApp diagnostic file handle: ",
    "WinApp initializing -- InitInstance().\n",
    "   and WinApp exiting -- ExitInstance().\n",
};

tsutil::ThreadGuardTexts const kThreadTexts = {
    WinThread::CLASS_INDEX,
    "WinThread diagnostic file handle: ",
    "WinThread initializing -- InitInstance().\n",
    "   and WinThread exiting -- ExitInstance().\n",
};

DiagGuard *MakeGuard(char const *fileName) { return new (std::nothrow) DiagGuard(fileName); }

} // namespace

WinApp::WinApp()
    : CWinApp(nullptr), diagFileName(tsutil::NewDiagFileName(kDefaultFileName)), givenDiagGuard(nullptr),
      currentDiagGuard(nullptr)
{
}

WinApp::WinApp(char const *diagFileName_, char const *appName)
    : CWinApp(appName), diagFileName(tsutil::NewDiagFileName(diagFileName_)), givenDiagGuard(nullptr),
      currentDiagGuard(nullptr)
{
}

WinApp::WinApp(DiagGuard *guard, char const *appName)
    : CWinApp(appName), diagFileName(nullptr), givenDiagGuard(guard), currentDiagGuard(nullptr)
{
}

WinApp::~WinApp()
{
    tsutil::FreeDiagFileName(diagFileName);
}

BOOL WinApp::InitInstance()
{
    BOOL result = CWinApp::InitInstance();
    tsutil::PutGuardInForce(kAppTexts, givenDiagGuard, diagFileName, MakeGuard, currentDiagGuard);
    return result;
}

int WinApp::ExitInstance()
{
    tsutil::DropGuard(kAppTexts, givenDiagGuard, currentDiagGuard);
    return CWinApp::ExitInstance();
}

WinThread::WinThread()
    : diagFileName(tsutil::NewDiagFileName(kDefaultFileName)), givenDiagGuard(nullptr), currentDiagGuard(nullptr)
{
}

WinThread::WinThread(char const *diagFileName_)
    : diagFileName(tsutil::NewDiagFileName(diagFileName_)), givenDiagGuard(nullptr), currentDiagGuard(nullptr)
{
}

WinThread::WinThread(DiagGuard *guard) : diagFileName(nullptr), givenDiagGuard(guard), currentDiagGuard(nullptr)
{
}

WinThread::~WinThread()
{
    tsutil::FreeDiagFileName(diagFileName);
}

BOOL WinThread::InitInstance()
{
    BOOL result = CWinThread::InitInstance();
    tsutil::PutGuardInForce(kThreadTexts, givenDiagGuard, diagFileName, MakeGuard, currentDiagGuard);
    return result;
}

int WinThread::ExitInstance()
{
    tsutil::DropGuard(kThreadTexts, givenDiagGuard, currentDiagGuard);
    return CWinThread::ExitInstance();
}
