#include "recordfile/VFile.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "foundation/ByteOrder.h"
#include "foundation/FileReplace.h"
#include "foundation/RewriteRecovery.h"
#include "foundation/String.h"
#include "foundation/TemporaryFile.h"
#include "foundation/Win32Error.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

// A temporary file has no name, in its path's folder: it goes when closed,
// and with the process if that is killed.
bool CreateAt(std::unique_ptr<File>& file, const std::wstring& path, bool temporary) {
    if (!temporary) {
        file = std::make_unique<File>(path.c_str());
        return file->Create(1, 0);
    }
    size_t slash = path.rfind(L'/');
    std::wstring folder = slash == std::wstring::npos ? L"." : path.substr(0, slash + 1);
    file = std::make_unique<File>(folder.c_str());
    return file->CreateUnnamed();
}

constexpr int32_t kMaxWords = INT32_MAX / 2;
constexpr int32_t kCopyChunk = 4096;

// Integers of the headers, the index and the record headers are big-endian in
// a big-endian file and native otherwise.
int32_t DecodeInt(const unsigned char* p, VFile::FileType type) {
    return static_cast<int32_t>(type == VFile::kBigEndian ? DecodeFixed32BE(p) : DecodeFixed32LE(p));
}

void EncodeInt(unsigned char* p, int32_t value, VFile::FileType type) {
    auto bits = static_cast<uint32_t>(value);
    type == VFile::kBigEndian ? EncodeFixed32BE(p, bits) : EncodeFixed32LE(p, bits);
}

bool IsFileCode(int32_t code) { return code >= VFile::kCodeFixed && code <= VFile::kCodeVariableIndexed; }

bool SeekTo(File& file, int64_t position) { return file.SeekEx(position, File::kBegin) != 0; }

bool ReadAt(File& file, int64_t position, void* buffer, int32_t n) {
    return SeekTo(file, position) && file.Read(buffer, n) == n;
}

bool WriteAt(File& file, int64_t position, const void* buffer, int32_t n) {
    return SeekTo(file, position) && file.Write(buffer, n) == n;
}

bool S_ReadHeaderRecord(File* file, int32_t position, VFile::HeaderRec& header, VFile::FileType type) {
    unsigned char bytes[VFile::kHeaderLength];
    if (!ReadAt(*file, position, bytes, VFile::kHeaderLength)) return false;
    header.DecodeFrom(bytes, type);
    return true;
}

bool S_WriteHeaderRecord(File* file, int32_t position, const VFile::HeaderRec& header,
                         VFile::FileType type) {
    unsigned char bytes[VFile::kHeaderLength];
    header.EncodeTo(bytes, type);
    return WriteAt(*file, position, bytes, VFile::kHeaderLength);
}

// A file's length as its header states it, in bytes, but never beyond what
// the file holds: other writers leave bytes past the stated end.
int64_t S_DeclaredLength(const VFile::HeaderRec& header, int64_t actual) {
    int64_t declared = int64_t{header.fileLength} * 2;
    return std::clamp<int64_t>(declared, 0, actual & ~int64_t{1});
}

std::wstring S_IndexPath(const std::wstring& dataPath) {
    std::wstring path = dataPath;
    static const std::wstring kAdf = L".adf";
    bool adf = path.size() >= std::wstring(L"xxx.adf").size() &&
               CompareNoCase(std::wstring_view(path).substr(path.size() - 4), kAdf) == 0;
    if (adf) {
        path[path.size() - 5] = L'x';
    } else if (!path.empty()) {
        path.back() = L'x';
    }
    return path;
}

// The File error that stands for a failed Win32-named call.
int32_t FileErrorFromSystem(uint32_t error) {
    if (error == ERROR_FILE_NOT_FOUND) return File::kNotFound;
    if (error == ERROR_ACCESS_DENIED) return File::kAccessDenied;
    return File::kGeneralFailure;
}

}  // namespace

// ---- HeaderRec / IndexRec ----

