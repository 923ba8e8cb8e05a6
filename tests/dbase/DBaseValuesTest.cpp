// Field values: text, numbers, dates, logicals and variants, and how each
// kind lands in the record's bytes.

#include <gtest/gtest.h>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

using test::CreateTable;
using test::TempDir;

enum Field { kName, kShort, kCount, kPrice, kBig, kFloat, kWideFloat, kDay, kFlag };

class DBaseValues : public ::testing::Test {
protected:
    void SetUp() override {
        CreateTable(dir_.Wide("v.dbf"), {{L"NAME", DBase::qovaCharacter, 3, 0},
                                         {L"SHORT", DBase::qovaNumeric, 4, 0},
                                         {L"COUNT", DBase::qovaNumeric, 9, 0},
                                         {L"PRICE", DBase::qovaNumeric, 8, 2},
                                         {L"BIG", DBase::qovaNumeric, 12, 0},
                                         {L"RATIO", DBase::qovaFloat, 13, 5},
                                         {L"WIDE", DBase::qovaFloat, 19, 11},
                                         {L"DAY", DBase::qovaDate, 8, 0},
                                         {L"FLAG", DBase::qovaLogical, 1, 0}});
        ASSERT_TRUE(table_.Open(false, false, CodePage::qovaCodePageDefault));
        ASSERT_TRUE(table_.AddRecord());
    }

    std::string Raw(int field) { return table_.GetFieldPointer(field); }

    TempDir dir_;
    DBase table_{dir_.Wide("v.dbf")};
};

TEST_F(DBaseValues, TextIsCutToTheWidthWithStatus18) {
    EXPECT_TRUE(table_.SetFieldString(kName, L"abcd"));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusTruncated);
    EXPECT_EQ(Raw(kName), "abc");
    EXPECT_TRUE(table_.SetFieldString(kName, L"ab"));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusOk);
    EXPECT_EQ(Raw(kName), "ab ");
    EXPECT_EQ(table_.GetFieldString(kName), String(L"ab"));
}

TEST_F(DBaseValues, BlankTextReadsAsOneSpace) {
    EXPECT_EQ(Raw(kName), "   ");
    EXPECT_EQ(table_.GetFieldString(kName), String(L" "));
    EXPECT_TRUE(table_.SetFieldString(kName, L" x"));
    EXPECT_EQ(table_.GetFieldString(kName), String(L" x"));
}

TEST_F(DBaseValues, NonAsciiTextGoesThroughTheCodePage) {
    EXPECT_TRUE(table_.SetFieldString(kName, L"\u00e9\u20ac"));
    EXPECT_EQ(Raw(kName), "\xe9\x80 ");  // ANSI 1252
    EXPECT_EQ(table_.GetFieldString(kName), String(L"\u00e9\u20ac"));
}

TEST_F(DBaseValues, NumericTextLayout) {
    EXPECT_TRUE(table_.SetFieldString(kPrice, L"-12.345"));
    EXPECT_EQ(Raw(kPrice), "  -12.34");
    EXPECT_TRUE(table_.SetFieldString(kPrice, L"  7"));
    EXPECT_EQ(Raw(kPrice), "    7.00");
    EXPECT_DOUBLE_EQ(table_.GetFieldDouble(kPrice), 7.0);
    EXPECT_FALSE(table_.SetFieldString(kPrice, L"1..2"));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusMalformedText);
    EXPECT_EQ(Raw(kPrice), "    7.00");
}

TEST_F(DBaseValues, NumbersAndIntegers) {
    EXPECT_TRUE(table_.SetFieldInteger(kShort, 12345));
    EXPECT_EQ(Raw(kShort), "1234");  // cut, no overflow reported
    EXPECT_TRUE(table_.SetFieldInteger(kPrice, 42));
    EXPECT_EQ(Raw(kPrice), "      42");  // "%*d": no decimals
    EXPECT_TRUE(table_.SetFieldDouble(kPrice, 3.14159));
    EXPECT_EQ(Raw(kPrice), "    3.14");
    EXPECT_TRUE(table_.SetFieldDouble(kBig, 1234567890123.0));
    EXPECT_EQ(Raw(kBig), "  1.2346e+12");
    EXPECT_TRUE(table_.SetFieldFloat(kFloat, 1.5f));
    EXPECT_EQ(Raw(kFloat), "  1.50000e+00");
    EXPECT_DOUBLE_EQ(table_.GetFieldDouble(kFloat), 1.5);
    EXPECT_TRUE(table_.SetFieldString(kCount, L"-7.9"));
    EXPECT_EQ(table_.GetFieldInteger(kCount), -7);
}

