// The Windows leg of the test helpers.
#include "TestSupport.h"

namespace tstest {

bool RunningUnderWine()
{
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool RunningOnPosix() { return false; }
void LeaveConsoleSignalsToTheWatcher() {}

ScopedMachineRoot::ScopedMachineRoot() {}
ScopedMachineRoot::~ScopedMachineRoot() {}

void WaitUntilBlocked(DWORD)
{
    Sleep(100);
}

double ProcessCpuMs()
{
    FILETIME created, exited, kernel, user;
    GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
    auto ms = [](const FILETIME &f) {
        return ((static_cast<ULONGLONG>(f.dwHighDateTime) << 32) | f.dwLowDateTime) / 10000.0;
    };
    return ms(kernel) + ms(user);
}

std::string SiblingProgram(const std::string &name)
{
    char path[MAX_PATH];
    DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path, n);
    dir.erase(dir.find_last_of("\\/") + 1);
    return dir + name + ".exe";
}

bool ChildProcess::Start(const std::string &name, const std::vector<std::string> &args)
{
    std::string cmd = "\"" + SiblingProgram(name) + "\"";
    for (const std::string &a : args)
        cmd += " \"" + a + "\"";
    STARTUPINFOA si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    if (!CreateProcessA(nullptr, cmd.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
        return false;
    CloseHandle(pi.hThread);
    id_ = reinterpret_cast<long long>(pi.hProcess);
    running_ = true;
    return true;
}

int ChildProcess::Wait(DWORD ms)
{
    if (!running_)
        return -1;
    HANDLE h = reinterpret_cast<HANDLE>(id_);
    if (WaitForSingleObject(h, ms) != WAIT_OBJECT_0)
        return -1;
    DWORD code = 0;
    GetExitCodeProcess(h, &code);
    CloseHandle(h);
    running_ = false;
    return static_cast<int>(code);
}

namespace {

// Keeps a Ctrl+C that the tests send to a child from ending the test.
BOOL WINAPI ShieldFromCtrlC(DWORD event)
{
    return event == CTRL_C_EVENT;
}

} // namespace

bool ChildProcess::Interrupt()
{
    static const bool shielded = SetConsoleCtrlHandler(ShieldFromCtrlC, TRUE) != 0;
    return running_ && shielded && GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) != 0;
}

void ChildProcess::Kill()
{
    if (running_)
        TerminateProcess(reinterpret_cast<HANDLE>(id_), 137);
}

bool SendConsoleEventToNewestChild(DWORD) { return false; }
int ExitCodeOfUnhandledEvent(DWORD) { return static_cast<int>(CONTROL_C_EXIT); }

bool KillProcess(DWORD pid)
{
    HANDLE h = OpenProcess(PROCESS_TERMINATE, FALSE, pid);
    bool done = h && TerminateProcess(h, 137);
    if (h)
        CloseHandle(h);
    return done;
}

bool MayBecomeAnotherUser() { return false; }
bool SetPermissions(const std::string &, unsigned) { return false; }
bool BecomeUser(unsigned, unsigned) { return false; }
bool FailArrayAllocation(bool) { return false; }

int RunCaptured(const std::string &program, const std::string &args, std::string &output)
{
    // cmd.exe strips one pair of outer quotes.
    std::string cmd = "\"\"" + SiblingProgram(program) + "\" " + args + "\"";
    // Under load, Wine's cmd.exe now and then answers 9009 ("not
    // recognized") for a program that is there, having run nothing: the
    // run is tried again, a bounded number of times.
    int result = -1;
    for (int attempt = 0; attempt < 3; ++attempt) {
        output.clear();
        FILE *p = _popen(cmd.c_str(), "r");
        if (!p)
            return -1;
        output = ReadStream(p);
        result = _pclose(p);
        if (result != 9009 || !output.empty())
            break;
    }
    return result;
}

} // namespace tstest
