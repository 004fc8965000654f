// A program with a CWinApp object and no main of its own runs through the
// framework's entry: InitInstance, then Run or ExitInstance, and the
// process ends with the result (app_probe checks the inside and names a
// failure by its exit code, 90 and up).
#include <TestSupport.h>

namespace {

int RunProbe(const std::vector<std::string> &args)
{
    tstest::ChildProcess child;
    if (!child.Start("app_probe", args))
        return -2;
    return child.Wait();
}

TEST(Application, DefaultRunEndsAtQuitWithItsCode)
{
    EXPECT_EQ(RunProbe({"quit", "5"}), 5);
    EXPECT_EQ(RunProbe({"quit", "0"}), 0);
}

TEST(Application, QuitPostedFromAnotherThreadEndsRunAfterEarlierMessages)
{
    EXPECT_EQ(RunProbe({"post", "23"}), 23);
}

TEST(Application, RefusedInitInstanceGoesStraightToExitInstance)
{
    EXPECT_EQ(RunProbe({"refuse", "7"}), 7);
}

TEST(Application, ProcessEndsWithTheResultOfItsOwnRun)
{
    EXPECT_EQ(RunProbe({"own", "42"}), 42);
}

TEST(Application, CommandLineComesWithoutTheProgramNameAndQuotedAsGiven)
{
    EXPECT_EQ(RunProbe({"args", "two words", "", "back\\slash"}), 0);
}

} // namespace
