#pragma once

// FreeList: the holes of a record data file, kept in a side file beside it so
// that a later write can fill a hole instead of growing the file. The side
// file is a cache: losing it loses only knowledge of holes, never data, and a
// header that cannot be read (or cannot be trusted) makes the list delete the
// file and start empty.
//
// Blocks fall into 42 size categories (lower bounds in c_categorySizes). Each
// category keeps a chain of 4096-byte pages of entries sorted by size; a
// header at the end of the file holds the head of every chain, each
// category's block count and the head of a chain of unused pages. All
// integers are little-endian.
//
//   page n, at n * 4096:
//     offset size                 field
//     0      4                    count of entries in use
//     4      4                    next page of the chain, -1 = last
//     8      entryLength * count  entries: 4-byte size, then the low
//                                 positionLength bytes of the position;
//                                 ascending by size; the rest is zero
//
//   header, at the file's length rounded down to a page boundary (344 bytes):
//     0      4    version, 1 (2 or more is refused)
//     4      4    first unused page, -1 = none
//     8      336  42 x { first page (-1 = empty chain), block count }
//
// The owner (VFileNG) adds a block when a record is deleted or moved and asks
// for one when it writes. Results are HRESULT codes; nothing throws.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/Export.h"
#include "foundation/File.h"
#include "foundation/FileSystemPath.h"
#include "foundation/HResult.h"
#include "foundation/String.h"

namespace quillet {

class QUILLET_EXPORT FreeList {
public:
    static constexpr int32_t kCategoryCount = 42;
    static constexpr int32_t kPageSize = 4096;
    static constexpr int32_t kPageHeaderLength = 8;
    static constexpr int32_t kDirectoryLength = kCategoryCount * 8;
    static constexpr int32_t kHeaderLength = 8 + kDirectoryLength;
    static constexpr int32_t kVersion = 1;
    // Blocks below the first category are not worth remembering.
    static constexpr int32_t kMinBlockSize = 8;
    // The file stays below 2 GiB, so page offsets fit 32 bits.
    static constexpr int32_t kMaxPages = 524288;
    static const std::array<int32_t, kCategoryCount> c_categorySizes;

    enum OpenOptions : int32_t { OpenOrCreate = 0, OpenExisting = 1 };

    struct FreeBlock {
        int32_t size = 0;
        int64_t position = 0;  // 0: no block
    };

    struct Category {
        int32_t firstPage = -1;
        int32_t blockCount = 0;
    };

    class Page;

    // The side file: its handle, its name, and the chain of unused pages.
    class QUILLET_EXPORT File {
    public:
        File(const wchar_t* dataFilePath, int32_t positionLength);
        HRESULT Open(OpenOptions options);
        void Close();
        HRESULT Delete();
        HRESULT Rename(const String& newDataPath);
        bool IsOpen() const { return handle_ != nullptr; }
        int64_t FileLength();
        // Whole pages before the header: the page numbers that may be read.
        int32_t PageCount();
        HRESULT SeekToPage(int32_t pageNumber);
        HRESULT ReadPage(int32_t pageNumber, unsigned char* buffer);
        HRESULT WritePage(int32_t pageNumber, const unsigned char* buffer);
        HRESULT SeekToHeader();
        HRESULT ReadHeader(int32_t& version, unsigned char* directory, int32_t length);
        HRESULT WriteHeader(int32_t version, const unsigned char* directory, int32_t length);
        HRESULT AllocPage(Page& page);
        HRESULT Flush();
        HRESULT FreePage(Page& page);

        const FileSystemPath& GetPath() const { return path_; }
        int32_t positionLength;
        int32_t firstFreePage = -1;
        // Whether the next Open lets other processes read and write the
        // list meanwhile (they do by default).
        bool shared = true;

    private:
        HRESULT SeekTo(int64_t offset);
        HRESULT Read(void* buffer, int32_t n);
        HRESULT Write(const void* buffer, int32_t n);

