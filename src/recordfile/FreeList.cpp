#include "recordfile/FreeList.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <set>

#include "foundation/ByteOrder.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr std::array<int32_t, FreeList::kCategoryCount> S_CategorySizes() {
    std::array<int32_t, FreeList::kCategoryCount> sizes{};
    sizes[0] = 8;
    sizes[1] = 16;
    for (int i = 2; i < FreeList::kCategoryCount - 1; ++i) sizes[i] = sizes[i - 1] + sizes[i - 2];
    sizes[FreeList::kCategoryCount - 1] = INT32_MAX;
    return sizes;
}

static_assert(S_CategorySizes()[40] == 2143314368);

// The failure of a system call: its Win32 error folded in, or E_FAIL when the
// system left none.
HRESULT S_SystemFailure() {
    uint32_t error = GetLastError();
    return error == 0 ? E_FAIL : HRESULT_FROM_WIN32(error);
}

FileSystemPath S_ListPath(const wchar_t* dataFilePath) {
    FileSystemPath path(dataFilePath);
    path.SetExtension(L"freelist");
    return path;
}

// Entry `index` of the category table, read one past its end as the largest size.
int32_t S_CategoryBound(int32_t index) {
    return index < FreeList::kCategoryCount ? FreeList::c_categorySizes[static_cast<size_t>(index)]
                                            : INT32_MAX;
}

}  // namespace

const std::array<int32_t, FreeList::kCategoryCount> FreeList::c_categorySizes = S_CategorySizes();

// ---- File ----

FreeList::File::File(const wchar_t* dataFilePath, int32_t positionLength)
    : positionLength(positionLength), path_(S_ListPath(dataFilePath)) {}

HRESULT FreeList::File::Open(OpenOptions options) {
    if (IsOpen()) return S_OK;
    auto handle = std::make_unique<quillet::File>(path_.c_str());
    bool exists = FileExists(path_.c_str());
    if (!exists && options == OpenExisting) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    // A new file is made and closed first, so that the open that stays holds
    // the shared lock that lets other processes use the list too.
    if (!exists && (!handle->Create(1, 0) || !handle->Close())) return S_SystemFailure();
    int share = shared ? 1 : 0;
    if (!handle->Open(0, 1, share, share, 0)) return S_SystemFailure();
    handle_ = std::move(handle);
    return S_OK;
}

void FreeList::File::Close() {
    if (handle_) handle_->Close();
    handle_.reset();
    firstFreePage = -1;
}

HRESULT FreeList::File::Delete() {
    Close();
    if (!FileExists(path_.c_str())) return S_OK;
    return DeleteFileW(path_.c_str()) ? S_OK : S_SystemFailure();
}

HRESULT FreeList::File::Rename(const String& newDataPath) {
    bool wasOpen = IsOpen();
    Close();
    FileSystemPath old = path_;
    path_ = S_ListPath(newDataPath.c_str());
    HRESULT hr = S_OK;
    if (FileExists(old.c_str()) && !MoveFileW(old.c_str(), path_.c_str())) {
        hr = S_SystemFailure();
        path_ = old;
    }
    if (wasOpen) {
        HRESULT reopened = Open(OpenExisting);
        if (SUCCEEDED(hr)) hr = reopened;
    }
    return hr;
}

int64_t FreeList::File::FileLength() {
    return handle_ ? handle_->GetLengthEx() : -1;
}

int32_t FreeList::File::PageCount() {
    int64_t length = FileLength();
    // Pages stay below 2 GiB of file, so their numbers fit 19 bits.
    return length < 0 ? 0 : static_cast<int32_t>(std::min<int64_t>(length, INT32_MAX) / kPageSize);
}

HRESULT FreeList::File::SeekTo(int64_t offset) {
    if (!handle_) return E_UNEXPECTED;
    return handle_->SeekEx(offset, quillet::File::kBegin) ? S_OK : S_SystemFailure();
}

HRESULT FreeList::File::Read(void* buffer, int32_t n) {
    return handle_->Read(buffer, n) == n ? S_OK : E_FAIL;
}

HRESULT FreeList::File::Write(const void* buffer, int32_t n) {
    return handle_->Write(buffer, n) == n ? S_OK : S_SystemFailure();
}

HRESULT FreeList::File::Flush() {
    if (!handle_) return S_OK;
    return handle_->Flush() ? S_OK : S_SystemFailure();
}

HRESULT FreeList::File::SeekToPage(int32_t pageNumber) {
    return SeekTo(
        static_cast<int64_t>(static_cast<int32_t>(static_cast<uint32_t>(pageNumber) << 12)));
}

