// Opens a free list made of the fuzz bytes and asks it for blocks, adds some
// and walks its chains. Input: one byte (the position length, 4 to 8), then
// the file.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzFiles.h"
#include "recordfile/FreeList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    using quillet::FreeList;
    quillet::fuzz::WriteFile(quillet::fuzz::Folder() / "f.freelist", data + 1, size - 1);
    std::wstring wide = quillet::fuzz::Wide(quillet::fuzz::Folder() / "f.dat");
    {
        FreeList list(wide.c_str(), 4 + data[0] % 5);
        if (list.Open(FreeList::OpenExisting) == quillet::S_OK) {
            std::vector<FreeList::FreeBlock> blocks;
            list.ListBlocks(blocks);
            int64_t position = 0;
            for (int32_t request : {8, 100, 4000, 70000, 1 << 30}) list.GetBlock(request, position);
            for (int32_t add : {9, 300, 5000}) list.AddBlock(add, add * 16);
            list.GetBlock(200, position);
            list.ListBlocks(blocks);
        }
    }
    quillet::fuzz::RemoveFiles();
    return 0;
}
