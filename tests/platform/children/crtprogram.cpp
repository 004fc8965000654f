// A program written as for Windows that takes the C runtime from the C++
// headers <cstdlib>, <cstdio>, <cstring> and <io.h> alone, and uses their
// Microsoft additions.
//   crtprogram FOLDER
// works on a file in FOLDER (a Windows path) and prints what it found; the
// exit code is 0 when every step went as the runtime documents, else the
// number of the first step that did not.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <io.h>

namespace {

// The flags of <fcntl.h> and <share.h>, which this program leaves out.
const int kReadBinary = 0x8000;      // _O_RDONLY | _O_BINARY
const int kWriteBinary = 0x8001;     // _O_WRONLY | _O_BINARY
const int kDenyNone = 0x40;          // _SH_DENYNO
const int kDenyReadWrite = 0x10;     // _SH_DENYRW

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2)
        return 100;
    char number[40], real[40], drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
    _itoa(255, number, 16);
    _gcvt(0.5, 3, real);
    char file[1024];
    std::snprintf(file, sizeof file, "%s\\data.bin", argv[1]);
    _splitpath(file, drive, dir, fname, ext);
    char *copy = _strdup(fname);
    int step = 0;
    if (std::strcmp(number, "ff") != 0 || std::strcmp(real, "0.5") != 0)
        step = 1;
    else if (!copy || _stricmp(copy, "DATA") != 0 || std::strcmp(ext, ".bin") != 0)
        step = 2;
    std::free(copy);

    if (!step) {
        std::FILE *f = _fsopen(file, "wb", kDenyNone);
        if (!f || std::fputs("hello", f) < 0 || std::fclose(f) != 0)
            step = 3;
    }
    char text[8] = {};
    if (!step) {
        int fd = _open(file, kReadBinary);
        if (fd < 0 || _lseek(fd, 1, SEEK_SET) != 1 || _read(fd, text, 7) != 4 || _close(fd) != 0)
            step = 4;
    }
    if (!step) {
        // Held against every other open while it is written.
        int fd = _sopen(file, kWriteBinary, kDenyReadWrite);
        int second = _open(file, kReadBinary);
        if (fd < 0 || second != -1 || _write(fd, "HELLO", 5) != 5 || _close(fd) != 0)
            step = 5;
    }
    if (!step && _access(file, 0) != 0)
        step = 6;
    std::printf("%s %s %s%s %s\n", number, real, fname, ext, text);
    return step;
}
