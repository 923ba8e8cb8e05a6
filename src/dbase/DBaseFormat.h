#pragma once

// The on-disk records of a dBASE table and the bytes around them.
//
// A table file is, in this order:
//
//   file header        32 bytes (DBaseHeaderRecord)
//   field descriptors  32 bytes each (DBaseFieldRecord), one per field
//   terminator         1 byte, 0x0D
//   records            record-length bytes each, no separators
//   end of file        1 byte, 0x1A
//
// The number of fields is (header length - 32) / 32, truncated toward zero;
// the terminator is never looked for. Record n (from 0) starts at
// header length + n * record length. A record is its deletion flag (" " live,
// "*" marked deleted) followed by the fields' bytes in descriptor order; the
// first field starts at offset 1 and offsets are always recomputed from the
// widths, never read from a descriptor. All integers are little-endian.

#include <cstdint>

#include "foundation/Export.h"

namespace quillet {

inline constexpr int kDBaseHeaderSize = 32;
inline constexpr int kDBaseFieldRecordSize = 32;
inline constexpr unsigned char kDBaseHeaderTerminator = 0x0D;
inline constexpr unsigned char kDBaseEndOfFile = 0x1A;
inline constexpr unsigned char kDBaseLiveFlag = ' ';
inline constexpr unsigned char kDBaseDeletedFlag = '*';
// Field names longer than this are cut when a name is made by the library;
// names read from a file may use all 11 bytes of the slot.
inline constexpr int kDBaseMaxFieldName = 10;
inline constexpr int kDBaseFieldNameSlot = 11;

// File header (DBase::HeaderRecord), 32 bytes:
//
//   offset size  meaning
//    0      1    version byte (3 for tables this library creates; kept as read)
//    1      1    year of last update - 1900, truncated to 8 bits
//    2      1    month of last update, 1..12
//    3      1    day of last update, 1..31
//    4      4    number of records, deleted ones included (i32)
//    8      2    header length: 32 + 32 * fields + 1 (i16)
//   10      2    record length: 1 + sum of field widths (i16)
//   12     16    reserved, written as zero
//   28      1    production index flag, written as zero
//   29      1    language driver id of the code page; 0: the .cpg file names it
//   30      2    reserved, written as zero
//
// Held in native order in memory; DBase::SwapHeaderLN and SwapHeaderNL are the
// only places where it meets its file form.
struct DBaseHeaderRecord {
    uint8_t version = 0;
    uint8_t year = 0;
    uint8_t month = 0;
    uint8_t day = 0;
    int32_t numRecords = 0;
    int16_t headerLength = 0;
    int16_t recordLength = 0;
    uint8_t languageDriver = 0;

    // Number of descriptors the header length implies (never negative).
    int FieldCount() const;
    // Where record n starts.
    int64_t RecordPosition(int32_t n) const {
        return headerLength + static_cast<int64_t>(recordLength) * n;
    }
    // Sets the date bytes from the local calendar date.
    void StampToday();
};

// Field descriptor (DBase::FieldRecord), 32 bytes:
//
//   offset size  meaning
//    0     11    name in the table's code page, zero-padded; 11 bytes leave
//                no terminating zero
//   11      1    type letter: C, D, F, L, N (others, e.g. M, only read)
//   12      4    reserved (no field data address), written as zero
//   16      1    width in bytes
//   17      1    decimal count
//   18     14    reserved, written as zero
struct QUILLET_EXPORT DBaseFieldRecord {
    char name[kDBaseFieldNameSlot] = {};
    char type = 0;
    uint8_t width = 0;
    uint8_t decimals = 0;

    void EncodeTo(unsigned char* out) const;
    void DecodeFrom(const unsigned char* in);
};

// A date as eight wide characters: year (4), month (2), day (2). Only the low
// byte of each character reaches the file.
struct DBaseDateRec {
    wchar_t year[4] = {};
    wchar_t month[2] = {};
    wchar_t day[2] = {};
};
static_assert(sizeof(DBaseDateRec) == 8 * sizeof(wchar_t), "DateRec is eight characters");

}  // namespace quillet
