// tssc's words and text on Windows: the wide command line and the console.
#include "console.h"

#include <windows.h>

#include <shellapi.h>
#include <stdio.h>

namespace tssc {

namespace {

std::wstring toWide(const std::string &utf8)
{
    int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), w.data(), n);
    return w;
}

std::string fromWide(const wchar_t *w, UINT codePage)
{
    int n = WideCharToMultiByte(codePage, 0, w, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return std::string();
    std::string s(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(codePage, 0, w, -1, s.data(), n, nullptr, nullptr);
    s.pop_back();
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
    std::wstring w = toWide(utf8);
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
