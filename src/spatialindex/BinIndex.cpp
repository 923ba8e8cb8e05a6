#include "spatialindex/BinIndex.h"

#include <algorithm>
#include <mutex>
#include <new>

#include "foundation/File.h"
#include "recordfile/VFile.h"
#include "spatialindex/EntryScan.h"

namespace quillet {

namespace {

// Serialises the opening of indexes and the reading of feature records across
// every BinIndex of the process.
std::mutex s_binIndexLock;

int64_t S_FileLength(const FileSystemPath& path) {
    File file(path);
    if (!file.Open(1, 1, 1, 1, 0)) return -1;
    int64_t length = file.GetLengthEx();
    file.Close();
    return length;
}

}  // namespace

BinIndex::BinIndex(const FileSystemPath& path) {
    std::lock_guard<std::mutex> guard(s_binIndexLock);
    Load(path);
}

BinIndex::~BinIndex() = default;

bool BinIndex::IndexExists(const FileSystemPath& path) { return path.Exists(); }

bool BinIndex::DeleteIndex(const FileSystemPath& path) { return VFile(path).DeleteFileW(); }

void BinIndex::Clear() {
    file_.reset();
    byteOrder_ = -1;
    featureCount_ = 0;
    extent_ = WKSEnvelope{};
    mapping_ = GridMapping{};
    binMap_.reset();
    binCount_ = 0;
}

void BinIndex::Load(const FileSystemPath& path) {
    int64_t dataLength = S_FileLength(path);
    file_ = std::make_unique<VFile>(path);
    if (dataLength < 0 || !file_->Open(VFile::kReadOnly, VFile::kIndexed, true, false)) {
        Clear();
        return;
    }
    byteOrder_ = file_->GetFileType();
    bool bigEndian = byteOrder_ == VFile::kBigEndian;

    int32_t userType = file_->GetUserType();
    unsigned char bytes[BinIndexHeader::kDoubleLength] = {};
    if (file_->ReadUserHeader(bytes, BinIndexHeader::LengthFor(userType))) {
        BinIndexHeader header;
        header.DecodeFrom(bytes, userType, bigEndian);
        featureCount_ = header.featureCount;
        extent_ = header.extent;
        // Plain quotients: a zero width gives an infinite scale, which the
        // query conversion copes with.
        mapping_ = GridMapping{extent_.XMin, extent_.YMin, 255 / (extent_.XMax - extent_.XMin),
                               255 / (extent_.YMax - extent_.YMin)};
    }
    LoadBinMap(dataLength);
}

void BinIndex::LoadBinMap(int64_t dataLength) {
    if (file_->GetNumRecs() < 1) return;
    int32_t length = 0;
    const unsigned char* map = file_->ViewRecord(0, &length);
    if (!map || length < BinMapEntry::kLength) return;
    int32_t bins = length / BinMapEntry::kLength;
    binMap_.reset(new (std::nothrow) BinMapEntry[static_cast<size_t>(bins)]);
    if (!binMap_) return;
    binCount_ = bins;

    // No search may read more entries than the data file can hold, whatever
    // the counts claim, so that a hostile map costs at most one pass over the
    // file per search.
    int64_t capacity = dataLength / BinFeatureRec::kLength;
    bool bigEndian = byteOrder_ == VFile::kBigEndian;
    for (int32_t i = 0; i < bins; ++i) {
        BinMapEntry& entry = binMap_[static_cast<size_t>(i)];
        entry.DecodeFrom(map + i * BinMapEntry::kLength, bigEndian);
        entry.count = static_cast<int32_t>(std::clamp<int64_t>(entry.count, 0, capacity));
        capacity -= entry.count;
    }
}

BinMapEntry BinIndex::GetBin(int32_t bin) const {
    if (bin < 1 || bin > binCount_) return BinMapEntry{};
    return binMap_[static_cast<size_t>(bin - 1)];
}

int32_t BinIndex::GetRecordCount() const { return file_ ? file_->GetNumRecs() : 0; }

int32_t BinIndex::Search(IEnvelope* query, RecNumSet* result) {
    if (!query || !result) return 0;
    WKSEnvelope window;
    if (query->QueryWKSCoords(&window) != S_OK) return 0;
    if (window.Contains(extent_)) {
        result->AddRange(1, featureCount_);
        return featureCount_;
    }
    bool empty = true;
    if (query->get_IsEmpty(&empty) != S_OK || empty) return 0;

    SearchBox box = QueryGridBox(window, mapping_);
    int32_t count = 0;
    SearchCell(1, 0, box, kRootCell, result, count);
    return count;
}

void BinIndex::SearchCell(int32_t bin, int level, const SearchBox& query,
                          const SearchBox& parentCell, RecNumSet* result, int32_t& count) {
    if (bin > binCount_) return;
    SearchBox cell = ChildCell(parentCell, bin, level);
    if (!IsOver(query, cell)) return;
    ReadCellMapRecord(bin, query, result, count);
    if (2 * static_cast<int64_t>(bin) <= binCount_) {
        SearchCell(2 * bin, level + 1, query, cell, result, count);
        SearchCell(2 * bin + 1, level + 1, query, cell, result, count);
    }
}

void BinIndex::ReadCellMapRecord(int32_t bin, const SearchBox& query, RecNumSet* result,
                                 int32_t& count) {
    const BinMapEntry& entry = binMap_[static_cast<size_t>(bin - 1)];
    if (entry.count <= 0) return;
    // Record 0 is the bin map, so a bin's records start at 1 at the earliest.
    if (entry.first < 2) return;

    std::lock_guard<std::mutex> guard(s_binIndexLock);
    bool bigEndian = byteOrder_ == VFile::kBigEndian;
    int32_t remaining = entry.count;
    int32_t records = file_->GetNumRecs();
    for (int32_t n = entry.first - 1; remaining > 0 && n < records; ++n) {
        int32_t length = 0;
        const unsigned char* record = file_->ViewRecord(n, &length);
        int32_t entries = record ? std::min(length / BinFeatureRec::kLength, remaining) : 0;
        if (entries <= 0) return;
        count += AddEntriesOver(record, entries, query, bigEndian, result);
        remaining -= entries;
    }
}

}  // namespace quillet