void VFile::HeaderRec::EncodeTo(unsigned char out[kHeaderLength], FileType type) const {
    const int32_t ints[7] = {fileCode,    userType,    recordLength, reserved[0],
                             reserved[1], reserved[2], fileLength};
    for (int i = 0; i < 7; ++i) EncodeInt(out + 4 * i, ints[i], type);
    std::memcpy(out + 28, userHeader, kUserHeaderLength);
}

void VFile::HeaderRec::DecodeFrom(const unsigned char in[kHeaderLength], FileType type) {
    fileCode = DecodeInt(in, type);
    userType = DecodeInt(in + 4, type);
    recordLength = DecodeInt(in + 8, type);
    for (int i = 0; i < 3; ++i) reserved[i] = DecodeInt(in + 12 + 4 * i, type);
    fileLength = DecodeInt(in + 24, type);
    std::memcpy(userHeader, in + 28, kUserHeaderLength);
}

VFile::FileType VFile::HeaderRec::TypeOf(const unsigned char first[4]) {
    if (IsFileCode(DecodeInt(first, kBigEndian))) return kBigEndian;
    if (IsFileCode(DecodeInt(first, kLittleEndian))) return kLittleEndian;
    return kNotRecordFile;
}

void VFile::IndexRec::EncodeTo(unsigned char out[kIndexEntryLength], FileType type) const {
    EncodeInt(out, offset / 2, type);
    EncodeInt(out + 4, length == kDeletedMarker ? kDeletedMarker : length / 2, type);
}

bool VFile::IndexRec::DecodeFrom(const unsigned char in[kIndexEntryLength], FileType type) {
    int32_t offsetWords = DecodeInt(in, type);
    int32_t lengthWords = DecodeInt(in + 4, type);
    if (offsetWords < 0 || offsetWords > kMaxWords) return false;
    offset = offsetWords * 2;
    if (lengthWords == kDeletedMarker) {
        length = kDeletedMarker;
        return true;
    }
    if (lengthWords < -kMaxWords || lengthWords > kMaxWords) return false;
    length = lengthWords * 2;
    return true;
}

// ---- lifecycle ----

VFile::VFile(const wchar_t* path) : path_(path ? path : L"") {}

VFile::~VFile() { Close(); }

std::wstring VFile::IndexPath(const std::wstring& dataPath) { return S_IndexPath(dataPath); }

void VFile::Reset() {
    data_.reset();
    index_.reset();
    header_ = HeaderRec();
    type_ = kBigEndian;
    readOnly_ = true;
    temporary_ = false;
    dirty_ = false;
    hasDeletions_ = false;
    currentDeleted_ = false;
    count_ = 0;
    current_ = -1;
    dataEnd_ = 0;
    indexEnd_ = 0;
    cachedEntryNumber_ = -1;
    buffer_.clear();
    buffer_.shrink_to_fit();
}

bool VFile::Fail(int32_t error) {
    lastError_ = error;
    return false;
}

bool VFile::FailFromFile(const File& file) {
    return Fail(file.GetLastError() != File::kNoError ? file.GetLastError() : File::kGeneralFailure);
}

bool VFile::IsOpen() const { return data_ != nullptr; }

int32_t VFile::AreaLength() const { return type_ == kLittleEndian ? kLittleEndianAreaLength : 0; }

int32_t VFile::DataStart() const { return kHeaderLength + AreaLength(); }

