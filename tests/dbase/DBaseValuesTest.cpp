// Field values through the table: text, numbers, dates, logicals and
// variants, and how each kind lands in the record's bytes; and the text forms
// of numbers in "N" and "F" fields.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "TableBuilder.h"
#include "dbase/DBase.h"
#include "dbase/NumericText.h"

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
                        {L"2024\\07\\04", "20240704"},
                        {L"1999/12/3", nullptr},
                        {L"2024-13-01", nullptr},
                        {L"2024-01-32", nullptr},
                        {L"20240101", nullptr}});
    DBase::DateRec date = table_.GetFieldDate(kDay);
    EXPECT_EQ(std::wstring(date.year, 4) + std::wstring(date.month, 2) + std::wstring(date.day, 2),
              L"20240704");
    date.day[1] = L'5';
    EXPECT_TRUE(table_.SetFieldDate(kDay, date));
    EXPECT_EQ(Raw(kDay), "20240705");
}

TEST_F(DBaseValues, Logicals) {
    ExpectStored(kFlag, {{L" ", "?"},
                         {L"?", "?"},
                         {L"f", "N"},
                         {L"0", "N"},
                         {L"True", "Y"},
                         {L"y", "Y"},
                         {L"1", "Y"},
                         {L"x", nullptr},
                         {L"", nullptr}});
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
        {kName, L"ab", VT_BSTR, L"ab"},
        {kShort, L"12", VT_I2, L"12"},
        {kCount, L"123456", VT_I4, L"123456"},
        {kCount, nullptr, VT_I4, L"0"},
        {kPrice, L"2.5", VT_R4, L"2.5"},
        {kBig, L"100000000000", VT_R8, L"100000000000"},
        {kFloat, L"0.25", VT_R4, L"0.25"},
        {kWideFloat, L"0.125", VT_R8, L"0.125"},
        {kDay, L"2000-01-01", VT_DATE, L"2000-01-01"},
        {kDay, nullptr, VT_NULL, nullptr},
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
        {kFlag, Variant::I2(1), "Y"},
        {kPrice, Variant::R8(-0.5), "   -0.50"},
        {kCount, Variant::I4(77), "       77"},
        {kName, Variant::Bstr(L"xy"), "xy "},
        {kPrice, Variant::Bstr(L"1"), "        "},  // a type the field does not take leaves it null
        {kName, Variant::I4(77), "   "},
    };
    for (Case c : cases) {
        ASSERT_TRUE(table_.PutValue(c.field, c.value)) << c.stored;
        EXPECT_EQ(Raw(c.field), c.stored);
    }
}

TEST(NumericText, LayoutOfCallerText) {
    struct Case {
        const char* text;
        char type;
        int width, decimals;
        const char* out;  // nullptr: refused with status 17
    };
    const Case cases[] = {
        {"-12.345", 'N', 8, 2, "  -12.34"},  // the fraction is cut, not rounded
        {"7", 'N', 8, 2, "    7.00"},
        {"12.", 'N', 8, 2, "   12.00"},
        {"12.999", 'N', 6, 0, "    12"},
        {"12345", 'N', 5, 0, "12345"},  // a sign position only when there is room
        {"1234", 'N', 5, 0, " 1234"},
        {"123456789", 'N', 5, 0, "56789"},
        {"-0", 'N', 4, 0, "  -0"},              // every leading "-" counts
        {"1.23456", 'F', 10, 2, "   1.23456"},  // float fields keep their fraction
        {"3", 'F', 8, 2, "    3.00"},
        {"1.5e3", 'N', 8, 2, "   1.5e3"},  // exponent text is stored as it stands
        {"-1E10", 'F', 5, 0, "-1E10"},
        {"abc", 'N', 5, 0, "  abc"},  // only the marks are checked
        {"1.5e300", 'N', 5, 0, nullptr},
        {"1.2.3", 'N', 8, 2, nullptr},
        {"1e5.0", 'N', 8, 2, nullptr},
        {"1e5e6", 'N', 8, 2, nullptr},
    };
    for (const Case& c : cases) {
        std::string out(static_cast<size_t>(c.width), '#');
        int status = numeric_text::Layout(c.text, c.type, c.width, c.decimals, out.data());
        if (c.out) {
            EXPECT_EQ(status, 0) << c.text;
            EXPECT_EQ(out, c.out) << c.text;
        } else {
            EXPECT_EQ(status, 17) << c.text;
            EXPECT_EQ(out, std::string(static_cast<size_t>(c.width), '#')) << c.text;
        }
    }
}

