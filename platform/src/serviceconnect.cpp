// The connection of a service client to the machine root's daemon, which
// is started on demand.
#include "service.h"

#include "daemonlocation.h"
#include "object.h"
#include "svcwire.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <mutex>
#include <vector>

namespace tsp::svc {

namespace {

std::string folderOf(const std::string &p)
{
    std::string::size_type slash = p.find_last_of('/');
    return slash == std::string::npos ? std::string(".") : p.substr(0, slash);
}

std::string canonical(const std::string &p)
{
    char resolved[PATH_MAX];
    return realpath(p.c_str(), resolved) ? std::string(resolved) : std::string();
}

// The daemon that belongs to this library: the build tree's while the
// library runs from the build tree, else the installed one, at its place
// relative to the library. Never a daemon of another build.
std::string findDaemon()
{
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void *>(&connectManager), &info) || !info.dli_fname)
        return std::string();
    std::string libraryDir = folderOf(canonical(info.dli_fname));
    std::string buildDir = canonical(TSPLATFORM_BUILD_LIBRARY_DIR);
    std::string daemon = !buildDir.empty() && buildDir == libraryDir
                             ? std::string(TSPLATFORM_BUILD_DAEMON)
                             : libraryDir + "/" + TSPLATFORM_INSTALLED_DAEMON;
    return access(daemon.c_str(), X_OK) == 0 ? daemon : std::string();
}

// Starts the daemon detached (its own session, output to run/tsscm.log, no
// descriptor of ours but the readiness pipe) and waits until it listens.
bool launchDaemon(const std::string &run)
{
    std::string program = findDaemon();
    if (program.empty())
        return false;
    std::string log = run + "/" + kLogName;
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0)
        return false;
    int notifyFd = fcntl(ready[1], F_DUPFD_CLOEXEC, 10);
    close(ready[1]);
    if (notifyFd < 0) {
        close(ready[0]);
        return false;
    }
    const char *argv[] = {program.c_str(), "--on-demand", "--notify-fd=3", nullptr};
    pid_t child = fork();
    if (child < 0) {
        close(ready[0]);
        close(notifyFd);
        return false;
    }
    if (child == 0) {
        // Only async-signal-safe calls from here on.
        setsid();
        if (fork() != 0)
            _exit(0);
        int nul = open("/dev/null", O_RDONLY);
        int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (nul < 0 || out < 0)
            _exit(127);
        dup2(nul, 0);
        dup2(out, 1);
        dup2(out, 2);
        dup2(notifyFd, 3);
        if (syscall(SYS_close_range, 4u, ~0u, 0u) != 0)
            for (int fd = 4; fd < 4096; ++fd)
                close(fd);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        for (int sig : {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGPIPE, SIGCHLD})
            signal(sig, SIG_DFL);
        execv(argv[0], const_cast<char *const *>(argv));
        _exit(127);
    }
    close(notifyFd);
    int status;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    char byte = 0;
    bool ok = readAll(ready[0], &byte, 1, 20000) && byte == 'R';
    close(ready[0]);
    return ok;
}

} // namespace

int connectManager(bool startIfNeeded, unsigned long *error)
{
    std::string run = runFolder();
    if (run.empty()) {
        *error = RPC_S_SERVER_UNAVAILABLE;
        return -1;
    }
    std::string sock = run + "/" + kSocketName;
    int fd = connectSocket(sock);
    if (fd < 0 && errno == EACCES) {
        *error = ERROR_ACCESS_DENIED;
        return -1;
    }
    if (fd >= 0 || !startIfNeeded) {
        if (fd < 0)
            *error = RPC_S_SERVER_UNAVAILABLE;
        return fd;
    }
    // One starter at a time: a racing client waits here, then finds the
    // daemon that the first one started.
    std::string lockPath = run + "/" + kStartLockName;
    int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0) {
        *error = errno == EACCES ? ERROR_ACCESS_DENIED : RPC_S_SERVER_UNAVAILABLE;
        return -1;
    }
    while (flock(lock, LOCK_EX) != 0 && errno == EINTR) {
    }
    fd = connectSocket(sock);
    if (fd < 0 && launchDaemon(run))
        fd = connectSocket(sock);
    close(lock); // releases the lock
    if (fd < 0)
        *error = errno == EACCES ? ERROR_ACCESS_DENIED : RPC_S_SERVER_UNAVAILABLE;
    return fd;
}

} // namespace tsp::svc
