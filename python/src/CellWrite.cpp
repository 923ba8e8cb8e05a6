#include "CellWrite.h"

#include <datetime.h>

#include <climits>
#include <string>

namespace py = pybind11;

namespace quillet::python {

namespace {

CellValue DateFromPython(const py::handle& value) {
    CellValue cell;
    cell.kind = CellValue::Kind::kDate;
    cell.date = {PyDateTime_GET_YEAR(value.ptr()), PyDateTime_GET_MONTH(value.ptr()),
                 PyDateTime_GET_DAY(value.ptr())};
    return cell;
}

DBase::DateRec DateRecOf(const CalendarDate& date) {
    wchar_t digits[9];
    std::swprintf(digits, 9, L"%04d%02d%02d", date.year, date.month, date.day);
    DBase::DateRec rec;
    std::copy(digits, digits + 4, rec.year);
    std::copy(digits + 4, digits + 6, rec.month);
    std::copy(digits + 6, digits + 8, rec.day);
    return rec;
}

bool WriteInteger(DBase& table, int field, int64_t value) {
    if (value >= INT32_MIN && value <= INT32_MAX) {
        return table.SetFieldInteger(field, static_cast<int32_t>(value));
    }
    // Past 32 bits the digits go as text, which the field checks as it
    // would any number.
    return table.SetFieldString(field, String::FromUtf8(std::to_string(value)));
}

}  // namespace

CellValue FromPython(const py::handle& value) {
    if (!PyDateTimeAPI) PyDateTime_IMPORT;
    CellValue cell;
    if (value.is_none()) return cell;
    if (py::isinstance<py::bool_>(value)) {
        cell.kind = CellValue::Kind::kLogical;
        cell.integer = value.cast<bool>();
    } else if (py::isinstance<py::int_>(value)) {
        cell.kind = CellValue::Kind::kInteger;
        cell.integer = value.cast<int64_t>();
    } else if (py::isinstance<py::float_>(value)) {
        cell.kind = CellValue::Kind::kReal;
        cell.real = value.cast<double>();
    } else if (PyDate_Check(value.ptr()) && !PyDateTime_Check(value.ptr())) {
        cell = DateFromPython(value);
    } else if (py::isinstance<py::str>(value)) {
        cell.kind = CellValue::Kind::kText;
        cell.text = value.cast<std::wstring>();
    } else {
        throw py::type_error("a field takes None, bool, int, float, datetime.date or str, not " +
                             std::string(py::str(value.get_type().attr("__name__"))));
    }
    return cell;
}

bool WriteCell(DBase& table, int field, const CellValue& cell) {
    switch (cell.kind) {
        case CellValue::Kind::kInteger: return WriteInteger(table, field, cell.integer);
        case CellValue::Kind::kReal: return table.SetFieldDouble(field, cell.real);
        case CellValue::Kind::kLogical: return table.SetFieldLogical(field, cell.integer != 0);
        case CellValue::Kind::kDate: return table.SetFieldDate(field, DateRecOf(cell.date));
        case CellValue::Kind::kText: return table.SetFieldString(field, String(cell.text.c_str()));
        default: return table.SetFieldNull(field);
    }
}

}  // namespace quillet::python
