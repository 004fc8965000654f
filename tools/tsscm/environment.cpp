// The environment of service processes.
#include "environment.h"

#include "account.h"

#include <string.h>

namespace tsscm {

namespace {

bool kept(const char *entry)
{
    static const char *const kNames[] = {"PATH=",         "LD_LIBRARY_PATH=", "LANG=",         "LANGUAGE=",
                                         "TZ=",           "ASAN_OPTIONS=",    "UBSAN_OPTIONS=", "LSAN_OPTIONS=",
                                         "TSAN_OPTIONS="};
    for (const char *n : kNames)
        if (strncmp(entry, n, strlen(n)) == 0)
            return true;
    return strncmp(entry, "LC_", 3) == 0 && strchr(entry, '=');
}

} // namespace

ServiceEnvironment::ServiceEnvironment(char **environ, const std::string &root)
{
    bool path = false;
    for (char **e = environ; e && *e; ++e)
        if (kept(*e)) {
            kept_.emplace_back(*e);
            path = path || strncmp(*e, "PATH=", 5) == 0;
        }
    if (!path)
        kept_.emplace_back("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin");
    kept_.push_back("TSUTIL_ROOT=" + root);
}

std::vector<std::string> ServiceEnvironment::forAccount(const Account &account) const
{
    std::vector<std::string> env = kept_;
    env.push_back("HOME=" + account.home);
    env.push_back("USER=" + account.user);
    env.push_back("LOGNAME=" + account.user);
    return env;
}

} // namespace tsscm
