// DBase: whole-table rewrites, and compaction, which removes the records
// marked deleted.

#include "dbase/DBase.h"
#include "dbase/TableRewrite.h"

namespace quillet {

std::vector<DBase::FieldRecord> DBase::CurrentDescriptors(int except) {
    std::vector<FieldRecord> descriptors;
    for (int i = 0; i < GetNumFields(); ++i) {
        if (i != except) descriptors.push_back(MakeFieldRecord(i));
    }
    return descriptors;
}

bool DBase::RewriteTable(const std::vector<FieldRecord>& descriptors, int dropOffset, int dropWidth,
                         int zeroBytes, HeaderRecord& result) {
    TableRewrite rewrite;
    int32_t written = -1;
    if (rewrite.Begin(header_, descriptors)) {
        written = rewrite.CopyLiveRecords(*file_, header_.headerLength, header_.recordLength,
                                          dropOffset, dropWidth, zeroBytes);
    }
    result.numRecords = written;
    result.StampToday();
    if (written < 0 || !rewrite.Finish(result, *file_)) {
        status_ = kStatusWriteFailed;
        return false;
    }
    return true;
}

bool DBase::CompactFile() {
    if (!IsOpen()) return false;
    status_ = kStatusOk;
    // A mark of deletion may still sit in the record buffer.
    if (!FlushDirtyRecord()) {
        status_ = kStatusWriteFailed;
        return false;
    }
    HeaderRecord compacted = header_;
    if (!RewriteTable(CurrentDescriptors(-1), header_.recordLength, 0, 0, compacted)) return false;
    header_ = compacted;
    hasDeletedRecords_ = false;
    ResetCursor();
    return true;
}

}  // namespace quillet
