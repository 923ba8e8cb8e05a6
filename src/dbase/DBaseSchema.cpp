// DBase: field definitions and the schema changes that add and drop columns.

#include "dbase/DBase.h"
#include "dbase/TableRewrite.h"
#include "foundation/File.h"

namespace quillet {

namespace {

constexpr int kMaxLength = 32767;
constexpr int kMaxCharacterWidth = 255;
constexpr int kMaxNumberWidth = 19;

}  // namespace

int DBase::CheckLengthAndScale(qovaDataType type, int& width, int& decimals) {
    switch (type) {
        case qovaCharacter:
            if (width < 1 || width > kMaxCharacterWidth) return kStatusBadWidth;
            if (width == kMaxCharacterWidth) width = kMaxCharacterWidth - 1;
            decimals = 0;
            return kStatusOk;
        case qovaDate:
            width = 8;
            decimals = 0;
            return kStatusOk;
        case qovaLogical:
            width = 1;
            decimals = 0;
            return kStatusOk;
        case qovaFloat:
        case qovaNumeric:
            if (width < 1 || width > kMaxNumberWidth || decimals < 0) return kStatusBadWidth;
            if (width == 1 ? decimals != 0 : decimals + 2 > width) return kStatusBadWidth;
            return kStatusOk;
        default:
            return kStatusBadWidth;
    }
}

int DBase::SetFieldRecord(const String& name, qovaDataType type, int width, int decimals, FieldRecord& out) {
    int status = CheckLengthAndScale(type, width, decimals);
    if (status != kStatusOk) return status;
    out = FieldRecord();
    EncodeFieldName(name, out);
    out.type = type;
    out.width = static_cast<uint8_t>(width);
    out.decimals = static_cast<uint8_t>(decimals);
    return kStatusOk;
}

bool DBase::AddColumn(const String& name, qovaDataType type, int width, int decimals) {
    StringArray names;
    names.Add(name);
    return AddColumns(names, &type, &width, &decimals);
}

bool DBase::AddColumns(const StringArray& names, qovaDataType* types, int* widths, int* decimals) {
    int count = names.GetSize();
    if (count == 0) {
        status_ = kStatusOk;
        return true;
    }
    bool wasOpen = IsOpen();
    bool readOnly = readOnly_, share = share_;
    if (wasOpen && !Close()) return false;
    if (!file_) file_ = std::make_unique<File>(path_.c_str());
    if (!file_->Open(0, 0, 0, 0, 0)) return MapFileError(file_->GetLastError());

    std::vector<FieldRecord> records;
    bool added = ReadHeader() && PrepareNewColumns(names, types, widths, decimals, records);
    if (added && header_.numRecords == 0) {
        added = AddColumnsToEmptyTable(count, records.data());
    } else if (added) {
        file_->Close();
        added = AddColumnsToFile(count, records.data());
    }
    int32_t status = added ? kStatusOk : status_;
    ReleaseTable();
    if (wasOpen) Open(readOnly, share, CodePage::qovaCodePageDefault);
    status_ = status;
    return added;
}

bool DBase::PrepareNewColumns(const StringArray& names, qovaDataType* types, int* widths, int* decimals,
                              std::vector<FieldRecord>& records) {
    ChooseCodePageFromTable();
    StringArray taken;
    if (!ReadDescriptorNames(taken)) {
        status_ = kStatusHeader;
        return false;
    }
    for (int i = 0; i < names.GetSize(); ++i) {
        String name = names[i].Left(kDBaseMaxFieldName);
        for (const String& other : taken) {
            if (CompareNoCase(name.view(), other.view()) == 0) {
                status_ = kStatusDuplicateName;
                return false;
            }
        }
        FieldRecord record;
        int status = SetFieldRecord(name, types[i], widths[i], decimals[i], record);
        if (status != kStatusOk) {
            status_ = status;
            return false;
        }
        taken.Add(name);
        records.push_back(record);
    }
    return true;
}

bool DBase::ReadDescriptorNames(StringArray& names) {
    std::vector<FieldRecord> records;
    if (!ReadDescriptors(records)) return false;
    for (const FieldRecord& record : records) names.Add(DecodeFieldName(record));
    return true;
}

bool DBase::GrowHeader(HeaderRecord& header, int count, const FieldRecord* records) {
    int headerLength = header.headerLength + kDBaseFieldRecordSize * count;
    int recordLength = header.recordLength;
    for (int i = 0; i < count; ++i) recordLength += records[i].width;
    if (headerLength > kMaxLength || recordLength > kMaxLength) {
        status_ = kStatusBadWidth;
        return false;
    }
    header.headerLength = static_cast<int16_t>(headerLength);
    header.recordLength = static_cast<int16_t>(recordLength);
    return true;
}

bool DBase::AddColumnsToEmptyTable(int count, FieldRecord* records) {
    HeaderRecord grown = header_;
    if (!GrowHeader(grown, count, records)) return false;
    // The new descriptors go where the terminator stood; nothing follows
    // them but the terminator and the end-of-file byte.
    bool written = file_->SeekEx(header_.headerLength - 1, File::kBegin);
    for (int i = 0; written && i < count; ++i) {
        unsigned char disk[kDBaseFieldRecordSize];
        records[i].EncodeTo(disk);
        written = file_->Write(disk, kDBaseFieldRecordSize) == kDBaseFieldRecordSize;
        if (records[i].type == qovaFloat) grown.version = 3;
    }
    const unsigned char tail[] = {kDBaseHeaderTerminator, kDBaseEndOfFile};
    written = written && file_->Write(tail, sizeof tail) == static_cast<int>(sizeof tail);
    header_ = grown;
    headerChanged_ = true;
    written = written && WriteHeader() && file_->Close();
    if (!written) status_ = kStatusWriteFailed;
    return written;
}

bool DBase::AddColumnsToFile(int count, FieldRecord* records) {
    if (!Open(false, true, CodePage::qovaCodePageDefault)) return false;
    HeaderRecord grown = header_;
    if (!GrowHeader(grown, count, records)) return false;
    std::vector<FieldRecord> descriptors = CurrentDescriptors(-1);
    descriptors.insert(descriptors.end(), records, records + count);
    // New fields start as zero bytes, not spaces: they read as empty text or
    // 0 until set.
    int zeroBytes = grown.recordLength - header_.recordLength;
    if (!RewriteTable(descriptors, header_.recordLength, 0, zeroBytes, grown)) return false;
    header_ = grown;
    for (int i = 0; i < count; ++i) AppendField(DecodeFieldName(records[i]), records[i]);
    AllocateBuffers();
    hasDeletedRecords_ = false;
    ResetCursor();
    status_ = kStatusOk;
    return true;
}

bool DBase::DropColumn(const String& name) {
    if (!Open(false, true, CodePage::qovaCodePageDefault)) return false;
    int dropped = -1;
    for (int i = 0; i < GetNumFields() && dropped < 0; ++i) {
        if (CompareNoCase(name.view(), names_[i].view()) == 0) dropped = i;
    }
    bool replaced = false;
    if (dropped < 0) {
        status_ = kStatusBadField;
    } else {
        const FieldEntry& field = fields_[static_cast<size_t>(dropped)];
        HeaderRecord shrunk = header_;
        shrunk.recordLength = static_cast<int16_t>(shrunk.recordLength - field.width);
        shrunk.headerLength = static_cast<int16_t>(shrunk.headerLength - kDBaseFieldRecordSize);
        replaced = RewriteTable(CurrentDescriptors(dropped), field.offset, field.width, 0, shrunk);
    }
    // The field list in memory is the old one: the caller reopens the table.
    int32_t status = replaced ? kStatusOk : status_;
    ReleaseTable();
    status_ = status;
    return replaced;
}

}  // namespace quillet
