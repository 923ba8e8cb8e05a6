#pragma once

// VFileNG: the next-generation record file. Records of any length, addressed
// by numbers from 1, live in a data file as blocks (a record header, then the
// data); beside it are its index (VFileNGIndex, number -> position) and, in
// version 3, its free list (FreeList), which remembers the holes that deleted
// and moved records leave so that new records fill them. One unnumbered
// record, the user header, holds the caller's own header data. Numbers are
// never recycled: a new record gets the next number above every number ever
// used or reserved.
//
//   file header, 40 bytes at offset 0, little-endian:
//     offset size field
//     0      4    version: 3 when created; 1, 2, 3 and 9996 are read
//     4      4    record count: live numbered records
//     8      4    longest record data ever written
//     12     4    pointer length: bytes of a position in the index and the
//                 free list, 4 to 7 (5 by default)
//     16     8    free bytes: all bytes of deleted blocks, headers included
//     24     8    end of data: just past the last block (the file's length
//                 in versions before 3)
//     32     8    position of the user header's block, 0 = none
//
//   record header, in front of every block:
//     0      4    size: a live record's data length, or, for a deleted
//                 block, minus the length of its data part
//     4      L    version 1 only: the record's number (low L bytes), 0 when
//                 deleted
//
// A file may be shared between processes; each re-reads the headers with
// RefreshHeader. Operations return false and leave a code in GetLastError():
// 1 the record does not exist, exists already, the buffer is too small, there
// is no user header, or a copy or compaction failed; 2 the file is read-only;
// 4 the compaction's file could not be made; 5 an invalid number, position or
// deleted block; 6 a header that contradicts the file (corruption); 8 the
// file is not open; anything else is the File's or the index's code.

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "foundation/Export.h"
#include "foundation/File.h"
#include "foundation/String.h"
#include "recordfile/FreeList.h"
#include "recordfile/VFileNGIndex.h"

namespace quillet {

class QUILLET_EXPORT VFileNG {
public:
    enum Mode : int32_t { kReadOnly = 0, kReadWrite = 1 };

    enum WriteError : int32_t {
        kWriteOk = 0,
        kWriteOutOfRange = 1,
        kWriteHeaderFailed = 2,
        kWriteNothingWritten = 3,
        kWritePartial = 4,
        kWriteIndexFailed = 5,
    };

    static constexpr int32_t kHeaderLength = 40;
    static constexpr int32_t kOldFreeListVersion = 2;
    static constexpr int32_t kErrorNoRecord = 1;
    static constexpr int32_t kErrorReadOnly = 2;
    static constexpr int32_t kErrorNoCompactFile = 4;
    static constexpr int32_t kErrorInvalid = 5;
    static constexpr int32_t kErrorCorrupt = 6;
    static constexpr int32_t kErrorNotOpen = 8;

    struct QUILLET_EXPORT FileHeader {
        int32_t version = cCurVers;
        int32_t recordCount = 0;
        int32_t maxRecordLength = 0;
        int32_t pointerLength = VFileNGIndex::kDefaultPointerLength;
        int64_t freeBytes = 0;
        int64_t endOfData = kHeaderLength;
        int64_t userHeaderPosition = 0;

        void EncodeTo(unsigned char out[kHeaderLength]) const;
        void DecodeFrom(const unsigned char in[kHeaderLength]);
    };

    struct QUILLET_EXPORT RecordHeader {
        int32_t size = 0;
        int64_t number = 0;
        // `length` is the record header length: 4, or 4 + L in version 1.
        bool Read(File* file, int32_t length);
        bool Write(File* file, int32_t length) const;
    };

    explicit VFileNG(const wchar_t* path);
    ~VFileNG();
    VFileNG(const VFileNG&) = delete;
    VFileNG& operator=(const VFileNG&) = delete;

    // A temporary file is deleted with its index at Close.
    bool Create(Mode mode, bool temporary, int32_t pointerLength, bool);
    // share: others may open the file too; shareWrites: and write it while
    // this object reads (File::Open's two sharing flags).
    bool Open(Mode mode, bool share, bool shareWrites);
    // With `compact`, a read-write file that has free space is compacted
    // (renumbering) first.
    void Close(bool compact);
    bool Flush();
    bool Truncate();
    bool DeleteFileW();
    bool RenameFile(const wchar_t* newPath);
    bool CopyFileW(const wchar_t* destination) const;
    bool SetSharing(bool share);
    bool RefreshHeader();

    bool InsertRecord(const unsigned char* data, int32_t length, int32_t* recordNumber);
    bool InsertRecordWithId(int32_t recordNumber, const unsigned char* data, int32_t length);
    bool UpdateRecord(int32_t recordNumber, const unsigned char* data, int32_t length);
    // Reads record n into buffer; *length is its length even when the buffer
    // is too short (then false with last error 1).
    bool ReadRecord(int32_t recordNumber, unsigned char* buffer, int32_t bufferLength,
                    int32_t* length);
    bool DeleteRecord(int32_t recordNumber);
    int32_t GetRecordLength(int32_t recordNumber);

