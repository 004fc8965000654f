// Files: CreateFileA and the calls on an open file, deleting and
// attributes (share modes are in fileshare.cpp, folders in directory.cpp).
#include "check.h"
#include "fileshare.h"
#include "object.h"
#include "path.h"
#include "winpath.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace tsp {

namespace {

class FileObject : public KernelObject {
public:
    FileObject(int fd, DWORD access, bool isDirectory, std::string path)
        : KernelObject(ObjectKind::File), fd(fd), access(access), isDirectory(isDirectory), path(std::move(path))
    {
    }
    ~FileObject() override
    {
        if (fd >= 0)
            closeDescriptor(fd);
    }
    const int fd;
    const DWORD access;
    const bool isDirectory;
    const std::string path;
};

FileObject *fileOf(HANDLE h, HandleRef &ref) { return lookupAs<FileObject>(h, ObjectKind::File, ref); }

// The file that ReadFile or WriteFile moves data through, or null with the
// error set: a bad handle, an overlapped request (never supported here), a
// directory, or a handle opened without the rights the transfer needs.
FileObject *transferFileOf(HANDLE h, HandleRef &ref, LPOVERLAPPED overlapped, DWORD rights)
{
    FileObject *f = fileOf(h, ref);
    if (!f)
        return nullptr;
    if (overlapped) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (!(f->access & rights) || f->isDirectory) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return f;
}

// ReadFile and WriteFile: moves up to size bytes through the file with
// step(fd, bytes moved so far), which reads or writes the rest, until all
// are moved or a step moves nothing (the end of the file). FALSE on an
// error, with the error set; the count in *moved is given on success, and
// on an error too when countOnError.
template <class Step>
BOOL transfer(HANDLE h, LPOVERLAPPED overlapped, DWORD rights, DWORD size, LPDWORD moved, bool countOnError, Step step)
{
    if (moved)
        *moved = 0;
    HandleRef ref;
    FileObject *f = transferFileOf(h, ref, overlapped, rights);
    if (!f)
        return FALSE;
    DWORD done = 0;
    BOOL ok = TRUE;
    while (done < size) {
        ssize_t n = step(f->fd, done);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            SetLastError(win32ErrorFromErrno(errno));
            ok = FALSE;
            break;
        }
        if (n == 0)
            break;
        done += static_cast<DWORD>(n);
    }
    if (moved && (ok || countOnError))
        *moved = done;
    return ok;
}

// The file found by path, stat'ed into st; false with the error set when
// the path cannot be had or names nothing.
bool statPath(LPCSTR name, std::string &p, struct stat &st)
{
    size_t caseBase;
    if (!toPosixPathAsWritten(name, p, caseBase))
        return false;
    int err = stat(p.c_str(), &st) == 0 ? 0 : errno;
    if (err == ENOENT && matchCaseBelow(caseBase, p))
        err = stat(p.c_str(), &st) == 0 ? 0 : errno;
    if (err != 0) {
        SetLastError(win32ErrorFromErrno(err, p));
        return false;
    }
    return true;
}

} // namespace

} // namespace tsp

using namespace tsp;

extern "C" {

HANDLE WINAPI CreateFileA(LPCSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                          LPSECURITY_ATTRIBUTES lpSecurityAttributes, DWORD dwCreationDisposition,
                          DWORD dwFlagsAndAttributes, HANDLE hTemplateFile)
{
    std::string p;
    size_t caseBase;
    if (!toPosixPathAsWritten(lpFileName, p, caseBase))
        return INVALID_HANDLE_VALUE;
    DWORD error;
    bool existed;
    bool isDir;
    int fd = openShared(p, dwDesiredAccess, dwShareMode, dwCreationDisposition, dwFlagsAndAttributes, false, error,
                        existed, &isDir, caseBase);
    if (fd < 0) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    // Inheritance (lpSecurityAttributes->bInheritHandle) matters only to a
    // program started by CreateProcess with bInheritHandles; the descriptor
    // itself is close-on-exec.
    HANDLE h = insertHandle(new FileObject(fd, dwDesiredAccess, isDir, p), dwDesiredAccess);
    if (!h)
        return INVALID_HANDLE_VALUE;
    SetLastError(error);
    return h;
}

BOOL WINAPI ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead, LPDWORD lpNumberOfBytesRead,
                     LPOVERLAPPED lpOverlapped)
{
    char *out = static_cast<char *>(lpBuffer);
    return transfer(hFile, lpOverlapped, kReadRights, nNumberOfBytesToRead, lpNumberOfBytesRead, false,
                    [&](int fd, DWORD done) { return read(fd, out + done, nNumberOfBytesToRead - done); });
}

BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite, LPDWORD lpNumberOfBytesWritten,
                      LPOVERLAPPED lpOverlapped)
{
    const char *in = static_cast<const char *>(lpBuffer);
    return transfer(hFile, lpOverlapped, kWriteRights, nNumberOfBytesToWrite, lpNumberOfBytesWritten, true,
                    [&](int fd, DWORD done) { return write(fd, in + done, nNumberOfBytesToWrite - done); });
}

