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

// As translateWindowsPath, but without looking at the file system where
// no check needs to: on z:, a dosdevices drive and a relative path there,
// the names keep the case they are written in, and caseBase is the length
// of the drive's folder in out, for matchCaseBelow when the path as
// written names nothing. Elsewhere (c:, UNC, a POSIX absolute path) out
// is final and caseBase is std::string::npos.
uint32_t translateWindowsPathAsWritten(const char *path, std::string &out, size_t &caseBase);

// Gives the names of path after its first caseBase characters the case of
// the entries that exist, as translateWindowsPath does. True when the path
// changed; false too when caseBase is std::string::npos.
bool matchCaseBelow(size_t caseBase, std::string &path);

// The Windows form of an absolute POSIX path: "C:\..." below drive_c,
// "Z:\..." elsewhere.
std::string windowsFormOf(const std::string &posixPath);

// The current directory as a POSIX path ("/" when it cannot be read). As
// Windows keeps its own, the layer reads the process's once and then
// keeps it itself: it changes through changeCurrentDirectory (that is,
// SetCurrentDirectoryA and _chdir) and not through a bare chdir.
std::string currentDirectory();

// chdir to posixPath and keep it as the current directory; 0 or the errno.
int changeCurrentDirectory(const std::string &posixPath);

} // namespace tsp
