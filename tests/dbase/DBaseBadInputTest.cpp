// Tables no writer should make: every open or read either succeeds as the
// format allows or fails with a status, without reading past a buffer or
// sizing one by an unchecked header value.

#include <gtest/gtest.h>

#include "TableBuilder.h"
#include "dbase/DBase.h"

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

TEST_F(DBaseBadInput, UnreadableHeadersFailWithStatus22) {
    const auto one = RawField("A", 'C', 5);
    auto truncated = RawTable(65, 6, 1, {one}, {" hello"});
    truncated.resize(31);
    const std::vector<unsigned char> cases[] = {
        {},
        truncated,
        RawTable(65, 6, -1, {one}, {" hello"}),  // negative record count
        RawTable(65, 0, 1, {one}, {" hello"}),   // records shorter than their fields
        RawTable(65, -5, 1, {one}, {" hello"}),
        RawTable(65, 5, 1, {one}, {" hello"}),
    };
    for (const auto& bytes : cases) {
        EXPECT_FALSE(OpenBytes(bytes)) << bytes.size();
        EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusHeader) << bytes.size();
        EXPECT_EQ(table_.GetNumFields(), 0);
        EXPECT_FALSE(table_.MoveTo(0));
        EXPECT_TRUE(table_.Close());
    }
    // Descriptors past the end of the file fail the open too.
    EXPECT_FALSE(OpenBytes(RawTable(33 + 5 * 32, 6, 0, {one}, {}, false)));
    EXPECT_EQ(table_.GetNumFields(), 0);
}

TEST_F(DBaseBadInput, OddHeaderLengthsStillOpen) {
    for (int16_t headerLength :
         {int16_t(0), int16_t(10), int16_t(40), int16_t(63), int16_t(-300)}) {
        ASSERT_TRUE(OpenBytes(RawTable(headerLength, 1, 0, {}, {}))) << headerLength;
        EXPECT_EQ(table_.GetNumFields(), 0);
        EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusPastLastRecord);
    }
    // (70 - 32) / 32 = 1 descriptor is read, and the records start at 70.
    auto bytes = RawTable(70, 6, 1, {RawField("A", 'C', 5)}, {});
    bytes.resize(70, 0);
    for (char c : std::string(" hello")) bytes.push_back(static_cast<unsigned char>(c));
    ASSERT_TRUE(OpenBytes(bytes));
    ASSERT_EQ(table_.GetNumFields(), 1);
    EXPECT_EQ(table_.GetFieldString(0), String(L"hello"));
}

TEST_F(DBaseBadInput, CountsBeyondTheFileReadOnlyWhatIsThere) {
    ASSERT_TRUE(OpenBytes(RawTable(65, 6, INT32_MAX, {RawField("A", 'C', 5)}, {" hello"})));
    EXPECT_EQ(table_.GetNumRecords(), INT32_MAX);
    ASSERT_TRUE(table_.MoveTo(1));
    EXPECT_EQ(table_.GetFieldString(0), String(L" "));  // the end-of-file byte: a blank record
    EXPECT_FALSE(table_.IsRecordDeleted(1));
    ASSERT_TRUE(table_.MoveTo(INT32_MAX - 1));
    EXPECT_EQ(table_.GetFieldString(0), String());
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusHeader);
    EXPECT_DOUBLE_EQ(table_.GetFieldDouble(0), 0.0);
    Variant value;
    EXPECT_FALSE(table_.GetValue(0, value));
    // A record longer than the file reads as a blank tail.
    ASSERT_TRUE(OpenBytes(RawTable(65, 30000, 1, {RawField("A", 'C', 5)}, {" hi"}, false)));
    EXPECT_EQ(table_.GetFieldString(0), String(L"hi"));
}

TEST_F(DBaseBadInput, EndOfFileAndZeroBytesInsideRecords) {
    // \032 is the end-of-file byte.
    ASSERT_TRUE(OpenBytes(RawTable(65, 6, 3, {RawField("A", 'C', 5)},
                                   {"\032first", " se\032cd", std::string("*a\0cd", 6)})));
    EXPECT_FALSE(table_.IsRecordDeleted(0));  // as a flag it reads as a space
    EXPECT_EQ(table_.GetFieldString(0), String(L"first"));
    ASSERT_TRUE(table_.MoveTo(1));
    EXPECT_EQ(table_.GetFieldString(0), String(L"se\032cd"));
    EXPECT_TRUE(table_.IsRecordDeleted(2));
    ASSERT_TRUE(table_.MoveTo(2));
    EXPECT_EQ(table_.GetFieldString(0), String(L"a"));  // a zero byte ends the text
    EXPECT_EQ(std::string(table_.GetFieldPointer(0)), "a");
}

TEST_F(DBaseBadInput, MalformedValuesAndMemoFields) {
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
    EXPECT_FALSE(table_.GetValue(3, value));  // memo fields are only read as text
    EXPECT_EQ(value.vt, VT_EMPTY);
    EXPECT_FALSE(table_.SetFieldNull(3));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusNoRecord);
    EXPECT_TRUE(table_.SetFieldString(3, L"ignored"));
    Variant text = Variant::Bstr(L"x");
    EXPECT_FALSE(table_.PutValue(3, text));
    EXPECT_EQ(table_.GetFieldString(3), String(L"12345678"));
}

}  // namespace
}  // namespace quillet
