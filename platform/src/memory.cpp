// GlobalAlloc and the process heap. Every block carries a small header with
// its size and a tag, so sizes can be reported, a block can be told from a
// bogus pointer in most cases, and a second free is refused.
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr uint32_t kLiveTag = 0x54534D42;  // a block in use
constexpr uint32_t kFreedTag = 0x46524545; // a block given back

struct alignas(16) BlockHeader {
    size_t size;
    uint32_t tag;
    uint32_t flags;
};
static_assert(sizeof(BlockHeader) == 16, "blocks stay 16-byte aligned");

BlockHeader *headerOf(const void *p)
{
    return const_cast<BlockHeader *>(static_cast<const BlockHeader *>(p) - 1);
}

void *allocBlock(size_t size, bool zero, uint32_t flags)
{
    if (size > SIZE_MAX - sizeof(BlockHeader))
        return nullptr;
    BlockHeader *h = static_cast<BlockHeader *>(zero ? calloc(1, sizeof(BlockHeader) + size)
                                                     : malloc(sizeof(BlockHeader) + size));
    if (!h)
        return nullptr;
    h->size = size;
    h->tag = kLiveTag;
    h->flags = flags;
    return h + 1;
}

bool liveBlock(const void *p)
{
    return p && (reinterpret_cast<uintptr_t>(p) % alignof(BlockHeader)) == 0 && headerOf(p)->tag == kLiveTag;
}

void freeBlock(void *p)
{
    BlockHeader *h = headerOf(p);
    h->tag = kFreedTag;
    free(h);
}

void *reallocBlock(void *p, size_t size, bool zeroTail)
{
    BlockHeader *h = headerOf(p);
    size_t old = h->size;
    if (size > SIZE_MAX - sizeof(BlockHeader))
        return nullptr;
    BlockHeader *n = static_cast<BlockHeader *>(realloc(h, sizeof(BlockHeader) + size));
    if (!n)
        return nullptr;
    n->size = size;
    if (zeroTail && size > old)
        memset(reinterpret_cast<char *>(n + 1) + old, 0, size - old);
    return n + 1;
}

// The one heap of the process; its handle is the address of this object.
char processHeap;

bool isProcessHeap(HANDLE h) { return h == static_cast<HANDLE>(&processHeap); }

} // namespace

extern "C" {

HGLOBAL WINAPI GlobalAlloc(UINT uFlags, SIZE_T dwBytes)
{
    if (uFlags & ~(GMEM_MOVEABLE | GMEM_ZEROINIT | GMEM_MODIFY | 0x0F00)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    void *p = allocBlock(dwBytes, uFlags & GMEM_ZEROINIT, uFlags);
    if (!p)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return p;
}

HGLOBAL WINAPI GlobalFree(HGLOBAL hMem)
{
    if (!hMem)
        return nullptr;
    if (!liveBlock(hMem)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return hMem;
    }
    freeBlock(hMem);
    return nullptr;
}

HGLOBAL WINAPI GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags)
{
    if (!liveBlock(hMem)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (uFlags & GMEM_MODIFY)
        return hMem;
    void *p = reallocBlock(hMem, dwBytes, uFlags & GMEM_ZEROINIT);
    if (!p)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return p;
}

SIZE_T WINAPI GlobalSize(HGLOBAL hMem)
{
    if (!liveBlock(hMem)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return headerOf(hMem)->size;
}

LPVOID WINAPI GlobalLock(HGLOBAL hMem)
{
    if (!liveBlock(hMem)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return hMem;
}

BOOL WINAPI GlobalUnlock(HGLOBAL hMem)
{
    // A block that never moves has no lock count: always unlocked.
    SetLastError(liveBlock(hMem) ? ERROR_NOT_LOCKED : ERROR_INVALID_HANDLE);
    return FALSE;
}

HANDLE WINAPI GetProcessHeap(void) { return static_cast<HANDLE>(&processHeap); }

LPVOID WINAPI HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes)
{
    if (!isProcessHeap(hHeap)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    void *p = allocBlock(dwBytes, dwFlags & HEAP_ZERO_MEMORY, dwFlags);
    if (!p)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return p;
}

LPVOID WINAPI HeapReAlloc(HANDLE hHeap, DWORD dwFlags, LPVOID lpMem, SIZE_T dwBytes)
{
    if (!isProcessHeap(hHeap)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (!liveBlock(lpMem)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (dwFlags & HEAP_REALLOC_IN_PLACE_ONLY) {
        // Only a shrink is certain to stay in place.
        BlockHeader *h = headerOf(lpMem);
        if (dwBytes > h->size) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        h->size = dwBytes;
        return lpMem;
    }
    void *p = reallocBlock(lpMem, dwBytes, dwFlags & HEAP_ZERO_MEMORY);
    if (!p)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return p;
}

BOOL WINAPI HeapFree(HANDLE hHeap, DWORD, LPVOID lpMem)
{
    if (!isProcessHeap(hHeap)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!lpMem)
        return TRUE;
    if (!liveBlock(lpMem)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    freeBlock(lpMem);
    return TRUE;
}

SIZE_T WINAPI HeapSize(HANDLE hHeap, DWORD, LPCVOID lpMem)
{
    if (!isProcessHeap(hHeap) || !liveBlock(lpMem)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return static_cast<SIZE_T>(-1);
    }
    return headerOf(lpMem)->size;
}

} // extern "C"
