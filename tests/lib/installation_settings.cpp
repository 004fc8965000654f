// TessaviInitInfo: every row of its table of outcomes, the repeat and retry
// rules of AssignRegistryObjects, and the 256-byte directory buffers
// against texts of any length.
#include "DiagFixture.h"

#include "RegKey.h"

#include <string>

namespace {

using tstest::DiagTest;

struct Outcome {
    BOOLTYPE found;
    BOOLTYPE diagOk;
    std::string diagDir;
    BOOLTYPE dataOk;
    std::string dataDir;
};

// What the three questions answer now. The directories read "<untouched>"
// when a FALSE left the caller's text alone.
Outcome Ask()
{
    Outcome o;
    CString diag("<untouched>"), data("<untouched>");
    o.diagOk = TessaviInitInfo::GetDiagnosticOutputDir(&diag);
    o.dataOk = TessaviInitInfo::GetDataDirectory(&data);
    o.found = TessaviInitInfo::WasFoundTessaviInit(); // last: a failed read turns it
    o.diagDir = static_cast<LPCSTR>(diag);
    o.dataDir = static_cast<LPCSTR>(data);
    return o;
}

void ExpectOutcome(const Outcome &o, BOOLTYPE found, BOOLTYPE diagOk, const std::string &diagDir, BOOLTYPE dataOk,
                   const std::string &dataDir)
{
    EXPECT_EQ(o.found, found);
    EXPECT_EQ(o.diagOk, diagOk);
    EXPECT_EQ(o.diagDir, diagDir);
    EXPECT_EQ(o.dataOk, dataOk);
    EXPECT_EQ(o.dataDir, dataDir);
}

TEST_F(DiagTest, SettingsNeverAssigned)
{
    ExpectOutcome(Ask(), FALSE, TRUE, "c:\\TSDiag", TRUE, "");
    EXPECT_EQ(TessaviInitInfo::UnassignRegistryObjects(), TRUE) << "with nothing assigned";
}

// A missing base key gives no keys at all; the next call tries again.
TEST_F(DiagTest, SettingsWithoutTheBaseKey)
{
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), FALSE);
    EXPECT_EQ(TessaviInitInfo::regBaseKeyPtr, nullptr);
    ExpectOutcome(Ask(), FALSE, TRUE, "c:\\TSDiag", TRUE, "");

    CreateKey("Diagnostics");
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    EXPECT_NE(DiagGuard::initDiagRegKeyPtr, nullptr);
}

// Without "Diagnostics" the settings count as not found and the repeat does
// no work; after Unassign the next call opens everything again.
TEST_F(DiagTest, SettingsWithoutTheDiagnosticsKey)
{
    CreateKey("Database");
    SetString("Database", "DataDirectory", "d:\\data");
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), FALSE);
    ExpectOutcome(Ask(), FALSE, TRUE, "c:\\TSDiag", TRUE, "d:\\data");

    CreateKey("Diagnostics");
    SetDword("Diagnostics", "AllowDiagnostics", 1);
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), FALSE);
    EXPECT_EQ(DiagGuard::initDiagRegKeyPtr, nullptr) << "the repeat touched nothing";
    EXPECT_EQ(DiagGuard::initDiagEnable, FALSE);

    EXPECT_EQ(TessaviInitInfo::UnassignRegistryObjects(), TRUE);
    EXPECT_EQ(TessaviInitInfo::WasFoundTessaviInit(), FALSE) << "Unassign leaves the answer";
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    EXPECT_EQ(DiagGuard::initDiagEnable, TRUE);
}

TEST_F(DiagTest, SettingsWithoutTheDatabaseKey)
{
    CreateKey("Diagnostics");
    SetString("Diagnostics", "DiagnosticOutputDirectory", "e:\\diag");
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    ExpectOutcome(Ask(), TRUE, TRUE, "e:\\diag", TRUE, "");
}

// Both keys and values there; after Unassign the last directory read stands.
TEST_F(DiagTest, SettingsComplete)
{
    CreateKey("Diagnostics");
    CreateKey("Database");
    SetString("Diagnostics", "DiagnosticOutputDirectory", "e:\\diag");
    SetString("Database", "DataDirectory", "d:\\data");
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE) << "a repeat gives the same answer";
    ExpectOutcome(Ask(), TRUE, TRUE, "e:\\diag", TRUE, "d:\\data");
    char const *shared = nullptr;
    EXPECT_EQ(TessaviInitInfo::GetDiagnosticOutputDir(&shared), TRUE);
    EXPECT_STREQ(shared, "e:\\diag");

    EXPECT_EQ(TessaviInitInfo::UnassignRegistryObjects(), TRUE);
    EXPECT_EQ(TessaviInitInfo::regBaseKeyPtr, nullptr);
    ExpectOutcome(Ask(), TRUE, TRUE, "e:\\diag", TRUE, "");
}

// A key without its value: that read fails, and the settings count as not
// found for the rest of the run, also once a later read succeeds.
TEST_F(DiagTest, SettingsWithAValueMissing)
{
    CreateKey("Diagnostics");
    CreateKey("Database");
    EXPECT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    ExpectOutcome(Ask(), FALSE, FALSE, "<untouched>", FALSE, "<untouched>");
    char const *dir = "<untouched>";
    EXPECT_EQ(TessaviInitInfo::GetDiagnosticOutputDir(&dir), FALSE);
    EXPECT_STREQ(dir, "<untouched>");

    SetString("Diagnostics", "DiagnosticOutputDirectory", "e:\\diag");
    SetString("Database", "DataDirectory", "d:\\data");
    ExpectOutcome(Ask(), FALSE, TRUE, "e:\\diag", TRUE, "d:\\data");
}

// However long the registry lets a string be, the 256-byte buffers take at
// most 255 bytes and a terminator; a longer text is a failed read that
// leaves the last good text in place.
TEST_F(DiagTest, DirectoryBuffersNeverOverrun)
{
    ASSERT_EQ(RegistryEntry::SetRegistryDefaults(nullptr, nullptr, 4096, 0), TRUE);
    CreateKey("Diagnostics");
    CreateKey("Database");
    std::string fits(255, 'f'), tooLong(600, 'x');
    SetString("Diagnostics", "DiagnosticOutputDirectory", fits);
    SetString("Database", "DataDirectory", fits);
    ASSERT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    ExpectOutcome(Ask(), TRUE, TRUE, fits, TRUE, fits);

    SetString("Diagnostics", "DiagnosticOutputDirectory", tooLong);
    SetString("Database", "DataDirectory", std::string(256, 'y'));
    ExpectOutcome(Ask(), FALSE, FALSE, "<untouched>", FALSE, "<untouched>");
    EXPECT_EQ(TessaviInitInfo::UnassignRegistryObjects(), TRUE);
    ExpectOutcome(Ask(), FALSE, TRUE, fits, TRUE, "");
}

} // namespace
