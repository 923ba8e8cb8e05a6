#include <optional>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "Bindings.h"
#include "ColumnReader.h"

namespace py = pybind11;

namespace quillet::python {

void BindColumns(py::module_& module) {
    module.def(
        "read_columns",
        [](const std::filesystem::path& path, const std::optional<std::vector<std::string>>& columns) {
            ColumnReader reader(path, columns.value_or(std::vector<std::string>{}));
            return reader.ReadAll();
        },
        py::arg("path"), py::arg("columns") = py::none(),
        "The live records' values of the fields named (all when None) as numpy arrays by name.");
}

}  // namespace quillet::python