bool VFile::Create(int32_t userType, Mode /*mode*/, bool temporary, AccessMethod accessMethod,
                   int32_t recordLength, FileType type) {
    Close();
    Reset();
    lastError_ = File::kNoError;
    type_ = type == kLittleEndian ? kLittleEndian : kBigEndian;
    temporary_ = temporary;
    readOnly_ = false;
    int32_t base = accessMethod == kIndexed ? kCodeFixedIndexed : kCodeFixed;
    header_.fileCode = base + (recordLength < 1 ? 1 : 0);
    header_.userType = userType;
    header_.recordLength = recordLength;

    if (!CreateAt(data_, path_, temporary)) {
        FailFromFile(*data_);
        Reset();
        return false;
    }
    dataEnd_ = DataStart();
    if (AreaLength() > 0) {
        std::vector<unsigned char> area(static_cast<size_t>(AreaLength()), 0);
        if (!WriteAt(*data_, kHeaderLength, area.data(), AreaLength())) {
            FailFromFile(*data_);
            CloseFiles();
            return false;
        }
    }
    if (header_.fileCode == kCodeVariableIndexed) {
        if (!CreateAt(index_, S_IndexPath(path_), temporary)) {
            FailFromFile(*index_);
            CloseFiles();
            return false;
        }
        indexEnd_ = kHeaderLength;
    }
    if (!WriteHeader(header_)) {
        CloseFiles();
        return false;
    }
    return true;
}

bool VFile::Open(Mode mode, AccessMethod accessMethod, bool shareA, bool shareB) {
    Close();
    Reset();
    lastError_ = File::kNoError;
    readOnly_ = mode == kReadOnly;
    share_ = shareA;
    // A rewrite that never finished is undone before anything is read.
    RecoveryOutcome recovery = RecoverInterruptedRewrite(path_).outcome;
    if (!MayOpenAfter(recovery)) {
        Fail(FileErrorOf(recovery));
        Reset();
        return false;
    }
    data_ = std::make_unique<File>(path_.c_str());
    if (!data_->Open(readOnly_ ? 1 : 0, 1, shareA ? 1 : 0, shareB ? 1 : 0, 0)) {
        FailFromFile(*data_);
        Reset();
        return false;
    }
    int64_t length = data_->GetLengthEx();
    unsigned char first[4];
    if (length < kHeaderLength || length > INT32_MAX || !ReadAt(*data_, 0, first, 4)) {
        Fail(File::kReadFailed);
        CloseFiles();
        return false;
    }
    type_ = HeaderRec::TypeOf(first);
    if (type_ == kNotRecordFile || !S_ReadHeaderRecord(data_.get(), 0, header_, type_)) {
        Fail(File::kReadFailed);
        CloseFiles();
        return false;
    }
    dataEnd_ = length;
    int64_t payload = std::max<int64_t>(0, S_DeclaredLength(header_, length) - DataStart());
    if (!IsVariableLength()) {
        count_ = static_cast<int32_t>(payload / (int64_t{header_.recordLength} * 2));
        return true;
    }
    if (accessMethod != kIndexed) {
        count_ = -1;
        return true;
    }
    index_ = std::make_unique<File>(S_IndexPath(path_).c_str());
    if (!index_->Open(readOnly_ ? 1 : 0, 1, shareA ? 1 : 0, shareB ? 1 : 0, 0)) {
        FailFromFile(*index_);
        CloseFiles();
        return false;
    }
    indexEnd_ = index_->GetLengthEx();
    if (indexEnd_ < kHeaderLength || indexEnd_ > INT32_MAX) {
        Fail(File::kReadFailed);
        CloseFiles();
        return false;
    }
    HeaderRec indexHeader;
    if (!S_ReadHeaderRecord(index_.get(), 0, indexHeader, type_)) {
        FailFromFile(*index_);
        CloseFiles();
        return false;
    }
    count_ = static_cast<int32_t>(
        std::max<int64_t>(0, S_DeclaredLength(indexHeader, indexEnd_) - kHeaderLength) / kIndexEntryLength);
    return true;
}

void VFile::CloseFiles() {
    int32_t error = lastError_;
    if (data_) data_->Close();
    if (index_) index_->Close();
    Reset();
    lastError_ = error;
}

bool VFile::Close() {
    if (!IsOpen()) return true;
    bool ok = true;
    if (!readOnly_) {
        ok = WriteHeaderIfChanged();
        if (hasDeletions_ && !temporary_) ok = CompactFile() && ok;
    }
    if (!data_->Close()) ok = FailFromFile(*data_);
    if (index_ && !index_->Close()) ok = FailFromFile(*index_);
    CloseFiles();
    return ok;
}

