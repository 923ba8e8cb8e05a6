// DBase: life cycle, header, code page choice and the record cursor.

#include "dbase/DBase.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "foundation/File.h"
#include "foundation/RewriteRecovery.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr int kMinScratch = 512;
// A .cpg file names its code page on its first line; longer text is no name.
constexpr int kCodePageNameBytes = 31;

}  // namespace

DBase::DBase() = default;

DBase::DBase(const String& path) : path_(path) {}

DBase::~DBase() { Close(); }

bool DBase::IsOpen() const { return file_ && file_->IsOpen(); }

bool DBase::Exists() const { return FileExists(path_); }

bool DBase::MapFileError(int32_t fileError) {
    switch (fileError) {
        case File::kGeneralFailure:
        case File::kNotFound:
        case File::kSharingViolation:
            status_ = fileError;
            break;
        case File::kAccessDenied:
            status_ = kStatusAccessDenied;
            break;
        case File::kReadFailed:
        case File::kSeekFailed:
            status_ = kStatusHeader;
            break;
        case File::kWriteFailed:
            status_ = kStatusWriteFailed;
            break;
        case File::kDiskFull:
            status_ = kStatusDiskFull;
            break;
        case File::kTooManyOpenFiles:
            status_ = kStatusTooManyFiles;
            break;
        default:
            status_ = kStatusFileFailure;
            break;
    }
    return false;
}

bool DBase::OpenFile(bool readOnly, bool share) {
    if (!file_) file_ = std::make_unique<File>(path_.c_str());
    // A rewrite that never finished is undone before anything is read.
    RecoveryOutcome recovery = RecoverInterruptedRewrite(path_.str()).outcome;
    if (!MayOpenAfter(recovery)) return MapFileError(FileErrorOf(recovery));
    if (file_->Open(readOnly ? 1 : 0, 1, share ? 1 : 0, 0, 0)) return true;
    return MapFileError(file_->GetLastError());
}

bool DBase::Open(bool readOnly, bool share, CodePage::qovaCodePageEnum defaultCodePage) {
    if (IsOpen()) Close();
    readOnly_ = readOnly;
    share_ = share;
    if (!OpenFile(readOnly, share)) return false;
    // A table that cannot be read is left with its file open and no fields;
    // the next Open or Close releases it.
    bool headerRead = ReadHeader();
    if (headerRead && !ChooseCodePageFromTable()) codePage_.SetCodePage(defaultCodePage);
    if (!headerRead || !ReadFieldDescriptors()) {
        header_ = HeaderRecord();
        fields_.clear();
        names_.RemoveAll();
        return false;
    }
    AllocateBuffers();
    RemoveUnnecessarySpaces(names_);
    FixDuplicatedFieldNames(names_);
    current_ = -1;
    cachedPosition_ = -1;
    status_ = kStatusOk;
    if (!MoveTo(0)) status_ = kStatusPastLastRecord;
    return true;
}

bool DBase::ReadHeader() {
    unsigned char disk[kDBaseHeaderSize];
    if (!file_ || !file_->Seek(0, File::kBegin) || file_->Read(disk, kDBaseHeaderSize) != kDBaseHeaderSize) {
        status_ = kStatusHeader;
        return false;
    }
    header_ = SwapHeaderLN(disk);
    return true;
}

// The header's language driver id names the code page; when it is 0, the
// .cpg file does. False when neither does.
bool DBase::ChooseCodePageFromTable() {
    if (header_.languageDriver != 0) {
        codePage_.SetCodePage(static_cast<unsigned char>(header_.languageDriver));
        return true;
    }
    String name;
    return ReadCodePageFile(name) && codePage_.SetCodePage(name);
}

bool DBase::ReadDescriptors(std::vector<FieldRecord>& records) {
    int count = header_.FieldCount();
    // The descriptors must be in the file before anything is sized by them.
    if (kDBaseHeaderSize + static_cast<int64_t>(count) * kDBaseFieldRecordSize > file_->GetLengthEx()) {
        return false;
    }
    records.resize(static_cast<size_t>(count));
    for (FieldRecord& record : records) {
        unsigned char disk[kDBaseFieldRecordSize];
        if (file_->Read(disk, kDBaseFieldRecordSize) != kDBaseFieldRecordSize) return false;
        record.DecodeFrom(disk);
    }
    return true;
}

