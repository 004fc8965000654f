// Futex waits and wakes on a 32-bit word, with absolute deadlines on
// CLOCK_MONOTONIC. Every blocking primitive of the layer sleeps here.
#pragma once

#include "check.h"
#include "monotonic.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace tsp {

// A point on CLOCK_MONOTONIC, or none for no limit.
struct Deadline {
    bool infinite = true;
    timespec at{};

    static Deadline after(uint32_t milliseconds)
    {
        Deadline d;
        if (milliseconds == 0xFFFFFFFFu)
            return d;
        d.infinite = false;
        d.at = monotonicNow();
        d.at.tv_sec += milliseconds / 1000;
        d.at.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
        if (d.at.tv_nsec >= 1000000000L) {
            d.at.tv_sec += 1;
            d.at.tv_nsec -= 1000000000L;
        }
        return d;
    }

    bool passed() const
    {
        if (infinite)
            return false;
        timespec now = monotonicNow();
        return now.tv_sec > at.tv_sec || (now.tv_sec == at.tv_sec && now.tv_nsec >= at.tv_nsec);
    }
};

// Sleeps while *word == expected, until woken, interrupted or the deadline.
// Gives false only when the deadline has passed. Every caller looks at its
// word again after a true result, so a spurious wake-up costs one more turn.
inline bool futexWait(std::atomic<uint32_t> *word, uint32_t expected, const Deadline &deadline)
{
    static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "futex word");
    int saved = errno; // a Win32 call leaves the C runtime's errno alone
    long r = syscall(SYS_futex, reinterpret_cast<uint32_t *>(word), FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG,
                     expected, deadline.infinite ? nullptr : &deadline.at, nullptr, FUTEX_BITSET_MATCH_ANY);
    bool timedOut = false;
    if (r == -1) {
        // Timed out, interrupted, or the word had moved on: the only ways a
        // wait on a valid word with a valid deadline can end in an error.
        timedOut = errno == ETIMEDOUT;
        if (!TS_CHECK(timedOut || errno == EINTR || errno == EAGAIN, "futex(FUTEX_WAIT_BITSET)")) {
            // In a release build the waits carry on as a slow poll rather
            // than a spin of the whole processor.
            timespec pause = {0, 1000000};
            nanosleep(&pause, nullptr);
        }
    }
    errno = saved;
    return !timedOut;
}

inline void futexWake(std::atomic<uint32_t> *word, int count)
{
    int saved = errno;
    TS_CHECK(syscall(SYS_futex, reinterpret_cast<uint32_t *>(word), FUTEX_WAKE | FUTEX_PRIVATE_FLAG, count, nullptr,
                     nullptr, 0) != -1,
             "futex(FUTEX_WAKE)");
    errno = saved;
}

// A lock word: 0 free, 1 held, 2 held with sleepers. Locking is one
// compare-and-swap and unlocking one exchange when nobody sleeps.
inline void futexLock(std::atomic<uint32_t> *word)
{
    uint32_t c = 0;
    if (word->compare_exchange_strong(c, 1, std::memory_order_acquire))
        return;
    if (c != 2)
        c = word->exchange(2, std::memory_order_acquire);
    while (c != 0) {
        futexWait(word, 2, Deadline());
        c = word->exchange(2, std::memory_order_acquire);
    }
}

inline bool futexTryLock(std::atomic<uint32_t> *word)
{
    uint32_t c = 0;
    return word->compare_exchange_strong(c, 1, std::memory_order_acquire);
}

inline void futexUnlock(std::atomic<uint32_t> *word)
{
    if (word->exchange(0, std::memory_order_release) == 2)
        futexWake(word, 1);
}

// The lock of one kernel object, held only for a few instructions and
// never across a blocking wait. Its word is 64 bits: bits 0-1 are the lock
// (0 free, 1 held, 2 held with sleepers), bit 2 says that waits are queued
// on the object, bit 3 is free for the object, and bits 4-63 hold a
// pointer the object may keep there (a mutex keeps its owner). Keeping
// them in one word lets an object offer a path that needs one
// compare-and-swap and no lock: it succeeds only when the whole word has
// the value it expects, so never while the lock is held.
class ObjectLock {
public:
    static constexpr uint64_t kLockBits = 3;
    static constexpr uint64_t kQueued = 4;
    static constexpr uint64_t kObjectFlag = 8;
    static constexpr uint64_t kFlagBits = 15;

    void lock()
    {
        uint64_t w = word_.load(std::memory_order_relaxed);
        if ((w & kLockBits) == 0 &&
            word_.compare_exchange_weak(w, w | 1, std::memory_order_acquire, std::memory_order_relaxed))
            return;
        lockSlow();
    }

    void unlock()
    {
        uint64_t w = word_.load(std::memory_order_relaxed);
        while (!word_.compare_exchange_weak(w, w & ~kLockBits, std::memory_order_release, std::memory_order_relaxed)) {
        }
        if ((w & kLockBits) == 2)
            futexWake(lowHalf(), 1);
    }

    // The whole word, for the object's own lock-free path.
    std::atomic<uint64_t> &word() { return word_; }
    uint64_t load() const { return word_.load(std::memory_order_acquire); }

    // Under the lock: changes the bits outside the lock bits.
    void setBits(uint64_t bits) { word_.fetch_or(bits, std::memory_order_relaxed); }
    void clearBits(uint64_t bits) { word_.fetch_and(~bits, std::memory_order_relaxed); }
    void setPointer(const void *p)
    {
        uint64_t w = word_.load(std::memory_order_relaxed);
        while (!word_.compare_exchange_weak(w, (w & kFlagBits) | reinterpret_cast<uintptr_t>(p),
                                            std::memory_order_relaxed)) {
        }
    }
    const void *pointer() const
    {
        return reinterpret_cast<const void *>(static_cast<uintptr_t>(word_.load(std::memory_order_acquire) & ~kFlagBits));
    }

private:
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the futex is the word's low half");

    std::atomic<uint32_t> *lowHalf() { return reinterpret_cast<std::atomic<uint32_t> *>(&word_); }

    void lockSlow()
    {
        for (;;) {
            uint64_t w = word_.load(std::memory_order_relaxed);
            if ((w & kLockBits) == 0) {
                // Taken as "held with sleepers": others may still sleep.
                if (word_.compare_exchange_weak(w, (w & ~kLockBits) | 2, std::memory_order_acquire,
                                                std::memory_order_relaxed))
                    return;
                continue;
            }
            if ((w & kLockBits) == 1 &&
                !word_.compare_exchange_weak(w, (w & ~kLockBits) | 2, std::memory_order_relaxed))
                continue;
            futexWait(lowHalf(), static_cast<uint32_t>((w & ~kLockBits) | 2), Deadline());
        }
    }

    std::atomic<uint64_t> word_{0};
};

} // namespace tsp
