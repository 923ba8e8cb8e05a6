#pragma once

// BinIndex: opens a spatial bin index (a record file: .sbn data, .sbx index;
// layout in spatialindex/BinIndexFormat.h) and answers rectangle searches with
// the numbers of the features whose grid boxes may overlap the rectangle.
//
// The caller owns the BinIndex; the BinIndex owns its record file and bin
// map, and reads feature records where the record file holds them (in its
// mapping, or its buffer). An index that cannot be opened is empty (no
// features, extent and scales 0) rather than an error: searches then find
// nothing. Bad content never makes a search crash or run away: bins and
// records the map names beyond the file are ignored, and the counts of the
// map are trimmed to what the data file can hold.
//
// Construction and the reading of feature records run under one process-wide
// lock shared by every BinIndex; Search itself takes none.

#include <cstdint>
#include <memory>

#include "foundation/Export.h"
#include "foundation/FileSystemPath.h"
#include "foundation/IEnvelope.h"
#include "foundation/RecNumSet.h"
#include "foundation/WKSEnvelope.h"
#include "spatialindex/BinGrid.h"
#include "spatialindex/BinIndexFormat.h"

namespace quillet {

class VFile;

class QUILLET_EXPORT BinIndex {
public:
    explicit BinIndex(const FileSystemPath& path);
    ~BinIndex();
    BinIndex(const BinIndex&) = delete;
    BinIndex& operator=(const BinIndex&) = delete;

    static bool IndexExists(const FileSystemPath& path);
    // Deletes the data file and its index file.
    static bool DeleteIndex(const FileSystemPath& path);

    // Adds the numbers of the candidate features to `result` and returns how
    // many it added. A query that contains the whole extent adds 1..N at once.
    int32_t Search(IEnvelope* query, RecNumSet* result);

    // What the index holds.
    bool IsOpen() const { return file_ != nullptr; }
    int32_t GetFeatureCount() const { return featureCount_; }
    const WKSEnvelope& GetExtent() const { return extent_; }
    const GridMapping& GetMapping() const { return mapping_; }
    int32_t GetBinCount() const { return binCount_; }
    // The (first, count) pair of bin 1..GetBinCount(), as the search uses it.
    BinMapEntry GetBin(int32_t bin) const;
    int32_t GetRecordCount() const;
    // The record file's byte order (VFile::FileType), -1 when empty.
    int32_t GetByteOrder() const { return byteOrder_; }

private:
    void Load(const FileSystemPath& path);
    void LoadBinMap(int64_t dataLength);
    void Clear();
    void SearchCell(int32_t bin, int level, const SearchBox& query, const SearchBox& parentCell,
                    RecNumSet* result, int32_t& count);
    void ReadCellMapRecord(int32_t bin, const SearchBox& query, RecNumSet* result,
                           int32_t& count);

    std::unique_ptr<VFile> file_;
    int32_t byteOrder_ = -1;
    int32_t featureCount_ = 0;
    WKSEnvelope extent_;
    GridMapping mapping_;
    std::unique_ptr<BinMapEntry[]> binMap_;
    int32_t binCount_ = 0;
};

}  // namespace quillet
