// TessaviInitInfo: the installation's keys and the two directories.
#include "TessInit.h"

#include "DiagGrd.h"
#include "RegKey.h"
#include "RegValue.h"

#include <string.h>

BOOLTYPE TessaviInitInfo::foundTessaviInit = FALSE;
RegistryKey *TessaviInitInfo::regBaseKeyPtr = nullptr;
RegistryKey *TessaviInitInfo::initDataRegKeyPtr = nullptr;
char TessaviInitInfo::diagnosticDirPath[256] = "c:\\TSDiag";
char TessaviInitInfo::dataDirPath[256] = "c:\\TSFiles";

namespace {

const unsigned long kFullAccess = 0xF003F; // KEY_ALL_ACCESS
const unsigned long kReadAccess = 0x20019; // KEY_READ

// A subkey of the base key, opened; null when it cannot be opened.
RegistryKey *OpenSubkey(char const *name, RegistryKey &base)
{
    RegistryKey *key = new RegistryKey(name, base, kReadAccess);
    if (key->Open() == TRUE)
        return key;
    delete key;
    return nullptr;
}

// Reads the string value name of key into buffer (256 bytes). A text that
// does not fit counts as a failed read, whatever regStringMaxLength allows:
// a directory cut short would be another directory.
BOOLTYPE ReadDirectory(RegistryKey &key, char const *name, char (&buffer)[256])
{
    RegistryString value(name, key);
    char const *text = nullptr;
    if (value.GetByPtr(&text) != TRUE || text == nullptr)
        return FALSE;
    size_t length = strnlen(text, sizeof buffer);
    if (length == sizeof buffer)
        return FALSE;
    memcpy(buffer, text, length + 1);
    return TRUE;
}

} // namespace

BOOLTYPE TessaviInitInfo::AssignRegistryObjects()
{
    if (regBaseKeyPtr != nullptr)
        return foundTessaviInit;
    regBaseKeyPtr = new RegistryKey("", kFullAccess, TRUE);
    if (regBaseKeyPtr->Open() != TRUE) {
        foundTessaviInit = FALSE;
        delete regBaseKeyPtr;
        regBaseKeyPtr = nullptr;
        return FALSE;
    }
    foundTessaviInit = TRUE;
    if (DiagGuard::initDiagRegKeyPtr == nullptr) {
        DiagGuard::initDiagRegKeyPtr = OpenSubkey("Diagnostics", *regBaseKeyPtr);
        if (DiagGuard::initDiagRegKeyPtr != nullptr)
            DiagGuard::InitDiagFlagValues();
        else
            foundTessaviInit = FALSE;
    }
    if (initDataRegKeyPtr == nullptr)
        initDataRegKeyPtr = OpenSubkey("Database", *regBaseKeyPtr); // optional: found stays
    return foundTessaviInit;
}

BOOLTYPE TessaviInitInfo::UnassignRegistryObjects()
{
    DiagGuard::ReleaseInitDiagRegKey();
    delete regBaseKeyPtr;
    regBaseKeyPtr = nullptr;
    delete initDataRegKeyPtr;
    initDataRegKeyPtr = nullptr;
    return TRUE;
}

BOOLTYPE TessaviInitInfo::GetDiagnosticOutputDir(char const **dir)
{
    if (DiagGuard::initDiagRegKeyPtr != nullptr &&
        ReadDirectory(*DiagGuard::initDiagRegKeyPtr, "DiagnosticOutputDirectory", diagnosticDirPath) != TRUE) {
        foundTessaviInit = FALSE;
        return FALSE;
    }
    *dir = diagnosticDirPath;
    return TRUE;
}

BOOLTYPE TessaviInitInfo::GetDiagnosticOutputDir(CString *dir)
{
    char const *text = nullptr;
    if (GetDiagnosticOutputDir(&text) != TRUE)
        return FALSE;
    *dir = text;
    return TRUE;
}

BOOLTYPE TessaviInitInfo::GetDataDirectory(CString *dir)
{
    if (initDataRegKeyPtr == nullptr) {
        *dir = "";
        return TRUE;
    }
    if (ReadDirectory(*initDataRegKeyPtr, "DataDirectory", dataDirPath) != TRUE) {
        foundTessaviInit = FALSE;
        return FALSE;
    }
    *dir = dataDirPath;
    return TRUE;
}