bool VFile::WriteHeaderIfChanged() {
    if (!dirty_ && header_.fileLength == static_cast<int32_t>(dataEnd_ / 2)) return true;
    return WriteHeader(header_);
}

bool VFile::Flush() {
    if (!IsOpen()) return Fail(File::kNotOpen);
    if (dirty_ && !readOnly_ && !WriteHeader(header_)) return false;
    if (!data_->Flush()) return FailFromFile(*data_);
    if (index_ && !index_->Flush()) return FailFromFile(*index_);
    return true;
}

bool VFile::CommitChanges() {
    if (!IsOpen()) return Fail(File::kNotOpen);
    if (!readOnly_ && !WriteHeader(header_)) return false;
    return Flush();
}

bool VFile::Rewind() {
    current_ = -1;
    currentDeleted_ = false;
    return IsOpen();
}

bool VFile::SetSharing(bool share) {
    share_ = share;
    if (!IsOpen()) return true;
    // The sharing flags are a property of the open descriptor: reopen both.
    int flag = share ? 1 : 0;
    int readOnly = readOnly_ ? 1 : 0;
    bool ok = data_->Close() && data_->Open(readOnly, 1, flag, flag, 0);
    if (ok && index_) ok = index_->Close() && index_->Open(readOnly, 1, flag, flag, 0);
    if (!ok) {
        FailFromFile(index_ && ok ? *index_ : *data_);
        CloseFiles();
    }
    return ok;
}

// ---- headers ----

bool VFile::ReadHeader(HeaderRec& header) {
    if (!IsOpen()) return Fail(File::kNotOpen);
    HeaderRec fresh;
    if (!S_ReadHeaderRecord(data_.get(), 0, fresh, type_)) return FailFromFile(*data_);
    header_ = fresh;
    header = fresh;
    return true;
}

bool VFile::WriteHeader(HeaderRec header) {
    if (!IsOpen() || readOnly_) return Fail(readOnly_ ? File::kAccessDenied : File::kNotOpen);
    header.fileLength = static_cast<int32_t>(dataEnd_ / 2);
    header_ = header;
    if (!S_WriteHeaderRecord(data_.get(), 0, header, type_)) return FailFromFile(*data_);
    if (index_) {
        header.fileLength = static_cast<int32_t>(indexEnd_ / 2);
        if (!S_WriteHeaderRecord(index_.get(), 0, header, type_)) return FailFromFile(*index_);
    }
    dirty_ = false;
    return true;
}

bool VFile::ReadUserHeader(unsigned char* buffer, int32_t length) const {
    if (!buffer || length < 0) return false;
    std::memcpy(buffer, header_.userHeader, static_cast<size_t>(std::min(length, kUserHeaderLength)));
    return true;
}

bool VFile::WriteUserHeader(const unsigned char* data, int32_t length) {
    if (!data || length < 0) return Fail(File::kNotOpen);
    HeaderRec header = header_;
    std::memcpy(header.userHeader, data, static_cast<size_t>(std::min(length, kUserHeaderLength)));
    return WriteHeader(header);
}

// ---- the index ----

int32_t VFile::ResolveNumber(int32_t n) const { return n == -1 ? current_ + 1 : n; }

bool VFile::CheckRecordNumber(int32_t n) {
    if (!IsOpen()) return Fail(File::kNotOpen);
    if (n < 0 || n >= count_) return Fail(File::kNotOpen);
    return true;
}

bool VFile::ReadIndex(int32_t n, IndexRec& entry) {
    n = ResolveNumber(n);
    if (!CheckRecordNumber(n) || !index_) return Fail(File::kNotOpen);
    if (n == cachedEntryNumber_) {
        entry = cachedEntry_;
        return true;
    }
    unsigned char bytes[kIndexEntryLength];
    if (!ReadAt(*index_, kHeaderLength + int64_t{kIndexEntryLength} * n, bytes, kIndexEntryLength)) {
        return FailFromFile(*index_);
    }
    if (!entry.DecodeFrom(bytes, type_)) return Fail(File::kReadFailed);
    cachedEntryNumber_ = n;
    cachedEntry_ = entry;
    return true;
}

