#pragma once

// Runs of ASCII are the bulk of the text in every code page the library reads
// and writes, so the converters hand them to these helpers before they look at
// single characters. Eight units are tested at once (one test tells that none
// is above 0x7F) and widened or narrowed together. Internal to the library.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quillet {

namespace ascii_detail {

inline constexpr uint64_t kHighBits = 0x8080808080808080;

// Widens 8 bytes. Compilers do not reliably turn the plain loop into vector
// code once it sits inside a converter, where dst might alias the source.
inline void WidenBlock(const unsigned char* src, wchar_t* dst) {
#if defined(__SSE2__)
    static_assert(sizeof(wchar_t) == 4);
    const __m128i zero = _mm_setzero_si128();
    __m128i units = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src)), zero);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_unpacklo_epi16(units, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 4), _mm_unpackhi_epi16(units, zero));
#else
    for (int k = 0; k < 8; ++k) dst[k] = static_cast<wchar_t>(src[k]);
#endif
}

// Narrows 8 units below 0x80.
inline void NarrowBlock(const wchar_t* src, unsigned char* dst) {
#if defined(__SSE2__)
    __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4));
    __m128i halves = _mm_packs_epi32(low, high);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(halves, halves));
#else
    for (int k = 0; k < 8; ++k) dst[k] = static_cast<unsigned char>(src[k]);
#endif
}

// The bytes of a block, in memory order, before its first byte above 0x7F.
inline size_t AsciiBytesOf(uint64_t block) {
    uint64_t high = block & kHighBits;
    if constexpr (std::endian::native == std::endian::little) return std::countr_zero(high) / 8;
    return std::countl_zero(high) / 8;
}

}  // namespace ascii_detail

// Widens src[0, n) into dst up to the first byte above 0x7F; returns the bytes
// widened, and writes no other unit of dst. All n bytes may be read: where the
// source ends at a terminator, the caller bounds n before it (a zero byte is
// ASCII here).
inline size_t WidenAscii(const unsigned char* src, size_t n, wchar_t* dst) {
    size_t i = 0;
    for (; n - i >= 8; i += 8) {
        uint64_t block;
        std::memcpy(&block, src + i, sizeof block);
        if (block & ascii_detail::kHighBits) {
            size_t run = ascii_detail::AsciiBytesOf(block);
            for (size_t k = 0; k < run; ++k) dst[i + k] = static_cast<wchar_t>(src[i + k]);
            return i + run;
        }
        ascii_detail::WidenBlock(src + i, dst + i);
    }
    for (; i < n && src[i] < 0x80; ++i) dst[i] = static_cast<wchar_t>(src[i]);
    return i;
}

// Narrows src[0, n) into dst up to the first unit above 0x7F; returns the units
// narrowed, and writes no other byte of dst.
inline size_t NarrowAscii(const wchar_t* src, size_t n, unsigned char* dst) {
    size_t i = 0;
    for (; n - i >= 8; i += 8) {
        uint32_t bits = 0;
        for (size_t k = 0; k < 8; ++k) bits |= static_cast<uint32_t>(src[i + k]);
        if (bits > 0x7F) break;
        ascii_detail::NarrowBlock(src + i, dst + i);
    }
    for (; i < n && static_cast<uint32_t>(src[i]) < 0x80; ++i) dst[i] = static_cast<unsigned char>(src[i]);
    return i;
}

// The bytes of a zero-terminated source, at most `most`, known not to be its
// terminator: a stretch that WidenAscii may read. The terminator is looked for
// a few pages ahead only, so that a long text is converted while the stretch is
// still in the cache rather than scanned twice.
inline size_t StretchBeforeTerminator(const unsigned char* src, size_t most) {
    constexpr size_t kStretch = 4096;
    return strnlen(reinterpret_cast<const char*>(src), most < kStretch ? most : kStretch);
}

}  // namespace quillet
