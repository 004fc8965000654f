// tsreg's text at the system's boundary: the one unit that differs between
// POSIX and Windows.
#include "console.h"

#include "text.h"

#ifdef _WIN32
#include <shellapi.h>
#endif

namespace tsreg {

#ifdef _WIN32

bool commandLine(int, char **, std::vector<std::string> &out, int *bad)
{
    int argc = 0;
    LPWSTR *argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    out.clear();
    bool ok = true;
    for (int i = 0; argv && i < argc; ++i) {
        std::string arg;
        if (!wideToUtf8(argv[i], arg) && ok) {
            ok = false;
            *bad = i;
        }
        out.push_back(arg);
    }
    LocalFree(argv);
    return ok;
}

void print(FILE *stream, const std::string &utf8)
{
    HANDLE h = GetStdHandle(stream == stderr ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
    DWORD mode;
    if (h != INVALID_HANDLE_VALUE && GetConsoleMode(h, &mode)) {
        fflush(stream);
        WString w = wide(utf8);
        DWORD written;
        WriteConsoleW(h, w.data(), static_cast<DWORD>(w.size()), &written, nullptr);
        return;
    }
    fwrite(utf8.data(), 1, utf8.size(), stream);
}

FILE *openFile(const std::string &utf8Name, const char *mode)
{
    return _wfopen(wide(utf8Name).c_str(), wide(mode).c_str());
}

#else

bool commandLine(int argc, char **argv, std::vector<std::string> &out, int *bad)
{
    out.assign(argv, argv + argc);
    WString w;
    for (int i = 0; i < argc; ++i) {
        if (!utf8ToWide(out[static_cast<size_t>(i)], w)) {
            *bad = i;
            return false;
        }
    }
    return true;
}

void print(FILE *stream, const std::string &utf8) { fwrite(utf8.data(), 1, utf8.size(), stream); }

FILE *openFile(const std::string &utf8Name, const char *mode) { return fopen(utf8Name.c_str(), mode); }

#endif

} // namespace tsreg
