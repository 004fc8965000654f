// The C runtime's files with Windows paths and share flags: the low-level
// calls (_open, _sopen, _close, _read, _write, _lseek) on POSIX
// descriptors, and the stream opened by _fsopen.
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <windows.h>

#include "fileshare.h"
#include "path.h"

#include <errno.h>
#include <stdarg.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <unordered_map>

using namespace tsp;

namespace {

// The access each open descriptor was given, so that a read of a
// descriptor opened for writing alone fails as on Windows (the descriptor
// itself may allow more: openShared opens it for reading and writing).
class DescriptorModes {
public:
    void set(int fd, int access)
    {
        std::lock_guard<std::mutex> guard(lock_);
        modes_[fd] = access;
    }
    void forget(int fd)
    {
        std::lock_guard<std::mutex> guard(lock_);
        modes_.erase(fd);
    }
    // True when fd was opened here without the access (_O_RDONLY or _O_WRONLY).
    bool lacks(int fd, int access)
    {
        std::lock_guard<std::mutex> guard(lock_);
        auto it = modes_.find(fd);
        return it != modes_.end() && it->second != _O_RDWR && it->second != access;
    }

private:
    std::mutex lock_;
    std::unordered_map<int, int> modes_;
};

DescriptorModes &descriptorModes()
{
    static auto *modes = new DescriptorModes; // never destroyed: used until the process ends
    return *modes;
}

// The share mode of CreateFileA that a share flag of <share.h> stands for.
bool shareModeOf(int shflag, DWORD &share)
{
    switch (shflag) {
    case _SH_DENYRW: share = 0; return true;
    case _SH_DENYWR: share = FILE_SHARE_READ; return true;
    case _SH_DENYRD: share = FILE_SHARE_WRITE; return true;
    case _SH_DENYNO: share = FILE_SHARE_READ | FILE_SHARE_WRITE; return true;
    default: return false;
    }
}

int openWithShare(const char *filename, int oflag, int shflag, int pmode)
{
    const int known = _O_RDONLY | _O_WRONLY | _O_RDWR | _O_APPEND | _O_CREAT | _O_TRUNC | _O_EXCL | _O_NOINHERIT |
                      _O_TEXT | _O_BINARY;
    int accessMode = oflag & 3;
    if (!filename || (oflag & ~known) || accessMode == 3 || ((oflag & _O_TEXT) && (oflag & _O_BINARY))) {
        errno = EINVAL;
        return -1;
    }
    DWORD share;
    if (!shareModeOf(shflag, share)) {
        errno = EINVAL;
        return -1;
    }
    DWORD access = accessMode == _O_RDONLY ? GENERIC_READ
                 : accessMode == _O_WRONLY ? GENERIC_WRITE
                                           : GENERIC_READ | GENERIC_WRITE;
    DWORD disposition;
    if (oflag & _O_CREAT)
        disposition = (oflag & _O_EXCL) ? CREATE_NEW : (oflag & _O_TRUNC) ? CREATE_ALWAYS : OPEN_ALWAYS;
    else
        disposition = (oflag & _O_TRUNC) ? TRUNCATE_EXISTING : OPEN_EXISTING;
    DWORD attributes = (oflag & _O_CREAT) && !(pmode & _S_IWRITE) ? FILE_ATTRIBUTE_READONLY : 0;
    std::string p;
    if (!toPosixPath(filename, p)) {
        errno = ENOENT;
        return -1;
    }
    DWORD error;
    bool existed;
    int fd = openShared(p, access, share, disposition, attributes, oflag & _O_APPEND, error, existed);
    if (fd < 0) {
        errno = error == ERROR_FILE_EXISTS ? EEXIST : errnoFromWin32Error(error);
        return -1;
    }
    descriptorModes().set(fd, accessMode);
    return fd;
}

int pmodeOf(int oflag, va_list args) { return (oflag & _O_CREAT) ? va_arg(args, int) : 0; }

} // namespace

extern "C" {

int _open(const char *filename, int oflag, ...)
{
    va_list args;
    va_start(args, oflag);
    int pmode = pmodeOf(oflag, args);
    va_end(args);
    return openWithShare(filename, oflag, _SH_DENYNO, pmode);
}

int _sopen(const char *filename, int oflag, int shflag, ...)
{
    va_list args;
    va_start(args, shflag);
    int pmode = pmodeOf(oflag, args);
    va_end(args);
    return openWithShare(filename, oflag, shflag, pmode);
}

FILE *_fsopen(const char *filename, const char *mode, int shflag)
{
    if (!filename || !mode) {
        errno = EINVAL;
        return nullptr;
    }
    DWORD share;
    if (!shareModeOf(shflag, share)) {
        errno = EINVAL;
        return nullptr;
    }
    char kind = mode[0];
    bool plus = strchr(mode, '+') != nullptr;
    DWORD access, disposition;
    switch (kind) {
    case 'r': access = GENERIC_READ; disposition = OPEN_EXISTING; break;
    case 'w': access = GENERIC_WRITE; disposition = CREATE_ALWAYS; break;
    case 'a': access = GENERIC_WRITE; disposition = OPEN_ALWAYS; break;
    default: errno = EINVAL; return nullptr;
    }
    if (plus)
        access = GENERIC_READ | GENERIC_WRITE;
    std::string p;
    if (!toPosixPath(filename, p)) {
        errno = ENOENT;
        return nullptr;
    }
    DWORD error;
    bool existed;
    int fd = openShared(p, access, share, disposition, 0, kind == 'a', error, existed);
    if (fd < 0) {
        errno = errnoFromWin32Error(error);
        return nullptr;
    }
    char posixMode[4] = {kind, 0, 0, 0};
    if (plus)
        posixMode[1] = '+';
    FILE *f = fdopen(fd, posixMode);
    if (!f) {
        int err = errno;
        close(fd);
        errno = err;
    }
    return f;
}

int _close(int fd)
{
    if (fd < 0) {
        errno = EBADF;
        return -1;
    }
    descriptorModes().forget(fd);
    // close() gives the descriptor up even when it reports an error.
    return close(fd) == 0 || errno == EINTR ? 0 : -1;
}

int _read(int fd, void *buffer, unsigned int count)
{
    if (descriptorModes().lacks(fd, _O_RDONLY)) {
        errno = EBADF;
        return -1;
    }
    if (!buffer || count > INT32_MAX) {
        errno = EINVAL;
        return -1;
    }
    for (;;) {
        ssize_t n = read(fd, buffer, count);
        if (n >= 0 || errno != EINTR)
            return static_cast<int>(n);
    }
}

int _write(int fd, const void *buffer, unsigned int count)
{
    if (descriptorModes().lacks(fd, _O_WRONLY)) {
        errno = EBADF;
        return -1;
    }
    if (!buffer || count > INT32_MAX) {
        errno = EINVAL;
        return -1;
    }
    // All of it, as the runtime's _write does for a file.
    const char *p = static_cast<const char *>(buffer);
    size_t left = count;
    while (left) {
        ssize_t n = write(fd, p, left);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return p == buffer ? -1 : static_cast<int>(p - static_cast<const char *>(buffer));
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    return static_cast<int>(count);
}

long _lseek(int fd, long offset, int origin)
{
    if (origin != SEEK_SET && origin != SEEK_CUR && origin != SEEK_END) {
        errno = EINVAL;
        return -1L;
    }
    off_t at = lseek(fd, static_cast<off_t>(offset), origin);
    return at < 0 ? -1L : static_cast<long>(at);
}

} // extern "C"
