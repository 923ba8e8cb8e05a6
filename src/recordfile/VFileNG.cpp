#include "recordfile/VFileNG.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/ByteOrder.h"
#include "foundation/FileSystemPath.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr int32_t kVersionShared = 9996;
// Entries of the version-2 free list: size (4), 4 unused bytes, position (8).
constexpr int32_t kOldFreeListEntry = 16;

bool S_IsKnownVersion(int32_t version) {
    return version == 1 || version == 2 || version == cCurVers || version == kVersionShared;
}

bool S_SeekTo(File& file, int64_t position) {
    return file.SeekEx(position, File::kBegin) != 0;
}

String S_WithExtension(const String& path, const wchar_t* extension) {
    FileSystemPath sibling(path);
    sibling.SetExtension(extension);
    return sibling.GetPath();
}

}  // namespace

// ---- on-disk records ----

void VFileNG::FileHeader::EncodeTo(unsigned char out[kHeaderLength]) const {
    EncodeFixed32LE(out, static_cast<uint32_t>(version));
    EncodeFixed32LE(out + 4, static_cast<uint32_t>(recordCount));
    EncodeFixed32LE(out + 8, static_cast<uint32_t>(maxRecordLength));
    EncodeFixed32LE(out + 12, static_cast<uint32_t>(pointerLength));
    EncodeFixed64LE(out + 16, static_cast<uint64_t>(freeBytes));
    EncodeFixed64LE(out + 24, static_cast<uint64_t>(endOfData));
    EncodeFixed64LE(out + 32, static_cast<uint64_t>(userHeaderPosition));
}

void VFileNG::FileHeader::DecodeFrom(const unsigned char in[kHeaderLength]) {
    version = static_cast<int32_t>(DecodeFixed32LE(in));
    recordCount = static_cast<int32_t>(DecodeFixed32LE(in + 4));
    maxRecordLength = static_cast<int32_t>(DecodeFixed32LE(in + 8));
    pointerLength = static_cast<int32_t>(DecodeFixed32LE(in + 12));
    freeBytes = static_cast<int64_t>(DecodeFixed64LE(in + 16));
    endOfData = static_cast<int64_t>(DecodeFixed64LE(in + 24));
    userHeaderPosition = static_cast<int64_t>(DecodeFixed64LE(in + 32));
}

bool VFileNG::RecordHeader::Read(File* file, int32_t length) {
    unsigned char bytes[4 + 8] = {};
    if (file->Read(bytes, length) != length) return false;
    size = static_cast<int32_t>(DecodeFixed32LE(bytes));
    number = static_cast<int64_t>(DecodeFixed64LE(bytes + 4));
    return true;
}

bool VFileNG::RecordHeader::Write(File* file, int32_t length) const {
    unsigned char bytes[4 + 8];
    EncodeFixed32LE(bytes, static_cast<uint32_t>(size));
    EncodeFixed64LE(bytes + 4, static_cast<uint64_t>(number));
    return file->Write(bytes, length) == length;
}

// ---- lifecycle ----

VFileNG::VFileNG(const wchar_t* path) : path_(path), index_(path) {
    maxDataFileLength_ = GetMaxDatafileLength(header_.pointerLength);
}

VFileNG::~VFileNG() {
    Close(false);
}

bool VFileNG::FailFromFile() {
    return Fail(file_ && file_->GetLastError() != File::kNoError ? file_->GetLastError()
                                                                 : File::kGeneralFailure);
}

bool VFileNG::RequireWritable() {
    if (!file_) return Fail(kErrorNotOpen);
    if (mode_ == kReadOnly) return Fail(kErrorReadOnly);
    return true;
}

void VFileNG::SetPointerLength(int32_t pointerLength) {
    header_.pointerLength = pointerLength;
    recordHeaderLength_ = header_.version == 1 ? pointerLength + 4 : 4;
    maxDataFileLength_ = GetMaxDatafileLength(pointerLength);
}

FreeList& VFileNG::EnsureFreeList() {
    if (!freeList_) freeList_ = std::make_unique<FreeList>(path_.c_str(), header_.pointerLength);
    // No other process can open the data file, so none needs its list.
    freeList_->SetShared(share_ || shareWrites_);
    return *freeList_;
}

