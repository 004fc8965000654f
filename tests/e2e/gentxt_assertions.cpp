// GenericText's gated assertions, each in a program of its own
// (children/gentxt_probe) whose platform calls fail as the site needs: with
// the gate open the report names the site's own line and the process ends
// with exit code 1; with it shut the operation gives its documented result.
#include "DiagFixture.h"

#include "TestSupport.h"

#include <map>
#include <regex>
#include <string>

namespace {

using tstest::DiagTest;

class GenericTextAssertionTest : public DiagTest {
protected:
    int Probe(const std::string &site, const std::string &file)
    {
        return tstest::RunChild("gentxt_probe", {site, "HKCU", base_, File(file)});
    }
};

struct Site {
    const char *name;       // what the probe makes fail
    const char *expression; // the report's condition
    const char *shutResult; // what the operation gives with the gate shut
};

// Every site of the table: both conversions for each error, the two length
// checks, the long character, and the two wide real conversions (which
// report through the conversion they call). ConvertToMBCS has no site of
// its own for ERROR_NO_UNICODE_TRANSLATION: it is one of "any other".
const Site kSites[] = {
    {"mbcs-122", "FALSE", "FALSE"},
    {"mbcs-1004", "FALSE", "FALSE"},
    {"mbcs-87", "FALSE", "FALSE"},
    {"mbcs-other", "FALSE", "FALSE"},
    {"mbcs-length", "convertStatus == numBytesConvert", "TRUE"},
    {"unicode-122", "FALSE", "FALSE"},
    {"unicode-1004", "FALSE", "FALSE"},
    {"unicode-87", "FALSE", "FALSE"},
    {"unicode-1113", "FALSE", "FALSE"},
    {"unicode-other", "FALSE", "FALSE"},
    {"unicode-length", "convertStatus == (INT) numCharConvert", "TRUE"},
    {"copy-long", "_mbclen((const unsigned char*) in_sourceStr) <= MAX_MBCS_BYTES", "a"},
};

TEST_F(GenericTextAssertionTest, EachSiteReportsOnItsOwnLine)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    std::regex report(R"(site ([\w-]+)\r\n\r\n\r\n\*\*Tessavi Assertion Failed\*\*\r\n     File: (.*GenTxt\.cpp) ,  )"
                      R"(Line: (\d+)\r\n       Time/date of compile: .*\r\n\r\n Assertion:\r\n  (.*)\r\n\r\n)");
    std::map<std::string, std::string> siteOfLine;
    for (const Site &s : kSites) {
        std::string file = std::string(s.name) + ".txt";
        EXPECT_EQ(Probe(s.name, file), 1) << s.name;
        std::string text = Content(file);
        std::smatch m;
        ASSERT_TRUE(std::regex_match(text, m, report)) << s.name << ":\n" << text;
        EXPECT_EQ(m[1].str(), s.name);
        EXPECT_EQ(m[4].str(), s.expression) << s.name;
        auto placed = siteOfLine.emplace(m[3].str(), s.name);
        EXPECT_TRUE(placed.second) << s.name << " reports the line of " << placed.first->second;
    }
    // The platform's own refusal of an unknown code page, and the wide real
    // conversions, report at the sites of the conversion that failed.
    const struct {
        const char *name, *sameLineAs;
    } through[] = {{"mbcs-codepage", "mbcs-87"}, {"real-from-text", "mbcs-other"}, {"real-to-text", "unicode-other"}};
    for (const auto &t : through) {
        std::string file = std::string(t.name) + ".txt";
        EXPECT_EQ(Probe(t.name, file), 1) << t.name;
        std::smatch m;
        std::string text = Content(file);
        ASSERT_TRUE(std::regex_match(text, m, report)) << t.name << ":\n" << text;
        EXPECT_EQ(siteOfLine[m[3].str()], t.sameLineAs) << t.name;
    }
}

TEST_F(GenericTextAssertionTest, AShutGateGivesTheDocumentedResult)
{
    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    SetDword("Diagnostics", "EnableErrorMessages", 0);
    auto expect = [&](const std::string &site, const std::string &result) {
        std::string file = site + ".txt";
        EXPECT_EQ(Probe(site, file), 0) << site;
        EXPECT_EQ(Content(file), "site " + site + "\r\nresult " + result + "\r\n");
    };
    for (const Site &s : kSites)
        expect(s.name, s.shutResult);
    expect("mbcs-codepage", "FALSE");
    expect("real-from-text", "0");
    expect("real-to-text", "output");
}

} // namespace
