// _splitpath: any string splits without overrunning the caller's buffers,
// and the four parts put together give the path back when it fits them.
#include <mbctype.h>
#include <stdlib.h>
#include <string.h>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    // The first byte picks the multibyte code page: 0 (none) or 932.
    _setmbcp(data[0] & 1 ? 932 : 0);
    std::string path(reinterpret_cast<const char *>(data + 1), size - 1);
    path = path.substr(0, path.find('\0'));

    char drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
    _splitpath(path.c_str(), drive, dir, fname, ext);
    std::string joined = std::string(drive) + dir + fname + ext;
    if (path.size() < _MAX_FNAME && joined != path)
        abort();
    // Each part alone may be given.
    _splitpath(path.c_str(), nullptr, dir, nullptr, nullptr);
    _splitpath(path.c_str(), drive, nullptr, fname, nullptr);
    _splitpath(path.c_str(), nullptr, nullptr, nullptr, ext);
    return 0;
}
