#include "spatialindex/BinIndexBuilder.h"

#include <algorithm>
#include <cstring>

#include "recordfile/VFile.h"

namespace quillet {

namespace {

// What the sorter is given to spool, 12 bytes in native order:
//
//   offset size  field
//        0    4  the feature's grid box: xmin, ymin, xmax, ymax
//        4    4  feature number
//        8    4  bin number
struct SortElementRec {
    static constexpr int32_t kLength = 12;

    IntBox box;
    int32_t featureNumber = 0;
    int32_t bin = 0;

    void EncodeTo(unsigned char* out) const {
        out[0] = box.xmin;
        out[1] = box.ymin;
        out[2] = box.xmax;
        out[3] = box.ymax;
        std::memcpy(out + 4, &featureNumber, 4);
        std::memcpy(out + 8, &bin, 4);
    }
    void DecodeFrom(const unsigned char* in) {
        box = IntBox{in[0], in[1], in[2], in[3]};
        std::memcpy(&featureNumber, in + 4, 4);
        std::memcpy(&bin, in + 8, 4);
    }
};

// The sorter's arguments, handed on as they are.
constexpr int32_t kSortMemory = 4194304;
constexpr int32_t kSortExpectedCount = 1024;

// A bin sparser than this is merged with its children when they fit.
constexpr int32_t kMergeLimit = 8;

constexpr int32_t kRecordBytes = BinFeatureRec::kPerRecord * BinFeatureRec::kLength;

int S_CompareInts(int32_t a, int32_t b) { return a < b ? -1 : (a > b ? 1 : 0); }

// Bin and feature number in one unsigned number ordered as Compare orders.
uint64_t SortPrefix(const ExternalSort::SortElement* e) {
    SortElementRec x;
    x.DecodeFrom(e->data);
    auto ordered = [](int32_t v) { return uint64_t{static_cast<uint32_t>(v) ^ 0x80000000u}; };
    return ordered(x.bin) << 32 | ordered(x.featureNumber);
}

}  // namespace

BinIndexBuilder::BinIndexBuilder() = default;
BinIndexBuilder::~BinIndexBuilder() = default;

int BinIndexBuilder::LevelsFor(int32_t featureCount) {
    int levels = 2;
    while (featureCount > int64_t{kMergeLimit} * ((int64_t{1} << levels) - 1) &&
           levels < kMaxLevels) {
        ++levels;
    }
    return levels;
}

bool BinIndexBuilder::Create(const FileSystemPath& path, int32_t featureCount, IEnvelope* extent) {
    file_.reset();
    sorter_.reset();
    if (!extent) return false;

    featureCount_ = featureCount;
    WKSEnvelope wks;
    extent->QueryWKSCoords(&wks);
    extent_ = Envelope(wks);
    double width = 0;
    double height = 0;
    extent_.get_Width(&width);
    extent_.get_Height(&height);
    mapping_ = GridMapping{wks.XMin, wks.YMin, width == 0 ? 255 : 255 / width,
                           height == 0 ? 255 : 255 / height};

    levels_ = LevelsFor(featureCount);
    binMap_.assign((size_t{1} << levels_) - 1, BinMapEntry{});
    // The map always keeps the root, so record 0 is never empty.
    highestBin_ = 1;

    sorter_ = std::make_unique<ExternalSort>();
    if (!sorter_->Init(Compare, kSortMemory, kSortExpectedCount) ||
        !sorter_->SetPrefix(SortPrefix)) {
        sorter_.reset();
        return false;
    }
    auto file = std::make_unique<VFile>(path);
    if (!file->Create(BinIndexHeader::kBuilderUserType, VFile::kReadWrite, false, VFile::kIndexed,
                      0)) {
        return false;
    }
    file_ = std::move(file);
    return true;
}

bool BinIndexBuilder::AddFeature(int32_t featureNumber, IEnvelope* envelope) {
    if (!file_) return false;
    bool empty = true;
    if (!envelope || envelope->get_IsEmpty(&empty) != S_OK || empty) return true;

    WKSEnvelope wks;
    envelope->QueryWKSCoords(&wks);
    SortElementRec element{FeatureGridBox(wks, mapping_), featureNumber, 0};
    element.bin = FindBin(element.box);
    highestBin_ = std::max(highestBin_, element.bin);
    unsigned char bytes[SortElementRec::kLength];
    element.EncodeTo(bytes);
    if (sorter_->Add(SortElementRec::kLength, bytes)) ++Bin(element.bin).count;
    return true;
}

int BinIndexBuilder::Compare(const ExternalSort::SortElement* a,
                             const ExternalSort::SortElement* b) {
    SortElementRec x;
    SortElementRec y;
    x.DecodeFrom(a->data);
    y.DecodeFrom(b->data);
    int byBin = S_CompareInts(x.bin, y.bin);
    return byBin != 0 ? byBin : S_CompareInts(x.featureNumber, y.featureNumber);
}

int32_t BinIndexBuilder::FindBin(const IntBox& box) const { return quillet::FindBin(box, levels_); }

bool BinIndexBuilder::HasFeaturesBelow(int32_t bin) const {
    // Grandchildren at or past the highest used bin are not looked at.
    int32_t lower = 2 * bin;
    int32_t upper = 2 * bin + 1;
    if (upper >= highestBin_) return false;
    return Bin(lower).count + Bin(upper).count > 0;
}

void BinIndexBuilder::CollapseBins() {
    for (int level = levels_ - 1; level >= 2; --level) {
        for (int32_t b = int32_t{1} << (level - 1); b < (int32_t{1} << level); ++b) {
            int32_t c1 = 2 * b;
            int32_t c2 = 2 * b + 1;
            int32_t own = Bin(b).count;
            int32_t children = Bin(c1).count + Bin(c2).count;
            if (own < kMergeLimit && children > 0 && own + children <= kMergeLimit &&
                !HasFeaturesBelow(c1) && !HasFeaturesBelow(c2)) {
                CollapseBins(b, c1);
                CollapseBins(b, c2);
            }
        }
    }
    while (highestBin_ > 1 && Bin(highestBin_).count == 0) --highestBin_;
}

void BinIndexBuilder::CollapseBins(int32_t parent, int32_t child) {
    Bin(parent).count += Bin(child).count;
    Bin(child).count = 0;
}

void BinIndexBuilder::NumberRecords() {
    // Record 0 is the bin map; a bin's records follow each other.
    int32_t record = 1;
    for (int32_t bin = 1; bin <= highestBin_; ++bin) {
        BinMapEntry& entry = Bin(bin);
        if (entry.count <= 0) continue;
        entry.first = record + 1;
        record += (entry.count + BinFeatureRec::kPerRecord - 1) / BinFeatureRec::kPerRecord;
    }
}

bool BinIndexBuilder::WriteUserHeader() {
    BinIndexHeader header{featureCount_, extent_.Wks()};
    unsigned char bytes[BinIndexHeader::kDoubleLength];
    header.EncodeTo(bytes, BinIndexHeader::kBuilderUserType,
                    file_->GetFileType() == VFile::kBigEndian);
    return file_->WriteUserHeader(bytes, BinIndexHeader::kDoubleLength);
}

bool BinIndexBuilder::WriteBinMap() {
    bool bigEndian = file_->GetFileType() == VFile::kBigEndian;
    std::vector<unsigned char> bytes(static_cast<size_t>(highestBin_) * BinMapEntry::kLength);
    for (int32_t bin = 1; bin <= highestBin_; ++bin) {
        Bin(bin).EncodeTo(&bytes[static_cast<size_t>(bin - 1) * BinMapEntry::kLength], bigEndian);
    }
    return file_->WriteRecord(0, bytes.data(), static_cast<int32_t>(bytes.size()));
}

bool BinIndexBuilder::WriteFeatures() {
    if (!sorter_->Sort()) return false;
    bool bigEndian = file_->GetFileType() == VFile::kBigEndian;
    auto bins = static_cast<int32_t>(binMap_.size());
    std::vector<int32_t> written(binMap_.size() + 1, 0);
    unsigned char buffer[kRecordBytes] = {};
    int32_t streamBin = 0;  // the bin of the elements being read
    int32_t target = 0;     // the bin whose records take them (an ancestor when merged)

    int32_t size = 0;
    const unsigned char* data = nullptr;
    int status;
    while ((status = sorter_->Next(&size, &data)) == 0) {
        if (size != SortElementRec::kLength) return false;
        SortElementRec element;
        element.DecodeFrom(data);
        if (element.bin < streamBin || element.bin > bins) return false;
        if (element.bin != streamBin) {
            if (target != 0 && written[target] % BinFeatureRec::kPerRecord != 0 &&
                !WriteRecord(target, written[target], buffer)) {
                return false;
            }
            std::memset(buffer, 0, sizeof buffer);
            // Bins that only hold features merged up from their children get
            // their record now, at full size, so that records stay in order;
            // the features fill it when the children come.
            for (int32_t bin = streamBin + 1; bin < element.bin; ++bin) {
                if (Bin(bin).count > 0 && written[bin] == 0 &&
                    !WriteRecord(bin, Bin(bin).count, buffer)) {
                    return false;
                }
            }
            streamBin = element.bin;
            target = element.bin;
            while (target >= 1 && Bin(target).count == 0) target /= 2;
            if (target < 1) return false;
            if (written[target] % BinFeatureRec::kPerRecord != 0 &&
                !ReadBackLastRecord(target, written[target], buffer)) {
                return false;
            }
        }
        if (written[target] >= Bin(target).count) return false;
        int32_t slot = written[target] % BinFeatureRec::kPerRecord;
        BinFeatureRec{element.box, element.featureNumber}.EncodeTo(
            buffer + slot * BinFeatureRec::kLength, bigEndian);
        ++written[target];
        if (written[target] % BinFeatureRec::kPerRecord == 0 &&
            !WriteRecord(target, written[target], buffer)) {
            return false;
        }
    }
    if (status != 1) return false;
    return target == 0 || written[target] % BinFeatureRec::kPerRecord == 0 ||
           WriteRecord(target, written[target], buffer);
}

bool BinIndexBuilder::ReadBackLastRecord(int32_t bin, int32_t written, unsigned char* buffer) {
    int32_t record = (written - 1) / BinFeatureRec::kPerRecord + Bin(bin).first - 1;
    int32_t length = file_->GetRecordLength(record);
    return length > 0 && length <= kRecordBytes && file_->ReadRecord(record, buffer, length);
}

bool BinIndexBuilder::WriteRecord(int32_t bin, int32_t written, const unsigned char* buffer) {
    const BinMapEntry& entry = Bin(bin);
    int32_t record = (written - 1) / BinFeatureRec::kPerRecord + entry.first - 1;
    int32_t entries = written % BinFeatureRec::kPerRecord;
    if (entries == 0) entries = BinFeatureRec::kPerRecord;
    // A bin of one record gets its final length at its first write.
    if (entry.count <= BinFeatureRec::kPerRecord && entry.count > entries) entries = entry.count;
    return file_->WriteRecord(record, buffer, entries * BinFeatureRec::kLength);
}

bool BinIndexBuilder::Finish() {
    if (!file_) return false;
    CollapseBins();
    NumberRecords();
    bool ok = WriteUserHeader() && WriteBinMap() && WriteFeatures();
    sorter_.reset();
    ok = file_->Close() && ok;
    file_.reset();
    return ok;
}

}  // namespace quillet
