// Service processes as the daemon starts them: the ImagePath as a command
// line, posix_spawn in a process group of its own with default signals,
// and one reaper thread that reports each end to the manager.
#pragma once

#include "manager.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace tsscm {

// ImagePath as a command line: a path that names a file as a whole needs
// no quotes (as GetModuleFileNameA's result is stored); otherwise words
// split at blanks and double quotes group. The program's Windows path is
// translated as the file calls translate it.
std::vector<std::string> commandLineOf(const std::string &imagePath);

class SpawnLauncher : public ProcessLauncher {
public:
    SpawnLauncher() = default;
    ~SpawnLauncher() override;
    // Where the ends of the processes go; set before the first launch.
    void reportTo(Manager *manager) { manager_ = manager; }
    DWORD launch(const std::string &imagePath, pid_t *pid) override;
    void kill(pid_t pid) override;

private:
    void reap();

    Manager *manager_ = nullptr;
    std::mutex lock_;
    std::condition_variable launched_;
    int children_ = 0;
    std::thread reaper_;
};

} // namespace tsscm
