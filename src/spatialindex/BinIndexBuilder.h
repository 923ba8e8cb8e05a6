#pragma once

// BinIndexBuilder: writes the spatial bin index of a layer (layout in
// spatialindex/BinIndexFormat.h, search in BinIndex).
//
// Create it for a known number of features and the layer's extent, add every
// feature's number and envelope once, then Finish. Features are put in their
// bins as they arrive and spooled through an external sort, so memory stays
// flat in the number of features; Finish merges sparse bins into their
// parents, writes the header and the bin map, then the features bin by bin,
// and closes the file.
//
// The builder owns its record file, sorter and bin map. A failed allocation of
// the bin map throws std::bad_alloc; everything else reports by result. One
// builder is used by one thread at a time.

#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/Export.h"
#include "foundation/ExternalSort.h"
#include "foundation/FileSystemPath.h"
#include "foundation/IEnvelope.h"
#include "spatialindex/BinGrid.h"
#include "spatialindex/BinIndexFormat.h"

namespace quillet {

class VFile;

class QUILLET_EXPORT BinIndexBuilder {
public:
    // The deepest tree the builder makes.
    static constexpr int kMaxLevels = 19;

    BinIndexBuilder();
    ~BinIndexBuilder();
    BinIndexBuilder(const BinIndexBuilder&) = delete;
    BinIndexBuilder& operator=(const BinIndexBuilder&) = delete;

    // Creates the index file at `path` (its .sbx beside it) for `featureCount`
    // features over `extent`. False when the sorter or the file fails.
    bool Create(const FileSystemPath& path, int32_t featureCount, IEnvelope* extent);
    // Adds one feature; an empty envelope is skipped. False only without a
    // file from Create.
    bool AddFeature(int32_t featureNumber, IEnvelope* envelope);
    // Writes everything and closes the file. False when there is no file or
    // a write fails; the file is then incomplete.
    bool Finish();

    // Sort order of the spooled elements: by bin, then by feature number.
    static int Compare(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b);

    // The number of levels L of the tree (bins 1 .. 2^L - 1).
    int GetLevels() const { return levels_; }
    // After Finish: the number of bins written to the bin map.
    int32_t GetBinCount() const { return highestBin_; }

    // The number of levels for a layer of `featureCount` features: the
    // smallest L >= 2 with about 8 features a bin, at most kMaxLevels.
    static int LevelsFor(int32_t featureCount);

private:
    int32_t FindBin(const IntBox& box) const;
    void CollapseBins();
    void CollapseBins(int32_t parent, int32_t child);
    bool HasFeaturesBelow(int32_t bin) const;
    void NumberRecords();
    bool WriteUserHeader();
    bool WriteBinMap();
    bool WriteFeatures();
    bool ReadBackLastRecord(int32_t bin, int32_t written, unsigned char* buffer);
    bool WriteRecord(int32_t bin, int32_t written, const unsigned char* buffer);
    BinMapEntry& Bin(int32_t bin) { return binMap_[static_cast<size_t>(bin - 1)]; }
    const BinMapEntry& Bin(int32_t bin) const { return binMap_[static_cast<size_t>(bin - 1)]; }

    int32_t featureCount_ = 0;
    Envelope extent_;
    GridMapping mapping_;
    int levels_ = 0;
    std::vector<BinMapEntry> binMap_;
    int32_t highestBin_ = 0;
    std::unique_ptr<VFile> file_;
    std::unique_ptr<ExternalSort> sorter_;
};

}  // namespace quillet
