// Path translation, the current directory and the program's own path.
#include "path.h"

#include "winpath.h"

#include <ctype.h>
#include <link.h>
#include <stdint.h>
#include <stdlib.h>
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace tsp {

bool toPosixPath(const char *path, std::string &out)
{
    DWORD error = translateWindowsPath(path, out);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return false;
    }
    return true;
}

bool toPosixPathAsWritten(const char *path, std::string &out, size_t &caseBase)
{
    DWORD error = translateWindowsPathAsWritten(path, out, caseBase);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return false;
    }
    return true;
}

std::string toWindowsPath(const std::string &posixPath) { return windowsFormOf(posixPath); }

DWORD win32ErrorFromErrno(int err, const std::string &posixPath)
{
    switch (err) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: {
        if (posixPath.empty())
            return ERROR_FILE_NOT_FOUND;
        std::string parent = posixPath;
        while (parent.size() > 1 && parent.back() == '/')
            parent.pop_back();
        size_t cut = parent.rfind('/');
        if (cut == std::string::npos)
            return ERROR_FILE_NOT_FOUND;
        parent = cut == 0 ? "/" : parent.substr(0, cut);
        struct stat st;
        return (stat(parent.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    }
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR: return ERROR_ACCESS_DENIED;
    case EEXIST: return ERROR_ALREADY_EXISTS;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case ENOSPC:
    case EDQUOT: return ERROR_DISK_FULL;
    case EROFS: return ERROR_WRITE_PROTECT;
    case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case EBUSY: return ERROR_BUSY;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case EBADF: return ERROR_INVALID_HANDLE;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case ELOOP: return ERROR_BAD_PATHNAME;
    default: return ERROR_GEN_FAILURE;
    }
}

int errnoFromWin32Error(DWORD error)
{
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE: return ENOENT;
    case ERROR_TOO_MANY_OPEN_FILES: return EMFILE;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_CURRENT_DIRECTORY:
    case ERROR_WRITE_PROTECT: return EACCES;
    case ERROR_INVALID_HANDLE: return EBADF;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY: return ENOMEM;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return EEXIST;
    case ERROR_DISK_FULL: return ENOSPC;
    case ERROR_DIR_NOT_EMPTY: return ENOTEMPTY;
    default: return EINVAL;
    }
}

namespace {

// A module handle on POSIX is the address at which the object is loaded
// (what dladdr gives as dli_fbase). Finds the object's path; an empty path
// for the program itself.
struct ModuleSearch {
    uintptr_t base;
    bool found;
    std::string path;
};

int matchModule(struct dl_phdr_info *info, size_t, void *data)
{
    ModuleSearch *search = static_cast<ModuleSearch *>(data);
    uintptr_t lowest = UINTPTR_MAX;
    for (int i = 0; i < info->dlpi_phnum; ++i)
        if (info->dlpi_phdr[i].p_type == PT_LOAD && info->dlpi_phdr[i].p_vaddr < lowest)
            lowest = info->dlpi_phdr[i].p_vaddr;
    if (lowest == UINTPTR_MAX || info->dlpi_addr + lowest != search->base)
        return 0;
    search->found = true;
    search->path = info->dlpi_name ? info->dlpi_name : "";
    return 1;
}

} // namespace

bool modulePathOf(HMODULE module, std::string &path)
{
    ModuleSearch search{reinterpret_cast<uintptr_t>(module), false, std::string()};
    dl_iterate_phdr(matchModule, &search);
    if (!search.found)
        return false;
    path = search.path;
    if (!path.empty() && path[0] != '/') {
        char resolved[PATH_MAX];
        if (realpath(path.c_str(), resolved))
            path = resolved;
    }
    return true;
}

} // namespace tsp

using namespace tsp;

extern "C" {

BOOL WINAPI SetCurrentDirectoryA(LPCSTR lpPathName)
{
    std::string p;
    if (!toPosixPath(lpPathName, p))
        return FALSE;
    if (int err = changeCurrentDirectory(p)) {
        SetLastError(err == ENOTDIR ? ERROR_DIRECTORY : win32ErrorFromErrno(err, p));
        return FALSE;
    }
    return TRUE;
}

DWORD WINAPI GetCurrentDirectoryA(DWORD nBufferLength, LPSTR lpBuffer)
{
    std::string w = toWindowsPath(currentDirectory());
    // Windows keeps no separator at the end, except for a drive's root.
    if (w.size() > 3 && w.back() == '\\')
        w.pop_back();
    DWORD len = static_cast<DWORD>(w.size());
    if (!lpBuffer || nBufferLength < len + 1)
        return len + 1;
    memcpy(lpBuffer, w.c_str(), len + 1);
    return len;
}

DWORD WINAPI GetModuleFileNameA(HMODULE hModule, LPSTR lpFilename, DWORD nSize)
{
    std::string posixPath;
    if (hModule && !modulePathOf(hModule, posixPath)) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    if (posixPath.empty()) {
        std::vector<char> buf(PATH_MAX);
        ssize_t n = readlink("/proc/self/exe", buf.data(), buf.size() - 1);
        if (n < 0) {
            SetLastError(win32ErrorFromErrno(errno));
            return 0;
        }
        posixPath.assign(buf.data(), static_cast<size_t>(n));
    }
    std::string w = toWindowsPath(posixPath);
    if (!lpFilename || nSize == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    if (w.size() + 1 > nSize) {
        memcpy(lpFilename, w.c_str(), nSize - 1);
        lpFilename[nSize - 1] = 0;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return nSize;
    }
    memcpy(lpFilename, w.c_str(), w.size() + 1);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(w.size());
}

} // extern "C"
