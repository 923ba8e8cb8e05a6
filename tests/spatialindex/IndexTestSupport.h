#pragma once

// Helpers of the bin index tests: layers of boxes, building and searching
// their index.

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "foundation/WKSEnvelope.h"
#include "spatialindex/BinIndex.h"
#include "support/TestSupport.h"

namespace quillet::test {

// Feature n + 1 has box boxes[n]; an empty box is a null shape.
struct Layer {
    WKSEnvelope extent;
    std::vector<WKSEnvelope> boxes;
};

// Builds the index of the layer at `path`; false when the builder fails.
bool BuildIndex(const std::filesystem::path& path, const Layer& layer);

// The sorted feature numbers a search finds, each added once.
std::vector<int32_t> Find(BinIndex& index, const WKSEnvelope& window);
std::vector<int32_t> Find(const std::filesystem::path& path, const WKSEnvelope& window);

// The union of the non-empty boxes (empty when there are none).
WKSEnvelope UnionOf(const std::vector<WKSEnvelope>& boxes);

// A random layer of `count` features: points, tiny and huge boxes, features
// on the extent's edges and corners and some null shapes, over a random
// extent that may be a line or a point.
Layer RandomLayer(std::mt19937_64& random, int count);

// A random query window around `extent`: mostly overlapping it, of any size
// from a point to more than the extent, sometimes only touching its edges.
WKSEnvelope RandomWindow(std::mt19937_64& random, const WKSEnvelope& extent);

// The header's extent and the boxes of a shape data file's records; empty
// boxes for null shapes and unreadable records.
Layer ReadShapeLayer(const std::filesystem::path& shp);

}  // namespace quillet::test
