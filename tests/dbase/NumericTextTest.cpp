// The text forms of numbers in "N" and "F" fields.

#include "dbase/NumericText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace quillet {
namespace {

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
    const double values[] = {0.0, -0.0, 0.5, 2.5, -2.5, 1.0 / 3, -123.456, 1e-7, 9.9999999,
                             99999.995, 1234567890123.0, -1e300, 4.9e-324, 1.7976931348623157e308,
                             HUGE_VAL, -HUGE_VAL, NAN};
    for (double value : values) {
        for (int width : {1, 5, 8, 9, 13, 19, 24, 40}) {
            for (int decimals : {0, 1, 3, 11, 15}) {
                if (decimals >= width) continue;
                char expected[512];
                int length = std::snprintf(expected, sizeof expected, "%*.*f", width, decimals, value);
                if (length > width) std::snprintf(expected, sizeof expected, "%*.*e", width, width - 8, value);
                std::string out(static_cast<size_t>(width), '#');
                numeric_text::FormatDouble(value, 'N', width, decimals, out.data());
                EXPECT_EQ(out, std::string(expected, static_cast<size_t>(width))) << value << " " << width;
                std::snprintf(expected, sizeof expected, "%*.*e", width, width - 8, value);
                numeric_text::FormatDouble(value, 'F', width, decimals, out.data());
                EXPECT_EQ(out, std::string(expected, static_cast<size_t>(width))) << value << " " << width;
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
            EXPECT_EQ(out, std::string(expected, static_cast<size_t>(width))) << value << " " << width;
        }
    }
}

TEST(NumericText, ParsesExactlyAsStrtod) {
    const char* texts[] = {
        "  -12.34", "      ", "12ab", "0.1", "123456789012345", "9007199254740993",
        "0.000000000000000000001", "  1.", ".5", "-0", "00000000000000000012.5", "3.14159265358979",
        " +7 ", "1 2", "- 5", "1.2.3", "0x10", "1e5", "12345.678901234567", "1.25000e+02",
        " 4.7500001e+01", "-1.5E-3", "1e22", "9e-23", "1e23", "1.5e", "1.5e+", "2e+400", "1e-30",
        "123456789012345e7", "0.5e00001", ".e1", "1234567890123456789012345678901234567890"};
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
