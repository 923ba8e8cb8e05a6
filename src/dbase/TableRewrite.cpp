#include "dbase/TableRewrite.h"

#include <cstring>

#include "dbase/DBase.h"
#include "foundation/File.h"
#include "foundation/Win32File.h"

namespace quillet {

namespace {

constexpr int kCopyChunk = 2048;
constexpr uint32_t kMaxTempPath = 4096;

// Replaces the bytes of `to` by those of `from`, in chunks of 2048 bytes.
// True only when every byte of the source arrived.
bool s_CopyFileBytes(File* from, File* to) {
    if (to->IsReadOnly()) {
        to->Close();
        if (!to->Open(0, 1, 0, 0, 0)) return false;
    }
    if (!from->Seek(0, File::kBegin) || !to->SetLength(0) || !to->Seek(0, File::kBegin)) return false;
    char chunk[kCopyChunk];
    int64_t copied = 0;
    for (;;) {
        int n = from->Read(chunk, kCopyChunk);
        if (n <= 0) break;
        if (to->Write(chunk, n) != n) return false;
        copied += n;
    }
    return copied == from->GetLengthEx();
}

// Copies `source` over `table`; if that fails part way, the table's old bytes,
// saved beforehand, are copied back.
bool s_ReplaceContents(File& source, File& table) {
    TemporaryFile saved;
    if (!saved.Create() || !s_CopyFileBytes(&table, &saved.file()) || !saved.file().Seek(0, File::kBegin)) {
        return false;
    }
    if (s_CopyFileBytes(&source, &table) && table.Flush()) return true;
    s_CopyFileBytes(&saved.file(), &table);
    table.Flush();
    return false;
}

}  // namespace

TemporaryFile::TemporaryFile() = default;

TemporaryFile::~TemporaryFile() {
    if (!file_) return;
    std::wstring path = file_->GetPath();
    if (!file_->Delete()) ::quillet::DeleteFileW(path.c_str());
}

bool TemporaryFile::Create() {
    wchar_t directory[kMaxTempPath];
    uint32_t length = GetTempPathW(kMaxTempPath, directory);
    if (length == 0 || length >= kMaxTempPath) return false;
    wchar_t name[kMaxTempPath];
    if (GetTempFileNameW(directory, L"dbf", 0, name) == 0) return false;
    // The name is what is wanted; the file is made anew through File.
    ::quillet::DeleteFileW(name);
    file_ = std::make_unique<File>(name);
    if (file_->Create(1, 0)) return true;
    file_.reset();
    ::quillet::DeleteFileW(name);
    return false;
}

bool TableRewrite::Begin(const DBaseHeaderRecord& header, const std::vector<DBaseFieldRecord>& fields) {
    if (!temp_.Create()) return false;
    File& out = temp_.file();
    unsigned char bytes[kDBaseHeaderSize];
    DBase::SwapHeaderNL(header, bytes);
    if (out.Write(bytes, kDBaseHeaderSize) != kDBaseHeaderSize) return false;
    for (const DBaseFieldRecord& field : fields) {
        field.EncodeTo(bytes);
        if (out.Write(bytes, kDBaseFieldRecordSize) != kDBaseFieldRecordSize) return false;
    }
    return out.Write(&kDBaseHeaderTerminator, 1) == 1;
}

int32_t TableRewrite::CopyLiveRecords(File& table, int64_t firstRecord, int recordLength, int32_t count,
                                      int dropOffset, int dropWidth, int zeroBytes) {
    if (!table.SeekEx(firstRecord, File::kBegin)) return -1;
    std::vector<char> in(static_cast<size_t>(recordLength));
    int outLength = recordLength - dropWidth + zeroBytes;
    std::vector<char> out(static_cast<size_t>(outLength), '\0');
    int tail = recordLength - dropOffset - dropWidth;
    int32_t written = 0;
    for (int32_t i = 0; i < count; ++i) {
        if (table.Read(in.data(), recordLength) != recordLength) break;
        if (static_cast<unsigned char>(in[0]) == kDBaseDeletedFlag) continue;
        std::memcpy(out.data(), in.data(), static_cast<size_t>(dropOffset));
        std::memcpy(out.data() + dropOffset, in.data() + dropOffset + dropWidth, static_cast<size_t>(tail));
        if (temp_.file().Write(out.data(), outLength) != outLength) return -1;
        ++written;
    }
    return written;
}

bool TableRewrite::Finish(const DBaseHeaderRecord& header, File& table) {
    File& out = temp_.file();
    unsigned char bytes[kDBaseHeaderSize];
    DBase::SwapHeaderNL(header, bytes);
    return out.Write(&kDBaseEndOfFile, 1) == 1 && out.Seek(0, File::kBegin) &&
           out.Write(bytes, kDBaseHeaderSize) == kDBaseHeaderSize && s_ReplaceContents(out, table);
}

}  // namespace quillet
