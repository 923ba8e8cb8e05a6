#pragma once

// ExternalSort: sorts variable-size elements that may not fit in memory.
// Elements are collected in memory up to a budget; when the budget would be
// exceeded the collected elements are sorted and spilled as one run to a
// temporary file, and Sort() merges all runs k-way through a tree of losers
// (first in passes of as many runs as the budget gives reasonable read
// buffers, when there are more). The runs share one temporary file in the
// platform's temporary folder that is unlinked as soon as it is open, so it
// is gone with the sorter (or the process), whatever happened.
//
// The order is that of the compare function; equal elements keep no
// particular order.

#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/Export.h"

namespace quillet {

class QUILLET_EXPORT ExternalSort {
public:
    struct SortElement {
        int32_t size;
        const unsigned char* data;
    };
    using CompareFunction = int (*)(const SortElement* a, const SortElement* b);

    ExternalSort();
    ~ExternalSort();
    ExternalSort(const ExternalSort&) = delete;
    ExternalSort& operator=(const ExternalSort&) = delete;

    // memoryBudget: bytes of element data (plus bookkeeping) kept in memory
    // before a run is spilled. expectedCount: a hint for the first allocation.
    // Returns true when ready.
    bool Init(CompareFunction compare, int32_t memoryBudget, int32_t expectedCount);
    // An optional shortcut for sorting in memory: a number for each element
    // such that prefix(a) < prefix(b) only where compare(a, b) < 0. Elements
    // of equal prefixes are still ordered by the compare function, so the
    // order stays the same while most comparisons become one of two integers
    // at hand. Each element then counts sizeof a prefix more in the budget.
    // Only before the first Add; false otherwise.
    using PrefixFunction = uint64_t (*)(const SortElement* element);
    bool SetPrefix(PrefixFunction prefix);
    // Copies the element in. False on a bad size or a failed spill.
    bool Add(int32_t size, const void* element);
    // Ends the input; elements then come back through Next in order.
    bool Sort();
    // Sets *size and *element to the next element, valid until the next call;
    // returns 0 while an element is returned, 1 at the end, -1 on a read error.
    int Next(int32_t* size, const unsigned char** element);

    int64_t GetCount() const;
    int GetRunCount() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace quillet
