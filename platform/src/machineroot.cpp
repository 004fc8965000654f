// The machine root folder.
#include "machineroot.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

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
        root = std::string(home && *home ? home : "/tmp") + "/.tsutil";
    }
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    return root;
}

std::string machineRoot()
{
    std::string root = machineRootPath();
    if (!makeFolder(root))
        return std::string();
    return root;
}

} // namespace tsp
