#include "spatialindex/BinIndexFormat.h"

#include <bit>

#include "foundation/ByteOrder.h"

namespace quillet {

namespace {

int32_t S_GetInt(const unsigned char* p, bool bigEndian) {
    return static_cast<int32_t>(bigEndian ? DecodeFixed32BE(p) : DecodeFixed32LE(p));
}

void S_PutInt(unsigned char* p, int32_t v, bool bigEndian) {
    auto bits = static_cast<uint32_t>(v);
    bigEndian ? EncodeFixed32BE(p, bits) : EncodeFixed32LE(p, bits);
}

double S_GetDouble(const unsigned char* p, bool bigEndian) {
    return bigEndian ? DecodeDoubleBE(p) : DecodeDoubleLE(p);
}

void S_PutDouble(unsigned char* p, double v, bool bigEndian) {
    bigEndian ? EncodeDoubleBE(p, v) : EncodeDoubleLE(p, v);
}

float S_GetFloat(const unsigned char* p, bool bigEndian) {
    return std::bit_cast<float>(bigEndian ? DecodeFixed32BE(p) : DecodeFixed32LE(p));
}

void S_PutFloat(unsigned char* p, float v, bool bigEndian) {
    auto bits = std::bit_cast<uint32_t>(v);
    bigEndian ? EncodeFixed32BE(p, bits) : EncodeFixed32LE(p, bits);
}

}  // namespace

void BinIndexHeader::EncodeTo(unsigned char* out, int32_t userType, bool bigEndian) const {
    S_PutInt(out, featureCount, bigEndian);
    const double coords[4] = {extent.XMin, extent.YMin, extent.XMax, extent.YMax};
    for (int i = 0; i < 4; ++i) {
        if (userType < 0) {
            S_PutDouble(out + 4 + 8 * i, coords[i], bigEndian);
        } else {
            S_PutFloat(out + 4 + 4 * i, static_cast<float>(coords[i]), bigEndian);
        }
    }
}

void BinIndexHeader::DecodeFrom(const unsigned char* in, int32_t userType, bool bigEndian) {
    featureCount = S_GetInt(in, bigEndian);
    double coords[4];
    for (int i = 0; i < 4; ++i) {
        coords[i] = userType < 0 ? S_GetDouble(in + 4 + 8 * i, bigEndian)
                                 : S_GetFloat(in + 4 + 4 * i, bigEndian);
    }
    extent = WKSEnvelope{coords[0], coords[1], coords[2], coords[3]};
}

void BinMapEntry::EncodeTo(unsigned char* out, bool bigEndian) const {
    S_PutInt(out, first, bigEndian);
    S_PutInt(out + 4, count, bigEndian);
}

void BinMapEntry::DecodeFrom(const unsigned char* in, bool bigEndian) {
    first = S_GetInt(in, bigEndian);
    count = S_GetInt(in + 4, bigEndian);
}

void BinFeatureRec::EncodeTo(unsigned char* out, bool bigEndian) const {
    out[0] = box.xmin;
    out[1] = box.ymin;
    out[2] = box.xmax;
    out[3] = box.ymax;
    S_PutInt(out + 4, featureNumber, bigEndian);
}


}  // namespace quillet