bool VFile::WriteIndex(int32_t n, IndexRec entry) {
    n = ResolveNumber(n);
    if (!IsOpen() || !index_ || readOnly_ || n < 0 || n > count_) return Fail(File::kNotOpen);
    unsigned char bytes[kIndexEntryLength];
    entry.EncodeTo(bytes, type_);
    int64_t position = kHeaderLength + int64_t{kIndexEntryLength} * n;
    cachedEntryNumber_ = -1;
    if (!WriteAt(*index_, position, bytes, kIndexEntryLength)) return FailFromFile(*index_);
    indexEnd_ = std::max(indexEnd_, position + kIndexEntryLength);
    cachedEntryNumber_ = n;
    cachedEntry_ = entry;
    return true;
}

bool VFile::GetRecordPositionFromIndex(int32_t n, int32_t* position) {
    IndexRec entry;
    if (!position || !ReadIndex(n, entry)) return false;
    *position = entry.offset;
    return true;
}

bool VFile::GetRecordLengthFromIndex(int32_t n, int32_t* length) {
    IndexRec entry;
    if (!length || !ReadIndex(n, entry)) return false;
    *length = entry.length;
    return true;
}

int32_t VFile::GetFilePosition(int32_t n) {
    if (!IsOpen()) return -1;
    if (n < 0) return DataStart();
    if (!IsVariableLength()) {
        int64_t position = DataStart() + int64_t{header_.recordLength} * 2 * n;
        return position > INT32_MAX ? -1 : static_cast<int32_t>(position);
    }
    IndexRec entry;
    if (!ReadIndex(n, entry)) return -1;
    int64_t position = int64_t{entry.offset} + AreaLength();
    return position > INT32_MAX ? -1 : static_cast<int32_t>(position);
}

// Where record n's data lies and how long it is, checked against the data
// file's length. False for a deleted record (currentDeleted_ set) or a failure.
bool VFile::LocateRecord(int32_t n, int32_t& position, int32_t& length) {
    currentDeleted_ = false;
    if (!CheckRecordNumber(n)) return false;
    int64_t start;
    if (IsVariableLength()) {
        IndexRec entry;
        if (!ReadIndex(n, entry)) return false;
        if (entry.IsDeleted()) {
            currentDeleted_ = true;
            return false;
        }
        start = int64_t{entry.offset} + AreaLength() + kRecordHeaderLength;
        length = entry.length;
    } else {
        if (IsRecordDeleted(n)) {
            currentDeleted_ = true;
            return false;
        }
        start = GetFilePosition(n);
        length = header_.recordLength * 2;
    }
    if (start < DataStart() || start + length > dataEnd_) return Fail(File::kReadFailed);
    position = static_cast<int32_t>(start);
    return true;
}

// ---- records ----

bool VFile::ReadRecord(int32_t n, unsigned char* buffer, int32_t length) {
    currentDeleted_ = false;
    if (!CheckRecordNumber(n) || length < 0 || (!buffer && length > 0)) return Fail(File::kNotOpen);
    int32_t position = GetFilePosition(n);
    if (position < 0) return Fail(File::kReadFailed);
    current_ = n;
    int64_t dataPosition = position;
    unsigned char head[kRecordHeaderLength];
    if (IsVariableLength()) {
        if (!ReadAt(*data_, position, head, kRecordHeaderLength)) return FailFromFile(*data_);
        if (DecodeInt(head + 4, type_) <= 0) {
            currentDeleted_ = true;
            return false;
        }
        dataPosition += kRecordHeaderLength;
    } else {
        if (!ReadAt(*data_, position, head, 4)) return FailFromFile(*data_);
        if (DecodeInt(head, type_) == kDeletedMarker) {
            currentDeleted_ = true;
            return false;
        }
    }
    if (dataPosition + length > dataEnd_) return Fail(File::kReadFailed);
    if (!ReadAt(*data_, dataPosition, buffer, length)) return FailFromFile(*data_);
    return true;
}

