#pragma once

// What a spatial bin index keeps inside its record file (.sbn data file, .sbx
// index file). Every number is in the record file's byte order: big-endian in
// the files the builder writes, native in a little-endian record file.
//
// User header, in the record file's 72-byte user header area. A negative user
// type means doubles (36 bytes, what the builder writes):
//
//   offset size  field
//        0    4  number of features indexed, signed
//        4    8  extent xmin, double
//       12    8  extent ymin
//       20    8  extent xmax
//       28    8  extent ymax
//
// A user type of zero or more means floats (20 bytes): the same fields with
// the coordinates as 4-byte floats at offsets 4, 8, 12 and 16.
//
// Record 0, the bin map: one pair of signed 32-bit integers per bin, bins
// 1, 2, 3, ... in order; the number of bins is the record length / 8.
//
//   offset size  field
//        0    4  first: the bin's first feature record number + 1
//        4    4  count: the number of features in the bin (0: none, and
//                first is then -1 in the files the builder writes)
//
// Feature records first - 1, first, ...: consecutive for one bin, together
// `count` entries of 8 bytes, at most 100 in a record as the builder writes:
//
//   offset size  field
//        0    1  xmin of the feature's grid box, unsigned
//        1    1  ymin
//        2    1  xmax
//        3    1  ymax
//        4    4  feature number, signed

#include <cstdint>
#include <span>

#include "foundation/ByteOrder.h"
#include "foundation/WKSEnvelope.h"
#include "spatialindex/BinGrid.h"

namespace quillet {

struct BinIndexHeader {
    static constexpr int32_t kDoubleLength = 36;
    static constexpr int32_t kFloatLength = 20;
    // The user type of the record files the builder writes (negative: doubles).
    static constexpr int32_t kBuilderUserType = -400;

    int32_t featureCount = 0;
    WKSEnvelope extent;

    static int32_t LengthFor(int32_t userType) {
        return userType < 0 ? kDoubleLength : kFloatLength;
    }
    // `out` / `in` hold LengthFor(userType) bytes.
    void EncodeTo(unsigned char* out, int32_t userType, bool bigEndian) const;
    void DecodeFrom(const unsigned char* in, int32_t userType, bool bigEndian);
};

struct BinMapEntry {
    static constexpr int32_t kLength = 8;

    int32_t first = -1;
    int32_t count = 0;

    void EncodeTo(unsigned char* out, bool bigEndian) const;
    void DecodeFrom(const unsigned char* in, bool bigEndian);
};

// One 8-byte entry of a feature record.
struct BinFeatureRec {
    static constexpr int32_t kLength = 8;
    // The builder's limit of entries in one feature record.
    static constexpr int32_t kPerRecord = 100;

    GridBox box;
    int32_t featureNumber = 0;

    void EncodeTo(unsigned char* out, bool bigEndian) const;
    // Inline: a search decodes every entry it passes.
    void DecodeFrom(const unsigned char* in, bool bigEndian) {
        box = GridBox{in[0], in[1], in[2], in[3]};
        featureNumber = static_cast<int32_t>(bigEndian ? DecodeFixed32BE(in + 4)
                                                       : DecodeFixed32LE(in + 4));
    }
};

}  // namespace quillet
