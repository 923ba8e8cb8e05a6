// The search against brute force: random layers and windows, and the layers of
// the sample shape data files written by other programs.

#include <gtest/gtest.h>

#include <map>

#include "IndexTestSupport.h"
#include "foundation/IEnvelope.h"
#include "spatialindex/BinIndex.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

// Feature number -> its box on the grid, from the file; every feature with a
// box must be stored exactly once, and null shapes never.
std::map<int32_t, GridBox> StoredBoxes(const IndexDump& dump, const Layer& layer) {
    std::map<int32_t, GridBox> stored;
    for (int32_t bin = 1; bin <= static_cast<int32_t>(dump.bins.size()); ++bin) {
        if (dump.bins[static_cast<size_t>(bin - 1)].count == 0) continue;
        for (const auto& e : BinEntries(dump, bin)) {
            EXPECT_TRUE(stored.emplace(e.featureNumber, e.box).second)
                << "feature " << e.featureNumber << " stored twice";
        }
    }
    for (size_t i = 0; i < layer.boxes.size(); ++i) {
        EXPECT_EQ(stored.count(static_cast<int32_t>(i + 1)), layer.boxes[i].IsEmpty() ? 0u : 1u)
            << "feature " << i + 1;
    }
    return stored;
}

// Checks one window; false after the first failure so that a broken layer
// reports once.
bool CheckWindow(BinIndex& index, const Layer& layer, const std::map<int32_t, GridBox>& stored,
                 const WKSEnvelope& window) {
    Envelope query(window);
    RecNumSet found;
    int32_t added = index.Search(&query, &found);
    auto n = static_cast<int32_t>(layer.boxes.size());
    if (window.Contains(layer.extent)) {
        EXPECT_EQ(added, n);
        EXPECT_EQ(found.Count(), n);
        EXPECT_TRUE(n == 0 || (found.Contains(1) && found.Contains(n)));
        return !::testing::Test::HasFailure();
    }
    EXPECT_EQ(found.Count(), added) << "a feature was added twice";
    for (int32_t i = 0; i < n; ++i) {
        const auto& box = layer.boxes[static_cast<size_t>(i)];
        if (!box.IsEmpty() && box.Intersects(window) && !found.Contains(i + 1)) {
            ADD_FAILURE() << "missed feature " << i + 1 << " [" << box.XMin << ", " << box.YMin
                          << ", " << box.XMax << ", " << box.YMax << "] in window ["
                          << window.XMin << ", " << window.YMin << ", " << window.XMax << ", "
                          << window.YMax << "]";
            return false;
        }
    }
    SearchBox queryBox = QueryGridBox(window, index.GetMapping());
    for (int32_t feature : found.ToVector()) {
        auto it = stored.find(feature);
        if (it == stored.end() || !IsOver(it->second, queryBox)) {
            ADD_FAILURE() << "feature " << feature << " returned outside the query's grid box";
            return false;
        }
    }
    return true;
}

void CheckLayer(const Layer& layer, std::mt19937_64& random, int windows) {
    TempDir dir;
    auto path = dir / "layer.sbn";
    ASSERT_TRUE(BuildIndex(path, layer));
    BinIndex index(WidePath(path).c_str());
    ASSERT_TRUE(index.IsOpen());
    EXPECT_EQ(index.GetFeatureCount(), static_cast<int32_t>(layer.boxes.size()));
    auto stored = StoredBoxes(DumpIndex(path), layer);
    for (int i = 0; i < windows; ++i) {
        if (!CheckWindow(index, layer, stored, RandomWindow(random, layer.extent))) return;
    }
    WKSEnvelope all = layer.extent;
    all.XMin -= 1;
    all.YMax += 1;
    CheckWindow(index, layer, stored, all);
}

TEST(BinIndexSearchTest, RandomLayersAgreeWithBruteForce) {
    std::mt19937_64 random(20261122);
    const std::pair<int, int> layers[] = {{0, 50},     {1, 200},    {2, 200},   {24, 500},
                                          {25, 500},   {200, 1000}, {1000, 1000},
                                          {5000, 500}, {30000, 200}, {200000, 80}};
    for (auto [features, windows] : layers) {
        for (int round = 0; round < (features < 1000 ? 6 : 1); ++round) {
            SCOPED_TRACE("layer of " + std::to_string(features) + " features, round " +
                         std::to_string(round));
            CheckLayer(RandomLayer(random, features), random, windows);
            if (HasFailure()) return;
        }
    }
}