        std::unique_ptr<quillet::File> handle_;
        FileSystemPath path_;
    };

    // One page in memory.
    class QUILLET_EXPORT Page {
    public:
        explicit Page(File& file);
        void Create(int32_t pageNumber);
        HRESULT Read(int32_t pageNumber);
        HRESULT Write();
        void SetNext(int32_t next) {
            next_ = next;
            dirty_ = true;
        }
        // A later Write does nothing.
        void AbandonChanges() { valid_ = dirty_ = false; }
        void GetFreeBlock(int32_t index, FreeBlock& block) const;
        void PutFreeBlock(int32_t index, const FreeBlock& block);
        // Index of the smallest entry not smaller than `size` (an exact match
        // wins), or the count when every entry is smaller.
        int32_t FindBestFit(int32_t size) const;
        // The caller makes sure the page is not full.
        void Insert(const FreeBlock& block);
        // Takes out the smallest entry of at least `size` bytes.
        bool Extract(int32_t size, FreeBlock& block);
        // Byte order hooks between memory and file: nothing on this platform.
        void SwapNL() {}
        void SwapLN() {}

        int32_t PageNumber() const { return pageNumber_; }
        int32_t Next() const { return next_; }
        int32_t Count() const { return count_; }
        bool IsFull() const { return count_ >= capacity_; }

    private:
        unsigned char* Entry(int32_t index) {
            return buffer_ + kPageHeaderLength + index * entryLength_;
        }
        const unsigned char* Entry(int32_t index) const {
            return buffer_ + kPageHeaderLength + index * entryLength_;
        }

        File& file_;
        int32_t entryLength_;
        int32_t capacity_;
        int32_t pageNumber_ = -1;
        int32_t next_ = -1;
        bool valid_ = false;
        bool dirty_ = false;
        int32_t count_ = 0;
        unsigned char buffer_[kPageSize] = {};
    };

    FreeList(const wchar_t* dataFilePath, int32_t positionLength);
    ~FreeList();
    FreeList(const FreeList&) = delete;
    FreeList& operator=(const FreeList&) = delete;

    HRESULT Open(OpenOptions options);
    // Records a free block; blocks under 8 bytes are dropped on purpose.
    HRESULT AddBlock(int32_t size, int64_t position);
    // Takes a block of at least `size` bytes out of the list; `position` is 0
    // when none is at hand (still S_OK). A larger block's tail goes back in.
    HRESULT GetBlock(int32_t size, int64_t& position);
    // Re-reads the header, which another process may have changed.
    HRESULT RefreshHeader();
    HRESULT WriteDirectory();
    // Writes the directory and hands every change to the system, so that
    // other processes sharing the list see it.
    HRESULT Flush();
    HRESULT Close();
    HRESULT Delete();
    // Follows the data file to a new path.
    HRESULT Rename(const String& newDataPath);
    // The category of a size; -1 below the first.
    static int32_t FindCategory(int32_t size);
    void ResetCategories();

    bool IsOpen() const { return file_.IsOpen(); }
    const Category& GetCategory(int32_t index) const { return directory_[index]; }
    int32_t GetFirstFreePage() const { return file_.firstFreePage; }
    const FileSystemPath& GetPath() const { return file_.GetPath(); }
    // An owner that holds its data file alone may hold the list alone too,
    // which lets the list be mapped; taken at the next Open.
    void SetShared(bool shared) { file_.shared = shared; }
    // Every block of every chain, for checks of the data file against the
    // list. A chain that loops or leaves the file is E_FAIL.
    HRESULT ListBlocks(std::vector<FreeBlock>& blocks);

private:
    HRESULT ReadFirstPage(int32_t category, Page& page);
    // Tries the second page of a chain for a closer fit than `found`.
    void TrySecondPage(int32_t size, Page& first, FreeBlock& found, bool& gotOne);
    void UpdateHead(int32_t category, int32_t head);
    bool DirectoryIsPlausible();

    Category directory_[kCategoryCount];
    File file_;
};

}  // namespace quillet
