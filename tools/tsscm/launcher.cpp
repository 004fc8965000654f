// Starting and reaping service processes.
#include "launcher.h"

#include "account.h"
#include "check.h"
#include "log.h"
#include "winpath.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
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

std::string userName(uid_t uid)
{
    passwd pw{}, *found = nullptr;
    char buf[4096];
    return getpwuid_r(uid, &pw, buf, sizeof buf, &found) == 0 && found ? std::string(pw.pw_name)
                                                                         : std::to_string(uid);
}

} // namespace

std::vector<std::string> commandLineOf(const std::string &image)
{
    // A quoted program is the quoted text; only an unquoted line may name
    // a file as a whole, blanks and all.
    if (image.empty() || image[0] != '"') {
        std::string whole = programPath(image);
        if (access(whole.c_str(), F_OK) == 0)
            return {whole};
    }
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

SpawnLauncher::SpawnLauncher(const std::string &root, const std::string &socketPath)
    : environment_(environ, root), socketPath_(socketPath)
{
}

// A service whose account is another user than the daemon's runs as that
// user (and its groups) when the daemon runs as root. A daemon that does
// not run as root cannot take another identity: such a start is refused
// with ERROR_SERVICE_LOGON_FAILED, as Windows refuses a logon it cannot
// make; LocalSystem there means the daemon's own user.
DWORD SpawnLauncher::launch(const ServiceConfig &config, pid_t *pid)
{
    std::vector<std::string> words = commandLineOf(config.imagePath);
    if (words.empty())
        return ERROR_PATH_NOT_FOUND;
    struct stat st;
    if (stat(words[0].c_str(), &st) != 0)
        return ERROR_FILE_NOT_FOUND;
    if (!S_ISREG(st.st_mode) || access(words[0].c_str(), X_OK) != 0)
        return ERROR_ACCESS_DENIED;
    Account account;
    if (!lookUpAccount(config.account, account))
        return ERROR_SERVICE_LOGON_FAILED;
    bool system = storedAccountName(config.account) == "LocalSystem";
    if (system || account.uid == geteuid()) {
        account.uid = geteuid();
        account.gid = getegid();
        if (system && geteuid() != 0) {
            account.user = userName(geteuid());
            const char *home = getenv("HOME");
            account.home = home ? home : "/";
        }
    } else if (geteuid() != 0) {
        return ERROR_SERVICE_LOGON_FAILED;
    }
    std::vector<std::string> env = environment_.forAccount(account);
    std::vector<char *> argv, envp;
    for (std::string &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    for (std::string &e : env)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    DWORD e;
    std::lock_guard<std::mutex> g(lock_);
    if (account.uid == geteuid())
        e = spawnAsDaemon(argv.data(), envp.data(), pid);
    else
        e = spawnAsUser(account, argv.data(), envp.data(), pid);
    if (e)
        return e;
    ++children_;
    if (!reaper_.joinable())
        reaper_ = std::thread(&SpawnLauncher::reap, this);
    launched_.notify_all();
    return ERROR_SUCCESS;
}

DWORD SpawnLauncher::spawnAsDaemon(char **argv, char **envp, pid_t *pid)
{
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
    if (!e)
        e = posix_spawn(pid, argv[0], nullptr, &attr, argv, envp);
    posix_spawnattr_destroy(&attr);
    if (e != 0)
        return e == ENOENT ? ERROR_FILE_NOT_FOUND : e == EACCES ? ERROR_ACCESS_DENIED : ERROR_BAD_FORMAT;
    return ERROR_SUCCESS;
}

// The machine root is the daemon's user's alone, so a process of another
// user cannot reach the manager's socket: while it is still root, the child
// connects twice (its dispatcher's connection and its status connection,
// made by its own pid, as the manager knows it) and keeps them at
// descriptors 3 and 4, where the dispatcher finds them; then it takes the
// account's groups and user and runs the program.
DWORD SpawnLauncher::spawnAsUser(const Account &account, char **argv, char **envp, pid_t *pid)
{
    int groupCount = 64;
    std::vector<gid_t> groups(static_cast<size_t>(groupCount));
    if (getgrouplist(account.user.c_str(), account.gid, groups.data(), &groupCount) < 0) {
        groups.resize(static_cast<size_t>(groupCount));
        if (getgrouplist(account.user.c_str(), account.gid, groups.data(), &groupCount) < 0)
            return ERROR_SERVICE_LOGON_FAILED;
    }
    groups.resize(static_cast<size_t>(groupCount));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath_.empty() || socketPath_.size() >= sizeof address.sun_path)
        return ERROR_SERVICE_LOGON_FAILED;
    memcpy(address.sun_path, socketPath_.c_str(), socketPath_.size() + 1);
    int failed[2];
    if (pipe2(failed, O_CLOEXEC) != 0)
        return ERROR_NOT_ENOUGH_MEMORY;
    pid_t child = fork();
    if (child < 0) {
        close(failed[0]);
        close(failed[1]);
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    if (child == 0) {
        // Only async-signal-safe calls from here on.
        setpgid(0, 0);
        int c1 = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int c2 = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int step = 1;
        if (c1 >= 0 && c2 >= 0 && connect(c1, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
            connect(c2, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
            // Move them above 4 first, so that dup2 to 3 and 4 cannot close one of them.
            int h1 = fcntl(c1, F_DUPFD, 10), h2 = fcntl(c2, F_DUPFD, 10);
            step = 2;
            if (h1 >= 0 && h2 >= 0 && dup2(h1, 3) == 3 && dup2(h2, 4) == 4 &&
                syscall(SYS_close_range, 5u, ~0u, 0u) == 0 && setgroups(groups.size(), groups.data()) == 0 &&
                setgid(account.gid) == 0 && setuid(account.uid) == 0) {
                step = 3;
                sigset_t none;
                sigemptyset(&none);
                for (int sig = 1; sig < NSIG; ++sig)
                    signal(sig, SIG_DFL);
                sigprocmask(SIG_SETMASK, &none, nullptr);
                execve(argv[0], argv, envp);
            }
        }
        char b = static_cast<char>(step);
        if (write(failed[1], &b, 1) != 1)
            _exit(126);
        _exit(127);
    }
    close(failed[1]);
    char b = 0;
    ssize_t n;
    while ((n = read(failed[0], &b, 1)) < 0 && errno == EINTR) {
    }
    close(failed[0]);
    if (n == 1) {
        int status;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        logLine("cannot start a process as %s (step %d)", account.user.c_str(), static_cast<int>(b));
        return b == 3 ? ERROR_BAD_FORMAT : ERROR_SERVICE_LOGON_FAILED;
    }
    *pid = child;
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
