// Field values through the table: text, numbers, dates, logicals and
// variants, and how each kind lands in the record's bytes. The number forms
// themselves are NumericTextTest's.

#include <gtest/gtest.h>

#include "TableBuilder.h"
#include "dbase/DBase.h"

namespace quillet {
namespace {

enum Field { kName, kShort, kCount, kPrice, kBig, kFloat, kWideFloat, kDay, kFlag };

class DBaseValues : public test::TableTest {
protected:
    void SetUp() override {
        MakeTable({{L"NAME", DBase::qovaCharacter, 3, 0},
                   {L"SHORT", DBase::qovaNumeric, 4, 0},
                   {L"COUNT", DBase::qovaNumeric, 9, 0},
                   {L"PRICE", DBase::qovaNumeric, 8, 2},
                   {L"BIG", DBase::qovaNumeric, 12, 0},
                   {L"RATIO", DBase::qovaFloat, 13, 5},
                   {L"WIDE", DBase::qovaFloat, 19, 11},
                   {L"DAY", DBase::qovaDate, 8, 0},
                   {L"FLAG", DBase::qovaLogical, 1, 0}});
        ASSERT_TRUE(test::OpenTable(table_));
        ASSERT_TRUE(table_.AddRecord());
    }

    std::string Raw(int field) { return table_.GetFieldPointer(field); }

    struct TextCase {
        const wchar_t* text;
        const char* stored;  // nullptr: refused with status 17
    };
    void ExpectStored(Field field, std::initializer_list<TextCase> cases) {
        for (TextCase c : cases) {
            std::string before = Raw(field);
            bool stored = table_.SetFieldString(field, c.text);
            EXPECT_EQ(table_.GetLastStatus(),
                      stored ? DBase::kStatusOk : DBase::kStatusMalformedText)
                << c.text;
            EXPECT_EQ(stored, c.stored != nullptr) << c.text;
            EXPECT_EQ(Raw(field), c.stored ? c.stored : before) << c.text;  // refused: unchanged
        }
    }

    DBase table_{path_};
};

TEST_F(DBaseValues, TextIsCutPaddedAndConverted) {
    EXPECT_EQ(Raw(kName), "   ");
    EXPECT_EQ(table_.GetFieldString(kName), String(L" "));  // blank text reads as one space
    EXPECT_TRUE(table_.SetFieldString(kName, L"abcd"));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusTruncated);  // stored all the same
    EXPECT_EQ(Raw(kName), "abc");
    EXPECT_TRUE(table_.SetFieldString(kName, L" x"));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusOk);
    EXPECT_EQ(Raw(kName), " x ");
    EXPECT_EQ(table_.GetFieldString(kName), String(L" x"));
    EXPECT_TRUE(table_.SetFieldString(kName, L"\u00e9\u20ac"));
    EXPECT_EQ(Raw(kName), "\xe9\x80 ");  // ANSI 1252
    EXPECT_EQ(table_.GetFieldString(kName), String(L"\u00e9\u20ac"));
}

TEST_F(DBaseValues, NumberSetters) {
    ExpectStored(kPrice, {{L"  7", "    7.00"}, {L"1..2", nullptr}});  // leading blanks are dropped
    EXPECT_TRUE(table_.SetFieldInteger(kShort, 12345));
    EXPECT_EQ(Raw(kShort), "1234");  // cut, no overflow reported
    EXPECT_TRUE(table_.SetFieldInteger(kPrice, 42));
    EXPECT_EQ(Raw(kPrice), "      42");  // integers carry no decimals
    EXPECT_TRUE(table_.SetFieldString(kCount, L"-7.9"));
    EXPECT_EQ(table_.GetFieldInteger(kCount), -7);
}

