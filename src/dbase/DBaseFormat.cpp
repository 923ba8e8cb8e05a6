#include "dbase/DBaseFormat.h"

#include <cstring>
#include <ctime>

#include "dbase/DBase.h"
#include "foundation/ByteOrder.h"

namespace quillet {

int DBaseHeaderRecord::FieldCount() const {
    int count = (headerLength - kDBaseHeaderSize) / kDBaseFieldRecordSize;
    return count > 0 ? count : 0;
}

void DBaseHeaderRecord::StampToday() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    year = static_cast<uint8_t>(local.tm_year);
    month = static_cast<uint8_t>(local.tm_mon + 1);
    day = static_cast<uint8_t>(local.tm_mday);
}

DBase::HeaderRecord DBase::SwapHeaderLN(const unsigned char* disk) {
    HeaderRecord header;
    header.version = disk[0];
    header.year = disk[1];
    header.month = disk[2];
    header.day = disk[3];
    header.numRecords = static_cast<int32_t>(DecodeFixed32LE(disk + 4));
    header.headerLength = static_cast<int16_t>(DecodeFixed16LE(disk + 8));
    header.recordLength = static_cast<int16_t>(DecodeFixed16LE(disk + 10));
    header.languageDriver = disk[29];
    return header;
}

void DBase::SwapHeaderNL(const HeaderRecord& header, unsigned char* disk) {
    std::memset(disk, 0, kDBaseHeaderSize);
    disk[0] = header.version;
    disk[1] = header.year;
    disk[2] = header.month;
    disk[3] = header.day;
    EncodeFixed32LE(disk + 4, static_cast<uint32_t>(header.numRecords));
    EncodeFixed16LE(disk + 8, static_cast<uint16_t>(header.headerLength));
    EncodeFixed16LE(disk + 10, static_cast<uint16_t>(header.recordLength));
    disk[29] = header.languageDriver;
}

void DBaseFieldRecord::EncodeTo(unsigned char* out) const {
    std::memset(out, 0, kDBaseFieldRecordSize);
    std::memcpy(out, name, kDBaseFieldNameSlot);
    out[11] = static_cast<unsigned char>(type);
    out[16] = width;
    out[17] = decimals;
}

void DBaseFieldRecord::DecodeFrom(const unsigned char* in) {
    std::memcpy(name, in, kDBaseFieldNameSlot);
    type = static_cast<char>(in[11]);
    width = in[16];
    decimals = in[17];
}

}  // namespace quillet
