#pragma once

// The 256 × 256 grid of a spatial bin index and its binary tree of bins.
//
// A layer's extent is mapped onto integer coordinates 0..255. Bin 1 is the
// whole grid; the children of bin b are 2b and 2b + 1, and each level halves
// its parent's cell, first across x, then across y, and so on. A feature lives
// in the smallest bin whose cell holds its whole grid box.
//
// The reader and the builder disagree by design in two places, and files in
// the field depend on both: the builder's root cell is [0, 256] while the
// reader's is [0, 255], and the two clamp the box maxima differently (see
// FeatureGridBox and QueryGridBox). Do not unify them.

#include <cstdint>

#include "foundation/Export.h"
#include "foundation/WKSEnvelope.h"

namespace quillet {

// A box on the grid, closed on both ends: xmin, ymin, xmax, ymax.
struct QUILLET_EXPORT GridBox {
    uint8_t xmin = 0;
    uint8_t ymin = 0;
    uint8_t xmax = 0;
    uint8_t ymax = 0;

    bool operator==(const GridBox&) const = default;
};

// The reader's name for a box it compares (a query, a cell, an entry).
using SearchBox = GridBox;
// The builder's name for a feature's box.
using IntBox = GridBox;

// The mapping of a layer's extent onto the grid: coordinates are offset by the
// extent's minima and multiplied by the scales.
struct QUILLET_EXPORT GridMapping {
    double xmin = 0;
    double ymin = 0;
    double xscale = 0;
    double yscale = 0;
};

// Whether two closed boxes overlap on both axes; boxes that only touch do.
// Inline: the search asks it of every cell and entry it passes.
inline bool IsOver(const GridBox& a, const GridBox& b) {
    // On each axis: b's min or max lies within a, or a lies within b. Boxes
    // from a file may have min > max, so the test stays in exactly this form;
    // it is evaluated with & and | rather than && and || because the search's
    // time goes into mispredicted branches on random entries otherwise.
    auto overlaps = [](uint8_t aMin, uint8_t aMax, uint8_t bMin, uint8_t bMax) {
        return ((bMin >= aMin) & (bMin <= aMax)) | ((bMax >= aMin) & (bMax <= aMax)) |
               ((aMin >= bMin) & (aMax <= bMax));
    };
    return overlaps(a.xmin, a.xmax, b.xmin, b.xmax) & overlaps(a.ymin, a.ymax, b.ymin, b.ymax);
}

// The builder's box of a feature: minima below 0 become 0, and a maximum is
// one past the rounded coordinate unless that reaches 255, which it becomes.
QUILLET_EXPORT IntBox FeatureGridBox(const WKSEnvelope& feature, const GridMapping& mapping);

// The reader's box of a query rectangle: the same rounding, but a maximum is
// one past the coordinate before rounding and is clamped only when it is 256
// or more. A minimum beyond 255 or a maximum below 0 keeps its low 8 bits: the
// query is taken to overlap the extent.
QUILLET_EXPORT SearchBox QueryGridBox(const WKSEnvelope& query, const GridMapping& mapping);

// The builder's bin of a feature in a tree of `levels` levels (root = level 1).
QUILLET_EXPORT int32_t FindBin(const IntBox& box, int levels);

// The reader's cell of `bin`, which sits at `level` (root = level 0), given
// its parent's cell. At the root the parent's cell is the root cell.
QUILLET_EXPORT SearchBox ChildCell(const SearchBox& parentCell, int32_t bin, int level);

// The reader's root cell.
inline constexpr SearchBox kRootCell{0, 0, 255, 255};

// The level of a bin in the reader's numbering: floor(log2 bin).
QUILLET_EXPORT int BinLevel(int32_t bin);

}  // namespace quillet
