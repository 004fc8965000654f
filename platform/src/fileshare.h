// Opening files with Windows share modes, for CreateFileA and _fsopen.
#pragma once

#include <windows.h>

#include <sys/stat.h>

#include <string>

namespace tsp {

// The access rights that read, write or delete a file's data.
constexpr DWORD kReadRights = GENERIC_READ | GENERIC_ALL | 0x0001 /* FILE_READ_DATA */;
constexpr DWORD kWriteRights = GENERIC_WRITE | GENERIC_ALL | 0x0002 /* FILE_WRITE_DATA */ | 0x0004 /* FILE_APPEND_DATA */;
constexpr DWORD kDeleteRights = DELETE | GENERIC_ALL;

// A regular file that nobody may write: FILE_ATTRIBUTE_READONLY.
inline bool readOnlyMode(const struct stat &st)
{
    return S_ISREG(st.st_mode) && !(st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH));
}

// The Win32 attributes of a file or folder.
inline DWORD attributesOf(const struct stat &st)
{
    if (S_ISDIR(st.st_mode))
        return FILE_ATTRIBUTE_DIRECTORY;
    DWORD a = FILE_ATTRIBUTE_ARCHIVE;
    if (readOnlyMode(st))
        a |= FILE_ATTRIBUTE_READONLY;
    return a;
}

// Opens posixPath as CreateFileA does with these arguments and gives the
// descriptor (close-on-exec), or -1 with error set. The share mode is held
// by locks on the open file description itself, so it lasts exactly as
// long as the descriptor and binds every process and every descriptor.
// existed tells whether the file was there before, *isDirectory (when
// given) whether it is a folder. A posixPath from toPosixPathAsWritten
// comes with its caseBase: when it names nothing as written, the names
// are given the case of the entries that exist (before anything is made),
// and posixPath becomes the path opened.
int openShared(std::string &posixPath, DWORD access, DWORD share, DWORD disposition, DWORD flagsAndAttributes,
               bool append, DWORD &error, bool &existed, bool *isDirectory = nullptr,
               size_t caseBase = std::string::npos);

// Whether an open of the file other than fd's refuses to share deleting.
bool othersDenyDelete(int fd);

} // namespace tsp
