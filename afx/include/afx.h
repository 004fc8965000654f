// The MFC-shaped framework subset: CObject, CString, the exceptions, CFile
// and CDumpContext, with the framework's classic behaviour as far as the
// library and its users need it. The collections are in afxcoll.h.
//
// Strings are narrow text of the process's multibyte code page. Errors of
// the file classes are thrown as CFileException * (catch by pointer and call
// Delete()); a failed allocation of the framework throws CMemoryException *.
#pragma once

#include <windows.h>

#include <stdarg.h>
#include <stddef.h>

#ifndef TSAFX_API
#define TSAFX_API
#endif

class CObject;
class CArchive;
class CDumpContext;
class CFile;

// A position in a list: an opaque node pointer.
struct __POSITION {};
typedef __POSITION *POSITION;

// Run-time type information of a CObject class.
struct TSAFX_API CRuntimeClass {
    LPCSTR m_lpszClassName;
    int m_nObjectSize;
    UINT m_wSchema;                  // 0xFFFF for classes that cannot be serialised
    CObject *(*m_pfnCreateObject)(); // null for classes that cannot be created dynamically
    CRuntimeClass *m_pBaseClass;

    // True when this class is pBaseClass or derives from it.
    BOOL IsDerivedFrom(const CRuntimeClass *pBaseClass) const;
    // A new object of the class, or null when it cannot be created dynamically.
    CObject *CreateObject();
};

#define RUNTIME_CLASS(class_name) (const_cast<CRuntimeClass *>(&class_name::class##class_name))

#define DECLARE_DYNAMIC(class_name)                                                                    \
public:                                                                                                \
    static const CRuntimeClass class##class_name;                                                      \
    virtual CRuntimeClass *GetRuntimeClass() const;

#define DECLARE_DYNCREATE(class_name)                                                                  \
    DECLARE_DYNAMIC(class_name)                                                                        \
    static CObject *CreateObject();

#define IMPLEMENT_RUNTIMECLASS_(class_name, base_class_name, schema, create)                           \
    const CRuntimeClass class_name::class##class_name = {#class_name, sizeof(class class_name), schema, \
                                                         create, RUNTIME_CLASS(base_class_name)};      \
    CRuntimeClass *class_name::GetRuntimeClass() const { return RUNTIME_CLASS(class_name); }

#define IMPLEMENT_DYNAMIC(class_name, base_class_name)                                                 \
    IMPLEMENT_RUNTIMECLASS_(class_name, base_class_name, 0xFFFF, nullptr)

#define IMPLEMENT_DYNCREATE(class_name, base_class_name)                                               \
    CObject *class_name::CreateObject() { return new class_name; }                                     \
    IMPLEMENT_RUNTIMECLASS_(class_name, base_class_name, 0xFFFF, class_name::CreateObject)

// The root of the framework's classes. Not copyable; not created by itself.
// Virtual operations in this order: GetRuntimeClass, the destructor,
// Serialize, AssertValid, Dump.
class TSAFX_API CObject {
public:
    virtual CRuntimeClass *GetRuntimeClass() const;
    virtual ~CObject() = 0;
    // The base does nothing: a class that stores itself overrides it.
    virtual void Serialize(CArchive &ar);
    // The base checks nothing.
    virtual void AssertValid() const;
    // The base writes "a <class name> at $<address>" to dc.
    virtual void Dump(CDumpContext &dc) const;

    BOOL IsKindOf(const CRuntimeClass *pClass) const;
    BOOL IsSerializable() const;

    static const CRuntimeClass classCObject;

protected:
    CObject() = default;

private:
    CObject(const CObject &) = delete;
    CObject &operator=(const CObject &) = delete;
};

// ---------------------------------------------------------------------------
// CString: a text value of bytes with a terminator, shared between copies
// until one of them changes (copies may be made and dropped in different
// threads). One pointer wide, like the framework's own.

struct CStringData;

class TSAFX_API CString {
public:
    CString();
    CString(const CString &src);
    CString(LPCSTR psz);                  // null gives the empty string
    CString(LPCSTR pch, int nLength);     // nLength bytes, which may hold zero bytes
    CString(const unsigned char *psz);
    explicit CString(char ch, int nRepeat = 1);
    ~CString();

