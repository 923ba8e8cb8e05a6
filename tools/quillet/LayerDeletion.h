#pragma once

// Deleting records from a layer whose table and shapes must stay in step:
// record n of the table is the attributes of shape n, so a record goes from
// both files or from neither, and both are compacted in one change.

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace quillet::tool {

// The numbers (from 1) of the records marked deleted in the table.
std::set<int32_t> MarkedInTable(const std::filesystem::path& table);

// The shape count, adding the numbers (from 1) of the shapes marked deleted
// to `marked`. `nothingDone` ends the message when the file is unreadable.
int32_t ShapeCount(const std::filesystem::path& shp, std::set<int32_t>& marked,
                   const std::string& nothingDone);

struct LayerDeletion {
    int32_t rowsRemoved = 0;                   // records the table's compaction took out
    int32_t shapesRemoved = 0;                 // shapes the shape file's compaction took out
    std::vector<std::string> binIndexRemoved;  // names of the bin index files that went
};

// Deletes `numbers` (from 1) from the table and from the shapes (either path
// may be empty: that file is left alone) and compacts both, as one change
// (LayerRewrite): a failure leaves every file as it was. The bin index beside
// the shapes numbers the old shapes, so it goes with them.
LayerDeletion DeleteFromLayer(const std::filesystem::path& table, const std::filesystem::path& shp,
                              const std::set<int32_t>& numbers);

}  // namespace quillet::tool
