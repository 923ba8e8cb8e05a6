#pragma once

// What a bin index takes from a shape layer: the box of each record, and the
// index's place beside the shape data file.
//
// A shape record in the standard layout starts with its shape type, a
// little-endian 32-bit integer. A point (types 1, 11, 21) continues with its x
// and y, little-endian doubles, and its box is that point. A null shape
// (type 0) has no box. Every other type continues with its box: xmin, ymin,
// xmax, ymax, little-endian doubles.
//
// The index of a layer takes the shape header's x/y extent as the layer's
// extent, the record count as the feature count, and record n (0-based) as
// feature n + 1. It lives beside the shape data file: "name.sbn", with
// "name.sbx" as its record file's index file.

#include <cstdint>

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

}  // namespace quillet
