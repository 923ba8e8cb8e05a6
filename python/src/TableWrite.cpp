#include "CellWrite.h"
#include "Errors.h"
#include "Table.h"

namespace py = pybind11;

namespace quillet::python {

// A value for a field named, or else at a position.
struct Assignment {
    std::string name;
    int position;
    CellValue cell;
};

namespace {

// Read with the interpreter, before the table is touched.
std::vector<Assignment> AssignmentsOf(const py::handle& values) {
    std::vector<Assignment> assignments;
    if (py::isinstance<py::dict>(values)) {
        for (auto [name, value] : py::reinterpret_borrow<py::dict>(values)) {
            assignments.push_back({py::str(name), -1, FromPython(value)});
        }
        return assignments;
    }
    auto sequence = py::reinterpret_borrow<py::sequence>(values);
    for (size_t i = 0; i < sequence.size(); ++i) {
        assignments.push_back({"", static_cast<int>(i), FromPython(sequence[i])});
    }
    return assignments;
}

int FieldOf(DBase& table, const Assignment& assignment) {
    if (assignment.name.empty()) {
        if (assignment.position >= table.GetNumFields()) {
            throw py::value_error("more values than the " + std::to_string(table.GetNumFields()) +
                                  " fields");
        }
        return assignment.position;
    }
    int field = table.GetFieldNumber(String::FromUtf8(assignment.name));
    if (field < 0) throw py::key_error("no field named " + assignment.name);
    return field;
}

// A value cut to its field's width is a warning, as the library stores it
// all the same.
void WarnCut(const std::filesystem::path& path, const std::vector<std::string>& names) {
    for (const auto& name : names) {
        std::string message = path.string() + ": the value of " + name + " was cut to its width";
        if (PyErr_WarnEx(PyExc_UserWarning, message.c_str(), 1) < 0) throw py::error_already_set();
    }
}

}  // namespace

// Into the current record; the names of the fields whose values were cut.
std::vector<std::string> Table::WriteValues(DBase& table, const std::vector<Assignment>& values) {
    std::vector<std::string> cut;
    for (const auto& assignment : values) {
        int field = FieldOf(table, assignment);
        std::string name = table.GetFieldName(field).ToUtf8();
        if (!WriteCell(table, field, assignment.cell)) Fail("field " + name + " refuses the value");
        if (table.GetLastStatus() == DBase::kStatusTruncated) cut.push_back(name);
    }
    return cut;
}

void Table::Append(const py::handle& values) {
    auto assignments = AssignmentsOf(values);
    WarnCut(path_, Locked([&](DBase& table) {
                if (!table.AddRecord()) Fail("cannot add a record");
                return WriteValues(table, assignments);
            }));
}

void Table::Update(int32_t n, const py::handle& values) {
    auto assignments = AssignmentsOf(values);
    WarnCut(path_, Locked([&](DBase& table) {
                CheckRecord(n);
                if (!table.MoveTo(n) || !table.SeekToCurrent()) {
                    Fail("record " + std::to_string(n) + " cannot be read");
                }
                return WriteValues(table, assignments);
            }));
}

void Table::Delete(int32_t n) {
    Locked([&](DBase& table) {
        CheckRecord(n);
        if (!table.DeleteRecord(n)) Fail("cannot delete record " + std::to_string(n));
    });
}

}  // namespace quillet::python