TEST(NumericText, LayoutNeverWritesPastTheField) {
    for (const char* text : {"", "-", ".", "-.", "99999999999999999999.99999", "-1234567.1"}) {
        for (int width = 1; width <= 6; ++width) {
            for (int decimals = 0; decimals <= 4; ++decimals) {
                std::string out(static_cast<size_t>(width) + 4, '#');
                numeric_text::Layout(text, 'N', width, decimals, out.data());
                EXPECT_EQ(out.substr(static_cast<size_t>(width)), "####") << text << " " << width;
            }
        }
    }
}

// The field forms are the C library's printf forms, cut to the width.
TEST(NumericText, FormatsAsPrintf) {
    const double values[] = {0.0,
                             -0.0,
                             0.5,
                             2.5,
                             -2.5,
                             1.0 / 3,
                             -123.456,
                             1e-7,
                             9.9999999,
                             99999.995,
                             1234567890123.0,
                             -1e300,
                             4.9e-324,
                             1.7976931348623157e308,
                             HUGE_VAL,
                             -HUGE_VAL,
                             NAN};
    for (double value : values) {
        for (int width : {1, 5, 8, 9, 13, 19, 24, 40}) {
            for (int decimals : {0, 1, 3, 11, 15}) {
                if (decimals >= width) continue;
                char expected[512];
                int length =
                    std::snprintf(expected, sizeof expected, "%*.*f", width, decimals, value);
                if (length > width)
                    std::snprintf(expected, sizeof expected, "%*.*e", width, width - 8, value);
                std::string out(static_cast<size_t>(width), '#');
                numeric_text::FormatDouble(value, 'N', width, decimals, out.data());
                EXPECT_EQ(out, std::string(expected, static_cast<size_t>(width)))
                    << value << " " << width;
                std::snprintf(expected, sizeof expected, "%*.*e", width, width - 8, value);
                numeric_text::FormatDouble(value, 'F', width, decimals, out.data());
                EXPECT_EQ(out, std::string(expected, static_cast<size_t>(width)))
                    << value << " " << width;
            }
        }
    }
    // Too wide for the field: exponent form, whose precision is the width - 8.
    std::string out(12, '#');
    numeric_text::FormatDouble(1234567890123.0, 'N', 12, 0, out.data());
    EXPECT_EQ(out, "  1.2346e+12");
    for (int32_t value : {0, 7, -42, 12345, INT32_MAX, INT32_MIN}) {
        for (int width : {1, 3, 6, 11, 12}) {
            char expected[32];
            std::snprintf(expected, sizeof expected, "%*d", width, value);
            std::string out(static_cast<size_t>(width), '#');
            numeric_text::FormatInteger(value, width, out.data());
            EXPECT_EQ(out, std::string(expected, static_cast<size_t>(width)))
                << value << " " << width;
        }
    }
}

TEST(NumericText, ParsesExactlyAsStrtod) {
    const char* texts[] = {"  -12.34",
                           "      ",
                           "12ab",
                           "0.1",
                           "123456789012345",
                           "9007199254740993",
                           "0.000000000000000000001",
                           "  1.",
                           ".5",
                           "-0",
                           "00000000000000000012.5",
                           "3.14159265358979",
                           " +7 ",
                           "1 2",
                           "- 5",
                           "1.2.3",
                           "0x10",
                           "1e5",
                           "12345.678901234567",
                           "1.25000e+02",
                           " 4.7500001e+01",
                           "-1.5E-3",
                           "1e22",
                           "9e-23",
                           "1e23",
                           "1.5e",
                           "1.5e+",
                           "2e+400",
                           "1e-30",
                           "123456789012345e7",
                           "0.5e00001",
                           ".e1",
                           "1234567890123456789012345678901234567890"};
    for (const char* text : texts) {
        double expected = std::strtod(text, nullptr);
        double parsed = numeric_text::Parse(text, static_cast<int>(std::strlen(text)));
        EXPECT_EQ(std::memcmp(&parsed, &expected, sizeof parsed), 0) << text << " " << parsed;
    }
    const char withZero[] = {'1', '.', '5', '\0', '9', '9'};
    EXPECT_EQ(numeric_text::Parse(withZero, 6), 1.5);  // a zero byte ends the number
    EXPECT_EQ(numeric_text::TruncateToInt32(-2.9), -2);
    EXPECT_EQ(numeric_text::TruncateToInt32(2147483647.5), 2147483647);
    EXPECT_EQ(numeric_text::TruncateToInt32(1e20), INT32_MIN);
    EXPECT_EQ(numeric_text::TruncateToInt32(0.0 / 0.0), INT32_MIN);
}

}  // namespace
}  // namespace quillet
