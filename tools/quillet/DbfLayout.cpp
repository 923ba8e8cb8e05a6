#include "DbfLayout.h"

#include <algorithm>
#include <fstream>

#include "Common.h"
#include "dbase/DBase.h"
#include "foundation/ByteOrder.h"

namespace quillet::tool {

namespace {

constexpr size_t kRecordCountAt = 4;
constexpr size_t kHeaderLengthAt = 8;
constexpr size_t kRecordLengthAt = 10;
constexpr size_t kLdidAt = 29;
constexpr size_t kTypeAt = 11;
constexpr size_t kWidthAt = 16;
constexpr size_t kDecimalsAt = 17;

[[noreturn]] void NotATable(const std::filesystem::path& path, const std::string& why) {
    throw Failure(path.string() + ": not a dBASE table (" + why + ")");
}

// The descriptors up to the terminator that other readers stop at, or up to
// the header's end.
std::vector<DbfLayout::Field> ReadFields(const std::vector<unsigned char>& header) {
    std::vector<DbfLayout::Field> fields;
    for (size_t at = kDBaseHeaderSize;
         at + kDBaseFieldRecordSize <= header.size() && header[at] != kDBaseHeaderTerminator;
         at += kDBaseFieldRecordSize) {
        const auto* name = reinterpret_cast<const char*>(&header[at]);
        fields.push_back({std::string(name, std::find(name, name + kDBaseFieldNameSlot, '\0')),
                          static_cast<char>(header[at + kTypeAt]), header[at + kWidthAt],
                          header[at + kDecimalsAt]});
    }
    return fields;
}

}  // namespace

std::string DbfLayout::Damage(const std::filesystem::path& path) const {
    return path.string() + ": damaged: the header gives " + Count(records, "record") +
           ", but the file ends after " + std::to_string(completeRecords);
}

void DbfLayout::RequireIntact(const std::filesystem::path& path) const {
    if (Damaged()) throw Failure(Damage(path));
}

void DbfLayout::RequireReadWhole(const std::filesystem::path& path, int32_t read,
                                 bool atLimit) const {
    std::error_code error;
    auto size = static_cast<int64_t>(std::filesystem::file_size(path, error));
    auto headerLength = static_cast<int64_t>(header.size());
    int64_t wholeNow =
        error ? 0 : std::clamp<int64_t>((size - headerLength) / recordLength, 0, records);
    std::string now = error ? "it cannot be read any more (" + error.message() + ")"
                            : "the file now ends after " + std::to_string(wholeNow);
    if (wholeNow < read)
        now += " (what was read past record " + std::to_string(wholeNow) + " is not the table's)";
    if (!atLimit && read < completeRecords) {
        throw Failure(path.string() + ": damaged: the header gives " + Count(records, "record") +
                      ", but reading record " + std::to_string(read + 1) + " failed: " + now);
    }
    if (wholeNow < read) {
        throw Failure(path.string() + ": damaged: it was cut while it was read: the header gives " +
                      Count(records, "record") + ", " + std::to_string(read) + " were read, " +
                      now);
    }
    if (!atLimit) RequireIntact(path);
}

DbfLayout ReadDbfLayout(const std::filesystem::path& path) {
    auto head = ReadHead(path, kDBaseHeaderSize);
    if (head.size() < kDBaseHeaderSize) NotATable(path, "too short for a header");
    auto size = static_cast<int64_t>(std::filesystem::file_size(path));
    DbfLayout layout;
    layout.records = static_cast<int32_t>(DecodeFixed32LE(&head[kRecordCountAt]));
    auto headerLength = static_cast<int16_t>(DecodeFixed16LE(&head[kHeaderLengthAt]));
    layout.recordLength = static_cast<int16_t>(DecodeFixed16LE(&head[kRecordLengthAt]));
    layout.ldid = head[kLdidAt];
    if (headerLength <= kDBaseHeaderSize || headerLength > size) {
        NotATable(path, "a header of " + std::to_string(headerLength) + " bytes in a file of " +
                            std::to_string(size));
    }
    if (layout.records < 0 || layout.recordLength < 1)
        NotATable(path, "negative counts in its header");
    layout.header = ReadHead(path, static_cast<size_t>(headerLength));
    layout.fields = ReadFields(layout.header);
    int fieldBytes = 1;
    for (const auto& field : layout.fields) fieldBytes += field.width;
    if (fieldBytes > layout.recordLength) {
        NotATable(path, "fields of " + std::to_string(fieldBytes) + " bytes in records of " +
                            std::to_string(layout.recordLength));
    }
    int64_t whole = (size - headerLength) / layout.recordLength;
    layout.completeRecords = static_cast<int32_t>(std::min<int64_t>(whole, layout.records));
    return layout;
}

}  // namespace quillet::tool