FreeList* VFileNG::GetFreeList() {
    return freeList_ && freeList_->IsOpen() ? freeList_.get() : nullptr;
}

bool VFileNG::Create(Mode mode, bool temporary, int32_t pointerLength, bool) {
    Close(false);
    if (GetMaxDatafileLength(pointerLength) == 0) return Fail(kErrorInvalid);
    auto file = std::make_unique<File>(path_.c_str());
    if (!file->Create(1, 0)) return Fail(file->GetLastError());
    file_ = std::move(file);
    mode_ = mode;
    temporary_ = temporary;
    header_ = FileHeader{};
    SetPointerLength(pointerLength);
    hasFreeSpace_ = false;
    cachedHeaderPosition_ = 0;
    if (!WriteHeader() || !index_.Create(mode, pointerLength, false)) {
        if (lastError_ == 0) lastError_ = index_.GetLastError();
        file_->Delete();
        file_.reset();
        return false;
    }
    return true;
}

bool VFileNG::Open(Mode mode, bool share, bool shareWrites) {
    if (file_ && mode == mode_ && share == share_ && shareWrites == shareWrites_) {
        return RefreshHeader();
    }
    Close(false);
    RecoverCompaction(path_.c_str());
    auto file = std::make_unique<File>(path_.c_str());
    if (!file->Open(mode == kReadOnly, 1, share, shareWrites, 0)) return Fail(file->GetLastError());
    file_ = std::move(file);
    mode_ = mode;
    share_ = share;
    shareWrites_ = shareWrites;
    temporary_ = false;
    if (!ReadHeader()) {
        file_.reset();
        return false;
    }
    if (!index_.Open(mode, share, shareWrites)) {
        lastError_ = index_.GetLastError();
        file_.reset();
        return false;
    }
    // A version-2 list has the name of the new one, so it is read before
    // the new list is opened (which would drop it as unreadable).
    if (mode != kReadOnly && header_.version == kOldFreeListVersion) UpgradeVersion2();
    if (mode != kReadOnly && hasFreeSpace_) EnsureFreeList().Open(FreeList::OpenExisting);
    return true;
}

void VFileNG::UpgradeVersion2() {
    header_.version = cCurVers;
    String oldList = S_WithExtension(path_, L"freelist");
    String renamed = S_WithExtension(path_, L"oldfreelist");
    if (FileExists(oldList.c_str()) && MoveFileW(oldList.c_str(), renamed.c_str())) {
        File old(renamed.c_str());
        if (old.Open(1, 1, 0, 0, 0)) {
            unsigned char entry[kOldFreeListEntry];
            FreeList& list = EnsureFreeList();
            // Bounded by the old file's length: each pass reads one entry.
            while (old.Read(entry, kOldFreeListEntry) == kOldFreeListEntry) {
                list.AddBlock(static_cast<int32_t>(DecodeFixed32LE(entry)),
                              static_cast<int64_t>(DecodeFixed64LE(entry + 8)));
            }
        }
        old.Delete();
    }
    WriteHeader();
}

bool VFileNG::HeaderIsPlausible(int64_t fileLength) const {
    const FileHeader& h = header_;
    return GetMaxDatafileLength(h.pointerLength) != 0 && h.recordCount >= 0 &&
           h.maxRecordLength >= 0 && h.maxRecordLength <= fileLength &&
           h.endOfData >= kHeaderLength && h.endOfData <= fileLength && h.freeBytes >= 0 &&
           h.freeBytes <= h.endOfData &&
           (h.userHeaderPosition == 0 ||
            (h.userHeaderPosition >= kHeaderLength && h.userHeaderPosition < h.endOfData));
}

bool VFileNG::ReadHeader() {
    if (!S_SeekTo(*file_, 0)) return FailFromFile();
    unsigned char bytes[kHeaderLength];
    if (file_->Read(bytes, kHeaderLength) != kHeaderLength) return FailFromFile();
    header_.DecodeFrom(bytes);
    int64_t length = file_->GetLengthEx();
    if (header_.version < cCurVers) header_.endOfData = length;
    if (!S_IsKnownVersion(header_.version)) return Fail(kErrorNoRecord);
    if (!HeaderIsPlausible(length)) return Fail(kErrorCorrupt);
    SetPointerLength(header_.pointerLength);
    hasFreeSpace_ = header_.freeBytes > 0;
    cachedHeaderPosition_ = 0;
    return true;
}

