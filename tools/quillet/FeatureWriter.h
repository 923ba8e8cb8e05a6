#pragma once

// Features (a shape with its table row) written as `ogr2ogr` writes them:
// "geojson", a FeatureCollection; "geojsonseq", one Feature a line; "csv",
// a WKT column and the fields. Values are typed as GDAL reads them: a
// logical is the letter the table holds. The text goes to stdout in blocks as it is
// made, so that memory stays flat however big the layer.

#include <string>
#include <vector>

#include "dbase/DBase.h"
#include "shape/ShapeGeometry.h"

namespace quillet::tool {

class FeatureWriter {
public:
    // `fields` are the table's fields to write, in order, and `names` what
    // to call them; `table` is null when the layer has none.
    FeatureWriter(std::string format, const std::string& layerName, DBase* table,
                  std::vector<int> fields, const std::vector<std::string>& names);
    ~FeatureWriter();
    FeatureWriter(const FeatureWriter&) = delete;
    FeatureWriter& operator=(const FeatureWriter&) = delete;

    // A feature whose row is the table's current record, or which has none
    // (its values are then null).
    void Write(const ShapeGeometry& geometry, bool hasRow);
    // Ends the document and writes what is left.
    void Finish();

private:
    void Begin(const std::string& layerName);
    void AppendProperties(bool hasRow);
    void AppendCsvRow(const ShapeGeometry& geometry, bool hasRow);
    void Flush();

    std::string format_;
    DBase* table_;
    std::vector<int> fields_;
    std::vector<std::string> keys_;  // each field's name, as JSON text and a colon
    std::string out_;
    bool first_ = true;
    bool finished_ = false;
};

}  // namespace quillet::tool
