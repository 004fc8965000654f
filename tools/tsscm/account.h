// The account a service runs as (its ObjectName), as a user of the system.
//
// "LocalSystem" (also empty, ".\LocalSystem", "NT AUTHORITY\SYSTEM") is
// root; "NT AUTHORITY\LocalService" and "NT AUTHORITY\NetworkService" are
// "nobody"; any other name, alone or after ".\" or a domain, is the user of
// that name, with its primary group.
#pragma once

#include <sys/types.h>

#include <string>

namespace tsscm {

struct Account {
    uid_t uid = 0;
    gid_t gid = 0;
    std::string user, home;
};

// False when the system has no such user.
bool lookUpAccount(const std::string &objectName, Account &out);

// The account as Windows stores it: "LocalSystem" for the system's own,
// "NT AUTHORITY\LocalService" and "NT AUTHORITY\NetworkService" in that
// spelling, another name as given.
std::string storedAccountName(const std::string &objectName);

} // namespace tsscm
