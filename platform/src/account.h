// The machine's accounts as Windows names them, for the security calls and
// the shares.
#pragma once

#include <windows.h>

#include <string>

namespace tsp {

// This machine's name as Windows gives it (NetBIOS form): the host name up
// to its first dot, in capitals, at most 15 characters.
std::string computerName();

// True when name (UTF-8, as given to a Win32 call as the server) is this
// machine: empty, its name, or its name after "\\", without case.
bool isLocalMachine(const std::string &name);

// The account that a SID of this machine stands for: a user
// (S-1-22-1-<uid>) or a group (S-1-22-2-<gid>). False for any other SID or
// an account that no longer exists.
bool accountOfSid(PSID sid, std::string &name, bool &isGroup);

} // namespace tsp
