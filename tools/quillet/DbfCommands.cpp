// quillet dbf info | dump | import-csv | add-field | drop-field | pack | delete
//
// dBASE tables through DBase: their header and fields, their records as CSV
// or JSON lines (UTF-8 whatever the table's code page), tables made from CSV
// files, and the schema changes and compaction the library offers. Record
// numbers count from 1. import-csv, add-field and delete have files of
// their own.

#include <iostream>

#include "AtxIndexes.h"
#include "Common.h"
#include "DbfTable.h"
#include "FieldValues.h"
#include "LayerRewrite.h"
#include "LocaleOption.h"

namespace quillet::tool {

namespace {

// --- Commands

void RunInfo(const std::filesystem::path& path, bool json) {
    DBase table(WidePath(path));
    DbfLayout layout = OpenTable(table, path, true);
    Json out = TableInfoJson(table);
    if (json) {
        PrintJson(out);
    } else {
        Json summary = out;
        summary.erase("fields");
        summary.erase("indexes");
        PrintFields(summary);
        std::cout << "fields:\n";
        for (const auto& field : out["fields"]) {
            std::cout << "  " << field["name"].get<std::string>() << " "
                      << field["type"].get<std::string>() << " " << field["width"] << "."
                      << field["decimals"] << "\n";
        }
        PrintIndexes(out["indexes"]);
    }
    layout.RequireIntact(path);
}

struct DumpOptions {
    std::string path;
    std::string format = "csv";
    std::string fields;
    int64_t limit = -1;
    bool includeDeleted = false;
};

std::vector<int> ChosenFields(DBase& table, const DbfLayout& layout, const DumpOptions& options) {
    std::vector<int> chosen;
    if (options.fields.empty()) {
        for (int i = 0; i < table.GetNumFields(); ++i) chosen.push_back(i);
        return chosen;
    }
    for (const auto& name : Split(options.fields, ','))
        chosen.push_back(FindField(table, layout, options.path, name));
    return chosen;
}

void PrintCsvHeader(DBase& table, const std::vector<int>& fields, bool includeDeleted) {
    std::string line = includeDeleted ? "_deleted" : "";
    for (int field : fields) {
        if (!line.empty()) line += ',';
        line += CsvQuote(Utf8(table.GetFieldName(field).str()));
    }
    std::cout << line << '\n';
}

void PrintRecord(DBase& table, const std::vector<int>& fields, const DumpOptions& options,
                 bool deleted) {
    if (options.format == "jsonl") {
        Json object = Json::object();
        if (options.includeDeleted) object["_deleted"] = deleted;
        for (int field : fields)
            object[Utf8(table.GetFieldName(field).str())] = FieldJson(table, field);
        std::cout << object.dump() << '\n';
        return;
    }
    std::string line = options.includeDeleted ? (deleted ? "true" : "false") : "";
    for (size_t i = 0; i < fields.size(); ++i) {
        if (i > 0 || options.includeDeleted) line += ',';
        line += CsvQuote(FieldText(table, fields[i]));
    }
    std::cout << line << '\n';
}

// Prints the records the file holds whole; a damaged table then fails.
void RunDump(const DumpOptions& options) {
    DBase table(WidePath(options.path));
    DbfLayout layout = OpenTable(table, options.path, true);
    auto fields = ChosenFields(table, layout, options);
    if (options.format == "csv") PrintCsvHeader(table, fields, options.includeDeleted);
    Progress progress("dump", layout.completeRecords);
    int64_t written = 0;
    int32_t record = 0;
    for (; record < layout.completeRecords && written != options.limit; ++record) {
        progress.Update(record);
        bool deleted = table.IsRecordDeleted(record);
        // A record that cannot be read reads as deleted: it ends the dump.
        if (table.GetCurrentRecord() != record || !table.SeekToCurrent()) break;
        if (deleted && !options.includeDeleted) continue;
        ++written;
        PrintRecord(table, fields, options, deleted);
    }
    progress.Done();
    std::cout.flush();
    layout.RequireReadWhole(options.path, record, written == options.limit);
}

void RunDropField(const std::filesystem::path& path, const std::string& name) {
    DbfLayout layout = ReadDbfLayout(path);
    layout.RequireIntact(path);
    LayerRewrite rewrite({path});
    rewrite.Run([&] {
        DBase table(WidePath(path));
        OpenTable(table, path, true);
        int field = FindField(table, layout, path, name);
        std::string dropped = Utf8(table.GetFieldName(field).str());
        if (!table.Close() || !table.DropColumn(String::FromUtf8(dropped))) Fail(path, table);
        layout.fields.erase(layout.fields.begin() + field);
    });
    NoteRewrite(path, layout);
    ReportStaleIndexes(path);
}

void RunPack(const std::filesystem::path& path) {
    DbfLayout layout = ReadDbfLayout(path);
    layout.RequireIntact(path);
    int32_t before = 0;
    LayerRewrite rewrite({path});
    rewrite.Run([&] {
        DBase table(WidePath(path));
        OpenTable(table, path, false);
        before = table.GetNumRecords();
        if (!table.CompactFile() || !table.Close()) Fail(path, table);
    });
    DBase packed(WidePath(path));
    OpenTable(packed, path, true);
    std::cout << "removed " << before - packed.GetNumRecords() << " deleted records, "
              << packed.GetNumRecords() << " left\n";
    NoteRewrite(path, layout);
    ReportStaleIndexes(path);
}

void Install(CLI::App& app) {
    auto* dbf = app.add_subcommand("dbf", "dBASE tables (.dbf): header, records, schema changes");
    dbf->require_subcommand(1);

    auto* info = dbf->add_subcommand("info", "Show a table's header, code page and fields");
    auto infoPath = std::make_shared<std::string>();
    auto infoJson = std::make_shared<bool>(false);
    info->add_option("TABLE", *infoPath, "The table")->required();
    info->add_flag("--json", *infoJson, "Print JSON");
    AddLocaleOption(*info, TableCodePageOf(*infoPath));
    info->callback([=] { RunInfo(*infoPath, *infoJson); });

    auto* dump = dbf->add_subcommand("dump", "Print the records as UTF-8 CSV or JSON lines");
    auto dumpOptions = std::make_shared<DumpOptions>();
    dump->add_option("TABLE", dumpOptions->path, "The table")->required();
    dump->add_option("--format", dumpOptions->format, "csv (with a header row) or jsonl")
        ->check(CLI::IsMember({"csv", "jsonl"}));
    dump->add_option("--fields", dumpOptions->fields, "Only these fields, comma-separated");
    AddLimitOption(*dump, dumpOptions->limit, "records");
    dump->add_flag("--include-deleted", dumpOptions->includeDeleted, "Also records marked deleted");
    AddLocaleOption(*dump, TableCodePageOf(dumpOptions->path));
    dump->callback([=] { RunDump(*dumpOptions); });

    InstallImportCsv(*dbf);
    InstallAddField(*dbf);

    auto* dropField = dbf->add_subcommand("drop-field", "Remove a field");
    auto dropPath = std::make_shared<std::string>();
    auto dropName = std::make_shared<std::string>();
    dropField->add_option("TABLE", *dropPath, "The table")->required();
    dropField->add_option("NAME", *dropName, "The field")->required();
    AddReindexOption(*dropField);
    dropField->callback([=] { RunDropField(*dropPath, *dropName); });

    auto* pack = dbf->add_subcommand("pack", "Remove the records marked deleted");
    auto packPath = std::make_shared<std::string>();
    pack->add_option("TABLE", *packPath, "The table")->required();
    AddReindexOption(*pack);
    pack->callback([=] { RunPack(*packPath); });

    InstallDelete(*dbf);
}

// `quillet info` on a table: what `dbf info --json` shows, when the file is
// a table that DBase opens.
bool ProbeTable(const std::filesystem::path& path, std::span<const unsigned char> head, Json& out) {
    std::string extension = path.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (extension != ".dbf" || head.size() < kDBaseHeaderSize) return false;
    DBase table(WidePath(path));
    try {
        OpenTable(table, path, true);
    } catch (const Failure&) {
        return false;
    }
    out["kind"] = "dBASE table";
    out.update(TableInfoJson(table));
    return true;
}

void RunDemo(const std::filesystem::path& folder) {
    std::string path = (folder / "parcels.dbf").string();
    DBase table(WidePath(path));
    if (!table.Create(CodePage::qovaCodePageUTF8)) Fail(path, table);
    AddFields(table, path,
              {{"NAME", DBase::qovaCharacter, 24, 0}, {"AREA", DBase::qovaNumeric, 10, 2},
               {"RATIO", DBase::qovaFloat, 13, 0}, {"SURVEYED", DBase::qovaDate, 8, 0},
               {"PUBLIC", DBase::qovaLogical, 1, 0}});
    OpenTable(table, path, false);
    const wchar_t* names[] = {L"Hofstätte", L"Mühlweg 3", L"Κήπος", L"Old mill", L"Riverside"};
    for (int i = 0; i < 5; ++i) {
        table.AddRecord();
        table.SetFieldString(0, names[i]);
        table.SetFieldDouble(1, 1250.5 * (i + 1));
        table.SetFieldDouble(2, 1.0 / (i + 1));
        table.SetFieldString(3, String::Formatted(L"2024-0%d-1%d", i + 1, i));
        table.SetFieldLogical(4, i % 2 == 0);
    }
    table.MoveTo(1);
    table.SetFieldString(1, L"999.999");
    table.DeleteRecord(3);
    if (!table.Close()) Fail(path, table);
    std::cout << "Created parcels.dbf (UTF-8, named by parcels.cpg), wrote 5 records, changed one,\n"
                 "deleted one (compacted away on close), then added OWNER and dropped RATIO:\n";
    AddFields(table, path, {{"OWNER", DBase::qovaCharacter, 12, 0}});
    if (!table.DropColumn(L"RATIO")) Fail(path, table);
    DumpOptions options;
    options.path = path;
    RunDump(options);
}

void Register() {
    RegisterGroup("dbf", Install);
    RegisterInfoProbe({300, "dBASE table (opened)", ProbeTable});
    RegisterDemoStep(
        {450, "dBASE tables: create, fill, change, compact, add and drop fields, dump", RunDemo});
}

}  // namespace

void DumpRecords(const std::filesystem::path& path, const std::vector<int32_t>& records,
                 const std::string& format) {
    DumpOptions options;
    options.path = path.string();
    options.format = format;
    DBase table(WidePath(path));
    DbfLayout layout = OpenTable(table, path, true);
    auto fields = ChosenFields(table, layout, options);
    if (format == "csv") PrintCsvHeader(table, fields, false);
    for (int32_t record : records) {
        if (!table.MoveTo(record)) Fail(path, table);
        PrintRecord(table, fields, options, false);
    }
}

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
