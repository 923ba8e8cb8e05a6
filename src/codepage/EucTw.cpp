// EUC-TW: ASCII as itself, plane 1 as two bytes 0xA1-0xFE, and any plane as
// 0x8E, plane byte (0xA1 + plane - 1), two bytes 0xA1-0xFE.

#include "codepage/EucTw.h"

#include <algorithm>
#include <new>

#include "codepage/Cns11643.h"

namespace quillet {

namespace {

constexpr wchar_t kReplacement = 0xFFFD;
constexpr unsigned char kSingleShift2 = 0x8E;

bool S_IsCell(unsigned char byte) { return byte >= 0xA1 && byte <= 0xFE; }

uint32_t S_Index(unsigned char row, unsigned char column) {
    return (row - 0xA1u) * cns11643::kCellsPerRow + (column - 0xA1u);
}

wchar_t S_Lookup(const cns11643::Table& table, uint32_t index) {
    if (index < table.first || index - table.first >= table.count) return kReplacement;
    uint32_t value = table.values[index - table.first];
    return value ? static_cast<wchar_t>(value) : kReplacement;
}

// The character of a four-byte code, by its plane byte.
wchar_t S_PlaneLookup(unsigned char plane, uint32_t index) {
    switch (plane) {
        case 0xA1: return S_Lookup(cns11643::kPlane1, index);
        case 0xA2: return S_Lookup(cns11643::kPlane2, index);
        case 0xA3: return S_Lookup(cns11643::kPlane3, index);
        case 0xB0:
            return index < cns11643::kExtensionHigh.first
                       ? S_Lookup(cns11643::kExtensionLow, index)
                       : S_Lookup(cns11643::kExtensionHigh, index);
        default: return kReplacement;
    }
}

// A code as the bytes it is written with: two bytes for plane 1, else four
// bytes led by 0x8E. Numerically, plane 1 sorts before planes 2, 3 and the
// extension set, which is the order of preference when a character has
// several codes.
struct Reverse {
    uint32_t unicode;
    uint32_t code;
    bool operator<(const Reverse& o) const {
        return unicode != o.unicode ? unicode < o.unicode : code < o.code;
    }
};

struct ReverseTable {
    Reverse* entries = nullptr;
    size_t count = 0;
};

void S_AddPlane(ReverseTable& reverse, const cns11643::Table& table, unsigned char plane) {
    for (uint32_t k = 0; k < table.count; ++k) {
        if (!table.values[k]) continue;
        uint32_t index = table.first + k;
        uint32_t cells = (0xA1u + index / cns11643::kCellsPerRow) << 8 |
                         (0xA1u + index % cns11643::kCellsPerRow);
        uint32_t code = plane == 0xA1 ? cells : (uint32_t{kSingleShift2} << 24 | plane << 16 | cells);
        reverse.entries[reverse.count++] = {table.values[k], code};
    }
}

const ReverseTable& S_Reverse() {
    static const ReverseTable table = [] {
        const struct {
            const cns11643::Table* table;
            unsigned char plane;
        } kPlanes[] = {{&cns11643::kPlane1, 0xA1},
                       {&cns11643::kPlane2, 0xA2},
                       {&cns11643::kPlane3, 0xA3},
                       {&cns11643::kExtensionLow, 0xB0},
                       {&cns11643::kExtensionHigh, 0xB0}};
        size_t total = 0;
        for (const auto& p : kPlanes) total += p.table->count;
        ReverseTable reverse;
        reverse.entries = new (std::nothrow) Reverse[total];
        if (!reverse.entries) return reverse;
        for (const auto& p : kPlanes) S_AddPlane(reverse, *p.table, p.plane);
        std::sort(reverse.entries, reverse.entries + reverse.count);
        return reverse;
    }();
    return table;
}

// The code of `ch`, 0 when it has none.
uint32_t S_CodeOf(wchar_t ch) {
    const ReverseTable& reverse = S_Reverse();
    const Reverse wanted{static_cast<uint32_t>(ch), 0};
    const Reverse* begin = reverse.entries;
    const Reverse* end = begin + reverse.count;
    const Reverse* found = std::lower_bound(begin, end, wanted);
    return found != end && found->unicode == wanted.unicode ? found->code : 0;
}

}  // namespace

void DecodeEucTw(const char* src, wchar_t* dst, uint32_t size) {
    if (size == 0) return;
    const auto* s = reinterpret_cast<const unsigned char*>(src);
    uint32_t j = 0;
    while (*s && j < size - 1) {
        if (*s < 0x80) {
            dst[j++] = *s++;
        } else if (S_IsCell(s[0]) && S_IsCell(s[1])) {
            dst[j++] = S_Lookup(cns11643::kPlane1, S_Index(s[0], s[1]));
            s += 2;
        } else if (s[0] == kSingleShift2 && s[1] >= 0xA1 && s[1] <= 0xB0 && S_IsCell(s[2]) &&
                   S_IsCell(s[3])) {
            dst[j++] = S_PlaneLookup(s[1], S_Index(s[2], s[3]));
            s += 4;
        } else {
            dst[j++] = kReplacement;
            ++s;
        }
    }
    dst[j] = L'\0';
}

void EncodeEucTw(const wchar_t* src, char* dst, uint32_t size) {
    if (size == 0) return;
    uint32_t room = size - 1;
    uint32_t j = 0;
    for (; *src && j < room; ++src) {
        if (*src > 0 && *src < 0x80) {
            dst[j++] = static_cast<char>(*src);
            continue;
        }
        uint32_t code = S_CodeOf(*src);
        if (code == 0) {
            dst[j++] = '?';
            continue;
        }
        uint32_t length = code > 0xFFFF ? 4 : 2;
        if (length > room - j) break;
        for (uint32_t k = length; k-- > 0;) dst[j++] = static_cast<char>(code >> (8 * k));
    }
    dst[j] = '\0';
}

}  // namespace quillet
