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

#include "recordfile/VFile.h"

namespace {

const std::string& Folder() {
    static const std::string folder = [] {
        char pattern[] = "/tmp/quillet-fuzz-vfile-XXXXXX";
        return std::string(mkdtemp(pattern) ? pattern : "/tmp");
    }();
    return folder;
}

bool WriteFile(const std::string& path, const uint8_t* bytes, size_t size) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) return false;
    bool ok = std::fwrite(bytes, 1, size, out) == size;
    return std::fclose(out) == 0 && ok;
}

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
    size_t split = std::min<size_t>(size - 2, data[0] | (data[1] << 8));
    std::string dataPath = Folder() + "/f.shp";
    std::string indexPath = Folder() + "/f.shx";
    if (!WriteFile(dataPath, data + 2, split) || !WriteFile(indexPath, data + 2 + split, size - 2 - split)) {
        return 0;
    }
    std::wstring wide(dataPath.begin(), dataPath.end());
    for (auto method : {quillet::VFile::kIndexed, quillet::VFile::kNotIndexed}) {
        quillet::VFile file(wide.c_str());
        if (file.Open(quillet::VFile::kReadOnly, method, false, false)) ReadEverything(file);
    }
    return 0;
}
