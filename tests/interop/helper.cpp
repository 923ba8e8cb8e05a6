// Writes and reads files through the library for the interoperability checks.
//
//   helper dbf-create TABLE KIND NAME:TYPE:WIDTH[:DECIMALS],...   (KIND: ansi, oem, utf8)
//       then one record per stdin line, values separated by tabs, set through
//       DBase's typed setters; a line "DELETE n" marks record n deleted (the
//       close compacts it away)
//   helper shp-write OUT.shp TYPE XMIN YMIN XMAX YMAX ZMIN ZMAX MMIN MMAX
//       then one record per stdin line, its bytes in hex (none: a null shape)
//   helper shp-dump SHP
//       "header TYPE COUNT XMIN YMIN XMAX YMAX ZMIN ZMAX MMIN MMAX VERSION",
//       then "record N HEX" for each live record (N 1-based)
//
// Table values, UTF-8: C text; N integer (no decimals) or number; F number; D
// YYYYMMDD; L T or F; an empty value makes the field null.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "dbase/DBase.h"
#include "shape/ShpFile.h"

using namespace quillet;

namespace {

int Fail(const std::string& message, const DBase* table = nullptr) {
    std::fprintf(stderr, "helper: %s%s\n", message.c_str(),
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
            if (table.GetFieldDecimals(field) == 0)
                return table.SetFieldInteger(field, std::atoi(value.c_str()));
            return table.SetFieldDouble(field, std::atof(value.c_str()));
        case DBase::qovaFloat:
            return table.SetFieldFloat(field, static_cast<float>(std::atof(value.c_str())));
        case DBase::qovaDate: {
            DBase::DateRec date;
            std::copy(value.begin(), value.begin() + 4, date.year);
            std::copy(value.begin() + 4, value.begin() + 6, date.month);
            std::copy(value.begin() + 6, value.begin() + 8, date.day);
            return table.SetFieldDate(field, date);
        }
        case DBase::qovaLogical: return table.SetFieldLogical(field, value == "T");
        default: return table.SetFieldString(field, String::FromUtf8(value));
    }
}

int CreateTable(const std::string& path, const std::string& kind, const std::string& schema) {
    DBase table(String::FromUtf8(path));
    auto codePage = kind == "oem"    ? CodePage::qovaCodePageOEM
                    : kind == "utf8" ? CodePage::qovaCodePageUTF8
                                     : CodePage::qovaCodePageANSI;
    if (!table.Create(codePage)) return Fail("cannot create " + path, &table);
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
    if (!table.AddColumns(names, types.data(), widths.data(), decimals.data()))
        return Fail("bad schema", &table);
    if (!table.Open(false, false, CodePage::qovaCodePageDefault))
        return Fail("cannot open", &table);
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line.rfind("DELETE ", 0) == 0) {
            if (!table.DeleteRecord(std::atoi(line.c_str() + 7)))
                return Fail("cannot delete", &table);
            continue;
        }
        if (!table.AddRecord()) return Fail("cannot add a record", &table);
        auto values = Split(line, '\t');
        for (int field = 0; field < static_cast<int>(values.size()) && field < table.GetNumFields();
             ++field) {
            if (!SetValue(table, field, values[static_cast<size_t>(field)]))
                return Fail("bad value " + line, &table);
        }
    }
    return table.Close() ? 0 : Fail("cannot close", &table);
}

int WriteShapes(char** argv) {
    double v[8];
    for (int i = 0; i < 8; ++i) v[i] = std::strtod(argv[i + 2], nullptr);
    ShpFile shp(String::FromUtf8(argv[0]).c_str());
    ShpFile::DOUBLERECT box{v[0], v[1], v[2], v[3]};
    if (!shp.Create(static_cast<ShpFile::qovaShapeTypeEnum>(std::atoi(argv[1])), &box) ||
        !shp.SetZExtent({v[4], v[5]}, false) || !shp.SetMExtent({v[6], v[7]}, false)) {
        return Fail("cannot create the file");
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        std::vector<unsigned char> bytes;
        for (size_t i = 0; i + 1 < line.size(); i += 2) {
            bytes.push_back(static_cast<unsigned char>(std::stoi(line.substr(i, 2), nullptr, 16)));
        }
        auto length = static_cast<int32_t>(bytes.size());
        if (!shp.InsertRecord(length ? bytes.data() : nullptr, length)) return Fail("cannot write");
    }
    if (!shp.WriteHeader() || !shp.Flush()) return Fail("cannot write the header");
    return shp.Close() ? 0 : Fail("cannot close");
}

int DumpShapes(const char* path) {
    ShpFile shp(String::FromUtf8(path).c_str());
    if (!shp.Open(true, false, false)) return Fail("cannot open " + std::string(path));
    const auto& e = shp.GetExtent();
    std::printf("header %d %d %.17g %.17g %.17g %.17g %.17g %.17g %.17g %.17g %d\n",
                shp.GetShapeType(), shp.GetNumRecords(), e.xmin, e.ymin, e.xmax, e.ymax,
                shp.GetZExtent().zmin, shp.GetZExtent().zmax, shp.GetMExtent().mmin,
                shp.GetMExtent().mmax, shp.GetVersion());
    for (int32_t n = 0; n < shp.GetNumRecords(); ++n) {
        int32_t length = 0;
        const unsigned char* bytes = shp.ReadRecord(n, length);
        const char* missing = shp.IsRecordDeleted(n) ? "deleted" : "unreadable";
        std::printf("record %d %s", n + 1, bytes ? "" : missing);
        for (int32_t i = 0; bytes && i < length; ++i) std::printf("%02x", bytes[i]);
        std::printf("\n");
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string command = argc > 1 ? argv[1] : "";
    if (argc == 5 && command == "dbf-create") return CreateTable(argv[2], argv[3], argv[4]);
    if (argc == 12 && command == "shp-write") return WriteShapes(argv + 2);
    if (argc == 3 && command == "shp-dump") return DumpShapes(argv[2]);
    return Fail(
        "usage: helper dbf-create TABLE KIND SCHEMA | shp-write OUT.shp TYPE EXTENTS... | "
        "shp-dump SHP");
}
