#include "FeatureWriter.h"

#include <iostream>

#include "FieldValues.h"
#include "GeometryText.h"

namespace quillet::tool {

namespace {

constexpr size_t kBlock = 64 * 1024;

Json PropertyValue(DBase& table, int field) {
    if (table.GetFieldType(field) != DBase::qovaLogical) return FieldJson(table, field);
    char letter = table.GetFieldPointer(field)[0];
    return letter == ' ' || letter == '\0' ? Json(nullptr) : Json(std::string(1, letter));
}

std::string PropertyText(DBase& table, int field) {
    if (table.GetFieldType(field) != DBase::qovaLogical) return FieldText(table, field);
    Json value = PropertyValue(table, field);
    return value.is_null() ? "" : value.get<std::string>();
}

}  // namespace

FeatureWriter::FeatureWriter(std::string format, const std::string& layerName, DBase* table,
                             std::vector<int> fields, const std::vector<std::string>& names)
    : format_(std::move(format)), table_(table), fields_(std::move(fields)) {
    for (const auto& name : names)
        keys_.push_back(format_ == "csv" ? CsvQuote(name) : Json(name).dump() + ": ");
    Begin(layerName);
}

FeatureWriter::~FeatureWriter() {
    Flush();
}

void FeatureWriter::Begin(const std::string& layerName) {
    if (format_ == "geojson") {
        out_ += "{\n\"type\": \"FeatureCollection\",\n\"name\": " + Json(layerName).dump() +
                ",\n\"features\": [\n";
    } else if (format_ == "csv") {
        out_ += "WKT";
        for (const auto& key : keys_) out_ += "," + key;
        out_ += "\n";
    }
}

void FeatureWriter::AppendProperties(bool hasRow) {
    out_ += "\"properties\": { ";
    for (size_t i = 0; i < fields_.size(); ++i) {
        if (i > 0) out_ += ", ";
        out_ += keys_[i];
        out_ += hasRow ? PropertyValue(*table_, fields_[i]).dump() : "null";
    }
    out_ += " }";
}

void FeatureWriter::AppendCsvRow(const ShapeGeometry& geometry, bool hasRow) {
    // A null shape has no geometry to show, as GDAL's CSV leaves it.
    if (geometry.kind() != ShapeGeometry::Kind::kNull) out_ += CsvQuote(ToWkt(geometry));
    for (int field : fields_) {
        out_ += ',';
        if (hasRow) out_ += CsvQuote(PropertyText(*table_, field));
    }
    out_ += '\n';
}

void FeatureWriter::Write(const ShapeGeometry& geometry, bool hasRow) {
    if (format_ == "csv") {
        AppendCsvRow(geometry, hasRow);
    } else {
        if (format_ == "geojson" && !first_) out_ += ",\n";
        out_ += "{ \"type\": \"Feature\", ";
        AppendProperties(hasRow);
        out_ += ", \"geometry\": ";
        AppendGeoJson(out_, geometry);
        out_ += " }";
        if (format_ == "geojsonseq") out_ += '\n';
    }
    first_ = false;
    if (out_.size() >= kBlock) Flush();
}

void FeatureWriter::Finish() {
    if (finished_) return;
    finished_ = true;
    if (format_ == "geojson") out_ += first_ ? "]\n}\n" : "\n]\n}\n";
    Flush();
    std::cout.flush();
}

void FeatureWriter::Flush() {
    std::cout.write(out_.data(), static_cast<std::streamsize>(out_.size()));
    out_.clear();
}

}  // namespace quillet::tool
