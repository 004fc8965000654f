// The POSIX leg of the test helpers.
#include "TestSupport.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

#include <signal.h>
#include <spawn.h>
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

ChildProcess::~ChildProcess()
{
    if (running_) {
        Kill();
        Wait();
    }
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

} // namespace tstest
