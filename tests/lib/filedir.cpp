// CFileDirectory and GenericFile::CreateDirBranch on real folders: every
// form of path in the table of the two directory operations, the further
// edges, and the path pieces.
#include "FileDir.h"

#include "ScratchDir.h"

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace {

using tstest::IsDir;
using tstest::ScratchDir;

// The scratch folder as the current directory, with a folder "sub" in it.
// Each check gives one path to CFileDirectory::CreateDir or to
// GenericFile::CreateDirBranch, with the result expected and the folder
// (below the scratch folder) that is then there or not.
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
    void Dir(const std::string &path, int result, const char *folder = nullptr, bool made = true)
    {
        EXPECT_EQ(CFileDirectory::CreateDir(path.c_str()), result) << path;
        if (folder) {
            EXPECT_EQ(IsDir(Under(folder)), made) << path;
        }
    }
    void Branch(const std::string &path, int level, int result, const char *folder = nullptr, bool made = true)
    {
        EXPECT_EQ(GenericFile::CreateDirBranch(path.c_str(), level), result) << path;
        if (folder) {
            EXPECT_EQ(IsDir(Under(folder)), made) << path;
        }
    }
    ScratchDir dir;
};

const int kDone = GenericFile::BranchDone, kNoPath = GenericFile::BranchNoPath, kFailed = GenericFile::BranchFailed;

TEST_F(PathTable, DriveRootAndTwoNames)
{
    Dir(Under("a1\\b1"), 1, "a1\\b1");
    Branch(Under("a2\\b2"), 0, kDone, "a2\\b2");
    // The same with a separator at the end.
    Dir(Under("a3\\b3\\"), 1, "a3\\b3");
    Branch(Under("a4\\b4\\"), 0, kDone, "a4\\b4");
}

TEST_F(PathTable, RelativeAndRootedNames)
{
    // Two names, relative.
    Dir("r1\\r2", 0, "r1", false);
    Branch("r3\\r4", 0, kDone, "r3\\r4");
    // A root separator and two names: CreateDir loses the root.
    Dir(Rooted("s1\\s2"), 0, "s1", false);
    Branch(Rooted("s3\\s4"), 0, kDone, "s3\\s4");
    // One name.
    Dir("o1", 1, "o1", false);
    Branch("o2", 0, kDone, "o2");
    // Dots, a separator and a name.
    Dir(".\\d1", 1, "d1");
    Branch(".\\d2", 0, kDone, "d2");
    ASSERT_TRUE(SetCurrentDirectoryA(Under("sub").c_str()));
    Dir("..\\d3", 1, "d3");
    Branch("..\\d4", 0, kDone, "d4");
    // A first component that merely begins with a dot is still made.
    Branch(".hidden\\x", 0, kDone, "sub\\.hidden\\x");
}

TEST_F(PathTable, NothingToMake)
{
    Dir("Q:\\", 1);
    Branch("Q:\\", 0, kNoPath);
    Dir("", 1);
    Branch("", 0, kNoPath);
    // Level 1 on one component that does not exist.
    Branch("lv", 1, kNoPath, "lv", false);
    // A directory that exists, whatever the level.
    Branch(Under("sub"), 0, kDone);
    Branch(Under("sub"), 7, kDone);
}

TEST_F(PathTable, ForwardSlashes)
{
    std::string fwd = dir.path() + "/f1/f2/f3";
    for (char &c : fwd)
        if (c == '\\')
            c = '/';
    Dir(fwd, 1, "f1", false);
    Branch(fwd, 0, kFailed, "f1", false);
    ASSERT_TRUE(CreateDirectoryA(Under("f1").c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryA(Under("f1\\f2").c_str(), nullptr));
    Branch(fwd, 0, kDone, "f1\\f2\\f3");
}

TEST_F(PathTable, FilesInTheWayAndDoubledSeparators)
{
    ASSERT_TRUE(tstest::WriteWholeFile(Under("plain"), "x"));
    Branch(Under("plain\\x"), 0, kFailed);
    Dir(Under("plain\\x"), 0);
    Branch(Under("plain"), 0, kFailed);
    Dir(Under("plain"), 1); // found: what it is does not matter

    Dir(dir.path() + "\\\\dd1\\\\dd2", 1, "dd1\\dd2");
    Branch(dir.path() + "\\dd3\\\\dd4", 0, kDone, "dd3\\dd4");

    // A path too long for the working copy fails without making anything.
    std::string first(120, 'l');
    Branch(Under(first + "\\" + std::string(140, 'm')), 0, kFailed, first.c_str(), false);
}

TEST_F(PathTable, UncPaths)
{
    TS_SKIP_ON_WINE("Wine reaches no network share to work on");
    std::string root = getenv("TSUTIL_ROOT");
    std::filesystem::create_directories(root + "/unc/server/share");
    // An existing share with one folder below it.
    Dir("\\\\server\\share\\u1", 0);
    Branch("\\\\server\\share\\u2", 0, kDone);
    EXPECT_TRUE(IsDir("\\\\server\\share\\u2"));
    EXPECT_FALSE(IsDir("\\\\server\\share\\u1"));
    // The server name only.
    Dir("\\\\server", 1);
    Branch("\\\\server", 0, kFailed);
    Branch("\\\\server\\", 0, kNoPath);
    // A share that does not exist.
    Dir("\\\\server\\noshare\\f", 0);
    Branch("\\\\server\\noshare\\f", 0, kFailed);
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
