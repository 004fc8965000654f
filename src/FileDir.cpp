// CFileDirectory and GenericFile.
#include "FileDir.h"

#include <afxcoll.h>

#include <mbstring.h>
#include <stdlib.h>
#include <string.h>

namespace {

// The four parts of a path, as _splitpath cuts them.
struct PathParts {
    char drive[_MAX_DRIVE];
    char dir[_MAX_DIR];
    char fname[_MAX_FNAME];
    char ext[_MAX_EXT];

    explicit PathParts(const char *path) { _splitpath(path, drive, dir, fname, ext); }
};

const char kSep = '\\';

char *FindSep(char *from)
{
    return reinterpret_cast<char *>(_mbschr(reinterpret_cast<unsigned char *>(from), static_cast<unsigned char>(kSep)));
}

} // namespace

void CFileDirectory::SetCurrentDirectoryA(const char *path)
{
    PathParts parts(path);
    CString dir;
    dir.Format("%s%s", parts.drive, parts.dir);
    ::SetCurrentDirectoryA(dir);
}

int CFileDirectory::CreateDir(const char *path)
{
    int result = 1;
    // Components between runs of backslashes, stepping by characters.
    CStringList components;
    const unsigned char *p = reinterpret_cast<const unsigned char *>(path ? path : "");
    while (*p) {
        while (*p == kSep)
            ++p;
        const unsigned char *start = p;
        while (*p && *p != kSep)
            p = _mbsinc(p);
        if (p > start)
            components.AddTail(CString(reinterpret_cast<const char *>(start), static_cast<int>(p - start)));
    }
    if (components.IsEmpty())
        components.AddTail(path ? path : "");

    POSITION pos = components.GetHeadPosition();
    CString sofar = components.GetNext(pos); // the drive: neither tested nor made
    while (pos) {
        sofar += kSep;
        sofar += components.GetNext(pos);
        WIN32_FIND_DATAA found;
        HANDLE h = FindFirstFileA(sofar, &found);
        if (h != INVALID_HANDLE_VALUE) {
            FindClose(h);
            continue;
        }
        if (!CreateDirectoryA(sofar, nullptr)) {
            result = 0;
            break;
        }
    }
    components.RemoveAll();
    return result;
}

void CFileDirectory::SetFileReadOnlyFlag(const char *path, unsigned long &word)
{
    DWORD attributes = GetFileAttributesA(path);
    if (attributes & FILE_ATTRIBUTE_READONLY) // INVALID_FILE_ATTRIBUTES has it too
        word = 0;
    else if (word == 0)
        word = 2;
}

CString CFileDirectory::GetFileNameFromPath(const CString &path)
{
    PathParts parts(path);
    return CString(parts.fname);
}

CString CFileDirectory::GetDirFromPath(const CString &path)
{
    PathParts parts(path);
    CString out;
    out.Format("%s%s", parts.drive, parts.dir);
    return out;
}

CString CFileDirectory::GetFileExtFromPath(const CString &path)
{
    PathParts parts(path);
    CString out(parts.ext);
    out.MakeLower();
    return out;
}

CString CFileDirectory::GetFilenameWithoutExt(const CString &path)
{
    PathParts parts(path);
    CString out;
    out.Format("%s%s%s", parts.drive, parts.dir, parts.fname);
    return out;
}

int CFileDirectory::IsValidFileName(const CString &path)
{
    WIN32_FIND_DATAA found;
    HANDLE h = FindFirstFileA(path, &found);
    if (h == INVALID_HANDLE_VALUE)
        return 0;
    FindClose(h);
    return 1;
}

CFileDirectory &CFileDirectory::operator=(const CFileDirectory &) { return *this; }

const DiagGuard::ClassNameIndex GenericFile::CLASS_INDEX;

GenericFile::~GenericFile() {}

GenericFile::ReturnCodes GenericFile::CreateDirBranch(const char *path, int level)
{
    if (!path || !*path)
        return BranchNoPath;
    DWORD attributes = GetFileAttributesA(path);
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return BranchDone;

    const size_t kCopySize = 256;
    // A longer path would not fit the working copy with its terminator.
    if (strlen(path) > kCopySize - 1)
        return BranchFailed;
    char *copy = static_cast<char *>(GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, kCopySize));
    if (!copy)
        return BranchFailed;
    memcpy(copy, path, strlen(path));

    // Step over the root.
    char *cursor = copy;
    if (copy[0] == kSep && copy[1] == kSep) {
        char *afterServer = FindSep(copy + 2);
        if (!afterServer) {
            GlobalFree(copy);
            return BranchFailed;
        }
        cursor = afterServer; // the share is the first component
    } else if (copy[0] && copy[1] == ':') {
        cursor = copy + 2;
    } else if (copy[0] == '.' && copy[1] == '.') {
        cursor = copy + 2;
    } else if (copy[0] == '.') {
        cursor = copy + 1;
    }
    if (*cursor == kSep)
        ++cursor;
    if (!*cursor) {
        GlobalFree(copy);
        return BranchNoPath;
    }
    for (int i = 0; i < level; ++i) {
        char *sep = FindSep(cursor);
        if (!sep) {
            GlobalFree(copy);
            return BranchNoPath;
        }
        cursor = sep + 1;
    }

    // Cut the copy behind this level's component.
    bool more = false;
    if (char *sep = FindSep(cursor)) {
        more = sep[1] != 0;
        *sep = 0;
    }
    attributes = GetFileAttributesA(copy);
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        if (!CreateDirectoryA(copy, nullptr)) {
            GlobalFree(copy);
            return BranchFailed;
        }
    }
    if (more) {
        ReturnCodes inner = CreateDirBranch(path, level + 1);
        if (inner != BranchDone && inner != BranchNoPath && inner != BranchAccepted) {
            GlobalFree(copy);
            return inner;
        }
    }
    GlobalFree(copy);
    return BranchDone;
}
