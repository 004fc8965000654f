// The framework's exceptions.
#include <afx.h>

#include <string.h>

IMPLEMENT_DYNAMIC(CException, CObject)
IMPLEMENT_DYNAMIC(CMemoryException, CException)
IMPLEMENT_DYNAMIC(CFileException, CException)

namespace {

BOOL CopyMessage(LPCSTR text, LPSTR out, UINT nMax, PUINT pnHelpContext)
{
    if (pnHelpContext)
        *pnHelpContext = 0;
    if (!out || nMax == 0)
        return FALSE;
    size_t n = strlen(text);
    if (n >= nMax)
        n = nMax - 1;
    memcpy(out, text, n);
    out[n] = 0;
    return TRUE;
}

} // namespace

CException::CException(BOOL bAutoDelete) : m_bAutoDelete(bAutoDelete) {}

CException::~CException() {}

BOOL CException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext)
{
    if (pnHelpContext)
        *pnHelpContext = 0;
    if (lpszError && nMaxError)
        *lpszError = 0;
    return FALSE;
}

int CException::ReportError(UINT nType, UINT)
{
    char text[512];
    if (!GetErrorMessage(text, sizeof text))
        strcpy(text, "An unsupported operation was attempted.");
    return AfxMessageBox(text, nType);
}

void CException::Delete()
{
    if (m_bAutoDelete > 0)
        delete this;
}

CMemoryException::CMemoryException() : CException(TRUE) {}
CMemoryException::CMemoryException(BOOL bAutoDelete) : CException(bAutoDelete) {}
CMemoryException::~CMemoryException() {}

BOOL CMemoryException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext)
{
    return CopyMessage("Out of memory.", lpszError, nMaxError, pnHelpContext);
}

void AfxThrowMemoryException()
{
    // Static and never deleted: throwing it needs no memory.
    static CMemoryException simpleMemoryException(FALSE);
    throw &simpleMemoryException;
}

CFileException::CFileException(int cause, LONG lOsError, LPCSTR lpszArchiveName)
    : m_cause(cause), m_lOsError(lOsError), m_strFileName(lpszArchiveName)
{
}

CFileException::~CFileException() {}

BOOL CFileException::GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext)
{
    static const char *const texts[] = {
        "No error occurred.",
        "An unspecified error occurred while accessing %s.",
        "%s was not found.",
        "%s contains an invalid path.",
        "%s could not be opened because there are too many open files.",
        "Access to %s was denied.",
        "An unsupported operation was attempted on %s.",
        "%s could not be removed because it is the current directory.",
        "%s could not be created because the directory is full.",
        "Seek failed on %s.",
        "A hardware I/O error was reported while accessing %s.",
        "A sharing violation occurred while accessing %s.",
        "A locking violation occurred while accessing %s.",
        "Disk full while accessing %s.",
        "An attempt was made to access %s past its end.",
    };
    int cause = (m_cause >= 0 && m_cause <= endOfFile) ? m_cause : genericException;
    CString text;
    text.Format(texts[cause], m_strFileName.IsEmpty() ? "an unnamed file" : static_cast<LPCSTR>(m_strFileName));
    return CopyMessage(text, lpszError, nMaxError, pnHelpContext);
}

int CFileException::OsErrorToException(LONG lOsError)
{
    switch (lOsError) {
    case NO_ERROR: return none;
    case ERROR_FILE_NOT_FOUND: return fileNotFound;
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_DIRECTORY: return badPath;
    case ERROR_TOO_MANY_OPEN_FILES: return tooManyOpenFiles;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT: return accessDenied;
    case ERROR_INVALID_HANDLE: return invalidFile;
    case ERROR_CURRENT_DIRECTORY: return removeCurrentDir;
    case ERROR_CANNOT_MAKE: return directoryFull;
    case ERROR_SEEK:
    case ERROR_NEGATIVE_SEEK: return badSeek;
    case ERROR_WRITE_FAULT:
    case ERROR_READ_FAULT:
    case ERROR_GEN_FAILURE:
    case ERROR_NOT_READY:
    case ERROR_BAD_UNIT: return hardIO;
    case ERROR_SHARING_VIOLATION: return sharingViolation;
    case ERROR_LOCK_VIOLATION:
    case ERROR_LOCK_FAILED: return lockViolation;
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL: return diskFull;
    case ERROR_HANDLE_EOF: return endOfFile;
    default: return genericException;
    }
}

void CFileException::ThrowOsError(LONG lOsError, LPCSTR lpszFileName)
{
    throw new CFileException(OsErrorToException(lOsError), lOsError, lpszFileName);
}

void AfxThrowFileException(int cause, LONG lOsError, LPCSTR lpszFileName)
{
    throw new CFileException(cause, lOsError, lpszFileName);
}