HRESULT FreeList::File::ReadPage(int32_t pageNumber, unsigned char* buffer) {
    if (pageNumber < 0 || pageNumber >= PageCount()) return E_FAIL;
    HRESULT hr = SeekToPage(pageNumber);
    return FAILED(hr) ? hr : Read(buffer, kPageSize);
}

HRESULT FreeList::File::WritePage(int32_t pageNumber, const unsigned char* buffer) {
    HRESULT hr = SeekToPage(pageNumber);
    return FAILED(hr) ? hr : Write(buffer, kPageSize);
}

HRESULT FreeList::File::SeekToHeader() {
    int64_t length = FileLength();
    if (length < 0) return S_SystemFailure();
    return SeekTo(length / kPageSize * kPageSize);
}

HRESULT FreeList::File::ReadHeader(int32_t& version, unsigned char* directory, int32_t length) {
    HRESULT hr = SeekToHeader();
    unsigned char head[8];
    if (SUCCEEDED(hr)) hr = Read(head, 8);
    if (SUCCEEDED(hr)) hr = Read(directory, length);
    if (FAILED(hr)) return hr;
    version = static_cast<int32_t>(DecodeFixed32LE(head));
    firstFreePage = static_cast<int32_t>(DecodeFixed32LE(head + 4));
    return S_OK;
}

HRESULT FreeList::File::WriteHeader(int32_t version, const unsigned char* directory,
                                    int32_t length) {
    unsigned char head[8];
    EncodeFixed32LE(head, static_cast<uint32_t>(version));
    EncodeFixed32LE(head + 4, static_cast<uint32_t>(firstFreePage));
    HRESULT hr = SeekToHeader();
    if (SUCCEEDED(hr)) hr = Write(head, 8);
    if (SUCCEEDED(hr)) hr = Write(directory, length);
    return hr;
}

HRESULT FreeList::File::AllocPage(Page& page) {
    int32_t number = firstFreePage;
    if (number < 0) {
        // The new page takes the header's place; the header follows it at
        // the next WriteDirectory.
        number = PageCount();
        if (number >= kMaxPages) return E_FAIL;
    } else {
        Page unused(*this);
        firstFreePage = SUCCEEDED(unused.Read(number)) ? unused.Next() : -1;
    }
    page.Create(number);
    return S_OK;
}

HRESULT FreeList::File::FreePage(Page& page) {
    page.SetNext(firstFreePage);
    HRESULT hr = page.Write();
    if (SUCCEEDED(hr)) firstFreePage = page.PageNumber();
    return hr;
}

// ---- Page ----

FreeList::Page::Page(File& file)
    : file_(file),
      entryLength_(file.positionLength + 4),
      capacity_((kPageSize - kPageHeaderLength) / (file.positionLength + 4)) {}

void FreeList::Page::Create(int32_t pageNumber) {
    pageNumber_ = pageNumber;
    next_ = -1;
    valid_ = true;
    dirty_ = false;
    count_ = 0;
    std::memset(buffer_, 0, sizeof buffer_);
}

HRESULT FreeList::Page::Read(int32_t pageNumber) {
    pageNumber_ = pageNumber;
    HRESULT hr = file_.ReadPage(pageNumber, buffer_);
    if (FAILED(hr)) return hr;
    SwapLN();
    count_ = static_cast<int32_t>(DecodeFixed32LE(buffer_));
    next_ = static_cast<int32_t>(DecodeFixed32LE(buffer_ + 4));
    // A count beyond the page would walk off its buffer.
    if (count_ < 0 || count_ > capacity_ || next_ < -1) {
        valid_ = false;
        return E_FAIL;
    }
    dirty_ = false;
    valid_ = true;
    return S_OK;
}

HRESULT FreeList::Page::Write() {
    if (!valid_ || !dirty_) return S_OK;
    EncodeFixed32LE(buffer_, static_cast<uint32_t>(count_));
    EncodeFixed32LE(buffer_ + 4, static_cast<uint32_t>(next_));
    SwapNL();
    HRESULT hr = file_.WritePage(pageNumber_, buffer_);
    SwapLN();
    if (SUCCEEDED(hr)) dirty_ = false;
    return hr;
}

void FreeList::Page::GetFreeBlock(int32_t index, FreeBlock& block) const {
    const unsigned char* entry = Entry(index);
    block.size = static_cast<int32_t>(DecodeFixed32LE(entry));
    uint64_t position = 0;
    std::memcpy(&position, entry + 4, static_cast<size_t>(entryLength_ - 4));
    block.position = static_cast<int64_t>(position);
}

