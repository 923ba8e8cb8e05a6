// quillet dbf info | dump | import-csv | add-field | drop-field | pack | delete
//
// dBASE tables through DBase: their header and fields, their records as CSV
// or JSON lines (UTF-8 whatever the table's code page), tables made from CSV
// files, and the schema changes and compaction the library offers. Record
// numbers count from 0, as the library counts them.

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "Common.h"
#include "dbase/DBase.h"

namespace quillet::tool {

namespace {

std::string StatusText(int32_t status) {
    switch (status) {
        case 1: return "the file system failed";
        case 2: return "the file cannot be used";
        case 3: return "no such file";
        case 4: return "the file is in use";
        case DBase::kStatusAccessDenied: return "access denied";
        case DBase::kStatusBadField: return "no such field";
        case DBase::kStatusPastLastRecord: return "record number beyond the last record";
        case DBase::kStatusNegativeRecord: return "negative record number";
        case DBase::kStatusNoRecord: return "no such record, or the field takes no value";
        case DBase::kStatusWriteFailed: return "a write failed";
        case DBase::kStatusBadWidth: return "width or decimals out of range for the type";
        case DBase::kStatusMalformedText: return "malformed value for the field";
        case DBase::kStatusTruncated: return "text cut to the field width";
        case DBase::kStatusDuplicateName: return "a field of that name exists";
        case DBase::kStatusDiskFull: return "the disk is full";
        case DBase::kStatusTooManyFiles: return "too many open files";
        case DBase::kStatusHeader: return "not a readable dBASE table (header or records)";
        default: return "failed with status " + std::to_string(status);
    }
}

[[noreturn]] void Fail(const std::string& path, const DBase& table) {
    throw Failure(path + ": " + StatusText(table.GetLastStatus()));
}

void OpenTable(DBase& table, const std::string& path, bool readOnly) {
    RequireRegularFile(path);
    if (!table.Open(readOnly, readOnly, CodePage::qovaCodePageDefault)) Fail(path, table);
}

std::string HeaderDate(const DBase::HeaderRecord& header) {
    char date[16];
    std::snprintf(date, sizeof date, "%04d-%02d-%02d", 1900 + header.year, header.month, header.day);
    return date;
}

// The records a loop may visit: the header's count, but no more than the
// file can hold, so that a corrupt count cannot run on for hours.
int32_t ReadableRecords(const DBase& table, const std::string& path) {
    const auto& header = table.GetHeader();
    int64_t room = static_cast<int64_t>(std::filesystem::file_size(path)) - header.headerLength;
    int64_t fit = room / std::max<int64_t>(header.recordLength, 1) + 1;
    return static_cast<int32_t>(std::clamp<int64_t>(fit, 0, header.numRecords));
}

// --- Field descriptions: NAME:TYPE:WIDTH[:DECIMALS]

struct FieldSpec {
    std::string name;
    DBase::qovaDataType type;
    int width;
    int decimals;
};

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    std::string part;
    while (std::getline(in, part, separator)) parts.push_back(part);
    return parts;
}

int ParseNumber(const std::string& text, const std::string& spec) {
    char* end = nullptr;
    long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 0 || value > 1000) {
        throw UsageError("bad number '" + text + "' in field spec " + spec);
    }
    return static_cast<int>(value);
}

FieldSpec ParseFieldSpec(const std::string& spec) {
    auto parts = Split(spec, ':');
    if (parts.size() < 3 || parts.size() > 4 || parts[0].empty() || parts[1].size() != 1) {
        throw UsageError("field spec must be NAME:TYPE:WIDTH[:DECIMALS]: " + spec);
    }
    char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(parts[1][0])));
    if (std::string("CDFLN").find(letter) == std::string::npos) {
        throw UsageError("field type must be C, D, F, L or N: " + spec);
    }
    return {parts[0], static_cast<DBase::qovaDataType>(letter), ParseNumber(parts[2], spec),
            parts.size() == 4 ? ParseNumber(parts[3], spec) : 0};
}

