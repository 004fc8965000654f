// What the security calls share with the shares: the machine's name as
// Windows gives it, and the reading of SIDs and access lists.
#pragma once

#include <windows.h>

#include <string>

namespace tsp {

// This machine's name as Windows gives it (NetBIOS form): the host name up
// to its first dot, in capitals, at most 15 characters.
std::string computerName();

// True when name (as given to a Win32 call as the server) is this
// machine: null, empty, its name, or its name after "\\", without case.
bool isLocalMachine(LPCWSTR name);

// The SID as text, "S-1-22-1-1000".
std::string sidText(PSID sid);

// True when acl is a well-formed access list: a revision from 2 to 4, and
// its entries inside its size; used is the bytes that they take.
bool isWellFormedAcl(const ACL *acl, size_t &used);

} // namespace tsp
