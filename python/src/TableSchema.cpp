#include "CellWrite.h"
#include "Errors.h"
#include "Table.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

void RequireWritable(const Table& table) {
    if (!table.writable()) Raise(table.path(), DBase::kStatusAccessDenied, "opened read-only");
}

}  // namespace

// The library fills a new field with zero bytes, which other readers refuse:
// every record then gets `value`, blank (None) unless the caller gives one.
void Table::AddField(const FieldInfo& field, const py::handle& value) {
    RequireWritable(*this);
    CellValue cell = FromPython(value);
    Locked([&](DBase& table) {
        if (!table.AddColumn(String::FromUtf8(field.name),
                             static_cast<DBase::qovaDataType>(field.type), field.width,
                             field.decimals)) {
            Fail("cannot add field " + field.name);
        }
        int number = table.GetNumFields() - 1;
        for (int32_t n = 0; n < table.GetNumRecords(); ++n) {
            if (!table.MoveTo(n) || !table.SeekToCurrent() || !WriteCell(table, number, cell)) {
                Fail("cannot fill field " + field.name + " of record " + std::to_string(n));
            }
        }
        if (!table.Flush()) Fail("writing the new field failed");
        ReadFields();
    });
}

void Table::DropField(const std::string& name) {
    RequireWritable(*this);
    Locked([&](DBase& table) {
        if (!table.DropColumn(String::FromUtf8(name))) Fail("cannot drop field " + name);
        // The library leaves the table closed, with its old field list.
        Reopen();
    });
}

void Table::Pack() {
    RequireWritable(*this);
    Locked([&](DBase& table) {
        if (!table.CompactFile()) Fail("compacting the table failed");
    });
}

}  // namespace quillet::python