    const CString &operator=(const CString &src);
    const CString &operator=(LPCSTR psz);
    const CString &operator=(const unsigned char *psz);
    const CString &operator=(char ch);

    const CString &operator+=(const CString &s);
    const CString &operator+=(LPCSTR psz);
    const CString &operator+=(char ch);

    friend TSAFX_API CString operator+(const CString &a, const CString &b);
    friend TSAFX_API CString operator+(const CString &a, LPCSTR b);
    friend TSAFX_API CString operator+(LPCSTR a, const CString &b);
    friend TSAFX_API CString operator+(const CString &a, char b);
    friend TSAFX_API CString operator+(char a, const CString &b);

    int GetLength() const;
    BOOL IsEmpty() const;
    void Empty();

    char GetAt(int nIndex) const;       // nIndex in [0, GetLength())
    char operator[](int nIndex) const;
    void SetAt(int nIndex, char ch);    // an index outside the text changes nothing
    operator LPCSTR() const;

    // strcmp order; CompareNoCase folds ASCII letters.
    int Compare(LPCSTR psz) const;
    int CompareNoCase(LPCSTR psz) const;

    CString Mid(int nFirst) const;
    CString Mid(int nFirst, int nCount) const;
    CString Left(int nCount) const;     // counts are clamped to the text
    CString Right(int nCount) const;

    // Case changes step over the double-byte characters of the multibyte
    // code page and change only single-byte letters.
    void MakeUpper();
    void MakeLower();
    void MakeReverse();

    void TrimLeft();
    void TrimRight();

    // Index of the first (last) occurrence, or -1.
    int Find(char ch) const;
    int Find(LPCSTR pszSub) const;
    int ReverseFind(char ch) const;

    // printf formatting into the string.
    void Format(LPCSTR pszFormat, ...);
    void FormatV(LPCSTR pszFormat, va_list args);

    // Raw access: a writable buffer of at least nMinBufLength bytes plus a
    // terminator, owned by this string alone until ReleaseBuffer. Throws
    // CMemoryException * when no memory can be had.
    LPSTR GetBuffer(int nMinBufLength);
    // The same, with the length set to nNewLength.
    LPSTR GetBufferSetLength(int nNewLength);
    // Ends raw access: nNewLength -1 measures up to the first zero byte.
    void ReleaseBuffer(int nNewLength = -1);

private:
    CStringData *GetData() const;
    void Init();
    void AllocBuffer(int nLen);
    void Release();
    void AssignCopy(int nLen, LPCSTR pch);
    void ConcatInPlace(int nLen, LPCSTR pch);
    void CopyBeforeWrite();
    void AllocBeforeWrite(int nLen);
    static CString Concat(int n1, LPCSTR p1, int n2, LPCSTR p2);

    LPSTR m_pchData;
};
static_assert(sizeof(CString) == sizeof(void *), "CString is one pointer wide");

TSAFX_API bool operator==(const CString &a, const CString &b);
TSAFX_API bool operator==(const CString &a, LPCSTR b);
TSAFX_API bool operator==(LPCSTR a, const CString &b);
TSAFX_API bool operator!=(const CString &a, const CString &b);
TSAFX_API bool operator!=(const CString &a, LPCSTR b);
TSAFX_API bool operator!=(LPCSTR a, const CString &b);
TSAFX_API bool operator<(const CString &a, const CString &b);
TSAFX_API bool operator<(const CString &a, LPCSTR b);
TSAFX_API bool operator>(const CString &a, const CString &b);
TSAFX_API bool operator>(const CString &a, LPCSTR b);
TSAFX_API bool operator<=(const CString &a, const CString &b);
TSAFX_API bool operator>=(const CString &a, const CString &b);

// ---------------------------------------------------------------------------
// Exceptions. They are thrown by pointer; the catcher calls Delete(), which
// frees an exception made on the heap and leaves a static one alone.

