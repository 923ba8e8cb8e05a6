#pragma once

// The parts of the compiled module `quillet._quillet`, one concept a file.
// Each adds its classes and functions to the module.

#include <pybind11/pybind11.h>

namespace quillet::python {

void BindErrors(pybind11::module_& module);
void BindCodePages(pybind11::module_& module);
void BindTables(pybind11::module_& module);
void BindColumns(pybind11::module_& module);
void BindShapes(pybind11::module_& module);
void BindBinIndexes(pybind11::module_& module);
void BindRecordFiles(pybind11::module_& module);
void BindColumnIndexes(pybind11::module_& module);
void BindBTreeIndexes(pybind11::module_& module);

}  // namespace quillet::python
