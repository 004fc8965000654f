// Diagnostics across processes: an operator switches a running program's
// diagnostics with tsreg, and the next gate follows; gated assertions end
// a program (children/diag_probe) with exit code 1 and the report in its
// file, or let it go on when the gate is shut.
#include "DiagFixture.h"

#include <regex>
#include <string>
#include <vector>

namespace {

using tstest::DiagTest;

const DiagGuard::ClassNameIndex kClass = static_cast<DiagGuard::ClassNameIndex>(12);

class DiagProcessTest : public DiagTest {
protected:
    // tsreg with these words; its exit code.
    int Tsreg(const std::string &args)
    {
        std::string out;
        int code = tstest::RunCaptured("tsreg", args, out);
        EXPECT_EQ(code, 0) << "tsreg " << args << ": " << out;
        return code;
    }
    std::string DiagKey() const { return "\"HKCU\\" + Path("Diagnostics") + "\""; }
    void SwitchWithTsreg(const char *value, int number)
    {
        Tsreg("add " + DiagKey() + " /v " + value + " /t REG_DWORD /d " + std::to_string(number) + " /f");
    }

    // Runs diag_probe in a mode against this test's settings; its exit code.
    int Probe(const std::string &mode, const std::string &file)
    {
        return tstest::RunChild("diag_probe", {mode, "HKCU", base_, File(file)});
    }
};

// The operator's switch, from another process and with no restart, is seen
// at the next gate in both directions; a value deleted meanwhile leaves the
// last value read.
TEST_F(DiagProcessTest, OperatorSwitchesDiagnosticsWithTsreg)
{
    CreateKey("Diagnostics");
    ASSERT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    DiagGuard g(File("operator.txt").c_str());
    DiagGuard::SetThreadDiagGuardPtr(&g);

    DIAG_MSG(kClass, "before\n");
    SwitchWithTsreg("AllowDiagnostics", 1);
    DIAG_MSG(kClass, "on\n");
    SwitchWithTsreg("AllowDiagnostics", 0);
    DIAG_MSG(kClass, "off\n");
    SwitchWithTsreg("AllowDiagnostics", 1);
    SwitchWithTsreg("EnableOtherMessages", 1);
    DIAG_MSG(kClass, "on again\n");
    Tsreg("delete " + DiagKey() + " /v EnableOtherMessages /f");
    DIAG_MSG(kClass, "value gone\n");
    SwitchWithTsreg("EnableOtherMessages", 0);
    DIAG_MSG(kClass, "messages off\n");
    DIAG_ERR(kClass, "errors still on\n");
    EXPECT_EQ(Content("operator.txt"), "on\r\non again\r\nvalue gone\r\nerrors still on\r\n");
}

// The report of a failed assertion with the gate open, and the end of the
// process right there.
TEST_F(DiagProcessTest, AnOpenGateReportsAndEndsTheProcess)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    std::regex report(R"(probe (\w+)\r\n\r\n\r\n\*\*Tessavi Assertion Failed\*\*\r\n     File: .*diag_probe\.cpp ,  Line: \d+)"
                      R"(\r\n       Time/date of compile: \w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}\r\n\r\n Assertion:\r\n  )"
                      R"((.*)\r\n\r\n)");
    struct Case {
        const char *mode, *expression;
    } cases[] = {{"assert", "argc < 0"}, {"fail", "FALSE"}, {"console", "argc < 0"}};
    for (const Case &c : cases) {
        std::string file = std::string(c.mode) + ".txt";
        EXPECT_EQ(Probe(c.mode, file), 1) << c.mode;
        std::string text = Content(file);
        std::smatch m;
        ASSERT_TRUE(std::regex_match(text, m, report)) << c.mode << ":\n" << text;
        EXPECT_EQ(m[1].str(), c.mode);
        EXPECT_EQ(m[2].str(), c.expression);
    }
}

// With the gate shut the program goes on: no report, exit code 0.
TEST_F(DiagProcessTest, AShutGateLetsTheProgramGoOn)
{
    CreateKey("Diagnostics");
    EXPECT_EQ(Probe("assert", "off.txt"), 0);
    EXPECT_EQ(Content("off.txt"), "<missing>") << "diagnostics off: no file at all";

    SetDword("Diagnostics", "AllowDiagnostics", 1);
    SetDword("Diagnostics", "EnableErrorMessages", 0);
    EXPECT_EQ(Probe("assert", "noerrors.txt"), 0);
    EXPECT_EQ(Content("noerrors.txt"), "probe assert\r\nwent on\r\n");
}

} // namespace
