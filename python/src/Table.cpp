#include "Table.h"

#include "CodePageChoice.h"
#include "Errors.h"

namespace py = pybind11;

namespace quillet::python {

namespace {

String WidePath(const std::filesystem::path& path) { return String::FromUtf8(path.string()); }

}  // namespace

Table::Table(const std::filesystem::path& path, bool writable)
    : path_(path), writable_(writable), table_(std::make_unique<DBase>(WidePath(path))) {
    py::gil_scoped_release release;
    Reopen();
}

std::unique_ptr<Table> Table::Create(const std::filesystem::path& path,
                                     const std::vector<FieldInfo>& fields, uint32_t codePage) {
    auto kind = static_cast<CodePage::qovaCodePageEnum>(codePage);
    {
        py::gil_scoped_release release;
        DBase table(WidePath(path));
        StringArray names;
        std::vector<DBase::qovaDataType> types;
        std::vector<int> widths, decimals;
        for (const auto& field : fields) {
            names.Add(String::FromUtf8(field.name));
            types.push_back(static_cast<DBase::qovaDataType>(field.type));
            widths.push_back(field.width);
            decimals.push_back(field.decimals);
        }
        if (!table.Create(kind) ||
            (!fields.empty() &&
             !table.AddColumns(names, types.data(), widths.data(), decimals.data()))) {
            Raise(path, table.GetLastStatus(), "cannot create the table");
        }
    }
    return std::make_unique<Table>(path, true);
}

void Table::Reopen() {
    // An empty table opens with the status of a record past the last.
    if (!table_->Open(!writable_, !writable_, CodePage::qovaCodePageDefault)) {
        int32_t status = table_->GetLastStatus();
        table_->Close();
        Raise(path_, status, status == DBase::kStatusOk ? "not a readable dBASE table"
                                                        : "cannot open the table");
    }
    ReadFields();
}

void Table::ReadFields() {
    fields_.clear();
    for (int i = 0; i < table_->GetNumFields(); ++i) {
        fields_.push_back({table_->GetFieldName(i).ToUtf8(), table_->GetFieldType(i),
                           table_->GetFieldWidth(i), table_->GetFieldDecimals(i)});
    }
}

void Table::Close() {
    Released(mutex_, [&] {
        if (table_->IsOpen() && !table_->Close()) Fail("writing back the table failed");
    });
}

DBase& Table::Open() {
    if (!table_->IsOpen()) Raise(path_, DBase::kStatusNoRecord, "the table is closed");
    return *table_;
}

void Table::Fail(const std::string& what) { Raise(path_, table_->GetLastStatus(), what); }

std::vector<FieldInfo> Table::Fields() {
    return Released(mutex_, [&] { return fields_; });
}

int32_t Table::Count() {
    return Locked([](DBase& table) { return table.GetNumRecords(); });
}

py::dict Table::CodePageInfo() {
    auto [facts, ldid] = Locked([](DBase& table) {
        return std::make_pair(FactsOf(table.GetCodePage()), int{table.GetHeader().languageDriver});
    });
    py::dict out;
    out["code_page"] = facts.id;
    out["code_page_kind"] = facts.kind;
    out["code_page_name"] = facts.name;
    out["ldid"] = ldid;
    return out;
}

}  // namespace quillet::python
