// CString: shared text with copy on write.
#include <afx.h>

#include <mbstring.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// The block behind m_pchData: a header, then nAllocLength + 1 bytes.
struct CStringData {
    LONG nRefs;        // -1 for the shared empty block, which is never freed
    int nDataLength;
    int nAllocLength;
    char *data() { return reinterpret_cast<char *>(this + 1); }
};

namespace {

struct EmptyBlock {
    CStringData header;
    char text[sizeof(void *)];
};
EmptyBlock emptyBlock = {{-1, 0, 0}, {0}};

LPSTR EmptyText() { return emptyBlock.header.data(); }

// The count of a block that other threads' copies may change at any time.
LONG Refs(const CStringData *d) { return __atomic_load_n(&d->nRefs, __ATOMIC_ACQUIRE); }

int SafeLength(LPCSTR psz) { return psz ? static_cast<int>(strlen(psz)) : 0; }

} // namespace

CStringData *CString::GetData() const { return reinterpret_cast<CStringData *>(m_pchData) - 1; }

void CString::Init() { m_pchData = EmptyText(); }

void CString::AllocBuffer(int nLen)
{
    if (nLen <= 0) {
        Init();
        return;
    }
    void *block = malloc(sizeof(CStringData) + static_cast<size_t>(nLen) + 1);
    if (!block)
        AfxThrowMemoryException();
    CStringData *d = static_cast<CStringData *>(block);
    d->nRefs = 1;
    d->nDataLength = nLen;
    d->nAllocLength = nLen;
    d->data()[nLen] = 0;
    m_pchData = d->data();
}

void CString::Release()
{
    CStringData *d = GetData();
    if (d != &emptyBlock.header && Refs(d) >= 0 && InterlockedDecrement(&d->nRefs) <= 0)
        free(static_cast<void *>(d));
    Init();
}

void CString::AllocBeforeWrite(int nLen)
{
    CStringData *d = GetData();
    if (Refs(d) > 1 || nLen > d->nAllocLength || Refs(d) < 0) {
        CString keep; // the old block stays alive until the new one is filled
        keep.m_pchData = m_pchData;
        Init();
        try {
            AllocBuffer(nLen);
        } catch (...) {
            m_pchData = keep.m_pchData;
            keep.Init();
            throw;
        }
    }
}

void CString::AssignCopy(int nLen, LPCSTR pch)
{
    if (nLen <= 0) {
        Release();
        return;
    }
    CStringData *d = GetData();
    if (Refs(d) >= 0 && pch >= m_pchData && pch <= m_pchData + d->nAllocLength) {
        CString part(pch, nLen); // a piece of this string's own block
        *this = part;
        return;
    }
    AllocBeforeWrite(nLen);
    memcpy(m_pchData, pch, static_cast<size_t>(nLen));
    GetData()->nDataLength = nLen;
    m_pchData[nLen] = 0;
}

void CString::CopyBeforeWrite()
{
    CStringData *d = GetData();
    if (Refs(d) > 1) {
        CString old;
        old.m_pchData = m_pchData; // takes over this string's reference
        Init();
        AllocBuffer(d->nDataLength);
        memcpy(m_pchData, d->data(), static_cast<size_t>(d->nDataLength) + 1);
    }
}

CString::CString() { Init(); }

CString::CString(const CString &src)
{
    CStringData *d = src.GetData();
    if (Refs(d) >= 0) {
        InterlockedIncrement(&d->nRefs);
        m_pchData = src.m_pchData;
    } else {
        Init();
    }
}

CString::CString(LPCSTR psz)
{
    Init();
    int n = SafeLength(psz);
    if (n) {
        AllocBuffer(n);
        memcpy(m_pchData, psz, static_cast<size_t>(n));
    }
}

CString::CString(LPCSTR pch, int nLength)
{
    Init();
    if (pch && nLength > 0) {
        AllocBuffer(nLength);
        memcpy(m_pchData, pch, static_cast<size_t>(nLength));
    }
}

CString::CString(const unsigned char *psz) : CString(reinterpret_cast<LPCSTR>(psz)) {}

