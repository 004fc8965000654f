// CFileDirectory and GenericFile::CreateDirBranch on real folders: every
// form of path in the table of the two directory operations, the further
// edges, and the path pieces.
#include "FileDir.h"

#include "../platform/ScratchDir.h"

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace {

using tstest::ScratchDir;

bool IsDir(const std::string &path)
{
    DWORD a = GetFileAttributesA(path.c_str());
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

// The scratch folder as the current directory, with a folder "sub" in it.
class PathTable : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(CreateDirectoryA((dir / "sub").c_str(), nullptr));
        ASSERT_TRUE(SetCurrentDirectoryA(dir.path().c_str()));
    }
    std::string Under(const std::string &name) { return dir / name; }
    // The scratch folder's path below the drive's root, without the drive.
    std::string Rooted(const std::string &name) { return dir.path().substr(2) + "\\" + name; }
    ScratchDir dir;
};

TEST_F(PathTable, DriveRootAndTwoNames)
{
    EXPECT_EQ(CFileDirectory::CreateDir(Under("a1\\b1").c_str()), 1);
    EXPECT_TRUE(IsDir(Under("a1\\b1")));
    EXPECT_EQ(GenericFile::CreateDirBranch(Under("a2\\b2").c_str(), 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("a2\\b2")));
    // The same with a separator at the end.
    EXPECT_EQ(CFileDirectory::CreateDir(Under("a3\\b3\\").c_str()), 1);
    EXPECT_TRUE(IsDir(Under("a3\\b3")));
    EXPECT_EQ(GenericFile::CreateDirBranch(Under("a4\\b4\\").c_str(), 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("a4\\b4")));
}

TEST_F(PathTable, RelativeAndRootedNames)
{
    // Two names, relative.
    EXPECT_EQ(CFileDirectory::CreateDir("r1\\r2"), 0);
    EXPECT_FALSE(IsDir(Under("r1")));
    EXPECT_EQ(GenericFile::CreateDirBranch("r3\\r4", 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("r3\\r4")));
    // A root separator and two names: CreateDir loses the root.
    EXPECT_EQ(CFileDirectory::CreateDir(Rooted("s1\\s2").c_str()), 0);
    EXPECT_FALSE(IsDir(Under("s1")));
    EXPECT_EQ(GenericFile::CreateDirBranch(Rooted("s3\\s4").c_str(), 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("s3\\s4")));
    // One name.
    EXPECT_EQ(CFileDirectory::CreateDir("o1"), 1);
    EXPECT_FALSE(IsDir(Under("o1")));
    EXPECT_EQ(GenericFile::CreateDirBranch("o2", 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("o2")));
    // Dots, a separator and a name.
    EXPECT_EQ(CFileDirectory::CreateDir(".\\d1"), 1);
    EXPECT_TRUE(IsDir(Under("d1")));
    EXPECT_EQ(GenericFile::CreateDirBranch(".\\d2", 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("d2")));
    ASSERT_TRUE(SetCurrentDirectoryA(Under("sub").c_str()));
    EXPECT_EQ(CFileDirectory::CreateDir("..\\d3"), 1);
    EXPECT_TRUE(IsDir(Under("d3")));
    EXPECT_EQ(GenericFile::CreateDirBranch("..\\d4", 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("d4")));
    // A first component that merely begins with a dot is still made.
    EXPECT_EQ(GenericFile::CreateDirBranch(".hidden\\x", 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("sub\\.hidden\\x")));
}

TEST_F(PathTable, NothingToMake)
{
    EXPECT_EQ(CFileDirectory::CreateDir("Q:\\"), 1);
    EXPECT_EQ(GenericFile::CreateDirBranch("Q:\\", 0), GenericFile::BranchNoPath);
    EXPECT_EQ(CFileDirectory::CreateDir(""), 1);
    EXPECT_EQ(GenericFile::CreateDirBranch("", 0), GenericFile::BranchNoPath);
    // Level 1 on one component that does not exist.
    EXPECT_EQ(GenericFile::CreateDirBranch("lv", 1), GenericFile::BranchNoPath);
    EXPECT_FALSE(IsDir(Under("lv")));
    // A directory that exists, whatever the level.
    EXPECT_EQ(GenericFile::CreateDirBranch(Under("sub").c_str(), 0), GenericFile::BranchDone);
    EXPECT_EQ(GenericFile::CreateDirBranch(Under("sub").c_str(), 7), GenericFile::BranchDone);
}