TEST(BinIndexSearchTest, LayerOfOnePoint) {
    std::mt19937_64 random(7);
    Layer layer{WKSEnvelope{5, 7, 5, 7}, {WKSEnvelope{5, 7, 5, 7}}};
    CheckLayer(layer, random, 300);
    for (WKSEnvelope window : {WKSEnvelope{4, 6, 5, 7}, WKSEnvelope{5, 7, 6, 8},
                               WKSEnvelope{5, 6, 5, 8}}) {
        TempDir dir;
        ASSERT_TRUE(BuildIndex(dir / "p.sbn", layer));
        BinIndex index(dir.Wide("p.sbn").c_str());
        Envelope query(window);
        RecNumSet found;
        EXPECT_EQ(index.Search(&query, &found), 1);
    }
}

TEST(BinIndexSearchTest, WindowTouchingTheExtentFindsTheFeaturesOnThatEdge) {
    Layer layer{WKSEnvelope{0, 0, 100, 100}, {}};
    for (int i = 0; i <= 100; ++i) {
        layer.boxes.push_back(WKSEnvelope{100, double(i), 100, double(i)});  // right edge
        layer.boxes.push_back(WKSEnvelope{double(i), 50, double(i) + 0.5, 50.5});
    }
    TempDir dir;
    ASSERT_TRUE(BuildIndex(dir / "e.sbn", layer));
    BinIndex index(dir.Wide("e.sbn").c_str());
    Envelope touching(100, -10, 150, 110);
    RecNumSet found;
    index.Search(&touching, &found);
    for (int i = 0; i <= 100; ++i) EXPECT_TRUE(found.Contains(2 * i + 1)) << i;
}

TEST(BinIndexSearchTest, PointFeatureIsFoundByAWindowTouchingIt) {
    Layer layer{WKSEnvelope{0, 0, 255, 255}, {WKSEnvelope{100, 100, 100, 100}}};
    for (int i = 0; i < 40; ++i) layer.boxes.push_back(WKSEnvelope{200, 200, 201, 201});
    TempDir dir;
    ASSERT_TRUE(BuildIndex(dir / "p.sbn", layer));
    BinIndex index(dir.Wide("p.sbn").c_str());
    for (WKSEnvelope window : {WKSEnvelope{90, 90, 100, 100}, WKSEnvelope{100, 100, 110, 110},
                               WKSEnvelope{100, 0, 100, 255}}) {
        Envelope query(window);
        RecNumSet found;
        index.Search(&query, &found);
        EXPECT_TRUE(found.Contains(1));
    }
}

TEST(BinIndexSearchTest, WholeExtentAddsAllFeaturesEvenOutsideIt) {
    Layer layer{WKSEnvelope{0, 0, 10, 10},
                {WKSEnvelope{1, 1, 2, 2}, WKSEnvelope{0, 0, -1, -1}, WKSEnvelope{50, 50, 60, 60}}};
    TempDir dir;
    ASSERT_TRUE(BuildIndex(dir / "w.sbn", layer));
    BinIndex index(dir.Wide("w.sbn").c_str());
    Envelope all(0, 0, 10, 10);
    RecNumSet found;
    EXPECT_EQ(index.Search(&all, &found), 3);
    EXPECT_EQ(found.ToVector(), (std::vector<int32_t>{1, 2, 3}));
}

TEST(BinIndexSearchTest, EmptyQueriesAndMissingIndexFindNothing) {
    TempDir dir;
    BinIndex missing(dir.Wide("none.sbn").c_str());
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(missing.GetByteOrder(), -1);
    RecNumSet found;
    Envelope window(1, 1, 2, 2);
    EXPECT_EQ(missing.Search(&window, &found), 0);
    Envelope aroundZero(-1, -1, 1, 1);  // contains the empty index's extent 0,0,0,0
    EXPECT_EQ(missing.Search(&aroundZero, &found), 0);
    EXPECT_EQ(found.Count(), 0);

    Layer layer{WKSEnvelope{0, 0, 10, 10}, {WKSEnvelope{1, 1, 2, 2}}};
    ASSERT_TRUE(BuildIndex(dir / "one.sbn", layer));
    BinIndex index(dir.Wide("one.sbn").c_str());
    Envelope empty;
    EXPECT_EQ(index.Search(&empty, &found), 0);
    EXPECT_EQ(index.Search(nullptr, &found), 0);
    EXPECT_EQ(found.Count(), 0);
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
        TempDir dir;
        ASSERT_TRUE(BuildIndex(dir / "s.sbn", layer));
        BinIndex index(dir.Wide("s.sbn").c_str());
        auto stored = StoredBoxes(DumpIndex(dir / "s.sbn"), layer);
        // Windows over the records' real extent, which a stale header may not cover.
        WKSEnvelope real = UnionOf(layer.boxes);
        for (int i = 0; i < 300; ++i) {
            if (!CheckWindow(index, layer, stored, RandomWindow(random, real))) break;
        }
        ++layers;
    }
    EXPECT_GT(layers, 5);
}

}  // namespace
}  // namespace quillet::test
