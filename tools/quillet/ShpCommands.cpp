// quillet shp info|records|pack: shape data files (.shp + .shx + .prj), the
// info probe for them and their index files, and the demo's shape layers.
// `shp copy` has a file of its own.

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <set>

#include "Common.h"
#include "DbfTable.h"
#include "GeometryText.h"
#include "LayerDeletion.h"
#include "ShapeLayer.h"
#include "foundation/ByteOrder.h"
#include "recordfile/VFile.h"
#include "shape/ShapeGeometry.h"
#include "shape/ShpFile.h"

namespace quillet::tool {

namespace {

constexpr int32_t kShapeFileCode = 9994;

bool IsPointType(int32_t type) { return type % 10 == 1 && type <= 21; }
bool HasZ(int32_t type) { return type >= 11 && type <= 18; }
bool HasM(int32_t type) { return HasZ(type) || (type >= 21 && type <= 28) || type == 31; }

Json Range(double a, double b) { return Json::array({a, b}); }
Json Box(const double box[4]) { return Json::array({box[0], box[1], box[2], box[3]}); }

// The shape type and bounding box at the start of a record in the standard
// layout: a point's box is the point itself, a null shape has none, and a
// record too short for what its type announces has none either.
struct RecordSummary {
    int32_t type = -1;
    bool hasBox = false;
    double box[4] = {0, 0, 0, 0};
};

RecordSummary Summarise(const unsigned char* bytes, int32_t length) {
    RecordSummary summary;
    if (!bytes || length < 4) return summary;
    summary.type = static_cast<int32_t>(DecodeFixed32LE(bytes));
    if (summary.type == ShpFile::qovaShapeNull) return summary;
    if (IsPointType(summary.type)) {
        if (length < 20) return summary;
        double x = DecodeDoubleLE(bytes + 4), y = DecodeDoubleLE(bytes + 12);
        summary.box[0] = summary.box[2] = x;
        summary.box[1] = summary.box[3] = y;
        summary.hasBox = true;
        return summary;
    }
    if (length < 36) return summary;
    for (int i = 0; i < 4; ++i) summary.box[i] = DecodeDoubleLE(bytes + 4 + 8 * i);
    summary.hasBox = true;
    return summary;
}

// The header's facts, with the records as the index file's header gives
// them and as many as the files hold whole.
Json InfoJson(ShpFile& shp, const std::filesystem::path& path) {
    Json out;
    out["shape_type"] = static_cast<int32_t>(shp.GetShapeType());
    out["shape_type_name"] = ShapeTypeName(shp.GetShapeType());
    int64_t stated = IndexStatedRecords(path);
    out["records"] = stated < 0 ? int64_t{shp.GetNumRecords()} : stated;
    out["records_in_file"] = RecordsInFile(shp);
    const auto& e = shp.GetExtent();
    out["extent"] = Json::array({e.xmin, e.ymin, e.xmax, e.ymax});
    out["z_range"] = Range(shp.GetZExtent().zmin, shp.GetZExtent().zmax);
    out["m_range"] = Range(shp.GetMExtent().mmin, shp.GetMExtent().mmax);
    out["version"] = shp.GetVersion();
    out["byte_order"] = shp.GetByteOrder() == VFile::kLittleEndian ? "little" : "big";
    const String& projection = shp.GetProjectionString();
    out["projection"] = projection.IsEmpty() ? Json(nullptr) : Json(projection.ToUtf8());
    return out;
}

void RunInfo(const std::string& file, bool json) {
    auto shp = OpenShape(file, true);
    Json out = InfoJson(*shp, file);
    json ? PrintJson(out) : PrintFields(out);
    int32_t unreadable = shp->GetNumRecords() - out["records_in_file"].get<int32_t>();
    std::string damage = ShapeDamage(file, unreadable);
    if (!damage.empty()) throw Failure(damage);
}

std::string BoxText(const RecordSummary& summary) {
    if (!summary.hasBox) return "-";
    char text[160];
    std::snprintf(text, sizeof text, "[%.15g, %.15g, %.15g, %.15g]", summary.box[0], summary.box[1],
                  summary.box[2], summary.box[3]);
    return text;
}

// Prints a record as WKT or GeoJSON; false, with the reason in `problem`, when
// its bytes are no geometry.
bool PrintGeometry(const unsigned char* bytes, int32_t length, const std::string& format,
                   std::string& problem) {
    ShapeGeometry geometry;
    if (!geometry.Decode({bytes, static_cast<size_t>(length)}, problem)) return false;
    std::string text;
    if (format == "wkt") {
        text = ToWkt(geometry);
    } else {
        AppendGeoJson(text, geometry);
    }
    std::cout << text << '\n';
    return true;
}

// Lists the live records that can be read; returns how many could not, and
// adds to `bad` the reason each record that holds no geometry is left out.
int32_t PrintRecords(ShpFile& shp, const std::string& format, int64_t limit,
                     std::vector<std::string>& bad) {
    int64_t shown = 0;
    int32_t unreadable = 0;
    for (int32_t n = 0; n < shp.GetNumRecords() && (limit < 0 || shown < limit); ++n) {
        if (shp.IsRecordDeleted(n)) continue;
        int32_t length = 0;
        const unsigned char* bytes = shp.ReadRecord(n, length);
        if (!bytes) {
            ++unreadable;
            continue;
        }
        ++shown;
        if (format == "wkt" || format == "geojson") {
            std::string problem;
            if (!PrintGeometry(bytes, length, format, problem))
                bad.push_back("record " + std::to_string(n + 1) + ": " + problem);
            continue;
        }
        RecordSummary summary = Summarise(bytes, length);
        if (format == "jsonl") {
            Json line;
            line["record"] = n + 1;
            line["length"] = length;
            line["shape_type"] = summary.type;
            line["bbox"] = summary.hasBox ? Box(summary.box) : Json(nullptr);
            std::cout << line.dump() << '\n';
        } else {
            std::cout << "record " << n + 1 << ": " << length << " bytes, " << ShapeTypeName(summary.type)
                      << " (" << summary.type << "), bbox " << BoxText(summary) << '\n';
        }
    }
    return unreadable;
}

void RunRecords(const std::string& file, const std::string& format, int64_t limit) {
    auto shp = OpenShape(file, true);
    std::vector<std::string> bad;
    std::string damage = ShapeDamage(file, PrintRecords(*shp, format, limit, bad));
    for (const auto& reason : bad) damage += (damage.empty() ? file + ": " : "; ") + reason;
    if (!damage.empty()) throw Failure(damage);
}

// Compacts the shapes and, when a table stands beside them, the table too:
// a record either file had marked deleted goes from both, so that shapes and
// attributes stay in step.
void RunPack(const std::string& file) {
    RequireRegularFile(file);
    std::filesystem::path table = std::filesystem::path(file).replace_extension(".dbf");
    std::error_code ec;
    if (!std::filesystem::exists(table, ec)) table.clear();
    std::set<int32_t> marked;
    int32_t before = ShapeCount(file, marked, "nothing was changed");
    if (!table.empty()) {
        DbfLayout layout = ReadDbfLayout(table);
        layout.RequireIntact(table);
        std::set<int32_t> rows = MarkedInTable(table);
        marked.insert(rows.begin(), rows.end());
        std::erase_if(marked, [&](int32_t n) { return n > before || n > layout.records; });
    }
    LayerDeletion deletion = DeleteFromLayer(table, file, marked);
    std::cout << file << ": " << before - deletion.shapesRemoved << " records kept, "
              << deletion.shapesRemoved << " removed";
    if (!table.empty()) std::cout << "; the same from " << table.string();
    std::cout << "\n";
    for (const auto& name : deletion.binIndexRemoved)
        std::cout << "removed " << name << ", which indexed the old shapes\n";
}

bool ProbeShape(const std::filesystem::path& path, std::span<const unsigned char> head, Json& out) {
    if (head.size() < VFile::kHeaderLength) return false;
    if (static_cast<int32_t>(DecodeFixed32BE(&head[0])) != kShapeFileCode) return false;
    if (DecodeFixed32LE(&head[28]) != ShpFile::Header::kVersion) return false;
    ShpFile::Header header;
    header.DecodeFrom(&head[28]);
    if (std::string(ShapeTypeName(header.shapeType)) == "unknown") return false;
    auto fileLength = static_cast<int32_t>(DecodeFixed32BE(&head[24]));
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(), ::tolower);
    bool index = extension == ".shx";
    out["kind"] = index ? "shape index file" : "shape data file";
    out["shape_type"] = header.shapeType;
    out["shape_type_name"] = ShapeTypeName(header.shapeType);
    // A length word up to 0x7FFFFFFF: its bytes do not fit 32 bits.
    if (index) {
        out["records"] = std::max<int64_t>(
            0, (int64_t{fileLength} * 2 - VFile::kHeaderLength) / VFile::kIndexEntryLength);
    }
    out["extent"] = Json::array({header.extent.xmin, header.extent.ymin, header.extent.xmax, header.extent.ymax});
    out["z_range"] = Range(header.zExtent.zmin, header.zExtent.zmax);
    out["m_range"] = Range(header.mExtent.mmin, header.mExtent.mmax);
    out["version"] = header.version;
    out["file_length_words"] = fileLength;
    return true;
}

// ---- demo ----

struct DemoPoint {
    double x, y, z, m;
};
using DemoPart = std::vector<DemoPoint>;

void Put32(std::vector<unsigned char>& out, int32_t value) {
    size_t at = out.size();
    out.resize(at + 4);
    EncodeFixed32LE(&out[at], static_cast<uint32_t>(value));
}

void PutDouble(std::vector<unsigned char>& out, double value) {
    size_t at = out.size();
    out.resize(at + 8);
    EncodeDoubleLE(&out[at], value);
}

// The range of one measure (z or m) and its value at every point.
void PutMeasure(std::vector<unsigned char>& out, const std::vector<DemoPoint>& points, double DemoPoint::*axis) {
    auto [low, high] = std::minmax_element(points.begin(), points.end(),
                                           [axis](const DemoPoint& a, const DemoPoint& b) { return a.*axis < b.*axis; });
    PutDouble(out, (*low).*axis);
    PutDouble(out, (*high).*axis);
    for (const auto& p : points) PutDouble(out, p.*axis);
}

// A record in the standard layout: points, multipoints, polylines and
// polygons (parts), with z and m as the type asks.
std::vector<unsigned char> EncodeShape(int32_t type, const std::vector<DemoPart>& parts) {
    std::vector<unsigned char> out;
    Put32(out, type);
    std::vector<DemoPoint> points;
    for (const auto& part : parts) points.insert(points.end(), part.begin(), part.end());
    if (IsPointType(type)) {
        PutDouble(out, points[0].x);
        PutDouble(out, points[0].y);
        if (HasZ(type)) PutDouble(out, points[0].z);
        if (HasM(type)) PutDouble(out, points[0].m);
        return out;
    }
    auto [xlow, xhigh] = std::minmax_element(points.begin(), points.end(), [](auto& a, auto& b) { return a.x < b.x; });
    auto [ylow, yhigh] = std::minmax_element(points.begin(), points.end(), [](auto& a, auto& b) { return a.y < b.y; });
    for (double v : {xlow->x, ylow->y, xhigh->x, yhigh->y}) PutDouble(out, v);
    bool multipoint = type % 10 == 8;
    if (!multipoint) Put32(out, static_cast<int32_t>(parts.size()));
    Put32(out, static_cast<int32_t>(points.size()));
    int32_t first = 0;
    for (const auto& part : parts) {
        if (!multipoint) Put32(out, first);
        first += static_cast<int32_t>(part.size());
    }
    for (const auto& p : points) {
        PutDouble(out, p.x);
        PutDouble(out, p.y);
    }
    if (HasZ(type)) PutMeasure(out, points, &DemoPoint::z);
    if (HasM(type)) PutMeasure(out, points, &DemoPoint::m);
    return out;
}

struct DemoLayer {
    const char* name;
    ShpFile::qovaShapeTypeEnum type;
    std::vector<std::vector<DemoPart>> shapes;  // an empty shape is a null shape
    bool withProjection = false;
};

void WriteDemoLayer(const std::filesystem::path& folder, const DemoLayer& layer) {
    ShpFile shp(WidePath(folder / layer.name).c_str());
    if (!shp.Create(layer.type)) throw Failure((folder / layer.name).string() + ": cannot be created");
    ShpFile::DOUBLERECT box{INFINITY, INFINITY, -INFINITY, -INFINITY};
    ShpFile::DOUBLEZLINE z{INFINITY, -INFINITY};
    ShpFile::DOUBLEMLINE m{INFINITY, -INFINITY};
    for (const auto& shape : layer.shapes) {
        auto bytes = shape.empty() ? std::vector<unsigned char>() : EncodeShape(layer.type, shape);
        if (!shp.InsertRecord(bytes.data(), static_cast<int32_t>(bytes.size()))) {
            throw Failure((folder / layer.name).string() + ": cannot write a record");
        }
        for (const auto& part : shape) {
            for (const auto& p : part) {
                box = {std::min(box.xmin, p.x), std::min(box.ymin, p.y), std::max(box.xmax, p.x), std::max(box.ymax, p.y)};
                z = {std::min(z.zmin, p.z), std::max(z.zmax, p.z)};
                m = {std::min(m.mmin, p.m), std::max(m.mmax, p.m)};
            }
        }
    }
    shp.SetExtent(box, false);
    if (HasZ(layer.type)) shp.SetZExtent(z, false);
    if (HasM(layer.type)) shp.SetMExtent(m, false);
    if (layer.withProjection) shp.SetProjectionString(L"GEOGCS[\"GCS_WGS_1984\",DATUM[\"D_WGS_1984\",SPHEROID[\"WGS_1984\",6378137,298.257223563]],PRIMEM[\"Greenwich\",0],UNIT[\"Degree\",0.0174532925199433]]", false);
    if (!shp.WriteHeader()) throw Failure((folder / layer.name).string() + ": cannot write the header");
}

void RunDemo(const std::filesystem::path& folder) {
    const DemoPart square = {{0, 0, 1, 10}, {0, 4, 1, 11}, {4, 4, 2, 12}, {4, 0, 2, 13}, {0, 0, 1, 10}};
    const DemoPart hole = {{1, 1, 1, 0}, {3, 1, 1, 0}, {3, 3, 1, 0}, {1, 3, 1, 0}, {1, 1, 1, 0}};
    const std::vector<DemoLayer> layers = {
        {"towns.shp", ShpFile::qovaShapePoint, {{{{2, 3, 0, 0}}}, {{{5, 1, 0, 0}}}, {}}, true},
        {"wells.shp", ShpFile::qovaShapePointZ, {{{{1, 1, 120, 0}}}, {{{2, 5, 95, 1}}}}},
        {"trees.shp", ShpFile::qovaShapeMultipoint, {{{{1, 2, 0, 0}, {2, 2, 0, 0}, {3, 1, 0, 0}}}}},
        {"roads.shp", ShpFile::qovaShapePolylineM, {{{{0, 0, 0, 0}, {5, 5, 0, 7}}, {{6, 6, 0, 8}, {9, 6, 0, 11}}}}},
        {"fields.shp", ShpFile::qovaShapePolygonZ, {{square, hole}, {}}},
    };
    for (const auto& layer : layers) {
        WriteDemoLayer(folder, layer);
        auto shp = OpenShape(folder / layer.name, true);
        std::cout << "\n" << layer.name << " (quillet shp info, quillet shp records):\n";
        PrintFields(InfoJson(*shp, folder / layer.name));
        std::vector<std::string> bad;
        PrintRecords(*shp, "text", -1, bad);
    }
}

void Install(CLI::App& app) {
    auto* group = app.add_subcommand("shp", "Shape data files (.shp with .shx and .prj)");
    group->require_subcommand(1);

    auto* info = group->add_subcommand("info", "Shape type, record count, extents, version, byte order, projection");
    auto infoFile = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    info->add_option("SHP", *infoFile, "The shape data file")->required();
    info->add_flag("--json", *json, "Print JSON");
    info->callback([infoFile, json] { RunInfo(*infoFile, *json); });

    auto* records = group->add_subcommand("records", "Each live record's number, length, shape type and bounding box");
    auto recordsFile = std::make_shared<std::string>();
    auto format = std::make_shared<std::string>("text");
    auto limit = std::make_shared<int64_t>(-1);
    records->add_option("SHP", *recordsFile, "The shape data file")->required();
    records
        ->add_option("--format", *format,
                     "text, jsonl, wkt (ISO, with Z/M/ZM) or geojson (a geometry a line)")
        ->check(CLI::IsMember({"text", "jsonl", "wkt", "geojson"}));
    AddLimitOption(*records, *limit, "records");
    records->callback([recordsFile, format, limit] { RunRecords(*recordsFile, *format, *limit); });

    InstallShpCopy(*group);
    InstallShpDump(*group);

    auto* pack = group->add_subcommand("pack", "Compact away deleted records");
    auto packFile = std::make_shared<std::string>();
    pack->add_option("SHP", *packFile, "The shape data file")->required();
    pack->callback([packFile] { RunPack(*packFile); });
}

void Register() {
    RegisterGroup("shp", Install);
    RegisterInfoProbe({400, "shape file", ProbeShape});
    RegisterDemoStep({400, "Shape files", RunDemo});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
