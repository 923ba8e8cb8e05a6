#include "Table.h"

namespace quillet::python {

void Table::CheckRecord(int32_t n) {
    if (n < 0 || n >= table_->GetNumRecords()) {
        throw pybind11::index_error("record " + std::to_string(n) + " of a table of " +
                                    std::to_string(table_->GetNumRecords()));
    }
}

bool Table::ReadRecord(int32_t n, std::vector<CellValue>& cells) {
    return Locked([&](DBase& table) {
        CheckRecord(n);
        if (!IsLiveRecord(table, n, path_)) return false;
        cells.resize(static_cast<size_t>(table.GetNumFields()));
        for (int i = 0; i < table.GetNumFields(); ++i) ReadCell(table, i, cells[size_t(i)]);
        return true;
    });
}

bool Table::IsDeleted(int32_t n) {
    return Locked([&](DBase& table) {
        CheckRecord(n);
        return table.IsRecordDeleted(n);
    });
}

}  // namespace quillet::python