bool VFileNG::WriteHeader(File* file, const FileHeader& header) {
    unsigned char bytes[kHeaderLength];
    header.EncodeTo(bytes);
    if (!S_SeekTo(*file, 0) || file->Write(bytes, kHeaderLength) != kHeaderLength) {
        return FailFromFile();
    }
    return true;
}

bool VFileNG::RefreshHeader() {
    if (!file_) return Fail(kErrorNotOpen);
    if (!ReadHeader()) return false;
    if (!index_.RefreshHeader()) return Fail(index_.GetLastError());
    if (freeList_ && FAILED(freeList_->RefreshHeader())) return Fail(kErrorCorrupt);
    if (mode_ != kReadOnly && hasFreeSpace_) EnsureFreeList().Open(FreeList::OpenExisting);
    return true;
}

bool VFileNG::SetSharing(bool share) {
    if (!file_) return Fail(kErrorNotOpen);
    if (share == share_) return true;
    share_ = share;
    if (mode_ != kReadOnly) WriteHeader();
    file_->Close();
    if (!file_->Open(mode_ == kReadOnly, 1, share_, shareWrites_, 0)) return FailFromFile();
    cachedHeaderPosition_ = 0;
    if (!index_.SetSharing(share_, shareWrites_)) return Fail(index_.GetLastError());
    if (GetFreeList()) {
        freeList_->Close();
        EnsureFreeList().Open(FreeList::OpenExisting);
    }
    return true;
}

bool VFileNG::Flush() {
    if (!file_ || mode_ == kReadOnly) return true;
    if (!WriteHeader()) return false;
    if (!file_->Flush()) return FailFromFile();
    if (!index_.Flush()) return Fail(index_.GetLastError());
    if (freeList_ && FAILED(freeList_->Flush())) return Fail(File::kWriteFailed);
    return true;
}

void VFileNG::CloseFiles(bool deleteFiles) {
    if (file_) {
        // The header is rewritten at every change; once more here heals one
        // whose last write failed.
        if (mode_ != kReadOnly && !deleteFiles) WriteHeader();
        deleteFiles ? file_->Delete() : file_->Close();
        file_.reset();
    }
    cachedHeaderPosition_ = 0;
    index_.Close(deleteFiles);
    if (freeList_) freeList_->Close();
    freeList_.reset();
}

void VFileNG::Close(bool compact) {
    if (!file_) return;
    if (mode_ != kReadOnly && compact && hasFreeSpace_ && !temporary_) CompactFile(true);
    CloseFiles(temporary_);
}

// ---- blocks ----

bool VFileNG::IsValidFilePosition(int64_t position, int32_t length) const {
    return position >= dataStart_ &&
           position + recordHeaderLength_ + int64_t{length} < maxDataFileLength_;
}

bool VFileNG::ReadRecordHeader(int64_t position) {
    if (position == cachedHeaderPosition_ && position != 0) {
        return S_SeekTo(*file_, position + recordHeaderLength_) ? true : FailFromFile();
    }
    cachedHeader_ = RecordHeader{};
    if (!S_SeekTo(*file_, position) || !cachedHeader_.Read(file_.get(), recordHeaderLength_)) {
        cachedHeaderPosition_ = 0;
        return FailFromFile();
    }
    cachedHeaderPosition_ = position;
    return true;
}

bool VFileNG::ReadRecordHeader(int64_t position, RecordHeader& header) {
    if (!file_) return Fail(kErrorNotOpen);
    if (!ReadRecordHeader(position)) return false;
    header = cachedHeader_;
    return true;
}

bool VFileNG::WriteRecordHeader(int64_t position, const RecordHeader& header) {
    if (!S_SeekTo(*file_, position)) return FailFromFile();
    if (position == cachedHeaderPosition_) cachedHeader_ = header;
    if (!header.Write(file_.get(), recordHeaderLength_)) {
        if (position == cachedHeaderPosition_) cachedHeaderPosition_ = 0;
        return FailFromFile();
    }
    return true;
}