    bool ReadUserHeader(unsigned char* buffer, int32_t bufferLength);
    bool WriteUserHeader(const unsigned char* data, int32_t length);
    int32_t GetUserHeaderLength();

    // Copies the live records into a sibling file ("<name>_compress"), then
    // swaps the names; with `renumber` the records become 1, 2, 3, ...
    bool CompactFile(bool renumber);
    // The same, telling `progress` (number reached, highest number) as it goes.
    using CompactProgress = std::function<void(int32_t done, int32_t total)>;
    bool CompactFile(bool renumber, const CompactProgress& progress);
    // Finishes or undoes a compaction of the file at `path` that was cut off
    // (the process killed) while it swapped names, so that the path holds
    // either the old file or the new one, whole. Open calls it.
    static void RecoverCompaction(const wchar_t* path);
    // Whether a compaction of the file at `path` was cut off and left files
    // beside it (the old file set aside, or an unfinished copy).
    static bool CompactionWasCutOff(const wchar_t* path);

    int32_t GetMinRecordNumber() { return index_.GetMinRecordNumber(); }
    int32_t GetMaxRecordNumber(bool trim) { return index_.GetMaxRecordNumber(trim); }
    int32_t GetNextRecordNumber() { return index_.GetNextRecordNumber(); }
    bool RecordExists(int32_t n) { return index_.RecordExists(n); }
    bool IsRecordDeleted(int32_t n) { return index_.IsRecordDeleted(n); }
    bool IsReservedRecordNumber(int32_t n) const { return index_.IsReservedRecordNumber(n); }
    int32_t AllocateReservedRecordNumber() { return index_.InsertReservedRecordNumber(); }
    bool ReleaseReservedRecordNumber(int32_t n) { return index_.RemoveReservedRecordNumber(n); }
    bool ReleaseAllReservedRecordNumbers() { return index_.ReleaseReservedRecordNumbers(); }

    int32_t GetRecordCount() const { return header_.recordCount + index_.GetReservedRecordCount(); }
    int32_t GetFilePointerLength() const { return header_.pointerLength; }
    const wchar_t* GetName() const { return path_.c_str(); }
    bool IsMemoryMapped() const { return file_ && file_->IsMapped(); }
    bool GetRecycleRecordNumbers() const { return false; }
    bool IsOpen() const { return file_ != nullptr; }
    int32_t GetLastError() const { return lastError_; }
    const FileHeader& GetHeader() const { return header_; }
    int32_t GetRecordHeaderLength() const { return recordHeaderLength_; }
    // Whether the file holds deleted blocks, or had a record deleted while
    // open: what makes CompactFile (and Close with compaction) rewrite it.
    bool HasFreeSpace() const { return hasFreeSpace_; }
    VFileNGIndex& GetIndex() { return index_; }
    // The free list, opened when the file has one; null otherwise.
    FreeList* GetFreeList();

    // Reads the record header of the block at `position` (the data follows).
    bool ReadRecordHeader(int64_t position, RecordHeader& header);
    // Whether a block of `length` data bytes may start at `position`.
    bool IsValidFilePosition(int64_t position, int32_t length) const;

private:
    bool Fail(int32_t error) {
        lastError_ = error;
        return false;
    }
    bool FailFromFile();
    bool ReadHeader();
    bool WriteHeader(File* file, const FileHeader& header);
    bool WriteHeader() { return WriteHeader(file_.get(), header_); }
    bool HeaderIsPlausible(int64_t fileLength) const;
    bool ReadRecordHeader(int64_t position);
    bool WriteRecordHeader(int64_t position, const RecordHeader& header);
    // The block header at `position` is about to be read and rewritten.
    void WillRewriteHeader(int64_t position) const {
        if (position >= dataStart_) file_->WillWrite(position, recordHeaderLength_);
    }
    bool RequireWritable();
    FreeList& EnsureFreeList();
    int64_t GetFreeDataBlock(int32_t blockLength);
    bool InternalWriteRecord(int32_t recordNumber, int64_t& position, const unsigned char* data,
                             int32_t length, WriteError* error);
    bool InternalDeleteRecord(int64_t position, int64_t blockLength);
    bool UpdateInPlace(int32_t n, int64_t position, const unsigned char* data, int32_t length,
                       int32_t old);
    void UpgradeVersion2();
    void SetPointerLength(int32_t pointerLength);
    void CloseFiles(bool deleteFiles);
    bool CopyRecordsTo(VFileNG& copy, bool renumber, const CompactProgress& progress);
    bool SwapWith(const String& copyPath);

    String path_;
    Mode mode_ = kReadOnly;
    bool share_ = true;
    bool shareWrites_ = false;
    FileHeader header_;
    int32_t dataStart_ = kHeaderLength;
    int32_t recordHeaderLength_ = 4;
    int64_t maxDataFileLength_ = 0;
    std::unique_ptr<File> file_;
    bool temporary_ = false;
    bool hasFreeSpace_ = false;
    VFileNGIndex index_;
    int32_t lastError_ = 0;
    int64_t cachedHeaderPosition_ = 0;
    RecordHeader cachedHeader_;
    std::unique_ptr<FreeList> freeList_;
};

}  // namespace quillet
