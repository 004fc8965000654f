// The POSIX leg of the test helpers.
#include "TestSupport.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <new>

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>

extern char **environ;

namespace tstest {

bool RunningUnderWine() { return false; }
bool RunningOnPosix() { return true; }

void LeaveConsoleSignalsToTheWatcher()
{
    sigset_t set;
    sigemptyset(&set);
    for (int sig : {SIGINT, SIGQUIT, SIGHUP, SIGTERM})
        sigaddset(&set, sig);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

ScopedMachineRoot::ScopedMachineRoot()
{
    if (const char *old = getenv("TSUTIL_ROOT")) {
        previous_ = old;
        hadPrevious_ = true;
    }
    std::string tmpl = (std::filesystem::temp_directory_path() / "tsutil-test-XXXXXX").string();
    if (!mkdtemp(tmpl.data()))
        ADD_FAILURE() << "cannot make a machine root in " << tmpl;
    path_ = tmpl;
    setenv("TSUTIL_ROOT", path_.c_str(), 1);
}

ScopedMachineRoot::~ScopedMachineRoot()
{
    if (hadPrevious_)
        setenv("TSUTIL_ROOT", previous_.c_str(), 1);
    else
        unsetenv("TSUTIL_ROOT");
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

void WaitUntilBlocked(DWORD threadId)
{
    std::string path = "/proc/self/task/" + std::to_string(threadId) + "/stat";
    for (DWORD waited = 0; waited < kWaitBound; ++waited) {
        if (FILE *f = fopen(path.c_str(), "r")) {
            char buf[512] = {};
            size_t n = fread(buf, 1, sizeof buf - 1, f);
            fclose(f);
            // The state follows the command name in parentheses.
            const char *close = strrchr(buf, ')');
            if (n && close && close[1] == ' ' && close[2] == 'S')
                return;
        }
        timespec pause{0, 1000000L};
        nanosleep(&pause, nullptr);
    }
    ADD_FAILURE() << "thread " << threadId << " never blocked";
}

double ProcessCpuMs()
{
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec * 1000.0 + ts.tv_nsec / 1e6;
}

std::string SiblingProgram(const std::string &name)
{
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

bool ChildProcess::Start(const std::string &name, const std::vector<std::string> &args)
{
    std::string path = SiblingProgram(name);
    std::vector<char *> argv;
    argv.push_back(path.data());
    for (const std::string &a : args)
        argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid;
    if (posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv.data(), environ) != 0)
        return false;
    id_ = pid;
    running_ = true;
    return true;
}

int ChildProcess::Wait(DWORD ms)
{
    if (!running_)
        return -1;
    // waitpid has no time limit: poll it at a short period up to the bound.
    for (DWORD waited = 0;; waited += 5) {
        int status;
        pid_t r = waitpid(static_cast<pid_t>(id_), &status, WNOHANG);
        if (r == static_cast<pid_t>(id_)) {
            running_ = false;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        if (waited >= ms)
            return -1;
        timespec pause{0, 5 * 1000000L};
        nanosleep(&pause, nullptr);
    }
}

bool ChildProcess::Interrupt()
{
    return running_ && kill(static_cast<pid_t>(id_), SIGINT) == 0;
}

void ChildProcess::Kill()
{
    if (running_)
        kill(static_cast<pid_t>(id_), SIGKILL);
}

namespace {

// The signal the platform takes for a console event; 0 for none.
int SignalOf(DWORD event)
{
    switch (event) {
    case CTRL_C_EVENT: return SIGINT;
    case CTRL_BREAK_EVENT: return SIGQUIT;
    case CTRL_CLOSE_EVENT: return SIGHUP;
    case CTRL_SHUTDOWN_EVENT: return SIGTERM;
    default: return 0;
    }
}

} // namespace

bool SendConsoleEventToNewestChild(DWORD event)
{
    if (!SignalOf(event))
        return false;
    // ChildProcess keeps the pid to itself: the newest child is ours.
    pid_t newest = 0;
    std::string path = "/proc/" + std::to_string(getpid()) + "/task/" + std::to_string(getpid()) + "/children";
    if (FILE *f = fopen(path.c_str(), "r")) {
        int pid;
        while (fscanf(f, "%d", &pid) == 1)
            newest = pid;
        fclose(f);
    }
    return newest > 0 && kill(newest, SignalOf(event)) == 0;
}

int ExitCodeOfUnhandledEvent(DWORD event)
{
    return 128 + SignalOf(event);
}

bool KillProcess(DWORD pid) { return kill(static_cast<pid_t>(pid), SIGKILL) == 0; }
bool MayBecomeAnotherUser() { return geteuid() == 0; }
bool SetPermissions(const std::string &path, unsigned mode) { return chmod(path.c_str(), mode) == 0; }

bool BecomeUser(unsigned uid, unsigned gid)
{
    return setgid(static_cast<gid_t>(gid)) == 0 && setuid(static_cast<uid_t>(uid)) == 0;
}

namespace {
std::atomic<bool> failArrays{false};
} // namespace

bool FailArrayAllocation(bool fail)
{
    failArrays = fail;
    return true;
}

int RunCaptured(const std::string &program, const std::string &args, std::string &output)
{
    output.clear();
    FILE *p = popen(("\"" + SiblingProgram(program) + "\" " + args).c_str(), "r");
    if (!p)
        return -1;
    output = ReadStream(p);
    int status = pclose(p);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace tstest

void *operator new[](size_t size, const std::nothrow_t &) noexcept
{
    return tstest::failArrays ? nullptr : malloc(size ? size : 1);
}
void *operator new[](size_t size)
{
    if (void *p = malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void operator delete[](void *p) noexcept { free(p); }
void operator delete[](void *p, size_t) noexcept { free(p); }