class TSAFX_API CException : public CObject {
    DECLARE_DYNAMIC(CException)
public:
    explicit CException(BOOL bAutoDelete = TRUE);
    virtual ~CException();
    // The text of the error into lpszError (at most nMaxError bytes with the
    // terminator). The base has none and gives FALSE.
    virtual BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext = nullptr);
    // Shows the error text through AfxMessageBox.
    virtual int ReportError(UINT nType = 0, UINT nMessageID = 0);
    void Delete();

    BOOL m_bAutoDelete;
};

class TSAFX_API CMemoryException : public CException {
    DECLARE_DYNAMIC(CMemoryException)
public:
    CMemoryException();
    explicit CMemoryException(BOOL bAutoDelete);
    virtual ~CMemoryException();
    virtual BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext = nullptr);
};

// Throws the one static CMemoryException (it needs no memory of its own).
[[noreturn]] TSAFX_API void AfxThrowMemoryException();

class TSAFX_API CFileException : public CException {
    DECLARE_DYNAMIC(CFileException)
public:
    // The causes, with the framework's numbers.
    enum {
        none = 0,
        genericException = 1,
        fileNotFound = 2,
        badPath = 3,
        tooManyOpenFiles = 4,
        accessDenied = 5,
        invalidFile = 6,
        removeCurrentDir = 7,
        directoryFull = 8,
        badSeek = 9,
        hardIO = 10,
        sharingViolation = 11,
        lockViolation = 12,
        diskFull = 13,
        endOfFile = 14,
    };

    explicit CFileException(int cause = none, LONG lOsError = -1, LPCSTR lpszArchiveName = nullptr);
    virtual ~CFileException();
    virtual BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext = nullptr);

    // The cause for a GetLastError number (genericException for any other).
    static int OsErrorToException(LONG lOsError);
    [[noreturn]] static void ThrowOsError(LONG lOsError, LPCSTR lpszFileName = nullptr);

    int m_cause;
    LONG m_lOsError;       // the platform's error number, -1 when none
    CString m_strFileName;
};

[[noreturn]] TSAFX_API void AfxThrowFileException(int cause, LONG lOsError = -1, LPCSTR lpszFileName = nullptr);

// A guarded section of the calling thread. Building the link enters it in
// the thread's chain of sections; the section is left at AfxTryCleanup or
// when the link is destroyed, whichever comes first. A caught exception
// stored in m_pException is deleted (Delete()) when the section is left.
struct TSAFX_API AFX_EXCEPTION_LINK {
    AFX_EXCEPTION_LINK();
    ~AFX_EXCEPTION_LINK();

    AFX_EXCEPTION_LINK *m_pLinkPrev;
    CException *m_pException;

    AFX_EXCEPTION_LINK(const AFX_EXCEPTION_LINK &) = delete;
    AFX_EXCEPTION_LINK &operator=(const AFX_EXCEPTION_LINK &) = delete;
};

// Leaves the calling thread's innermost guarded section: deletes its
// caught exception and takes the link out of the chain. Does nothing on a
// thread that is in no section.
TSAFX_API void AfxTryCleanup();

// The framework's exception blocks. A caught exception is deleted when its
// block ends; THROW_LAST passes it on undeleted.
#define TRY                                                                                            \
    {                                                                                                  \
        AFX_EXCEPTION_LINK _afxExceptionLink;                                                          \
        try {
#define CATCH(class_name, e)                                                                           \
    }                                                                                                  \
    catch (class_name * e)                                                                             \
    {                                                                                                  \
        _afxExceptionLink.m_pException = e;
#define AND_CATCH(class_name, e) CATCH(class_name, e)
#define END_CATCH                                                                                      \
    }                                                                                                  \
    }
#define CATCH_ALL(e) CATCH(CException, e)
#define AND_CATCH_ALL(e) CATCH(CException, e)
#define END_CATCH_ALL END_CATCH
#define THROW(e) throw e
#define THROW_LAST()                                                                                   \
    do {                                                                                               \
        _afxExceptionLink.m_pException = nullptr;                                                      \
        throw;                                                                                         \
    } while (0)

// ---------------------------------------------------------------------------
// CFile: an unbuffered file on a platform file handle.