bool DBase::ReadFieldDescriptors() {
    fields_.clear();
    names_.RemoveAll();
    std::vector<FieldRecord> records;
    if (!ReadDescriptors(records)) return false;
    for (const FieldRecord& record : records) AppendField(DecodeFieldName(record), record);
    // A record shorter than its fields would put field bytes outside the
    // record buffer; a negative count is no table either.
    int end = fields_.empty() ? 1 : fields_.back().offset + fields_.back().width;
    if (header_.recordLength < end || header_.numRecords < 0) {
        status_ = kStatusHeader;
        return false;
    }
    return true;
}

String DBase::DecodeFieldName(const FieldRecord& record) {
    char name[kDBaseFieldNameSlot + 1] = {};
    std::memcpy(name, record.name, kDBaseFieldNameSlot);
    wchar_t wide[kDBaseFieldNameSlot + 1] = {};
    codePage_.Source2Native(name, wide, kDBaseFieldNameSlot + 1);
    wide[kDBaseFieldNameSlot] = L'\0';
    return String(wide);
}

void DBase::AppendField(const String& name, const FieldRecord& record) {
    int offset = fields_.empty() ? 1 : fields_.back().offset + fields_.back().width;
    fields_.push_back({static_cast<int>(fields_.size()), record.type, record.width, record.decimals, offset});
    names_.Add(name);
}

void DBase::AllocateBuffers() {
    size_t recordSize = static_cast<size_t>(std::max<int>(header_.recordLength, 1)) + 1;
    size_t scratch = std::max<size_t>(kMinScratch, recordSize);
    record_.assign(recordSize, '\0');
    narrow_.assign(scratch, '\0');
    wide_.assign(scratch, L'\0');
    // Every code page keeps ASCII as it is, except the 7-bit Arabic ones,
    // where braces switch the script.
    uint32_t id = codePage_.GetCodePageId();
    asciiIsIdentity_ = id != 448 && id != 449;
}

void DBase::ReleaseTable() {
    if (file_) file_->Close();
    header_ = HeaderRecord();
    names_.RemoveAll();
    fields_.clear();
    record_.clear();
    record_.shrink_to_fit();
    narrow_.clear();
    narrow_.shrink_to_fit();
    wide_.clear();
    wide_.shrink_to_fit();
    headerChanged_ = recordChanged_ = recordAppended_ = hasDeletedRecords_ = false;
    current_ = -1;
    cachedPosition_ = -1;
}

bool DBase::Close() {
    if (!IsOpen()) {
        ReleaseTable();
        status_ = kStatusOk;
        return true;
    }
    int32_t failure = kStatusOk;
    if (!FlushDirtyRecord()) failure = kStatusWriteFailed;
    if (!WriteHeader()) failure = status_;
    if (hasDeletedRecords_ && !CompactFile()) failure = kStatusWriteFailed;
    if (!file_->Close() && failure == kStatusOk) failure = kStatusWriteFailed;
    ReleaseTable();
    status_ = failure;
    return failure == kStatusOk;
}

bool DBase::Create(CodePage::qovaCodePageEnum codePage) {
    if (IsOpen()) Close();
    codePage_.SetCodePage(codePage);
    File file(path_.c_str());
    if (!file.Create(1, 0)) return MapFileError(file.GetLastError());
    HeaderRecord header;
    header.version = 3;
    header.StampToday();
    header.headerLength = kDBaseHeaderSize + 1;
    header.recordLength = 1;
    header.languageDriver = codePage_.GetDBaseLDId();
    unsigned char bytes[kDBaseHeaderSize + 2];
    SwapHeaderNL(header, bytes);
    bytes[kDBaseHeaderSize] = kDBaseHeaderTerminator;
    bytes[kDBaseHeaderSize + 1] = kDBaseEndOfFile;
    bool written = file.Write(bytes, sizeof bytes) == static_cast<int>(sizeof bytes);
    written = file.Close() != 0 && written;
    if (written && header.languageDriver == 0) written = WriteCodePageFile();
    if (!written) {
        file.Delete();
        status_ = kStatusWriteFailed;
        return false;
    }
    status_ = kStatusOk;
    return true;
}

