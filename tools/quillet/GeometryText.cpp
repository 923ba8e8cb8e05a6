#include "GeometryText.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace quillet::tool {

namespace {

using Kind = ShapeGeometry::Kind;

// Indices of points: a ring or a line.
using Path = std::vector<int32_t>;
struct Polygon {
    std::vector<Path> rings;  // the outer ring first
};

std::vector<Path> PartsOf(const ShapeGeometry& g) {
    std::vector<Path> paths;
    for (size_t i = 0; i < g.parts.size(); ++i) {
        int32_t end =
            i + 1 < g.parts.size() ? g.parts[i + 1] : static_cast<int32_t>(g.points.size());
        Path path;
        for (int32_t p = g.parts[i]; p < end; ++p) path.push_back(p);
        paths.push_back(path);
    }
    return paths;
}

// Twice the signed area: negative for a clockwise ring.
double SignedArea(const ShapeGeometry& g, const Path& ring) {
    double sum = 0;
    for (size_t i = 0; i + 1 < ring.size(); ++i) {
        const auto& a = g.points[static_cast<size_t>(ring[i])];
        const auto& b = g.points[static_cast<size_t>(ring[i + 1])];
        sum += a.x * b.y - b.x * a.y;
    }
    return sum;
}

bool Contains(const ShapeGeometry& g, const Path& ring, ShapeGeometry::Point p) {
    bool inside = false;
    for (size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
        const auto& a = g.points[static_cast<size_t>(ring[i])];
        const auto& b = g.points[static_cast<size_t>(ring[j])];
        if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x)
            inside = !inside;
    }
    return inside;
}

// Each hole goes to the smallest outer ring that holds its first point, or
// else to the outer ring before it.
std::vector<Polygon> GroupRings(const ShapeGeometry& g, const std::vector<Path>& rings) {
    std::vector<Polygon> polygons;
    std::vector<Path> holes;
    for (const Path& ring : rings) {
        if (ring.empty()) continue;
        if (SignedArea(g, ring) <= 0 || polygons.empty()) {
            polygons.push_back({{ring}});
        } else {
            holes.push_back(ring);
        }
    }
    for (const Path& hole : holes) {
        Polygon* best = &polygons.back();
        double bestArea = INFINITY;
        for (Polygon& polygon : polygons) {
            double area = std::fabs(SignedArea(g, polygon.rings[0]));
            if (area < bestArea && Contains(g, polygon.rings[0], g.points[size_t(hole[0])])) {
                best = &polygon;
                bestArea = area;
            }
        }
        best->rings.push_back(hole);
    }
    return polygons;
}

// A multipatch as polygons: rings as they come, strips and fans as triangles.
std::vector<Polygon> PatchPolygons(const ShapeGeometry& g) {
    enum { kStrip = 0, kFan = 1, kOuter = 2, kInner = 3, kFirst = 4, kRing = 5 };
    std::vector<Path> parts = PartsOf(g);
    std::vector<Polygon> polygons;
    for (size_t i = 0; i < parts.size(); ++i) {
        const Path& part = parts[i];
        int32_t partType = g.partTypes[i];
        if (partType == kStrip || partType == kFan) {
            for (size_t t = 2; t < part.size(); ++t) {
                int32_t a = partType == kFan ? part[0] : part[t - 2];
                polygons.push_back({{{a, part[t - 1], part[t], a}}});
            }
        } else if ((partType == kInner || partType == kRing) && !polygons.empty()) {
            polygons.back().rings.push_back(part);
        } else {
            polygons.push_back({{part}});
        }
    }
    return polygons;
}

std::vector<Polygon> Polygons(const ShapeGeometry& g) {
    return g.kind() == Kind::kMultiPatch ? PatchPolygons(g) : GroupRings(g, PartsOf(g));
}

// ---- WKT ----

void AppendNumber(std::string& out, double value) {
    char text[32];
    auto result = std::to_chars(text, text + sizeof text, value);
    out.append(text, result.ptr);
}

// Point p's x, y, then z and m when the text holds them, each written by
// `number`, with `separator` between them.
void AppendCoordinates(std::string& out, const ShapeGeometry& g, int32_t p, char separator,
                       bool withM, void (*number)(std::string&, double)) {
    auto i = static_cast<size_t>(p);
    number(out, g.points[i].x);
    out += separator;
    number(out, g.points[i].y);
    if (g.hasZ) {
        out += separator;
        number(out, g.z[i]);
    }
    if (withM) {
        out += separator;
        number(out, g.m[i]);
    }
}

void AppendPoint(std::string& out, const ShapeGeometry& g, int32_t p) {
    AppendCoordinates(out, g, p, ' ', g.hasM, AppendNumber);
}

void AppendPath(std::string& out, const ShapeGeometry& g, const Path& path) {
    out += '(';
    for (size_t i = 0; i < path.size(); ++i) {
        if (i > 0) out += ", ";
        AppendPoint(out, g, path[i]);
    }
    out += ')';
}

void AppendPolygon(std::string& out, const ShapeGeometry& g, const Polygon& polygon) {
    out += '(';
    for (size_t i = 0; i < polygon.rings.size(); ++i) {
        if (i > 0) out += ", ";
        AppendPath(out, g, polygon.rings[i]);
    }
    out += ')';
}

std::string Tagged(const ShapeGeometry& g, const char* name) {
    std::string tag = name;
    if (g.hasZ || g.hasM) tag += std::string(" ") + (g.hasZ ? "Z" : "") + (g.hasM ? "M" : "");
    return tag + " ";
}