void AddFields(DBase& table, const std::string& path, const std::vector<FieldSpec>& specs) {
    StringArray names;
    std::vector<DBase::qovaDataType> types;
    std::vector<int> widths, decimals;
    for (const auto& spec : specs) {
        names.Add(String::FromUtf8(spec.name));
        types.push_back(spec.type);
        widths.push_back(spec.width);
        decimals.push_back(spec.decimals);
    }
    if (!table.AddColumns(names, types.data(), widths.data(), decimals.data())) Fail(path, table);
}

// --- Values as text and JSON

bool IsBlank(const char* raw) {
    for (; *raw; ++raw) {
        if (*raw != ' ') return false;
    }
    return true;
}

// Other writers mark a number they could not store, or none, by filling the
// field with asterisks.
bool IsNoNumber(const char* raw) {
    std::string text(raw);
    size_t first = text.find_first_not_of(' ');
    return first != std::string::npos && text.find_first_not_of("* ", first) == std::string::npos;
}

std::string DateText(const char* raw) {
    std::string text(raw);
    if (text.size() != 8) return text;
    return text.substr(0, 4) + "-" + text.substr(4, 2) + "-" + text.substr(6, 2);
}

// A field's value for JSON: null when blank; numbers as numbers (null when
// marked as none), dates as "YYYY-MM-DD" (null when the library reads no date
// in them), logicals as true, false or null (unknown).
Json FieldJson(DBase& table, int field) {
    const char* raw = table.GetFieldPointer(field);
    if (IsBlank(raw)) return nullptr;
    switch (table.GetFieldType(field)) {
        case DBase::qovaNumeric:
        case DBase::qovaFloat: {
            if (IsNoNumber(raw)) return nullptr;
            double value = table.GetFieldDouble(field);
            if (!std::isfinite(value)) return nullptr;
            if (table.GetFieldDecimals(field) == 0 && value == std::trunc(value) && std::fabs(value) < 9e15) {
                return static_cast<int64_t>(value);
            }
            return value;
        }
        case DBase::qovaDate: {
            std::string text = DateText(raw);
            Variant date;
            return table.GetValue(field, date) && date.vt == VT_NULL ? Json(nullptr) : Json(text);
        }
        case DBase::qovaLogical:
            if (raw[0] == '?') return nullptr;
            return table.GetFieldLogical(field);
        default: return Utf8(table.GetFieldString(field).str());
    }
}

std::string FieldText(DBase& table, int field) {
    Json value = FieldJson(table, field);
    if (value.is_null()) return "";
    if (value.is_string()) return value.get<std::string>();
    if (table.GetFieldType(field) == DBase::qovaNumeric || table.GetFieldType(field) == DBase::qovaFloat) {
        // The number as the table holds it, not as a double prints.
        std::string raw = table.GetFieldPointer(field);
        return raw.substr(raw.find_first_not_of(' '));
    }
    return value.dump();
}

std::string CsvQuote(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

// --- CSV input

// Parses CSV text (RFC 4180: quoted fields, doubled quotes, CRLF or LF).
std::vector<std::vector<std::string>> ParseCsv(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row;
    std::string field;
    bool quoted = false, any = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (quoted) {
            if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
                field += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                field += c;
            }
            continue;
        }
        any = true;
        if (c == '"') {
            quoted = true;
        } else if (c == ',') {
            row.push_back(std::move(field));
            field.clear();
        } else if (c == '\n' || c == '\r') {
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
            row.push_back(std::move(field));
            field.clear();
            rows.push_back(std::move(row));
            row.clear();
            any = false;
        } else {
            field += c;
        }
    }
    if (any) {
        row.push_back(std::move(field));
        rows.push_back(std::move(row));
    }
    return rows;
}

// Makes the table's code page the one named: through the kind whose system
// code page it is, setting the locale's ANSI or OEM code page for this
// process when the name asks for another.
CodePage::qovaCodePageEnum ChooseKind(const std::string& name) {
    if (name.empty()) return CodePage::qovaCodePageDefault;
    uint32_t id = CodePage::FindCodePageId(String::FromUtf8(name));
    if (id == 0) throw UsageError("unknown code page: " + name);
    auto kind = CodePage::FindCodePageType(id);
    if (kind == CodePage::qovaCodePageANSI) setenv("QUILLET_ACP", std::to_string(id).c_str(), 1);
    if (kind == CodePage::qovaCodePageOEM) setenv("QUILLET_OEMCP", std::to_string(id).c_str(), 1);
    if (kind == CodePage::qovaCodePageISO && CodePage::GetIsoCP() != id) {
        throw UsageError("code page " + name + " is not the ISO code page of this locale");
    }
    return kind;
}

