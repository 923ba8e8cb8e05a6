#include "spatialindex/BinGrid.h"

#include <bit>
#include <cmath>
#include <limits>

namespace quillet {

namespace {

// The low 8 bits of a rounded coordinate, as a conversion to a 32-bit integer
// leaves them. Values that conversion cannot represent (NaN, infinities, huge
// values) give its "integer indefinite" result, whose low byte is 0.
uint8_t S_LowByte(double rounded) {
    if (!(rounded >= std::numeric_limits<int32_t>::min() &&
          rounded <= std::numeric_limits<int32_t>::max())) {
        return 0;
    }
    return static_cast<uint8_t>(static_cast<int32_t>(rounded) & 0xFF);
}

// Ties to even: nearbyint under the default rounding mode.
double S_Grid(double value, double origin, double scale) {
    return std::nearbyint((value - origin) * scale);
}

uint8_t S_FeatureMin(double value, double origin, double scale) {
    double r = S_Grid(value, origin, scale);
    return r > 0 ? S_LowByte(r) : 0;
}

uint8_t S_FeatureMax(double value, double origin, double scale) {
    double r = S_Grid(value, origin, scale) + 1;
    return r < 255 ? S_LowByte(r) : 255;
}

uint8_t S_QueryMin(double value, double origin, double scale) {
    double r = S_Grid(value, origin, scale);
    return r < 0 ? 0 : S_LowByte(r);
}

uint8_t S_QueryMax(double value, double origin, double scale) {
    double r = std::nearbyint(1 + (value - origin) * scale);
    return r >= 256 ? 255 : S_LowByte(r);
}

}  // namespace

IntBox FeatureGridBox(const WKSEnvelope& f, const GridMapping& m) {
    return IntBox{S_FeatureMin(f.XMin, m.xmin, m.xscale), S_FeatureMin(f.YMin, m.ymin, m.yscale),
                  S_FeatureMax(f.XMax, m.xmin, m.xscale), S_FeatureMax(f.YMax, m.ymin, m.yscale)};
}

SearchBox QueryGridBox(const WKSEnvelope& q, const GridMapping& m) {
    return SearchBox{S_QueryMin(q.XMin, m.xmin, m.xscale), S_QueryMin(q.YMin, m.ymin, m.yscale),
                     S_QueryMax(q.XMax, m.xmin, m.xscale), S_QueryMax(q.YMax, m.ymin, m.yscale)};
}

int32_t FindBin(const IntBox& box, int levels) {
    // Index 0 is x, 1 is y. The builder's root is 256 wide, not 255.
    int lo[2] = {0, 0};
    int hi[2] = {256, 256};
    const int boxMin[2] = {box.xmin, box.ymin};
    const int boxMax[2] = {box.xmax, box.ymax};
    int32_t bin = 1;
    for (int level = 2; level <= levels; ++level) {
        int axis = level % 2 == 0 ? 0 : 1;
        int mid = (lo[axis] + hi[axis]) / 2;
        if (boxMin[axis] > mid) {
            lo[axis] = mid;
            bin = 2 * bin;
        } else if (boxMax[axis] > mid) {
            break;  // straddles the split: stays here
        } else {
            hi[axis] = mid;
            bin = 2 * bin + 1;
        }
    }
    return bin;
}

SearchBox ChildCell(const SearchBox& parent, int32_t bin, int level) {
    if (level == 0) return parent;
    SearchBox cell = parent;
    bool acrossX = level % 2 == 1;
    uint8_t& lo = acrossX ? cell.xmin : cell.ymin;
    uint8_t& hi = acrossX ? cell.xmax : cell.ymax;
    auto mid = static_cast<uint8_t>(lo + (hi - lo) / 2);
    if (bin % 2 == 1) {
        hi = mid;
    } else {
        lo = mid;
    }
    return cell;
}

int BinLevel(int32_t bin) {
    return bin < 1 ? 0 : std::bit_width(static_cast<uint32_t>(bin)) - 1;
}

}  // namespace quillet