bool VFile::WriteInt(File& file, int32_t position, int32_t value) {
    unsigned char bytes[4];
    EncodeInt(bytes, value, type_);
    if (!WriteAt(file, position, bytes, 4)) return FailFromFile(file);
    return true;
}

bool VFile::MarkDeletedAt(int32_t position) {
    hasDeletions_ = true;
    return WriteInt(*data_, position, kDeletedMarker);
}

bool VFile::WriteRecord(int32_t n, const unsigned char* data, int32_t length) {
    if (!IsOpen() || readOnly_) return Fail(readOnly_ ? File::kAccessDenied : File::kNotOpen);
    n = ResolveNumber(n);
    if (n < 0 || n > count_ || length < 0 || (!data && length > 0)) return Fail(File::kNotOpen);
    bool ok = IsVariableLength() ? WriteVariableRecord(n, data, length)
                                 : WriteFixedRecord(n, data, length);
    if (!ok) return false;
    if (n == count_) ++count_;
    current_ = n;
    currentDeleted_ = false;
    dirty_ = true;
    return true;
}

bool VFile::WriteVariableRecord(int32_t n, const unsigned char* data, int32_t length) {
    if (length > kMaxWords * 2 - 1) return Fail(File::kNotOpen);
    int32_t words = static_cast<int32_t>((int64_t{length} + 1) / 2);
    int32_t padded = words * 2;
    int64_t position = -1;
    if (n < count_) {
        if (!index_) return Fail(File::kNotOpen);  // no index: records can only be appended
        IndexRec old;
        if (!ReadIndex(n, old)) return false;
        int64_t oldPosition = int64_t{old.offset} + AreaLength();
        if (!old.IsDeleted() && old.length == padded) {
            position = oldPosition;
        } else if (!old.IsDeleted() && !MarkDeletedAt(static_cast<int32_t>(oldPosition + 4))) {
            return false;
        }
    }
    bool append = position < 0;
    if (append) position = dataEnd_;
    if (position + kRecordHeaderLength + padded > INT32_MAX) return Fail(File::kDiskFull);

    unsigned char head[kRecordHeaderLength];
    EncodeInt(head, n + 1, type_);
    EncodeInt(head + 4, words, type_);
    if (!WriteAt(*data_, position, head, kRecordHeaderLength) ||
        data_->Write(data, length) != length) {
        return FailFromFile(*data_);
    }
    if (padded != length) {
        const unsigned char zero = 0;
        if (data_->Write(&zero, 1) != 1) return FailFromFile(*data_);
    }
    if (append) dataEnd_ = position + kRecordHeaderLength + padded;
    if (!index_) return true;
    IndexRec entry;
    entry.offset = static_cast<int32_t>(position - AreaLength());
    entry.length = padded;
    return WriteIndex(n, entry);
}

bool VFile::WriteFixedRecord(int32_t n, const unsigned char* data, int32_t length) {
    int32_t recordBytes = header_.recordLength * 2;
    if (header_.recordLength > kMaxWords || length > recordBytes) return Fail(File::kNotOpen);
    int64_t position = DataStart() + int64_t{recordBytes} * n;
    if (position + recordBytes > INT32_MAX) return Fail(File::kDiskFull);
    if (!WriteAt(*data_, position, data, length)) return FailFromFile(*data_);
    if (length < recordBytes) {
        std::vector<unsigned char> zeros(static_cast<size_t>(recordBytes - length), 0);
        int32_t rest = recordBytes - length;
        if (data_->Write(zeros.data(), rest) != rest) return FailFromFile(*data_);
    }
    dataEnd_ = std::max(dataEnd_, position + recordBytes);
    return true;
}

int32_t VFile::WriteNextRecord(const unsigned char* data, int32_t length) {
    if (count_ < 0) {
        Fail(File::kNotOpen);
        return -1;
    }
    int32_t n = count_;
    return WriteRecord(n, data, length) ? n : -1;
}

