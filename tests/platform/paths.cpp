// Windows paths on the POSIX layer: drives, separators, "." and "..", UNC,
// the current directory and the program's own path. The POSIX-only cases
// look at where a path lands in the machine root.
#include "ScratchDir.h"

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace {

using tstest::IsDir;
using tstest::ScratchDir;

std::string CurrentDir()
{
    char buf[4 * MAX_PATH];
    DWORD n = GetCurrentDirectoryA(sizeof buf, buf);
    return n < sizeof buf ? std::string(buf, n) : std::string();
}

TEST(PathsTest, SeparatorsDriveCaseAndDots)
{
    ScratchDir dir;
    std::string base = dir.path();
    ASSERT_TRUE(CreateDirectoryA((base + "/fwd").c_str(), nullptr));
    EXPECT_TRUE(IsDir(base + "\\fwd"));
    std::string lower = base;
    lower[0] = 'c';
    EXPECT_TRUE(IsDir(lower + "\\fwd"));
    // ".." is resolved by name, even through a folder that is not there.
    EXPECT_TRUE(IsDir(base + "\\nothing\\..\\fwd"));
    EXPECT_TRUE(IsDir(base + "\\.\\fwd\\."));
    EXPECT_TRUE(IsDir("C:\\..\\..\\" + base.substr(3) + "\\fwd"));
    EXPECT_TRUE(IsDir("Z:\\"));
    EXPECT_TRUE(IsDir("c:\\"));
}

TEST(PathsTest, MissingDriveOrFolder)
{
    ScratchDir dir;
    EXPECT_EQ(GetFileAttributesA("Q:\\anything"), INVALID_FILE_ATTRIBUTES);
    DWORD err = GetLastError();
    // Windows tells of a missing drive as of a missing path; Wine says file.
    EXPECT_TRUE(err == ERROR_PATH_NOT_FOUND || (tstest::RunningUnderWine() && err == ERROR_FILE_NOT_FOUND)) << err;
    EXPECT_EQ(GetFileAttributesA((dir / "none").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(GetFileAttributesA((dir / "none\\deeper").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(tstest::ErrorOf(CreateDirectoryA((dir / "none\\deeper").c_str(), nullptr)),
              static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    ASSERT_TRUE(CreateDirectoryA((dir / "once").c_str(), nullptr));
    EXPECT_EQ(tstest::ErrorOf(CreateDirectoryA((dir / "once").c_str(), nullptr)),
              static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(GetFileAttributesA(""), INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(RemoveDirectoryA((dir / "once").c_str()));
    EXPECT_FALSE(IsDir(dir / "once"));
}

TEST(PathsTest, CurrentDirectoryAndRelativePaths)
{
    ScratchDir dir;
    ASSERT_TRUE(CreateDirectoryA((dir / "work").c_str(), nullptr));
    ASSERT_TRUE(SetCurrentDirectoryA((dir / "work").c_str()));
    EXPECT_EQ(CurrentDir(), dir / "work");

    ASSERT_TRUE(CreateDirectoryA("rel", nullptr));
    EXPECT_TRUE(IsDir(dir / "work\\rel"));
    EXPECT_TRUE(IsDir("..\\work\\rel"));
    // "\name" is below the root of the current drive, here C:.
    std::string rooted = "\\" + dir.path().substr(3) + "\\work\\rel";
    EXPECT_TRUE(IsDir(rooted));
    // A drive-relative path on the current drive starts from here.
    EXPECT_TRUE(IsDir("C:rel"));

    // A buffer that is too small is left alone and told the size needed.
    char small[4] = "abc";
    DWORD need = GetCurrentDirectoryA(sizeof small, small);
    EXPECT_EQ(need, static_cast<DWORD>((dir / "work").size() + 1));
    EXPECT_STREQ(small, "abc");

    EXPECT_EQ(tstest::ErrorOf(SetCurrentDirectoryA((dir / "absent").c_str())),
              static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(CurrentDir(), dir / "work");
    // A relative change starts from here, and relative paths follow it.
    ASSERT_TRUE(SetCurrentDirectoryA("rel"));
    EXPECT_EQ(CurrentDir(), dir / "work\\rel");
    ASSERT_TRUE(CreateDirectoryA("inner", nullptr));
    EXPECT_TRUE(IsDir(dir / "work\\rel\\inner"));
}

TEST(PathsTest, ProgramPath)
{
    char path[4 * MAX_PATH];
    DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    ASSERT_GT(n, 3u);
    EXPECT_EQ(path[1], ':');
    EXPECT_EQ(path[2], '\\');
    std::string p(path, n);
    EXPECT_NE(p.find("platform_tests"), std::string::npos) << p;
    DWORD a = GetFileAttributesA(path);
    EXPECT_NE(a, INVALID_FILE_ATTRIBUTES);
    EXPECT_FALSE(a & FILE_ATTRIBUTE_DIRECTORY);

    TS_SKIP_ON_WINE("a short buffer is handled differently from Windows");
    char shortBuf[6];
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameA(nullptr, shortBuf, sizeof shortBuf), static_cast<DWORD>(sizeof shortBuf));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(std::string(shortBuf), p.substr(0, 5));
}

TEST(PathsTest, DrivesAndSharesLandInTheMachineRoot)
{
    TS_SKIP_ON_WINE("the machine root belongs to the POSIX layer");
    ScratchDir dir;
    std::string root = getenv("TSUTIL_ROOT");
    namespace fs = std::filesystem;
    EXPECT_TRUE(fs::is_directory(root + "/drive_c/" + dir.path().substr(3)));

    // A POSIX absolute path passes unchanged; z: is the file system's root.
    ASSERT_TRUE(CreateDirectoryA((root + "/posix").c_str(), nullptr));
    EXPECT_TRUE(fs::is_directory(root + "/posix"));
    EXPECT_TRUE(IsDir("Z:" + root + "\\posix"));

    // A POSIX absolute path keeps POSIX rules: names match with case.
    ASSERT_TRUE(CreateDirectoryA((dir / "Mixed").c_str(), nullptr));
    std::string posixDir = root + "/drive_c/" + dir.path().substr(3);
    EXPECT_TRUE(IsDir(posixDir + "/Mixed"));
    EXPECT_FALSE(IsDir(posixDir + "/mixed"));
    EXPECT_TRUE(CreateDirectoryA((posixDir + "/mixed").c_str(), nullptr)) << "a name of its own";

    // Another drive letter exists when its link does.
    EXPECT_FALSE(IsDir("D:\\"));
    fs::create_directories(root + "/dosdevices");
    fs::create_directory_symlink(root + "/posix", root + "/dosdevices/d:");
    EXPECT_TRUE(IsDir("d:\\"));
    ASSERT_TRUE(CreateDirectoryA("D:\\sub", nullptr));
    EXPECT_TRUE(fs::is_directory(root + "/posix/sub"));

    // UNC paths: the server and the share must be there.
    EXPECT_EQ(GetFileAttributesA("\\\\server\\share\\x"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_NETPATH));
    fs::create_directories(root + "/unc/server/share");
    EXPECT_TRUE(IsDir("\\\\server\\share"));
    ASSERT_TRUE(CreateDirectoryA("\\\\server\\share\\folder", nullptr));
    EXPECT_TRUE(fs::is_directory(root + "/unc/server/share/folder"));
    EXPECT_TRUE(IsDir("\\\\SERVER\\Share\\FOLDER")) << "UNC names match without case";
    EXPECT_EQ(tstest::ErrorOf(CreateDirectoryA("\\\\server\\other", nullptr)), static_cast<DWORD>(ERROR_BAD_NET_NAME));
    EXPECT_EQ(GetFileAttributesA("\\\\server"), INVALID_FILE_ATTRIBUTES);

    // Paths handed back are in Windows form.
    ASSERT_TRUE(SetCurrentDirectoryA((root + "/posix").c_str()));
    EXPECT_EQ(CurrentDir().substr(0, 3), "Z:\\");
}

} // namespace
