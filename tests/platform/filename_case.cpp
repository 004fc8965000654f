// Names in Windows paths match without case, as on Windows: a name is
// found in any case, a new name that differs from an existing one only in
// case is refused, and names keep the case they were made with. The same
// file runs on Windows, where this is the file system's own behaviour.
#include "ScratchDir.h"

#include <share.h>
#include <stdio.h>
#include <stdlib.h>

#include <set>
#include <string>
#include <vector>

namespace {

using tstest::ScratchDir;

// The names in folder, as they are kept.
std::set<std::string> Names(const std::string &folder)
{
    std::set<std::string> names;
    WIN32_FIND_DATAA data;
    HANDLE h = FindFirstFileA((folder + "\\*").c_str(), &data);
    if (h == INVALID_HANDLE_VALUE)
        return names;
    do {
        if (std::string(data.cFileName) != "." && std::string(data.cFileName) != "..")
            names.insert(data.cFileName);
    } while (FindNextFileA(h, &data));
    FindClose(h);
    return names;
}

// Opens path with the disposition; the handle (or INVALID_HANDLE_VALUE)
// and the last error right after.
HANDLE Open(const std::string &path, DWORD disposition, DWORD &error)
{
    SetLastError(0xDEAD);
    HANDLE h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    error = GetLastError();
    return h;
}

// The scratch folder by its name on C: and, on POSIX, through Z: (the
// whole file system), where an open tries the name as written first and
// looks for it in other case only when it is missing.
std::vector<std::string> NamesOfTheFolder(const ScratchDir &dir)
{
    std::vector<std::string> names{dir.path()};
    const char *root = getenv("TSUTIL_ROOT");
    if (tstest::RunningOnPosix() && root)
        names.push_back(std::string("Z:") + root + "\\drive_c" + dir.path().substr(2));
    return names;
}

TEST(FileNameCaseTest, FilesAreFoundInAnyCaseAndKeepTheirOwn)
{
    ScratchDir scratch;
    for (const std::string &folder : NamesOfTheFolder(scratch)) {
        SCOPED_TRACE(folder);
        auto dir = [&](const char *name) { return folder + "\\" + name; };
        ASSERT_TRUE(tstest::WriteWholeFile(dir("Mixed.Txt"), "made first"));

        DWORD error = 0;
        HANDLE h = Open(dir("MIXED.TXT"), OPEN_EXISTING, error);
        ASSERT_NE(h, INVALID_HANDLE_VALUE);
        char text[32] = {};
        DWORD read = 0;
        EXPECT_TRUE(ReadFile(h, text, sizeof text - 1, &read, nullptr));
        EXPECT_STREQ(text, "made first");
        CloseHandle(h);

        EXPECT_EQ(Open(dir("mixed.TXT"), CREATE_NEW, error), INVALID_HANDLE_VALUE);
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_FILE_EXISTS));
        h = Open(dir("mixed.TXT"), OPEN_ALWAYS, error);
        ASSERT_NE(h, INVALID_HANDLE_VALUE);
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_ALREADY_EXISTS));
        CloseHandle(h);
        h = Open(dir("MiXeD.tXt"), CREATE_ALWAYS, error);
        ASSERT_NE(h, INVALID_HANDLE_VALUE);
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_ALREADY_EXISTS));
        CloseHandle(h);
        EXPECT_EQ(Names(folder), std::set<std::string>{"Mixed.Txt"}) << "one file, in the case it was made with";

        EXPECT_NE(GetFileAttributesA(dir("mIxEd.txt").c_str()), INVALID_FILE_ATTRIBUTES);
        EXPECT_TRUE(DeleteFileA(dir("MIXED.txt").c_str()));
        EXPECT_EQ(Names(folder), std::set<std::string>{});
        EXPECT_EQ(GetFileAttributesA(dir("Mixed.Txt").c_str()), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    }
}

TEST(FileNameCaseTest, FoldersAreFoundInAnyCaseAndKeepTheirOwn)
{
    ScratchDir scratch;
    for (const std::string &folder : NamesOfTheFolder(scratch)) {
        SCOPED_TRACE(folder);
        auto dir = [&](const char *name) { return folder + "\\" + name; };
        ASSERT_TRUE(CreateDirectoryA(dir("Folder").c_str(), nullptr));
        SetLastError(0);
        EXPECT_FALSE(CreateDirectoryA(dir("FOLDER").c_str(), nullptr));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));

        // A new name below a folder named in other case: the folder is the
        // one there, the new name keeps its own case, deeper levels alike.
        ASSERT_TRUE(CreateDirectoryA(dir("folder\\Inner").c_str(), nullptr));
        ASSERT_TRUE(tstest::WriteWholeFile(dir("FOLDER\\INNER\\Note.Txt"), "x"));
        EXPECT_EQ(Names(folder), std::set<std::string>{"Folder"});
        EXPECT_EQ(Names(dir("Folder")), std::set<std::string>{"Inner"});
        EXPECT_EQ(Names(dir("fOLDER\\iNNER")), std::set<std::string>{"Note.Txt"});
        DWORD error = 0;
        EXPECT_EQ(Open(dir("folder\\inner\\NOTE.TXT"), CREATE_NEW, error), INVALID_HANDLE_VALUE);
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_FILE_EXISTS));

        // A path whose folder exists in no case is still missing.
        EXPECT_EQ(Open(dir("Other\\Note.Txt"), CREATE_NEW, error), INVALID_HANDLE_VALUE);
        EXPECT_EQ(error, static_cast<DWORD>(ERROR_PATH_NOT_FOUND));

        EXPECT_TRUE(DeleteFileA(dir("folder\\inner\\note.txt").c_str()));
        EXPECT_TRUE(RemoveDirectoryA(dir("FOLDER\\INNER").c_str()));
        EXPECT_TRUE(RemoveDirectoryA(dir("folder").c_str()));
        EXPECT_EQ(Names(folder), std::set<std::string>{});
    }
}

// The C runtime's opens with Windows paths go through the same translation.
TEST(FileNameCaseTest, RuntimeOpensFindNamesInAnyCase)
{
    ScratchDir dir;
    ASSERT_TRUE(tstest::WriteWholeFile(dir / "Report.Log", "line"));
    FILE *f = _fsopen((dir / "REPORT.LOG").c_str(), "r", _SH_DENYNO);
    ASSERT_NE(f, nullptr);
    char text[8] = {};
    EXPECT_EQ(fread(text, 1, 4, f), 4u);
    EXPECT_STREQ(text, "line");
    fclose(f);
}

} // namespace