// --- Commands

void RunInfo(const std::string& path, bool json) {
    DBase table(WidePath(path));
    OpenTable(table, path, true);
    const auto& header = table.GetHeader();
    const auto& codePage = table.GetCodePage();
    Json fields = Json::array();
    for (int i = 0; i < table.GetNumFields(); ++i) {
        fields.push_back({{"name", Utf8(table.GetFieldName(i).str())},
                          {"type", std::string(1, table.GetFieldType(i))},
                          {"width", table.GetFieldWidth(i)},
                          {"decimals", table.GetFieldDecimals(i)}});
    }
    Json out = {{"version", header.version},
                {"date", HeaderDate(header)},
                {"records", header.numRecords},
                {"header_length", header.headerLength},
                {"record_length", header.recordLength},
                {"ldid", header.languageDriver},
                {"codepage",
                 {{"id", codePage.GetCodePageId()},
                  {"kind", CodePageKindName(codePage.GetCodePageType())},
                  {"name", Utf8(codePage.GetCodePageName().str())}}},
                {"fields", fields}};
    if (json) {
        PrintJson(out);
        return;
    }
    Json summary = out;
    summary.erase("fields");
    summary["codepage"] = out["codepage"]["name"];
    PrintFields(summary);
    std::cout << "fields:\n";
    for (const auto& field : fields) {
        std::cout << "  " << field["name"].get<std::string>() << " " << field["type"].get<std::string>() << " "
                  << field["width"] << "." << field["decimals"] << "\n";
    }
}

struct DumpOptions {
    std::string path;
    std::string format = "csv";
    std::string fields;
    int64_t limit = -1;
    bool includeDeleted = false;
};

std::vector<int> ChosenFields(const DBase& table, const DumpOptions& options) {
    std::vector<int> chosen;
    if (options.fields.empty()) {
        for (int i = 0; i < table.GetNumFields(); ++i) chosen.push_back(i);
        return chosen;
    }
    for (const auto& name : Split(options.fields, ',')) {
        int field = table.GetFieldNumber(String::FromUtf8(name));
        if (field < 0) throw Failure(options.path + ": no field named " + name);
        chosen.push_back(field);
    }
    return chosen;
}

void RunDump(const DumpOptions& options) {
    if (options.format != "csv" && options.format != "jsonl") {
        throw UsageError("--format must be csv or jsonl");
    }
    DBase table(WidePath(options.path));
    OpenTable(table, options.path, true);
    auto fields = ChosenFields(table, options);
    bool csv = options.format == "csv";
    if (csv) {
        std::string line = options.includeDeleted ? "_deleted" : "";
        for (int field : fields) {
            if (!line.empty()) line += ',';
            line += CsvQuote(Utf8(table.GetFieldName(field).str()));
        }
        std::cout << line << '\n';
    }
    int32_t count = ReadableRecords(table, options.path);
    Progress progress("dump", count);
    int64_t written = 0;
    for (int32_t record = 0; record < count && written != options.limit; ++record) {
        progress.Update(record);
        bool deleted = table.IsRecordDeleted(record);
        if (table.GetCurrentRecord() != record) Fail(options.path, table);
        if (deleted && !options.includeDeleted) continue;
        ++written;
        if (csv) {
            std::string line = options.includeDeleted ? (deleted ? "true" : "false") : "";
            for (size_t i = 0; i < fields.size(); ++i) {
                if (i > 0 || options.includeDeleted) line += ',';
                line += CsvQuote(FieldText(table, fields[i]));
            }
            std::cout << line << '\n';
        } else {
            Json object = Json::object();
            if (options.includeDeleted) object["_deleted"] = deleted;
            for (int field : fields) object[Utf8(table.GetFieldName(field).str())] = FieldJson(table, field);
            std::cout << object.dump() << '\n';
        }
    }
}

