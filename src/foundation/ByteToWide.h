#pragma once

// Single-byte code pages map each byte to one wide character. A long text
// makes four times its size of wide output, which has left the caches long
// before anyone reads it: its writes are memory bound, and an ordinary store
// first reads the line it writes into. Large outputs are therefore written
// with non-temporal stores where the platform has them, which only write.
// Internal to the library.

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quillet {

// Whether `units` about to be written into a destination with `room` units
// left are part of an output too large to stay in the cache. Small texts,
// even in large destinations, keep ordinary stores so that their output is
// at hand for the caller.
inline bool IsLargeWideOutput(size_t units, size_t room) {
    constexpr size_t kLeast = 4096;
    constexpr size_t kLeastRoom = size_t{1} << 20;  // 4 MiB of wide characters
    return units >= kLeast && room >= kLeastRoom;
}

// Writes map(src[i]) into dst[i] for i < n, with non-temporal stores when
// `large` (see IsLargeWideOutput).
template <class Map>
void MapBytesToWide(const unsigned char* src, size_t n, wchar_t* dst, Map map, bool large) {
    size_t i = 0;
#if defined(__SSE2__)
    static_assert(sizeof(wchar_t) == 4);
    if (large) {
        for (; i < n && reinterpret_cast<uintptr_t>(dst + i) % 16 != 0; ++i) dst[i] = map(src[i]);
        for (; n - i >= 4; i += 4) {
            __m128i units = _mm_setr_epi32(map(src[i]), map(src[i + 1]), map(src[i + 2]), map(src[i + 3]));
            _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), units);
        }
        // Orders the stores before whatever the caller does next.
        _mm_sfence();
    }
#endif
    for (; i < n; ++i) dst[i] = map(src[i]);
}

}  // namespace quillet
