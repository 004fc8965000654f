// Thread and application objects in programs of their own: a ServiceThread
// that overrides nothing reports its error and the failed assertion and
// ends the process with 1 when the gate is open, and ends quietly with 0
// when it is shut (children/svcthread_probe); an application built on
// WinApp and WinThread runs with no main of its own, and its default-built
// objects write defWDiag.txt and defWDia2.txt (children/winapp_probe).
#include "DiagFixture.h"

#include <regex>
#include <string>

namespace {

using tstest::DiagTest;

class ThreadProcessTest : public DiagTest {
protected:
    int Bare(const std::string &file)
    {
        return tstest::RunChild("svcthread_probe", {"bare", "HKCU", base_, File(file)});
    }
};

// The gate open: the error text, then the report of the assertion at its
// place in the library's source, and exit code 1.
TEST_F(ThreadProcessTest, AThreadThatOverridesNothingReportsAndEndsTheProcess)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    EXPECT_EQ(Bare("bare.txt"), 1);
    std::regex report(R"(ServiceThread \(base class\) initializing -- InitInstance\(\)\.\r\n)"
                      R"(\r\nERROR: Should not be in ServiceThread base class Run\(\)\.\r\n\r\n)"
                      R"(\r\n\r\n\*\*Tessavi Assertion Failed\*\*\r\n     File: .*SvcThrd\.cpp ,  Line: \d+)"
                      R"(\r\n       Time/date of compile: \w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}\r\n\r\n)"
                      R"( Assertion:\r\n  FALSE\r\n\r\n)");
    std::string text = Content("bare.txt");
    EXPECT_TRUE(std::regex_match(text, report)) << text;
}

// The gate for errors shut: no report, the thread ends through
// ExitInstance with exit code 0; with diagnostics off, no file at all.
TEST_F(ThreadProcessTest, AThreadThatOverridesNothingEndsQuietlyWithTheGateShut)
{
    CreateKey("Diagnostics");
    EXPECT_EQ(Bare("off.txt"), 0);
    EXPECT_EQ(Content("off.txt"), "<missing>");

    SetDword("Diagnostics", "AllowDiagnostics", 1);
    SetDword("Diagnostics", "EnableErrorMessages", 0);
    EXPECT_EQ(Bare("noerrors.txt"), 0);
    EXPECT_EQ(Content("noerrors.txt"), "ServiceThread (base class) initializing -- InitInstance().\r\n"
                                       "   and ServiceThread (base class) exiting -- ExitInstance().\r\n");
}

// The framework's entry runs the application: InitInstance, the default Run
// until the quit, ExitInstance, and the quit's code as the exit code. The
// thread's guard, second to write the default name, moves to defWDia2.txt.
TEST_F(ThreadProcessTest, AnApplicationWithNoMainOfItsOwnRunsAndWritesTheDefaultFiles)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    // The folder as "dir/.": a trailing separator would escape the closing
    // quote of the argument on a Windows command line.
    EXPECT_EQ(tstest::RunChild("winapp_probe", {"HKCU", base_, File(".")}), 7);
    EXPECT_EQ(Content("defWDiag.txt"), "WinApp initializing -- InitInstance().\r\n"
                                       "application asks the thread to quit\r\n"
                                       "application ends\r\n"
                                       "   and WinApp exiting -- ExitInstance().\r\n");
    EXPECT_EQ(Content("defWDia2.txt"), "WinThread initializing -- InitInstance().\r\n"
                                       "thread waits for its quit\r\n"
                                       "   and WinThread exiting -- ExitInstance().\r\n");
}

} // namespace
