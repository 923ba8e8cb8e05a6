#include "TableCopy.h"

#include <fstream>

#include "Common.h"
#include "dbase/DBaseFormat.h"
#include "foundation/ByteOrder.h"

namespace quillet::tool {

namespace {

constexpr size_t kRecordCountAt = 4;

// Reads the records of a table one after the other.
class RecordReader {
public:
    RecordReader(const std::filesystem::path& path, const DbfLayout& layout)
        : path_(path),
          in_(path, std::ios::binary),
          record_(static_cast<size_t>(layout.recordLength), '\0') {
        in_.seekg(static_cast<std::streamoff>(layout.header.size()));
        if (!in_) throw Failure(path.string() + ": cannot be opened for reading");
    }

    const std::string& Next() {
        if (!in_.read(record_.data(), static_cast<std::streamsize>(record_.size()))) {
            throw Failure(path_.string() + ": a read failed");
        }
        return record_;
    }

private:
    std::filesystem::path path_;
    std::ifstream in_;
    std::string record_;
};

void Write(std::ofstream& out, const std::filesystem::path& path, const void* bytes, size_t size) {
    if (!out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size))) {
        throw Failure(path.string() + ": a write failed");
    }
}

}  // namespace

std::vector<bool> DeletedRecords(const std::filesystem::path& path, const DbfLayout& layout) {
    std::vector<bool> deleted(static_cast<size_t>(layout.records));
    RecordReader reader(path, layout);
    for (size_t n = 0; n < deleted.size(); ++n) {
        deleted[n] = static_cast<unsigned char>(reader.Next()[0]) == kDBaseDeletedFlag;
    }
    return deleted;
}

int32_t CopyTableRecords(const std::filesystem::path& source, const DbfLayout& layout,
                         const std::filesystem::path& target, const std::vector<bool>& dropped) {
    std::ofstream out(target, std::ios::binary);
    if (!out) throw Failure(target.string() + ": cannot be created");
    Write(out, target, layout.header.data(), layout.header.size());
    RecordReader reader(source, layout);
    int32_t written = 0;
    for (int32_t n = 0; n < layout.records; ++n) {
        const std::string& record = reader.Next();
        if (static_cast<size_t>(n) < dropped.size() && dropped[static_cast<size_t>(n)]) continue;
        Write(out, target, record.data(), record.size());
        ++written;
    }
    Write(out, target, &kDBaseEndOfFile, 1);
    unsigned char count[4];
    EncodeFixed32LE(count, static_cast<uint32_t>(written));
    out.seekp(kRecordCountAt);
    Write(out, target, count, sizeof count);
    out.close();
    if (!out) throw Failure(target.string() + ": a write failed");
    return written;
}

}  // namespace quillet::tool