void RunImportCsv(const std::string& csvPath, const std::string& path, const std::string& schema,
                  const std::string& codePage) {
    RequireRegularFile(csvPath);
    std::ifstream in(csvPath, std::ios::binary);
    if (!in) throw Failure(csvPath + ": cannot be opened for reading");
    auto rows = ParseCsv({std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()});
    if (rows.empty()) throw Failure(csvPath + ": no header row");
    std::vector<FieldSpec> specs;
    for (const auto& spec : Split(schema, ',')) specs.push_back(ParseFieldSpec(spec));
    // Each schema field takes the CSV column of the same name.
    std::vector<size_t> columns;
    for (const auto& spec : specs) {
        auto found = std::find(rows[0].begin(), rows[0].end(), spec.name);
        if (found == rows[0].end()) throw Failure(csvPath + ": no column named " + spec.name);
        columns.push_back(static_cast<size_t>(found - rows[0].begin()));
    }

    DBase table(WidePath(path));
    if (!table.Create(ChooseKind(codePage))) Fail(path, table);
    AddFields(table, path, specs);
    OpenTable(table, path, false);
    Progress progress("import", static_cast<int64_t>(rows.size()));
    for (size_t row = 1; row < rows.size(); ++row) {
        progress.Update(static_cast<int64_t>(row));
        if (!table.AddRecord()) Fail(path, table);
        for (size_t i = 0; i < specs.size(); ++i) {
            const std::string cell = columns[i] < rows[row].size() ? rows[row][columns[i]] : "";
            bool stored = cell.empty() ? table.SetFieldNull(static_cast<int>(i))
                                       : table.SetFieldString(static_cast<int>(i), String::FromUtf8(cell));
            if (!stored) {
                throw Failure(csvPath + ": line " + std::to_string(row + 1) + ", " + specs[i].name + ": " +
                              StatusText(table.GetLastStatus()));
            }
        }
    }
    if (!table.Close()) Fail(path, table);
    std::cout << "wrote " << rows.size() - 1 << " records to " << path << "\n";
}

void RunAddField(const std::string& path, const std::string& spec) {
    RequireRegularFile(path);
    DBase table(WidePath(path));
    AddFields(table, path, {ParseFieldSpec(spec)});
}

void RunDropField(const std::string& path, const std::string& name) {
    RequireRegularFile(path);
    DBase table(WidePath(path));
    if (!table.DropColumn(String::FromUtf8(name))) {
        if (table.GetLastStatus() == DBase::kStatusBadField) throw Failure(path + ": no field named " + name);
        Fail(path, table);
    }
}

void RunPack(const std::string& path) {
    DBase table(WidePath(path));
    OpenTable(table, path, false);
    int32_t before = table.GetNumRecords();
    if (!table.CompactFile() || !table.Close()) Fail(path, table);
    DBase packed(WidePath(path));
    OpenTable(packed, path, true);
    std::cout << "removed " << before - packed.GetNumRecords() << " deleted records, " << packed.GetNumRecords()
              << " left\n";
}

void RunDelete(const std::string& path, const std::vector<int64_t>& records) {
    DBase table(WidePath(path));
    OpenTable(table, path, false);
    for (int64_t record : records) {
        if (record < INT32_MIN || record > INT32_MAX || !table.DeleteRecord(static_cast<int32_t>(record))) {
            throw Failure(path + ": record " + std::to_string(record) + ": " + StatusText(table.GetLastStatus()));
        }
    }
    // Closing compacts the table: the records are gone, not only marked.
    if (!table.Close()) Fail(path, table);
}

