#pragma once

// VFile: the older record file. Records are numbered from 0 and are either all
// of one fixed length or each of its own length. The data file starts with a
// 100-byte header whose last 72 bytes belong to the caller (the "user
// header"); variable-length files keep an index file of 8-byte entries beside
// the data, named by the index-path rule (IndexPath below). Shape data files
// (.shp/.shx) and spatial bin indexes (.sbn/.sbx) are stored in this format.
//
// A VFile owns the File objects of its data and index file; the caller owns
// the VFile. Nothing here throws: operations return false (or -1) and leave a
// File::Error value in GetLastError().
//
// Deleted records stay in place, marked by kDeletedMarker; Close compacts a
// file that had deletions (or rewrites with another length, which delete the
// old bytes), renumbering the live records without gaps.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "foundation/Export.h"
#include "foundation/File.h"

namespace quillet {

class QUILLET_EXPORT VFile {
public:
    // Byte order of the file's integers, found from the file code on open.
    enum FileType : int32_t { kBigEndian = 0, kLittleEndian = 1, kNotRecordFile = -1 };
    // 0 opens or creates read-only; any other value is writable.
    enum Mode : int32_t { kReadOnly = 0, kReadWrite = 1 };
    // 1: variable-length records are found through the index file. Any other
    // value: no index file (variable-length records can then only be appended).
    enum AccessMethod : int32_t { kNotIndexed = 0, kIndexed = 1 };

    // The length word (or, for fixed-length records, the first 4 bytes) of a
    // deleted record.
    static constexpr int32_t kDeletedMarker = -1999999999;
    static constexpr int32_t kHeaderLength = 100;
    static constexpr int32_t kUserHeaderLength = 72;
    // Little-endian files keep this many bytes between header and data.
    static constexpr int32_t kLittleEndianAreaLength = 256;
    static constexpr int32_t kRecordHeaderLength = 8;
    static constexpr int32_t kIndexEntryLength = 8;

    // File codes: fixed/variable records, without/with indexed access.
    static constexpr int32_t kCodeFixed = 9991;
    static constexpr int32_t kCodeVariable = 9992;
    static constexpr int32_t kCodeFixedIndexed = 9993;
    static constexpr int32_t kCodeVariableIndexed = 9994;

    // The 100-byte header, at offset 0 of the data file and, with its own
    // file length, of the index file:
    //
    //   offset size  field
    //        0    4  file code, 9991..9994 (see above)
    //        4    4  user type (the caller's number)
    //        8    4  record length in 16-bit words; <= 0: variable-length
    //       12   12  three integers, written as 0
    //       24    4  file length in 16-bit words
    //       28   72  user header: the caller's bytes, stored as they stand
    //
    // The seven integers are big-endian in a big-endian file and native in a
    // little-endian one; the user header is never converted.
    struct QUILLET_EXPORT HeaderRec {
        int32_t fileCode = 0;
        int32_t userType = 0;
        int32_t recordLength = 0;
        int32_t reserved[3] = {0, 0, 0};
        int32_t fileLength = 0;
        unsigned char userHeader[kUserHeaderLength] = {};

        void EncodeTo(unsigned char out[kHeaderLength], FileType type) const;
        void DecodeFrom(const unsigned char in[kHeaderLength], FileType type);
        // The byte order a header's first four bytes announce, or kNotRecordFile.
        static FileType TypeOf(const unsigned char first[4]);
    };

    // An entry of the index file, at 100 + 8 × n:
    //
    //   offset size  field
    //        0    4  position of the record's 8-byte header, in 16-bit words,
    //                not counting a little-endian file's 256-byte area
    //        4    4  data length in 16-bit words; kDeletedMarker when deleted
    //
    // Big-endian in a big-endian file. In memory both are in bytes, except
    // that a deleted length stays kDeletedMarker.
    struct QUILLET_EXPORT IndexRec {
        int32_t offset = 0;
        int32_t length = 0;

        void EncodeTo(unsigned char out[kIndexEntryLength], FileType type) const;
        // False when a value does not fit in bytes (a corrupt entry).
        bool DecodeFrom(const unsigned char in[kIndexEntryLength], FileType type);
        bool IsDeleted() const { return length <= 0; }
    };

    explicit VFile(const wchar_t* path);
    ~VFile();
    VFile(const VFile&) = delete;
    VFile& operator=(const VFile&) = delete;

    // Creates (replacing) the data file, and for variable-length indexed
    // records its index file. recordLength is in 16-bit words; < 1 makes
    // variable-length records. A temporary file has no name (it is made in the
    // path's folder) and goes at Close, or with the process. New files
    // are big-endian unless `type` says otherwise, and always writable: `mode`
    // is kept for the callers' argument lists.
    bool Create(int32_t userType, Mode mode, bool temporary, AccessMethod accessMethod,
                int32_t recordLength, FileType type = kBigEndian);
    // Opens an existing file; shareA and shareB are File::Open's sharing flags.
    bool Open(Mode mode, AccessMethod accessMethod, bool shareA, bool shareB);
    // Writes the header when it changed, compacts a file that had deletions,
    // closes (and deletes a temporary file). False when a write failed.
    bool Close();
    bool IsOpen() const;
    // Writes the header when it is dirty, then the buffered data.
    bool Flush();
    // Writes the header with the current lengths and forces both files to disk.
    bool CommitChanges();
    // Makes "the record after the current one" record 0 again.
    bool Rewind();

