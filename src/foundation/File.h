#pragma once

// File: the one class through which every file of the library is read and
// written. An object is bound to one path for its life and holds at most one
// open descriptor on it.
//
// Reads and writes go through an internal buffer, so that sequential small
// reads and writes cost no system call each; a write is reported as done when
// it is buffered, and the buffer reaches the disk at the next seek away from
// it, read, Flush, SetLength or Close, each of which reports a failure of that
// write. A read-only open may map the file into memory; GetMemory then hands
// out pointers into the mapping instead of copying.
//
// Sharing is real: a writable open without sharing takes an exclusive lock on
// the whole file (an open file description lock), every other open takes a
// shared lock. The loser of a conflict fails at once with kSharingViolation.
// Locks go with Close.
//
// An open that lets others write meanwhile (shareB) is never mapped and
// forgets its read buffer at every seek, so that what others wrote is read
// after a seek. While this process maps a file, SetLength refuses to cut it
// below the mapping (kSharingViolation), as reading a cut mapping would fault.
//
// Another program may still cut a mapped file (one that takes no lock, such
// as `truncate`). Reading the lost part of a mapping then does not kill the
// process (see MappingGuard): the pages read as zeros, and once a read has
// touched one, the File knows its mapping was cut. From then on it is no
// longer mapped (IsMapped is false, GetMemory fails with kReadFailed) and
// Read reads through the descriptor, so that a read past the new end is
// short (kReadFailed); a Read whose copy from the mapping met the cut is
// read again that way. GetMemory touches every page of what it hands out
// first, so it fails rather than hand out lost bytes; memory handed out
// before a cut reads as zeros where the file was cut.
//
// Nothing here throws. Every failure is a result (0, false or a short count)
// plus GetLastError().

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/Export.h"
#include "foundation/HandleMapping.h"

namespace quillet {

class QUILLET_EXPORT File {
public:
    // The last error of a File: 0 after success, else one of these kinds.
    enum Error : int32_t {
        kNoError = 0,
        kGeneralFailure = 1,     // any failure of the system not named below
        kAccessDenied = 2,       // permission refused, or writing a read-only open
        kNotFound = 3,           // no such file or directory
        kSharingViolation = 4,   // another open holds a conflicting lock
        kReadFailed = 5,         // a read came back short: end of file or an I/O error
        kSeekFailed = 6,         // negative or unrepresentable position
        kWriteFailed = 7,        // a write (or the flush of buffered writes) failed
        kNotOpen = 8,            // the operation needs an open file, or got a bad argument
        kDiskFull = 9,           // no space left on the device
        kTooManyOpenFiles = 10,  // the process or system ran out of descriptors or memory
    };

    // The move methods of Seek and SeekEx.
    enum MoveMethod : int32_t { kBegin = 0, kCurrent = 1, kEnd = 2 };

    explicit File(const wchar_t* path);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Opens the existing file. readOnly: open for reading only. shareA and
    // shareB: whether other opens may read and write the file meanwhile; a
    // writable open with both 0 is exclusive. `second` and `fifth` are kept
    // for the callers' argument lists and have no effect. Nonzero on success.
    int Open(int readOnly, int second, int shareA, int shareB, int fifth);
    // Creates the file (replacing an existing one), open for reading and
    // writing, exclusive. The two arguments are kept for the callers' argument
    // lists. Nonzero on success.
    int Create(int first, int second);
    // Creates a new file with no name in the folder the path names, open for
    // reading and writing; it goes when closed, even by a killed process.
    // Nonzero on success.
    int CreateUnnamed();
    // Writes buffered data, releases the lock and the descriptor. Nonzero when
    // the buffered data reached the file (also when nothing was open).
    int Close();
    // Writes buffered data to the system and the system's caches to disk.
    int Flush();
    // Closes the file if it is open and deletes it. Nonzero on success.
    int Delete();

    int Seek(int32_t offset, MoveMethod method);
    int SeekEx(int64_t offset, MoveMethod method);
    int64_t GetPosition() const { return position_; }

    // Number of bytes moved; anything short of n is a failure for every caller.
    int Read(void* buffer, int n);
    int Write(const void* buffer, int n);

