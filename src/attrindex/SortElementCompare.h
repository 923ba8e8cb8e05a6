#pragma once

// Comparisons of the sort elements that the bulk loads feed to the external
// sorter: a 32-bit record id followed by the key. Equal keys are ordered by
// record id, and NaN sorts after every number, since the sorter needs a
// total order.

#include <cstdint>
#include <cstring>

#include "foundation/ExternalSort.h"

namespace quillet {

inline int32_t SortElementId(const ExternalSort::SortElement* e) {
    int32_t id;
    std::memcpy(&id, e->data, 4);
    return id;
}

inline int CompareSortIds(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    int32_t x = SortElementId(a);
    int32_t y = SortElementId(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}

template <typename T>
int CompareSortNumbers(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    T x;
    T y;
    std::memcpy(&x, a->data + 4, sizeof(T));
    std::memcpy(&y, b->data + 4, sizeof(T));
    bool xNan = x != x;
    bool yNan = y != y;
    if (xNan || yNan) return xNan == yNan ? CompareSortIds(a, b) : (xNan ? 1 : -1);
    if (x != y) return x < y ? -1 : 1;
    return CompareSortIds(a, b);
}

}  // namespace quillet
