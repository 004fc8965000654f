// Opening files with Windows share modes, for CreateFileA and _fsopen.
#pragma once

#include <windows.h>

#include <string>

namespace tsp {

// Opens posixPath as CreateFileA does with these arguments and gives the
// descriptor (close-on-exec), or -1 with error set. The share mode is held
// by locks on the open file description itself, so it lasts exactly as
// long as the descriptor and binds every process and every descriptor.
// existed tells whether the file was there before, *isDirectory (when
// given) whether it is a folder.
int openShared(const std::string &posixPath, DWORD access, DWORD share, DWORD disposition, DWORD flagsAndAttributes,
               bool append, DWORD &error, bool &existed, bool *isDirectory = nullptr);

} // namespace tsp
