// Blocks of list nodes.
#include "plex.h"

#include <new>

CPlex *CPlex::Create(CPlex *&pHead, UINT nMax, UINT cbElement)
{
    size_t bytes = sizeof(CPlex) + static_cast<size_t>(nMax) * cbElement;
    BYTE *raw = new (std::nothrow) BYTE[bytes];
    if (!raw)
        AfxThrowMemoryException();
    CPlex *p = reinterpret_cast<CPlex *>(raw);
    p->pNext = pHead;
    pHead = p;
    return p;
}

void CPlex::FreeDataChain()
{
    CPlex *p = this;
    while (p) {
        CPlex *next = p->pNext;
        delete[] reinterpret_cast<BYTE *>(p);
        p = next;
    }
}