    // Other opens of this process may change the file from now on (it is
    // held across several of them): no mapping for writing, which would not
    // see their changes.
    void ShareWithinProcess() { writeMap_.Unmap(); }
    // A hint that the n bytes at `at` are about to be read and then written;
    // an open mapped for writing maps their pages for writing at once.
    void WillWrite(int64_t at, int32_t n) const {
        if (n > 0) writeMap_.PrepareWrite(at, static_cast<size_t>(n));
    }

    // For a mapped file: *out points at the n bytes at the position, which
    // advances; the result is n, or fewer at the end of the file. Pointers stay
    // valid until Close. On an unmapped file the result is 0.
    int32_t GetMemory(void** out, int32_t n);
    // Whether the file is mapped, and its mapping has not been found cut.
    bool IsMapped() const { return map_ != nullptr && !MapWasCut(); }

    // The length, counting buffered writes; -1 when not open or when the
    // length does not fit the 32-bit form.
    int32_t GetLength();
    int64_t GetLengthEx();
    // Truncates or extends the file; the position is not moved.
    int SetLength(int32_t length);
    int SetLengthEx(int64_t length);

    bool IsOpen() const { return fd_ >= 0; }
    bool IsReadOnly() const { return readOnly_; }
    int32_t GetLastError() const { return lastError_; }
    const std::wstring& GetPath() const { return path_; }

private:
    int OpenDescriptor(int flags, bool readOnly, bool exclusiveLock, bool othersMayWrite);
    // Takes an open descriptor as this object's, with empty buffers.
    void Adopt(int fd, bool readOnly, bool othersMayWrite);
    bool FlushWriteBuffer();
    // Writes through the descriptor, or the writable mapping when there is one.
    bool WriteThrough(const unsigned char* data, size_t n, int64_t at);
    // Read and Write of an open mapped for writing.
    int ReadWriteMapped(unsigned char* out, int n);
    int WriteWriteMapped(const unsigned char* data, int n);
    bool OverlapsWriteBuffer(int64_t at, int64_t n) const {
        return writeFill_ > 0 && at < writeStart_ + writeFill_ && at + n > writeStart_;
    }
    int32_t ReadBuffered(unsigned char* out, int32_t n);
    // Keeps the read buffer equal to the file after a write of [at, at + n).
    void PatchReadBuffer(int64_t at, const unsigned char* data, int32_t n);
    bool Succeed() {
        lastError_ = kNoError;
        return true;
    }
    bool Fail(Error error);
    // The kind of errno; `otherwise` for errors that have no kind of their own.
    bool FailFromErrno(int err, Error otherwise = kGeneralFailure);
    void MapIfWorthIt();
    void Unmap();
    // Whether a read of the mapping met a page that another program cut
    // from the file.
    bool MapWasCut() const;

    std::wstring path_;
    std::string nativePath_;
    int fd_ = -1;
    bool readOnly_ = false;
    bool othersMayWrite_ = false;
    int64_t position_ = 0;
    int32_t lastError_ = kNoError;

    // Read buffer: bytes [bufferStart_, bufferStart_ + bufferFill_) of the file.
    // Write buffer: pending bytes for [writeStart_, writeStart_ + writeFill_).
    // Both are allocated at first use and freed by Close.
    std::unique_ptr<unsigned char[]> buffer_;
    int64_t bufferStart_ = 0;
    int32_t bufferFill_ = 0;
    int32_t lastFill_ = 0;  // bytes the last fill asked for
    std::unique_ptr<unsigned char[]> writeBuffer_;
    int64_t writeStart_ = 0;
    int32_t writeFill_ = 0;

    // The mapping, and the identity of the file it maps.
    unsigned char* map_ = nullptr;
    int64_t mapLength_ = 0;
    uint64_t mapDevice_ = 0;
    uint64_t mapInode_ = 0;
    int mapSlot_ = -1;     // the mapping's MappingGuard slot
    bool mapCut_ = false;  // a Read found the mapping cut: reads go through the descriptor
    // The mapping of an exclusive writable open; unmapped otherwise.
    HandleMapping writeMap_;
};

// Whether a file (not a directory) exists at the path.
QUILLET_EXPORT bool FileExists(const wchar_t* path);

}  // namespace quillet