int64_t VFileNG::GetFreeDataBlock(int32_t blockLength) {
    if (header_.version < cCurVers) return header_.endOfData;
    FreeList& list = EnsureFreeList();
    int64_t position = 0;
    list.GetBlock(blockLength, position);
    WillRewriteHeader(position);
    RecordHeader found;
    // The list is a cache that may be stale or damaged: only a deleted block
    // inside the data, large enough, is taken.
    if (position < dataStart_ || position >= header_.endOfData ||
        !ReadRecordHeader(position, found) || found.size >= 0) {
        return header_.endOfData;
    }
    int64_t whole = recordHeaderLength_ - int64_t{found.size};
    int64_t remainder = whole - blockLength;
    if (remainder < 0 || position + whole > header_.endOfData) return header_.endOfData;
    if (remainder > 0 && remainder <= recordHeaderLength_) {
        // Too few bytes would be left for a block header of their own, and
        // bytes no header describes would break the chain of blocks: keep
        // the hole for a better fit and append. A tail the list kept (only
        // version 1 headers are that long) would overlap the whole block,
        // so then the hole waits for compaction instead.
        if (remainder < FreeList::kMinBlockSize)
            list.AddBlock(static_cast<int32_t>(whole), position);
        return header_.endOfData;
    }
    if (remainder > recordHeaderLength_) {
        RecordHeader rest{static_cast<int32_t>(recordHeaderLength_ - remainder), 0};
        WriteRecordHeader(position + blockLength, rest);
    }
    header_.freeBytes -= blockLength;
    return position;
}

bool VFileNG::InternalDeleteRecord(int64_t position, int64_t blockLength) {
    if (!RequireWritable()) return false;
    if (blockLength < recordHeaderLength_) return true;
    RecordHeader deleted{static_cast<int32_t>(recordHeaderLength_ - blockLength), 0};
    if (!WriteRecordHeader(position, deleted)) return false;
    if (header_.version >= cCurVers && deleted.size != 0 && blockLength <= INT32_MAX) {
        EnsureFreeList().AddBlock(static_cast<int32_t>(blockLength), position);
    }
    header_.freeBytes += blockLength;
    hasFreeSpace_ = true;
    return true;
}

bool VFileNG::InternalWriteRecord(int32_t recordNumber, int64_t& position,
                                  const unsigned char* data, int32_t length, WriteError* error) {
    WriteError ignored;
    WriteError& result = error ? *error : ignored;
    result = kWriteOk;
    int64_t blockLength = int64_t{recordHeaderLength_} + length;
    // Only a block this call chose is given back on failure; a record
    // rewritten in place stays the caller's to restore.
    bool chosen = position < dataStart_;
    if (chosen && (length < 0 || blockLength > INT32_MAX)) {
        result = kWriteOutOfRange;
        return Fail(kErrorInvalid);
    }
    if (chosen) position = GetFreeDataBlock(static_cast<int32_t>(blockLength));
    bool appending = position >= header_.endOfData;
    int64_t oldEnd = header_.endOfData;
    auto giveBack = [&] {
        if (appending) {
            header_.endOfData = oldEnd;
        } else if (chosen) {
            InternalDeleteRecord(position, blockLength);
        }
    };
    if (length < 0 || !IsValidFilePosition(position, length)) {
        result = kWriteOutOfRange;
        giveBack();
        return Fail(kErrorInvalid);
    }
    if (!WriteRecordHeader(position, RecordHeader{length, recordNumber})) {
        result = kWriteHeaderFailed;
        giveBack();
        return false;
    }
    header_.endOfData = std::max(header_.endOfData, position + recordHeaderLength_);
    int written = file_->Write(data, length);
    if (written != length) {
        FailFromFile();
        result = written <= 0 ? kWriteNothingWritten : kWritePartial;
        int32_t error = lastError_;
        giveBack();
        return Fail(error);
    }
    header_.endOfData = std::max(header_.endOfData, position + blockLength);
    if (recordNumber >= 1 && !index_.SetFilePosition(recordNumber, position)) {
        result = kWriteIndexFailed;
        int32_t error = index_.GetLastError();
        if (chosen) InternalDeleteRecord(position, blockLength);
        return Fail(error);
    }
    header_.maxRecordLength = std::max(header_.maxRecordLength, length);
    return true;
}

