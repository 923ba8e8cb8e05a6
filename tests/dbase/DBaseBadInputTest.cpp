// Tables no writer should make: every open or read either succeeds as the
// format allows or fails with a status, without reading past a buffer or
// sizing one by an unchecked header value.

#include <gtest/gtest.h>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::RawField;
using test::RawTable;
using test::TempDir;
using test::WriteBytes;

class DBaseBadInput : public ::testing::Test {
protected:
    // Opens `bytes` as a table; returns whether the open succeeded.
    bool OpenBytes(const std::vector<unsigned char>& bytes) {
        WriteBytes(dir_ / "bad.dbf", bytes);
        return table_.Open(true, false, CodePage::qovaCodePageDefault);
    }

    TempDir dir_;
    DBase table_{dir_.Wide("bad.dbf")};
};

TEST_F(DBaseBadInput, TruncatedHeaderFailsWithStatus22) {
    auto bytes = RawTable(65, 6, 1, {RawField("A", 'C', 5)}, {" hello"});
    bytes.resize(31);
    EXPECT_FALSE(OpenBytes(bytes));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusHeader);
    EXPECT_TRUE(table_.Close());
    EXPECT_FALSE(OpenBytes({}));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusHeader);
}

TEST_F(DBaseBadInput, DescriptorsPastTheEndFailTheOpen) {
    auto bytes = RawTable(33 + 5 * 32, 6, 0, {RawField("A", 'C', 5)}, {}, false);
    EXPECT_FALSE(OpenBytes(bytes));
    EXPECT_EQ(table_.GetNumFields(), 0);
    EXPECT_FALSE(table_.MoveTo(0));
    EXPECT_TRUE(table_.Close());
}

TEST_F(DBaseBadInput, ShortHeaderLengthMeansNoFields) {
    for (int16_t headerLength : {int16_t(0), int16_t(10), int16_t(40), int16_t(63), int16_t(-300)}) {
        auto bytes = RawTable(headerLength, 1, 0, {}, {});
        ASSERT_TRUE(OpenBytes(bytes)) << headerLength;
        EXPECT_EQ(table_.GetNumFields(), 0);
        EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusPastLastRecord);
    }
}

TEST_F(DBaseBadInput, HeaderLengthNotOfTheUsualFormStillOpens) {
    // Two descriptors' worth plus 6 bytes: (70 - 32) / 32 = 1 descriptor read;
    // the records start at 70.
    auto bytes = RawTable(70, 6, 1, {RawField("A", 'C', 5)}, {});
    bytes.resize(70, 0);
    std::string record = " hello";
    bytes.insert(bytes.end(), record.begin(), record.end());
    ASSERT_TRUE(OpenBytes(bytes));
    ASSERT_EQ(table_.GetNumFields(), 1);
    EXPECT_EQ(table_.GetFieldString(0), String(L"hello"));
}

TEST_F(DBaseBadInput, RecordShorterThanItsFieldsIsRefused) {
    for (int16_t recordLength : {int16_t(0), int16_t(-5), int16_t(5)}) {
        EXPECT_FALSE(OpenBytes(RawTable(65, recordLength, 1, {RawField("A", 'C', 5)}, {" hello"})));
        EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusHeader);
        table_.Close();
    }
}

TEST_F(DBaseBadInput, RecordLongerThanTheFileReadsAsBlankTail) {
    ASSERT_TRUE(OpenBytes(RawTable(65, 30000, 1, {RawField("A", 'C', 5)}, {" hi"}, false)));
    EXPECT_EQ(table_.GetFieldString(0), String(L"hi"));
}

TEST_F(DBaseBadInput, HugeRecordCountReadsOnlyWhatIsThere) {
    ASSERT_TRUE(OpenBytes(RawTable(65, 6, INT32_MAX, {RawField("A", 'C', 5)}, {" hello"})));
    EXPECT_EQ(table_.GetNumRecords(), INT32_MAX);
    ASSERT_TRUE(table_.MoveTo(1));
    EXPECT_EQ(table_.GetFieldString(0), String(L" "));  // the end-of-file byte reads as a blank record
    EXPECT_FALSE(table_.IsRecordDeleted(1));
    ASSERT_TRUE(table_.MoveTo(INT32_MAX - 1));
    EXPECT_EQ(table_.GetFieldString(0), String());
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusHeader);
    EXPECT_DOUBLE_EQ(table_.GetFieldDouble(0), 0.0);
    Variant value;
    EXPECT_FALSE(table_.GetValue(0, value));
}

