// TessaviInitInfo: the library's view of one installation in the registry.
//
// Below the base key, which the program names through
// RegistryEntry::SetRegistryDefaults (the default parent path under the
// default hive; an empty path is the hive itself), lie
//   "Diagnostics"   the diagnostic switches (see DiagGuard) and the string
//                   value "DiagnosticOutputDirectory"
//   "Database"      the string value "DataDirectory"
// A program calls SetRegistryDefaults, then AssignRegistryObjects, and only
// then creates its guards, services and threads; at its end, after the last
// guard is gone, UnassignRegistryObjects. Without the keys everything works,
// with diagnostics off.
//
// Outcomes:
//   situation                          Assign  WasFound  DiagnosticOutputDir  DataDirectory
//   never called                       -       FALSE     TRUE, "c:\TSDiag"    TRUE, empty
//   base key missing or not writable   FALSE   FALSE     TRUE, "c:\TSDiag"    TRUE, empty
//   "Diagnostics" missing              FALSE   FALSE     TRUE, "c:\TSDiag"    by "Database"
//   "Database" missing                 TRUE    TRUE      by "Diagnostics"     TRUE, empty
//   both keys and values there         TRUE    TRUE      TRUE, the value      TRUE, the value
//   a key there, its value missing     TRUE    FALSE once the read failed: that read gives FALSE
// A directory text of more than 255 bytes counts as a failed read: a path
// cut short would name another directory.
//
// All of it is static and unlocked: Assign and Unassign belong to the
// program's start and end. The directory texts are kept in shared buffers.
#pragma once

#include "TSDefs.h"

#include <afx.h>

class RegistryKey;

class TSUTIL_API TessaviInitInfo {
public:
    // Objects carry nothing: everything is static. Copies are free.
    TessaviInitInfo() {}
    TessaviInitInfo(TessaviInitInfo const &) {}
    TessaviInitInfo &operator=(TessaviInitInfo const &) { return *this; }
    // Out of line, so that the library itself holds the class's table of
    // virtual functions and its type information on both platforms.
    virtual ~TessaviInitInfo();

    // Opens the base key (with full access: a base key that can only be
    // read counts as missing), then "Diagnostics", whose switches it reads
    // into DiagGuard's statics, then "Database" (optional). Gives
    // foundTessaviInit. Once a base key is held a repeated call does no work
    // and gives the same answer; after a failed base key it tries again.
    static BOOLTYPE AssignRegistryObjects();
    // Deletes the key objects ("Diagnostics" first; the guards that copied
    // it stop reading it) and clears the pointers, so that the next Assign
    // starts afresh. foundTessaviInit and the switches stay. Gives TRUE.
    static BOOLTYPE UnassignRegistryObjects();
    // foundTessaviInit; no registry access.
    static BOOLTYPE WasFoundTessaviInit() { return foundTessaviInit; }
    // With the "Diagnostics" key open, reads "DiagnosticOutputDirectory"
    // (on failure: FALSE, foundTessaviInit FALSE, *dir untouched); then
    // points *dir at the shared buffer that holds the last text read, or
    // "c:\TSDiag", and gives TRUE.
    static BOOLTYPE GetDiagnosticOutputDir(char const **dir);
    // As above; the text is copied into *dir, which a FALSE leaves alone.
    static BOOLTYPE GetDiagnosticOutputDir(CString *dir);
    // Without the "Database" key: the empty text and TRUE. With it, reads
    // "DataDirectory" into *dir and gives TRUE; on failure FALSE,
    // foundTessaviInit FALSE, *dir untouched.
    static BOOLTYPE GetDataDirectory(CString *dir);

    // The base key; owned here.
    static RegistryKey *regBaseKeyPtr;

protected:
    static BOOLTYPE foundTessaviInit;
    static char diagnosticDirPath[256];
    static char dataDirPath[256];

private:
    // The "Database" key; owned here.
    static RegistryKey *initDataRegKeyPtr;
};
