#include "dbase/TableRewrite.h"

#include <cstring>

#include "dbase/DBase.h"
#include "foundation/File.h"
#include "foundation/FileReplace.h"

namespace quillet {

namespace {

// The table is copied back in chunks of this many bytes.
constexpr int32_t kCopyChunk = 2048;

}  // namespace

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

int32_t TableRewrite::CopyLiveRecords(File& table, int64_t firstRecord, int recordLength,
                                      int dropOffset, int dropWidth, int zeroBytes) {
    if (!table.SeekEx(firstRecord, File::kBegin)) return -1;
    std::vector<char> in(static_cast<size_t>(recordLength));
    int outLength = recordLength - dropWidth + zeroBytes;
    std::vector<char> out(static_cast<size_t>(outLength), '\0');
    int tail = recordLength - dropOffset - dropWidth;
    int32_t written = 0;
    while (table.Read(in.data(), recordLength) == recordLength) {
        if (static_cast<unsigned char>(in[0]) == kDBaseDeletedFlag) continue;
        if (written == INT32_MAX) return -1;
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
           out.Write(bytes, kDBaseHeaderSize) == kDBaseHeaderSize && ReplaceContents({{out, table}}, kCopyChunk);
}

}  // namespace quillet