CString::CString(char ch, int nRepeat)
{
    Init();
    if (nRepeat > 0) {
        AllocBuffer(nRepeat);
        memset(m_pchData, ch, static_cast<size_t>(nRepeat));
    }
}

CString::~CString() { Release(); }

const CString &CString::operator=(const CString &src)
{
    if (m_pchData != src.m_pchData) {
        CStringData *d = src.GetData();
        if (Refs(d) < 0) {
            AssignCopy(d->nDataLength, src.m_pchData);
        } else {
            InterlockedIncrement(&d->nRefs);
            Release();
            m_pchData = src.m_pchData;
        }
    }
    return *this;
}

const CString &CString::operator=(LPCSTR psz)
{
    AssignCopy(SafeLength(psz), psz);
    return *this;
}

const CString &CString::operator=(const unsigned char *psz) { return *this = reinterpret_cast<LPCSTR>(psz); }

const CString &CString::operator=(char ch)
{
    AssignCopy(1, &ch);
    return *this;
}

CString CString::Concat(int n1, LPCSTR p1, int n2, LPCSTR p2)
{
    CString r;
    int n = n1 + n2;
    if (n > 0) {
        r.AllocBuffer(n);
        if (n1)
            memcpy(r.m_pchData, p1, static_cast<size_t>(n1));
        if (n2)
            memcpy(r.m_pchData + n1, p2, static_cast<size_t>(n2));
    }
    return r;
}

void CString::ConcatInPlace(int nLen, LPCSTR pch)
{
    if (nLen <= 0)
        return;
    CStringData *d = GetData();
    if (Refs(d) > 1 || Refs(d) < 0 || d->nDataLength + nLen > d->nAllocLength) {
        // Grow by half again, so that repeated appends stay linear.
        int have = d->nDataLength;
        int want = have + nLen;
        int alloc = want + want / 2;
        CString grown;
        grown.AllocBuffer(alloc);
        memcpy(grown.m_pchData, m_pchData, static_cast<size_t>(have));
        memmove(grown.m_pchData + have, pch, static_cast<size_t>(nLen)); // pch may be inside this string
        grown.GetData()->nDataLength = want;
        grown.m_pchData[want] = 0;
        *this = grown;
        return;
    }
    memmove(m_pchData + d->nDataLength, pch, static_cast<size_t>(nLen));
    d->nDataLength += nLen;
    m_pchData[d->nDataLength] = 0;
}

const CString &CString::operator+=(const CString &s)
{
    CString keep(s); // s may be this string
    ConcatInPlace(keep.GetLength(), keep.m_pchData);
    return *this;
}

const CString &CString::operator+=(LPCSTR psz)
{
    ConcatInPlace(SafeLength(psz), psz);
    return *this;
}

const CString &CString::operator+=(char ch)
{
    ConcatInPlace(1, &ch);
    return *this;
}

CString operator+(const CString &a, const CString &b)
{
    return CString::Concat(a.GetLength(), a.m_pchData, b.GetLength(), b.m_pchData);
}
CString operator+(const CString &a, LPCSTR b) { return CString::Concat(a.GetLength(), a.m_pchData, SafeLength(b), b); }
CString operator+(LPCSTR a, const CString &b) { return CString::Concat(SafeLength(a), a, b.GetLength(), b.m_pchData); }
CString operator+(const CString &a, char b) { return CString::Concat(a.GetLength(), a.m_pchData, 1, &b); }
CString operator+(char a, const CString &b) { return CString::Concat(1, &a, b.GetLength(), b.m_pchData); }

int CString::GetLength() const { return GetData()->nDataLength; }
BOOL CString::IsEmpty() const { return GetData()->nDataLength == 0; }
void CString::Empty() { Release(); }

char CString::GetAt(int nIndex) const
{
    return (nIndex >= 0 && nIndex < GetLength()) ? m_pchData[nIndex] : 0;
}

char CString::operator[](int nIndex) const { return GetAt(nIndex); }

