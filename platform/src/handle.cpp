// The process-wide handle table, CloseHandle and DuplicateHandle.
#include "object.h"
#include "threadobj.h"

#include <deque>
#include <mutex>

namespace tsp {

namespace {

// Handle value: bits 2..21 hold the slot index + 1, bits 22..30 the slot's
// generation; bits 0..1 are zero as on Windows, bit 31 is clear so no
// handle looks like a predefined registry key or a pseudo handle.
constexpr unsigned kIndexBits = 20;
constexpr unsigned kGenBits = 9;
constexpr uint32_t kMaxSlots = (1u << kIndexBits) - 1;
// Slots lie in chunks that double in size, made as the handles come: the
// first holds kFirstChunk slots, chunk c >= 1 the slots from
// kFirstChunk << (c - 1) on, so a process with few handles keeps few
// slots in memory.
constexpr unsigned kFirstChunkBits = 6;
constexpr uint32_t kFirstChunk = 1u << kFirstChunkBits;
constexpr unsigned kChunkCount = kIndexBits - kFirstChunkBits + 1;

constexpr unsigned chunkOf(uint32_t index)
{
    unsigned width = 32u - static_cast<unsigned>(__builtin_clz(index | 1u));
    return width > kFirstChunkBits ? width - kFirstChunkBits : 0;
}
constexpr uint32_t chunkStart(unsigned chunk) { return chunk == 0 ? 0 : kFirstChunk << (chunk - 1); }
constexpr uint32_t chunkSize(unsigned chunk) { return chunk == 0 ? kFirstChunk : kFirstChunk << (chunk - 1); }
static_assert(chunkOf(kMaxSlots - 1) < kChunkCount, "every slot has a chunk");

constexpr uint64_t kPinMask = HandleSlot::kPinMask;
constexpr uint64_t kOpen = HandleSlot::kOpen;
constexpr unsigned kGenShift = HandleSlot::kGenShift;
constexpr uint64_t kGenMask = HandleSlot::kGenMask;
static_assert(kGenMask == (1ull << kGenBits) - 1, "generation bits");

uint32_t genOf(uint64_t state) { return static_cast<uint32_t>((state >> kGenShift) & kGenMask); }

} // namespace


namespace {

class HandleTable {
public:
    HANDLE insert(KernelObject *obj, DWORD access)
    {
        uint32_t index;
        {
            std::lock_guard<std::mutex> guard(lock_);
            if (!free_.empty()) {
                index = free_.front();
                free_.pop_front();
            } else if (next_ < kMaxSlots) {
                index = next_++;
                unsigned c = chunkOf(index);
                if (index == chunkStart(c)) {
                    HandleSlot *chunk = new HandleSlot[chunkSize(c)];
                    for (uint32_t i = 0; i < chunkSize(c); ++i)
                        chunk[i].index = index + i;
                    chunks_[c].store(chunk, std::memory_order_release);
                }
            } else {
                return nullptr;
            }
            ++open_;
        }
        HandleSlot &s = slot(index);
        s.object = obj;
        s.access = access;
        uint32_t gen = genOf(s.state.load(std::memory_order_relaxed));
        s.state.store((static_cast<uint64_t>(gen) << kGenShift) | kOpen, std::memory_order_release);
        return encode(index, gen);
    }

    // The open bit and generation of h's slot while h is open.
    static uint64_t openStateOf(HANDLE h)
    {
        uint32_t index = 0, gen = 0;
        decode(h, index, gen);
        return kOpen | (static_cast<uint64_t>(gen) << kGenShift);
    }

    void pinAgain(HandleSlot *s) { s->state.fetch_add(1, std::memory_order_acquire); }

    HandleSlot *pin(HANDLE h)
    {
        uint32_t index, gen;
        if (!decode(h, index, gen))
            return nullptr;
        HandleSlot *s = find(index);
        if (!s)
            return nullptr;
        uint64_t st = s->state.load(std::memory_order_acquire);
        for (;;) {
            if (!(st & kOpen) || genOf(st) != gen)
                return nullptr;
            if (s->state.compare_exchange_weak(st, st + 1, std::memory_order_acquire, std::memory_order_acquire))
                return s;
        }
    }

    void unpin(HandleSlot *s)
    {
        uint64_t st = s->state.fetch_sub(1, std::memory_order_acq_rel);
        if ((st & kPinMask) == 1 && !(st & kOpen))
            retire(s);
    }

