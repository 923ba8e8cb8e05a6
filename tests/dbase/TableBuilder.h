#pragma once

// Helpers of the table tests: tables made through DBase, and raw table bytes
// for inputs DBase would never write.

#include <string>
#include <vector>

#include "dbase/DBase.h"

namespace quillet::test {

struct FieldSpec {
    std::wstring name;
    DBase::qovaDataType type;
    int width;
    int decimals;
};

// Creates an empty table at `path` with the fields (ANSI code page unless
// told otherwise); fails the test on error.
void CreateTable(const std::wstring& path, const std::vector<FieldSpec>& fields,
                 CodePage::qovaCodePageEnum codePage = CodePage::qovaCodePageANSI);

// The bytes of a table: header with the given counts, descriptors and
// terminator, then `records` (each must already be record-length long).
std::vector<unsigned char> RawTable(int16_t headerLength, int16_t recordLength, int32_t numRecords,
                                    const std::vector<DBase::FieldRecord>& fields,
                                    const std::vector<std::string>& records, bool endOfFile = true);
DBase::FieldRecord RawField(const char* name, char type, int width, int decimals = 0);

}  // namespace quillet::test