    // Reads `length` bytes of record n (0 <= n < count) into buffer. False for
    // a deleted record (then IsCurrentRecordDeleted() is true) or a failure.
    bool ReadRecord(int32_t n, unsigned char* buffer, int32_t length);
    // Writes record n; n == count appends, -1 means the record after the
    // current one. A variable-length record of another length than before is
    // appended and its old bytes are marked deleted. An odd length is padded
    // with one zero byte; a fixed-length record shorter than the record length
    // is padded with zeros, a longer one is refused.
    bool WriteRecord(int32_t n, const unsigned char* data, int32_t length);
    // Appends a record; its number, or -1.
    int32_t WriteNextRecord(const unsigned char* data, int32_t length);
    bool DeleteRecord(int32_t n);
    bool IsRecordDeleted(int32_t n);
    bool IsCurrentRecordDeleted() const { return currentDeleted_; }

    // Record count; -1 when unknown (variable-length, not indexed, opened).
    int32_t GetNumRecs() const { return count_; }
    // The fixed record length in words (<= 0 for variable-length files).
    int32_t GetRecordLength() const { return header_.recordLength; }
    // Record n's data length in bytes: 0 when deleted, -1 on failure.
    int32_t GetRecordLength(int32_t n);
    // Byte position of record n (its 8-byte header for variable-length
    // records); n < 0 gives the data start; -1 on failure.
    int32_t GetFilePosition(int32_t n);
    // Index entry fields of record n in bytes (the length may be kDeletedMarker).
    bool GetRecordPositionFromIndex(int32_t n, int32_t* position);
    bool GetRecordLengthFromIndex(int32_t n, int32_t* length);
    bool ReadIndex(int32_t n, IndexRec& entry);
    bool WriteIndex(int32_t n, IndexRec entry);

    // Reads the data file's header from disk (another process may have changed
    // it) into the object and `header`.
    bool ReadHeader(HeaderRec& header);
    // Takes `header`, sets its file length from each file's length, and writes
    // it to the data file and the index file.
    bool WriteHeader(HeaderRec header);
    const HeaderRec& GetHeader() const { return header_; }
    // Copies up to 72 bytes of the user header from memory.
    bool ReadUserHeader(unsigned char* buffer, int32_t length) const;
    // Stores up to 72 bytes as the user header and rewrites both headers.
    bool WriteUserHeader(const unsigned char* data, int32_t length);

    // For a memory-mapped file: *out points at record n's data in the mapping
    // and *length is its length in bytes. False when not mapped or deleted.
    bool GetMemory(int32_t n, void** out, int32_t* length);
    // Record n's data: in the mapping, or read into a buffer the object owns
    // (valid until the next call). Null for a deleted record or a failure.
    unsigned char* GetRecordBuffer(int32_t n);
    // The same, but a record is taken only when ReadRecord would take it:
    // the record's own header must call it live too, not just the index.
    // *length is its length in bytes.
    const unsigned char* ViewRecord(int32_t n, int32_t* length);
    bool IsMemoryMapped() const;

    // The sharing flag given to File::Open at the next Open.
    bool SetSharing(bool share);
    // Rewrites the file without its deleted records, renumbering the rest.
    bool CompactFile();
    // Moves the data file (and the index file when there is one) to newPath.
    bool RenameFile(const wchar_t* newPath);
    // Copies the data file (and the index file when there is one) to newPath.
    bool CopyFileW(const wchar_t* newPath) const;
    // Closes and deletes the data file and its index file.
    bool DeleteFileW();

    const wchar_t* GetName() const { return path_.c_str(); }
    int32_t GetUserType() const { return header_.userType; }
    FileType GetFileType() const { return type_; }
    bool IsVariableLength() const { return header_.recordLength <= 0; }
    bool HasIndexFile() const { return index_ != nullptr; }
    bool IsReadOnly() const { return readOnly_; }
    int32_t GetLastError() const { return lastError_; }

    // The index file's path: "name.adf" (any case) turns its character before
    // ".adf" into 'x', any other path its last character.
    static std::wstring IndexPath(const std::wstring& dataPath);

private:
    int32_t DataStart() const;
    int32_t AreaLength() const;
    int32_t ResolveNumber(int32_t n) const;
    bool CheckRecordNumber(int32_t n);
    bool Fail(int32_t error);
    bool FailFromFile(const File& file);
    bool LocateRecord(int32_t n, int32_t& position, int32_t& length);
    unsigned char* DataBytesAt(int32_t position, int32_t length);
    bool WriteVariableRecord(int32_t n, const unsigned char* data, int32_t length);
    bool WriteFixedRecord(int32_t n, const unsigned char* data, int32_t length);
    bool MarkDeletedAt(int32_t position);
    bool WriteInt(File& file, int32_t position, int32_t value);
    bool WriteHeaderIfChanged();
    bool CopyLiveRecordsTo(VFile& copy);
    bool CopyOver(VFile& copy);
    void CloseFiles();
    void Reset();

    std::wstring path_;
    std::unique_ptr<File> data_;
    std::unique_ptr<File> index_;
    HeaderRec header_;
    FileType type_ = kBigEndian;
    bool readOnly_ = true;
    bool temporary_ = false;
    bool share_ = false;
    bool dirty_ = false;
    bool hasDeletions_ = false;
    bool currentDeleted_ = false;
    int32_t count_ = 0;
    int32_t current_ = -1;
    // Lengths in bytes of what has been written, which the File buffers may
    // not have handed to the system yet.
    int64_t dataEnd_ = 0;
    int64_t indexEnd_ = 0;
    int32_t lastError_ = File::kNoError;
    // The entry of the last record looked up, so that asking whether a record
    // is deleted, its length and its bytes reads the index once.
    int32_t cachedEntryNumber_ = -1;
    IndexRec cachedEntry_;
    std::vector<unsigned char> buffer_;
};

}  // namespace quillet
