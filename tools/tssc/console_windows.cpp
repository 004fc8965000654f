// tssc's words and text on Windows: the wide command line and the console.
#include "console.h"

#include "widetext.h"

#include <windows.h>

#include <shellapi.h>
#include <stdio.h>

namespace tssc {

namespace {

std::string fromWide(const wchar_t *w, UINT codePage)
{
    std::string s;
    tstools::wideToCodePage(codePage, 0, w, wcslen(w), s);
    return s;
}

} // namespace

std::vector<std::string> arguments(int argc, char **argv)
{
    int n = 0;
    LPWSTR *wide = CommandLineToArgvW(GetCommandLineW(), &n);
    if (!wide)
        return std::vector<std::string>(argv, argv + argc);
    std::vector<std::string> words;
    for (int i = 0; i < n; ++i)
        words.push_back(fromWide(wide[i], CP_UTF8));
    LocalFree(wide);
    return words;
}

void writeText(const std::string &utf8)
{
    tstools::WString w;
    tstools::codePageToWide(CP_UTF8, 0, utf8, w);
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0, written = 0;
    if (GetConsoleMode(out, &mode)) {
        fflush(stdout);
        WriteConsoleW(out, w.data(), static_cast<DWORD>(w.size()), &written, nullptr);
        return;
    }
    UINT page = GetConsoleOutputCP();
    std::string text = fromWide(w.c_str(), page ? page : CP_OEMCP);
    fwrite(text.data(), 1, text.size(), stdout);
}

} // namespace tssc
