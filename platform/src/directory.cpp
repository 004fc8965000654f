// Directories and directory searches: CreateDirectoryA, RemoveDirectoryA,
// FindFirstFileA, FindNextFileA, FindClose.
#include "fileshare.h"
#include "object.h"
#include "path.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <vector>

namespace tsp {

namespace {

FILETIME fileTimeOf(const struct timespec &ts)
{
    uint64_t t = (static_cast<uint64_t>(ts.tv_sec) + 11644473600ull) * 10000000ull + static_cast<uint64_t>(ts.tv_nsec) / 100;
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(t);
    ft.dwHighDateTime = static_cast<DWORD>(t >> 32);
    return ft;
}

class FindObject : public KernelObject {
public:
    FindObject() : KernelObject(ObjectKind::FindFile) {}
    std::mutex lock;
    std::string directory;            // POSIX folder searched
    std::vector<std::string> names;   // the matches, in directory order
    size_t next = 0;
};

// "*" any run of characters, "?" one character; "*.*" is every name.
bool wildMatch(const char *pat, const char *name)
{
    const char *star = nullptr, *resume = nullptr;
    while (*name) {
        if (*pat == '?' || (*pat && *pat == *name)) {
            ++pat;
            ++name;
        } else if (*pat == '*') {
            star = pat++;
            resume = name;
        } else if (star) {
            pat = star + 1;
            name = ++resume;
        } else {
            return false;
        }
    }
    while (*pat == '*')
        ++pat;
    // A trailing ".*" also matches a name without a dot, as "*.*" does.
    if (pat[0] == '.' && pat[1] == '*' && pat[2] == 0)
        return true;
    return *pat == 0;
}

bool fillFindData(const std::string &dir, const std::string &name, WIN32_FIND_DATAA *data)
{
    struct stat st;
    std::string full = dir == "/" ? "/" + name : dir + "/" + name;
    if (stat(full.c_str(), &st) != 0 && lstat(full.c_str(), &st) != 0)
        return false;
    memset(data, 0, sizeof *data);
    data->dwFileAttributes = attributesOf(st);
    data->ftCreationTime = fileTimeOf(st.st_ctim);
    data->ftLastAccessTime = fileTimeOf(st.st_atim);
    data->ftLastWriteTime = fileTimeOf(st.st_mtim);
    if (!S_ISDIR(st.st_mode)) {
        uint64_t size = static_cast<uint64_t>(st.st_size);
        data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
        data->nFileSizeLow = static_cast<DWORD>(size);
    }
    size_t n = name.size() < MAX_PATH - 1 ? name.size() : MAX_PATH - 1;
    memcpy(data->cFileName, name.c_str(), n);
    return true;
}

} // namespace

} // namespace tsp

using namespace tsp;

extern "C" {

BOOL WINAPI CreateDirectoryA(LPCSTR lpPathName, LPSECURITY_ATTRIBUTES lpSecurityAttributes)
{
    std::string p;
    if (!toPosixPath(lpPathName, p))
        return FALSE;
    if (mkdir(p.c_str(), 0777) != 0) {
        SetLastError(win32ErrorFromErrno(errno, p));
        return FALSE;
    }
    return TRUE;
}

BOOL WINAPI RemoveDirectoryA(LPCSTR lpPathName)
{
    std::string p;
    if (!toPosixPath(lpPathName, p))
        return FALSE;
    if (rmdir(p.c_str()) != 0) {
        int err = errno;
        SetLastError(err == ENOTDIR ? ERROR_DIRECTORY : win32ErrorFromErrno(err, p));
        return FALSE;
    }
    return TRUE;
}

HANDLE WINAPI FindFirstFileA(LPCSTR lpFileName, LPWIN32_FIND_DATAA lpFindFileData)
{
    if (!lpFileName || !*lpFileName || !lpFindFileData) {
        SetLastError(lpFindFileData ? ERROR_PATH_NOT_FOUND : ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    // The folder part and the pattern of the last component.
    std::string whole(lpFileName);
    size_t cut = whole.find_last_of("\\/");
    std::string folder, pattern;
    if (cut == std::string::npos) {
        if (whole.size() >= 2 && whole[1] == ':') {
            folder = whole.substr(0, 2);
            pattern = whole.substr(2);
        } else {
            folder = ".";
            pattern = whole;
        }
    } else {
        folder = whole.substr(0, cut + 1);
        pattern = whole.substr(cut + 1);
    }
    if (pattern.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    std::string dir;
    if (!toPosixPath(folder.c_str(), dir))
        return INVALID_HANDLE_VALUE;
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    DIR *d = opendir(dir.c_str());
    if (!d) {
        int err = errno;
        SetLastError(err == ENOENT || err == ENOTDIR ? ERROR_PATH_NOT_FOUND : win32ErrorFromErrno(err, dir));
        return INVALID_HANDLE_VALUE;
    }
    FindObject *find = new FindObject;
    find->directory = dir;
    if (pattern == "*.*")
        pattern = "*";
    while (dirent *e = readdir(d))
        if (wildMatch(pattern.c_str(), e->d_name))
            find->names.push_back(e->d_name);
    closedir(d);
    // The first entry that can still be examined.
    while (find->next < find->names.size() &&
           !fillFindData(find->directory, find->names[find->next], lpFindFileData))
        ++find->next;
    if (find->next >= find->names.size()) {
        find->release();
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    ++find->next;
    HANDLE h = insertHandle(find, 0);
    return h ? h : INVALID_HANDLE_VALUE;
}

BOOL WINAPI FindNextFileA(HANDLE hFindFile, LPWIN32_FIND_DATAA lpFindFileData)
{
    HandleRef ref;
    FindObject *find = lookupAs<FindObject>(hFindFile, ObjectKind::FindFile, ref);
    if (!find)
        return FALSE;
    if (!lpFindFileData) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(find->lock);
    while (find->next < find->names.size()) {
        const std::string &name = find->names[find->next++];
        if (fillFindData(find->directory, name, lpFindFileData))
            return TRUE;
    }
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
}

BOOL WINAPI FindClose(HANDLE hFindFile)
{
    HandleRef ref;
    if (!lookupAs<FindObject>(hFindFile, ObjectKind::FindFile, ref))
        return FALSE;
    ref.reset();
    if (!closeTableHandle(hFindFile)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

} // extern "C"