bool DBase::DeleteFileW() {
    if (IsOpen()) Close();
    ::quillet::DeleteFileW(path_.c_str());
    ::quillet::DeleteFileW(SideFilePath(L"cpg").c_str());
    return true;
}

bool DBase::SetFileMode(bool readOnly, bool share) {
    if (!IsOpen()) return false;
    // The buffered record belongs to the table, not to the old open.
    if (!FlushDirtyRecord()) {
        status_ = kStatusWriteFailed;
        return false;
    }
    if (!file_->Close()) {
        status_ = kStatusWriteFailed;
        return false;
    }
    cachedPosition_ = -1;
    return OpenFile(readOnly, share);
}

bool DBase::Flush() {
    if (!IsOpen()) return false;
    if (!FlushDirtyRecord()) {
        status_ = kStatusWriteFailed;
        return false;
    }
    // Another reader of the table must see the records and their count once
    // this returns, so the file's own buffer goes out too.
    if (!WriteHeader()) return false;
    if (!file_->Flush()) {
        status_ = kStatusWriteFailed;
        return false;
    }
    return true;
}

bool DBase::CommitChanges() {
    if (!Flush()) return false;
    if (hasDeletedRecords_) {
        if (!CompactFile()) {
            status_ = kStatusWriteFailed;
            return false;
        }
        hasDeletedRecords_ = false;
    }
    return true;
}

// --- Header -----------------------------------------------------------------

void DBase::UpdateHeaderTimeStamp() { header_.StampToday(); }

bool DBase::WriteHeader() {
    if (!headerChanged_) return true;
    headerChanged_ = false;
    UpdateHeaderTimeStamp();
    header_.languageDriver = codePage_.GetDBaseLDId();
    bool ok = header_.languageDriver != 0 || WriteCodePageFile();
    ok = ok && WriteHeaderTo(*file_);
    if (!ok) status_ = kStatusHeader;
    return ok;
}

bool DBase::WriteHeaderTo(File& file) {
    unsigned char disk[kDBaseHeaderSize];
    SwapHeaderNL(header_, disk);
    if (!file.Seek(0, File::kBegin) || file.Write(disk, kDBaseHeaderSize) != kDBaseHeaderSize) {
        return false;
    }
    for (int i = 0; i < GetNumFields(); ++i) {
        unsigned char descriptor[kDBaseFieldRecordSize];
        MakeFieldRecord(i).EncodeTo(descriptor);
        if (file.Write(descriptor, kDBaseFieldRecordSize) != kDBaseFieldRecordSize) return false;
    }
    return true;
}

DBase::FieldRecord DBase::MakeFieldRecord(int field) {
    const FieldEntry& entry = fields_[static_cast<size_t>(field)];
    FieldRecord record;
    EncodeFieldName(names_[field], record);
    record.type = entry.type;
    record.width = static_cast<uint8_t>(entry.width);
    record.decimals = static_cast<uint8_t>(entry.decimals);
    return record;
}

void DBase::EncodeFieldName(const String& name, FieldRecord& record) {
    // Names longer than the slot are cut by the conversion, which is bounded
    // by the slot's size and leaves no terminator when it fills it.
    char bytes[kDBaseFieldNameSlot + 1] = {};
    codePage_.Native2Source(name.c_str(), bytes, kDBaseFieldNameSlot);
    size_t length = strnlen(bytes, kDBaseFieldNameSlot);
    std::memset(record.name, 0, kDBaseFieldNameSlot);
    std::memcpy(record.name, bytes, length);
}

// --- The .cpg side file -----------------------------------------------------

String DBase::SideFilePath(const wchar_t* extension) const {
    FileSystemPath path(path_);
    path.SetExtension(extension);
    return path.GetPath();
}

bool DBase::WriteCodePageFile() {
    std::string text = codePage_.GetCodePageName().ToNarrow();
    std::FILE* out = std::fopen(NativePath(SideFilePath(L"cpg").c_str()).c_str(), "w");
    if (!out) return false;
    bool written = std::fwrite(text.data(), 1, text.size(), out) == text.size();
    return std::fclose(out) == 0 && written;
}

