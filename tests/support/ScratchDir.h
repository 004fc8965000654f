// A fresh folder on drive C: for one test, removed with all it holds at
// the end; the current directory is put back as well. On POSIX the test
// also gets a machine root of its own.
#pragma once

#include "TestSupport.h"

#include <string>

namespace tstest {

class ScratchDir {
public:
    ScratchDir()
    {
        static int counter = 0;
        char cwd[4 * MAX_PATH];
        if (GetCurrentDirectoryA(sizeof cwd, cwd) < sizeof cwd)
            saved_ = cwd;
        path_ = "C:\\tsts" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++counter);
        EXPECT_TRUE(CreateDirectoryA(path_.c_str(), nullptr)) << "error " << GetLastError();
    }
    ~ScratchDir()
    {
        if (!saved_.empty())
            SetCurrentDirectoryA(saved_.c_str());
        RemoveTree(path_);
    }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "\\" + name; }

    static void RemoveTree(const std::string &dir)
    {
        WIN32_FIND_DATAA data;
        HANDLE h = FindFirstFileA((dir + "\\*").c_str(), &data);
        if (h != INVALID_HANDLE_VALUE) {
            do {
                std::string name = data.cFileName;
                if (name == "." || name == "..")
                    continue;
                std::string full = dir + "\\" + name;
                if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                    RemoveTree(full);
                } else {
                    SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
                    DeleteFileA(full.c_str());
                }
            } while (FindNextFileA(h, &data));
            FindClose(h);
        }
        RemoveDirectoryA(dir.c_str());
    }

private:
    ScopedMachineRoot root_; // first: the paths below depend on it
    std::string saved_;
    std::string path_;
};

// True when the path names a folder.
inline bool IsDir(const std::string &path)
{
    DWORD a = GetFileAttributesA(path.c_str());
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

// Writes text to a new file; true when all went well.
inline bool WriteWholeFile(const std::string &path, const std::string &text)
{
    HANDLE h = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    DWORD written = 0;
    BOOL ok = WriteFile(h, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(h);
    return ok && written == text.size();
}

// The whole content of a file, or "<missing>".
inline std::string ReadWholeFile(const std::string &path)
{
    HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return "<missing>";
    std::string out;
    char buf[4096];
    DWORD got = 0;
    while (ReadFile(h, buf, sizeof buf, &got, nullptr) && got)
        out.append(buf, got);
    CloseHandle(h);
    return out;
}

} // namespace tstest
