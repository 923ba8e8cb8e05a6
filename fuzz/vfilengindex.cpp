// Opens a next-generation record index made of the fuzz bytes, reads it,
// then opens it for writing and stores entries that store and move chunks.
// Input: the index file.

#include <cstddef>
#include <cstdint>

#include "FuzzFiles.h"
#include "recordfile/VFileNGIndex.h"

namespace {

void Read(quillet::VFileNGIndex& index) {
    index.GetMinRecordNumber();
    int32_t max = index.GetMaxRecordNumber(true);
    int32_t seen = 0;
    for (int32_t n = index.GetNextStoredNumber(1); n >= 1 && n <= max && seen < 5000;
         n = n < INT32_MAX ? index.GetNextStoredNumber(n + 1) : -1, ++seen) {
        index.GetFilePosition(n);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    quillet::fuzz::WriteFile(quillet::fuzz::Folder() / "f.dax", data, size);
    std::wstring wide = quillet::fuzz::Wide(quillet::fuzz::Folder() / "f.dat");
    {
        quillet::VFileNGIndex index(wide.c_str());
        if (index.Open(0, true, false)) Read(index);
        if (index.Open(1, false, false)) {
            for (int32_t n : {1, 5000, 2000, 1 << 20}) index.SetFilePosition(n, 40 + n);
            index.DeleteRecord(5000);
            Read(index);
            index.Close(false);
            if (index.Open(0, true, false)) Read(index);
        }
    }
    quillet::fuzz::RemoveFiles();
    return 0;
}
