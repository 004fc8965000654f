// A value for each of the 65,536 UTF-16 units (or two-byte codes), kept in
// blocks of 256: the blocks that hold nothing but the table's fill share
// one block. The case and code page tables name a few hundred units out of
// 65,536, so a table takes a few KiB where a flat array would take 64 or
// 128 KiB of every process's memory; a look-up is two loads, the first
// from a 256-entry index that stays in the cache.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tsp {

template <typename T>
class UnitTable {
public:
    explicit UnitTable(T fill) : fill_(new T[256])
    {
        for (size_t i = 0; i < 256; ++i)
            fill_[i] = fill;
        for (T *&b : block_)
            b = fill_.get();
    }
    UnitTable(const UnitTable &) = delete;
    UnitTable &operator=(const UnitTable &) = delete;

    T operator[](uint16_t u) const { return block_[u >> 8][u & 0xFF]; }
    // The 256 entries of units hi << 8 to hi << 8 | 0xFF: a loop over text
    // that keeps mostly to one block reads it directly.
    const T *block(uint8_t hi) const { return block_[hi]; }

    void set(uint16_t u, T value)
    {
        size_t hi = u >> 8;
        if (block_[hi] == fill_.get()) {
            owned_.emplace_back(new T[256]);
            for (size_t i = 0; i < 256; ++i)
                owned_.back()[i] = fill_[0];
            block_[hi] = owned_.back().get();
        }
        block_[hi][u & 0xFF] = value; // a block of owned_: the shared fill is never written
    }

private:
    std::unique_ptr<T[]> fill_;
    T *block_[256];
    std::vector<std::unique_ptr<T[]>> owned_;
};

} // namespace tsp
