// Opens a next-generation record file made of the fuzz bytes (data file,
// index file and free list), reads every record and the user header, then
// inserts, updates, deletes and compacts. Input: two 2-byte little-endian
// lengths, the data file, the index file, then the free list (the rest).

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzFiles.h"
#include "recordfile/VFileNG.h"
#include "recordfile/VFileNGCheck.h"

namespace {

void ReadEverything(quillet::VFileNG& file) {
    std::vector<unsigned char> buffer(64);
    int32_t length = 0;
    file.ReadUserHeader(buffer.data(), static_cast<int32_t>(buffer.size()));
    int32_t max = file.GetMaxRecordNumber(false);
    int32_t seen = 0;
    quillet::VFileNGIndex& index = file.GetIndex();
    for (int32_t n = index.GetNextStoredNumber(1); n >= 1 && n <= max && seen < 5000;
         n = n < INT32_MAX ? index.GetNextStoredNumber(n + 1) : -1, ++seen) {
        if (file.ReadRecord(n, buffer.data(), static_cast<int32_t>(buffer.size()), &length)) {
            continue;
        }
        // Grown only to what the file vouches for: never beyond its longest record.
        if (length > 0 && length <= file.GetHeader().maxRecordLength) {
            buffer.resize(static_cast<size_t>(length));
            file.ReadRecord(n, buffer.data(), length, &length);
        }
    }
    quillet::VFileNGCheck::Run(file, file.GetFreeList());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const auto& folder = quillet::fuzz::Folder();
    size_t dataLength = std::min<size_t>(size - 4, data[0] | (data[1] << 8));
    size_t indexLength = std::min<size_t>(size - 4 - dataLength, data[2] | (data[3] << 8));
    const uint8_t* at = data + 4;
    quillet::fuzz::WriteFile(folder / "f.dat", at, dataLength);
    quillet::fuzz::WriteFile(folder / "f.dax", at + dataLength, indexLength);
    quillet::fuzz::WriteFile(folder / "f.freelist", at + dataLength + indexLength,
                             size - 4 - dataLength - indexLength);
    std::wstring wide = quillet::fuzz::Wide(folder / "f.dat");
    {
        quillet::VFileNG file(wide.c_str());
        if (file.Open(quillet::VFileNG::kReadOnly, true, false)) ReadEverything(file);
        if (file.Open(quillet::VFileNG::kReadWrite, false, false)) {
            unsigned char bytes[300] = {1, 2, 3};
            int32_t n = 0;
            file.InsertRecord(bytes, 3, &n);
            file.UpdateRecord(1, bytes, 300);
            file.UpdateRecord(2, bytes, 1);
            file.DeleteRecord(1);
            file.WriteUserHeader(bytes, 20);
            file.InsertRecordWithId(3000, bytes, 40);
            ReadEverything(file);
            file.CompactFile(n % 2 == 0);
            ReadEverything(file);
        }
    }
    quillet::fuzz::RemoveFiles();
    return 0;
}
