#pragma once

// VFileNGIndex: the index file of a next-generation record file (VFileNG).
// It maps record numbers 1, 2, 3, ... to 64-bit positions in the data file,
// 0 meaning no record. Numbers are grouped in chunks of 1024 entries; only
// chunks that hold a written number take space, and a bit set after the last
// chunk says which are stored. All integers are little-endian:
//
//   offset             size              field
//   0                  4                 version (3 when created)
//   4                  4                 chunk count
//   8                  4                 highest record number written
//   12                 4                 pointer length L, 4 to 7
//   16                 count * 1024 * L  the stored chunks, ascending; entry
//                                        i of a chunk is the low L bytes of a
//                                        position, at L * i
//   then               16 + 4 * W        the bit set of stored chunks, in the
//                                        form BitSet::Export gives
//
// The index also hands out reserved numbers, promised to a caller before the
// record is written and kept in memory only. Operations return false and
// leave a code in GetLastError(): the File's error after a failed seek, read
// or write; 5 for a number below 1 or a position out of range; 1 after a
// failed rename or copy; 0 when an entry's chunk is not stored; 6 for a
// header that contradicts itself or the file.

#include <cstdint>
#include <memory>

#include "foundation/BitSet.h"
#include "foundation/Export.h"
#include "foundation/File.h"
#include "foundation/IFIDSet.h"
#include "foundation/String.h"

namespace quillet {

// The current version of the next-generation record files.
inline constexpr int32_t cCurVers = 3;

// The largest data file position a pointer length can hold: 2^32 for 4 up to
// 2^56 for 7; 0 for any other length.
QUILLET_EXPORT int64_t GetMaxDatafileLength(int32_t pointerLength);

class QUILLET_EXPORT VFileNGIndex {
public:
    static constexpr int32_t kHeaderLength = 16;
    static constexpr int32_t kChunkEntries = 1024;
    static constexpr int32_t kDefaultPointerLength = 5;
    static constexpr int32_t kMinPointerLength = 4;
    static constexpr int32_t kMaxPointerLength = 7;
    // Last-error codes of the index's own.
    static constexpr int32_t kErrorRenameOrCopy = 1;
    static constexpr int32_t kErrorInvalidNumber = 5;
    static constexpr int32_t kErrorCorrupt = 6;

    // One entry: a record's position, stored as its low `length` bytes.
    struct QUILLET_EXPORT IndexRec {
        int64_t position = 0;
        bool Read(File* file, int32_t length);
        bool Write(File* file, int32_t length) const;
    };

    struct Header {
        int32_t version = cCurVers;
        int32_t chunkCount = 0;
        int32_t maxRecordNumber = 0;
        int32_t pointerLength = kDefaultPointerLength;
    };

    explicit VFileNGIndex(const wchar_t* dataFilePath);
    ~VFileNGIndex();
    VFileNGIndex(const VFileNGIndex&) = delete;
    VFileNGIndex& operator=(const VFileNGIndex&) = delete;

    // mode: 0 read-only, 1 read-write (VFileNG::Mode).
    bool Create(int32_t mode, int32_t pointerLength, bool);
    bool Open(int32_t mode, bool share, bool shareWrites);
    bool SetSharing(bool share, bool shareWrites);
    void Close(bool deleteFile);
    bool DeleteFileW();
    void UpdateName(const wchar_t* dataFilePath);
    bool RenameFile(const wchar_t* newDataFilePath);
    bool CopyFileW(const wchar_t* destDataFilePath) const;

    bool ReadHeader();
    bool RefreshHeader() { return ReadHeader(); }
    bool WriteHeader();
    bool Flush();

    // Byte offset of record n's entry; -1 when its chunk is not stored.
    int64_t GetIndexPosition(int32_t n);
    bool ReadIndex(int32_t n);
    // Writes the current entry's position as entry n, storing its chunk
    // (and moving the higher chunks up) when it is not there yet.
    bool WriteIndex(int32_t n);

    bool IsValidRecordNumber(int32_t n) const;
    bool IsRecordDeleted(int32_t n);
    bool RecordExists(int32_t n) { return !IsRecordDeleted(n); }
    bool IsLiveRecord(int32_t n);
    bool IsReservedRecordNumber(int32_t n) const;

    int64_t GetFilePosition(int32_t n);
    bool SetFilePosition(int32_t n, int64_t position);
    bool DeleteRecord(int32_t n);

    int32_t GetMinRecordNumber();
    int32_t GetMaxRecordNumber(bool trim);
    int32_t GetNextRecordNumber() { return GetMaxRecordNumber(false) + 1; }
    int32_t GetReservedRecordCount() const;
    // The smallest number from n on whose chunk is stored, -1 when none:
    // walks over the numbers stay bounded by the chunks the file holds.
    int32_t GetNextStoredNumber(int32_t n) const;
    int32_t InsertReservedRecordNumber();
    bool RemoveReservedRecordNumber(int32_t n);
    bool ReleaseReservedRecordNumbers();

    bool IsOpen() const { return file_ != nullptr; }
    const String& GetName() const { return name_; }
    const Header& GetHeader() const { return header_; }
    const BitSet* GetChunks() const { return chunks_.get(); }
    int32_t GetLastError() const { return lastError_; }

    // The index file's path: "name.adf" (any case) turns its character
    // before ".adf" into 'x', any other path its last character.
    static String IndexPath(const wchar_t* dataFilePath);

private:
    bool FailFromFile();
    bool Fail(int32_t error) const {
        lastError_ = error;
        return false;
    }
    int64_t ChunkRegionEnd() const;
    bool SeekTo(int64_t position);
    bool StoreChunk(int32_t chunk);
    bool MoveChunksAbove(int32_t chunk);
    bool ReadBitSet();
    void CacheLengths();
    void ForgetCurrent();

    String name_;
    int32_t mode_ = 0;
    Header header_;
    std::unique_ptr<File> file_;
    std::unique_ptr<BitSet> chunks_;
    int32_t recordLength_ = kDefaultPointerLength;
    int32_t chunkLength_ = kDefaultPointerLength * kChunkEntries;
    int64_t maxDataFileLength_ = 0;
    mutable int32_t lastError_ = 0;
    std::unique_ptr<IFIDSet> reserved_;
    int32_t maxReserved_ = 0;
    int32_t currentNumber_ = 0;
    IndexRec current_;
    int32_t cachedChunk_ = -1;
    int32_t cachedOrdinal_ = -1;
};

}  // namespace quillet
