#pragma once

// The geometry a shape record's bytes hold. ShpFile keeps records as opaque
// bytes; their common encoding (little-endian throughout) is: the shape type,
// then by kind
//   point       x, y [, z] [, m]
//   multipoint  box, point count, points, [z range, z values], [m range, m values]
//   polyline, polygon
//               box, part count, point count, the first point of each part,
//               points, [z range, z values], [m range, m values]
//   multipatch  as a polygon, with a part type after each part's start.
// The z values are there for the Z types; the m values for the M types and,
// when the record is long enough, the Z types. Decoding checks every count
// and length against the record's size before anything is sized by them, and
// Encode gives back the same bytes for whatever Decode accepted.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "foundation/Export.h"

namespace quillet {

class QUILLET_EXPORT ShapeGeometry {
public:
    enum class Kind { kNull, kPoint, kMultiPoint, kPolyline, kPolygon, kMultiPatch, kUnknown };
    struct Point {
        double x = 0;
        double y = 0;
    };

    int32_t type = 0;  // ShpFile::qovaShapeTypeEnum
    double box[4] = {};  // x min, y min, x max, y max; points have none
    std::vector<int32_t> parts;      // the index of each part's first point
    std::vector<int32_t> partTypes;  // multipatch only
    std::vector<Point> points;
    bool hasZ = false;
    double zRange[2] = {};
    std::vector<double> z;
    bool hasM = false;
    double mRange[2] = {};
    std::vector<double> m;

    static Kind KindOf(int32_t type);
    Kind kind() const { return KindOf(type); }

    // Reads a record's bytes. False, with `problem` saying which count or
    // length disagrees with the record's size, when they are no geometry.
    bool Decode(std::span<const unsigned char> bytes, std::string& problem);
    // The record's bytes.
    std::vector<unsigned char> Encode() const;
};

}  // namespace quillet
