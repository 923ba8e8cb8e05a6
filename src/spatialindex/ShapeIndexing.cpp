#include "spatialindex/ShapeIndexing.h"

#include <algorithm>

#include "foundation/ByteOrder.h"
#include "foundation/IEnvelope.h"
#include "recordfile/VFile.h"
#include "spatialindex/BinIndexBuilder.h"

namespace quillet {

namespace {

// A record's type and, after it, its box (or its point).
constexpr int32_t kBoxedRecordPrefix = 4 + 32;
constexpr int32_t kPointRecordPrefix = 4 + 16;
// The x/y extent in the shape header, after the version and the shape type.
constexpr int32_t kExtentOffset = 8;
constexpr int32_t kShapeHeaderLength = 72;
constexpr int32_t kShapeVersion = 1000;
constexpr int32_t kProgressStep = 4096;

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

ShapeIndexSummary BuildShapeFileIndex(const FileSystemPath& shapePath,
                                      const ShapeIndexProgress& progress) {
    ShapeIndexSummary summary;
    VFile shapes(shapePath);
    unsigned char header[kShapeHeaderLength];
    if (!shapes.Open(VFile::kReadOnly, VFile::kIndexed, true, false) || shapes.GetNumRecs() < 0 ||
        !shapes.ReadUserHeader(header, kShapeHeaderLength) ||
        static_cast<int32_t>(DecodeFixed32LE(header)) != kShapeVersion) {
        summary.status = ShapeIndexSummary::kCannotOpenShapes;
        return summary;
    }
    summary.features = shapes.GetNumRecs();
    Envelope extent(S_DecodeBox(header + kExtentOffset));

    BinIndexBuilder builder;
    if (!builder.Create(BinIndexPathFor(shapePath), summary.features, &extent)) {
        summary.status = ShapeIndexSummary::kCannotCreate;
        return summary;
    }
    summary.levels = builder.GetLevels();
    for (int32_t n = 0; n < summary.features; ++n) {
        if (progress && n % kProgressStep == 0) progress(n, summary.features);
        int32_t length = shapes.GetRecordLength(n);
        if (length == 0) continue;  // deleted: no feature
        // Only the type and the box are needed, never the whole geometry.
        unsigned char prefix[kBoxedRecordPrefix];
        int32_t wanted = std::min(length, kBoxedRecordPrefix);
        WKSEnvelope box;
        if (length < 0 || !shapes.ReadRecord(n, prefix, wanted) ||
            !ShapeRecordEnvelope(prefix, wanted, &box)) {
            ++summary.unreadable;
            continue;
        }
        if (box.IsEmpty()) continue;
        Envelope envelope(box);
        builder.AddFeature(n + 1, &envelope);
        ++summary.indexed;
    }
    if (progress) progress(summary.features, summary.features);
    if (!builder.Finish()) summary.status = ShapeIndexSummary::kWriteFailed;
    summary.bins = builder.GetBinCount();
    return summary;
}

}  // namespace quillet
