// quillet dbf import-csv CSV TABLE --schema ... [--codepage CP]
//
// Makes a table from a UTF-8 CSV file with a header row, a row at a time.
// The table appears only when every row went in: a value a field cannot
// keep as given stops the import with the line and column, and the table
// it replaces (with its .cpg) stays as it was until then.

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "AtxIndexes.h"
#include "Common.h"
#include "CsvReader.h"
#include "DbfTable.h"
#include "FieldWriter.h"
#include "LocaleOption.h"
#include "Staging.h"

namespace quillet::tool {

namespace {

// Makes the table's code page the one named: through the kind whose system
// code page it is, setting the locale's ANSI or OEM code page for this
// process when the name asks for another.
CodePage::qovaCodePageEnum ChooseKind(const std::string& name) {
    if (name.empty()) return CodePage::qovaCodePageDefault;
    uint32_t id = ParseCodePage(name);
    auto kind = CodePage::FindCodePageType(id);
    if (kind == CodePage::qovaCodePageANSI) setenv("QUILLET_ACP", std::to_string(id).c_str(), 1);
    if (kind == CodePage::qovaCodePageOEM) setenv("QUILLET_OEMCP", std::to_string(id).c_str(), 1);
    if (kind == CodePage::qovaCodePageISO && CodePage::GetIsoCP() != id) {
        throw UsageError("code page " + name + " is not the ISO code page of this locale");
    }
    return kind;
}

// The CSV column of each schema field: the one of the same name.
std::vector<size_t> MatchColumns(CsvReader& csv, const std::filesystem::path& csvPath,
                                 const std::vector<FieldSpec>& specs, size_t& width) {
    std::vector<std::string> header;
    if (!csv.Next(header)) throw Failure(csvPath.string() + ": no header row");
    width = header.size();
    std::vector<size_t> columns;
    for (const auto& spec : specs) {
        auto found = std::find(header.begin(), header.end(), spec.name);
        if (found == header.end())
            throw Failure(csvPath.string() + ": no column named " + spec.name);
        columns.push_back(static_cast<size_t>(found - header.begin()));
    }
    return columns;
}

// Appends a record per row; returns how many and how many values were cut.
std::pair<int64_t, int64_t> ImportRows(CsvReader& csv, const std::filesystem::path& csvPath,
                                       DBase& table, const std::filesystem::path& tablePath,
                                       const std::vector<FieldSpec>& specs) {
    size_t width = 0;
    auto columns = MatchColumns(csv, csvPath, specs, width);
    FieldWriter writer(table);
    Progress progress("import", csv.Size());
    int64_t records = 0;
    for (std::vector<std::string> row; csv.Next(row); ++records) {
        std::string where = csvPath.string() + ": line " + std::to_string(csv.Line());
        if (row.size() != width) {
            throw Failure(where + ": " + Count(static_cast<int64_t>(row.size()), "column") +
                          ", the header has " + std::to_string(width));
        }
        if (!table.AddRecord()) Fail(tablePath, table);
        for (size_t i = 0; i < specs.size(); ++i) {
            std::string problem = writer.Store(static_cast<int>(i), row[columns[i]]);
            if (!problem.empty())
                throw Failure(where + ", column " + specs[i].name + ": " + problem);
        }
        progress.Update(csv.Offset());
    }
    progress.Done();
    return {records, writer.CutCount()};
}

void RunImportCsv(const std::filesystem::path& csvPath, const std::filesystem::path& path,
                  const std::string& schema, const std::string& codePage) {
    auto specs = ParseSchema(schema);
    auto kind = ChooseKind(codePage);
    CsvReader csv(csvPath);
    Staging staging(FolderOf(path));
    auto staged = staging / path.filename().string();
    DBase table(WidePath(staged));
    if (!table.Create(kind)) Fail(path, table);
    AddFields(table, path, specs);
    if (!table.Open(false, false, kind)) Fail(path, table);
    auto [records, cut] = ImportRows(csv, csvPath, table, path, specs);
    if (!table.Close()) Fail(path, table);
    staging.Commit(TableFileNames(path));
    if (cut > 0) {
        std::cerr << "quillet: warning: " << path.string() << ": " << Count(cut, "value")
                  << (cut == 1 ? " was" : " were") << " cut to the field's width or decimals\n";
    }
    std::cout << "wrote " << Count(records, "record") << " to " << path.string() << "\n";
    ReportStaleIndexes(path);
}

}  // namespace

void InstallImportCsv(CLI::App& dbf) {
    auto* import =
        dbf.add_subcommand("import-csv", "Make a table from a UTF-8 CSV file with a header row");
    auto csvPath = std::make_shared<std::string>();
    auto path = std::make_shared<std::string>();
    auto schema = std::make_shared<std::string>();
    auto codePage = std::make_shared<std::string>();
    import->add_option("CSV", *csvPath, "The CSV file")->required();
    import->add_option("TABLE", *path, "The table to make (replaced if it exists)")->required();
    import->add_option("--schema", *schema, "NAME:TYPE:WIDTH[:DECIMALS],... (types C D F L N)")
        ->required();
    import->add_option("--codepage", *codePage, "Code page of the table, e.g. 1252, 437, UTF-8");
    AddReindexOption(*import);
    AddLocaleOption(*import, NamedCodePageOf(*codePage));
    import->callback([=] { RunImportCsv(*csvPath, *path, *schema, *codePage);
});
}  // namespace quillet::tool

}  // namespace quillet::tool
