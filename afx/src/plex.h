// Blocks of list nodes, chained for freeing all at once.
#pragma once

#include <afx.h>

struct CPlex {
    CPlex *pNext;

    void *data() { return this + 1; }

    // A new block of nMax elements of cbElement bytes, put at the front of
    // the chain. Throws CMemoryException * when no memory can be had.
    static CPlex *Create(CPlex *&pHead, UINT nMax, UINT cbElement);
    // Frees this block and every one behind it.
    void FreeDataChain();
};
