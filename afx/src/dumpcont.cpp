// CDumpContext: diagnostic text to a CFile, or to standard error.
#include <afx.h>

#include <stdio.h>
#include <string.h>

CDumpContext::CDumpContext(CFile *pFile) : m_nDepth(0), m_pFile(pFile) {}

CDumpContext::~CDumpContext() {}

int CDumpContext::GetDepth() const { return m_nDepth; }

void CDumpContext::SetDepth(int nNewDepth) { m_nDepth = nNewDepth; }

void CDumpContext::OutputString(LPCSTR lpsz)
{
    if (m_pFile)
        m_pFile->Write(lpsz, static_cast<UINT>(strlen(lpsz)));
    else
        fputs(lpsz, stderr);
}

CDumpContext &CDumpContext::operator<<(LPCSTR lpsz)
{
    OutputString(lpsz ? lpsz : "(NULL)");
    return *this;
}

CDumpContext &CDumpContext::operator<<(const CString &s) { return *this << static_cast<LPCSTR>(s); }

CDumpContext &CDumpContext::operator<<(const void *lp)
{
    char buf[40];
    snprintf(buf, sizeof buf, "$%llX", static_cast<unsigned long long>(reinterpret_cast<UINT_PTR>(lp)));
    return *this << buf;
}

CDumpContext &CDumpContext::operator<<(const CObject *pOb)
{
    if (!pOb)
        return *this << "NULL";
    pOb->Dump(*this);
    return *this;
}

CDumpContext &CDumpContext::operator<<(const CObject &ob) { return *this << &ob; }

namespace {
template <class T> void Put(CDumpContext &dc, const char *fmt, T v)
{
    char buf[40];
    snprintf(buf, sizeof buf, fmt, v);
    dc << buf;
}
} // namespace

CDumpContext &CDumpContext::operator<<(BYTE by) { Put(*this, "%u", static_cast<unsigned>(by)); return *this; }
CDumpContext &CDumpContext::operator<<(WORD w) { Put(*this, "%u", static_cast<unsigned>(w)); return *this; }
CDumpContext &CDumpContext::operator<<(UINT u) { Put(*this, "%u", u); return *this; }
CDumpContext &CDumpContext::operator<<(int n) { Put(*this, "%d", n); return *this; }
CDumpContext &CDumpContext::operator<<(long l) { Put(*this, "%ld", l); return *this; }
CDumpContext &CDumpContext::operator<<(unsigned long dw) { Put(*this, "%lu", dw); return *this; }
CDumpContext &CDumpContext::operator<<(double d) { Put(*this, "%g", d); return *this; }

void CDumpContext::HexDump(LPCSTR lpszLine, BYTE *pby, int nBytes, int nWidth)
{
    if (nWidth < 1)
        nWidth = 1;
    char buf[8];
    for (int i = 0; i < nBytes; ++i) {
        if (i % nWidth == 0) {
            if (i)
                *this << "\n";
            *this << lpszLine;
        }
        snprintf(buf, sizeof buf, " %02X", pby[i]);
        *this << buf;
    }
    if (nBytes)
        *this << "\n";
}

void CDumpContext::Flush()
{
    if (m_pFile)
        m_pFile->Flush();
    else
        fflush(stderr);
}