bool DBase::ReadCodePageFile(String& name) const {
    std::FILE* in = std::fopen(NativePath(SideFilePath(L"cpg").c_str()).c_str(), "r");
    if (!in) return false;
    char text[kCodePageNameBytes + 1] = {};
    bool read = std::fgets(text, sizeof text, in) != nullptr;
    std::fclose(in);
    if (!read) return false;
    text[std::strcspn(text, "\r\n")] = '\0';
    name = String(text);
    return true;
}

// --- Schema queries ---------------------------------------------------------

String DBase::GetFieldName(int field) const {
    return field >= 0 && field < GetNumFields() ? names_[field] : String();
}

char DBase::GetFieldType(int field) const {
    return field >= 0 && field < GetNumFields() ? fields_[static_cast<size_t>(field)].type : '\0';
}

int DBase::GetFieldWidth(int field) const {
    return field >= 0 && field < GetNumFields() ? fields_[static_cast<size_t>(field)].width : 0;
}

int DBase::GetFieldDecimals(int field) const {
    return field >= 0 && field < GetNumFields() ? fields_[static_cast<size_t>(field)].decimals : 0;
}

int DBase::GetFieldNumber(const String& name) const {
    String key = name.Left(kDBaseMaxFieldName);
    if (key.IsEmpty()) return -1;
    for (int i = 0; i < GetNumFields(); ++i) {
        if (!names_[i].IsEmpty() && CompareNoCase(key.view(), names_[i].view()) == 0) return i;
    }
    return -1;
}

bool DBase::SetCodePage(CodePage::qovaCodePageEnum kind) {
    bool changed = codePage_.SetCodePage(kind);
    uint32_t id = codePage_.GetCodePageId();
    asciiIsIdentity_ = id != 448 && id != 449;
    if (changed && IsOpen()) headerChanged_ = true;
    return changed;
}

bool DBase::IndexExists(int field, FileSystemPath& indexPath, bool& upToDate) const {
    upToDate = false;
    FileSystemPath table(path_);
    String name = String::Formatted(L"%ls.%ls.atx", table.GetBaseName().c_str(), GetFieldName(field).c_str());
    String directory = table.GetDirectory();
    indexPath = directory.IsEmpty() ? FileSystemPath(name) : FileSystemPath(directory + L"/" + name);
    if (!FileExists(indexPath) || !FileExists(path_)) return false;
    int64_t tableTime = 0, indexTime = 0;
    upToDate = GetFileModificationTime(path_, tableTime) && GetFileModificationTime(indexPath, indexTime) &&
               tableTime <= indexTime;
    return true;
}

// --- Cursor -----------------------------------------------------------------

void DBase::ResetCursor() {
    current_ = -1;
    cachedPosition_ = -1;
    recordChanged_ = recordAppended_ = false;
    MoveTo(0);
}

bool DBase::MoveTo(int32_t record) {
    if (!IsOpen() || record < 0 || record >= header_.numRecords) return false;
    if (!FlushDirtyRecord()) return false;
    current_ = record;
    cachedPosition_ = -1;
    return true;
}

bool DBase::SeekToCurrent() {
    if (current_ < 0 || !IsOpen()) return false;
    return header_.RecordPosition(current_) == cachedPosition_ || ReadCurrentRecord();
}

bool DBase::ReadCurrentRecord() {
    int64_t position = header_.RecordPosition(current_);
    int length = header_.recordLength;
    int read = file_->SeekEx(position, File::kBegin) ? file_->Read(record_.data(), length) : 0;
    if (read <= 0) {
        cachedPosition_ = -1;
        return false;
    }
    // The last record position of a file holds the end-of-file byte: it
    // reads as a live, blank record.
    if (read < length) std::memset(record_.data() + read, ' ', static_cast<size_t>(length - read));
    if (static_cast<unsigned char>(record_[0]) == kDBaseEndOfFile) record_[0] = ' ';
    cachedPosition_ = position;
    return true;
}

