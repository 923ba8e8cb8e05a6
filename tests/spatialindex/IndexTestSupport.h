#pragma once

// Helpers of the bin index tests: layers of boxes, building their index, and
// reading an index file back record by record, independently of BinIndex.

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "foundation/WKSEnvelope.h"
#include "spatialindex/BinIndexFormat.h"

namespace quillet::test {

// A path as the library takes it (the tests' paths are ASCII).
std::wstring WidePath(const std::filesystem::path& path);

// Feature n + 1 has box boxes[n]; an empty box is a null shape.
struct Layer {
    WKSEnvelope extent;
    std::vector<WKSEnvelope> boxes;
};

// Builds the index of the layer at `path`; false when the builder fails.
bool BuildIndex(const std::filesystem::path& path, const Layer& layer);

// An index file as it is on disk.
struct IndexDump {
    int32_t userType = 0;
    bool bigEndian = true;
    BinIndexHeader header;
    std::vector<BinMapEntry> bins;                     // bins[0] is bin 1
    std::vector<std::vector<BinFeatureRec>> records;   // records[0] is empty (the bin map)
};
IndexDump DumpIndex(const std::filesystem::path& path);

// The entries of bin b (1-based) through its map entry, in order.
std::vector<BinFeatureRec> BinEntries(const IndexDump& dump, int32_t bin);

// The union of the non-empty boxes (empty when there are none).
WKSEnvelope UnionOf(const std::vector<WKSEnvelope>& boxes);

// A random layer of `count` features: points, tiny and huge boxes, features
// on the extent's edges and some null shapes, over a random extent.
Layer RandomLayer(std::mt19937_64& random, int count);

// A random query window around `extent`: mostly overlapping it, of any size
// from a point to more than the extent.
WKSEnvelope RandomWindow(std::mt19937_64& random, const WKSEnvelope& extent);

// The header's extent and the boxes of a shape data file's records; empty
// boxes for null shapes and unreadable records.
Layer ReadShapeLayer(const std::filesystem::path& shp);

}  // namespace quillet::test
