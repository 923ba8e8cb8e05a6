#pragma once

// Shape geometry as text for other programs: ISO WKT (with Z, M or ZM) and
// GeoJSON geometry objects (x, y and z; GeoJSON has no m). Polylines of one
// part are line strings; polygons group their rings as the shape encoding
// means them (a clockwise ring is an outer ring, a counterclockwise one a
// hole of the outer ring that contains it); a multipatch is the polygons of
// its rings and the triangles of its strips and fans.

#include <string>

#include "shape/ShapeGeometry.h"

namespace quillet::tool {

std::string ToWkt(const ShapeGeometry& geometry);
// Appends the GeoJSON text of the geometry, compact; null for a null shape.
// Written as text, not built as a JSON value, since a layer's dump writes
// one a feature.
void AppendGeoJson(std::string& out, const ShapeGeometry& geometry);

}  // namespace quillet::tool