void FreeList::Page::PutFreeBlock(int32_t index, const FreeBlock& block) {
    unsigned char* entry = Entry(index);
    EncodeFixed32LE(entry, static_cast<uint32_t>(block.size));
    auto position = static_cast<uint64_t>(block.position);
    std::memcpy(entry + 4, &position, static_cast<size_t>(entryLength_ - 4));
}

int32_t FreeList::Page::FindBestFit(int32_t size) const {
    if (count_ == 0) return 0;
    int32_t lo = 0;
    int32_t hi = count_ - 1;
    int32_t mid = 0;
    FreeBlock entry;
    for (;;) {
        mid = (lo + hi) / 2;
        GetFreeBlock(mid, entry);
        if (lo >= hi) break;
        if (entry.size == size) return mid;
        if (size < entry.size) {
            hi = mid - 1;
        } else {
            lo = mid + 1;
        }
    }
    return entry.size >= size ? mid : mid + 1;
}

void FreeList::Page::Insert(const FreeBlock& block) {
    int32_t at = FindBestFit(block.size);
    std::memmove(Entry(at + 1), Entry(at), static_cast<size_t>((count_ - at) * entryLength_));
    PutFreeBlock(at, block);
    ++count_;
    dirty_ = true;
}

bool FreeList::Page::Extract(int32_t size, FreeBlock& block) {
    int32_t at = FindBestFit(size);
    if (at >= count_) {
        block = FreeBlock{};
        return false;
    }
    GetFreeBlock(at, block);
    std::memmove(Entry(at), Entry(at + 1), static_cast<size_t>((count_ - at - 1) * entryLength_));
    std::memset(Entry(count_ - 1), 0, static_cast<size_t>(entryLength_));
    --count_;
    dirty_ = true;
    return true;
}

// ---- FreeList ----

FreeList::FreeList(const wchar_t* dataFilePath, int32_t positionLength)
    : file_(dataFilePath, positionLength) {}

FreeList::~FreeList() {
    Close();
}

void FreeList::ResetCategories() {
    for (Category& c : directory_) c = Category{};
}

int32_t FreeList::FindCategory(int32_t size) {
    auto above = std::upper_bound(c_categorySizes.begin(), c_categorySizes.end(), size);
    return static_cast<int32_t>(above - c_categorySizes.begin()) - 1;
}

HRESULT FreeList::Open(OpenOptions options) {
    if (IsOpen()) return S_OK;
    HRESULT hr = file_.Open(options);
    if (FAILED(hr)) return hr;
    if (file_.FileLength() == 0) return S_OK;
    hr = RefreshHeader();
    if (FAILED(hr)) {
        // Closed without writing: a list of a later version stays as it is.
        file_.Close();
        ResetCategories();
    }
    return hr;
}

bool FreeList::DirectoryIsPlausible() {
    int32_t pages = file_.PageCount();
    auto isPage = [pages](int32_t n) { return n >= -1 && n < pages; };
    if (!isPage(file_.firstFreePage)) return false;
    return std::all_of(std::begin(directory_), std::end(directory_),
                       [&](const Category& c) { return isPage(c.firstPage) && c.blockCount >= 0; });
}

HRESULT FreeList::RefreshHeader() {
    if (!IsOpen()) return S_OK;
    int32_t version = 0;
    unsigned char directory[kDirectoryLength];
    HRESULT hr = file_.ReadHeader(version, directory, kDirectoryLength);
    if (SUCCEEDED(hr)) {
        for (int32_t i = 0; i < kCategoryCount; ++i) {
            directory_[i].firstPage = static_cast<int32_t>(DecodeFixed32LE(directory + 8 * i));
            directory_[i].blockCount = static_cast<int32_t>(DecodeFixed32LE(directory + 8 * i + 4));
        }
        if (version >= 2) return E_FAIL;
        // Chains that point outside the file are as good as no header: the
        // list is a cache, so it starts again rather than trust them.
        if (!DirectoryIsPlausible()) hr = E_FAIL;
    }
    if (FAILED(hr)) {
        file_.Delete();
        ResetCategories();
    }
    return hr;
}

HRESULT FreeList::WriteDirectory() {
    unsigned char directory[kDirectoryLength];
    for (int32_t i = 0; i < kCategoryCount; ++i) {
        EncodeFixed32LE(directory + 8 * i, static_cast<uint32_t>(directory_[i].firstPage));
        EncodeFixed32LE(directory + 8 * i + 4, static_cast<uint32_t>(directory_[i].blockCount));
    }
    return file_.WriteHeader(kVersion, directory, kDirectoryLength);
}

