// Windows paths to POSIX paths and back (the rules are in fileapi.h).
#pragma once

#include <stdint.h>

#include <string>

namespace tsp {

// The POSIX path for a Windows path: "\" and "/" both separate, "c:" is
// drive_c of the machine root, "z:" is "/", another letter is the root's
// dosdevices/<letter>: when that exists, "\\server\share" is below the
// root's unc/ and must exist, a POSIX absolute path passes unchanged, and
// a relative one is below the current directory. A separator at the end
// is kept. ".." never climbs above a drive's root (c:\..\etc is
// c:\etc), and a path on c: or a UNC path that a symbolic link would lead
// out of the machine root fails with ERROR_ACCESS_DENIED. 0 on success,
// else the Win32 error: ERROR_PATH_NOT_FOUND (null, empty, no such drive,
// no machine root), ERROR_BAD_PATHNAME, ERROR_BAD_NETPATH or
// ERROR_BAD_NET_NAME (UNC), ERROR_ACCESS_DENIED.
uint32_t translateWindowsPath(const char *path, std::string &out);

// The Windows form of an absolute POSIX path: "C:\..." below drive_c,
// "Z:\..." elsewhere.
std::string windowsFormOf(const std::string &posixPath);

// The current directory as a POSIX path ("/" when it cannot be read).
std::string currentDirectory();

} // namespace tsp
