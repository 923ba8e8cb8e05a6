#include "ShapeLayer.h"

#include <algorithm>

#include "Common.h"
#include "foundation/ByteOrder.h"
#include "foundation/File.h"
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

// Whether another process holds the file so that a reader cannot open it
// (an exclusive lock).
bool HeldByAnother(const fs::path& path) {
    File file(WidePath(path).c_str());
    return !file.Open(1, 1, 1, 0, 0) && file.GetLastError() == File::kSharingViolation;
}

}  // namespace

std::string InUse(const fs::path& shp) {
    fs::path index = Utf8(VFile::IndexPath(WidePath(shp)));
    for (const auto& path : {shp, index}) {
        if (HeldByAnother(path))
            return path.string() + ": the file is in use (another program holds it exclusively)";
    }
    return "";
}

std::unique_ptr<ShpFile> OpenShape(const fs::path& path, bool readOnly) {
    if (StatedLength(path) < 0) throw Failure(path.string() + ": not a shape data file");
    auto shp = std::make_unique<ShpFile>(WidePath(path).c_str());
    if (shp->Open(readOnly, false, false)) return shp;
    std::wstring index = VFile::IndexPath(WidePath(path));
    if (!FileExists(index.c_str()))
        throw Failure(path.string() + ": its index file " + Utf8(index) + " is missing");
    // A lock is no damage: say so, rather than call the file damaged.
    std::string inUse = InUse(path);
    if (!inUse.empty()) throw Failure(inUse);
    throw Failure(path.string() + ": damaged: its header or index file cannot be read");
}

int64_t IndexStatedRecords(const fs::path& shp) {
    fs::path index = Utf8(VFile::IndexPath(WidePath(shp)));
    int64_t stated = -1;
    try {
        stated = StatedLength(index);
    } catch (const Failure&) {
    }
    if (stated < 0) return -1;
    return std::max<int64_t>(0, (stated - VFile::kHeaderLength) / VFile::kIndexEntryLength);
}

int64_t IndexHeldRecords(const fs::path& shp) {
    fs::path index = Utf8(VFile::IndexPath(WidePath(shp)));
    std::error_code error;
    auto size = static_cast<int64_t>(fs::file_size(index, error));
    if (error) return 0;
    return std::max<int64_t>(0, (size - VFile::kHeaderLength) / VFile::kIndexEntryLength);
}

int32_t RecordsInFile(ShpFile& shp) {
    int32_t whole = 0;
    for (int32_t n = 0; n < shp.GetNumRecords(); ++n) whole += shp.GetRecordLength(n) >= 0;
    return whole;
}

std::string ShapeDamage(const fs::path& path, int32_t unreadable) {
    std::string damage;
    auto add = [&damage](const std::string& what) {
        damage += (damage.empty() ? "" : "; ") + what;
    };
    if (unreadable > 0) add(Count(unreadable, "record") + " cannot be read");
    // Read now: a file cut while a command read it counts.
    std::error_code error;
    int64_t stated = StatedLength(path);
    auto size = static_cast<int64_t>(fs::file_size(path, error));
    if (error) {
        add("it cannot be read any more (" + error.message() + ")");
    } else if (size < stated) {
        add("the file has " + std::to_string(size) + " bytes, its header gives " +
            std::to_string(stated));
    }
    int64_t statedRecords = IndexStatedRecords(path);
    int64_t heldRecords = IndexHeldRecords(path);
    if (statedRecords < 0) {
        add("its index file " + Utf8(VFile::IndexPath(WidePath(path))) + " cannot be read");
    } else if (heldRecords < statedRecords) {
        add("its index file " + Utf8(VFile::IndexPath(WidePath(path))) + " holds " +
            std::to_string(heldRecords) + " of the " + Count(statedRecords, "record") +
            " its header gives");
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