    bool close(HANDLE h)
    {
        uint32_t index, gen;
        if (!decode(h, index, gen))
            return false;
        HandleSlot *s = find(index);
        if (!s)
            return false;
        uint64_t st = s->state.load(std::memory_order_acquire);
        for (;;) {
            if (!(st & kOpen) || genOf(st) != gen)
                return false;
            if (s->state.compare_exchange_weak(st, st & ~kOpen, std::memory_order_acq_rel,
                                               std::memory_order_acquire))
                break;
        }
        {
            std::lock_guard<std::mutex> guard(lock_);
            --open_;
        }
        if ((st & kPinMask) == 0)
            retire(s);
        return true;
    }

    DWORD openCount()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return open_;
    }

private:
    HandleSlot &slot(uint32_t index)
    {
        unsigned c = chunkOf(index);
        return chunks_[c].load(std::memory_order_acquire)[index - chunkStart(c)];
    }

    HandleSlot *find(uint32_t index)
    {
        unsigned c = chunkOf(index);
        HandleSlot *chunk = chunks_[c].load(std::memory_order_acquire);
        return chunk ? &chunk[index - chunkStart(c)] : nullptr;
    }

    // The last user of a closed slot frees it: the object loses the table's
    // reference and the slot moves to the next generation.
    void retire(HandleSlot *s)
    {
        KernelObject *obj = s->object;
        s->object = nullptr;
        uint64_t st = s->state.load(std::memory_order_relaxed);
        uint32_t gen = (genOf(st) + 1) & kGenMask;
        s->state.store(static_cast<uint64_t>(gen) << kGenShift, std::memory_order_release);
        uint32_t index = s->index;
        {
            std::lock_guard<std::mutex> guard(lock_);
            free_.push_back(index);
        }
        obj->release();
    }

    static HANDLE encode(uint32_t index, uint32_t gen)
    {
        uintptr_t v = (static_cast<uintptr_t>(gen) << (kIndexBits + 2)) | (static_cast<uintptr_t>(index + 1) << 2);
        return reinterpret_cast<HANDLE>(v);
    }

    static bool decode(HANDLE h, uint32_t &index, uint32_t &gen)
    {
        uintptr_t v = reinterpret_cast<uintptr_t>(h);
        if ((v & 3) || v > 0x7FFFFFFFu)
            return false;
        uint32_t i = static_cast<uint32_t>((v >> 2) & kMaxSlots);
        if (i == 0)
            return false;
        index = i - 1;
        gen = static_cast<uint32_t>(v >> (kIndexBits + 2)) & static_cast<uint32_t>(kGenMask);
        return true;
    }

    std::mutex lock_;
    std::deque<uint32_t> free_; // first in, first out: a closed value comes back as late as possible
    uint32_t next_ = 0;
    DWORD open_ = 0;
    std::atomic<HandleSlot *> chunks_[kChunkCount] = {};
};

// Never destroyed: handles may be used by static destructors of programs.
HandleTable &table()
{
    static HandleTable *t = new HandleTable;
    return *t;
}

} // namespace

__attribute__((tls_model("initial-exec"))) thread_local CachedHandle *tlsHandleCache = nullptr;

namespace {

// The cache's entries; their pins go when the thread ends.
struct HandleCacheOwner {
    CachedHandle entries[kCachedHandles];
    int next = 0;
    // Set at the thread's end: calls made after it (from later thread-exit
    // hooks) look up without caching.
    static thread_local bool gone;
    ~HandleCacheOwner()
    {
        tlsHandleCache = nullptr;
        gone = true;
        for (CachedHandle &e : entries)
            drop(e);
    }
    static void drop(CachedHandle &e)
    {
        if (e.slot)
            table().unpin(e.slot);
        e = CachedHandle();
    }
};

thread_local bool HandleCacheOwner::gone = false;

HandleCacheOwner &handleCacheOwner()
{
    static thread_local HandleCacheOwner owner;
    tlsHandleCache = owner.entries;
    return owner;
}

bool cacheable(ObjectKind kind) { return kind == ObjectKind::Event || kind == ObjectKind::Mutex; }

} // namespace

HANDLE insertHandle(KernelObject *obj, DWORD access)
{
    HANDLE h = table().insert(obj, access);
    if (!h) {
        obj->release();
        SetLastError(ERROR_TOO_MANY_OPEN_FILES); // the table is full
    }
    return h;
}

