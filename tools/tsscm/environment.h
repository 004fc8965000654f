// The environment a service process starts with.
//
// On Windows a service gets the system's environment, never that of the
// program that asked for the start. The daemon here is often started on
// demand by the first client, so its own environment is that client's: a
// service process gets only a fixed set of names from it, read once when
// the daemon starts (the machine's settings, not one user's session):
//   PATH, LD_LIBRARY_PATH       where programs and libraries are found
//   LANG, LANGUAGE, LC_*, TZ    language, formats and time zone
//   ASAN_OPTIONS, UBSAN_OPTIONS, LSAN_OPTIONS, TSAN_OPTIONS
//                               settings of the checkers a build runs with
//   TSUTIL_ROOT                 the machine root (always set)
// and HOME, USER, LOGNAME of the account it runs as. Everything else
// (a terminal's, a session's, NOTIFY_SOCKET of an init system, a client's
// own variables) stays out.
#pragma once

#include <string>
#include <vector>

namespace tsscm {

struct Account;

class ServiceEnvironment {
public:
    // Takes the names above from the environment now, with TSUTIL_ROOT
    // set to root.
    ServiceEnvironment(char **environ, const std::string &root);
    // NAME=VALUE entries for a process of this account.
    std::vector<std::string> forAccount(const Account &account) const;

private:
    std::vector<std::string> kept_;
};

} // namespace tsscm
