#include "spatialindex/ShapeIndexing.h"

#include "foundation/ByteOrder.h"

namespace quillet {

namespace {

// A record's type and, after it, its box (or its point).
constexpr int32_t kBoxedRecordPrefix = 4 + 32;
constexpr int32_t kPointRecordPrefix = 4 + 16;

bool S_IsPointType(int32_t type) { return type == 1 || type == 11 || type == 21; }

bool S_IsBoxedType(int32_t type) {
    switch (type) {
        case 3: case 5: case 8: case 13: case 15: case 18: case 23: case 25: case 28: case 31:
            return true;
        default:
            return false;
    }
}

WKSEnvelope S_DecodeBox(const unsigned char* p) {
    return WKSEnvelope{DecodeDoubleLE(p), DecodeDoubleLE(p + 8), DecodeDoubleLE(p + 16),
                       DecodeDoubleLE(p + 24)};
}

}  // namespace

bool ShapeRecordEnvelope(const unsigned char* record, int32_t length, WKSEnvelope* box) {
    if (length < 4) return false;
    auto type = static_cast<int32_t>(DecodeFixed32LE(record));
    if (type == 0) {
        *box = WKSEnvelope{0, 0, -1, -1};
        return true;
    }
    if (S_IsPointType(type)) {
        if (length < kPointRecordPrefix) return false;
        double x = DecodeDoubleLE(record + 4);
        double y = DecodeDoubleLE(record + 12);
        *box = WKSEnvelope{x, y, x, y};
        return true;
    }
    if (S_IsBoxedType(type) && length >= kBoxedRecordPrefix) {
        *box = S_DecodeBox(record + 4);
        return true;
    }
    return false;
}

FileSystemPath BinIndexPathFor(const FileSystemPath& shapePath) {
    FileSystemPath path = shapePath;
    path.SetExtension(L"sbn");
    return path;
}

}  // namespace quillet
