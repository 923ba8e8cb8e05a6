// Opens an older record file made of the fuzz bytes and reads every record
// and the user header. Input: a 2-byte little-endian length k, the data file
// (k bytes), then the index file (the rest).

#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "FuzzFiles.h"
#include "recordfile/VFile.h"

namespace {

void ReadEverything(quillet::VFile& file) {
    unsigned char user[quillet::VFile::kUserHeaderLength];
    file.ReadUserHeader(user, sizeof user);
    std::vector<unsigned char> buffer;
    for (int32_t n = 0; n < file.GetNumRecs(); ++n) {
        file.IsRecordDeleted(n);
        file.GetFilePosition(n);
        int32_t length = file.GetRecordLength(n);
        if (length > 0) {
            buffer.resize(static_cast<size_t>(length));
            file.ReadRecord(n, buffer.data(), length);
        }
        file.GetRecordBuffer(n);
        quillet::VFile::IndexRec entry;
        file.ReadIndex(n, entry);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    quillet::fuzz::InputScope scope;
    size_t split = std::min<size_t>(size - 2, data[0] | (data[1] << 8));
    quillet::fuzz::WriteFile(quillet::fuzz::Folder() / "f.shp", data + 2, split);
    quillet::fuzz::WriteFile(quillet::fuzz::Folder() / "f.shx", data + 2 + split, size - 2 - split);
    std::wstring wide = quillet::fuzz::Wide(quillet::fuzz::Folder() / "f.shp");
    for (auto method : {quillet::VFile::kIndexed, quillet::VFile::kNotIndexed}) {
        quillet::VFile file(wide.c_str());
        if (file.Open(quillet::VFile::kReadOnly, method, false, false)) ReadEverything(file);
    }
    return 0;
}
