// Kernel objects and the process-wide handle table.
//
// A handle names a slot of the table; the slot holds one reference to its
// object. Lookups pin the slot without taking a lock, so a handle closed
// while another thread uses it (even in a blocking wait) keeps its object
// alive until that use ends. Handle values carry a generation, so a closed
// handle is refused even after its slot has been used again, up to 512
// reuses of the same slot.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace tsp {

enum class ObjectKind : uint8_t {
    Event,
    Mutex,
    Thread,
    Process,
    File,
    FindFile,
    RegistryKey,
    ServiceManager,
    Service,
    Other,
};

class Waitable;

class KernelObject {
public:
    explicit KernelObject(ObjectKind kind) : kind_(kind) {}
    virtual ~KernelObject() = default;
    KernelObject(const KernelObject &) = delete;
    KernelObject &operator=(const KernelObject &) = delete;

    ObjectKind kind() const { return kind_; }
    virtual Waitable *asWaitable() { return nullptr; }

    void addRef() { refs_.fetch_add(1, std::memory_order_relaxed); }
    // Takes a reference unless the object is already being destroyed.
    bool tryAddRef()
    {
        long n = refs_.load(std::memory_order_relaxed);
        while (n > 0)
            if (refs_.compare_exchange_weak(n, n + 1, std::memory_order_acquire, std::memory_order_relaxed))
                return true;
        return false;
    }
    void release()
    {
        if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

private:
    const ObjectKind kind_;
    std::atomic<long> refs_{1};
};

// One slot of the handle table. State word: bits 0..31 pins, bit 32 open,
// bits 33..41 generation.
struct HandleSlot {
    static constexpr uint64_t kPinMask = 0xFFFFFFFFull;
    static constexpr uint64_t kOpen = 1ull << 32;
    static constexpr unsigned kGenShift = 33;
    static constexpr uint64_t kGenMask = 0x1FF;

    std::atomic<uint64_t> state{0};
    KernelObject *object = nullptr;
    DWORD access = 0;
    uint32_t index = 0;
};

// An entry of the per-thread cache of lookupHandleCached; it holds a pin.
struct CachedHandle {
    static inline const HANDLE kEmpty = reinterpret_cast<HANDLE>(1); // never a handle
    HANDLE handle = kEmpty;
    HandleSlot *slot = nullptr;
    KernelObject *object = nullptr;
    uint64_t openState = 0; // the slot's open bit and generation while h is open
};
constexpr int kCachedHandles = 4;
extern __attribute__((tls_model("initial-exec"))) thread_local CachedHandle *tlsHandleCache;

// A looked-up handle: keeps the object alive while it is held.
class HandleRef {
public:
    HandleRef() = default;
    ~HandleRef() { reset(); }
    HandleRef(HandleRef &&other) noexcept : object_(other.object_), slot_(other.slot_), owned_(other.owned_)
    {
        other.object_ = nullptr;
        other.slot_ = nullptr;
        other.owned_ = false;
    }
    HandleRef &operator=(HandleRef &&other) noexcept;
    HandleRef(const HandleRef &) = delete;
    HandleRef &operator=(const HandleRef &) = delete;

    KernelObject *get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    DWORD access() const;
    void reset()
    {
        if (slot_ || owned_)
            drop();
        object_ = nullptr;
    }

private:
    void drop();
    friend bool lookupHandle(HANDLE, HandleRef &);
    friend bool lookupHandleCached(HANDLE, HandleRef &);
    friend bool lookupAndCache(HANDLE, HandleRef &);
    KernelObject *object_ = nullptr;
    HandleSlot *slot_ = nullptr; // pinned slot, or null
    bool owned_ = false;         // holds a reference of its own (pseudo handles)
};

// Enters obj in the table; on success the table owns the caller's reference.
// On failure the reference is released, the last error set, and null given.
HANDLE insertHandle(KernelObject *obj, DWORD access);

// Finds a handle (the pseudo handles of the current process and thread
// included). Gives false for a bogus or closed handle; sets no error.
bool lookupHandle(HANDLE h, HandleRef &out);

// As lookupHandle, for a call that looks up no other handle while it uses
// this one: events and mutexes found here stay pinned by a small per-thread
// cache, so the next call on the same handle needs no atomic update. Only
// objects whose end has no effect outside the process are cached (a file's
// end, for one, must release its share lock at once).
bool lookupAndCache(HANDLE h, HandleRef &out);
inline bool lookupHandleCached(HANDLE h, HandleRef &out)
{
    out.reset();
    if (CachedHandle *cache = tlsHandleCache)
        for (int i = 0; i < kCachedHandles; ++i)
            if (cache[i].handle == h &&
                (cache[i].slot->state.load(std::memory_order_acquire) & ~HandleSlot::kPinMask) == cache[i].openState) {
                out.object_ = cache[i].object; // borrowed: the cache's pin keeps it alive
                return true;
            }
    return lookupAndCache(h, out);
}

// Looks up h and checks its kind; sets ERROR_INVALID_HANDLE when it fails.
template <class T>
T *lookupAs(HANDLE h, ObjectKind kind, HandleRef &ref)
{
    if (!lookupHandle(h, ref) || ref.get()->kind() != kind) {
        ref.reset();
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return static_cast<T *>(ref.get());
}

// lookupAs through the per-thread cache (see lookupHandleCached).
template <class T>
T *lookupCachedAs(HANDLE h, ObjectKind kind, HandleRef &ref)
{
    if (!lookupHandleCached(h, ref) || ref.get()->kind() != kind) {
        ref.reset();
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return static_cast<T *>(ref.get());
}

// Closes a table handle (not a pseudo handle). False when h is not open.
bool closeTableHandle(HANDLE h);

// Number of open handles of the process.
DWORD openHandleCount();

inline const HANDLE kCurrentProcessPseudo = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
inline const HANDLE kCurrentThreadPseudo = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-2));

} // namespace tsp
