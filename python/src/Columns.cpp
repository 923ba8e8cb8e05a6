#include <limits>
#include <optional>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "Bindings.h"
#include "ColumnReader.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

TextForm TextFormNamed(const std::string& text) {
    if (text == "object") return TextForm::kObject;
    if (text == "fixed") return TextForm::kFixed;
    throw py::value_error("text must be \"object\" or \"fixed\", not \"" + text + "\"");
}

py::dict ReadColumns(const std::filesystem::path& path,
                     const std::optional<std::vector<std::string>>& columns, int64_t start,
                     std::optional<int64_t> stop, const std::string& text) {
    if (start < 0 || stop.value_or(0) < 0) {
        throw py::value_error("start and stop count records from 0; they cannot be negative");
    }
    ColumnReader reader(path, columns.value_or(std::vector<std::string>{}), start,
                        stop.value_or(std::numeric_limits<int64_t>::max()), TextFormNamed(text));
    return reader.ReadAll();
}

}  // namespace

void BindColumns(py::module_& module) {
    module.def("read_columns", &ReadColumns, py::arg("path"), py::arg("columns") = py::none(),
               py::arg("start") = 0, py::arg("stop") = py::none(), py::arg("text") = "object",
               "The values of the fields named (all when None) as numpy arrays by name, from "
               "the live records among records [start, stop) of the file (to its end when stop "
               "is None), deleted ones counted; text as str objects (text=\"object\") or "
               "fixed-width unicode arrays (text=\"fixed\").");
}

}  // namespace quillet::python
