#include "shape/ShapeGeometry.h"

#include <cstring>

#include "foundation/ByteOrder.h"

namespace quillet {

namespace {

// Reads little-endian values in order, never past the end.
class Reader {
public:
    explicit Reader(std::span<const unsigned char> bytes) : bytes_(bytes) {}
    int64_t left() const { return static_cast<int64_t>(bytes_.size() - at_); }
    int32_t Int() {
        auto value = static_cast<int32_t>(DecodeFixed32LE(&bytes_[at_]));
        at_ += 4;
        return value;
    }
    double Double() {
        uint64_t bits = DecodeFixed64LE(&bytes_[at_]);
        at_ += 8;
        double value;
        std::memcpy(&value, &bits, 8);
        return value;
    }

private:
    std::span<const unsigned char> bytes_;
    size_t at_ = 0;
};

class Writer {
public:
    void Int(int32_t value) {
        unsigned char bytes[4];
        EncodeFixed32LE(bytes, static_cast<uint32_t>(value));
        out_.insert(out_.end(), bytes, bytes + 4);
    }
    void Double(double value) {
        uint64_t bits;
        std::memcpy(&bits, &value, 8);
        unsigned char bytes[8];
        EncodeFixed64LE(bytes, bits);
        out_.insert(out_.end(), bytes, bytes + 8);
    }
    std::vector<unsigned char> Take() { return std::move(out_); }

private:
    std::vector<unsigned char> out_;
};

bool IsZType(int32_t type) {
    return type == 11 || type == 13 || type == 15 || type == 18 || type == 31;
}
bool IsMType(int32_t type) { return type == 21 || type == 23 || type == 25 || type == 28; }

std::string Describe(int64_t length, int64_t count, int64_t parts, int64_t needed) {
    std::string text = "a record of " + std::to_string(length) + " bytes declares " +
                       std::to_string(count) + " points";
    if (parts >= 0) text += " in " + std::to_string(parts) + " parts";
    return text + ", which need " + std::to_string(needed);
}

}  // namespace

ShapeGeometry::Kind ShapeGeometry::KindOf(int32_t type) {
    switch (type) {
        case 0: return Kind::kNull;
        case 1:
        case 11:
        case 21: return Kind::kPoint;
        case 8:
        case 18:
        case 28: return Kind::kMultiPoint;
        case 3:
        case 13:
        case 23: return Kind::kPolyline;
        case 5:
        case 15:
        case 25: return Kind::kPolygon;
        case 31: return Kind::kMultiPatch;
        default: return Kind::kUnknown;
    }
}

bool ShapeGeometry::Decode(std::span<const unsigned char> bytes, std::string& problem) {
    *this = ShapeGeometry();
    auto length = static_cast<int64_t>(bytes.size());
    if (length < 4) {
        problem = "a record of " + std::to_string(length) + " bytes has no shape type";
        return false;
    }
    Reader in(bytes);
    type = in.Int();
    Kind k = kind();
    if (k == Kind::kUnknown) {
        problem = "unknown shape type " + std::to_string(type);
        return false;
    }
    if (k == Kind::kNull) return true;
    hasZ = IsZType(type);
    if (k == Kind::kPoint) {
        int64_t base = 20 + (hasZ ? 8 : 0);
        hasM = length == base + 8 && (hasZ || IsMType(type));
        if (length != base && !hasM) {
            problem = "a point record of " + std::to_string(length) + " bytes";
            return false;
        }
        points.push_back({in.Double(), in.Double()});
        if (hasZ) z.push_back(in.Double());
        if (hasM) m.push_back(in.Double());
        return true;
    }
    bool multipoint = k == Kind::kMultiPoint;
    int64_t fixed = multipoint ? 40 : 44;
    if (length < fixed) {
        problem = "a record of " + std::to_string(length) + " bytes is shorter than its counts";
        return false;
    }
    for (double& edge : box) edge = in.Double();
    int64_t partCount = multipoint ? 0 : in.Int();
    int64_t count = in.Int();
    if (partCount < 0 || count < 0) {
        problem = "negative count: " + std::to_string(count) + " points in " +
                  std::to_string(partCount) + " parts";
        return false;
    }
    int64_t perPart = k == Kind::kMultiPatch ? 8 : 4;
    int64_t base = fixed + partCount * perPart + count * 16 + (hasZ ? 16 + count * 8 : 0);
    hasM = length == base + 16 + count * 8 && (hasZ || IsMType(type));
    if (length != base && !hasM) {
        problem = Describe(length, count, multipoint ? -1 : partCount, base);
        return false;
    }
    parts.resize(static_cast<size_t>(partCount));
    for (int32_t& start : parts) start = in.Int();
    if (k == Kind::kMultiPatch) {
        partTypes.resize(parts.size());
        for (int32_t& partType : partTypes) partType = in.Int();
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        bool ordered = i == 0 ? parts[i] == 0 : parts[i] > parts[i - 1];
        if (!ordered || parts[i] >= count) {
            problem = "part " + std::to_string(i + 1) + " starts at point " +
                      std::to_string(parts[i]) + " of " + std::to_string(count);
            return false;
        }
    }
    points.resize(static_cast<size_t>(count));
    for (Point& point : points) point = {in.Double(), in.Double()};
    auto readMeasures = [&](double* range, std::vector<double>& values) {
        range[0] = in.Double();
        range[1] = in.Double();
        values.resize(static_cast<size_t>(count));
        for (double& value : values) value = in.Double();
    };
    if (hasZ) readMeasures(zRange, z);
    if (hasM) readMeasures(mRange, m);
    return true;
}

std::vector<unsigned char> ShapeGeometry::Encode() const {
    Writer out;
    out.Int(type);
    Kind k = kind();
    if (k == Kind::kNull || k == Kind::kUnknown) return out.Take();
    if (k == Kind::kPoint) {
        Point point = points.empty() ? Point() : points[0];
        out.Double(point.x);
        out.Double(point.y);
        if (hasZ) out.Double(z.empty() ? 0 : z[0]);
        if (hasM) out.Double(m.empty() ? 0 : m[0]);
        return out.Take();
    }
    for (double edge : box) out.Double(edge);
    if (k != Kind::kMultiPoint) out.Int(static_cast<int32_t>(parts.size()));
    out.Int(static_cast<int32_t>(points.size()));
    for (int32_t start : parts) out.Int(start);
    for (int32_t partType : partTypes) out.Int(partType);
    for (const Point& point : points) {
        out.Double(point.x);
        out.Double(point.y);
    }
    auto writeMeasures = [&](const double* range, const std::vector<double>& values) {
        out.Double(range[0]);
        out.Double(range[1]);
        for (double value : values) out.Double(value);
    };
    if (hasZ) writeMeasures(zRange, z);
    if (hasM) writeMeasures(mRange, m);
    return out.Take();
}

}  // namespace quillet