TEST_F(PathTable, ForwardSlashes)
{
    std::string fwd = dir.path() + "/f1/f2/f3";
    for (char &c : fwd)
        if (c == '\\')
            c = '/';
    EXPECT_EQ(CFileDirectory::CreateDir(fwd.c_str()), 1);
    EXPECT_FALSE(IsDir(Under("f1")));
    EXPECT_EQ(GenericFile::CreateDirBranch(fwd.c_str(), 0), GenericFile::BranchFailed);
    EXPECT_FALSE(IsDir(Under("f1")));
    ASSERT_TRUE(CreateDirectoryA(Under("f1").c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryA(Under("f1\\f2").c_str(), nullptr));
    EXPECT_EQ(GenericFile::CreateDirBranch(fwd.c_str(), 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("f1\\f2\\f3")));
}

TEST_F(PathTable, FilesInTheWayAndDoubledSeparators)
{
    ASSERT_TRUE(tstest::WriteWholeFile(Under("plain"), "x"));
    EXPECT_EQ(GenericFile::CreateDirBranch(Under("plain\\x").c_str(), 0), GenericFile::BranchFailed);
    EXPECT_EQ(CFileDirectory::CreateDir(Under("plain\\x").c_str()), 0);
    EXPECT_EQ(GenericFile::CreateDirBranch(Under("plain").c_str(), 0), GenericFile::BranchFailed);
    EXPECT_EQ(CFileDirectory::CreateDir(Under("plain").c_str()), 1); // found: what it is does not matter

    EXPECT_EQ(CFileDirectory::CreateDir((dir.path() + "\\\\dd1\\\\dd2").c_str()), 1);
    EXPECT_TRUE(IsDir(Under("dd1\\dd2")));
    EXPECT_EQ(GenericFile::CreateDirBranch((dir.path() + "\\dd3\\\\dd4").c_str(), 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir(Under("dd3\\dd4")));

    // A path too long for the working copy fails without making anything.
    std::string longPath = Under(std::string(120, 'l') + "\\" + std::string(140, 'm'));
    EXPECT_EQ(GenericFile::CreateDirBranch(longPath.c_str(), 0), GenericFile::BranchFailed);
    EXPECT_FALSE(IsDir(Under(std::string(120, 'l'))));
}

TEST_F(PathTable, UncPaths)
{
    TS_SKIP_ON_WINE("Wine reaches no network share to work on");
    std::string root = getenv("TSUTIL_ROOT");
    std::filesystem::create_directories(root + "/unc/server/share");
    // An existing share with one folder below it.
    EXPECT_EQ(CFileDirectory::CreateDir("\\\\server\\share\\u1"), 0);
    EXPECT_EQ(GenericFile::CreateDirBranch("\\\\server\\share\\u2", 0), GenericFile::BranchDone);
    EXPECT_TRUE(IsDir("\\\\server\\share\\u2"));
    EXPECT_FALSE(IsDir("\\\\server\\share\\u1"));
    // The server name only.
    EXPECT_EQ(CFileDirectory::CreateDir("\\\\server"), 1);
    EXPECT_EQ(GenericFile::CreateDirBranch("\\\\server", 0), GenericFile::BranchFailed);
    EXPECT_EQ(GenericFile::CreateDirBranch("\\\\server\\", 0), GenericFile::BranchNoPath);
    // A share that does not exist.
    EXPECT_EQ(CFileDirectory::CreateDir("\\\\server\\noshare\\f"), 0);
    EXPECT_EQ(GenericFile::CreateDirBranch("\\\\server\\noshare\\f", 0), GenericFile::BranchFailed);
}

TEST(FileDirTest, PathPieces)
{
    EXPECT_STREQ(CFileDirectory::GetFileExtFromPath("C:\\a\\b.TXT"), ".txt");
    EXPECT_STREQ(CFileDirectory::GetFileExtFromPath("C:\\a\\noext"), "");
    EXPECT_STREQ(CFileDirectory::GetFileExtFromPath("x.tar.GZ"), ".gz");
    EXPECT_STREQ(CFileDirectory::GetFileNameFromPath("C:\\a\\Name.txt"), "Name");
    EXPECT_STREQ(CFileDirectory::GetFileNameFromPath("C:\\a\\"), "");
    EXPECT_STREQ(CFileDirectory::GetDirFromPath("file.txt"), "");
    EXPECT_STREQ(CFileDirectory::GetDirFromPath("C:\\a\\b.txt"), "C:\\a\\");
    EXPECT_STREQ(CFileDirectory::GetDirFromPath("d/e/f.txt"), "d/e/");
    EXPECT_STREQ(CFileDirectory::GetFilenameWithoutExt("C:\\a\\B.Txt"), "C:\\a\\B");
    CFileDirectory a, b;
    a = b;
}

TEST(FileDirTest, ExistenceReadOnlyAndCurrentDirectory)
{
    ScratchDir dir;
    ASSERT_TRUE(CreateDirectoryA((dir / "sub").c_str(), nullptr));
    ASSERT_TRUE(tstest::WriteWholeFile(dir / "w.txt", "x"));
    ASSERT_TRUE(tstest::WriteWholeFile(dir / "r.txt", "x"));
    ASSERT_TRUE(SetFileAttributesA((dir / "r.txt").c_str(), FILE_ATTRIBUTE_READONLY));

    EXPECT_EQ(CFileDirectory::IsValidFileName((dir / "sub").c_str()), 1);
    EXPECT_EQ(CFileDirectory::IsValidFileName((dir / "w.txt").c_str()), 1);
    EXPECT_EQ(CFileDirectory::IsValidFileName((dir / "*.txt").c_str()), 1);
    EXPECT_EQ(CFileDirectory::IsValidFileName((dir / "none.txt").c_str()), 0);

    unsigned long word = 2;
    CFileDirectory::SetFileReadOnlyFlag((dir / "w.txt").c_str(), word);
    EXPECT_EQ(word, 2u);
    CFileDirectory::SetFileReadOnlyFlag((dir / "r.txt").c_str(), word);
    EXPECT_EQ(word, 0u);
    CFileDirectory::SetFileReadOnlyFlag((dir / "r.txt").c_str(), word);
    EXPECT_EQ(word, 0u);
    CFileDirectory::SetFileReadOnlyFlag((dir / "w.txt").c_str(), word);
    EXPECT_EQ(word, 2u);
    word = 7;
    CFileDirectory::SetFileReadOnlyFlag((dir / "w.txt").c_str(), word);
    EXPECT_EQ(word, 7u);
    CFileDirectory::SetFileReadOnlyFlag((dir / "missing").c_str(), word);
    EXPECT_EQ(word, 0u);

    char cwd[4 * MAX_PATH];
    CFileDirectory::SetCurrentDirectoryA((dir / "sub\\").c_str());
    GetCurrentDirectoryA(sizeof cwd, cwd);
    EXPECT_EQ(std::string(cwd), dir / "sub");
    CFileDirectory::SetCurrentDirectoryA((dir / "w.txt").c_str());
    GetCurrentDirectoryA(sizeof cwd, cwd);
    EXPECT_EQ(std::string(cwd), dir.path());
    CFileDirectory::SetCurrentDirectoryA((dir / "sub").c_str()); // the last component is dropped
    GetCurrentDirectoryA(sizeof cwd, cwd);
    EXPECT_EQ(std::string(cwd), dir.path());
}

} // namespace
