// A program with a CWinApp object and no main of its own runs through the
// framework's entry: InitInstance, then Run or ExitInstance, and the
// process ends with the result (app_probe checks the inside and names a
// failure by its exit code, 90 and up).
#include <TestSupport.h>

namespace {

// Each mode of the probe ends the process with the code given (0 for the
// command line seen as passed).
TEST(Application, EachWayOfEndingGivesTheProcessItsResult)
{
    const struct {
        std::vector<std::string> args;
        int code;
        const char *what;
    } cases[] = {
        {{"quit", "5"}, 5, "the default Run ends at WM_QUIT with its code"},
        {{"quit", "0"}, 0, "the default Run ends at WM_QUIT with its code"},
        {{"post", "23"}, 23, "a quit posted from another thread ends Run after earlier messages"},
        {{"refuse", "7"}, 7, "a refused InitInstance goes straight to ExitInstance"},
        {{"own", "42"}, 42, "the process ends with the result of the application's own Run"},
        {{"args", "two words", "", "back\\slash"}, 0, "the command line without the program name, quoted as given"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(tstest::RunChild("app_probe", c.args), c.code) << c.what;
}

} // namespace
