// Column indexes of tables ("<table>.<field>.atx" beside the table) from
// Python: built from a field's values, and searched with the operators of
// SQL predicates, the index's answers kept where they differ from SQL.
// Records count from 0; a search gives them ascending.

#include <cmath>
#include <filesystem>
#include <optional>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "Bindings.h"
#include "CellWrite.h"
#include "DateField.h"
#include "Errors.h"
#include "IdArray.h"
#include "attrindex/MTreeIndex.h"
#include "attrindex/MTreeIndexBuilder.h"
#include "attrindex/TableColumn.h"
#include "dbase/DBase.h"
#include "foundation/HResult.h"
#include "foundation/IFIDSet.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

// An open table, one of its fields, and that field's index file.
struct IndexedColumn {
    std::filesystem::path tablePath;
    DBase table;
    int field = -1;
    std::filesystem::path indexPath;

    IndexedColumn(const std::filesystem::path& path, const std::string& name)
        : tablePath(path), table(String::FromUtf8(path.string())) {
        if (!table.Open(true, true, CodePage::qovaCodePageDefault)) {
            Raise(path, table.GetLastStatus(), "cannot open the table");
        }
        field = table.GetFieldNumber(String::FromUtf8(name));
        if (field < 0) throw py::key_error("no field named " + name + " in " + path.string());
        FileSystemPath index;
        bool upToDate;
        table.IndexExists(field, index, upToDate);
        indexPath = index.GetPath().ToUtf8();
    }
};

// Fills the builder from the column; the number of entries.
int64_t AddEntries(IndexedColumn& column, MTreeIndexBuilder& builder) {
    TableColumnEnumerator rows(column.table, column.field);
    int64_t entries = 0;
    int32_t id = 0;
    Variant value;
    while (rows.Next(id, value)) {
        if (!builder.InsertEntry(id, value)) {
            Raise(column.tablePath, E_INVALIDARG,
                  "record " + std::to_string(id) + " has a value the index cannot hold");
        }
        value.Clear();
        ++entries;
    }
    if (rows.Failed()) Raise(column.tablePath, column.table.GetLastStatus(), "a record cannot be read");
    return entries;
}

// Through a temporary file, so that a failure leaves the old index.
py::dict Build(const std::filesystem::path& tablePath, const std::string& fieldName) {
    int64_t entries = 0;
    std::filesystem::path indexPath;
    {
        py::gil_scoped_release release;
        IndexedColumn column(tablePath, fieldName);
        indexPath = column.indexPath;
        Field field = ColumnField(column.table, column.field);
        MTreeIndex probe;
        std::filesystem::path temporary = indexPath.string() + ".tmp";
        MTreeIndexBuilder builder;
        if (FAILED(probe.SetupFieldProperties(&field)) ||
            !builder.Init(String::FromUtf8(temporary.string()), &field, MTreeIndexBuilder::kTypeMap0)) {
            Raise(tablePath, E_INVALIDARG, "field " + fieldName + " cannot be indexed");
        }
        entries = AddEntries(column, builder);
        std::error_code error;
        if (!builder.Write()) {
            std::filesystem::remove(temporary, error);
            Raise(indexPath, E_FAIL, "cannot be written");
        }
        std::filesystem::rename(temporary, indexPath, error);
        if (error) Raise(indexPath, error.value(), "cannot be replaced: " + error.message());
    }
    py::dict out;
    out["path"] = indexPath.string();
    out["entries"] = entries;
    return out;
}

qovaSQLPredicates PredicateOf(const std::string& op) {
    static const std::pair<const char*, qovaSQLPredicates> operators[] = {
        {"=", qovaSQLEqual},           {"<>", qovaSQLNotEqual},
        {"<", qovaSQLLessThan},        {">", qovaSQLGreaterThan},
        {"<=", qovaSQLLessOrEqual},    {">=", qovaSQLGreaterOrEqual},
        {"between", qovaSQLBetween},   {"not between", qovaSQLNotBetween},
        {"in", qovaSQLIn},             {"not in", qovaSQLNotIn},
        {"like", qovaSQLLike}};
    for (const auto& [name, predicate] : operators) {
        if (op == name) return predicate;
    }
    throw py::value_error("unknown operator '" + op +
                          "' (=, <>, <, >, <=, >=, between, not between, in, not in, like)");
}

// A Python value as the column's keys are typed, so that 1.1 in a float
// column is the float 1.1.
Variant KeyValue(const CellValue& cell, VARTYPE vt) {
    switch (cell.kind) {
        case CellValue::Kind::kText: return Variant::Bstr(cell.text.c_str());
        case CellValue::Kind::kLogical: return Variant::I2(static_cast<int16_t>(cell.integer));
        case CellValue::Kind::kDate: {
            std::optional<double> date = OleDateOf(cell.date);
            if (!date) throw py::value_error("a date out of range");
            return Variant::Date(*date);
        }
        case CellValue::Kind::kInteger:
        case CellValue::Kind::kReal: {
            double number = cell.kind == CellValue::Kind::kReal ? cell.real : double(cell.integer);
            if (vt == VT_R4) return Variant::R4(static_cast<float>(number));
            if ((vt == VT_I2 || vt == VT_I4) && number == std::trunc(number) && std::fabs(number) < 2e9) {
                return Variant::I4(static_cast<int32_t>(number));
            }
            return Variant::R8(number);
        }
        default: throw py::value_error("an index holds no blank value");
    }
}

void Search(IndexedColumn& column, std::vector<Variant>& values, qovaSQLPredicates predicate,
            FIDSet& result) {
    Field field = ColumnField(column.table, column.field);
    MTreeIndex index;
    if (!std::filesystem::exists(column.indexPath) ||
        index.Open(String::FromUtf8(column.indexPath.string()), &field, MTreeIndex::kModeRead) != S_OK) {
        Raise(column.indexPath, E_FAIL, "not a readable index of the field");
    }
    std::vector<VARIANT*> pointers;
    for (Variant& value : values) pointers.push_back(&value);
    HRESULT hr = E_FAIL;
    try {
        hr = index.Search(pointers, predicate, &result);
    } catch (int32_t thrown) {
        // The index's search reports some faults of its file by throwing
        // their code.
        hr = thrown;
    }
    if (hr != S_OK) Raise(column.indexPath, hr, "the index cannot answer the search");
}

py::array_t<int32_t> Query(const std::filesystem::path& tablePath, const std::string& fieldName,
                           const std::string& op, const py::args& values) {
    qovaSQLPredicates predicate = PredicateOf(op);
    std::vector<CellValue> cells;
    for (const auto& value : values) cells.push_back(FromPython(value));
    FIDSet found;
    {
        py::gil_scoped_release release;
        IndexedColumn column(tablePath, fieldName);
        VARTYPE vt = VT_EMPTY;
        ColumnField(column.table, column.field).get_VarType(&vt);
        std::vector<Variant> keys;
        for (const auto& cell : cells) keys.push_back(KeyValue(cell, vt));
        Search(column, keys, predicate, found);
    }
    return IdArray(found);
}

}  // namespace

void BindColumnIndexes(py::module_& module) {
    module.def("build_column_index", &Build, py::arg("table"), py::arg("field"),
               "Builds the field's index (<table>.<field>.atx beside it) in one pass.");
    module.def("query_column_index", &Query, py::arg("table"), py::arg("field"), py::arg("op"),
               "The records (from 0, ascending) whose field matches, through the field's index: "
               "op is =, <>, <, >, <=, >=, between, not between, in, not in or like (% and _).");
}

}  // namespace quillet::python