// ---- records ----

bool VFileNG::InsertRecord(const unsigned char* data, int32_t length, int32_t* recordNumber) {
    if (recordNumber) *recordNumber = -1;
    if (!RequireWritable()) return false;
    int32_t n = GetNextRecordNumber();
    int64_t position = -1;
    if (!InternalWriteRecord(n, position, data, length, nullptr)) return false;
    if (recordNumber) *recordNumber = n;
    header_.recordCount += 1;
    return WriteHeader();
}

bool VFileNG::InsertRecordWithId(int32_t n, const unsigned char* data, int32_t length) {
    if (!RequireWritable()) return false;
    if (n < 0) return Fail(kErrorInvalid);
    if (index_.IsValidRecordNumber(n)) {
        if (index_.IsReservedRecordNumber(n)) index_.RemoveReservedRecordNumber(n);
        if (index_.RecordExists(n)) return Fail(kErrorNoRecord);
    }
    int64_t position = -1;
    if (!InternalWriteRecord(n, position, data, length, nullptr)) return false;
    header_.recordCount += 1;
    return WriteHeader();
}

bool VFileNG::ReadRecord(int32_t n, unsigned char* buffer, int32_t bufferLength, int32_t* length) {
    int32_t ignored;
    int32_t& size = length ? *length : ignored;
    size = -1;
    if (!file_) return Fail(kErrorNotOpen);
    if (!index_.IsValidRecordNumber(n)) return Fail(kErrorInvalid);
    int64_t position = index_.GetFilePosition(n);
    if (position < 1) {
        return Fail(index_.IsReservedRecordNumber(n) ? kErrorNoRecord : index_.GetLastError());
    }
    if (!ReadRecordHeader(position)) return false;
    int64_t stored = cachedHeader_.size;
    if (std::abs(stored) > header_.maxRecordLength) return Fail(kErrorCorrupt);
    if (stored < 0) return Fail(kErrorInvalid);
    if (position + recordHeaderLength_ + stored > header_.endOfData) return Fail(kErrorCorrupt);
    size = cachedHeader_.size;
    if (size == 0) return true;  // an empty record needs no buffer
    if (!buffer || size > bufferLength) return Fail(kErrorNoRecord);
    return file_->Read(buffer, size) == size ? true : FailFromFile();
}

int32_t VFileNG::GetRecordLength(int32_t n) {
    if (!file_ || !index_.IsValidRecordNumber(n)) return 0;
    int64_t position = index_.GetFilePosition(n);
    if (position < dataStart_ || !ReadRecordHeader(position)) return 0;
    int64_t size = std::abs(int64_t{cachedHeader_.size});
    return size > header_.maxRecordLength ? 0 : static_cast<int32_t>(size);
}

bool VFileNG::UpdateInPlace(int32_t n, int64_t position, const unsigned char* data, int32_t length,
                            int32_t old) {
    WriteError error;
    int64_t at = position;
    if (!InternalWriteRecord(n, at, data, length, &error)) {
        if (error == kWritePartial) {
            index_.DeleteRecord(n);
            header_.recordCount -= 1;
            return false;
        }
        if (error == kWriteNothingWritten) {
            // The header already says the new length: put the old one back,
            // so that the record reads as it was.
            int32_t failure = lastError_;
            WriteRecordHeader(position, RecordHeader{old, n});
            return Fail(failure);
        }
        if (error != kWriteIndexFailed) return false;
    }
    if (length >= old) return true;
    int64_t tail = int64_t{old} - length;
    if (tail < recordHeaderLength_ && position + recordHeaderLength_ + old == header_.endOfData) {
        // A sliver too small for a header of its own ends the data instead.
        header_.endOfData = position + recordHeaderLength_ + length;
        return true;
    }
    return InternalDeleteRecord(position + recordHeaderLength_ + length, tail);
}

