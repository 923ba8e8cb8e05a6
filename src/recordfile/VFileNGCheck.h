#pragma once

// VFileNGCheck: walks the blocks of a next-generation record file and holds
// them against its header, its index and its free list, reporting every
// disagreement. An addition beside the file classes, for tools and tests:
// it reads only, and a damaged file gives problems, never a crash.

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/Export.h"
#include "recordfile/VFileNG.h"

namespace quillet {

class QUILLET_EXPORT VFileNGCheck {
public:
    struct Report {
        int64_t liveBlocks = 0;
        int64_t deletedBlocks = 0;
        int64_t deletedBytes = 0;  // headers included, as the header counts free bytes
        int64_t records = 0;       // numbers the index points at a block
        int64_t freeListBlocks = 0;
        // Each disagreement, in words, with the positions and numbers involved.
        std::vector<std::string> problems;
        bool IsConsistent() const { return problems.empty(); }
    };

    // `file` must be open; `list` is its free list, or null to leave it
    // out. At most `maxProblems` are reported.
    static Report Run(VFileNG& file, FreeList* list, size_t maxProblems = 20);
};

}  // namespace quillet
