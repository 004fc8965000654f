// A service's ImagePath as the command line that the manager starts: an
// unquoted path that names a file as a whole, words split at blanks, and
// double quotes that group (a quoted program is never a file name with
// its quotes).
#include "launcher.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

TEST(CommandLine, WordsOfAnImagePath)
{
    char dirTemplate[] = "/tmp/tscmdXXXXXX";
    ASSERT_NE(mkdtemp(dirTemplate), nullptr);
    const std::string dir = dirTemplate;
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    // "my prog" and, as a trap, a file whose name is a quoted program.
    for (const char *name : {"my prog", "\"prog\""})
        close(open((dir + "/" + name).c_str(), O_CREAT | O_WRONLY, 0755));

    const struct {
        std::string image;
        std::vector<std::string> words;
    } cases[] = {
        {dir + "/my prog", {dir + "/my prog"}},
        {"\"" + dir + "/my prog\" -x", {dir + "/my prog", "-x"}},
        {dir + "/prog -x \"a b\" \"\"", {dir + "/prog", "-x", "a b", ""}},
        {"\"prog\"", {dir + "/prog"}}, // relative to the current folder
        {"", {}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(tsscm::commandLineOf(c.image), c.words) << c.image;

    ASSERT_EQ(chdir(cwd), 0);
    for (const char *name : {"my prog", "\"prog\""})
        unlink((dir + "/" + name).c_str());
    rmdir(dir.c_str());
}

} // namespace
