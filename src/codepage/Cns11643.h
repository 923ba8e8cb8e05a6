#pragma once

// The Unicode tables of CNS 11643 as EUC-TW reaches them: planes 1 to 3 and
// the extension set that plane byte 0xB0 selects. Each table is indexed by
// (row - 0x21) * 94 + (column - 0x21), counted from `first`; 0 marks a code
// with no character. The values are generated (Cns11643Tables.cpp).

#include <cstdint>

namespace quillet::cns11643 {

struct Table {
    const uint32_t* values;
    uint32_t first;  // the index of values[0] within the plane
    uint32_t count;
};

inline constexpr uint32_t kCellsPerRow = 94;

extern const Table kPlane1;
extern const Table kPlane2;
extern const Table kPlane3;
// The extension set: rows 0x21-0x4A, and a second range from index 4418.
extern const Table kExtensionLow;
extern const Table kExtensionHigh;

}  // namespace quillet::cns11643
