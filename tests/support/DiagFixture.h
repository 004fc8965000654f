// A test of the diagnostic guard and the installation settings: a scratch
// folder for diagnostic files, an installation base key of the test's own
// (Software\TSUtilTests\<test> in HKCU, or in the hive the test names),
// named through SetRegistryDefaults, and the class-wide state of DiagGuard
// and TessaviInitInfo put back to its initial values before and after.
#pragma once

#include "DiagGrd.h"
#include "RegEntry.h"
#include "TessInit.h"

#include "RegistryFixture.h"
#include "ScratchDir.h"

#include <string>

namespace tstest {

// Reaches the protected state of TessaviInitInfo.
struct InitInfoState : TessaviInitInfo {
    static void Reset()
    {
        foundTessaviInit = FALSE;
        strcpy(diagnosticDirPath, "c:\\TSDiag");
        strcpy(dataDirPath, "c:\\TSFiles");
    }
};

// Reaches a guard's fields.
struct GuardFields : DiagGuard {
    static BOOLTYPE Enable(DiagGuard &g) { return static_cast<GuardFields &>(g).diagEnable; }
    static RegistryKey *Key(DiagGuard &g) { return static_cast<GuardFields &>(g).diagRegKeyPtr; }
    static DWORD Mask(DiagGuard &g, int index) { return static_cast<GuardFields &>(g).classDiagMasks[index]; }
    static void SetMask(DiagGuard &g, int index, DWORD mask)
    {
        static_cast<GuardFields &>(g).classDiagMasks[index] = mask;
    }
};

inline void ResetDiagStatics()
{
    DiagGuard::initDiagEnable = FALSE;
    DiagGuard::initDiagAst = FALSE;
    DiagGuard::initDiagAstv = FALSE;
    DiagGuard::initDiagErr = TRUE;
    DiagGuard::initDiagMsg = TRUE;
    DiagGuard::initMonitorDiagFlags = TRUE;
    DiagGuard::initDiagPath = FALSE;
    DiagGuard::initDiagWhere = FALSE;
    InitInfoState::Reset();
}

class DiagTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        base_ = std::string("Software\\TSUtilTests\\") +
                ::testing::UnitTest::GetInstance()->current_test_info()->name();
        DeleteRegTree(hive_, base_);
        ASSERT_EQ(RegistryEntry::SetRegistryDefaults(base_.c_str(), hive_, 0, 0), TRUE);
        ResetDiagStatics();
    }
    void TearDown() override
    {
        DiagGuard::SetThreadDiagGuardPtr(nullptr);
        TessaviInitInfo::UnassignRegistryObjects();
        RegistryEntry::SetRegistryDefaults("", HKEY_LOCAL_MACHINE, 255, 255);
        ResetDiagStatics();
        DeleteRegTree(hive_, base_);
    }

    // The full path of a key below the base ("" for the base itself).
    std::string Path(const std::string &sub) const { return sub.empty() ? base_ : base_ + "\\" + sub; }
    // Creates the base key and the subkey (if any).
    void CreateKey(const std::string &sub = "")
    {
        HKEY k = nullptr;
        ASSERT_EQ(RegCreateKeyExA(hive_, Path(sub).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &k,
                                  nullptr),
                  ERROR_SUCCESS);
        RegCloseKey(k);
    }
    void SetDword(const std::string &sub, const char *name, DWORD v)
    {
        SetValue(sub, name, REG_DWORD, &v, sizeof v);
    }
    void SetString(const std::string &sub, const char *name, const std::string &text)
    {
        SetValue(sub, name, REG_SZ, text.c_str(), static_cast<DWORD>(text.size() + 1));
    }
    void SetValue(const std::string &sub, const char *name, DWORD type, const void *data, DWORD size)
    {
        HKEY k = nullptr;
        ASSERT_EQ(RegOpenKeyExA(hive_, Path(sub).c_str(), 0, KEY_ALL_ACCESS, &k), ERROR_SUCCESS);
        EXPECT_EQ(RegSetValueExA(k, name, 0, type, static_cast<const BYTE *>(data), size), ERROR_SUCCESS);
        RegCloseKey(k);
    }
    void DeleteValue(const std::string &sub, const char *name)
    {
        HKEY k = nullptr;
        ASSERT_EQ(RegOpenKeyExA(hive_, Path(sub).c_str(), 0, KEY_ALL_ACCESS, &k), ERROR_SUCCESS);
        EXPECT_EQ(RegDeleteValueA(k, name), ERROR_SUCCESS);
        RegCloseKey(k);
    }
    // The installation with a "Diagnostics" key whose AllowDiagnostics is
    // allow, assigned.
    void AssignWithDiagnostics(DWORD allow)
    {
        CreateKey("Diagnostics");
        SetDword("Diagnostics", "AllowDiagnostics", allow);
        ASSERT_EQ(TessaviInitInfo::AssignRegistryObjects(), TRUE);
    }
    std::string File(const std::string &name) const { return dir_ / name; }
    std::string Content(const std::string &name) const { return ReadWholeFile(dir_ / name); }

    ScratchDir dir_; // first: the machine root that the registry lives in
    std::string base_;
    HKEY hive_ = HKEY_CURRENT_USER; // the installation's hive; set before SetUp
};

} // namespace tstest
