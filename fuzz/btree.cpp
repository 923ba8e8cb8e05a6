// Opens a B-tree index made of the fuzz bytes and walks it: validation,
// a full scan, searches, range reads and the first and last keys. Input: one
// byte (bit 0: next-generation format; bits 1-3: key type), then the file.

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "FuzzFiles.h"
#include "attrindex/MTIndexNG.h"
#include "attrindex/MTSearch.h"
#include "foundation/DebugOutput.h"
#include "foundation/IFIDSet.h"

namespace {

void Walk(quillet::MTIndex& index) {
    using namespace quillet;
    index.Validate();
    MTSearch search;
    MTKey key;
    int32_t id = 0;
    index.SearchFirst(search);
    while (search.Next(key, id) == S_OK) {
    }
    FIDSet ids;
    for (int32_t k : {-5, 0, 7, 1000}) {
        MTKey probe =
            IsStringType(index.GetDataType()) ? MTKey(k < 0 ? L"m" : L"b", false) : MTKey(k);
        index.SearchKeyValue(probe, k);
        if (index.Search(probe, k % 2 == 0, search) == S_OK)
            search.ReadTo(MTKey(k + 50), true, &ids);
        if (index.Search(probe, true, search) == S_OK) {
            search.SkipTo(probe, true);
            search.ReadToEnd(&ids);
        }
    }
    index.GetMinKey(key);
    index.GetMaxKey(key);
    int64_t entries = 0;
    int32_t nodes = 0;
    index.CountTree(entries, nodes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quillet;
    static const bool quiet = (SetDebugOutputSink([](const wchar_t*) {}), true);
    (void)quiet;
    if (size < 1) return 0;
    fuzz::InputScope scope;
    static const MTDataType kTypes[] = {MTString, MTWString, MTShort,  MTLong,
                                        MTInt64,  MTFloat,   MTDouble, MTDate};
    bool ng = data[0] & 1;
    MTDataType type = kTypes[(data[0] >> 1) & 7];
    fuzz::WriteFile(fuzz::Folder() / "f.idx", data + 1, size - 1);
    std::wstring wide = fuzz::Wide(fuzz::Folder() / "f.idx");
    std::unique_ptr<MTIndex> index;
    if (ng) {
        index = std::make_unique<MTIndexNG>();
    } else {
        index = std::make_unique<MTIndex>(type, 8, 1252);
    }
    if (index->Open(wide.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                    nullptr) == S_OK) {
        Walk(*index);
    }
    return 0;
}