void Install(CLI::App& app) {
    auto* dbf = app.add_subcommand("dbf", "dBASE tables (.dbf): header, records, schema changes");
    dbf->require_subcommand(1);

    auto* info = dbf->add_subcommand("info", "Show a table's header, code page and fields");
    auto infoPath = std::make_shared<std::string>();
    auto infoJson = std::make_shared<bool>(false);
    info->add_option("TABLE", *infoPath, "The table")->required();
    info->add_flag("--json", *infoJson, "Print JSON");
    info->callback([=] { RunInfo(*infoPath, *infoJson); });

    auto* dump = dbf->add_subcommand("dump", "Print the records as UTF-8 CSV or JSON lines");
    auto dumpOptions = std::make_shared<DumpOptions>();
    dump->add_option("TABLE", dumpOptions->path, "The table")->required();
    dump->add_option("--format", dumpOptions->format, "csv (with a header row) or jsonl");
    dump->add_option("--fields", dumpOptions->fields, "Only these fields, comma-separated");
    dump->add_option("--limit", dumpOptions->limit, "At most this many records");
    dump->add_flag("--include-deleted", dumpOptions->includeDeleted, "Also records marked deleted");
    dump->callback([=] { RunDump(*dumpOptions); });

    auto* import = dbf->add_subcommand("import-csv", "Make a table from a UTF-8 CSV file with a header row");
    auto csvPath = std::make_shared<std::string>();
    auto importPath = std::make_shared<std::string>();
    auto schema = std::make_shared<std::string>();
    auto codePage = std::make_shared<std::string>();
    import->add_option("CSV", *csvPath, "The CSV file")->required();
    import->add_option("TABLE", *importPath, "The table to make (replaced if it exists)")->required();
    import->add_option("--schema", *schema, "NAME:TYPE:WIDTH[:DECIMALS],... (types C D F L N)")->required();
    import->add_option("--codepage", *codePage, "Code page of the table, e.g. 1252, 437, UTF-8");
    import->callback([=] { RunImportCsv(*csvPath, *importPath, *schema, *codePage); });

    auto* addField = dbf->add_subcommand("add-field", "Add a field (records get zero bytes in it)");
    auto addPath = std::make_shared<std::string>();
    auto addSpec = std::make_shared<std::string>();
    addField->add_option("TABLE", *addPath, "The table")->required();
    addField->add_option("SPEC", *addSpec, "NAME:TYPE:WIDTH[:DECIMALS]")->required();
    addField->callback([=] { RunAddField(*addPath, *addSpec); });

    auto* dropField = dbf->add_subcommand("drop-field", "Remove a field");
    auto dropPath = std::make_shared<std::string>();
    auto dropName = std::make_shared<std::string>();
    dropField->add_option("TABLE", *dropPath, "The table")->required();
    dropField->add_option("NAME", *dropName, "The field")->required();
    dropField->callback([=] { RunDropField(*dropPath, *dropName); });

    auto* pack = dbf->add_subcommand("pack", "Remove the records marked deleted");
    auto packPath = std::make_shared<std::string>();
    pack->add_option("TABLE", *packPath, "The table")->required();
    pack->callback([=] { RunPack(*packPath); });

    auto* remove = dbf->add_subcommand("delete", "Delete records (numbers from 0) and compact the table");
    auto deletePath = std::make_shared<std::string>();
    auto records = std::make_shared<std::vector<int64_t>>();
    remove->add_option("TABLE", *deletePath, "The table")->required();
    remove->add_option("RECNO", *records, "Record numbers, from 0")->required();
    remove->callback([=] { RunDelete(*deletePath, *records); });
}

// `quillet info` on a table: what `dbf info --json` shows, when DBase opens it.
bool ProbeTable(const std::filesystem::path& path, std::span<const unsigned char> head, Json& out) {
    std::string extension = path.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (extension != ".dbf" || head.size() < 32) return false;
    DBase table(WidePath(path));
    if (!table.Open(true, true, CodePage::qovaCodePageDefault)) return false;
    const auto& header = table.GetHeader();
    out["kind"] = "dBASE table";
    out["version"] = header.version;
    out["date"] = HeaderDate(header);
    out["records"] = header.numRecords;
    out["header_length"] = header.headerLength;
    out["record_length"] = header.recordLength;
    out["ldid"] = header.languageDriver;
    out["codepage"] = Utf8(table.GetCodePage().GetCodePageName().str());
    out["fields"] = table.GetNumFields();
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
    RegisterDemoStep({300, "dBASE tables: create, fill, change, compact, add and drop fields, dump", RunDemo});
}

}  // namespace

QUILLET_TOOL_REGISTER(Register);

}  // namespace quillet::tool
