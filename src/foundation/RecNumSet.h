#pragma once

// RecNumSet: a set of record numbers, as searches return them. Adding a number
// that is already there changes nothing.

#include <cstdint>
#include <vector>

#include "foundation/Export.h"

namespace quillet {

class QUILLET_EXPORT RecNumSet {
public:
    void Add(int32_t n);
    // Adds first, first + 1, ..., last. Nothing when last < first.
    void AddRange(int32_t first, int32_t last);
    bool Contains(int32_t n) const;
    int64_t Count() const;
    void Clear();
    // The numbers in ascending order.
    std::vector<int32_t> ToVector() const;

private:
    // Disjoint, non-adjacent closed ranges, kept sorted lazily.
    mutable std::vector<std::pair<int32_t, int32_t>> ranges_;
    mutable bool sorted_ = true;
    void Normalize() const;
};

}  // namespace quillet