void CString::SetAt(int nIndex, char ch)
{
    if (nIndex < 0 || nIndex >= GetLength())
        return;
    CopyBeforeWrite();
    m_pchData[nIndex] = ch;
}

CString::operator LPCSTR() const { return m_pchData; }

int CString::Compare(LPCSTR psz) const { return strcmp(m_pchData, psz ? psz : ""); }

int CString::CompareNoCase(LPCSTR psz) const
{
    const unsigned char *a = reinterpret_cast<const unsigned char *>(m_pchData);
    const unsigned char *b = reinterpret_cast<const unsigned char *>(psz ? psz : "");
    for (;; ++a, ++b) {
        int ca = (*a >= 'A' && *a <= 'Z') ? *a + 32 : *a;
        int cb = (*b >= 'A' && *b <= 'Z') ? *b + 32 : *b;
        if (ca != cb || !ca)
            return ca - cb;
    }
}

CString CString::Mid(int nFirst) const { return Mid(nFirst, GetLength() - nFirst); }

CString CString::Mid(int nFirst, int nCount) const
{
    int len = GetLength();
    if (nFirst < 0)
        nFirst = 0;
    if (nFirst > len)
        nFirst = len;
    if (nCount < 0)
        nCount = 0;
    if (nCount > len - nFirst)
        nCount = len - nFirst;
    if (nFirst == 0 && nCount == len)
        return *this;
    return CString(m_pchData + nFirst, nCount);
}

CString CString::Left(int nCount) const { return Mid(0, nCount); }

CString CString::Right(int nCount) const
{
    int len = GetLength();
    if (nCount < 0)
        nCount = 0;
    if (nCount > len)
        nCount = len;
    return Mid(len - nCount, nCount);
}

void CString::MakeUpper()
{
    CopyBeforeWrite();
    unsigned char *p = reinterpret_cast<unsigned char *>(m_pchData);
    while (*p) {
        if (*p >= 'a' && *p <= 'z')
            *p = static_cast<unsigned char>(*p - 32);
        p = _mbsinc(p);
    }
}

void CString::MakeLower()
{
    CopyBeforeWrite();
    unsigned char *p = reinterpret_cast<unsigned char *>(m_pchData);
    while (*p) {
        if (*p >= 'A' && *p <= 'Z')
            *p = static_cast<unsigned char>(*p + 32);
        p = _mbsinc(p);
    }
}

void CString::MakeReverse()
{
    CopyBeforeWrite();
    for (int i = 0, j = GetLength() - 1; i < j; ++i, --j) {
        char t = m_pchData[i];
        m_pchData[i] = m_pchData[j];
        m_pchData[j] = t;
    }
}

void CString::TrimLeft()
{
    int i = 0, len = GetLength();
    while (i < len && (m_pchData[i] == ' ' || (m_pchData[i] >= '\t' && m_pchData[i] <= '\r')))
        ++i;
    if (i)
        *this = Mid(i);
}

void CString::TrimRight()
{
    int len = GetLength();
    while (len > 0 && (m_pchData[len - 1] == ' ' || (m_pchData[len - 1] >= '\t' && m_pchData[len - 1] <= '\r')))
        --len;
    if (len != GetLength())
        *this = Left(len);
}

int CString::Find(char ch) const
{
    const unsigned char *p = _mbschr(reinterpret_cast<const unsigned char *>(m_pchData), static_cast<unsigned char>(ch));
    return (p && ch) ? static_cast<int>(reinterpret_cast<LPCSTR>(p) - m_pchData) : -1;
}

int CString::Find(LPCSTR pszSub) const
{
    if (!pszSub)
        return -1;
    const char *p = strstr(m_pchData, pszSub);
    return p ? static_cast<int>(p - m_pchData) : -1;
}

int CString::ReverseFind(char ch) const
{
    // Walk by characters, so that a trail byte is never taken for ch.
    const unsigned char *p = reinterpret_cast<const unsigned char *>(m_pchData);
    const unsigned char *last = nullptr;
    while (*p) {
        if (*p == static_cast<unsigned char>(ch))
            last = p;
        p = _mbsinc(p);
    }
    return last ? static_cast<int>(reinterpret_cast<LPCSTR>(last) - m_pchData) : -1;
}

