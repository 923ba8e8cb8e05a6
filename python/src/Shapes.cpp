// Shape data files from Python: the header, each record's bytes, and the
// geometry those bytes hold, decoded into plain lists that the pure-Python
// part turns into GeoJSON-like dicts.

#include <mutex>
#include <optional>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "Bindings.h"
#include "Errors.h"
#include "Released.h"
#include "shape/ShapeGeometry.h"
#include "foundation/Win32Error.h"
#include "shape/ShpFile.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

class ShapeLayer {
public:
    explicit ShapeLayer(const std::filesystem::path& path)
        : path_(path), file_(String::FromUtf8(path.string())) {
        py::gil_scoped_release release;
        // A status of its own the shape file has not; the file layer's last
        // error says what went wrong.
        if (!file_.Open(true, true, false) || file_.GetVersion() != ShpFile::Header::kVersion) {
            Raise(path, static_cast<int32_t>(GetLastError()), "not a readable shape data file");
        }
        if (file_.OpenProjectionFile()) projection_ = file_.GetProjectionString().ToUtf8();
    }

    int32_t Count() const { return file_.GetNumRecords(); }
    const ShpFile& file() const { return file_; }
    const std::optional<std::string>& projection() const { return projection_; }

    // Record n's bytes; None when it is deleted.
    py::object Bytes(int32_t n) {
        if (n < 0 || n >= Count()) throw py::index_error("record " + std::to_string(n));
        std::optional<std::string> bytes = Released(mutex_, [&]() -> std::optional<std::string> {
            int32_t length = 0;
            const unsigned char* record = file_.ReadRecord(n, length);
            if (record) return std::string(reinterpret_cast<const char*>(record), size_t(length));
            if (!file_.IsRecordDeleted(n)) {
                Raise(path_, static_cast<int32_t>(GetLastError()),
                      "record " + std::to_string(n) + " cannot be read");
            }
            return std::nullopt;
        });
        if (!bytes) return py::none();
        return py::bytes(*bytes);
    }

private:
    std::filesystem::path path_;
    ShpFile file_;
    std::optional<std::string> projection_;
    std::mutex mutex_;
};

py::tuple Pair(double a, double b) { return py::make_tuple(a, b); }

py::dict Decode(const py::bytes& data) {
    std::string_view bytes = data;
    ShapeGeometry g;
    std::string problem;
    if (!g.Decode({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, problem)) {
        throw py::value_error("not a shape record: " + problem);
    }
    py::list points;
    for (const auto& p : g.points) points.append(Pair(p.x, p.y));
    py::dict out;
    out["type"] = g.type;
    out["box"] = py::make_tuple(g.box[0], g.box[1], g.box[2], g.box[3]);
    out["parts"] = g.parts;
    out["part_types"] = g.partTypes;
    out["points"] = points;
    out["z"] = g.hasZ ? py::object(py::cast(g.z)) : py::none();
    out["m"] = g.hasM ? py::object(py::cast(g.m)) : py::none();
    return out;
}

}  // namespace

void BindShapes(py::module_& module) {
    py::class_<ShapeLayer>(module, "ShapeFile",
                           "A shape data file (.shp with its .shx and .prj), read-only. Records "
                           "count from 0.")
        .def(py::init<const std::filesystem::path&>(), py::arg("path"))
        .def("__len__", &ShapeLayer::Count)
        .def_property_readonly("shape_type", [](const ShapeLayer& s) { return int(s.file().GetShapeType()); })
        .def_property_readonly("version", [](const ShapeLayer& s) { return s.file().GetVersion(); })
        .def_property_readonly("extent", [](const ShapeLayer& s) {
            const auto& e = s.file().GetExtent();
            return py::make_tuple(e.xmin, e.ymin, e.xmax, e.ymax);
        })
        .def_property_readonly("z_range", [](const ShapeLayer& s) {
            return Pair(s.file().GetZExtent().zmin, s.file().GetZExtent().zmax);
        })
        .def_property_readonly("m_range", [](const ShapeLayer& s) {
            return Pair(s.file().GetMExtent().mmin, s.file().GetMExtent().mmax);
        })
        .def_property_readonly("projection", &ShapeLayer::projection,
                               "The .prj text, None when there is none.")
        .def("record_bytes", &ShapeLayer::Bytes, py::arg("n"),
             "Record n's bytes as stored; None when it is deleted.");
    module.def("decode_shape", &Decode, py::arg("data"),
               "The parts of a shape record's bytes: type, box, parts, part_types, points, z, m.");
}

}  // namespace quillet::python
