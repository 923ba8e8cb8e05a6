#pragma once

// Python values into fields. A value is read from Python (with the
// interpreter) into a CellValue, and written to the table later (without):
// None blanks the field; bool, int, float, datetime.date and str go through
// the library's setter of that kind, which checks them against the field.

#include <pybind11/pybind11.h>

#include "CellValue.h"
#include "dbase/DBase.h"

namespace quillet::python {

// A TypeError for a value of no such kind.
CellValue FromPython(const pybind11::handle& value);

// False, with the library's status, when the field refuses the value.
bool WriteCell(DBase& table, int field, const CellValue& cell);

}  // namespace quillet::python
