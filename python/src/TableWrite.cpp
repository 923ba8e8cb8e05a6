#include <utility>

#include "CellWrite.h"
#include "Errors.h"
#include "Table.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

using Assignments = std::vector<std::pair<int, CellValue>>;

}  // namespace

// Reads the values with the interpreter, then writes them to the current
// record without it; a value cut to its field's width is a warning, as the
// library stores it all the same.
void Table::WriteValues(const py::handle& values) {
    Assignments assignments;
    if (py::isinstance<py::dict>(values)) {
        for (auto [name, value] : py::reinterpret_borrow<py::dict>(values)) {
            assignments.emplace_back(FieldNumber(py::str(name)), FromPython(value));
        }
    } else {
        auto sequence = py::reinterpret_borrow<py::sequence>(values);
        if (sequence.size() > fields_.size()) {
            throw py::value_error(std::to_string(sequence.size()) + " values for " +
                                  std::to_string(fields_.size()) + " fields");
        }
        for (size_t i = 0; i < sequence.size(); ++i) {
            assignments.emplace_back(static_cast<int>(i), FromPython(sequence[i]));
        }
    }
    std::vector<std::string> cut = Locked([&](DBase& table) {
        std::vector<std::string> names;
        for (const auto& [field, cell] : assignments) {
            if (!WriteCell(table, field, cell)) {
                Raise(path_, table.GetLastStatus(),
                      "field " + fields_[size_t(field)].name + " refuses the value");
            }
            if (table.GetLastStatus() == DBase::kStatusTruncated) {
                names.push_back(fields_[size_t(field)].name);
            }
        }
        return names;
    });
    for (const auto& name : cut) {
        PyErr_WarnEx(PyExc_UserWarning, (path_.string() + ": the value of " + name +
                                         " was cut to the field's width").c_str(), 1);
    }
}

void Table::Append(const py::handle& values) {
    Locked([&](DBase& table) {
        if (!table.AddRecord()) Fail("cannot add a record");
    });
    WriteValues(values);
}

void Table::Update(int32_t n, const py::handle& values) {
    Locked([&](DBase& table) {
        CheckRecord(n);
        if (!table.MoveTo(n) || !table.SeekToCurrent()) {
            Fail("record " + std::to_string(n) + " cannot be read");
        }
    });
    WriteValues(values);
}

void Table::Delete(int32_t n) {
    Locked([&](DBase& table) {
        CheckRecord(n);
        if (!table.DeleteRecord(n)) Fail("cannot delete record " + std::to_string(n));
    });
}

}  // namespace quillet::python