TEST_F(DBaseBadInput, NegativeRecordCountIsRefused) {
    EXPECT_FALSE(OpenBytes(RawTable(65, 6, -1, {RawField("A", 'C', 5)}, {" hello"})));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusHeader);
}

TEST_F(DBaseBadInput, EndOfFileByteInOddPlaces) {
    auto bytes = RawTable(65, 6, 3, {RawField("A", 'C', 5)}, {"\x1A" "first", " se\x1A" "cd", "*third"});
    ASSERT_TRUE(OpenBytes(bytes));
    EXPECT_FALSE(table_.IsRecordDeleted(0));  // 0x1A as a flag reads as a space
    EXPECT_EQ(table_.GetFieldString(0), String(L"first"));
    ASSERT_TRUE(table_.MoveTo(1));
    EXPECT_EQ(table_.GetFieldString(0), String(L"se\x1A" L"cd"));
    EXPECT_TRUE(table_.IsRecordDeleted(2));
}

TEST_F(DBaseBadInput, MalformedNumbersDatesAndLogicals) {
    auto bytes = RawTable(33 + 4 * 32, 1 + 6 + 8 + 1 + 8, 1,
                          {RawField("N", 'N', 6, 2), RawField("D", 'D', 8), RawField("L", 'L', 1),
                           RawField("M", 'M', 8)},
                          {" 1x2.5 20AB0101Q12345678"});
    ASSERT_TRUE(OpenBytes(bytes));
    EXPECT_DOUBLE_EQ(table_.GetFieldDouble(0), 1.0);
    Variant value;
    ASSERT_TRUE(table_.GetValue(0, value));
    EXPECT_EQ(value.vt, VT_R4);
    EXPECT_FLOAT_EQ(value.fltVal, 1.0f);
    ASSERT_TRUE(table_.GetValue(1, value));
    EXPECT_EQ(value.vt, VT_NULL);  // the year reads as 20, before any variant date
    DBase::DateRec date = table_.GetFieldDate(1);
    EXPECT_EQ(std::wstring(date.year, 4), L"20AB");
    EXPECT_FALSE(table_.GetFieldLogical(2));
    ASSERT_TRUE(table_.GetValue(2, value));
    EXPECT_EQ(value.iVal, 0);
    EXPECT_FALSE(table_.GetValue(3, value));  // no variant for a memo field
    EXPECT_EQ(value.vt, VT_EMPTY);
    EXPECT_EQ(table_.GetFieldString(3), String(L"12345678"));
}

TEST_F(DBaseBadInput, ZeroBytesEndText) {
    ASSERT_TRUE(OpenBytes(RawTable(65, 6, 1, {RawField("A", 'C', 5)}, {std::string(" ab\0cd", 6)})));
    EXPECT_EQ(table_.GetFieldString(0), String(L"ab"));
    EXPECT_EQ(std::string(table_.GetFieldPointer(0)), "ab");
}

TEST_F(DBaseBadInput, MemoFieldsTakeNoValue) {
    WriteBytes(dir_ / "memo.dbf", RawTable(65, 9, 1, {RawField("M", 'M', 8)}, {" 00000001"}));
    DBase table(dir_.Wide("memo.dbf"));
    ASSERT_TRUE(table.Open(false, false, CodePage::qovaCodePageDefault));
    EXPECT_FALSE(table.SetFieldNull(0));
    EXPECT_EQ(table.GetLastStatus(), DBase::kStatusNoRecord);
    EXPECT_TRUE(table.SetFieldString(0, L"ignored"));
    EXPECT_EQ(std::string(table.GetFieldPointer(0)), "00000001");
    Variant text = Variant::Bstr(L"x");
    EXPECT_FALSE(table.PutValue(0, text));
}

}  // namespace
}  // namespace quillet