HRESULT FreeList::Flush() {
    if (!IsOpen()) return S_OK;
    HRESULT hr = WriteDirectory();
    return FAILED(hr) ? hr : file_.Flush();
}

HRESULT FreeList::Close() {
    if (!IsOpen()) return S_OK;
    HRESULT hr = WriteDirectory();
    file_.Close();
    ResetCategories();
    return hr;
}

HRESULT FreeList::Delete() {
    Close();
    ResetCategories();
    return file_.Delete();
}

HRESULT FreeList::Rename(const String& newDataPath) {
    return file_.Rename(newDataPath);
}

void FreeList::UpdateHead(int32_t category, int32_t head) {
    if (directory_[category].firstPage == head) return;
    directory_[category].firstPage = head;
    WriteDirectory();
}

HRESULT FreeList::ReadFirstPage(int32_t category, Page& page) {
    int32_t first = directory_[category].firstPage;
    return first < 0 ? S_OK : page.Read(first);
}

HRESULT FreeList::AddBlock(int32_t size, int64_t position) {
    if (size < kMinBlockSize) return S_OK;
    HRESULT hr = Open(OpenOrCreate);
    if (FAILED(hr)) return hr;
    int32_t c = FindCategory(size);
    Page page(file_);
    hr = ReadFirstPage(c, page);
    if (FAILED(hr)) return hr;
    if (page.PageNumber() < 0 || page.IsFull()) {
        int32_t old = page.PageNumber();
        hr = file_.AllocPage(page);
        if (FAILED(hr)) return hr;
        page.SetNext(old);
    }
    page.Insert({size, position});
    hr = page.Write();
    if (FAILED(hr)) return hr;
    directory_[c].blockCount += 1;
    if (directory_[c].firstPage != page.PageNumber()) {
        directory_[c].firstPage = page.PageNumber();
        return WriteDirectory();
    }
    return S_OK;
}

void FreeList::TrySecondPage(int32_t size, Page& first, FreeBlock& found, bool& gotOne) {
    Page second(file_);
    FreeBlock other;
    if (FAILED(second.Read(first.Next())) || !second.Extract(size, other)) return;
    if (gotOne && other.size >= found.size) {
        second.AbandonChanges();
        return;
    }
    if (gotOne) second.Insert(found);
    HRESULT hr;
    if (second.Count() > 0) {
        hr = second.Write();
    } else {
        first.SetNext(second.Next());
        hr = file_.FreePage(second);
    }
    if (SUCCEEDED(hr)) {
        found = other;
        gotOne = true;
    }
}

HRESULT FreeList::GetBlock(int32_t size, int64_t& position) {
    position = 0;
    if (!IsOpen()) return S_OK;
    int32_t c = FindCategory(size);
    if (c < 0) return S_OK;
    Page page(file_);
    FreeBlock found;
    bool gotOne = false;
    if (SUCCEEDED(ReadFirstPage(c, page)) && page.PageNumber() >= 0) {
        gotOne = page.Extract(size, found);
        int32_t slack = (S_CategoryBound(c + 1) - S_CategoryBound(c)) / 16;
        bool loose = !gotOne || int64_t{found.size} > int64_t{size} + slack;
        if (page.Next() >= 0 && loose) TrySecondPage(size, page, found, gotOne);
    }
    if (!gotOne) {
        do {
            if (++c >= kCategoryCount) return S_OK;
        } while (directory_[c].firstPage == -1);
        if (FAILED(page.Read(directory_[c].firstPage)) || !page.Extract(size, found)) return S_OK;
    }
    int32_t head = page.PageNumber();
    if (page.Count() > 0) {
        page.Write();
    } else {
        head = page.Next();
        file_.FreePage(page);
    }
    directory_[c].blockCount -= 1;
    UpdateHead(c, head);
    position = found.position;
    if (found.size > size) AddBlock(found.size - size, found.position + size);
    return S_OK;
}

HRESULT FreeList::ListBlocks(std::vector<FreeBlock>& blocks) {
    blocks.clear();
    if (!IsOpen()) return S_OK;
    std::set<int32_t> seen;
    Page page(file_);
    for (const Category& category : directory_) {
        for (int32_t n = category.firstPage; n >= 0; n = page.Next()) {
            if (!seen.insert(n).second) return E_FAIL;
            HRESULT hr = page.Read(n);
            if (FAILED(hr)) return hr;
            FreeBlock block;
            for (int32_t i = 0; i < page.Count(); ++i) {
                page.GetFreeBlock(i, block);
                blocks.push_back(block);
            }
        }
    }
    return S_OK;
}

}  // namespace quillet