// Field access stays beside the record cache so that the cache check is
// inlined into every field check.
const DBase::FieldEntry* DBase::CheckFieldForRead(int field) {
    if (field < 0 || field >= GetNumFields()) {
        status_ = kStatusBadField;
        return nullptr;
    }
    if (!SeekToCurrent()) {
        status_ = current_ < 0 ? kStatusNoRecord : kStatusHeader;
        return nullptr;
    }
    status_ = kStatusOk;
    return &fields_[static_cast<size_t>(field)];
}

DBase::FieldEntry* DBase::FieldForWrite(int field) {
    const FieldEntry* entry = FieldForRead(field);
    if (!entry) return nullptr;
    if (record_[0] == kDBaseDeletedFlag) {
        status_ = kStatusNoRecord;
        return nullptr;
    }
    return &fields_[static_cast<size_t>(field)];
}

bool DBase::FlushDirtyRecord() {
    if (!recordChanged_) return true;
    recordChanged_ = false;
    int64_t position = header_.RecordPosition(current_);
    int length = header_.recordLength;
    bool written = file_->SeekEx(position, File::kBegin) && file_->Write(record_.data(), length) == length;
    if (written && recordAppended_) {
        recordAppended_ = false;
        written = file_->Write(&kDBaseEndOfFile, 1) == 1;
    }
    if (!written) {
        recordAppended_ = false;
        current_ = -1;
        cachedPosition_ = -1;
        return false;
    }
    headerChanged_ = true;
    return true;
}

bool DBase::AddRecord() {
    if (!IsOpen()) {
        status_ = kStatusNoRecord;
        return false;
    }
    if (!FlushDirtyRecord() || header_.numRecords == INT32_MAX) {
        status_ = kStatusWriteFailed;
        return false;
    }
    std::memset(record_.data(), ' ', static_cast<size_t>(header_.recordLength));
    current_ = header_.numRecords++;
    // The buffer is the record; nothing is to be read for it.
    cachedPosition_ = header_.RecordPosition(current_);
    headerChanged_ = recordChanged_ = recordAppended_ = true;
    status_ = kStatusOk;
    return true;
}

bool DBase::DeleteRecord(int32_t record) {
    if (!IsOpen()) {
        status_ = kStatusNoRecord;
        return false;
    }
    if (recordAppended_ && record == current_) {
        // Never written: taking it back leaves no trace in the file.
        --header_.numRecords;
        recordChanged_ = recordAppended_ = false;
        headerChanged_ = true;
        current_ = -1;
        cachedPosition_ = -1;
        status_ = kStatusOk;
        return true;
    }
    if (!FlushDirtyRecord()) {
        status_ = kStatusWriteFailed;
        return false;
    }
    if (record < 0 || record >= header_.numRecords) {
        status_ = record < 0 ? kStatusNegativeRecord : kStatusPastLastRecord;
        return false;
    }
    current_ = record;
    if (!SeekToCurrent()) {
        status_ = kStatusHeader;
        return false;
    }
    status_ = kStatusOk;
    if (record_[0] == kDBaseDeletedFlag) return true;
    record_[0] = kDBaseDeletedFlag;
    recordChanged_ = true;
    hasDeletedRecords_ = true;
    return true;
}

bool DBase::IsRecordDeleted(int32_t record) {
    if (!MoveTo(record) || !SeekToCurrent()) return true;
    return record_[0] == kDBaseDeletedFlag;
}

bool DBase::CopyRecordBuffer(int32_t from, int32_t to) {
    if (!IsOpen() || from < 0 || to < 0 || from >= header_.numRecords || to >= header_.numRecords) {
        status_ = kStatusPastLastRecord;
        return false;
    }
    cachedPosition_ = -1;
    int length = header_.recordLength;
    if (!file_->SeekEx(header_.RecordPosition(from), File::kBegin) ||
        file_->Read(record_.data(), length) != length) {
        status_ = kStatusHeader;
        return false;
    }
    if (!file_->SeekEx(header_.RecordPosition(to), File::kBegin) || file_->Write(record_.data(), length) != length) {
        status_ = kStatusWriteFailed;
        return false;
    }
    status_ = kStatusOk;
    return true;
}

}  // namespace quillet
