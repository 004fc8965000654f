// Service processes as the daemon starts them: the ImagePath as a command
// line, in a process group of its own with default signals, as the
// service's account, with the environment of environment.h,
// and one reaper thread that reports each end to the manager. The
// processes that an earlier daemon started and left running are watched
// through process descriptors by a thread of their own.
#pragma once

#include "environment.h"
#include "manager.h"
#include "records.h"

#include <memory>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace tsscm {

// ImagePath as a command line: an unquoted path that names a file as a
// whole needs no quotes (as GetModuleFileNameA's result is stored);
// otherwise words split at blanks and double quotes group. The program's Windows path is
// translated as the file calls translate it.
std::vector<std::string> commandLineOf(const std::string &imagePath);

class SpawnLauncher : public ProcessLauncher {
public:
    // Services run in the machine root `root`; socketPath is the
    // manager's socket, which a process of another user is connected to
    // before it gives up the daemon's identity.
    SpawnLauncher(const std::string &root, const std::string &socketPath);
    ~SpawnLauncher() override;
    // Where the ends of the processes go; set before the first launch.
    void reportTo(Manager *manager) { manager_ = manager; }
    DWORD launch(const ServiceConfig &config, pid_t *pid) override;
    void kill(pid_t pid) override;
    void remember(const std::string &serviceName, pid_t pid) override;
    void forget(const std::string &serviceName) override;

    // Keeps the records of the running processes below runFolder; then the
    // processes that the records name and that still run, each watched
    // from now on (its end goes to the manager). Once, before any launch.
    std::vector<ProcessRecords::Running> takeOverRecorded(const std::string &runFolder);

private:
    DWORD spawnAsDaemon(char **argv, char **envp, pid_t *pid);
    DWORD spawnAsUser(const Account &account, char **argv, char **envp, pid_t *pid);
    void reap();
    void watchTakenOver(std::vector<std::pair<pid_t, int>> processes);

    const ServiceEnvironment environment_;
    const std::string socketPath_;
    std::unique_ptr<ProcessRecords> records_;
    std::thread watcher_;

    Manager *manager_ = nullptr;
    std::mutex lock_;
    std::condition_variable launched_;
    int children_ = 0;
    std::thread reaper_;
};

} // namespace tsscm
