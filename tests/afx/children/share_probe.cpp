// Opens a file from a second process and tells by its exit code how that
// went: share_probe <how> <path>, where how is
//   write   CreateFileA for writing, sharing everything: 0 or the error
//   read    CreateFileA for reading, sharing everything: 0 or the error
//   cfile   CFile::Open(modeCreate | modeWrite | shareDenyWrite): 0 or 100 + cause
//   fsopen  _fsopen(path, "a", _SH_DENYNO): 0 or 200 + errno
#include <afx.h>

#include <errno.h>
#include <share.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char **argv)
{
    if (argc != 3)
        return 99;
    const char *how = argv[1];
    const char *path = argv[2];
    if (!strcmp(how, "write") || !strcmp(how, "read")) {
        DWORD access = !strcmp(how, "write") ? GENERIC_WRITE : GENERIC_READ;
        HANDLE h = CreateFileA(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h == INVALID_HANDLE_VALUE)
            return static_cast<int>(GetLastError());
        CloseHandle(h);
        return 0;
    }
    if (!strcmp(how, "cfile")) {
        CFile file;
        CFileException e;
        if (!file.Open(path, CFile::modeCreate | CFile::modeWrite | CFile::shareDenyWrite, &e))
            return 100 + e.m_cause;
        return 0;
    }
    if (!strcmp(how, "fsopen")) {
        FILE *f = _fsopen(path, "a", _SH_DENYNO);
        if (!f)
            return 200 + errno;
        fclose(f);
        return 0;
    }
    return 98;
}
