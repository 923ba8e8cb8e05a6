// quillet dbf add-field TABLE NAME:TYPE:WIDTH[:DECIMALS] [--value TEXT]
//
// The library adds the field with zero bytes in every record, which other
// programs refuse to read; the tool then stores blanks (null), or the value
// asked for, in every record. The table changes only when all of that
// succeeded.

#include <iostream>

#include "AtxIndexes.h"
#include "Common.h"
#include "DbfTable.h"
#include "FieldWriter.h"
#include "LayerRewrite.h"
#include "LocaleOption.h"

namespace quillet::tool {

namespace {

// Stores `value` in `field` of every record; returns how many were cut.
int64_t FillField(DBase& table, const std::filesystem::path& path, int field,
                  const std::string& value) {
    FieldWriter writer(table);
    Progress progress("add-field", table.GetNumRecords());
    for (int32_t record = 0; record < table.GetNumRecords(); ++record) {
        if (!table.MoveTo(record)) Fail(path, table);
        std::string problem = writer.Store(field, value);
        if (!problem.empty()) throw Failure(path.string() + ": --value: " + problem);
        progress.Update(record);
    }
    progress.Done();
    return writer.CutCount();
}

void RunAddField(const std::filesystem::path& path, const std::string& spec,
                 const std::string& value) {
    FieldSpec field = ParseFieldSpec(spec);
    DbfLayout layout = ReadDbfLayout(path);
    layout.RequireIntact(path);
    int64_t cut = 0;
    int32_t records = 0;
    LayerRewrite rewrite({path});
    rewrite.Run([&] {
        DBase table(WidePath(path));
        AddFields(table, path, {field});
        if (!table.Open(false, false, CodePage::qovaCodePageDefault)) Fail(path, table);
        cut = FillField(table, path, table.GetNumFields() - 1, value);
        records = table.GetNumRecords();
        if (!table.Close()) Fail(path, table);
    });
    NoteRewrite(path, layout);
    if (cut > 0)
        std::cerr << "quillet: warning: " << path.string()
                  << ": --value was cut to the field's width\n";
    std::cout << path.string() << ": added " << field.name << "; " << Count(records, "record")
              << " hold " << (value.empty() ? "blanks" : "\"" + value + "\"") << " in it";
    // The library leaves out the records marked deleted when it rewrites the table.
    if (records < layout.records) {
        std::cout << "; " << Count(layout.records - records, "record")
                  << " marked deleted went with the rewrite";
    }
    std::cout << "\n";
    ReportStaleIndexes(path);
}

}  // namespace

void InstallAddField(CLI::App& dbf) {
    auto* addField =
        dbf.add_subcommand("add-field", "Add a field, blank (or --value) in every record");
    auto path = std::make_shared<std::string>();
    auto spec = std::make_shared<std::string>();
    auto value = std::make_shared<std::string>();
    addField->add_option("TABLE", *path, "The table")->required();
    addField->add_option("SPEC", *spec, "NAME:TYPE:WIDTH[:DECIMALS]")->required();
    addField->add_option("--value", *value, "The value every record gets (default: blank)");
    AddReindexOption(*addField);
    AddLocaleOption(*addField, TableCodePageOf(*path));
    addField->callback([=] { RunAddField(*path, *spec, *value); });
}

}  // namespace quillet::tool
