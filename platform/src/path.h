// Windows paths at the layer's boundary (the rules are in fileapi.h).
#pragma once

#include <windows.h>

#include <string>

namespace tsp {

// The POSIX path for a Windows path. False with the last error set when
// the path cannot name anything: null or empty (ERROR_PATH_NOT_FOUND), a
// drive that does not exist (ERROR_PATH_NOT_FOUND), no machine root.
// A separator at the end is kept.
bool toPosixPath(const char *path, std::string &out);

// As toPosixPath, but where no check needs the file system the names keep
// the case they are written in: when that path names nothing,
// matchCaseBelow(caseBase, out) (winpath.h) gives them the case of the
// entries that exist, as toPosixPath would have.
bool toPosixPathAsWritten(const char *path, std::string &out, size_t &caseBase);

// The Windows form of an absolute POSIX path: "C:\..." below drive_c,
// "Z:\..." elsewhere.
std::string toWindowsPath(const std::string &posixPath);

// The Win32 error for an errno of a call on posixPath. ENOENT becomes
// ERROR_FILE_NOT_FOUND when the parent folder exists, else
// ERROR_PATH_NOT_FOUND.
DWORD win32ErrorFromErrno(int err, const std::string &posixPath = std::string());

// The POSIX path of a loaded module, named by its load address (the
// module handle of this layer); empty for the program itself. False when
// no module is loaded there.
bool modulePathOf(HMODULE module, std::string &path);

// The errno that the C runtime gives for a Win32 error.
int errnoFromWin32Error(DWORD error);

} // namespace tsp
