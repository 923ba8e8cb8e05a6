// Spatial bin indexes of shape data files from Python: building one from a
// layer's record boxes, and the records whose bins meet a rectangle. Record
// numbers count from 0, as ShapeFile counts them; the index stores feature
// n + 1 for record n.

#include <pybind11/numpy.h>
#include <pybind11/stl/filesystem.h>

#include "Bindings.h"
#include "Errors.h"
#include "foundation/Win32Error.h"
#include "shape/ShpFile.h"
#include "spatialindex/BinIndex.h"
#include "spatialindex/BinIndexBuilder.h"
#include "spatialindex/ShapeIndexing.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

FileSystemPath IndexPath(const std::filesystem::path& shp) {
    return BinIndexPathFor(FileSystemPath(String::FromUtf8(shp.string()).c_str()));
}

std::filesystem::path Utf8Path(const FileSystemPath& path) { return path.GetPath().ToUtf8(); }

struct BuildResult {
    int32_t features = 0;
    int32_t skipped = 0;  // records whose bytes hold no box
    int levels = 0;
    int32_t bins = 0;
};

// Every record's box into the builder; null shapes have an empty one, which
// it leaves out.
void AddRecords(ShpFile& shapes, BinIndexBuilder& builder, BuildResult& result) {
    for (int32_t n = 0; n < result.features; ++n) {
        int32_t length = 0;
        const unsigned char* record = shapes.ReadRecord(n, length);
        WKSEnvelope box;
        if (record && ShapeRecordEnvelope(record, length, &box)) {
            Envelope envelope(box);
            builder.AddFeature(n + 1, &envelope);
        } else {
            result.skipped += !shapes.IsRecordDeleted(n);
        }
    }
}

py::dict Build(const std::filesystem::path& shp) {
    BuildResult result;
    FileSystemPath indexPath = IndexPath(shp);
    {
        py::gil_scoped_release release;
        ShpFile shapes(String::FromUtf8(shp.string()));
        if (!shapes.Open(true, true, false) || shapes.GetVersion() != ShpFile::Header::kVersion) {
            Raise(shp, static_cast<int32_t>(GetLastError()), "not a readable shape data file");
        }
        const auto& e = shapes.GetExtent();
        Envelope extent(e.xmin, e.ymin, e.xmax, e.ymax);
        result.features = shapes.GetNumRecords();
        BinIndexBuilder builder;
        if (!builder.Create(indexPath, result.features, &extent)) {
            Raise(Utf8Path(indexPath), static_cast<int32_t>(GetLastError()), "cannot create the index");
        }
        AddRecords(shapes, builder, result);
        if (!builder.Finish()) {
            Raise(Utf8Path(indexPath), static_cast<int32_t>(GetLastError()),
                  "writing the index failed; it is incomplete");
        }
        result.levels = builder.GetLevels();
        result.bins = builder.GetBinCount();
    }
    py::dict out;
    out["path"] = Utf8Path(indexPath).string();
    out["features"] = result.features;
    out["levels"] = result.levels;
    out["bins"] = result.bins;
    out["unreadable"] = result.skipped;
    return out;
}

class Index {
public:
    explicit Index(const std::filesystem::path& shp) : index_(IndexPath(shp)) {
        if (!index_.IsOpen()) {
            Raise(Utf8Path(IndexPath(shp)), static_cast<int32_t>(GetLastError()),
                  "not a readable bin index");
        }
    }

    const BinIndex& index() const { return index_; }

    py::array_t<int64_t> Query(double xmin, double ymin, double xmax, double ymax) {
        RecNumSet found;
        {
            py::gil_scoped_release release;
            Envelope query(xmin, ymin, xmax, ymax);
            index_.Search(&query, &found);
        }
        int64_t count = 0;
        for (auto [first, last] : found.Ranges()) count += int64_t{last} - first + 1;
        py::array_t<int64_t> records(count);
        int64_t* out = records.mutable_data();
        for (auto [first, last] : found.Ranges()) {
            for (int64_t n = first; n <= last; ++n) *out++ = n - 1;
        }
        return records;
    }

private:
    BinIndex index_;
};

}  // namespace

void BindBinIndexes(py::module_& module) {
    module.def("build_bin_index", &Build, py::arg("shp"),
               "Builds the .sbn/.sbx of a shape data file from its records' boxes.");
    py::class_<Index>(module, "BinIndex", "The spatial bin index beside a shape data file.")
        .def(py::init<const std::filesystem::path&>(), py::arg("shp"))
        .def_property_readonly("feature_count", [](const Index& i) { return i.index().GetFeatureCount(); })
        .def_property_readonly("bin_count", [](const Index& i) { return i.index().GetBinCount(); })
        .def_property_readonly("extent", [](const Index& i) {
            const auto& e = i.index().GetExtent();
            return py::make_tuple(e.XMin, e.YMin, e.XMax, e.YMax);
        })
        .def("query", &Index::Query, py::arg("xmin"), py::arg("ymin"), py::arg("xmax"),
             py::arg("ymax"),
             "The records (from 0, ascending) whose bins meet the rectangle: candidates, "
             "whose own boxes may miss it.");
}

}  // namespace quillet::python