bool VFile::DeleteRecord(int32_t n) {
    if (!CheckRecordNumber(n)) return false;
    if (readOnly_) return Fail(File::kAccessDenied);
    int32_t position = GetFilePosition(n);
    if (position < 0) return Fail(File::kReadFailed);
    if (!IsVariableLength()) return MarkDeletedAt(position);
    IndexRec entry;
    if (!ReadIndex(n, entry)) return false;
    if (!MarkDeletedAt(position + 4)) return false;
    entry.length = kDeletedMarker;
    return WriteIndex(n, entry);
}

bool VFile::IsRecordDeleted(int32_t n) {
    if (!CheckRecordNumber(n)) return false;
    if (IsVariableLength()) {
        IndexRec entry;
        return ReadIndex(n, entry) && entry.IsDeleted();
    }
    unsigned char first[4];
    int32_t position = GetFilePosition(n);
    return position >= 0 && ReadAt(*data_, position, first, 4) &&
           DecodeInt(first, type_) == kDeletedMarker;
}

int32_t VFile::GetRecordLength(int32_t n) {
    int32_t position = 0;
    int32_t length = 0;
    if (LocateRecord(n, position, length)) return length;
    return currentDeleted_ ? 0 : -1;
}

bool VFile::IsMemoryMapped() const { return data_ && data_->IsMapped(); }

bool VFile::GetMemory(int32_t n, void** out, int32_t* length) {
    int32_t position = 0;
    int32_t bytes = 0;
    if (!out || !length || !IsMemoryMapped() || !LocateRecord(n, position, bytes)) return false;
    if (!SeekTo(*data_, position) || data_->GetMemory(out, bytes) != bytes) {
        return FailFromFile(*data_);
    }
    *length = bytes;
    current_ = n;
    return true;
}

// `length` bytes of the data file at `position`: in the mapping when there is
// one, else read into the object's buffer. Null on a failure.
unsigned char* VFile::DataBytesAt(int32_t position, int32_t length) {
    if (IsMemoryMapped()) {
        void* memory = nullptr;
        if (!SeekTo(*data_, position) || data_->GetMemory(&memory, length) != length) {
            FailFromFile(*data_);
            return nullptr;
        }
        return static_cast<unsigned char*>(memory);
    }
    // Callers checked the length against the file's size, so it may size the buffer.
    if (buffer_.size() < static_cast<size_t>(length)) buffer_.resize(static_cast<size_t>(length));
    if (!ReadAt(*data_, position, buffer_.data(), length)) {
        FailFromFile(*data_);
        return nullptr;
    }
    return buffer_.data();
}

unsigned char* VFile::GetRecordBuffer(int32_t n) {
    int32_t position = 0;
    int32_t length = 0;
    if (!LocateRecord(n, position, length)) return nullptr;
    unsigned char* bytes = DataBytesAt(position, length);
    if (bytes) current_ = n;
    return bytes;
}

const unsigned char* VFile::ViewRecord(int32_t n, int32_t* length) {
    int32_t position = 0;
    if (!length || !LocateRecord(n, position, *length)) return nullptr;
    // A fixed-length record's deletion mark was read by LocateRecord; a
    // variable-length record's header sits just before its data.
    int32_t head = IsVariableLength() ? kRecordHeaderLength : 0;
    const unsigned char* bytes = DataBytesAt(position - head, *length + head);
    if (!bytes) return nullptr;
    current_ = n;
    if (head > 0 && DecodeInt(bytes + 4, type_) <= 0) {
        currentDeleted_ = true;
        return nullptr;
    }
    return bytes + head;
}

// ---- whole-file operations ----

bool VFile::CopyLiveRecordsTo(VFile& copy) {
    std::vector<unsigned char> buffer(kCopyChunk);
    for (int32_t n = 0; n < count_; ++n) {
        int32_t length = GetRecordLength(n);
        if (length == 0 && currentDeleted_) continue;
        if (length < 0) return false;
        if (static_cast<size_t>(length) > buffer.size()) buffer.resize(static_cast<size_t>(length) + kCopyChunk);
        if (!ReadRecord(n, buffer.data(), length)) {
            if (currentDeleted_) continue;
            return false;
        }
        if (copy.WriteNextRecord(buffer.data(), length) < 0) return Fail(copy.GetLastError());
    }
    return true;
}

