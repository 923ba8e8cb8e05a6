#pragma once

// Helpers of the table tests: tables made through DBase, and raw table bytes
// for inputs DBase would never write.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dbase/DBase.h"
#include "support/TestSupport.h"

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

// Appends one record per row to the table at `path`, each field set from its
// text, and closes it; fails the test on error.
void AppendRows(const std::wstring& path, const std::vector<std::vector<std::wstring>>& rows);

// Opens `table` in the code page it names itself (else the default).
inline bool OpenTable(DBase& table, bool readOnly = false, bool share = false) {
    return table.Open(readOnly, share, CodePage::qovaCodePageDefault);
}

// The bytes of a table: header with the given counts, descriptors and
// terminator, then `records` (each must already be record-length long).
Bytes RawTable(int16_t headerLength, int16_t recordLength, int32_t numRecords,
               const std::vector<DBase::FieldRecord>& fields,
               const std::vector<std::string>& records, bool endOfFile = true);
DBase::FieldRecord RawField(const char* name, char type, int width, int decimals = 0);

// A temporary folder holding the table "t.dbf" made with `fields`.
class TableTest : public ::testing::Test {
protected:
    void MakeTable(const std::vector<FieldSpec>& fields) { CreateTable(path_, fields); }
    Bytes FileBytes() const { return ReadBytes(dir_ / "t.dbf"); }

    TempDir dir_;
    std::wstring path_ = dir_.Wide("t.dbf");
};

}  // namespace quillet::test
