// The machine root folder.
#include "machineroot.h"

#include <errno.h>
#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tsp {

namespace {

bool makeFolder(const std::string &path)
{
    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode))
            return true;
        errno = ENOTDIR;
        return false;
    }
    std::string::size_type slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0 && !makeFolder(path.substr(0, slash)))
        return false;
    return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}

} // namespace

std::string machineRootPath()
{
    std::string root;
    if (const char *env = getenv("TSUTIL_ROOT"); env && *env) {
        root = env;
    } else {
        const char *home = getenv("HOME");
        if (!home || !*home) {
            const passwd *pw = getpwuid(getuid());
            home = pw ? pw->pw_dir : "/tmp";
        }
        root = std::string(home) + "/.tsutil";
    }
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    return root;
}

const std::string &machineRoot()
{
    thread_local std::string configured;
    thread_local std::string canonical;
    std::string now = machineRootPath();
    if (now == configured && !canonical.empty())
        return canonical;
    configured = now;
    canonical.clear();
    if (!makeFolder(now))
        return canonical;
    char resolved[PATH_MAX];
    if (realpath(now.c_str(), resolved))
        canonical = resolved;
    return canonical;
}

} // namespace tsp
