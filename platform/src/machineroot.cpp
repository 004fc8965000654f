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

std::string configuredRoot()
{
    if (const char *root = getenv("TSUTIL_ROOT"); root && *root)
        return root;
    const char *home = getenv("HOME");
    if (!home || !*home) {
        const passwd *pw = getpwuid(getuid());
        home = pw ? pw->pw_dir : "/tmp";
    }
    return std::string(home) + "/.tsutil";
}

} // namespace

const std::string &machineRoot()
{
    thread_local std::string configured;
    thread_local std::string canonical;
    std::string now = configuredRoot();
    if (now == configured && !canonical.empty())
        return canonical;
    configured = now;
    canonical.clear();
    if (mkdir(now.c_str(), 0700) != 0 && errno != EEXIST)
        return canonical;
    char resolved[PATH_MAX];
    if (realpath(now.c_str(), resolved))
        canonical = resolved;
    return canonical;
}

} // namespace tsp