// A multipatch is a multipolygon however many polygons it makes.
bool OnePolygon(const ShapeGeometry& g, const std::vector<Polygon>& polygons) {
    return polygons.size() == 1 && g.kind() != Kind::kMultiPatch;
}

std::string PolygonsWkt(const ShapeGeometry& g) {
    std::vector<Polygon> polygons = Polygons(g);
    if (polygons.empty()) return Tagged(g, "POLYGON") + "EMPTY";
    if (OnePolygon(g, polygons)) {
        std::string out = Tagged(g, "POLYGON");
        AppendPolygon(out, g, polygons[0]);
        return out;
    }
    std::string out = Tagged(g, "MULTIPOLYGON") + "(";
    for (size_t i = 0; i < polygons.size(); ++i) {
        if (i > 0) out += ", ";
        AppendPolygon(out, g, polygons[i]);
    }
    return out + ")";
}

std::string LinesWkt(const ShapeGeometry& g) {
    std::vector<Path> parts = PartsOf(g);
    if (parts.empty()) return Tagged(g, "LINESTRING") + "EMPTY";
    if (parts.size() == 1) {
        std::string out = Tagged(g, "LINESTRING");
        AppendPath(out, g, parts[0]);
        return out;
    }
    std::string out = Tagged(g, "MULTILINESTRING") + "(";
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out += ", ";
        AppendPath(out, g, parts[i]);
    }
    return out + ")";
}

// ---- GeoJSON ----

// A number as JSON holds it: the shortest text that reads back the same, a
// fraction kept one (1.0), and null for what JSON has no number for.
void AppendJsonNumber(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char text[32];
    char* end = std::to_chars(text, text + sizeof text, value).ptr;
    out.append(text, end);
    if (std::find_if(text, end, [](char c) { return c == '.' || c == 'e'; }) == end) out += ".0";
}

// GeoJSON has no m.
void AppendPosition(std::string& out, const ShapeGeometry& g, int32_t p) {
    out += '[';
    AppendCoordinates(out, g, p, ',', false, AppendJsonNumber);
    out += ']';
}

// A JSON array of the items, each appended by `append`.
template <typename Items, typename Append>
void AppendArray(std::string& out, const Items& items, Append append) {
    out += '[';
    bool first = true;
    for (const auto& item : items) {
        if (!first) out += ',';
        first = false;
        append(item);
    }
    out += ']';
}

void AppendPositions(std::string& out, const ShapeGeometry& g, const Path& path) {
    AppendArray(out, path, [&](int32_t p) { AppendPosition(out, g, p); });
}

void AppendRings(std::string& out, const ShapeGeometry& g, const Polygon& polygon) {
    AppendArray(out, polygon.rings, [&](const Path& ring) { AppendPositions(out, g, ring); });
}

void AppendType(std::string& out, const char* type) {
    out += "{\"type\":\"";
    out += type;
    out += "\",\"coordinates\":";
}

void AppendLines(std::string& out, const ShapeGeometry& g) {
    std::vector<Path> parts = PartsOf(g);
    if (parts.size() == 1) {
        AppendType(out, "LineString");
        AppendPositions(out, g, parts[0]);
        return;
    }
    AppendType(out, "MultiLineString");
    AppendArray(out, parts, [&](const Path& part) { AppendPositions(out, g, part); });
}

void AppendPolygons(std::string& out, const ShapeGeometry& g) {
    std::vector<Polygon> polygons = Polygons(g);
    if (OnePolygon(g, polygons)) {
        AppendType(out, "Polygon");
        AppendRings(out, g, polygons[0]);
        return;
    }
    AppendType(out, "MultiPolygon");
    AppendArray(out, polygons, [&](const Polygon& polygon) { AppendRings(out, g, polygon); });
}

}  // namespace

std::string ToWkt(const ShapeGeometry& g) {
    switch (g.kind()) {
        case Kind::kNull:
        case Kind::kUnknown: return "GEOMETRYCOLLECTION EMPTY";
        case Kind::kPoint: {
            std::string out = Tagged(g, "POINT") + "(";
            AppendPoint(out, g, 0);
            return out + ")";
        }
        case Kind::kMultiPoint: {
            std::string out = Tagged(g, "MULTIPOINT");
            if (g.points.empty()) return out + "EMPTY";
            out += '(';
            for (size_t i = 0; i < g.points.size(); ++i) {
                if (i > 0) out += ", ";
                AppendPath(out, g, {static_cast<int32_t>(i)});
            }
            return out + ")";
        }
        case Kind::kPolyline: return LinesWkt(g);
        case Kind::kPolygon:
        case Kind::kMultiPatch: return PolygonsWkt(g);
    }
    return "";
}

void AppendGeoJson(std::string& out, const ShapeGeometry& g) {
    switch (g.kind()) {
        case Kind::kNull:
        case Kind::kUnknown: out += "null"; return;
        case Kind::kPoint:
            AppendType(out, "Point");
            AppendPosition(out, g, 0);
            break;
        case Kind::kMultiPoint: {
            Path all;
            for (size_t i = 0; i < g.points.size(); ++i) all.push_back(static_cast<int32_t>(i));
            AppendType(out, "MultiPoint");
            AppendPositions(out, g, all);
            break;
        }
        case Kind::kPolyline: AppendLines(out, g); break;
        case Kind::kPolygon:
        case Kind::kMultiPatch: AppendPolygons(out, g); break;
    }
    out += '}';
}

}  // namespace quillet::tool
