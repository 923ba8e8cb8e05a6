#include "spatialindex/EntryScan.h"

#include <algorithm>
#include <bit>

#include "spatialindex/BinIndexFormat.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quillet {

namespace {

// When the query's minimum is at most its maximum on an axis, IsOver's three
// cases on that axis come down to one: an entry misses only when both its
// ends lie below the query's minimum or both above its maximum. That holds
// for entries whose minimum exceeds their maximum too, so the test takes
// the larger and the smaller end, whichever field holds them.
bool S_IsOrdered(const SearchBox& q) { return q.xmin <= q.xmax && q.ymin <= q.ymax; }

bool S_IsOverOrdered(const unsigned char* e, const SearchBox& q) {
    auto [xLow, xHigh] = std::minmax(e[0], e[2]);
    auto [yLow, yHigh] = std::minmax(e[1], e[3]);
    return (xHigh >= q.xmin) & (xLow <= q.xmax) & (yHigh >= q.ymin) & (yLow <= q.ymax);
}

// Bit i is set when entry i of the four at `p` is over the ordered query.
// Most entries a small window meets are misses: testing four at once, without
// a branch each, is what keeps the search of a large bin cheap.
#if defined(__SSE2__)
unsigned S_OverMask4(const unsigned char* p, const SearchBox& q) {
    // The four boxes side by side, one 32-bit lane each: xmin, ymin, xmax,
    // ymax from the low byte up; shifted down 16 bits, the maxima sit under
    // the minima and the upper bytes are 0.
    __m128 low = _mm_loadu_ps(reinterpret_cast<const float*>(p));
    __m128 high = _mm_loadu_ps(reinterpret_cast<const float*>(p + 16));
    __m128i boxes = _mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0)));
    __m128i ends = _mm_srli_epi32(boxes, 16);
    // Bytes that stay 0 unless a miss: query min above the larger end, or the
    // smaller end above the query max. The query's upper bytes are 0, so the
    // lanes' upper bytes always stay 0.
    __m128i queryMin = _mm_set1_epi32(q.xmin | q.ymin << 8);
    __m128i queryMax = _mm_set1_epi32(q.xmax | q.ymax << 8);
    __m128i miss = _mm_or_si128(_mm_subs_epu8(queryMin, _mm_max_epu8(boxes, ends)),
                                _mm_subs_epu8(_mm_min_epu8(boxes, ends), queryMax));
    __m128i over = _mm_cmpeq_epi32(miss, _mm_setzero_si128());
    return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(over)));
}
#else
unsigned S_OverMask4(const unsigned char* p, const SearchBox& q) {
    unsigned mask = 0;
    for (unsigned i = 0; i < 4; ++i) {
        mask |= unsigned{S_IsOverOrdered(p + i * BinFeatureRec::kLength, q)} << i;
    }
    return mask;
}
#endif

// Adds the entries of the first four at `p` whose bits are set in `mask`.
int32_t S_AddMasked(const unsigned char* p, unsigned mask, bool bigEndian, RecNumSet* result) {
    int32_t added = 0;
    for (unsigned m = mask; m != 0; m &= m - 1, ++added) {
        BinFeatureRec feature;
        feature.DecodeFrom(p + std::countr_zero(m) * BinFeatureRec::kLength, bigEndian);
        result->Add(feature.featureNumber);
    }
    return added;
}

// The query by value: a copy that the result set cannot alias stays in
// registers across the adds.
int32_t S_AddOrdered(const unsigned char* entries, int32_t count, const SearchBox query,
                     bool bigEndian, RecNumSet* result) {
    int32_t added = 0;
    int32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const unsigned char* p = entries + i * BinFeatureRec::kLength;
        unsigned mask = S_OverMask4(p, query);
        if (mask != 0) added += S_AddMasked(p, mask, bigEndian, result);
    }
    for (; i < count; ++i) {
        const unsigned char* p = entries + i * BinFeatureRec::kLength;
        added += S_AddMasked(p, S_IsOverOrdered(p, query), bigEndian, result);
    }
    return added;
}

// A query whose minimum exceeds its maximum is rare (an index whose extent is
// upside down gives one): every entry then takes IsOver's full test.
int32_t S_AddAny(const unsigned char* entries, int32_t count, const SearchBox& query,
                 bool bigEndian, RecNumSet* result) {
    int32_t added = 0;
    for (int32_t i = 0; i < count; ++i) {
        const unsigned char* p = entries + i * BinFeatureRec::kLength;
        added += S_AddMasked(p, IsOver(GridBox{p[0], p[1], p[2], p[3]}, query), bigEndian, result);
    }
    return added;
}

}  // namespace

int32_t AddEntriesOver(const unsigned char* entries, int32_t count, const SearchBox& query,
                       bool bigEndian, RecNumSet* result) {
    return S_IsOrdered(query) ? S_AddOrdered(entries, count, query, bigEndian, result)
                              : S_AddAny(entries, count, query, bigEndian, result);
}

}  // namespace quillet