TEST_F(DBaseValues, DatesAreCheckedOnlyForShape) {
    EXPECT_TRUE(table_.SetFieldString(kDay, L"2024-02-31"));  // no calendar check
    EXPECT_EQ(Raw(kDay), "20240231");
    EXPECT_FALSE(table_.SetFieldString(kDay, L"1999/12/3"));
    EXPECT_FALSE(table_.SetFieldString(kDay, L"2024-13-01"));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusMalformedText);
    EXPECT_FALSE(table_.SetFieldString(kDay, L"2024-01-32"));
    EXPECT_TRUE(table_.SetFieldString(kDay, L"2024-01-x1"));  // position 8 is never checked
    EXPECT_FALSE(table_.SetFieldString(kDay, L"20240101"));
    EXPECT_TRUE(table_.SetFieldString(kDay, L"2024\\07\\04"));
    DBase::DateRec date = table_.GetFieldDate(kDay);
    EXPECT_EQ(std::wstring(date.year, 4), L"2024");
    EXPECT_EQ(std::wstring(date.month, 2), L"07");
    EXPECT_EQ(std::wstring(date.day, 2), L"04");
    date.day[1] = L'5';
    EXPECT_TRUE(table_.SetFieldDate(kDay, date));
    EXPECT_EQ(Raw(kDay), "20240705");
}

TEST_F(DBaseValues, Logicals) {
    struct Case {
        const wchar_t* text;
        const char* stored;
    };
    for (Case c : {Case{L" ", "?"}, Case{L"?", "?"}, Case{L"f", "N"}, Case{L"0", "N"}, Case{L"True", "Y"},
                   Case{L"y", "Y"}, Case{L"1", "Y"}}) {
        EXPECT_TRUE(table_.SetFieldString(kFlag, c.text)) << c.text;
        EXPECT_EQ(Raw(kFlag), c.stored) << c.text;
    }
    EXPECT_FALSE(table_.SetFieldString(kFlag, L"x"));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusMalformedText);
    EXPECT_FALSE(table_.SetFieldString(kFlag, L""));
    EXPECT_TRUE(table_.SetFieldLogical(kFlag, true));
    EXPECT_TRUE(table_.GetFieldLogical(kFlag));
    EXPECT_EQ(table_.GetFieldInteger(kFlag), 1);
    EXPECT_TRUE(table_.SetFieldInteger(kFlag, 0));
    EXPECT_EQ(Raw(kFlag), "N");
}

