// The C runtime's own names: path splitting, number texts, access tests,
// shared stream opens and the date.
#include "ScratchDir.h"

#include <direct.h>
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <mbctype.h>
#include <share.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <string>

namespace {

using tstest::ScratchDir;

struct Split {
    char drive[_MAX_DRIVE], dir[_MAX_DIR], fname[_MAX_FNAME], ext[_MAX_EXT];
    explicit Split(const char *path) { _splitpath(path, drive, dir, fname, ext); }
};

TEST(CrtTest, SplitPath)
{
    const struct {
        const char *path, *drive, *dir, *fname, *ext;
    } cases[] = {
        {"C:\\dir\\sub\\name.tar.gz", "C:", "\\dir\\sub\\", "name.tar", ".gz"},
        {"rel/dir/file", "", "rel/dir/", "file", ""},
        {"\\\\server\\share\\x.txt", "", "\\\\server\\share\\", "x", ".txt"},
        {"C:\\dir.d\\", "C:", "\\dir.d\\", "", ""},
        {".profile", "", "", "", ".profile"},
    };
    for (const auto &c : cases) {
        Split s(c.path);
        EXPECT_STREQ(s.drive, c.drive) << c.path;
        EXPECT_STREQ(s.dir, c.dir) << c.path;
        EXPECT_STREQ(s.fname, c.fname) << c.path;
        EXPECT_STREQ(s.ext, c.ext) << c.path;
    }
    // Null buffers are skipped.
    char fname[_MAX_FNAME];
    _splitpath("a\\b.c", nullptr, nullptr, fname, nullptr);
    EXPECT_STREQ(fname, "b");
}

TEST(CrtTest, SplitPathSteppingOverDoubleByteCharacters)
{
    // 0x95 0x5C is one character whose second byte is a backslash.
    int saved = _getmbcp();
    ASSERT_EQ(_setmbcp(932), 0);
    Split s("C:\\\x95\x5C\\f\x95\x5C.txt");
    _setmbcp(saved);
    EXPECT_STREQ(s.dir, "\\\x95\x5C\\");
    EXPECT_STREQ(s.fname, "f\x95\x5C");
    EXPECT_STREQ(s.ext, ".txt");
}

TEST(CrtTest, IntegerTexts)
{
    char buf[40];
    const struct {
        int value, radix;
        const char *text;
    } integers[] = {{-1234, 10, "-1234"}, {255, 16, "ff"}, {-1, 16, "ffffffff"}, {5, 2, "101"}, {0, 10, "0"}};
    for (const auto &c : integers)
        EXPECT_STREQ(_itoa(c.value, buf, c.radix), c.text) << c.value << " in radix " << c.radix;
    EXPECT_EQ(_itoa(7, buf, 10), buf);
}

struct RealText {
    double value;
    int digits;
    const char *text;
};

// Exponential form below 0.1 and from the digit count up; trailing zeros
// of the decimals dropped, the point kept.
TEST(CrtTest, RealTexts)
{
    char buf[64];
    EXPECT_EQ(_gcvt(3.14159, 3, buf), buf);
    const RealText reals[] = {{3.14159, 3, "3.14"},        {100.0, 3, "100"},       {1234567.0, 3, "1.23e+006"},
                              {1.5e10, 3, "1.5e+010"},     {0.5, 3, "0.5"},         {0.00001234, 3, "1.23e-005"},
                              {-123456789.0, 4, "-1.235e+008"}, {0.25, 7, "0.25"}};
    for (const auto &c : reals)
        EXPECT_STREQ(_gcvt(c.value, c.digits, buf), c.text) << c.value << " with " << c.digits << " digits";
}

TEST(CrtTest, RealTextsWhereWineDiffers)
{
    TS_SKIP_ON_WINE("Wine's runtime drops the point that ends a text once its zeros are gone, and writes values "
                    "from 0.0001 to 0.1 in fixed form");
    char buf[64];
    const RealText reals[] = {{100.0, 5, "100."},       {1234.0, 7, "1234."},     {-3.1415e5, 7, "-314150."},
                              {0.0123, 3, "1.23e-002"}, {0.0001234, 3, "1.23e-004"}, {1000.0, 3, "1.e+003"}};
    for (const auto &c : reals)
        EXPECT_STREQ(_gcvt(c.value, c.digits, buf), c.text) << c.value << " with " << c.digits << " digits";
}

TEST(CrtTest, DuplicateString)
{
    char *copy = _strdup("text");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "text");
    free(copy);
    EXPECT_EQ(_strdup(nullptr), nullptr);
}

