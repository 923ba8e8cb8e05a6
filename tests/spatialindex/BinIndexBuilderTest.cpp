// The grid of bins, and what the builder writes, read back record by record.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "IndexTestSupport.h"
#include "foundation/ByteOrder.h"
#include "foundation/IEnvelope.h"
#include "recordfile/VFile.h"
#include "spatialindex/BinGrid.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/BinIndexBuilder.h"

namespace quillet::test {
namespace {

using Numbers = std::vector<int32_t>;
using Features = std::vector<std::pair<int32_t, WKSEnvelope>>;

// What the builder wrote, read back without BinIndex: the feature count, the
// bin map, and the feature numbers of records 1, 2, ...
struct IndexDump {
    int32_t featureCount = 0;
    std::vector<BinMapEntry> bins;
    std::vector<Numbers> records;
};

IndexDump DumpIndex(const std::filesystem::path& path) {
    IndexDump dump;
    VFile file(WidePath(path).c_str());
    EXPECT_TRUE(file.Open(VFile::kReadOnly, VFile::kIndexed, true, false));
    unsigned char header[BinIndexHeader::kDoubleLength] = {};
    EXPECT_TRUE(file.ReadUserHeader(header, BinIndexHeader::kDoubleLength));
    BinIndexHeader decoded;
    decoded.DecodeFrom(header, file.GetUserType(), true);
    dump.featureCount = decoded.featureCount;
    for (int32_t n = 0; n < file.GetNumRecs(); ++n) {
        std::vector<unsigned char> bytes(static_cast<size_t>(std::max(file.GetRecordLength(n), 0)));
        EXPECT_TRUE(file.ReadRecord(n, bytes.data(), static_cast<int32_t>(bytes.size())));
        if (n > 0) dump.records.emplace_back();
        for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
            if (n == 0) {
                dump.bins.emplace_back().DecodeFrom(&bytes[i], true);
            } else {
                BinFeatureRec entry;
                entry.DecodeFrom(&bytes[i], true);
                dump.records.back().push_back(entry.featureNumber);
            }
        }
    }
    return dump;
}

Numbers Iota(int32_t first, int32_t last) {
    Numbers numbers;
    for (int32_t n = first; n <= last; ++n) numbers.push_back(n);
    return numbers;
}

// `count` features numbered from `first`, all with one box.
Features Many(int32_t first, int32_t count, const WKSEnvelope& box) {
    Features features;
    for (int32_t n = first; n < first + count; ++n) features.push_back({n, box});
    return features;
}

Features operator+(Features a, const Features& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(BinIndexBuilderTest, WritesABigEndianDoubleHeaderAndDeletesBothFiles) {
    TempDir dir;
    Layer layer{WKSEnvelope{-1.5, 2.25, 1e6, 3e6}, {WKSEnvelope{0, 3, 1, 4}}};
    ASSERT_TRUE(BuildIndex(dir / "h.sbn", layer));
    auto bytes = ReadBytes(dir / "h.sbn");
    ASSERT_GE(bytes.size(), 100u);
    EXPECT_EQ(DecodeFixed32BE(&bytes[0]), 9994u);
    EXPECT_EQ(static_cast<int32_t>(DecodeFixed32BE(&bytes[4])), -400);
    EXPECT_EQ(DecodeFixed32BE(&bytes[28]), 1u);
    const double extent[] = {-1.5, 2.25, 1e6, 3e6};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(DecodeDoubleBE(&bytes[32 + 8 * i]), extent[i]);

    EXPECT_TRUE(BinIndex::DeleteIndex(dir.Wide("h.sbn").c_str()));
    EXPECT_FALSE(BinIndex::IndexExists(dir.Wide("h.sbn").c_str()));
    EXPECT_TRUE(dir.Files().empty());
}

// With extent 0..255 a coordinate c maps to grid min round(c) and max
// round(c) + 1. Declaring 25 features gives three levels: bin 3 is x's lower
// half, its children split y (6 the upper half, 7 the lower); 100 gives four,
// with 12 (x > 64) and 13 under 6, 14 and 15 under 7.
const WKSEnvelope kGrid{0, 0, 255, 255};
const WKSEnvelope kNull{0, 0, -1, -1};
const WKSEnvelope kInBin3{10, 100, 20, 200};
const WKSEnvelope kInBin6{10, 150, 20, 160};
const WKSEnvelope kInBin7{10, 10, 20, 20};

TEST(BinIndexBuilderTest, BinMapAndRecordsHoldEachFeatureOnceInBinOrder) {
    const WKSEnvelope point{3, 4, 3, 4};
    const Features sixAndSeven = {{1, kInBin6}, {2, kInBin7}, {3, kInBin6}, {4, kInBin7}};
    const Features grandchildren = Features{{1, WKSEnvelope{10, 150, 100, 160}},  // 6: across x 64
                                            {2, WKSEnvelope{10, 10, 100, 20}}} +  // 7
                                   Many(3, 8, WKSEnvelope{70, 150, 80, 160});     // 12
    struct Case {
        const char* what;
        WKSEnvelope extent;
        int32_t declared;  // sets the levels; may differ from the features given
        Features features;
        Numbers counts;    // of bins 1.. up to the highest used one
        Numbers firsts;
        std::vector<Numbers> records;  // the feature numbers of records 1..
    } cases[] = {
        {"across the centre: the root, whatever the depth", kGrid, 1000,
         {{7, WKSEnvelope{100, 10, 200, 20}}}, {1}, {2}, {{7}}},
        {"only null shapes: an empty root, no records", kNull, 2, {{1, kNull}, {2, kNull}},
         {0}, {-1}, {}},
        {"a layer of one point: box (0, 0, 1, 1) takes the lower halves", point, 30,
         Many(1, 30, point),
         {0, 0, 0, 0, 0, 0, 30}, {-1, -1, -1, -1, -1, -1, 2}, {Iota(1, 30)}},
        {"sparse siblings merge into their parent, its own features first", kGrid, 25,
         sixAndSeven + Features{{5, kInBin3}, {6, kInBin6}, {7, kInBin7}, {8, kInBin7}},
         {0, 0, 8}, {-1, -1, 2}, {{5, 1, 3, 6, 2, 4, 7, 8}}},
        {"a parent without features of its own reserves its record in order", kGrid, 25,
         sixAndSeven + Features{{5, WKSEnvelope{200, 10, 210, 200}}, {6, kInBin6}, {7, kInBin7},
                                {8, kInBin7}},
         {0, 1, 7}, {-1, 2, 3}, {{5}, {1, 3, 6, 2, 4, 7, 8}}},
        {"grandchildren at or past the highest used bin are not looked at", kGrid, 100,
         grandchildren,
         {0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 8}, {-1, -1, 2, -1, -1, -1, -1, -1, -1, -1, -1, 3},
         {{1, 2}, Iota(3, 10)}},
        {"features below 6 keep 6 and 7 apart (15 merges into 7)", kGrid, 100,
         grandchildren + Features{{11, kInBin7}},
         {0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 8}, {-1, -1, -1, -1, -1, 2, 3, -1, -1, -1, -1, 4},
         {{1}, {2, 11}, Iota(3, 10)}},
        {"full bins take consecutive records of a hundred", kGrid, 255,
         Many(1, 250, WKSEnvelope{100, 100, 200, 200}) +
             Many(251, 5, WKSEnvelope{200, 10, 210, 20}),
         {250, 5}, {2, 5}, {Iota(1, 100), Iota(101, 200), Iota(201, 250), Iota(251, 255)}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        BinIndexBuilder builder;
        Envelope extent(c.extent);
        ASSERT_TRUE(builder.Create(dir.Wide("b.sbn").c_str(), c.declared, &extent));
        for (const auto& [number, box] : c.features) {
            Envelope e(box);
            ASSERT_TRUE(builder.AddFeature(number, &e));
        }
        ASSERT_TRUE(builder.Finish());

        IndexDump dump = DumpIndex(dir / "b.sbn");
        EXPECT_EQ(dump.featureCount, c.declared);
        Numbers counts, firsts, all;
        for (const auto& bin : dump.bins) {
            counts.push_back(bin.count);
            firsts.push_back(bin.first);
        }
        EXPECT_EQ(counts, c.counts);
        EXPECT_EQ(firsts, c.firsts);
        EXPECT_EQ(dump.records, c.records);
        // The reader finds them all through the map.
        for (const auto& record : dump.records) all.insert(all.end(), record.begin(), record.end());
        std::sort(all.begin(), all.end());
        if (!all.empty()) {
            EXPECT_EQ(Find(dir / "b.sbn", WKSEnvelope{0, 0, 254, 254}), all);
        }
    }
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

// Grid coordinates equal to the map coordinates: origin 0, scale 1.
constexpr GridMapping kIdentity{0, 0, 1, 1};

GridBox Box(int xmin, int ymin, int xmax, int ymax) {
    return GridBox{uint8_t(xmin), uint8_t(ymin), uint8_t(xmax), uint8_t(ymax)};
}

TEST(BinGridTest, BoxesThatTouchOverlap) {
    EXPECT_TRUE(IsOver(Box(0, 0, 10, 10), Box(10, 10, 20, 20)));
    EXPECT_FALSE(IsOver(Box(0, 0, 10, 10), Box(11, 0, 20, 10)));
    EXPECT_FALSE(IsOver(Box(0, 0, 10, 10), Box(0, 11, 10, 20)));
    EXPECT_TRUE(IsOver(Box(5, 5, 6, 6), Box(0, 0, 255, 255)));  // a inside b
    EXPECT_TRUE(IsOver(Box(0, 0, 255, 255), Box(5, 5, 6, 6)));  // b inside a
}

// Boxes read from a file may have a minimum above their maximum; the rule for
// them is pinned on every ordering of four values on one axis (the other
// axis spans the grid).
TEST(BinGridTest, BoxesWithMinimumAboveMaximumFollowTheSameRule) {
    const int values[] = {3, 5, 7, 9};
    for (int aMin : values) {
        for (int aMax : values) {
            for (int bMin : values) {
                for (int bMax : values) {
                    bool expected = (bMin >= aMin && bMin <= aMax) ||
                                    (bMax >= aMin && bMax <= aMax) ||
                                    (aMin >= bMin && aMax <= bMax);
                    EXPECT_EQ(IsOver(Box(aMin, 0, aMax, 255), Box(bMin, 0, bMax, 255)), expected)
                        << aMin << " " << aMax << " " << bMin << " " << bMax;
                }
            }
        }
    }
    // Over, though comparing each minimum with the other maximum would say not.
    EXPECT_TRUE(IsOver(Box(10, 0, 0, 255), Box(3, 0, 5, 255)));
    EXPECT_FALSE(IsOver(Box(10, 0, 0, 255), Box(12, 0, 20, 255)));
}

// Ties round to even; the reader rounds 1 + x where the builder adds 1 to the
// rounded x, and only the builder turns a maximum it cannot convert into 255.
// Out of range, both keep the low 8 bits of what they convert.
TEST(BinGridTest, QueryAndFeatureBoxesRoundAndClampEachTheirOwnWay) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        WKSEnvelope in;
        GridBox query;
        GridBox feature;
    } cases[] = {
        {{2.5, 3.5, 1.5, 2.5}, Box(2, 4, 2, 4), Box(2, 4, 3, 3)},
        {{-5, 0.5, 2.5, 3.5}, Box(0, 0, 4, 4), Box(0, 0, 3, 5)},
        {{-5, -0.6, 255, 1000}, Box(0, 0, 255, 255), Box(0, 0, 255, 255)},
        {{0, 0, 253.4, 254}, Box(0, 0, 254, 255), Box(0, 0, 254, 255)},
        {{300, 256, -10, -1}, Box(44, 0, 247, 0), Box(44, 0, 247, 0)},
        {{1e12, nan, nan, -inf}, Box(0, 0, 0, 0), Box(0, 0, 255, 0)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << c.in.XMin << ", " << c.in.YMin << ", " << c.in.XMax << ", " << c.in.YMax);
        EXPECT_EQ(QueryGridBox(c.in, kIdentity), c.query);
        EXPECT_EQ(FeatureGridBox(c.in, kIdentity), c.feature);
    }
}

TEST(BinGridTest, FindBinSplitsXFirstOnA256WideRoot) {
    struct Case {
        GridBox box;
        int levels;
        int32_t bin;
    } cases[] = {
        {Box(200, 200, 210, 210), 1, 1},
        {Box(100, 0, 200, 10), 5, 1},  // straddles the centre line on x
        {Box(129, 0, 140, 10), 2, 2},  // upper half: min above 128
        {Box(128, 0, 140, 10), 2, 1},  // min 128 is not above, max is
        {Box(0, 0, 128, 10), 2, 3},    // max 128 is not above: lower half
        {Box(129, 0, 140, 10), 3, 5},  // then y: lower half
        {Box(129, 129, 140, 140), 3, 4},
        {Box(129, 100, 140, 140), 3, 2},  // straddles y
        // Lower halves down to [0, 1], where mid 0 leaves max 1 straddling.
        {Box(0, 0, 1, 1), 19, (1 << 17) - 1},
        // Upper halves, except the lower half [254, 255] of [254, 256].
        {Box(255, 255, 255, 255), 19, (1 << 18) + 0b1100},
    };
    for (const Case& c : cases) EXPECT_EQ(FindBin(c.box, c.levels), c.bin) << c.bin;
}

TEST(BinGridTest, ChildCellsSplitFrom255) {
    EXPECT_EQ(ChildCell(kRootCell, 1, 0), kRootCell);
    EXPECT_EQ(ChildCell(kRootCell, 2, 1), Box(127, 0, 255, 255));
    EXPECT_EQ(ChildCell(kRootCell, 3, 1), Box(0, 0, 127, 255));
    EXPECT_EQ(ChildCell(Box(127, 0, 255, 255), 5, 2), Box(127, 0, 255, 127));
    EXPECT_EQ(ChildCell(Box(3, 0, 4, 255), 7, 3), Box(3, 0, 3, 255));
}

TEST(BinGridTest, LevelsGiveAboutEightFeaturesABin) {
    const std::pair<int32_t, int> cases[] = {
        {0, 2}, {24, 2}, {25, 3}, {1000000, 17}, {std::numeric_limits<int32_t>::max(), 19}};
    for (auto [features, levels] : cases) EXPECT_EQ(BinIndexBuilder::LevelsFor(features), levels);
}

}  // namespace
}  // namespace quillet::test
