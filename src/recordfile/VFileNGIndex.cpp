#include "recordfile/VFileNGIndex.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "foundation/ByteOrder.h"
#include "foundation/DebugOutput.h"
#include "foundation/Guid.h"
#include "foundation/Win32File.h"
#include "recordfile/VFile.h"

namespace quillet {

namespace {

// Entry offsets are formed in 32 bits, which bounds the chunk region.
constexpr int64_t kMaxChunkRegion = int64_t{1} << 32;

int64_t S_ChunkRegionEnd(int32_t chunkCount, int32_t chunkLength) {
    return VFileNGIndex::kHeaderLength + int64_t{chunkCount} * chunkLength;
}

}  // namespace

int64_t GetMaxDatafileLength(int32_t pointerLength) {
    if (pointerLength < VFileNGIndex::kMinPointerLength ||
        pointerLength > VFileNGIndex::kMaxPointerLength) {
        return 0;
    }
    return int64_t{1} << (8 * pointerLength);
}

bool VFileNGIndex::IndexRec::Read(File* file, int32_t length) {
    unsigned char bytes[8] = {};
    position = 0;
    if (file->Read(bytes, length) != length) return false;
    position = static_cast<int64_t>(DecodeFixed64LE(bytes));
    return true;
}

bool VFileNGIndex::IndexRec::Write(File* file, int32_t length) const {
    unsigned char bytes[8];
    EncodeFixed64LE(bytes, static_cast<uint64_t>(position));
    return file->Write(bytes, length) == length;
}

String VFileNGIndex::IndexPath(const wchar_t* dataFilePath) {
    return String(VFile::IndexPath(dataFilePath ? dataFilePath : L""));
}

VFileNGIndex::VFileNGIndex(const wchar_t* dataFilePath) : name_(IndexPath(dataFilePath)) {}

VFileNGIndex::~VFileNGIndex() {
    Close(false);
}

bool VFileNGIndex::FailFromFile() {
    return Fail(file_ && file_->GetLastError() != File::kNoError ? file_->GetLastError()
                                                                 : File::kGeneralFailure);
}

bool VFileNGIndex::SeekTo(int64_t position) {
    return file_->SeekEx(position, File::kBegin) ? true : FailFromFile();
}

int64_t VFileNGIndex::ChunkRegionEnd() const {
    return S_ChunkRegionEnd(header_.chunkCount, chunkLength_);
}

void VFileNGIndex::CacheLengths() {
    recordLength_ = header_.pointerLength;
    chunkLength_ = header_.pointerLength * kChunkEntries;
    maxDataFileLength_ = GetMaxDatafileLength(header_.pointerLength);
}

void VFileNGIndex::ForgetCurrent() {
    currentNumber_ = 0;
    current_.position = 0;
}

bool VFileNGIndex::Create(int32_t mode, int32_t pointerLength, bool) {
    Close(false);
    if (GetMaxDatafileLength(pointerLength) == 0) return Fail(kErrorInvalidNumber);
    auto file = std::make_unique<File>(name_.c_str());
    if (!file->Create(1, 0)) return Fail(file->GetLastError());
    file_ = std::move(file);
    mode_ = mode;
    chunks_ = std::make_unique<BitSet>();
    header_ = Header{cCurVers, 0, 0, pointerLength};
    CacheLengths();
    if (!WriteHeader()) {
        Close(true);
        return false;
    }
    return true;
}

bool VFileNGIndex::Open(int32_t mode, bool share, bool shareWrites) {
    Close(false);
    mode_ = mode;
    file_ = std::make_unique<File>(name_.c_str());
    if (!file_->Open(mode == 0, 1, share, shareWrites, 0) || !ReadHeader()) {
        if (lastError_ == 0 || file_->GetLastError() != 0) FailFromFile();
        file_.reset();
        chunks_.reset();
        return false;
    }
    return true;
}

bool VFileNGIndex::SetSharing(bool share, bool shareWrites) {
    if (!file_) return Fail(File::kNotOpen);
    if (mode_ != 0 && !WriteHeader()) return false;
    file_->Close();
    if (!file_->Open(mode_ == 0, 1, share, shareWrites, 0)) return FailFromFile();
    cachedChunk_ = -1;
    ForgetCurrent();
    return true;
}

void VFileNGIndex::Close(bool deleteFile) {
    if (!file_) return;
    if (mode_ != 0) WriteHeader();
    if (deleteFile) {
        file_->Delete();
    } else {
        file_->Close();
    }
    file_.reset();
    chunks_.reset();
    ForgetCurrent();
    cachedChunk_ = cachedOrdinal_ = -1;
}

bool VFileNGIndex::DeleteFileW() {
    Close(false);
    if (!::quillet::DeleteFileW(name_.c_str())) return Fail(File::kGeneralFailure);
    return true;
}

void VFileNGIndex::UpdateName(const wchar_t* dataFilePath) {
    name_ = IndexPath(dataFilePath);
}

bool VFileNGIndex::RenameFile(const wchar_t* newDataFilePath) {
    if (!MoveFileW(name_.c_str(), IndexPath(newDataFilePath).c_str())) {
        return Fail(kErrorRenameOrCopy);
    }
    UpdateName(newDataFilePath);
    return true;
}

bool VFileNGIndex::CopyFileW(const wchar_t* destDataFilePath) const {
    if (FileExists(destDataFilePath) && !::quillet::DeleteFileW(destDataFilePath)) {
        return Fail(kErrorRenameOrCopy);
    }
    if (!::quillet::CopyFileW(name_.c_str(), IndexPath(destDataFilePath).c_str(), 0)) {
        return Fail(kErrorRenameOrCopy);
    }
    return true;
}

bool VFileNGIndex::ReadHeader() {
    if (!file_) return Fail(File::kNotOpen);
    unsigned char bytes[kHeaderLength];
    if (!SeekTo(0)) return false;
    if (file_->Read(bytes, kHeaderLength) != kHeaderLength) return Fail(kErrorCorrupt);
    Header header;
    header.version = static_cast<int32_t>(DecodeFixed32LE(bytes));
    header.chunkCount = static_cast<int32_t>(DecodeFixed32LE(bytes + 4));
    header.maxRecordNumber = static_cast<int32_t>(DecodeFixed32LE(bytes + 8));
    header.pointerLength = static_cast<int32_t>(DecodeFixed32LE(bytes + 12));
    if (GetMaxDatafileLength(header.pointerLength) == 0 || header.chunkCount < 0 ||
        header.maxRecordNumber < 0) {
        return Fail(kErrorCorrupt);
    }
    int64_t regionEnd = S_ChunkRegionEnd(header.chunkCount, header.pointerLength * kChunkEntries);
    int64_t length = file_->GetLengthEx();
    if (regionEnd > kMaxChunkRegion || regionEnd + BitSet::ExportHeader::kEncodedSize > length) {
        return Fail(kErrorCorrupt);
    }
    header_ = header;
    CacheLengths();
    if (!ReadBitSet()) return false;
    cachedChunk_ = cachedOrdinal_ = -1;
    ForgetCurrent();
    return true;
}

bool VFileNGIndex::ReadBitSet() {
    unsigned char block[BitSet::ExportHeader::kEncodedSize];
    int64_t regionEnd = ChunkRegionEnd();
    if (!SeekTo(regionEnd)) return false;
    if (file_->Read(block, sizeof block) != static_cast<int>(sizeof block))
        return Fail(kErrorCorrupt);
    auto exported = BitSet::ExportHeader::DecodeFrom(block);
    int64_t available = file_->GetLengthEx() - regionEnd - static_cast<int64_t>(sizeof block);
    if (!exported.IsPlausible(available)) return Fail(kErrorCorrupt);
    std::vector<uint32_t> words(static_cast<size_t>(exported.wordCount));
    int32_t bytes = exported.wordCount * 4;
    if (bytes > 0 && file_->Read(words.data(), bytes) != bytes) return Fail(kErrorCorrupt);
    for (uint32_t& word : words) word = DecodeFixed32LE(&word);
    auto chunks = std::make_unique<BitSet>(exported, words.data());
    // A chunk named by the set but not stored (or the reverse) would send
    // lookups to the wrong entries.
    if (chunks->Count() != header_.chunkCount) return Fail(kErrorCorrupt);
    chunks_ = std::move(chunks);
    return true;
}

bool VFileNGIndex::WriteHeader() {
    if (!file_) return Fail(File::kNotOpen);
    unsigned char bytes[kHeaderLength];
    EncodeFixed32LE(bytes, static_cast<uint32_t>(header_.version));
    EncodeFixed32LE(bytes + 4, static_cast<uint32_t>(header_.chunkCount));
    EncodeFixed32LE(bytes + 8, static_cast<uint32_t>(header_.maxRecordNumber));
    EncodeFixed32LE(bytes + 12, static_cast<uint32_t>(header_.pointerLength));
    if (!SeekTo(0)) return false;
    if (file_->Write(bytes, kHeaderLength) != kHeaderLength) return FailFromFile();
    if (!chunks_) return true;
    std::vector<uint32_t> words;
    unsigned char block[BitSet::ExportHeader::kEncodedSize];
    chunks_->Export(&words).EncodeTo(block);
    for (uint32_t& word : words) EncodeFixed32LE(&word, word);
    auto bytesOfWords = static_cast<int32_t>(words.size() * 4);
    if (!SeekTo(ChunkRegionEnd())) return false;
    if (file_->Write(block, sizeof block) != static_cast<int>(sizeof block) ||
        file_->Write(words.data(), bytesOfWords) != bytesOfWords) {
        return FailFromFile();
    }
    return true;
}

bool VFileNGIndex::Flush() {
    if (!WriteHeader()) return false;
    return file_->Flush() ? true : FailFromFile();
}

int64_t VFileNGIndex::GetIndexPosition(int32_t n) {
    if (!file_ || n < 1) return -1;
    int32_t k = (n - 1) / kChunkEntries;
    if (k != cachedChunk_) {
        if (!chunks_->IsSet(k)) return -1;
        int32_t previous = cachedChunk_;
        int32_t ordinal;
        if (chunks_->AllSet()) {
            ordinal = k;
        } else if (previous >= 0 && chunks_->GetNextSet(previous) == k) {
            ordinal = cachedOrdinal_ + 1;  // sequential access counts no bits
        } else {
            ordinal = chunks_->Count(k) - 1;
        }
        cachedChunk_ = k;
        cachedOrdinal_ = ordinal;
    }
    uint32_t within = static_cast<uint32_t>((n - 1) - k * kChunkEntries) * recordLength_;
    return static_cast<uint32_t>(kHeaderLength +
                                 static_cast<uint32_t>(cachedOrdinal_) * chunkLength_ + within);
}

bool VFileNGIndex::ReadIndex(int32_t n) {
    if (n == currentNumber_ && n != 0) return true;
    int64_t at = GetIndexPosition(n);
    if (at < 0) return Fail(0);
    if (!SeekTo(at)) return false;
    if (!current_.Read(file_.get(), recordLength_)) {
        ForgetCurrent();
        return FailFromFile();
    }
    currentNumber_ = n;
    return true;
}

bool VFileNGIndex::MoveChunksAbove(int32_t chunk) {
    int32_t slot = chunks_->Count(chunk);
    std::vector<unsigned char> buffer(static_cast<size_t>(chunkLength_));
    auto offset = [this](int32_t ordinal) { return S_ChunkRegionEnd(ordinal, chunkLength_); };
    auto copy = [&](int32_t from, int32_t to) {
        return SeekTo(offset(from)) && file_->Read(buffer.data(), chunkLength_) == chunkLength_ &&
               SeekTo(offset(to)) && file_->Write(buffer.data(), chunkLength_) == chunkLength_;
    };
    for (int32_t ordinal = header_.chunkCount - 1; ordinal >= slot; --ordinal) {
        if (copy(ordinal, ordinal + 1)) continue;
        FailFromFile();
        int32_t error = lastError_;
        // Put back what moved, and the bit set over the chunk that left it,
        // so that the index reads as it did.
        for (int32_t back = ordinal + 1; back < header_.chunkCount; ++back) copy(back + 1, back);
        WriteHeader();
        return Fail(error);
    }
    return SeekTo(offset(slot));
}

bool VFileNGIndex::StoreChunk(int32_t chunk) {
    if (ChunkRegionEnd() + chunkLength_ > kMaxChunkRegion) return Fail(kErrorInvalidNumber);
    if (chunk < chunks_->GetSize()) {
        if (!MoveChunksAbove(chunk)) return false;
    } else if (!SeekTo(ChunkRegionEnd())) {
        return false;
    }
    std::vector<unsigned char> zeros(static_cast<size_t>(chunkLength_), 0);
    if (file_->Write(zeros.data(), chunkLength_) != chunkLength_) return FailFromFile();
    if (chunk == chunks_->GetSize()) {
        chunks_->Extend(1, true);
    } else {
        if (chunk > chunks_->GetSize()) chunks_->SetSize(chunk + 1);
        chunks_->Set(chunk);
    }
    header_.chunkCount += 1;
    cachedChunk_ = cachedOrdinal_ = -1;
    return true;
}

bool VFileNGIndex::WriteIndex(int32_t n) {
    if (!file_) return Fail(File::kNotOpen);
    int64_t at = GetIndexPosition(n);
    if (at < 0) {
        if (n < 1 || !StoreChunk((n - 1) / kChunkEntries)) return false;
        at = GetIndexPosition(n);
    }
    if (!SeekTo(at)) return false;
    return current_.Write(file_.get(), recordLength_) ? true : FailFromFile();
}

bool VFileNGIndex::IsValidRecordNumber(int32_t n) const {
    return n >= 1 && (n <= header_.maxRecordNumber || n <= maxReserved_);
}

bool VFileNGIndex::IsRecordDeleted(int32_t n) {
    if (!IsValidRecordNumber(n)) return true;
    if (!ReadIndex(n)) {
        lastError_ = 0;
        return true;
    }
    return current_.position == 0;
}

bool VFileNGIndex::IsLiveRecord(int32_t n) {
    if (!IsValidRecordNumber(n)) return false;
    if (IsReservedRecordNumber(n)) return true;
    return ReadIndex(n) && current_.position > 0;
}

bool VFileNGIndex::IsReservedRecordNumber(int32_t n) const {
    bool found = false;
    return reserved_ && reserved_->Find(n, &found) == S_OK && found;
}

int64_t VFileNGIndex::GetFilePosition(int32_t n) {
    if (!IsValidRecordNumber(n)) {
        Fail(kErrorInvalidNumber);
        return -1;
    }
    if (IsReservedRecordNumber(n)) return -1;
    return ReadIndex(n) ? current_.position : 0;
}

bool VFileNGIndex::SetFilePosition(int32_t n, int64_t position) {
    if (n < 1 || position < 0 || position > maxDataFileLength_) return Fail(kErrorInvalidNumber);
    currentNumber_ = n;
    current_.position = position;
    if (!WriteIndex(n)) {
        ForgetCurrent();
        return false;
    }
    header_.maxRecordNumber = std::max(header_.maxRecordNumber, n);
    WriteHeader();
    return true;
}

bool VFileNGIndex::DeleteRecord(int32_t n) {
    if (!IsValidRecordNumber(n)) return true;
    currentNumber_ = n;
    current_.position = 0;
    bool ok = WriteIndex(n);
    ForgetCurrent();
    return ok;
}

int32_t VFileNGIndex::GetNextStoredNumber(int32_t n) const {
    if (!chunks_) return -1;
    n = std::max(n, 1);
    int32_t k = (n - 1) / kChunkEntries;
    if (chunks_->IsSet(k)) return n;
    int32_t next = chunks_->GetNextSet(k);
    return next < 0 ? -1 : next * kChunkEntries + 1;
}

int32_t VFileNGIndex::GetMinRecordNumber() {
    if (!file_) return -1;
    // Only stored chunks can hold a record, so the walk is bounded by them.
    for (int32_t n = GetNextStoredNumber(1); n >= 1 && n <= header_.maxRecordNumber;
         n = n < INT32_MAX ? GetNextStoredNumber(n + 1) : -1) {
        if (!IsRecordDeleted(n)) return n;
    }
    return -1;
}

int32_t VFileNGIndex::GetMaxRecordNumber(bool trim) {
    if (maxReserved_ > header_.maxRecordNumber) return maxReserved_;
    if (!trim) return header_.maxRecordNumber;
    int32_t n = header_.maxRecordNumber;
    while (n >= 1 && IsRecordDeleted(n)) {
        int32_t k = (n - 1) / kChunkEntries;
        // A chunk that is not stored holds nothing: skip it whole.
        n = chunks_ && chunks_->IsSet(k) ? n - 1 : k * kChunkEntries;
    }
    n = std::max(n, 0);
    if (n != header_.maxRecordNumber && mode_ != 0) {
        header_.maxRecordNumber = n;
        WriteHeader();
    }
    return n;
}

int32_t VFileNGIndex::GetReservedRecordCount() const {
    int32_t count = 0;
    if (reserved_) reserved_->get_Count(&count);
    return count;
}

int32_t VFileNGIndex::InsertReservedRecordNumber() {
    int32_t n = std::max(header_.maxRecordNumber, maxReserved_) + 1;
    if (!reserved_ && FAILED(CoCreateFIDSet(CLSID_FIDSet, &reserved_))) return -1;
    maxReserved_ = n;
    reserved_->Add(n);
    return n;
}

bool VFileNGIndex::RemoveReservedRecordNumber(int32_t n) {
    if (!reserved_) {
        wchar_t iid[40];
        StringFromGUID2(IID_IFIDSet, iid, 40);
        OutputDebugStringW(
            String::Formatted(L"QueryInterface on %ls failed: %X\n", iid, E_POINTER).c_str());
        return false;
    }
    if (reserved_->Delete(n) != S_OK) return false;
    int32_t count = 0;
    reserved_->get_Count(&count);
    if (count == 0) ReleaseReservedRecordNumbers();
    return true;
}

bool VFileNGIndex::ReleaseReservedRecordNumbers() {
    reserved_.reset();
    maxReserved_ = 0;
    return true;
}

}  // namespace quillet
