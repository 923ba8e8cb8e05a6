#include "DbfTable.h"

#include "AtxIndexes.h"

#include <algorithm>
#include <cstdlib>
#include <cwctype>
#include <iostream>
#include <sstream>

#include "Common.h"
#include "foundation/Win32Error.h"

namespace quillet::tool {

namespace {

std::string HeaderDate(const DBase::HeaderRecord& header) {
    char date[16];
    std::snprintf(date, sizeof date, "%04d-%02d-%02d", 1900 + header.year, header.month,
                  header.day);
    return date;
}

int ParseNumber(const std::string& text, const std::string& spec) {
    char* end = nullptr;
    long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 0 || value > 1000) {
        throw UsageError("bad number '" + text + "' in field spec " + spec);
    }
    return static_cast<int>(value);
}

bool SameName(std::wstring a, std::wstring b) {
    auto upper = [](std::wstring& text) {
        for (wchar_t& c : text) c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    };
    upper(a);
    upper(b);
    return a == b;
}

// As many whole records as the table's file holds after its header, whatever
// the header's count.
int64_t RecordsInFile(const DBase& table) {
    const auto& header = table.GetHeader();
    std::error_code error;
    auto size =
        static_cast<int64_t>(std::filesystem::file_size(Utf8(table.GetFilePath().str()), error));
    if (error || header.recordLength <= 0) return 0;
    return std::max<int64_t>(0, (size - header.headerLength) / header.recordLength);
}

}  // namespace

std::string StatusText(int32_t status) {
    switch (status) {
        // The library fails an open without a status when a field
        // descriptor cannot be read.
        case DBase::kStatusOk: return "not a readable dBASE table";
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

// What the system said of a failed write, which the table's status does not.
std::string WriteFailureCause() {
    switch (quillet::GetLastError()) {
        case ERROR_DISK_FULL: return " (no space left on the device)";
        case ERROR_ACCESS_DENIED: return " (access denied)";
        case ERROR_SHARING_VIOLATION: return " (the file is in use)";
        case ERROR_WRITE_FAULT: return " (an input/output error)";
        default: return "";
    }
}

void Fail(const std::filesystem::path& path, const DBase& table) {
    int32_t status = table.GetLastStatus();
    std::string cause = status == DBase::kStatusWriteFailed ? WriteFailureCause() : "";
    throw Failure(path.string() + ": " + StatusText(status) + cause);
}

DbfLayout OpenTable(DBase& table, const std::filesystem::path& path, bool readOnly) {
    DbfLayout layout = ReadDbfLayout(path);
    if (!table.Open(readOnly, readOnly, CodePage::qovaCodePageDefault)) Fail(path, table);
    return layout;
}

std::vector<std::string> TableFileNames(const std::filesystem::path& path) {
    auto name = path.filename();
    return {name.string(), std::filesystem::path(name).replace_extension(".cpg").string()};
}

void NoteRewrite(const std::filesystem::path& path, const DbfLayout& before) {
    DbfLayout after = ReadDbfLayout(path);
    std::string changes;
    for (size_t i = 0; i < std::min(before.fields.size(), after.fields.size()); ++i) {
        if (before.fields[i].name == after.fields[i].name) continue;
        changes += (changes.empty() ? "renamed " : ", ") + before.fields[i].name + " to " +
                   after.fields[i].name;
    }
    if (before.ldid != after.ldid) {
        char bytes[64];
        std::snprintf(bytes, sizeof bytes, "set the language driver byte to 0x%02X (it was 0x%02X)",
                      after.ldid, before.ldid);
        changes += (changes.empty() ? "" : "; ") + std::string(bytes);
    }
    if (!changes.empty())
        std::cerr << "quillet: note: " << path.string() << ": the library's rewrite " << changes
                  << "\n";
}

int FindField(DBase& table, const DbfLayout& layout, const std::filesystem::path& path,
              const std::string& name) {
    std::wstring wanted = String::FromUtf8(name).str();
    for (int i = 0; i < table.GetNumFields(); ++i) {
        if (SameName(table.GetFieldName(i).str(), wanted)) return i;
    }
    CodePage page(table.GetCodePage().GetCodePageId());
    for (size_t i = 0; i < layout.fields.size(); ++i) {
        String stored(DecodeText(page, layout.fields[i].name));
        stored.Trim();
        if (SameName(stored.str(), wanted)) return static_cast<int>(i);
    }
    throw Failure(path.string() + ": no field named " + name);
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    std::string part;
    while (std::getline(in, part, separator)) parts.push_back(part);
    return parts;
}

FieldSpec ParseFieldSpec(const std::string& spec) {
    auto parts = Split(spec, ':');
    if (parts.size() < 3 || parts.size() > 4 || parts[0].empty() || parts[1].size() != 1) {
        throw UsageError("field spec must be NAME:TYPE:WIDTH[:DECIMALS]: " + spec);
    }
    // The library would cut a longer name; the table would then not have the
    // field that was asked for.
    if (String::FromUtf8(parts[0]).str().size() > kDBaseMaxFieldName) {
        throw UsageError("field name longer than " + std::to_string(kDBaseMaxFieldName) +
                         " characters: " + spec);
    }
    char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(parts[1][0])));
    if (std::string("CDFLN").find(letter) == std::string::npos) {
        throw UsageError("field type must be C, D, F, L or N: " + spec);
    }
    return {parts[0], static_cast<DBase::qovaDataType>(letter), ParseNumber(parts[2], spec),
            parts.size() == 4 ? ParseNumber(parts[3], spec) : 0};
}

std::vector<FieldSpec> ParseSchema(const std::string& schema) {
    std::vector<FieldSpec> specs;
    for (const auto& spec : Split(schema, ',')) specs.push_back(ParseFieldSpec(spec));
    return specs;
}

void AddFields(DBase& table, const std::filesystem::path& path,
               const std::vector<FieldSpec>& specs) {
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

Json TableInfoJson(DBase& table) {
    const auto& header = table.GetHeader();
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
                {"records_in_file", RecordsInFile(table)},
                {"header_length", header.headerLength},
                {"record_length", header.recordLength},
                {"ldid", header.languageDriver}};
    out.update(CodePageJson(table.GetCodePage()));
    out["fields"] = fields;
    out["indexes"] = IndexesJson(table, Utf8(table.GetFilePath().str()));
    return out;
}

}  // namespace quillet::tool