bool VFileNG::UpdateRecord(int32_t n, const unsigned char* data, int32_t length) {
    if (!RequireWritable()) return false;
    if (index_.IsReservedRecordNumber(n)) return InsertRecordWithId(n, data, length);
    if (!index_.IsValidRecordNumber(n) || index_.IsRecordDeleted(n)) return Fail(kErrorNoRecord);
    int64_t position = index_.GetFilePosition(n);
    WillRewriteHeader(position);
    int32_t old = GetRecordLength(n);
    if (position < dataStart_ || cachedHeader_.size < 0) return Fail(kErrorCorrupt);
    bool last = position + recordHeaderLength_ + old == header_.endOfData;
    if (length == old || int64_t{recordHeaderLength_} + length <= old || last) {
        if (!UpdateInPlace(n, position, data, length, old)) return false;
    } else {
        int64_t moved = -1;
        if (!InternalWriteRecord(n, moved, data, length, nullptr)) return false;
        if (IsValidFilePosition(position, old)) {
            InternalDeleteRecord(position, int64_t{old} + recordHeaderLength_);
        }
    }
    return WriteHeader();
}

bool VFileNG::DeleteRecord(int32_t n) {
    if (!file_ || mode_ == kReadOnly) return false;
    if (!index_.IsValidRecordNumber(n)) return Fail(kErrorInvalid);
    int64_t position = index_.GetFilePosition(n);
    if (position < 0) return index_.RemoveReservedRecordNumber(n);
    if (!IsValidFilePosition(position, 0)) return true;
    WillRewriteHeader(position);
    int32_t old = GetRecordLength(n);
    // A damaged entry must not stamp a deleted header into another block.
    if (!ReadRecordHeader(position) || cachedHeader_.size < 0 ||
        cachedHeader_.size > header_.maxRecordLength) {
        return Fail(kErrorCorrupt);
    }
    if (!index_.DeleteRecord(n)) return Fail(index_.GetLastError());
    if (!InternalDeleteRecord(position, int64_t{old} + recordHeaderLength_)) return false;
    header_.recordCount -= 1;
    return WriteHeader();
}

// ---- user header ----

int32_t VFileNG::GetUserHeaderLength() {
    int64_t position = header_.userHeaderPosition;
    if (!file_ || position == 0 || !ReadRecordHeader(position)) return 0;
    int64_t size = std::abs(int64_t{cachedHeader_.size});
    return size > header_.maxRecordLength ? 0 : static_cast<int32_t>(size);
}

bool VFileNG::ReadUserHeader(unsigned char* buffer, int32_t bufferLength) {
    int32_t length = GetUserHeaderLength();
    if (length == 0 || !buffer || bufferLength < length) return Fail(kErrorNoRecord);
    if (!ReadRecordHeader(header_.userHeaderPosition)) return false;
    return file_->Read(buffer, length) == length ? true : FailFromFile();
}

bool VFileNG::WriteUserHeader(const unsigned char* data, int32_t length) {
    if (!RequireWritable()) return false;
    int32_t old = GetUserHeaderLength();
    int64_t oldPosition = header_.userHeaderPosition;
    bool move = length > old && oldPosition + recordHeaderLength_ + old < header_.endOfData;
    int64_t position = move || oldPosition == 0 ? -1 : oldPosition;
    // A tail too short for a block header of its own stays in the block,
    // filled with zeros.
    int32_t written = length < old && length + recordHeaderLength_ > old ? old : length;
    std::vector<unsigned char> padded(data, data + length);
    padded.resize(static_cast<size_t>(written), 0);
    if (!InternalWriteRecord(0, position, padded.data(), written, nullptr)) return false;
    header_.userHeaderPosition = position;
    // An empty user header has a block too, which would be lost to the count
    // of free bytes if only headers with data were given back.
    if (move && oldPosition != 0) {
        InternalDeleteRecord(oldPosition, int64_t{old} + recordHeaderLength_);
    }
    if (written < old) {
        InternalDeleteRecord(oldPosition + recordHeaderLength_ + written, int64_t{old} - written);
    }
    return WriteHeader();
}

}  // namespace quillet
