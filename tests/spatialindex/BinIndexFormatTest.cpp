// Byte layouts the reader takes from other writers; the builder's big-endian
// double header is checked on disk in BinIndexBuilderTest.

#include <gtest/gtest.h>

#include <vector>

#include "spatialindex/BinIndexFormat.h"

namespace quillet {
namespace {

using Bytes = std::vector<unsigned char>;

TEST(BinIndexFormatTest, FloatHeaderFollowsTheFilesByteOrder) {
    const BinIndexHeader header{3, WKSEnvelope{1, 2, 0.5, -1}};
    for (bool bigEndian : {false, true}) {
        Bytes out(20);
        header.EncodeTo(out.data(), 0, bigEndian);
        EXPECT_EQ(Bytes(out.begin(), out.begin() + 8), bigEndian
                                                          ? (Bytes{0, 0, 0, 3, 0x3F, 0x80, 0, 0})
                                                          : (Bytes{3, 0, 0, 0, 0, 0, 0x80, 0x3F}));
        BinIndexHeader back;
        back.DecodeFrom(out.data(), 7, bigEndian);
        EXPECT_EQ(back.featureCount, 3);
        const WKSEnvelope& e = back.extent;
        EXPECT_TRUE(e.XMin == 1 && e.YMin == 2 && e.XMax == 0.5 && e.YMax == -1);
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