// The data file and its index are replaced as a pair: if either copy fails,
// both get their old bytes back.
bool VFile::CopyOver(VFile& copy) {
    bool ok = index_ && copy.index_
                  ? ReplaceContents({{*copy.data_, *data_}, {*copy.index_, *index_}}, kCopyChunk)
                  : ReplaceContents({{*copy.data_, *data_}}, kCopyChunk);
    if (ok) return true;
    if (data_->GetLastError() != File::kNoError || !index_) return FailFromFile(*data_);
    return FailFromFile(*index_);
}

bool VFile::CompactFile() {
    if (!IsOpen() || readOnly_) return Fail(readOnly_ ? File::kAccessDenied : File::kNotOpen);
    if (IsVariableLength() && !index_) return Fail(File::kNotOpen);
    std::wstring folder = TemporaryFile::Folder();
    if (folder.empty()) return Fail(File::kGeneralFailure);
    // The copy is a new file of indexed access in the default byte order, and
    // it is what replaces this one: a little-endian file, or one of file code
    // 9991 or 9992, comes out big-endian with code 9993 or 9994. Only the
    // user type, the record length and the user header carry over.
    VFile copy((folder + L"compaction").c_str());
    if (!copy.Create(header_.userType, kReadWrite, true, kIndexed, header_.recordLength)) {
        return Fail(copy.GetLastError());
    }
    bool ok =
        CopyLiveRecordsTo(copy) && copy.WriteUserHeader(header_.userHeader, kUserHeaderLength);
    if (!ok && copy.GetLastError() != File::kNoError) lastError_ = copy.GetLastError();
    ok = ok && CopyOver(copy);
    if (ok) {
        type_ = copy.type_;
        count_ = copy.count_;
        dataEnd_ = copy.dataEnd_;
        indexEnd_ = copy.indexEnd_;
        header_ = copy.header_;
        hasDeletions_ = false;
        dirty_ = false;
    }
    cachedEntryNumber_ = -1;
    current_ = -1;
    copy.Close();
    return ok;
}

bool VFile::RenameFile(const wchar_t* newPath) {
    if (!newPath) return Fail(File::kNotOpen);
    std::wstring oldIndex = S_IndexPath(path_);
    std::wstring newIndex = S_IndexPath(newPath);
    if (!MoveFileW(path_.c_str(), newPath)) return Fail(FileErrorFromSystem(quillet::GetLastError()));
    if (FileExists(oldIndex.c_str()) && !MoveFileW(oldIndex.c_str(), newIndex.c_str())) {
        int32_t error = FileErrorFromSystem(quillet::GetLastError());
        MoveFileW(newPath, path_.c_str());
        return Fail(error);
    }
    path_ = newPath;
    return true;
}

bool VFile::CopyFileW(const wchar_t* newPath) const {
    if (!newPath) return false;
    // What is buffered must reach the file before the system copies it.
    if (data_ && !readOnly_ && !data_->Flush()) return false;
    if (index_ && !readOnly_ && !index_->Flush()) return false;
    if (!quillet::CopyFileW(path_.c_str(), newPath, 0)) return false;
    std::wstring indexPath = S_IndexPath(path_);
    if (!FileExists(indexPath.c_str())) return true;
    return quillet::CopyFileW(indexPath.c_str(), S_IndexPath(newPath).c_str(), 0) != 0;
}

bool VFile::DeleteFileW() {
    Close();
    if (!quillet::DeleteFileW(path_.c_str())) return Fail(FileErrorFromSystem(quillet::GetLastError()));
    std::wstring indexPath = S_IndexPath(path_);
    if (FileExists(indexPath.c_str()) && !quillet::DeleteFileW(indexPath.c_str())) {
        return Fail(FileErrorFromSystem(quillet::GetLastError()));
    }
    return true;
}

}  // namespace quillet
