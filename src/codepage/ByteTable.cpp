// Conversion through the 8-bit tables loaded from a code page's table file:
// bytes below 0x80 are ASCII in every code page the tables serve, bytes
// 0x80..0xFF go through the forward table, and characters back through the
// reverse map.

#include <algorithm>
#include <cstring>

#include "codepage/CodePage.h"
#include "codepage/ReverseByteIndex.h"
#include "foundation/AsciiRun.h"
#include "foundation/ByteToWide.h"

namespace quillet {

namespace {
constexpr char kUnmappedByte = '_';
}

void CodePage::Src2Ntv8Bit(const char* src, wchar_t* dst, uint32_t size) {
    // Converts min(strlen(src) + 1, size) bytes, the terminator too when there
    // is room; the length is found a stretch at a time as the bytes go.
    const uint16_t* table = forwardTable_.get();
    auto map = [table](unsigned char byte) {
        // Both sides are read so that the choice compiles without a branch.
        wchar_t high = table ? table[byte & 0x7F] : byte;
        return byte < 0x80 ? static_cast<wchar_t>(byte) : high;
    };
    const auto* s = reinterpret_cast<const unsigned char*>(src);
    uint32_t i = 0;
    while (i < size) {
        auto stretch = static_cast<uint32_t>(StretchBeforeTerminator(s + i, size - i));
        MapBytesToWide(s + i, stretch, dst + i, map, IsLargeWideOutput(stretch, size - i));
        i += stretch;
        if (i < size && s[i] == 0) {
            dst[i] = L'\0';
            return;
        }
    }
}

int CodePage::ByteOf(wchar_t ch) const {
    auto cp = static_cast<uint32_t>(ch);
    if (reverseIndex_) {
        int byte = reverseIndex_->Find(cp);
        return byte < 0 ? kUnmappedByte : byte;
    }
    const unsigned char* byte = nullptr;
    if (reverseMap_ && cp <= 0xFFFF) byte = reverseMap_->Find(static_cast<uint16_t>(cp));
    return byte ? *byte : kUnmappedByte;
}

void CodePage::Ntv2Src8Bit(const wchar_t* src, char* dst, uint32_t size) {
    // Deliberately writes no terminator when the text fills `size`: callers
    // rely on `size` alone bounding the write.
    for (uint32_t i = 0; i < size; ++i) {
        wchar_t ch = src[i];
        if (static_cast<uint32_t>(ch) < 0x80) {
            dst[i] = static_cast<char>(ch);
            if (ch == 0) return;
            continue;
        }
        dst[i] = static_cast<char>(ByteOf(ch));
    }
}

}  // namespace quillet
