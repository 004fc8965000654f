// CFile: an unbuffered file on a platform file handle.
#include <afx.h>

#include <string.h>

IMPLEMENT_DYNAMIC(CFile, CObject)

CFile::CFile() : m_hFile(static_cast<UINT>(hFileNull)), m_bCloseOnDelete(FALSE) {}

CFile::CFile(int hFile) : m_hFile(static_cast<UINT>(hFile)), m_bCloseOnDelete(FALSE) {}

CFile::CFile(LPCSTR lpszFileName, UINT nOpenFlags) : m_hFile(static_cast<UINT>(hFileNull)), m_bCloseOnDelete(FALSE)
{
    CFileException e;
    if (!Open(lpszFileName, nOpenFlags, &e))
        AfxThrowFileException(e.m_cause, e.m_lOsError, e.m_strFileName);
}

CFile::~CFile()
{
    if (m_hFile != static_cast<UINT>(hFileNull) && m_bCloseOnDelete)
        Abort();
}

BOOL CFile::Open(LPCSTR lpszFileName, UINT nOpenFlags, CFileException *pError)
{
    if (m_hFile != static_cast<UINT>(hFileNull) || !lpszFileName || !*lpszFileName) {
        if (pError) {
            pError->m_cause = m_hFile != static_cast<UINT>(hFileNull) ? CFileException::genericException
                                                                       : CFileException::badPath;
            pError->m_lOsError = m_hFile != static_cast<UINT>(hFileNull) ? -1 : ERROR_PATH_NOT_FOUND;
            pError->m_strFileName = lpszFileName;
        }
        return FALSE;
    }
    m_bCloseOnDelete = FALSE;

    DWORD access;
    switch (nOpenFlags & 3) {
    case modeRead: access = GENERIC_READ; break;
    case modeWrite: access = GENERIC_WRITE; break;
    default: access = GENERIC_READ | GENERIC_WRITE; break;
    }
    DWORD share;
    switch (nOpenFlags & 0x70) {
    case shareDenyWrite: share = FILE_SHARE_READ; break;
    case shareDenyRead: share = FILE_SHARE_WRITE; break;
    case shareDenyNone: share = FILE_SHARE_READ | FILE_SHARE_WRITE; break;
    default: share = 0; break; // shareCompat and shareExclusive
    }
    DWORD disposition = OPEN_EXISTING;
    if (nOpenFlags & modeCreate)
        disposition = (nOpenFlags & modeNoTruncate) ? OPEN_ALWAYS : CREATE_ALWAYS;
    SECURITY_ATTRIBUTES sa;
    sa.nLength = sizeof sa;
    sa.lpSecurityDescriptor = nullptr;
    sa.bInheritHandle = (nOpenFlags & modeNoInherit) ? FALSE : TRUE;

    HANDLE h = CreateFileA(lpszFileName, access, share, &sa, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        if (pError) {
            pError->m_lOsError = static_cast<LONG>(GetLastError());
            pError->m_cause = CFileException::OsErrorToException(pError->m_lOsError);
            pError->m_strFileName = lpszFileName;
        }
        return FALSE;
    }
    m_hFile = static_cast<UINT>(reinterpret_cast<UINT_PTR>(h));
    m_bCloseOnDelete = TRUE;
    m_strFileName = lpszFileName;
    return TRUE;
}

UINT CFile::Read(void *lpBuf, UINT nCount)
{
    if (nCount == 0)
        return 0;
    DWORD got = 0;
    if (!ReadFile(HandleOf(m_hFile), lpBuf, nCount, &got, nullptr))
        CFileException::ThrowOsError(static_cast<LONG>(GetLastError()), m_strFileName);
    return got;
}

void CFile::Write(const void *lpBuf, UINT nCount)
{
    if (nCount == 0)
        return;
    DWORD written = 0;
    if (!WriteFile(HandleOf(m_hFile), lpBuf, nCount, &written, nullptr))
        CFileException::ThrowOsError(static_cast<LONG>(GetLastError()), m_strFileName);
    if (written < nCount)
        AfxThrowFileException(CFileException::diskFull, -1, m_strFileName);
}

LONG CFile::Seek(LONG lOff, UINT nFrom)
{
    DWORD method = nFrom == begin ? FILE_BEGIN : nFrom == current ? FILE_CURRENT : FILE_END;
    DWORD pos = SetFilePointer(HandleOf(m_hFile), lOff, nullptr, method);
    if (pos == INVALID_SET_FILE_POINTER)
        CFileException::ThrowOsError(static_cast<LONG>(GetLastError()), m_strFileName);
    return static_cast<LONG>(pos);
}

DWORD CFile::GetPosition() const
{
    DWORD pos = SetFilePointer(HandleOf(m_hFile), 0, nullptr, FILE_CURRENT);
    if (pos == INVALID_SET_FILE_POINTER)
        CFileException::ThrowOsError(static_cast<LONG>(GetLastError()), m_strFileName);
    return pos;
}

DWORD CFile::GetLength() const
{
    DWORD size = GetFileSize(HandleOf(m_hFile), nullptr);
    if (size == INVALID_FILE_SIZE)
        CFileException::ThrowOsError(static_cast<LONG>(GetLastError()), m_strFileName);
    return size;
}

void CFile::Flush()
{
    if (m_hFile == static_cast<UINT>(hFileNull))
        return;
    if (!FlushFileBuffers(HandleOf(m_hFile)))
        CFileException::ThrowOsError(static_cast<LONG>(GetLastError()), m_strFileName);
}

void CFile::Close()
{
    BOOL failed = FALSE;
    DWORD error = 0;
    if (m_hFile != static_cast<UINT>(hFileNull)) {
        if (!CloseHandle(HandleOf(m_hFile))) {
            failed = TRUE;
            error = GetLastError();
        }
    }
    m_hFile = static_cast<UINT>(hFileNull);
    m_bCloseOnDelete = FALSE;
    CString name = m_strFileName;
    m_strFileName.Empty();
    if (failed)
        CFileException::ThrowOsError(static_cast<LONG>(error), name);
}

void CFile::Abort()
{
    if (m_hFile != static_cast<UINT>(hFileNull))
        CloseHandle(HandleOf(m_hFile));
    m_hFile = static_cast<UINT>(hFileNull);
    m_bCloseOnDelete = FALSE;
    m_strFileName.Empty();
}

void CFile::SeekToBegin() { Seek(0, begin); }

DWORD CFile::SeekToEnd() { return static_cast<DWORD>(Seek(0, end)); }

CString CFile::GetFilePath() const { return m_strFileName; }

CString CFile::GetFileName() const
{
    int cut = -1;
    for (int i = 0; i < m_strFileName.GetLength(); ++i)
        if (m_strFileName[i] == '\\' || m_strFileName[i] == '/' || m_strFileName[i] == ':')
            cut = i;
    return m_strFileName.Mid(cut + 1);
}
