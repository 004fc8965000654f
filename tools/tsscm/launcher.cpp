// Starting and reaping service processes.
#include "launcher.h"

#include "check.h"
#include "log.h"
#include "winpath.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace tsscm {

namespace {

std::string programPath(const std::string &word)
{
    std::string posix;
    return tsp::translateWindowsPath(word.c_str(), posix) == ERROR_SUCCESS ? posix : word;
}

} // namespace

std::vector<std::string> commandLineOf(const std::string &image)
{
    std::string whole = programPath(image);
    if (access(whole.c_str(), F_OK) == 0)
        return {whole};
    std::vector<std::string> words;
    std::string cur;
    bool quoted = false, any = false;
    for (char c : image) {
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (any || !cur.empty())
                words.push_back(cur);
            cur.clear();
            any = false;
        } else {
            cur += c;
        }
    }
    if (any || !cur.empty())
        words.push_back(cur);
    if (!words.empty())
        words[0] = programPath(words[0]);
    return words;
}

SpawnLauncher::~SpawnLauncher()
{
    // The daemon ends with _exit while services may run: the reaper is
    // left to the process's end.
    if (reaper_.joinable())
        reaper_.detach();
    if (watcher_.joinable())
        watcher_.detach();
}

DWORD SpawnLauncher::launch(const std::string &imagePath, pid_t *pid)
{
    std::vector<std::string> words = commandLineOf(imagePath);
    if (words.empty())
        return ERROR_PATH_NOT_FOUND;
    struct stat st;
    if (stat(words[0].c_str(), &st) != 0)
        return ERROR_FILE_NOT_FOUND;
    if (!S_ISREG(st.st_mode) || access(words[0].c_str(), X_OK) != 0)
        return ERROR_ACCESS_DENIED;
    std::vector<char *> argv;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    posix_spawnattr_t attr;
    if (posix_spawnattr_init(&attr) != 0)
        return ERROR_NOT_ENOUGH_MEMORY;
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    // A service process starts with no signal blocked and every one at its
    // default, whatever the daemon does with its own.
    int e = posix_spawnattr_setsigmask(&attr, &none);
    if (!e)
        e = posix_spawnattr_setsigdefault(&attr, &all);
    if (!e)
        e = posix_spawnattr_setpgroup(&attr, 0);
    if (!e)
        e = posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    std::lock_guard<std::mutex> g(lock_);
    if (!e)
        e = posix_spawn(pid, argv[0], nullptr, &attr, argv.data(), environ);
    posix_spawnattr_destroy(&attr);
    if (e != 0)
        return e == ENOENT ? ERROR_FILE_NOT_FOUND : e == EACCES ? ERROR_ACCESS_DENIED : ERROR_BAD_FORMAT;
    ++children_;
    if (!reaper_.joinable())
        reaper_ = std::thread(&SpawnLauncher::reap, this);
    launched_.notify_all();
    return ERROR_SUCCESS;
}

void SpawnLauncher::remember(const std::string &serviceName, pid_t pid)
{
    if (records_)
        records_->remember(serviceName, pid);
}

void SpawnLauncher::forget(const std::string &serviceName)
{
    if (records_)
        records_->forget(serviceName);
}

std::vector<ProcessRecords::Running> SpawnLauncher::takeOverRecorded(const std::string &runFolder)
{
    records_ = std::make_unique<ProcessRecords>(runFolder);
    std::vector<ProcessRecords::Running> running = records_->stillRunning(), watched;
    std::vector<std::pair<pid_t, int>> descriptors;
    for (const ProcessRecords::Running &r : running) {
        int fd = static_cast<int>(syscall(SYS_pidfd_open, r.pid, 0));
        if (fd < 0) {
            // Gone since the record was read, or no descriptor to watch it by.
            logLine("cannot watch process %d: %s", static_cast<int>(r.pid), strerror(errno));
            records_->forget(r.serviceName);
            continue;
        }
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        descriptors.emplace_back(r.pid, fd);
        watched.push_back(r);
    }
    if (!descriptors.empty())
        watcher_ = std::thread(&SpawnLauncher::watchTakenOver, this, std::move(descriptors));
    return watched;
}

// The processes of an earlier daemon are not this one's children: their
// ends come through their process descriptors.
void SpawnLauncher::watchTakenOver(std::vector<std::pair<pid_t, int>> processes)
{
    while (!processes.empty()) {
        std::vector<pollfd> fds;
        for (auto &p : processes)
            fds.push_back({p.second, POLLIN, 0});
        if (poll(fds.data(), fds.size(), -1) < 0) {
            TS_CHECK(errno == EINTR, "poll(process descriptors)");
            continue;
        }
        for (size_t i = fds.size(); i-- > 0;) {
            if (!fds[i].revents)
                continue;
            pid_t pid = processes[i].first;
            close(processes[i].second);
            processes.erase(processes.begin() + static_cast<long>(i));
            if (manager_)
                manager_->processEnded(pid);
        }
    }
}

void SpawnLauncher::kill(pid_t pid)
{
    if (::kill(pid, SIGKILL) != 0 && errno != ESRCH)
        logLine("cannot end process %d: %s", static_cast<int>(pid), strerror(errno));
}

// One thread waits for every service process: it sleeps while none runs.
void SpawnLauncher::reap()
{
    for (;;) {
        {
            std::unique_lock<std::mutex> g(lock_);
            launched_.wait(g, [&] { return children_ > 0; });
        }
        int status = 0;
        pid_t pid = waitpid(-1, &status, 0);
        if (pid < 0) {
            if (errno != EINTR && errno != ECHILD)
                logLine("waitpid: %s", strerror(errno));
            continue;
        }
        {
            std::lock_guard<std::mutex> g(lock_);
            --children_;
        }
        if (manager_)
            manager_->processEnded(pid);
    }
}

} // namespace tsscm
