#include "ShapeLayer.h"

#include "Common.h"
#include "foundation/ByteOrder.h"
#include "recordfile/VFile.h"

namespace quillet::tool {

namespace {

namespace fs = std::filesystem;

constexpr int32_t kShapeFileCode = 9994;
constexpr size_t kFileLengthAt = 24;

// The file length in bytes that the header gives, or -1 when the first
// bytes are not those of a shape data file.
int64_t StatedLength(const fs::path& path) {
    auto head = ReadHead(path, VFile::kHeaderLength);
    if (head.size() < VFile::kHeaderLength) return -1;
    VFile::FileType type = VFile::HeaderRec::TypeOf(head.data());
    bool big = type == VFile::kBigEndian;
    auto code =
        static_cast<int32_t>(big ? DecodeFixed32BE(head.data()) : DecodeFixed32LE(head.data()));
    if (type == VFile::kNotRecordFile || code != kShapeFileCode) return -1;
    return 2 * int64_t{static_cast<int32_t>(big ? DecodeFixed32BE(&head[kFileLengthAt])
                                                : DecodeFixed32LE(&head[kFileLengthAt]))};
}

}  // namespace

std::unique_ptr<ShpFile> OpenShape(const fs::path& path, bool readOnly) {
    if (StatedLength(path) < 0) throw Failure(path.string() + ": not a shape data file");
    auto shp = std::make_unique<ShpFile>(WidePath(path).c_str());
    if (shp->Open(readOnly, false, false)) return shp;
    std::wstring index = VFile::IndexPath(WidePath(path));
    if (!FileExists(index.c_str()))
        throw Failure(path.string() + ": its index file " + Utf8(index) + " is missing");
    throw Failure(path.string() + ": damaged: its header or index file cannot be read");
}

std::string ShapeDamage(const fs::path& path, int32_t unreadable) {
    int64_t stated = StatedLength(path);
    auto size = static_cast<int64_t>(fs::file_size(path));
    std::string damage;
    if (unreadable > 0) damage = Count(unreadable, "record") + " cannot be read";
    if (size < stated) {
        damage += (damage.empty() ? "" : "; ") + std::string("the file has ") +
                  std::to_string(size) + " bytes, its header gives " + std::to_string(stated);
    }
    return damage.empty() ? "" : path.string() + ": damaged: " + damage;
}

const char* ShapeTypeName(int32_t type) {
    switch (type) {
        case ShpFile::qovaShapeNull: return "Null";
        case ShpFile::qovaShapePoint: return "Point";
        case ShpFile::qovaShapePolyline: return "PolyLine";
        case ShpFile::qovaShapePolygon: return "Polygon";
        case ShpFile::qovaShapeMultipoint: return "MultiPoint";
        case ShpFile::qovaShapePointZ: return "PointZ";
        case ShpFile::qovaShapePolylineZ: return "PolyLineZ";
        case ShpFile::qovaShapePolygonZ: return "PolygonZ";
        case ShpFile::qovaShapeMultipointZ: return "MultiPointZ";
        case ShpFile::qovaShapePointM: return "PointM";
        case ShpFile::qovaShapePolylineM: return "PolyLineM";
        case ShpFile::qovaShapePolygonM: return "PolygonM";
        case ShpFile::qovaShapeMultipointM: return "MultiPointM";
        case ShpFile::qovaShapeMultiPatch: return "MultiPatch";
        default: return "unknown";
    }
}

ShapeFileNames NamesOfLayer(const fs::path& shp) {
    auto name = shp.filename();
    auto with = [&](const char* extension) {
        return fs::path(name).replace_extension(extension).string();
    };
    return {name.string(),
            Utf8(VFile::IndexPath(WidePath(name))),
            with(".prj"),
            {with(".sbn"), with(".sbx")}};
}

}  // namespace quillet::tool
