// CFileDirectory and GenericFile: paths taken apart, tested, and
// directories created. Paths are narrow strings of the multibyte code
// page; the separator is the backslash (only the taking apart also
// accepts "/"). Nothing here keeps state or reports a diagnostic: results
// alone tell of failures.
#pragma once

#include "TSDefs.h"
#include "DiagGrd.h"

#include <afx.h>

class TSUTIL_API CFileDirectory {
public:
    // Makes drive and directory of path (everything up to its last
    // separator) the process's current directory: a directory path must
    // end in a separator for that directory itself to become current. A
    // refusal is not reported.
    static void SetCurrentDirectoryA(const char *path);
    // Creates the directories of a path of the form drive, colon,
    // backslashes and names. The path is cut at backslashes (runs count as
    // one, leading ones vanish); the first component stands for the drive
    // and is neither tested nor made; each further level that is not found
    // is created. 1 for success, 0 when a level could not be made.
    static int CreateDir(const char *path);
    // word becomes 0 when the file is read-only or cannot be examined;
    // otherwise a word of 0 becomes 2 and any other stays.
    static void SetFileReadOnlyFlag(const char *path, unsigned long &word);
    // The file name without its extension.
    static CString GetFileNameFromPath(const CString &path);
    // Drive and directory, with the separator at the end.
    static CString GetDirFromPath(const CString &path);
    // The extension with its dot, in lower case.
    static CString GetFileExtFromPath(const CString &path);
    // The whole path without the extension.
    static CString GetFilenameWithoutExt(const CString &path);
    // 1 when anything (file or directory) matches the path, which may hold
    // wildcards; else 0.
    static int IsValidFileName(const CString &path);

    // The class has no state: assignment does nothing.
    CFileDirectory &operator=(const CFileDirectory &);
};

class TSUTIL_API GenericFile : public CObject {
public:
    // The class's index in a diagnostic guard's table of masks.
    static const DiagGuard::ClassNameIndex CLASS_INDEX = DiagGuard::GenericFileIndex;

    enum ReturnCodes {
        BranchDone = 1,     // the directory exists now
        BranchNoPath = 2,   // nothing to create: empty, a bare root, or the level passes the end
        BranchAccepted = 3, // counted as good from a nested call; never returned itself
        BranchFailed = 4,   // a level could not be made, a UNC path without a share, or a path over 255 bytes
    };

    // The class has no state.
    virtual ~GenericFile();

    // Creates the chain of directories of path, one level per call, the
    // nested calls taking the next level; callers give level 0, the count
    // of leading components to step over. Knows drive paths, UNC paths
    // (the server is stepped over, the share is the first level), and
    // paths that begin with "." or "..". Levels made before a failure stay.
    static ReturnCodes CreateDirBranch(const char *path, int level);

protected:
    GenericFile() = default; // never instantiated: a holder of a static operation
};
