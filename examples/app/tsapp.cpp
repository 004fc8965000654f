// tsapp: an application built on WinApp with two WinThreads that share the
// application's diagnostic guard, so that the whole program writes one
// diagnostic file. It has no main of its own: the framework's entry
// (tsafx_main) builds nothing, finds the one application object below and
// runs it.
//
// Its settings live below HKCU\Software\TSUtil\App, which it sets up on
// first use with diagnostics on, writing to c:\TSDiag\App\tsapp.txt. The
// threads take turns, each counting to three, so the file reads the same
// on every run; at the end the program prints the file on standard output.
// Exit code 0; 1 when the installation cannot be read or a thread does not
// start.
#include <DiagGrd.h>
#include <FileDir.h>
#include <RegDB.h>
#include <RegEntry.h>
#include <TessInit.h>
#include <WinApp.h>

#include <stdio.h>
#include <stdlib.h>

#include <string>

namespace {

char const kBaseKey[] = "Software\\TSUtil\\App";
const DiagGuard::ClassNameIndex kAppClass = DiagGuard::FirstProgramIndex;
const int kCounts = 3;

// Writes the value when the registry has none of that name (or no key).
void DefaultValue(char const *name, unsigned long number, char const *text)
{
    CString path = CString(kBaseKey) + "\\Diagnostics", valueName(name), current;
    unsigned long size = 0, type = 0, found = 0;
    if (text ? qryRegDB(path, valueName, current, &size, &type, HKEY_CURRENT_USER)
             : qryRegDB(path, valueName, &found, &size, &type, HKEY_CURRENT_USER))
        return;
    if (size != ERROR_FILE_NOT_FOUND && size != (text ? 1024u : 4u))
        return; // there, of another type: the operator's
    CString value(text ? text : "");
    if (text)
        SetRegDB(path, valueName, REG_SZ, value, HKEY_CURRENT_USER);
    else
        SetRegDB(path, valueName, REG_DWORD, number, HKEY_CURRENT_USER);
}

// A thread that counts when it is its turn and then gives the turn on.
class CountingThread : public WinThread {
public:
    CountingThread(DiagGuard *guard, char const *name) : WinThread(guard), name_(name) { m_bAutoDelete = FALSE; }
    ~CountingThread() override
    {
        CloseHandle(ready_);
        CloseHandle(turn_);
    }

    void FollowedBy(CountingThread *next) { next_ = next; }
    bool AwaitReady() { return ready_ && WaitForSingleObject(ready_, INFINITE) == WAIT_OBJECT_0; }
    void TakeTurn() { SetEvent(turn_); }

    BOOL InitInstance() override
    {
        BOOL result = WinThread::InitInstance();
        DIAG_MSG(kAppClass, "thread " << name_ << " is ready\n");
        SetEvent(ready_);
        return result;
    }
    // Counts to kCounts, a number a turn; a last turn for its end. The
    // thread that ends last asks the application to quit.
    int Run() override
    {
        for (int i = 1; i <= kCounts; ++i) {
            WaitForSingleObject(turn_, INFINITE);
            DIAG_MSG(kAppClass, "thread " << name_ << " counts " << i << "\n");
            next_->TakeTurn();
        }
        WaitForSingleObject(turn_, INFINITE);
        DIAG_MSG(kAppClass, "thread " << name_ << " ends\n");
        int result = ExitInstance();
        if (last_)
            AfxGetApp()->PostThreadMessage(WM_QUIT, 0, 0);
        else
            next_->TakeTurn();
        return result;
    }
    void EndsLast() { last_ = true; }

private:
    char const *name_;
    CountingThread *next_ = nullptr;
    bool last_ = false;
    HANDLE ready_ = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE turn_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
};

class TwoThreadApp : public WinApp {
public:
    BOOL InitInstance() override
    {
        DefaultValue("AllowDiagnostics", 1, nullptr);
        DefaultValue("DiagnosticOutputDirectory", 0, "c:\\TSDiag\\App");
        CString dir;
        if (!RegistryEntry::SetRegistryDefaults(kBaseKey, HKEY_CURRENT_USER, 0, 0) ||
            !TessaviInitInfo::AssignRegistryObjects() || !TessaviInitInfo::GetDiagnosticOutputDir(&dir) ||
            !CFileDirectory::CreateDir(dir)) {
            fprintf(stderr, "tsapp: cannot read the settings in HKCU\\%s\n", kBaseKey);
            exit(1);
        }
        file_ = std::string(dir) + "\\tsapp.txt";
        // The application's guard, made here once the settings are read,
        // is given to WinApp and to both threads: one file for all.
        guard_ = new DiagGuard(file_.c_str());
        givenDiagGuard = guard_;
        BOOL result = WinApp::InitInstance();
        a_ = new CountingThread(guard_, "A");
        b_ = new CountingThread(guard_, "B");
        a_->FollowedBy(b_);
        b_->FollowedBy(a_);
        b_->EndsLast();
        if (!a_->CreateThread() || !a_->AwaitReady() || !b_->CreateThread() || !b_->AwaitReady()) {
            fprintf(stderr, "tsapp: a thread did not start\n");
            exit(1);
        }
        DIAG_MSG(kAppClass, "application: both threads are ready; thread A begins\n");
        a_->TakeTurn();
        return result;
    }

    int ExitInstance() override
    {
        WaitForSingleObject(a_->m_hThread, INFINITE);
        WaitForSingleObject(b_->m_hThread, INFINITE);
        delete a_;
        delete b_;
        DIAG_MSG(kAppClass, "application: both threads have ended\n");
        int result = WinApp::ExitInstance();
        DiagGuard::SetThreadDiagGuardPtr(nullptr);
        delete guard_; // closes the file
        TessaviInitInfo::UnassignRegistryObjects(); // after the last guard
        Show();
        return result;
    }

private:
    // Prints the diagnostic file, its CR LF line ends as plain line feeds.
    void Show()
    {
        printf("tsapp: the diagnostic file %s:\n", file_.c_str());
        HANDLE file = CreateFileA(file_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            printf("tsapp: (none: diagnostics are off in HKCU\\%s\\Diagnostics)\n", kBaseKey);
            return;
        }
        char buffer[4096];
        DWORD got = 0;
        while (ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got > 0) {
            for (DWORD i = 0; i < got; ++i) {
                if (buffer[i] != '\r')
                    putchar(buffer[i]);
            }
        }
        CloseHandle(file);
        fflush(stdout);
    }

    std::string file_;
    DiagGuard *guard_ = nullptr;
    CountingThread *a_ = nullptr, *b_ = nullptr;
};

TwoThreadApp theApp;

} // namespace
