// What the builder writes, read back record by record.

#include <gtest/gtest.h>

#include <cstring>

#include "IndexTestSupport.h"
#include "foundation/ByteOrder.h"
#include "foundation/IEnvelope.h"
#include "recordfile/VFile.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/BinIndexBuilder.h"
#include "support/TestSupport.h"

namespace quillet::test {
namespace {

// Extent 0..255 on both axes: a coordinate c maps to grid min round(c) and
// grid max round(c) + 1.
const WKSEnvelope kGrid{0, 0, 255, 255};

std::vector<int32_t> Numbers(const std::vector<BinFeatureRec>& entries) {
    std::vector<int32_t> numbers;
    for (const auto& e : entries) numbers.push_back(e.featureNumber);
    return numbers;
}

// Builds with a declared feature count (which sets the levels) that may differ
// from the features given.
void Build(const std::filesystem::path& path, int32_t declared,
           const std::vector<std::pair<int32_t, WKSEnvelope>>& features) {
    BinIndexBuilder builder;
    Envelope extent(kGrid);
    ASSERT_TRUE(builder.Create(WidePath(path).c_str(), declared, &extent));
    for (const auto& [number, box] : features) {
        Envelope e(box);
        ASSERT_TRUE(builder.AddFeature(number, &e));
    }
    ASSERT_TRUE(builder.Finish());
}

TEST(BinIndexBuilderTest, WritesABigEndianDoubleHeaderAndTheBinMap) {
    TempDir dir;
    Layer layer{WKSEnvelope{-1.5, 2.25, 1e6, 3e6}, {WKSEnvelope{0, 3, 1, 4}}};
    ASSERT_TRUE(BuildIndex(dir / "h.sbn", layer));
    auto bytes = ReadBytes(dir / "h.sbn");
    ASSERT_GE(bytes.size(), 100u);
    EXPECT_EQ(DecodeFixed32BE(&bytes[0]), 9994u);
    EXPECT_EQ(static_cast<int32_t>(DecodeFixed32BE(&bytes[4])), -400);
    EXPECT_EQ(DecodeFixed32BE(&bytes[28]), 1u);
    EXPECT_EQ(DecodeDoubleBE(&bytes[32]), -1.5);
    EXPECT_EQ(DecodeDoubleBE(&bytes[40]), 2.25);
    EXPECT_EQ(DecodeDoubleBE(&bytes[48]), 1e6);
    EXPECT_EQ(DecodeDoubleBE(&bytes[56]), 3e6);
    EXPECT_TRUE(std::filesystem::exists(dir / "h.sbx"));

    auto dump = DumpIndex(dir / "h.sbn");
    EXPECT_EQ(dump.userType, -400);
    EXPECT_TRUE(dump.bigEndian);
    EXPECT_EQ(dump.header.featureCount, 1);
    ASSERT_EQ(dump.records.size(), 2u);
    EXPECT_EQ(dump.records[1].size(), 1u);
}

TEST(BinIndexBuilderTest, FeatureStraddlingTheCentreStaysInTheRoot) {
    TempDir dir;
    Build(dir / "c.sbn", 1000, {{7, WKSEnvelope{100, 10, 200, 20}}});
    auto dump = DumpIndex(dir / "c.sbn");
    ASSERT_EQ(dump.bins.size(), 1u);  // the map ends at the highest used bin
    EXPECT_EQ(dump.bins[0].first, 2);
    EXPECT_EQ(dump.bins[0].count, 1);
    ASSERT_EQ(dump.records.size(), 2u);
    EXPECT_EQ(dump.records[1][0].featureNumber, 7);
    EXPECT_EQ(dump.records[1][0].box, (GridBox{100, 10, 201, 21}));
}

TEST(BinIndexBuilderTest, LayerOfOnePointMapsEveryFeatureToOneBox) {
    TempDir dir;
    Layer layer{WKSEnvelope{3, 4, 3, 4}, std::vector<WKSEnvelope>(30, WKSEnvelope{3, 4, 3, 4})};
    ASSERT_TRUE(BuildIndex(dir / "p.sbn", layer));
    auto dump = DumpIndex(dir / "p.sbn");
    // 30 features: 3 levels. Box (0, 0, 1, 1) takes the lower half twice.
    ASSERT_EQ(dump.bins.size(), 7u);
    EXPECT_EQ(dump.bins[6].count, 30);
    auto entries = BinEntries(dump, 7);
    ASSERT_EQ(entries.size(), 30u);
    for (const auto& e : entries) EXPECT_EQ(e.box, (GridBox{0, 0, 1, 1}));
}

TEST(BinIndexBuilderTest, SparseSiblingsMergeIntoTheirParent) {
    // Three levels (declared 25). Bin 3 is x's lower half; its children split y:
    // 6 the upper half, 7 the lower.
    const WKSEnvelope inParent{10, 100, 20, 200};
    const WKSEnvelope inUpper{10, 150, 20, 160};
    const WKSEnvelope inLower{10, 10, 20, 20};
    TempDir dir;
    Build(dir / "m.sbn", 25,
          {{1, inUpper}, {2, inLower}, {3, inUpper}, {4, inLower}, {5, inParent}, {6, inUpper},
           {7, inLower}, {8, inLower}});
    auto dump = DumpIndex(dir / "m.sbn");
    ASSERT_EQ(dump.bins.size(), 3u);
    EXPECT_EQ(dump.bins[2].count, 8);
    EXPECT_EQ(dump.bins[2].first, 2);
    EXPECT_EQ(dump.bins[0].first, -1);
    // The parent's own feature, then the children's, in bin order.
    ASSERT_EQ(dump.records.size(), 2u);
    EXPECT_EQ(Numbers(dump.records[1]), (std::vector<int32_t>{5, 1, 3, 6, 2, 4, 7, 8}));
}

TEST(BinIndexBuilderTest, ParentWithoutFeaturesOfItsOwnReservesItsRecord) {
    const WKSEnvelope inUpper{10, 150, 20, 160};
    const WKSEnvelope inLower{10, 10, 20, 20};
    const WKSEnvelope inBin2{200, 10, 210, 200};
    TempDir dir;
    Build(dir / "r.sbn", 25,
          {{1, inLower}, {2, inUpper}, {3, inLower}, {4, inBin2}, {5, inUpper}, {6, inLower},
           {7, inUpper}, {8, inLower}});
    auto dump = DumpIndex(dir / "r.sbn");
    ASSERT_EQ(dump.bins.size(), 3u);
    EXPECT_EQ(dump.bins[1].count, 1);
    EXPECT_EQ(dump.bins[2].count, 7);
    // Bin 2's record comes first, bin 3's after it, filled in place: no
    // record was appended twice.
    ASSERT_EQ(dump.records.size(), 3u);
    EXPECT_EQ(Numbers(dump.records[1]), (std::vector<int32_t>{4}));
    EXPECT_EQ(Numbers(dump.records[2]), (std::vector<int32_t>{2, 5, 7, 1, 3, 6, 8}));

    BinIndex index(dir.Wide("r.sbn").c_str());
    Envelope query(0, 0, 30, 30);
    RecNumSet found;
    index.Search(&query, &found);
    EXPECT_EQ(found.ToVector(), (std::vector<int32_t>{1, 3, 6, 8}));
}

TEST(BinIndexBuilderTest, GrandchildrenBelowTheHighestBinStopAMerge) {
    // Four levels (declared 100). Under bin 3 (x < 128): bin 6 (y > 128) with
    // children 12 (x > 64) and 13, bin 7 (y < 128) with children 14 and 15.
    const WKSEnvelope inSix{10, 150, 100, 160};  // straddles x 64
    const WKSEnvelope inTwelve{70, 150, 80, 160};
    const WKSEnvelope inSeven{10, 10, 100, 20};
    const WKSEnvelope inFifteen{10, 10, 20, 20};
    std::vector<std::pair<int32_t, WKSEnvelope>> features = {{1, inSix}, {2, inSeven}};
    for (int32_t i = 3; i <= 10; ++i) features.push_back({i, inTwelve});

    TempDir dir;
    // Bin 15 in use makes 12 and 13 count: 6 has features below, so 6 and 7
    // stay apart (15 itself merges into 7).
    auto withFifteen = features;
    withFifteen.push_back({11, inFifteen});
    Build(dir / "g1.sbn", 100, withFifteen);
    auto dump = DumpIndex(dir / "g1.sbn");
    ASSERT_EQ(dump.bins.size(), 12u);
    EXPECT_EQ(dump.bins[2].count, 0);
    EXPECT_EQ(dump.bins[5].count, 1);
    EXPECT_EQ(dump.bins[6].count, 2);
    EXPECT_EQ(dump.bins[11].count, 8);

    // Without it the highest used bin is 12, so 12 and 13 are not looked at,
    // and 6 and 7 merge into 3 while 12 keeps its features.
    Build(dir / "g2.sbn", 100, features);
    dump = DumpIndex(dir / "g2.sbn");
    ASSERT_EQ(dump.bins.size(), 12u);
    EXPECT_EQ(dump.bins[2].count, 2);
    EXPECT_EQ(dump.bins[5].count, 0);
    EXPECT_EQ(dump.bins[11].count, 8);
    BinIndex index(dir.Wide("g2.sbn").c_str());
    Envelope query(0, 0, 127, 254);
    RecNumSet found;
    EXPECT_EQ(index.Search(&query, &found), 10);
}

TEST(BinIndexBuilderTest, FullBinsTakeConsecutiveRecordsOfAHundred) {
    std::vector<std::pair<int32_t, WKSEnvelope>> features;
    for (int32_t i = 1; i <= 250; ++i) features.push_back({i, WKSEnvelope{100, 100, 200, 200}});
    for (int32_t i = 251; i <= 255; ++i) features.push_back({i, WKSEnvelope{200, 10, 210, 20}});
    TempDir dir;
    Build(dir / "f.sbn", 255, features);
    auto dump = DumpIndex(dir / "f.sbn");
    EXPECT_EQ(dump.bins[0].first, 2);
    EXPECT_EQ(dump.bins[0].count, 250);
    ASSERT_EQ(dump.records.size(), 5u);
    EXPECT_EQ(dump.records[1].size(), 100u);
    EXPECT_EQ(dump.records[2].size(), 100u);
    EXPECT_EQ(dump.records[3].size(), 50u);
    EXPECT_EQ(dump.records[3].back().featureNumber, 250);
    EXPECT_EQ(dump.records[4].size(), 5u);
    // The small bin's record follows: first = its record number + 1.
    int32_t found = 0;
    for (const auto& b : dump.bins) {
        if (b.count == 5) {
            EXPECT_EQ(b.first, 5);
            ++found;
        }
    }
    EXPECT_EQ(found, 1);
}

TEST(BinIndexBuilderTest, EmptyLayerKeepsTheRootInTheMap) {
    TempDir dir;
    Layer layer{WKSEnvelope{0, 0, -1, -1}, {WKSEnvelope{0, 0, -1, -1}, WKSEnvelope{0, 0, -1, -1}}};
    ASSERT_TRUE(BuildIndex(dir / "e.sbn", layer));
    auto dump = DumpIndex(dir / "e.sbn");
    EXPECT_EQ(dump.header.featureCount, 2);
    ASSERT_EQ(dump.bins.size(), 1u);
    EXPECT_EQ(dump.bins[0].first, -1);
    EXPECT_EQ(dump.bins[0].count, 0);
    EXPECT_EQ(dump.records.size(), 1u);
}

TEST(BinIndexBuilderTest, RefusesWorkWithoutAFile) {
    BinIndexBuilder builder;
    Envelope box(0, 0, 1, 1);
    EXPECT_FALSE(builder.AddFeature(1, &box));
    EXPECT_FALSE(builder.Finish());
    TempDir dir;
    EXPECT_FALSE(builder.Create(dir.Wide("no/such/folder/x.sbn").c_str(), 1, &box));
    EXPECT_FALSE(builder.AddFeature(1, &box));
    EXPECT_FALSE(builder.Create(dir.Wide("x.sbn").c_str(), 1, nullptr));
}

TEST(BinIndexBuilderTest, CompareOrdersByBinThenFeature) {
    auto element = [](int32_t feature, int32_t bin) {
        std::vector<unsigned char> bytes(12, 0);
        std::memcpy(&bytes[4], &feature, 4);
        std::memcpy(&bytes[8], &bin, 4);
        return bytes;
    };
    auto a = element(9, 2);
    auto b = element(1, 3);
    auto c = element(10, 2);
    ExternalSort::SortElement ea{12, a.data()}, eb{12, b.data()}, ec{12, c.data()};
    EXPECT_EQ(BinIndexBuilder::Compare(&ea, &eb), -1);
    EXPECT_EQ(BinIndexBuilder::Compare(&eb, &ea), 1);
    EXPECT_EQ(BinIndexBuilder::Compare(&ea, &ec), -1);
    EXPECT_EQ(BinIndexBuilder::Compare(&ea, &ea), 0);
}

TEST(BinIndexBuilderTest, DeleteIndexRemovesBothFiles) {
    TempDir dir;
    ASSERT_TRUE(BuildIndex(dir / "d.sbn", Layer{kGrid, {WKSEnvelope{1, 1, 2, 2}}}));
    EXPECT_TRUE(BinIndex::IndexExists(dir.Wide("d.sbn").c_str()));
    EXPECT_TRUE(BinIndex::DeleteIndex(dir.Wide("d.sbn").c_str()));
    EXPECT_FALSE(BinIndex::IndexExists(dir.Wide("d.sbn").c_str()));
    EXPECT_TRUE(dir.Files().empty());
}

}  // namespace
}  // namespace quillet::test