void CString::Format(LPCSTR pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    FormatV(pszFormat, args);
    va_end(args);
}

void CString::FormatV(LPCSTR pszFormat, va_list args)
{
    if (!pszFormat) {
        Empty();
        return;
    }
    char local[256];
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(local, sizeof local, pszFormat, copy);
    va_end(copy);
    if (n >= 0 && n < static_cast<int>(sizeof local)) {
        AssignCopy(n, local);
        return;
    }
    // Either the exact size is known, or the runtime only tells of a cut:
    // then grow until the text fits.
    int size = n >= 0 ? n + 1 : 2 * static_cast<int>(sizeof local);
    for (;;) {
        CString out;
        out.AllocBuffer(size);
        va_copy(copy, args);
        int m = vsnprintf(out.m_pchData, static_cast<size_t>(size), pszFormat, copy);
        va_end(copy);
        if (m >= 0 && m < size) {
            out.GetData()->nDataLength = m;
            out.m_pchData[m] = 0;
            *this = out;
            return;
        }
        size = m >= 0 ? m + 1 : size * 2;
    }
}

LPSTR CString::GetBuffer(int nMinBufLength)
{
    if (nMinBufLength < 0)
        nMinBufLength = 0;
    CStringData *d = GetData();
    if (Refs(d) > 1 || Refs(d) < 0 || nMinBufLength > d->nAllocLength) {
        int have = d->nDataLength;
        int alloc = nMinBufLength > have ? nMinBufLength : have;
        if (alloc == 0)
            alloc = 1; // the caller gets a block of its own even for an empty text
        CString fresh;
        fresh.AllocBuffer(alloc);
        memcpy(fresh.m_pchData, m_pchData, static_cast<size_t>(have) + 1);
        fresh.GetData()->nDataLength = have;
        Release();
        m_pchData = fresh.m_pchData;
        fresh.Init();
    }
    return m_pchData;
}

LPSTR CString::GetBufferSetLength(int nNewLength)
{
    if (nNewLength < 0)
        nNewLength = 0;
    GetBuffer(nNewLength);
    GetData()->nDataLength = nNewLength;
    m_pchData[nNewLength] = 0;
    return m_pchData;
}

void CString::ReleaseBuffer(int nNewLength)
{
    CStringData *d = GetData();
    if (Refs(d) < 0)
        return; // the shared empty block: nothing was handed out
    if (nNewLength < 0) {
        // Measure up to the first zero byte within the block.
        const void *z = memchr(m_pchData, 0, static_cast<size_t>(d->nAllocLength) + 1);
        nNewLength = static_cast<int>(static_cast<const char *>(z) - m_pchData);
    }
    if (nNewLength > d->nAllocLength)
        nNewLength = d->nAllocLength;
    d->nDataLength = nNewLength;
    m_pchData[nNewLength] = 0;
}

bool operator==(const CString &a, const CString &b) { return a.Compare(b) == 0; }
bool operator==(const CString &a, LPCSTR b) { return a.Compare(b) == 0; }
bool operator==(LPCSTR a, const CString &b) { return b.Compare(a) == 0; }
bool operator!=(const CString &a, const CString &b) { return a.Compare(b) != 0; }
bool operator!=(const CString &a, LPCSTR b) { return a.Compare(b) != 0; }
bool operator!=(LPCSTR a, const CString &b) { return b.Compare(a) != 0; }
bool operator<(const CString &a, const CString &b) { return a.Compare(b) < 0; }
bool operator<(const CString &a, LPCSTR b) { return a.Compare(b) < 0; }
bool operator>(const CString &a, const CString &b) { return a.Compare(b) > 0; }
bool operator>(const CString &a, LPCSTR b) { return a.Compare(b) > 0; }
bool operator<=(const CString &a, const CString &b) { return a.Compare(b) <= 0; }
bool operator>=(const CString &a, const CString &b) { return a.Compare(b) >= 0; }
