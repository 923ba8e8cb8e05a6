#include "TableBuilder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "foundation/ByteOrder.h"

namespace quillet::test {

void CreateTable(const std::wstring& path, const std::vector<FieldSpec>& fields,
                 CodePage::qovaCodePageEnum codePage) {
    DBase table(path);
    ASSERT_TRUE(table.Create(codePage)) << table.GetLastStatus();
    if (fields.empty()) return;
    StringArray names;
    std::vector<DBase::qovaDataType> types;
    std::vector<int> widths, decimals;
    for (const auto& field : fields) {
        names.Add(field.name);
        types.push_back(field.type);
        widths.push_back(field.width);
        decimals.push_back(field.decimals);
    }
    ASSERT_TRUE(table.AddColumns(names, types.data(), widths.data(), decimals.data()))
        << table.GetLastStatus();
}

void AppendRows(const std::wstring& path, const std::vector<std::vector<std::wstring>>& rows) {
    DBase table(path);
    ASSERT_TRUE(OpenTable(table));
    for (const auto& row : rows) {
        ASSERT_TRUE(table.AddRecord());
        for (size_t f = 0; f < row.size(); ++f) {
            ASSERT_TRUE(table.SetFieldString(static_cast<int>(f), row[f])) << table.GetLastStatus();
        }
    }
    ASSERT_TRUE(table.Close());
}

Bytes RawTable(int16_t headerLength, int16_t recordLength, int32_t numRecords,
               const std::vector<DBase::FieldRecord>& fields,
               const std::vector<std::string>& records, bool endOfFile) {
    Bytes bytes = {3, 124, 1, 2};  // version 3, dated 2024-01-02
    bytes.resize(32);
    EncodeFixed32LE(&bytes[4], static_cast<uint32_t>(numRecords));
    EncodeFixed16LE(&bytes[8], static_cast<uint16_t>(headerLength));
    EncodeFixed16LE(&bytes[10], static_cast<uint16_t>(recordLength));
    bytes[29] = 0x57;
    for (const auto& field : fields) {
        unsigned char disk[32];
        field.EncodeTo(disk);
        bytes.insert(bytes.end(), disk, disk + 32);
    }
    bytes.push_back(0x0D);
    for (const auto& record : records) bytes.insert(bytes.end(), record.begin(), record.end());
    if (endOfFile) bytes.push_back(0x1A);
    return bytes;
}

DBase::FieldRecord RawField(const char* name, char type, int width, int decimals) {
    DBase::FieldRecord field;
    std::memcpy(field.name, name, std::min(std::strlen(name), sizeof field.name));
    field.type = type;
    field.width = static_cast<uint8_t>(width);
    field.decimals = static_cast<uint8_t>(decimals);
    return field;
}

}  // namespace quillet::test
