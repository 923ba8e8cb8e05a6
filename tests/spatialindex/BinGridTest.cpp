#include <gtest/gtest.h>

#include <limits>

#include "spatialindex/BinGrid.h"
#include "spatialindex/BinIndexBuilder.h"

namespace quillet {
namespace {

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
        SCOPED_TRACE(::testing::Message() << c.in.XMin << ", " << c.in.YMin << ", " << c.in.XMax
                                          << ", " << c.in.YMax);
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
}  // namespace quillet
