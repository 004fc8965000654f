// The registry's change counter: one 64-bit word on a page that every
// process of the machine root maps from $ROOT/registry.db-seq, and the
// flock on that file that queues the writers of all those processes.
//
// A writer takes the flock, makes the counter odd, writes, and makes it
// even again before it lets go. A reader that sees an even counter may
// keep what it read until the counter moves; an odd counter (a write in
// flight, or a writer that died in the middle) is never cached, and the
// next writer, or the next process to open the store, turns it even again.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace tsp {
namespace reg {

class ChangeCounter {
public:
    ChangeCounter() = default;
    ~ChangeCounter() { close(); }
    ChangeCounter(const ChangeCounter &) = delete;
    ChangeCounter &operator=(const ChangeCounter &) = delete;

    // Opens path (made with mode 0600 when missing) and maps the counter.
    // A Win32 error: ERROR_ACCESS_DENIED, ERROR_CANTOPEN or
    // ERROR_REGISTRY_IO_FAILED.
    LONG open(const std::string &path);
    void close();
    // In a child process after fork: lets go of the inherited mapping and
    // descriptor. The parent keeps its own descriptor, and with it any
    // flock it holds.
    void forgetAfterFork() { close(); }

    bool isOpen() const { return word_ != nullptr; }
    uint64_t value() const { return __atomic_load_n(word_, __ATOMIC_ACQUIRE); }
    // True while a write is in flight or was cut short.
    bool writing() const { return value() & 1; }

    // The writers' flock, across processes. False only when the file
    // system refuses it.
    bool lockWriters();
    void unlockWriters();

    // Under the writers' lock: a write begins (the counter becomes odd and
    // differs from every value a reader may have cached), and ends (an odd
    // counter becomes even).
    void beginWrite();
    void endWrite();

private:
    void store(uint64_t v) { __atomic_store_n(word_, v, __ATOMIC_SEQ_CST); }

    int fd_ = -1;
    uint64_t *word_ = nullptr;
};

} // namespace reg
} // namespace tsp
