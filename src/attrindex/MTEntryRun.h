#pragma once

// MTEntryRun: the entries of up to three neighbour nodes gathered in one
// sequence, so that a split, rebalance or merge spreads them again in order.
// Owned by the index and kept between operations, so that reshaping nodes
// allocates nothing after the first time. Internal to the index.

#include <cstdint>
#include <cstring>
#include <vector>

namespace quillet {

struct MTEntryRun {
    // Room for three full nodes and one entry more.
    void Reserve(int32_t maxKeys, int32_t width) {
        size_t capacity = 3 * static_cast<size_t>(maxKeys) + 1;
        keyWidth = width;
        keys.resize(capacity * static_cast<size_t>(width));
        slots.resize(capacity);
        count = 0;
    }
    const unsigned char* KeyAt(int32_t i) const {
        return keys.data() + static_cast<size_t>(i) * static_cast<size_t>(keyWidth);
    }
    void Append(const unsigned char* key, int32_t slot) {
        std::memcpy(keys.data() + static_cast<size_t>(count) * static_cast<size_t>(keyWidth), key,
                    static_cast<size_t>(keyWidth));
        slots[static_cast<size_t>(count++)] = slot;
    }
    // Inserts an entry at position i, moving the later ones on.
    void InsertAt(int32_t i, const unsigned char* key, int32_t slot) {
        auto w = static_cast<size_t>(keyWidth);
        unsigned char* at = keys.data() + static_cast<size_t>(i) * w;
        std::memmove(at + w, at, static_cast<size_t>(count - i) * w);
        std::memcpy(at, key, w);
        std::memmove(slots.data() + i + 1, slots.data() + i, static_cast<size_t>(count - i) * 4);
        slots[static_cast<size_t>(i)] = slot;
        ++count;
    }

    int32_t keyWidth = 0;
    int32_t count = 0;
    std::vector<unsigned char> keys;
    std::vector<int32_t> slots;
};

}  // namespace quillet