TEST_F(DBaseValues, VariantTypesFollowTheField) {
    ASSERT_TRUE(table_.SetFieldString(kName, L"ab"));
    ASSERT_TRUE(table_.SetFieldInteger(kShort, 12));
    ASSERT_TRUE(table_.SetFieldInteger(kCount, 123456));
    ASSERT_TRUE(table_.SetFieldDouble(kPrice, 2.5));
    ASSERT_TRUE(table_.SetFieldDouble(kBig, 1e11));
    ASSERT_TRUE(table_.SetFieldDouble(kFloat, 0.25));
    ASSERT_TRUE(table_.SetFieldDouble(kWideFloat, 0.125));
    ASSERT_TRUE(table_.SetFieldString(kDay, L"2000-01-01"));
    ASSERT_TRUE(table_.SetFieldLogical(kFlag, true));
    Variant v;
    ASSERT_TRUE(table_.GetValue(kName, v));
    EXPECT_EQ(v.vt, VT_BSTR);
    EXPECT_EQ(std::wstring(v.bstrVal), L"ab");
    ASSERT_TRUE(table_.GetValue(kShort, v));
    EXPECT_EQ(v.vt, VT_I2);
    EXPECT_EQ(v.iVal, 12);
    ASSERT_TRUE(table_.GetValue(kCount, v));
    EXPECT_EQ(v.vt, VT_I4);
    EXPECT_EQ(v.lVal, 123456);
    ASSERT_TRUE(table_.GetValue(kPrice, v));
    EXPECT_EQ(v.vt, VT_R4);
    EXPECT_FLOAT_EQ(v.fltVal, 2.5f);
    ASSERT_TRUE(table_.GetValue(kBig, v));
    EXPECT_EQ(v.vt, VT_R8);
    EXPECT_DOUBLE_EQ(v.dblVal, 1e11);
    ASSERT_TRUE(table_.GetValue(kFloat, v));
    EXPECT_EQ(v.vt, VT_R4);
    ASSERT_TRUE(table_.GetValue(kWideFloat, v));
    EXPECT_EQ(v.vt, VT_R8);
    EXPECT_DOUBLE_EQ(v.dblVal, 0.125);
    ASSERT_TRUE(table_.GetValue(kDay, v));
    EXPECT_EQ(v.vt, VT_DATE);
    EXPECT_DOUBLE_EQ(v.date, 36526.0);
    ASSERT_TRUE(table_.GetValue(kFlag, v));
    EXPECT_EQ(v.vt, VT_I2);
    EXPECT_EQ(v.iVal, 1);
    EXPECT_FALSE(table_.GetValue(99, v));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusBadField);
}

TEST_F(DBaseValues, BlankDateIsNullAndBlankNumbersAreZero) {
    Variant v;
    ASSERT_TRUE(table_.GetValue(kDay, v));
    EXPECT_EQ(v.vt, VT_NULL);
    ASSERT_TRUE(table_.GetValue(kCount, v));
    EXPECT_EQ(v.vt, VT_I4);
    EXPECT_EQ(v.lVal, 0);
}

TEST_F(DBaseValues, PutValueConvertsByFieldType) {
    Variant date = Variant::Date(36526.5);  // the time of day is dropped
    ASSERT_TRUE(table_.PutValue(kDay, date));
    EXPECT_EQ(Raw(kDay), "20000101");
    Variant i2 = Variant::I2(-1);
    ASSERT_TRUE(table_.PutValue(kFlag, i2));
    EXPECT_EQ(Raw(kFlag), "N");  // VARIANT_TRUE is not 1
    Variant one = Variant::I2(1);
    ASSERT_TRUE(table_.PutValue(kFlag, one));
    EXPECT_EQ(Raw(kFlag), "Y");
    Variant r8 = Variant::R8(-0.5);
    ASSERT_TRUE(table_.PutValue(kPrice, r8));
    EXPECT_EQ(Raw(kPrice), "   -0.50");
    Variant i4 = Variant::I4(77);
    ASSERT_TRUE(table_.PutValue(kCount, i4));
    EXPECT_EQ(Raw(kCount), "       77");
    Variant text = Variant::Bstr(L"xy");
    ASSERT_TRUE(table_.PutValue(kName, text));
    EXPECT_EQ(Raw(kName), "xy ");
    // A type the field does not take leaves it null.
    ASSERT_TRUE(table_.PutValue(kPrice, text));
    EXPECT_EQ(Raw(kPrice), "        ");
    ASSERT_TRUE(table_.PutValue(kName, i4));
    EXPECT_EQ(Raw(kName), "   ");
}

TEST_F(DBaseValues, ValuesSurviveReopening) {
    ASSERT_TRUE(table_.SetFieldString(kName, L"q"));
    ASSERT_TRUE(table_.SetFieldDouble(kPrice, 9.99));
    ASSERT_TRUE(table_.Close());
    DBase reader(dir_.Wide("v.dbf"));
    ASSERT_TRUE(reader.Open(true, false, CodePage::qovaCodePageDefault));
    EXPECT_EQ(reader.GetFieldString(kName), String(L"q"));
    EXPECT_DOUBLE_EQ(reader.GetFieldDouble(kPrice), 9.99);
}

}  // namespace
}  // namespace quillet
