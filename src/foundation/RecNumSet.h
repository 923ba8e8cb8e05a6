#pragma once

// RecNumSet: a set of record numbers, as searches return them. Adding a number
// that is already there changes nothing. The set keeps ranges, so that it
// costs memory in proportion to its ranges, not to its count: a search that
// covers a layer adds all its features as one range, however many the index
// claims. Read it through Ranges() (or Count()); ToVector() spends four bytes
// a number.

#include <cstdint>
#include <utility>
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
    // The same into `out`, when the set holds at most `maxCount` numbers;
    // otherwise false, with `out` empty and nothing allocated.
    bool ToVector(std::vector<int32_t>& out, int64_t maxCount) const;
    // The closed ranges [first, last] of the set: ascending, disjoint and
    // not adjacent.
    const std::vector<std::pair<int32_t, int32_t>>& Ranges() const;

private:
    // Disjoint, non-adjacent closed ranges, kept sorted lazily.
    mutable std::vector<std::pair<int32_t, int32_t>> ranges_;
    mutable bool sorted_ = true;
    void Normalize() const;
};

}  // namespace quillet
