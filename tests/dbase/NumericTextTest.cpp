// The text forms of numbers in "N" and "F" fields.

#include "dbase/NumericText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace quillet {
namespace {

// The field bytes Layout makes, or "status N" when it refuses the text.
std::string Layout(const char* text, char type, int width, int decimals) {
    std::string out(static_cast<size_t>(width), '#');
    int status = numeric_text::Layout(text, type, width, decimals, out.data());
    return status == 0 ? out : "status " + std::to_string(status);
}

std::string Double(double value, char type, int width, int decimals) {
    std::string out(static_cast<size_t>(width), '#');
    numeric_text::FormatDouble(value, type, width, decimals, out.data());
    return out;
}

TEST(NumericLayout, FractionIsCutNotRounded) {
    EXPECT_EQ(Layout("-12.345", 'N', 8, 2), "  -12.34");
    EXPECT_EQ(Layout("7", 'N', 8, 2), "    7.00");
    EXPECT_EQ(Layout("1.5", 'N', 8, 2), "    1.50");
    EXPECT_EQ(Layout("12.", 'N', 8, 2), "   12.00");
    EXPECT_EQ(Layout("12.999", 'N', 6, 0), "    12");
}

TEST(NumericLayout, SignPositionIsReservedOnlyWhenThereIsRoom) {
    EXPECT_EQ(Layout("12345", 'N', 5, 0), "12345");
    EXPECT_EQ(Layout("1234", 'N', 5, 0), " 1234");
    EXPECT_EQ(Layout("123456789", 'N', 5, 0), "56789");
    EXPECT_EQ(Layout("-0", 'N', 4, 0), "  -0");  // every leading "-" counts
}

TEST(NumericLayout, FloatFieldsKeepTheirFraction) {
    EXPECT_EQ(Layout("1.23456", 'F', 10, 2), "   1.23456");
    EXPECT_EQ(Layout("3", 'F', 8, 2), "    3.00");
}

TEST(NumericLayout, ExponentTextIsStoredAsItStands) {
    EXPECT_EQ(Layout("1.5e3", 'N', 8, 2), "   1.5e3");
    EXPECT_EQ(Layout("-1E10", 'F', 5, 0), "-1E10");
    EXPECT_EQ(Layout("1.5e300", 'N', 5, 0), "status 17");
}

TEST(NumericLayout, MalformedMarksAreRefused) {
    EXPECT_EQ(Layout("1.2.3", 'N', 8, 2), "status 17");
    EXPECT_EQ(Layout("1e5.0", 'N', 8, 2), "status 17");
    EXPECT_EQ(Layout("1e5e6", 'N', 8, 2), "status 17");
    // Nothing else is checked.
    EXPECT_EQ(Layout("abc", 'N', 5, 0), "  abc");
}

TEST(NumericLayout, NeverWritesPastTheField) {
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

TEST(NumericFormat, NumberFieldsFallBackToExponentForm) {
    EXPECT_EQ(Double(3.14159, 'N', 8, 2), "    3.14");
    EXPECT_EQ(Double(2.5, 'N', 4, 0), "   2");  // printf rounds ties to even
    EXPECT_EQ(Double(1234567890123.0, 'N', 12, 0), "  1.2346e+12");
    EXPECT_EQ(Double(1.5, 'F', 13, 3), "  1.50000e+00");
    EXPECT_EQ(Double(-1e300, 'N', 19, 11), "-1.00000000000e+300");
}

TEST(NumericFormat, IntegersKeepTheirFirstCharacters) {
    std::string out(3, '#');
    numeric_text::FormatInteger(12345, 3, out.data());
    EXPECT_EQ(out, "123");
    std::string wide(6, '#');
    numeric_text::FormatInteger(-42, 6, wide.data());
    EXPECT_EQ(wide, "   -42");
}

TEST(NumericParse, ReadsLikeAtof) {
    EXPECT_DOUBLE_EQ(numeric_text::Parse("  -12.34", 8), -12.34);
    EXPECT_DOUBLE_EQ(numeric_text::Parse("      ", 6), 0.0);
    EXPECT_DOUBLE_EQ(numeric_text::Parse("12ab", 4), 12.0);
    EXPECT_DOUBLE_EQ(numeric_text::Parse("1.5e+02", 7), 150.0);
    EXPECT_DOUBLE_EQ(numeric_text::Parse("1.5\0" "99", 6), 1.5);
}

TEST(NumericParse, DecimalsReadExactlyAsStrtod) {
    const char* texts[] = {"0.1", "  -0.3", "123456789012345", "9007199254740993", "0.000000000000000000001",
                           "  1.", ".5", "-0", "00000000000000000012.5", "3.14159265358979", " +7 ", "1 2",
                           "- 5", "1.2.3", "  ", "0x10", "1e5", "12345.678901234567", "1.25000e+02",
                           " 4.7500001e+01", "-1.5E-3", "1e22", "9e-23", "1e23", "1.5e", "1.5e+", "2e+400",
                           "1e-30", "123456789012345e7", "0.5e00001", ".e1",
                           "1234567890123456789012345678901234567890"};
    for (const char* text : texts) {
        double expected = std::strtod(text, nullptr);
        double parsed = numeric_text::Parse(text, static_cast<int>(std::strlen(text)));
        EXPECT_EQ(std::memcmp(&parsed, &expected, sizeof parsed), 0) << text << " " << parsed;
    }
}

TEST(NumericParse, TruncationToInt32) {
    EXPECT_EQ(numeric_text::TruncateToInt32(-2.9), -2);
    EXPECT_EQ(numeric_text::TruncateToInt32(2147483647.5), 2147483647);
    EXPECT_EQ(numeric_text::TruncateToInt32(1e20), INT32_MIN);
    EXPECT_EQ(numeric_text::TruncateToInt32(0.0 / 0.0), INT32_MIN);
}

}  // namespace
}  // namespace quillet