class TSAFX_API CFile : public CObject {
    DECLARE_DYNAMIC(CFile)
public:
    enum OpenFlags {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,     // taken as shareExclusive
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,      // create, or empty an existing file
        modeNoTruncate = 0x2000,  // with modeCreate: keep an existing file's content
        typeText = 0x4000,        // ignored by CFile
        typeBinary = 0x8000,      // ignored by CFile
    };
    enum SeekPosition { begin = 0x0, current = 0x1, end = 0x2 };
    enum { hFileNull = -1 };

    CFile();                            // no file open
    explicit CFile(int hFile);          // adopts an open handle (not closed on delete)
    // Opens the file; throws CFileException * on failure.
    CFile(LPCSTR lpszFileName, UINT nOpenFlags);
    // Closes the file when this object opened it; errors are swallowed.
    virtual ~CFile();

    // Opens the file with the access and share mode of the flags. On failure
    // gives FALSE and, when pError is given, fills in the cause, the
    // platform's error number and the name; nothing is thrown. A second
    // writer against an open that denies writing fails with sharingViolation.
    // modeCreate empties an existing file only once the share check passed.
    virtual BOOL Open(LPCSTR lpszFileName, UINT nOpenFlags, CFileException *pError = nullptr);
    // Reads at most nCount bytes; gives how many were read (0 at the end).
    virtual UINT Read(void *lpBuf, UINT nCount);
    // Writes all nCount bytes (0 does nothing); throws CFileException *.
    virtual void Write(const void *lpBuf, UINT nCount);
    virtual LONG Seek(LONG lOff, UINT nFrom);
    virtual DWORD GetPosition() const;
    virtual DWORD GetLength() const;
    // Hands written data to the system; nothing when no file is open.
    virtual void Flush();
    // Closes the file; throws CFileException * when the platform refuses.
    // m_hFile is hFileNull afterwards either way.
    virtual void Close();
    // Closes the file and swallows any error.
    virtual void Abort();

    void SeekToBegin();
    DWORD SeekToEnd();
    CString GetFilePath() const;
    CString GetFileName() const;

    // The handle as the framework holds it: 32 bits, hFileNull when closed.
    // Handles are 32-bit values on 64-bit Windows too; HandleOf widens one.
    UINT m_hFile;
    BOOL m_bCloseOnDelete;
    CString m_strFileName;

    static HANDLE HandleOf(UINT hFile) { return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(static_cast<LONG>(hFile))); }
};

// ---------------------------------------------------------------------------
// CDumpContext: diagnostic text output to a CFile, or to standard error
// when it has none. Every operator ends in OutputString, which a derived
// stream replaces to send the text its own way.

class TSAFX_API CDumpContext {
public:
    explicit CDumpContext(CFile *pFile = nullptr);
    virtual ~CDumpContext();

    int GetDepth() const;
    void SetDepth(int nNewDepth);

    CDumpContext &operator<<(LPCSTR lpsz);     // null gives "(NULL)"
    CDumpContext &operator<<(const CString &s);
    CDumpContext &operator<<(const void *lp);  // "$" and the address in hexadecimal
    CDumpContext &operator<<(const CObject *pOb);
    CDumpContext &operator<<(const CObject &ob);
    CDumpContext &operator<<(BYTE by);
    CDumpContext &operator<<(WORD w);
    CDumpContext &operator<<(UINT u);
    CDumpContext &operator<<(int n);
    CDumpContext &operator<<(long l);
    CDumpContext &operator<<(unsigned long dw);
    CDumpContext &operator<<(double d);
    void HexDump(LPCSTR lpszLine, BYTE *pby, int nBytes, int nWidth);
    void Flush();

protected:
    // Writes the text to the file (CFile::Write, which throws on failure)
    // or to standard error.
    virtual void OutputString(LPCSTR lpsz);

    int m_nDepth;
public:
    CFile *m_pFile;

private:
    CDumpContext(const CDumpContext &) = delete;
    CDumpContext &operator=(const CDumpContext &) = delete;
};

// A modal box with the text. On POSIX the text goes to standard error and
// the call gives IDOK.
TSAFX_API int AfxMessageBox(LPCSTR lpszText, UINT nType = 0, UINT nIDHelp = 0);
