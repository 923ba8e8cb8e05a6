#pragma once

// Byte-order helpers. Every on-disk value that is not stored in native order
// passes through one of these at the moment it is read or written; in memory
// everything is native. The host is little-endian.
//
// The Swap* family reverses the bytes of each element of an array, in place or
// from a source array into a destination array (which may be the same array).
// The Encode/Decode family reads and writes fixed-width integers and doubles at
// a byte address in a given order, for code that builds records in a buffer.

#include <cstdint>
#include <cstring>

#include "foundation/Export.h"

namespace quillet {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "Quillet assumes a little-endian host");

QUILLET_EXPORT void SwapInt(int32_t* values, int count);
QUILLET_EXPORT void SwapInt(const int32_t* source, int32_t* destination, int count);
QUILLET_EXPORT void SwapInt64(int64_t* values, int count);
QUILLET_EXPORT void SwapInt64(const int64_t* source, int64_t* destination, int count);
QUILLET_EXPORT void SwapFloat(float* values, int count);
QUILLET_EXPORT void SwapFloat(const float* source, float* destination, int count);
QUILLET_EXPORT void SwapDouble(double* values, int count);
QUILLET_EXPORT void SwapDouble(const double* source, double* destination, int count);

inline uint16_t DecodeFixed16LE(const void* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}
inline uint32_t DecodeFixed32LE(const void* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
inline uint64_t DecodeFixed64LE(const void* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}
inline uint16_t DecodeFixed16BE(const void* p) { return __builtin_bswap16(DecodeFixed16LE(p)); }
inline uint32_t DecodeFixed32BE(const void* p) { return __builtin_bswap32(DecodeFixed32LE(p)); }
inline uint64_t DecodeFixed64BE(const void* p) { return __builtin_bswap64(DecodeFixed64LE(p)); }

inline void EncodeFixed16LE(void* p, uint16_t v) { std::memcpy(p, &v, 2); }
inline void EncodeFixed32LE(void* p, uint32_t v) { std::memcpy(p, &v, 4); }
inline void EncodeFixed64LE(void* p, uint64_t v) { std::memcpy(p, &v, 8); }
inline void EncodeFixed16BE(void* p, uint16_t v) { EncodeFixed16LE(p, __builtin_bswap16(v)); }
inline void EncodeFixed32BE(void* p, uint32_t v) { EncodeFixed32LE(p, __builtin_bswap32(v)); }
inline void EncodeFixed64BE(void* p, uint64_t v) { EncodeFixed64LE(p, __builtin_bswap64(v)); }

inline double DecodeDoubleLE(const void* p) {
    double d;
    std::memcpy(&d, p, 8);
    return d;
}
inline double DecodeDoubleBE(const void* p) {
    uint64_t bits = DecodeFixed64BE(p);
    double d;
    std::memcpy(&d, &bits, 8);
    return d;
}
inline void EncodeDoubleLE(void* p, double d) { std::memcpy(p, &d, 8); }
inline void EncodeDoubleBE(void* p, double d) {
    uint64_t bits;
    std::memcpy(&bits, &d, 8);
    EncodeFixed64BE(p, bits);
}

}  // namespace quillet
