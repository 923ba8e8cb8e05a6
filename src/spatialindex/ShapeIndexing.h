#pragma once

// Building the bin index of a shape data file from its records' boxes.
//
// A shape record in the standard layout starts with its shape type, a
// little-endian 32-bit integer. A point (types 1, 11, 21) continues with its x
// and y, little-endian doubles, and its box is that point. A null shape
// (type 0) has no box. Every other type continues with its box: xmin, ymin,
// xmax, ymax, little-endian doubles.
//
// The index takes the shape header's x/y extent as the layer's extent, the
// record count as the feature count, and record n (0-based) as feature n + 1.
// It lives beside the shape data file: "name.sbn", with "name.sbx" as its
// record file's index file.

#include <cstdint>
#include <functional>

#include "foundation/Export.h"
#include "foundation/FileSystemPath.h"
#include "foundation/WKSEnvelope.h"

namespace quillet {

// The box of a shape record: an empty envelope (maxima below minima) for a
// null shape. False when the record is too short for its type or the type is
// unknown.
QUILLET_EXPORT bool ShapeRecordEnvelope(const unsigned char* record, int32_t length,
                                        WKSEnvelope* box);

// The index's path for a shape data file: its extension replaced by "sbn".
QUILLET_EXPORT FileSystemPath BinIndexPathFor(const FileSystemPath& shapePath);

struct ShapeIndexSummary {
    enum Status : int32_t {
        kOk = 0,
        kCannotOpenShapes,  // not a readable shape data file
        kCannotCreate,      // the index files cannot be created
        kWriteFailed,       // writing the index failed; it is incomplete
    };
    Status status = kOk;
    int32_t features = 0;    // the feature count written (the record count)
    int32_t indexed = 0;     // features put in bins (records with a box)
    int32_t unreadable = 0;  // records skipped because they could not be read
    int levels = 0;
    int32_t bins = 0;
};

// Called with the number of records read so far and the record count.
using ShapeIndexProgress = std::function<void(int32_t done, int32_t total)>;

// Builds (replacing) the index of the shape data file at `shapePath`.
QUILLET_EXPORT ShapeIndexSummary BuildShapeFileIndex(const FileSystemPath& shapePath,
                                                     const ShapeIndexProgress& progress = {});

}  // namespace quillet
