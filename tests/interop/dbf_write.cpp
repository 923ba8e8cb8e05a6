// Writes tables through DBase's typed setters for the interoperability checks.
//
//   dbf_write create TABLE KIND NAME:TYPE:WIDTH[:DECIMALS],...   (KIND: ansi, oem, utf8)
//       then one record per stdin line, values separated by tabs; a line
//       "DELETE n" marks record n deleted (the close compacts it away)
//   dbf_write fill TABLE FIELD
//       sets FIELD of record i to stdin line i
//
// Values, UTF-8: C text; N integer (no decimals) or number; F number; D
// YYYYMMDD; L T or F; an empty value makes the field null.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "dbase/DBase.h"

using namespace quillet;

namespace {

int Die(const std::string& message, const DBase* table = nullptr) {
    std::fprintf(stderr, "dbf_write: %s%s\n", message.c_str(),
                 table ? (" (status " + std::to_string(table->GetLastStatus()) + ")").c_str() : "");
    return 1;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    std::string part;
    while (std::getline(in, part, separator)) parts.push_back(part);
    if (!text.empty() && text.back() == separator) parts.emplace_back();
    return parts;
}

bool SetValue(DBase& table, int field, const std::string& value) {
    if (value.empty()) return table.SetFieldNull(field);
    switch (table.GetFieldType(field)) {
        case DBase::qovaNumeric:
            if (table.GetFieldDecimals(field) == 0) return table.SetFieldInteger(field, std::atoi(value.c_str()));
            return table.SetFieldDouble(field, std::atof(value.c_str()));
        case DBase::qovaFloat:
            return table.SetFieldFloat(field, static_cast<float>(std::atof(value.c_str())));
        case DBase::qovaDate: {
            DBase::DateRec date;
            wchar_t* parts[] = {date.year, date.month, date.day};
            const size_t sizes[] = {4, 2, 2};
            size_t at = 0;
            for (int p = 0; p < 3; ++p) {
                for (size_t i = 0; i < sizes[p]; ++i) parts[p][i] = static_cast<unsigned char>(value[at++]);
            }
            return table.SetFieldDate(field, date);
        }
        case DBase::qovaLogical:
            return table.SetFieldLogical(field, value == "T");
        default:
            return table.SetFieldString(field, String::FromUtf8(value));
    }
}

CodePage::qovaCodePageEnum Kind(const std::string& name) {
    if (name == "oem") return CodePage::qovaCodePageOEM;
    if (name == "utf8") return CodePage::qovaCodePageUTF8;
    return CodePage::qovaCodePageANSI;
}

int Create(const std::string& path, const std::string& kind, const std::string& schema) {
    DBase table(String::FromUtf8(path));
    if (!table.Create(Kind(kind))) return Die("cannot create " + path, &table);
    StringArray names;
    std::vector<DBase::qovaDataType> types;
    std::vector<int> widths, decimals;
    for (const auto& spec : Split(schema, ',')) {
        auto parts = Split(spec, ':');
        names.Add(String::FromUtf8(parts[0]));
        types.push_back(static_cast<DBase::qovaDataType>(parts[1][0]));
        widths.push_back(std::atoi(parts[2].c_str()));
        decimals.push_back(parts.size() > 3 ? std::atoi(parts[3].c_str()) : 0);
    }
    if (!table.AddColumns(names, types.data(), widths.data(), decimals.data())) return Die("bad schema", &table);
    if (!table.Open(false, false, CodePage::qovaCodePageDefault)) return Die("cannot open", &table);
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line.rfind("DELETE ", 0) == 0) {
            if (!table.DeleteRecord(std::atoi(line.c_str() + 7))) return Die("cannot delete", &table);
            continue;
        }
        if (!table.AddRecord()) return Die("cannot add a record", &table);
        auto values = Split(line, '\t');
        for (int field = 0; field < static_cast<int>(values.size()) && field < table.GetNumFields(); ++field) {
            if (!SetValue(table, field, values[static_cast<size_t>(field)])) return Die("bad value " + line, &table);
        }
    }
    return table.Close() ? 0 : Die("cannot close", &table);
}

int Fill(const std::string& path, const std::string& name) {
    DBase table(String::FromUtf8(path));
    if (!table.Open(false, false, CodePage::qovaCodePageDefault)) return Die("cannot open " + path, &table);
    int field = table.GetFieldNumber(String::FromUtf8(name));
    if (field < 0) return Die("no field " + name);
    std::string line;
    for (int record = 0; std::getline(std::cin, line) && record < table.GetNumRecords(); ++record) {
        if (!table.MoveTo(record) || !SetValue(table, field, line)) return Die("cannot set " + line, &table);
    }
    return table.Close() ? 0 : Die("cannot close", &table);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "create") == 0) return Create(argv[2], argv[3], argv[4]);
    if (argc == 4 && std::strcmp(argv[1], "fill") == 0) return Fill(argv[2], argv[3]);
    return Die("usage: dbf_write create TABLE KIND SCHEMA | fill TABLE FIELD");
}