TEST(CrtTest, AccessTests)
{
    ScratchDir dir;
    std::string file = dir / "a.txt";
    ASSERT_TRUE(tstest::WriteWholeFile(file, "x"));
    EXPECT_EQ(_access(file.c_str(), 0), 0);
    EXPECT_EQ(_access(file.c_str(), 6), 0);
    EXPECT_EQ(_access(dir.path().c_str(), 2), 0);
    errno = 0;
    EXPECT_EQ(_access((dir / "none").c_str(), 0), -1);
    EXPECT_EQ(errno, ENOENT);
    ASSERT_TRUE(SetFileAttributesA(file.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(_access(file.c_str(), 4), 0);
    errno = 0;
    EXPECT_EQ(_access(file.c_str(), 2), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST(CrtTest, DirectoryCalls)
{
    ScratchDir dir;
    std::string sub = dir / "m";
    EXPECT_EQ(_mkdir(sub.c_str()), 0);
    errno = 0;
    EXPECT_EQ(_mkdir(sub.c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(_chdir(sub.c_str()), 0);
    char cwd[4 * MAX_PATH];
    ASSERT_NE(_getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_EQ(std::string(cwd), sub);
    errno = 0;
    EXPECT_EQ(_getcwd(cwd, 3), nullptr);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(_chdir(dir.path().c_str()), 0);
    EXPECT_EQ(_rmdir(sub.c_str()), 0);
    errno = 0;
    EXPECT_EQ(_rmdir(sub.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(CrtTest, SharedStreamOpens)
{
    ScratchDir dir;
    std::string path = dir / "log.txt";
    FILE *held = _fsopen(path.c_str(), "w", _SH_DENYWR);
    ASSERT_NE(held, nullptr);
    fputs("first", held);
    fflush(held);
    errno = 0;
    EXPECT_EQ(_fsopen(path.c_str(), "w", _SH_DENYNO), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(tstest::ReadWholeFile(path), "first"); // the refused "w" emptied nothing
    FILE *reader = _fsopen(path.c_str(), "r", _SH_DENYNO);
    ASSERT_NE(reader, nullptr);
    char buf[16] = {};
    EXPECT_NE(fgets(buf, sizeof buf, reader), nullptr);
    EXPECT_STREQ(buf, "first");
    fclose(reader);
    fclose(held);

    EXPECT_EQ(tstest::RunChild("share_probe", {"fsopen", path}), 0);

    FILE *appender = _fsopen(path.c_str(), "a", _SH_DENYNO);
    ASSERT_NE(appender, nullptr);
    fputs("+more", appender);
    fclose(appender);
    EXPECT_EQ(tstest::ReadWholeFile(path), "first+more");
}

TEST(CrtTest, DateText)
{
    _tzset();
    char text[16];
    EXPECT_EQ(_strdate(text), text);
    ASSERT_EQ(strlen(text), 8u);
    time_t now = time(nullptr);
    struct tm local = *localtime(&now);
    char expected[16];
    strftime(expected, sizeof expected, "%m/%d/%y", &local);
    EXPECT_STREQ(text, expected);
}

TEST(CrtTest, LowLevelFiles)
{
    ScratchDir dir;
    std::string file = dir / "low.bin";
    int fd = _open(file.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(_write(fd, "0123456789", 10), 10);
    char buf[16] = {};
    errno = 0;
    EXPECT_EQ(_read(fd, buf, 4), -1); // opened for writing only
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(_lseek(fd, -3, SEEK_END), 7L);
    errno = 0;
    EXPECT_EQ(_lseek(fd, 0, 7), -1L);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(_close(fd), 0);

    errno = 0;
    EXPECT_EQ(_open(file.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL, _S_IREAD | _S_IWRITE), -1);
    EXPECT_EQ(errno, EEXIST);
    errno = 0;
    EXPECT_EQ(_open((dir / "none.bin").c_str(), _O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(_sopen(file.c_str(), _O_RDONLY, 0x77), -1); // no such share flag

    // A reader that denies writing keeps writers out, and readers in.
    fd = _sopen(file.c_str(), _O_RDONLY | _O_BINARY, _SH_DENYWR);
    ASSERT_GE(fd, 0);
    errno = 0;
    EXPECT_EQ(_open(file.c_str(), _O_WRONLY), -1);
    EXPECT_EQ(errno, EACCES);
    int reader = _open(file.c_str(), _O_RDONLY | _O_BINARY);
    EXPECT_GE(reader, 0);
    EXPECT_EQ(_read(fd, buf, sizeof buf), 10);
    EXPECT_EQ(std::string(buf, 10), "0123456789");
    EXPECT_EQ(_close(reader), 0);
    EXPECT_EQ(_close(fd), 0);

    TS_SKIP_ON_WINE("Wine sets no errno for a bad share flag, and keeps the read-only attribute in the Unix "
                    "permissions, which root passes");
    errno = 0;
    EXPECT_EQ(_sopen(file.c_str(), _O_RDONLY, 0x77), -1);
    EXPECT_EQ(errno, EINVAL);
    // A new file made without _S_IWRITE is read-only.
    std::string readOnly = dir / "ro.bin";
    fd = _open(readOnly.c_str(), _O_WRONLY | _O_CREAT, _S_IREAD);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(_close(fd), 0);
    errno = 0;
    EXPECT_EQ(_open(readOnly.c_str(), _O_WRONLY), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST(CrtTest, WindowsProgramWithTheCxxHeaders)
{
    ScratchDir dir;
    std::string out;
    EXPECT_EQ(tstest::RunCaptured("crtprogram", "\"" + dir.path() + "\"", out), 0) << out;
    EXPECT_EQ(out, "ff 0.5 data.bin ello\n");
}

} // namespace
