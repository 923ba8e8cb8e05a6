// Conversion through the 8-bit tables loaded from a code page's table file:
// bytes below 0x80 are ASCII in every code page the tables serve, bytes
// 0x80..0xFF go through the forward table, and characters back through the
// reverse map.

#include <algorithm>
#include <cstring>

#include "codepage/CodePage.h"

namespace quillet {

namespace {
constexpr char kUnmappedByte = '_';
}

void CodePage::Src2Ntv8Bit(const char* src, wchar_t* dst, uint32_t size) {
    // The terminator is converted too, when there is room for it.
    size_t n = size == 0 ? 0 : std::min<size_t>(strnlen(src, size) + 1, size);
    const uint16_t* table = forwardTable_.get();
    for (size_t i = 0; i < n; ++i) {
        auto byte = static_cast<unsigned char>(src[i]);
        dst[i] = static_cast<wchar_t>(byte < 0x80 || !table ? byte : table[byte - 0x80]);
    }
}

void CodePage::Ntv2Src8Bit(const wchar_t* src, char* dst, uint32_t size) {
    // Deliberately writes no terminator when the text fills `size`: callers
    // rely on `size` alone bounding the write.
    for (uint32_t i = 0; i < size; ++i) {
        wchar_t ch = src[i];
        if (ch >= 0 && ch < 0x80) {
            dst[i] = static_cast<char>(ch);
            if (ch == 0) return;
            continue;
        }
        const unsigned char* byte = nullptr;
        if (reverseMap_ && ch > 0 && ch <= 0xFFFF) {
            byte = reverseMap_->Find(static_cast<uint16_t>(ch));
        }
        dst[i] = byte ? static_cast<char>(*byte) : kUnmappedByte;
    }
}

}  // namespace quillet
