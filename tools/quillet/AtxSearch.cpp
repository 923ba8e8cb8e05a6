#include "AtxSearch.h"

#include <algorithm>
#include <cmath>
#include <iostream>

#include "AtxIndexes.h"
#include "Common.h"
#include "DbfTable.h"
#include "ScratchFile.h"
#include "attrindex/TableColumn.h"
#include "foundation/IFIDSet.h"

namespace quillet::tool {

namespace fs = std::filesystem;

namespace {

constexpr Operator kOperators[] = {
    {"=", qovaSQLEqual, 1, 1},         {"<>", qovaSQLNotEqual, 1, 1},
    {"<", qovaSQLLessThan, 1, 1},      {">", qovaSQLGreaterThan, 1, 1},
    {"<=", qovaSQLLessOrEqual, 1, 1},  {">=", qovaSQLGreaterOrEqual, 1, 1},
    {"between", qovaSQLBetween, 2, 2}, {"not-between", qovaSQLNotBetween, 2, 2},
    {"in", qovaSQLIn, 1, SIZE_MAX},    {"not-in", qovaSQLNotIn, 1, SIZE_MAX},
    {"like", qovaSQLLike, 1, 1},
};

Variant NumberValue(const std::string& text, VARTYPE vt) {
    char* end = nullptr;
    double number = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0') throw UsageError("'" + text + "' is not a number");
    if (vt == VT_R4) return Variant::R4(static_cast<float>(number));
    if ((vt == VT_I2 || vt == VT_I4) && number == std::trunc(number) && std::fabs(number) < 2e9) {
        return Variant::I4(static_cast<int32_t>(number));
    }
    return Variant::R8(number);
}

Variant DateValue(const std::string& text) {
    std::string digits;
    for (char c : text) {
        if (c != '-') digits += c;
    }
    SYSTEMTIME time{};
    DATE date = 0;
    if (digits.size() != 8 || digits.find_first_not_of("0123456789") != std::string::npos) {
        throw UsageError("'" + text + "' is not a date (YYYY-MM-DD)");
    }
    time.wYear = static_cast<uint16_t>(std::stoi(digits.substr(0, 4)));
    time.wMonth = static_cast<uint16_t>(std::stoi(digits.substr(4, 2)));
    time.wDay = static_cast<uint16_t>(std::stoi(digits.substr(6, 2)));
    if (!SystemTimeToVariantTime(&time, &date)) throw UsageError("'" + text + "' is no date");
    return Variant::Date(date);
}

// A value typed as the column's values are.
Variant ParseValue(const std::string& text, const Column& column) {
    Field field = column.Describe();
    VARTYPE vt = VT_EMPTY;
    field.get_VarType(&vt);
    char type = column.table.GetFieldType(column.field);
    if (vt == VT_BSTR) return Variant::Bstr(String::FromUtf8(text).c_str());
    if (vt == VT_DATE) return DateValue(text);
    if (type == DBase::qovaLogical) {
        std::string t = text;
        for (char& c : t) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (t == "t" || t == "y" || t == "true") return Variant::I2(1);
        if (t == "f" || t == "n" || t == "false") return Variant::I2(0);
    }
    return NumberValue(text, vt);
}

void OpenIndex(MTreeIndex& index, Column& column, Field& field) {
    if (!fs::exists(column.indexPath)) {
        throw Failure(column.tablePath.string() + ": field " + column.name +
                      " has no index (make it with quillet atx build)");
    }
    if (index.Open(WidePath(column.indexPath).c_str(), &field, MTreeIndex::kModeRead) != S_OK) {
        throw Failure(column.indexPath.string() + ": cannot be opened as the index of " +
                      column.name);
    }
}

}  // namespace

const Operator& ParseOperator(const std::string& text, size_t values) {
    for (const Operator& op : kOperators) {
        if (text != op.name) continue;
        if (values < op.minValues || values > op.maxValues) {
            throw UsageError(
                "operator " + text + " takes " +
                (op.minValues == op.maxValues ? std::to_string(op.minValues) : "one or more") +
                " values");
        }
        return op;
    }
    throw UsageError("unknown operator '" + text +
                     "' (=, <>, <, >, <=, >=, between, not-between, in, not-in, like)");
}

Column::Column(const fs::path& path, const std::string& fieldName)
    : tablePath(path), table(WidePath(path)) {
    DbfLayout layout = OpenTable(table, path, true);
    field = FindField(table, layout, path, fieldName);
    name = Utf8(table.GetFieldName(field).str());
    FileSystemPath index;
    table.IndexExists(field, index, upToDate);
    indexPath = fs::path(Utf8(index.GetPath().str()));
}

Field Column::Describe() const {
    return ColumnField(table, field);
}

std::vector<int32_t> SearchColumn(Column& column, const Operator& op,
                                  const std::vector<std::string>& texts) {
    Field field = column.Describe();
    MTreeIndex index;
    OpenIndex(index, column, field);
    std::vector<Variant> values;
    for (const std::string& text : texts) values.push_back(ParseValue(text, column));
    std::vector<VARIANT*> pointers;
    for (Variant& v : values) pointers.push_back(&v);
    FIDSet result;
    HRESULT hr = E_FAIL;
    try {
        hr = index.Search(pointers, op.predicate, &result);
    } catch (int32_t) {
    }
    if (hr != S_OK) {
        throw Failure(column.indexPath.string() + ": the index cannot answer " + op.name +
                      (op.predicate == qovaSQLLike
                           ? " (a text field, a pattern not starting with % or _)"
                           : ""));
    }
    std::vector<int32_t> records;
    int32_t id = 0;
    result.Reset();
    while (result.Next(&id) == S_OK) records.push_back(id);
    std::sort(records.begin(), records.end());
    return records;
}

void NoteIfStale(const Column& column) {
    if (column.upToDate) return;
    std::cerr << "quillet: " << column.indexPath.string()
              << ": older than the table, so it may miss changes (quillet atx build)\n";
}

std::vector<int32_t> MatchingRecords(const fs::path& table, const std::string& field,
                                     const std::string& op, const std::vector<std::string>& values,
                                     bool& indexed) {
    const Operator& predicate = ParseOperator(op, values.size());
    Column column(table, field);
    indexed = fs::exists(column.indexPath);
    if (indexed) {
        std::vector<int32_t> records = SearchColumn(column, predicate, values);
        NoteIfStale(column);
        return records;
    }
    ScratchFile scratch;
    column.indexPath = scratch.Path();
    WriteIndex(column.table, column.field, column.tablePath, column.indexPath);
    return SearchColumn(column, predicate, values);
}

}  // namespace quillet::tool