bool lookupHandle(HANDLE h, HandleRef &out)
{
    out.reset();
    if (h == kCurrentThreadPseudo || h == kCurrentProcessPseudo) {
        KernelObject *obj = h == kCurrentThreadPseudo ? static_cast<KernelObject *>(currentThreadObject())
                                                      : static_cast<KernelObject *>(processObject());
        obj->addRef();
        out.object_ = obj;
        out.owned_ = true;
        return true;
    }
    HandleSlot *s = table().pin(h);
    if (!s)
        return false;
    out.object_ = s->object;
    out.slot_ = s;
    return true;
}

// The miss path of lookupHandleCached: a plain lookup, and the object
// entered in the cache when it is of a kind that may stay pinned.
bool lookupAndCache(HANDLE h, HandleRef &out)
{
    if (HandleCacheOwner::gone)
        return lookupHandle(h, out);
    HandleCacheOwner &cache = handleCacheOwner();
    for (CachedHandle &e : cache.entries)
        if (e.handle == h)
            HandleCacheOwner::drop(e); // closed since it was cached
    if (!lookupHandle(h, out))
        return false;
    if (out.slot_ && cacheable(out.object_->kind())) {
        CachedHandle &e = cache.entries[cache.next];
        cache.next = (cache.next + 1) % kCachedHandles;
        HandleCacheOwner::drop(e);
        table().pinAgain(out.slot_);
        e.handle = h;
        e.slot = out.slot_;
        e.object = out.object_;
        e.openState = HandleTable::openStateOf(h);
    }
    return true;
}

HandleRef &HandleRef::operator=(HandleRef &&other) noexcept
{
    if (this != &other) {
        reset();
        object_ = other.object_;
        slot_ = other.slot_;
        owned_ = other.owned_;
        other.object_ = nullptr;
        other.slot_ = nullptr;
        other.owned_ = false;
    }
    return *this;
}

DWORD HandleRef::access() const { return slot_ ? slot_->access : 0x1FFFFF; }

void HandleRef::drop()
{
    if (slot_)
        table().unpin(slot_);
    else if (owned_ && object_)
        object_->release();
    slot_ = nullptr;
    owned_ = false;
}

bool closeTableHandle(HANDLE h) { return table().close(h); }

DWORD openHandleCount() { return table().openCount(); }

} // namespace tsp

using namespace tsp;

extern "C" {

BOOL WINAPI CloseHandle(HANDLE hObject)
{
    // Closing a pseudo handle does nothing and succeeds, as on Windows.
    if (hObject == kCurrentProcessPseudo || hObject == kCurrentThreadPseudo)
        return TRUE;
    if (!closeTableHandle(hObject)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

BOOL WINAPI DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle, HANDLE hTargetProcessHandle,
                            LPHANDLE lpTargetHandle, DWORD dwDesiredAccess, BOOL bInheritHandle,
                            DWORD dwOptions)
{
    // Only the own process can be a source or a target.
    HandleRef src, dst;
    if (!lookupHandle(hSourceProcessHandle, src) || src.get()->kind() != ObjectKind::Process ||
        !lookupHandle(hTargetProcessHandle, dst) || dst.get()->kind() != ObjectKind::Process) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    HandleRef ref;
    if (!lookupHandle(hSourceHandle, ref)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    DWORD access = (dwOptions & DUPLICATE_SAME_ACCESS) ? ref.access() : dwDesiredAccess;
    BOOL ok = TRUE;
    if (lpTargetHandle) {
        KernelObject *obj = ref.get();
        obj->addRef();
        HANDLE h = insertHandle(obj, access);
        if (!h)
            ok = FALSE;
        *lpTargetHandle = h;
    }
    ref.reset();
    // A source that another thread closed meanwhile is the caller's race,
    // reported by nobody on Windows either.
    if (dwOptions & DUPLICATE_CLOSE_SOURCE)
        CloseHandle(hSourceHandle);
    return ok;
}

BOOL WINAPI GetProcessHandleCount(HANDLE hProcess, PDWORD pdwHandleCount)
{
    HandleRef ref;
    if (!lookupHandle(hProcess, ref) || ref.get()->kind() != ObjectKind::Process) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!pdwHandleCount) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    *pdwHandleCount = openHandleCount();
    return TRUE;
}

} // extern "C"