TEST_F(DBaseValues, DatesAreCheckedOnlyForShape) {
    ExpectStored(kDay, {{L"2024-02-31", "20240231"},  // no calendar check
                        {L"2024-01-x1", "202401x1"},  // the last digit is never checked
                        {L"2024\\07\\04", "20240704"}, {L"1999/12/3", nullptr}, {L"2024-13-01", nullptr},
                        {L"2024-01-32", nullptr}, {L"20240101", nullptr}});
    DBase::DateRec date = table_.GetFieldDate(kDay);
    EXPECT_EQ(std::wstring(date.year, 4) + std::wstring(date.month, 2) + std::wstring(date.day, 2),
              L"20240704");
    date.day[1] = L'5';
    EXPECT_TRUE(table_.SetFieldDate(kDay, date));
    EXPECT_EQ(Raw(kDay), "20240705");
}

TEST_F(DBaseValues, Logicals) {
    ExpectStored(kFlag, {{L" ", "?"}, {L"?", "?"}, {L"f", "N"}, {L"0", "N"}, {L"True", "Y"},
                         {L"y", "Y"}, {L"1", "Y"}, {L"x", nullptr}, {L"", nullptr}});
    EXPECT_TRUE(table_.SetFieldLogical(kFlag, true));
    EXPECT_TRUE(table_.GetFieldLogical(kFlag));
    EXPECT_EQ(table_.GetFieldInteger(kFlag), 1);
    EXPECT_TRUE(table_.SetFieldInteger(kFlag, 0));
    EXPECT_EQ(Raw(kFlag), "N");
}

// The variant type follows the field's type, width and decimals.
TEST_F(DBaseValues, GetValue) {
    struct Case {
        Field field;
        const wchar_t* set;  // nullptr: left blank
        VARTYPE vt;
        const wchar_t* text;  // the value as text
    };
    const Case cases[] = {
        {kName, L"ab", VT_BSTR, L"ab"}, {kShort, L"12", VT_I2, L"12"},
        {kCount, L"123456", VT_I4, L"123456"}, {kCount, nullptr, VT_I4, L"0"},
        {kPrice, L"2.5", VT_R4, L"2.5"}, {kBig, L"100000000000", VT_R8, L"100000000000"},
        {kFloat, L"0.25", VT_R4, L"0.25"}, {kWideFloat, L"0.125", VT_R8, L"0.125"},
        {kDay, L"2000-01-01", VT_DATE, L"2000-01-01"}, {kDay, nullptr, VT_NULL, nullptr},
        {kFlag, L"T", VT_I2, L"1"},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(c.set ? table_.SetFieldString(c.field, c.set) : table_.SetFieldNull(c.field));
        Variant value;
        ASSERT_TRUE(table_.GetValue(c.field, value)) << c.field;
        EXPECT_EQ(value.vt, c.vt) << c.field;
        if (!c.text) continue;  // no value to compare
        Variant text;
        ASSERT_EQ(VariantChangeType(&text, &value, 0, VT_BSTR), S_OK) << c.field;
        EXPECT_EQ(std::wstring(text.bstrVal), c.text) << c.field;
    }
    Variant value;
    EXPECT_FALSE(table_.GetValue(99, value));
    EXPECT_EQ(table_.GetLastStatus(), DBase::kStatusBadField);
}

TEST_F(DBaseValues, PutValueConvertsByFieldType) {
    struct Case {
        Field field;
        Variant value;
        const char* stored;
    };
    const Case cases[] = {
        {kDay, Variant::Date(36526.5), "20000101"},  // the time of day is dropped
        {kFlag, Variant::I2(-1), "N"},               // VARIANT_TRUE is not 1
        {kFlag, Variant::I2(1), "Y"}, {kPrice, Variant::R8(-0.5), "   -0.50"},
        {kCount, Variant::I4(77), "       77"}, {kName, Variant::Bstr(L"xy"), "xy "},
        {kPrice, Variant::Bstr(L"1"), "        "},  // a type the field does not take leaves it null
        {kName, Variant::I4(77), "   "},
    };
    for (Case c : cases) {
        ASSERT_TRUE(table_.PutValue(c.field, c.value)) << c.stored;
        EXPECT_EQ(Raw(c.field), c.stored);
    }
}

}  // namespace
}  // namespace quillet
