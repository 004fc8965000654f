// The heartbeat's installation: its base key in the registry, set up on
// first use, and the folders that the key names.
//
//   HKLM\SOFTWARE\TSUtil\Heartbeat\Diagnostics
//       AllowDiagnostics              0   (an operator sets 1 to switch on)
//       EnableOtherMessages           1
//       EnableErrorMessages           1
//       MonitorTheseSettingsDuringRun 1   (switches are read while it runs)
//       DiagnosticOutputDirectory     c:\TSDiag\Heartbeat
//   HKLM\SOFTWARE\TSUtil\Heartbeat\Database
//       DataDirectory                 c:\TSData\Heartbeat  (the day-ring log)
//
// Only what is missing is written: a value that an operator has set, of
// whatever type, is left as it is.
#pragma once

#include <FileDir.h>
#include <RegDB.h>
#include <RegEntry.h>
#include <TessInit.h>

#include <string>

namespace heartbeat {

char const kBaseKey[] = "SOFTWARE\\TSUtil\\Heartbeat";
char const kBaseKeyFull[] = "HKLM\\SOFTWARE\\TSUtil\\Heartbeat";

// Writes the value when the registry has none of that name (or no key);
// true when it wrote.
inline bool DefaultValue(char const *subkey, char const *name, unsigned long number, char const *text)
{
    CString path = CString(kBaseKey) + "\\" + subkey, valueName(name), current;
    unsigned long size = 0, type = 0, found = 0;
    unsigned long entrySize = text ? 1024 : 4; // what a read of a missing key leaves
    int read = text ? qryRegDB(path, valueName, current, &size, &type, HKEY_LOCAL_MACHINE)
                    : qryRegDB(path, valueName, &found, &size, &type, HKEY_LOCAL_MACHINE);
    if (read || (size != ERROR_FILE_NOT_FOUND && size != entrySize))
        return false; // there, perhaps of another type, or unreadable: the operator's
    if (text) {
        CString value(text);
        return SetRegDB(path, valueName, REG_SZ, value, HKEY_LOCAL_MACHINE) == 1;
    }
    return SetRegDB(path, valueName, REG_DWORD, number, HKEY_LOCAL_MACHINE) == 1;
}

// Creates the missing keys and values; true when anything was missing.
inline bool SetUpBaseKey()
{
    bool created = false;
    created |= DefaultValue("Diagnostics", "AllowDiagnostics", 0, nullptr);
    created |= DefaultValue("Diagnostics", "EnableOtherMessages", 1, nullptr);
    created |= DefaultValue("Diagnostics", "EnableErrorMessages", 1, nullptr);
    created |= DefaultValue("Diagnostics", "MonitorTheseSettingsDuringRun", 1, nullptr);
    created |= DefaultValue("Diagnostics", "DiagnosticOutputDirectory", 0, "c:\\TSDiag\\Heartbeat");
    created |= DefaultValue("Database", "DataDirectory", 0, "c:\\TSData\\Heartbeat");
    return created;
}

// Where this run writes, read from the base key by the library.
struct Folders {
    std::string diagnostics; // the diagnostic file's folder
    std::string data;        // the log's folder
};

// Names the base key to the library and reads the installation (before any
// guard is made); creates both folders. False, with a message on standard
// error, when the installation cannot be read or a folder made.
inline bool OpenInstallation(Folders &folders)
{
    if (!RegistryEntry::SetRegistryDefaults(kBaseKey, HKEY_LOCAL_MACHINE, 0, 0) ||
        !TessaviInitInfo::AssignRegistryObjects()) {
        fprintf(stderr, "heartbeat: cannot read the installation at %s\n", kBaseKeyFull);
        return false;
    }
    CString diag, data;
    if (!TessaviInitInfo::GetDiagnosticOutputDir(&diag) || !TessaviInitInfo::GetDataDirectory(&data) ||
        data.IsEmpty()) {
        fprintf(stderr, "heartbeat: the installation at %s names no folders\n", kBaseKeyFull);
        return false;
    }
    folders.diagnostics = static_cast<char const *>(diag);
    folders.data = static_cast<char const *>(data);
    for (std::string const &dir : {folders.diagnostics, folders.data}) {
        if (!CFileDirectory::CreateDir(dir.c_str())) {
            fprintf(stderr, "heartbeat: cannot create the folder %s\n", dir.c_str());
            return false;
        }
    }
    return true;
}

} // namespace heartbeat
