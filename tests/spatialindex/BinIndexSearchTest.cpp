// The search against brute force: random layers and windows, and the layers of
// the sample shape data files written by other programs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "IndexTestSupport.h"
#include "foundation/IEnvelope.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/BinIndexFormat.h"
#include "spatialindex/EntryScan.h"

namespace quillet::test {
namespace {

// Checks that no feature whose box meets the window is missed (a window
// holding the extent finds all, null shapes too) and that none is found whose
// grid box misses the window's; false after the first failure so that a
// broken layer reports once.
bool CheckWindow(BinIndex& index, const Layer& layer, const WKSEnvelope& window) {
    auto found = Find(index, window);
    auto n = static_cast<int32_t>(layer.boxes.size());
    if (window.Contains(layer.extent)) {
        EXPECT_EQ(found.size(), layer.boxes.size());
        return found.size() == layer.boxes.size();
    }
    for (int32_t i = 0; i < n; ++i) {
        const auto& box = layer.boxes[static_cast<size_t>(i)];
        if (!box.IsEmpty() && box.Intersects(window) &&
            !std::binary_search(found.begin(), found.end(), i + 1)) {
            ADD_FAILURE() << "missed feature " << i + 1 << " [" << box.XMin << ", " << box.YMin
                          << ", " << box.XMax << ", " << box.YMax << "] in window ["
                          << window.XMin << ", " << window.YMin << ", " << window.XMax << ", "
                          << window.YMax << "]";
            return false;
        }
    }
    // The grid is only comparable where the reader's scales are finite.
    const GridMapping& m = index.GetMapping();
    if (!std::isfinite(m.xscale) || !std::isfinite(m.yscale)) return true;
    for (int32_t feature : found) {
        const auto& box = layer.boxes.at(static_cast<size_t>(feature - 1));
        if (box.IsEmpty() || !IsOver(FeatureGridBox(box, m), QueryGridBox(window, m))) {
            ADD_FAILURE() << "feature " << feature << " found outside the window's grid box";
            return false;
        }
    }
    return true;
}

// Random windows around `around`, then one around the whole extent.
void CheckLayer(const Layer& layer, std::mt19937_64& random, int windows,
                const WKSEnvelope& around) {
    TempDir dir;
    auto path = dir / "layer.sbn";
    ASSERT_TRUE(BuildIndex(path, layer));
    BinIndex index(WidePath(path).c_str());
    for (int i = 0; i < windows; ++i) {
        if (!CheckWindow(index, layer, RandomWindow(random, around))) return;
    }
    const WKSEnvelope& e = layer.extent;
    CheckWindow(index, layer, WKSEnvelope{e.XMin - 1, e.YMin, e.XMax, e.YMax + 1});
}

TEST(BinIndexSearchTest, RandomLayersAgreeWithBruteForce) {
    std::mt19937_64 seven(7);
    // A layer whose extent is its one point.
    const WKSEnvelope point{5, 7, 5, 7};
    CheckLayer(Layer{point, {point}}, seven, 300, point);
    std::mt19937_64 random(20261122);
    const std::pair<int, int> layers[] = {{0, 50},     {1, 200},    {2, 200},   {24, 500},
                                          {25, 500},   {200, 1000}, {1000, 1000},
                                          {5000, 500}, {30000, 200}, {200000, 80}};
    for (auto [features, windows] : layers) {
        for (int round = 0; round < (features < 1000 ? 6 : 1); ++round) {
            SCOPED_TRACE("layer of " + std::to_string(features) + " features, round " +
                         std::to_string(round));
            Layer layer = RandomLayer(random, features);
            CheckLayer(layer, random, windows, layer.extent);
            if (HasFailure()) return;
        }
    }
}

// Points on the extent's right edge, where the grid ends, found by a window
// that only touches that edge.
TEST(BinIndexSearchTest, WindowTouchingTheExtentFindsTheFeaturesOnThatEdge) {
    Layer layer{WKSEnvelope{0, 0, 100, 100}, {}};
    for (int i = 0; i <= 100; ++i) {
        layer.boxes.push_back(WKSEnvelope{100, double(i), 100, double(i)});
        layer.boxes.push_back(WKSEnvelope{double(i), 50, double(i) + 0.5, 50.5});
    }
    TempDir dir;
    ASSERT_TRUE(BuildIndex(dir / "e.sbn", layer));
    auto found = Find(dir / "e.sbn", WKSEnvelope{100, -10, 150, 110});
    for (int i = 0; i <= 100; ++i) {
        EXPECT_TRUE(std::binary_search(found.begin(), found.end(), 2 * i + 1)) << i;
    }
}

TEST(BinIndexSearchTest, WholeExtentAddsAllFeaturesEvenOutsideItAndEmptyQueriesNone) {
    Layer layer{WKSEnvelope{0, 0, 10, 10},
                {WKSEnvelope{1, 1, 2, 2}, WKSEnvelope{0, 0, -1, -1}, WKSEnvelope{50, 50, 60, 60}}};
    TempDir dir;
    ASSERT_TRUE(BuildIndex(dir / "w.sbn", layer));
    EXPECT_EQ(Find(dir / "w.sbn", WKSEnvelope{0, 0, 10, 10}), (std::vector<int32_t>{1, 2, 3}));
    EXPECT_TRUE(Find(dir / "w.sbn", WKSEnvelope{0, 0, -1, -1}).empty());
    RecNumSet found;
    EXPECT_EQ(BinIndex(dir.Wide("w.sbn").c_str()).Search(nullptr, &found), 0);
    EXPECT_EQ(BinIndex(dir.Wide("none.sbn").c_str()).GetByteOrder(), -1);
    EXPECT_TRUE(Find(dir / "none.sbn", WKSEnvelope{1, 1, 2, 2}).empty());
    // Holds the missing index's extent 0, 0, 0, 0, which has no features.
    EXPECT_TRUE(Find(dir / "none.sbn", WKSEnvelope{-1, -1, 1, 1}).empty());
}

// The test of a bin's entries against IsOver itself, on boxes no builder
// writes (minimum above maximum) and queries of either kind, in runs of any
// length and both byte orders. Few distinct values make ends coincide often.
TEST(BinIndexSearchTest, EntryScanAgreesWithIsOverOnAnyBoxes) {
    std::mt19937_64 random(14);
    auto value = [&] { return static_cast<uint8_t>(random() % 8 * 36); };
    for (int round = 0; round < 4000; ++round) {
        bool bigEndian = round % 2 == 0;
        auto count = static_cast<int32_t>(random() % 40);
        const SearchBox query{value(), value(), value(), value()};
        Bytes entries(static_cast<size_t>(count) * BinFeatureRec::kLength);
        std::vector<int32_t> expected;
        for (int32_t i = 0; i < count; ++i) {
            const BinFeatureRec entry{GridBox{value(), value(), value(), value()},
                                      1 + i * 0x01000193};
            entry.EncodeTo(&entries[static_cast<size_t>(i) * BinFeatureRec::kLength], bigEndian);
            if (IsOver(entry.box, query)) expected.push_back(entry.featureNumber);
        }
        RecNumSet found;
        ASSERT_EQ(AddEntriesOver(entries.data(), count, query, bigEndian, &found),
                  static_cast<int32_t>(expected.size()));
        ASSERT_EQ(found.ToVector(), expected);
    }
}

TEST(BinIndexSearchTest, SampleLayersAgreeWithTheirRecordBoxes) {
    QUILLET_REQUIRE_PEER_SAMPLES();
    std::mt19937_64 random(99);
    int layers = 0;
    for (const auto& entry : std::filesystem::directory_iterator(PeerSamplesDir())) {
        if (entry.path().extension() != ".shp") continue;
        Layer layer = ReadShapeLayer(entry.path());
        if (layer.boxes.empty()) continue;  // no record file, or no records
        SCOPED_TRACE(entry.path().filename().string());
        // Windows over the records' real extent, which a stale header may not cover.
        CheckLayer(layer, random, 300, UnionOf(layer.boxes));
        ++layers;
    }
    EXPECT_GT(layers, 0);
}

}  // namespace
}  // namespace quillet::test