BOOL WINAPI FlushFileBuffers(HANDLE hFile)
{
    HandleRef ref;
    FileObject *f = fileOf(hFile, ref);
    if (!f)
        return FALSE;
    if (!(f->access & kWriteRights)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (fdatasync(f->fd) != 0 && errno != EINVAL) {
        SetLastError(win32ErrorFromErrno(errno));
        return FALSE;
    }
    return TRUE;
}

DWORD WINAPI SetFilePointer(HANDLE hFile, LONG lDistanceToMove, PLONG lpDistanceToMoveHigh, DWORD dwMoveMethod)
{
    HandleRef ref;
    FileObject *f = fileOf(hFile, ref);
    if (!f)
        return INVALID_SET_FILE_POINTER;
    int64_t dist = lpDistanceToMoveHigh
                       ? static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(*lpDistanceToMoveHigh)) << 32) |
                                              static_cast<uint32_t>(lDistanceToMove))
                       : static_cast<int64_t>(lDistanceToMove);
    int whence = dwMoveMethod == FILE_BEGIN ? SEEK_SET : dwMoveMethod == FILE_CURRENT ? SEEK_CUR
                                                     : dwMoveMethod == FILE_END     ? SEEK_END
                                                                                    : -1;
    if (whence < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    off_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? lseek(f->fd, 0, SEEK_CUR) : lseek(f->fd, 0, SEEK_END);
    if (from < 0 || from + dist < 0) {
        SetLastError(ERROR_NEGATIVE_SEEK);
        return INVALID_SET_FILE_POINTER;
    }
    off_t pos = lseek(f->fd, from + dist, SEEK_SET);
    if (pos < 0) {
        SetLastError(win32ErrorFromErrno(errno));
        return INVALID_SET_FILE_POINTER;
    }
    if (lpDistanceToMoveHigh)
        *lpDistanceToMoveHigh = static_cast<LONG>(static_cast<uint64_t>(pos) >> 32);
    else if (static_cast<uint64_t>(pos) > 0xFFFFFFFEull) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(pos);
}

BOOL WINAPI SetEndOfFile(HANDLE hFile)
{
    HandleRef ref;
    FileObject *f = fileOf(hFile, ref);
    if (!f)
        return FALSE;
    off_t pos = lseek(f->fd, 0, SEEK_CUR);
    if (!(f->access & kWriteRights) || pos < 0 || ftruncate(f->fd, pos) != 0) {
        SetLastError(pos < 0 ? win32ErrorFromErrno(errno) : ERROR_ACCESS_DENIED);
        return FALSE;
    }
    return TRUE;
}

DWORD WINAPI GetFileSize(HANDLE hFile, LPDWORD lpFileSizeHigh)
{
    HandleRef ref;
    FileObject *f = fileOf(hFile, ref);
    if (!f)
        return INVALID_FILE_SIZE;
    struct stat st;
    if (fstat(f->fd, &st) != 0) {
        SetLastError(win32ErrorFromErrno(errno));
        return INVALID_FILE_SIZE;
    }
    uint64_t size = static_cast<uint64_t>(st.st_size);
    if (lpFileSizeHigh)
        *lpFileSizeHigh = static_cast<DWORD>(size >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(size);
}

BOOL WINAPI DeleteFileA(LPCSTR lpFileName)
{
    std::string p;
    struct stat st;
    if (!statPath(lpFileName, p, st))
        return FALSE;
    if (S_ISDIR(st.st_mode) || readOnlyMode(st)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    // A file that another open holds without FILE_SHARE_DELETE stays.
    int fd = open(p.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        bool denied = othersDenyDelete(fd);
        closeDescriptor(fd);
        if (denied) {
            SetLastError(ERROR_SHARING_VIOLATION);
            return FALSE;
        }
    }
    if (unlink(p.c_str()) != 0) {
        SetLastError(win32ErrorFromErrno(errno, p));
        return FALSE;
    }
    return TRUE;
}

DWORD WINAPI GetFileAttributesA(LPCSTR lpFileName)
{
    std::string p;
    struct stat st;
    if (!statPath(lpFileName, p, st))
        return INVALID_FILE_ATTRIBUTES;
    return attributesOf(st);
}

BOOL WINAPI SetFileAttributesA(LPCSTR lpFileName, DWORD dwFileAttributes)
{
    std::string p;
    struct stat st;
    if (!statPath(lpFileName, p, st))
        return FALSE;
    if (!S_ISREG(st.st_mode))
        return TRUE;
    mode_t mode = st.st_mode & 07777;
    if (dwFileAttributes & FILE_ATTRIBUTE_READONLY)
        mode &= ~static_cast<mode_t>(S_IWUSR | S_IWGRP | S_IWOTH);
    else if (!(mode & (S_IWUSR | S_IWGRP | S_IWOTH)))
        mode |= S_IWUSR;
    if (chmod(p.c_str(), mode) != 0) {
        SetLastError(win32ErrorFromErrno(errno, p));
        return FALSE;
    }
    return TRUE;
}

} // extern "C"
