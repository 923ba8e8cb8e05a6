#pragma once

// Comparisons of the sort elements that the bulk loads feed to the external
// sorter: a 32-bit record id followed by the key. Equal keys are ordered by
// record id, and NaN sorts after every number, since the sorter needs a
// total order.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

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

// Prefixes for ExternalSort::SetPrefix that order as the comparisons above.
// A key of 32 bits or less leaves room for the id, so that the prefix alone
// gives the whole order; wider keys leave ties of equal keys to the compare.

// The bits of a number, as unsigned integers ordered as the numbers are.
inline uint32_t OrderedBits(int32_t v) { return static_cast<uint32_t>(v) ^ 0x80000000u; }

inline uint64_t OrderedBits(double v) {
    if (v == 0) v = 0;  // -0 equals 0
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    return bits >> 63 ? ~bits : bits | (uint64_t{1} << 63);
}

inline uint32_t OrderedBits(float v) {
    if (v == 0) v = 0;
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    return bits >> 31 ? ~bits : bits | 0x80000000u;
}

template <typename T>
uint64_t SortNumberPrefix(const ExternalSort::SortElement* e) {
    T x;
    std::memcpy(&x, e->data + 4, sizeof(T));
    if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) {
        return uint64_t{OrderedBits(static_cast<int32_t>(x))} << 32 | OrderedBits(SortElementId(e));
    } else if constexpr (std::is_integral_v<T>) {
        return static_cast<uint64_t>(x) ^ (uint64_t{1} << 63);
    } else if constexpr (sizeof(T) == 4) {
        // NaN sorts after every number, and NaNs by id.
        uint32_t key = x != x ? 0xFFFFFFFFu : OrderedBits(x);
        return uint64_t{key} << 32 | OrderedBits(SortElementId(e));
    } else {
        return x != x ? UINT64_MAX : OrderedBits(x);
    }
}

// The first eight bytes of a key compared as bytes.
inline uint64_t SortBytesPrefix(const ExternalSort::SortElement* e) {
    uint64_t prefix = 0;
    int32_t n = std::min(e->size - 4, 8);
    for (int32_t i = 0; i < n; ++i) prefix |= uint64_t{e->data[4 + i]} << (56 - 8 * i);
    return prefix;
}

}  // namespace quillet
