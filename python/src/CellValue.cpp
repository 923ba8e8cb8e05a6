#include "CellValue.h"

#include <datetime.h>

#include <cmath>
#include <cstring>

#include "Errors.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

void ReadNumber(DBase& table, int field, const char* raw, CellValue& cell) {
    if (IsNoNumber(raw)) return;
    double value = table.GetFieldDouble(field);
    if (!std::isfinite(value)) return;
    // Beyond 2^53 a double no longer holds every whole number.
    if (table.GetFieldDecimals(field) == 0 && value == std::trunc(value) &&
        std::fabs(value) < 9007199254740992.0) {
        cell.kind = CellValue::Kind::kInteger;
        cell.integer = static_cast<int64_t>(value);
        return;
    }
    cell.kind = CellValue::Kind::kReal;
    cell.real = value;
}

}  // namespace

bool IsNoNumber(const char* raw) {
    while (*raw == ' ') ++raw;
    if (*raw == '\0') return false;
    return std::strspn(raw, "* ") == std::strlen(raw);
}

bool IsLiveRecord(DBase& table, int32_t n, const std::filesystem::path& path) {
    if (!table.IsRecordDeleted(n)) return true;
    if (table.SeekToCurrent()) return false;
    Raise(path, table.GetLastStatus(),
          "record " + std::to_string(n) + " cannot be read (the file ends before the " +
              std::to_string(table.GetNumRecords()) + " records its header counts)");
}

bool IsBlank(const char* raw) {
    while (*raw == ' ') ++raw;
    return *raw == '\0';
}

void ReadCell(DBase& table, int field, CellValue& cell) {
    cell.kind = CellValue::Kind::kNone;
    const char* raw = table.GetFieldPointer(field);
    if (!raw || IsBlank(raw)) return;
    switch (table.GetFieldType(field)) {
        case DBase::qovaNumeric:
        case DBase::qovaFloat: ReadNumber(table, field, raw, cell); return;
        case DBase::qovaDate:
            if (auto date = ReadDate(table, field)) {
                cell.kind = CellValue::Kind::kDate;
                cell.date = *date;
            }
            return;
        case DBase::qovaLogical:
            if (raw[0] == '?') return;
            cell.kind = CellValue::Kind::kLogical;
            cell.integer = table.GetFieldLogical(field);
            return;
        default:
            cell.kind = CellValue::Kind::kText;
            cell.text = table.GetFieldString(field).str();
    }
}

py::object ToPython(const CellValue& cell) {
    switch (cell.kind) {
        case CellValue::Kind::kInteger: return py::int_(cell.integer);
        case CellValue::Kind::kReal: return py::float_(cell.real);
        case CellValue::Kind::kLogical: return py::bool_(cell.integer != 0);
        case CellValue::Kind::kText: return py::str(py::cast(cell.text));
        case CellValue::Kind::kDate: {
            // The C interface of datetime is a pointer of each file that
            // includes its header, set by the import.
            if (!PyDateTimeAPI) PyDateTime_IMPORT;
            PyObject* date = PyDate_FromDate(cell.date.year, cell.date.month, cell.date.day);
            if (!date) throw py::error_already_set();
            return py::reinterpret_steal<py::object>(date);
        }
        default: return py::none();
    }
}

}  // namespace quillet::python
