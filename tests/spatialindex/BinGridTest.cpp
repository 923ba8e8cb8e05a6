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
    EXPECT_TRUE(IsOver(Box(7, 7, 7, 7), Box(7, 7, 7, 7)));
}

TEST(BinGridTest, QueryBoxRoundsTiesToEven) {
    EXPECT_EQ(QueryGridBox(WKSEnvelope{2.5, 3.5, 1.5, 2.5}, kIdentity), Box(2, 4, 2, 4));
    EXPECT_EQ(QueryGridBox(WKSEnvelope{0.5, 1.5, 10.4, 10.6}, kIdentity), Box(0, 2, 11, 12));
}

TEST(BinGridTest, QueryBoxClampsOnlyOneSide) {
    // Minima below 0 become 0, maxima of 256 or more become 255 ...
    EXPECT_EQ(QueryGridBox(WKSEnvelope{-5, -0.6, 255, 1000}, kIdentity), Box(0, 0, 255, 255));
    // ... but a minimum past 255 and a maximum below 0 keep their low 8 bits.
    EXPECT_EQ(QueryGridBox(WKSEnvelope{300, 256, -10, -1}, kIdentity), Box(44, 0, 247, 0));
    // What an integer conversion cannot hold gives 0.
    double inf = std::numeric_limits<double>::infinity();
    double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(QueryGridBox(WKSEnvelope{1e12, nan, nan, -inf}, kIdentity), Box(0, 0, 0, 0));
}

TEST(BinGridTest, FeatureBoxClampsItsOwnWay) {
    EXPECT_EQ(FeatureGridBox(WKSEnvelope{-5, 0.5, 2.5, 3.5}, kIdentity), Box(0, 0, 3, 5));
    // A maximum that reaches 255 (after adding one) becomes 255.
    EXPECT_EQ(FeatureGridBox(WKSEnvelope{0, 0, 253.4, 254}, kIdentity), Box(0, 0, 254, 255));
    EXPECT_EQ(FeatureGridBox(WKSEnvelope{0, 0, 1000, 1e30}, kIdentity), Box(0, 0, 255, 255));
    // Outside the extent the other side wraps, as in the reader.
    EXPECT_EQ(FeatureGridBox(WKSEnvelope{300, 0, 0, -10}, kIdentity), Box(44, 0, 1, 247));
    EXPECT_EQ(FeatureGridBox(WKSEnvelope{10, 20, 10, 20}, GridMapping{10, 20, 255, 255}),
              Box(0, 0, 1, 1));
}

TEST(BinGridTest, FindBinSplitsXFirstOnA256WideRoot) {
    EXPECT_EQ(FindBin(Box(200, 200, 210, 210), 1), 1);
    EXPECT_EQ(FindBin(Box(100, 0, 200, 10), 5), 1);    // straddles the centre line on x
    EXPECT_EQ(FindBin(Box(129, 0, 140, 10), 2), 2);    // upper half: min above 128
    EXPECT_EQ(FindBin(Box(128, 0, 140, 10), 2), 1);    // min 128 is not above, max is
    EXPECT_EQ(FindBin(Box(0, 0, 128, 10), 2), 3);      // max 128 is not above: lower half
    EXPECT_EQ(FindBin(Box(129, 0, 140, 10), 3), 5);    // then y: lower half
    EXPECT_EQ(FindBin(Box(129, 129, 140, 140), 3), 4);
    EXPECT_EQ(FindBin(Box(129, 100, 140, 140), 3), 2); // straddles y
    // Lower halves down to [0, 1] on both axes, where mid 0 leaves max 1 straddling.
    EXPECT_EQ(FindBin(Box(0, 0, 1, 1), 19), (1 << 17) - 1);
    // Upper halves, except the lower half [254, 255] of [254, 256] on each axis.
    EXPECT_EQ(FindBin(Box(255, 255, 255, 255), 19), (1 << 18) + 0b1100);
}

TEST(BinGridTest, ChildCellsSplitFrom255) {
    EXPECT_EQ(ChildCell(kRootCell, 1, 0), kRootCell);
    EXPECT_EQ(ChildCell(kRootCell, 2, 1), Box(127, 0, 255, 255));
    EXPECT_EQ(ChildCell(kRootCell, 3, 1), Box(0, 0, 127, 255));
    EXPECT_EQ(ChildCell(Box(127, 0, 255, 255), 4, 2), Box(127, 127, 255, 255));
    EXPECT_EQ(ChildCell(Box(127, 0, 255, 255), 5, 2), Box(127, 0, 255, 127));
    EXPECT_EQ(ChildCell(Box(3, 0, 4, 255), 7, 3), Box(3, 0, 3, 255));
}

TEST(BinGridTest, LevelsGiveAboutEightFeaturesABin) {
    EXPECT_EQ(BinIndexBuilder::LevelsFor(0), 2);
    EXPECT_EQ(BinIndexBuilder::LevelsFor(24), 2);
    EXPECT_EQ(BinIndexBuilder::LevelsFor(25), 3);
    EXPECT_EQ(BinIndexBuilder::LevelsFor(1000000), 17);
    EXPECT_EQ(BinIndexBuilder::LevelsFor(std::numeric_limits<int32_t>::max()), 19);
    EXPECT_EQ(BinLevel(1), 0);
    EXPECT_EQ(BinLevel(3), 1);
    EXPECT_EQ(BinLevel(4), 2);
    EXPECT_EQ(BinLevel((1 << 18) + 5), 18);
}

}  // namespace
}  // namespace quillet
