#include <gtest/gtest.h>

#include <vector>

#include "spatialindex/BinIndexFormat.h"

namespace quillet {
namespace {

using Bytes = std::vector<unsigned char>;

TEST(BinIndexFormatTest, DoubleHeaderIsBigEndianIn36Bytes) {
    BinIndexHeader header{258, WKSEnvelope{1, -2, 3.5, 4}};
    Bytes out(36);
    header.EncodeTo(out.data(), -400, true);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 4), (Bytes{0, 0, 1, 2}));
    EXPECT_EQ(Bytes(out.begin() + 4, out.begin() + 12), (Bytes{0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Bytes(out.begin() + 20, out.begin() + 28), (Bytes{0x40, 0x0C, 0, 0, 0, 0, 0, 0}));
    BinIndexHeader back;
    back.DecodeFrom(out.data(), -1, true);
    EXPECT_EQ(back.featureCount, 258);
    EXPECT_EQ(back.extent.YMin, -2);
    EXPECT_EQ(back.extent.XMax, 3.5);
}

TEST(BinIndexFormatTest, FloatHeaderFollowsTheFilesByteOrder) {
    EXPECT_EQ(BinIndexHeader::LengthFor(0), 20);
    EXPECT_EQ(BinIndexHeader::LengthFor(7), 20);
    EXPECT_EQ(BinIndexHeader::LengthFor(-400), 36);
    BinIndexHeader header{3, WKSEnvelope{1, 2, 0.5, -1}};
    Bytes little(20);
    Bytes big(20);
    header.EncodeTo(little.data(), 0, false);
    header.EncodeTo(big.data(), 0, true);
    EXPECT_EQ(Bytes(little.begin(), little.begin() + 8), (Bytes{3, 0, 0, 0, 0, 0, 0x80, 0x3F}));
    EXPECT_EQ(Bytes(big.begin(), big.begin() + 8), (Bytes{0, 0, 0, 3, 0x3F, 0x80, 0, 0}));
    for (bool bigEndian : {false, true}) {
        BinIndexHeader back;
        back.DecodeFrom(bigEndian ? big.data() : little.data(), 0, bigEndian);
        EXPECT_EQ(back.featureCount, 3);
        EXPECT_EQ(back.extent.XMin, 1);
        EXPECT_EQ(back.extent.XMax, 0.5);
        EXPECT_EQ(back.extent.YMax, -1);
    }
}

TEST(BinIndexFormatTest, EntriesAndMapPairs) {
    Bytes out(8);
    BinFeatureRec{GridBox{1, 2, 3, 4}, 0x01020304}.EncodeTo(out.data(), true);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 4, 1, 2, 3, 4}));
    BinFeatureRec{GridBox{1, 2, 3, 4}, 0x01020304}.EncodeTo(out.data(), false);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 4, 4, 3, 2, 1}));
    BinFeatureRec entry;
    entry.DecodeFrom(out.data(), false);
    EXPECT_EQ(entry.featureNumber, 0x01020304);
    EXPECT_EQ(entry.box, (GridBox{1, 2, 3, 4}));

    BinMapEntry{-1, 300}.EncodeTo(out.data(), true);
    EXPECT_EQ(out, (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 1, 0x2C}));
    BinMapEntry pair;
    pair.DecodeFrom(out.data(), true);
    EXPECT_EQ(pair.first, -1);
    EXPECT_EQ(pair.count, 300);
}

}  // namespace
}  // namespace quillet
