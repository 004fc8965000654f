// Shares published through Samba's usershares.
#include <windows.h>

#include "path.h"
#include "sambashare.h"

#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

extern char **environ;

namespace tsp {

namespace {

const char kParameters[] = "SYSTEM\\CurrentControlSet\\Services\\LanmanServer\\Parameters";
const char kDefaultConfig[] = "/etc/samba/smb.conf";

std::string configuredFile()
{
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kParameters, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
        return kDefaultConfig;
    std::string file;
    char text[4096] = {};
    DWORD type = 0, size = sizeof text - 1;
    if (RegQueryValueExA(key, "SambaConfiguration", nullptr, &type, reinterpret_cast<BYTE *>(text), &size) ==
            ERROR_SUCCESS &&
        type == REG_SZ && text[0])
        file = text;
    RegCloseKey(key);
    std::string posix;
    if (file.empty() || !toPosixPath(file.c_str(), posix))
        return kDefaultConfig;
    return posix;
}

} // namespace

SambaUsershares::SambaUsershares() : config_(configuredFile())
{
    struct stat st;
    if (stat(config_.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return;
    const char *const list[] = {"usershare", "info", nullptr};
    available_ = net(list) == 0;
}

bool SambaUsershares::publish(const std::string &name, const std::string &posixPath, const std::string &remark,
                              const std::string &acl) const
{
    const char *const args[] = {"usershare", "add",       name.c_str(), posixPath.c_str(),
                                remark.c_str(), acl.c_str(), "guest_ok=n", nullptr};
    return net(args) == 0 && isPublished(name);
}

bool SambaUsershares::withdraw(const std::string &name) const
{
    if (!isPublished(name))
        return true;
    const char *const args[] = {"usershare", "delete", name.c_str(), nullptr};
    return net(args) == 0 || !isPublished(name);
}

bool SambaUsershares::isPublished(const std::string &name) const
{
    // `net usershare info NAME` succeeds for a name that is not there too;
    // `list NAME` prints the names that match, so an empty answer is "no".
    const char *const args[] = {"usershare", "list", name.c_str(), nullptr};
    std::string out;
    return net(args, &out) == 0 && out.find_first_not_of(" \t\r\n") != std::string::npos;
}

int SambaUsershares::net(const char *const *args, std::string *output) const
{
    std::vector<const char *> argv = {"net", "-s", config_.c_str()};
    for (; *args; ++args)
        argv.push_back(*args);
    argv.push_back(nullptr);
    int fds[2] = {-1, -1};
    if (output && pipe2(fds, O_CLOEXEC) != 0)
        return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output)
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    int rc = posix_spawnp(&pid, "net", &actions, nullptr, const_cast<char *const *>(argv.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (output) {
        close(fds[1]);
        char buf[512];
        ssize_t n;
        while (rc == 0 && ((n = read(fds[0], buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR)))
            if (n > 0)
                output->append(buf, static_cast<size_t>(n));
        close(fds[0]);
    }
    if (rc != 0)
        return -1; // no Samba here
    int status;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace tsp
