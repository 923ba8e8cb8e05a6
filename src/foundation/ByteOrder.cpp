#include "foundation/ByteOrder.h"

namespace quillet {

namespace {

template <typename T, typename U>
void SwapArray(const T* source, T* destination, int count) {
    static_assert(sizeof(T) == sizeof(U));
    for (int i = 0; i < count; ++i) {
        U bits;
        std::memcpy(&bits, &source[i], sizeof(U));
        if constexpr (sizeof(U) == 4) {
            bits = __builtin_bswap32(bits);
        } else {
            bits = __builtin_bswap64(bits);
        }
        std::memcpy(&destination[i], &bits, sizeof(U));
    }
}

}  // namespace

void SwapInt(int32_t* values, int count) { SwapArray<int32_t, uint32_t>(values, values, count); }
void SwapInt(const int32_t* source, int32_t* destination, int count) {
    SwapArray<int32_t, uint32_t>(source, destination, count);
}
void SwapInt64(int64_t* values, int count) { SwapArray<int64_t, uint64_t>(values, values, count); }
void SwapInt64(const int64_t* source, int64_t* destination, int count) {
    SwapArray<int64_t, uint64_t>(source, destination, count);
}
void SwapFloat(float* values, int count) { SwapArray<float, uint32_t>(values, values, count); }
void SwapFloat(const float* source, float* destination, int count) {
    SwapArray<float, uint32_t>(source, destination, count);
}
void SwapDouble(double* values, int count) { SwapArray<double, uint64_t>(values, values, count); }
void SwapDouble(const double* source, double* destination, int count) {
    SwapArray<double, uint64_t>(source, destination, count);
}

}  // namespace quillet
