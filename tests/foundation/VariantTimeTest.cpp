#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "foundation/Variant.h"

namespace quillet {
namespace {

SYSTEMTIME Time(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0) {
    SYSTEMTIME t{};
    t.wYear = static_cast<uint16_t>(y);
    t.wMonth = static_cast<uint16_t>(mo);
    t.wDay = static_cast<uint16_t>(d);
    t.wHour = static_cast<uint16_t>(h);
    t.wMinute = static_cast<uint16_t>(mi);
    t.wSecond = static_cast<uint16_t>(s);
    t.wMilliseconds = static_cast<uint16_t>(ms);
    return t;
}

DATE ToDate(const SYSTEMTIME& t) {
    DATE d = -12345;
    EXPECT_TRUE(SystemTimeToVariantTime(&t, &d));
    return d;
}

// "Y-M-D h:m:s dow" of a date, or "invalid".
std::string Describe(DATE date) {
    SYSTEMTIME t;
    if (!VariantTimeToSystemTime(date, &t)) return "invalid";
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d dow%d", t.wYear, t.wMonth,
                  t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds, t.wDayOfWeek);
    return text;
}

TEST(OleDate, DayZeroIsTheLastDayButOneOf1899) {
    EXPECT_EQ(ToDate(Time(1899, 12, 30)), 0.0);
    EXPECT_EQ(Describe(0.0), "1899-12-30 00:00:00.000 dow6");
    EXPECT_EQ(ToDate(Time(1899, 12, 31)), 1.0);
    EXPECT_EQ(ToDate(Time(1900, 1, 1)), 2.0);
    EXPECT_EQ(ToDate(Time(1900, 3, 1)), 61.0);  // 1900 is no leap year here
    EXPECT_EQ(ToDate(Time(2000, 1, 1)), 36526.0);
    EXPECT_EQ(Describe(36526.0), "2000-01-01 00:00:00.000 dow6");
    EXPECT_EQ(ToDate(Time(2024, 2, 29, 12)), 45351.5);
}

TEST(OleDate, NegativeDatesCountTheirFractionForwardFromTheDay) {
    EXPECT_EQ(Describe(-1.25), "1899-12-29 06:00:00.000 dow5");
    EXPECT_EQ(ToDate(Time(1899, 12, 29, 6)), -1.25);
    EXPECT_EQ(Describe(-1.0), "1899-12-29 00:00:00.000 dow5");
    EXPECT_EQ(Describe(-2.75), "1899-12-28 18:00:00.000 dow4");
    EXPECT_EQ(ToDate(Time(1899, 12, 28, 18)), -2.75);
    // Between -1 and 0 the day is day 0: -0.5 and 0.5 are the same moment.
    EXPECT_EQ(Describe(-0.5), "1899-12-30 12:00:00.000 dow6");
    EXPECT_EQ(Describe(0.5), Describe(-0.5));
}

TEST(OleDate, MillisecondsAreIgnoredOneWayAndRoundedAwayTheOther) {
    EXPECT_EQ(ToDate(Time(2000, 1, 1, 0, 0, 1, 999)), ToDate(Time(2000, 1, 1, 0, 0, 1)));
    const double second = 1.0 / 86400;
    EXPECT_EQ(Describe(36526.0 + 1.4 * second), "2000-01-01 00:00:01.000 dow6");
    EXPECT_EQ(Describe(36526.0 + 1.6 * second), "2000-01-01 00:00:02.000 dow6");
    // Rounding up at the end of a day moves to the next day, also for
    // negative dates, whose next day is the one nearer to zero.
    EXPECT_EQ(Describe(36526.0 - 0.2 * second), "2000-01-01 00:00:00.000 dow6");
    EXPECT_EQ(Describe(36525.0 + 86399.7 * second), "2000-01-01 00:00:00.000 dow6");
    EXPECT_EQ(Describe(-1.0 - 86399.7 * second), "1899-12-30 00:00:00.000 dow6");
}

TEST(OleDate, RangeIsYear100ToYear9999) {
    EXPECT_EQ(ToDate(Time(100, 1, 1)), -657434.0);
    EXPECT_EQ(ToDate(Time(9999, 12, 31)), 2958465.0);
    EXPECT_EQ(Describe(-657434.0), "100-01-01 00:00:00.000 dow5");
    EXPECT_EQ(Describe(-657434.5), "100-01-01 12:00:00.000 dow5");
    EXPECT_EQ(Describe(2958465.999), "9999-12-31 23:58:34.000 dow5");
    EXPECT_EQ(Describe(-657435.0), "invalid");
    EXPECT_EQ(Describe(2958466.0), "invalid");
    EXPECT_EQ(Describe(2958465.0 + 86399.9 / 86400), "invalid");  // rounds into year 10000
    EXPECT_EQ(Describe(std::nan("")), "invalid");

    DATE d;
    for (SYSTEMTIME bad :
         {Time(99, 12, 31), Time(10000, 1, 1), Time(2000, 13, 1), Time(2000, 0, 1),
          Time(2001, 2, 29), Time(2000, 4, 31), Time(2000, 1, 0), Time(2000, 1, 1, 24),
          Time(2000, 1, 1, 0, 60), Time(2000, 1, 1, 0, 0, 60)}) {
        EXPECT_FALSE(SystemTimeToVariantTime(&bad, &d)) << bad.wYear << "-" << bad.wMonth;
    }
    SYSTEMTIME leap = Time(2000, 2, 29);
    EXPECT_TRUE(SystemTimeToVariantTime(&leap, &d));
    EXPECT_FALSE(SystemTimeToVariantTime(nullptr, &d));
}

RC_GTEST_PROP(OleDateProperty, WholeSecondsRoundTrip, ()) {
    SYSTEMTIME t =
        Time(*rc::gen::inRange(100, 10000), *rc::gen::inRange(1, 13), *rc::gen::inRange(1, 29),
             *rc::gen::inRange(0, 24), *rc::gen::inRange(0, 60), *rc::gen::inRange(0, 60));
    DATE date;
    RC_ASSERT(SystemTimeToVariantTime(&t, &date) != 0);
    SYSTEMTIME back;
    RC_ASSERT(VariantTimeToSystemTime(date, &back) != 0);
    RC_ASSERT(back.wYear == t.wYear && back.wMonth == t.wMonth && back.wDay == t.wDay);
    RC_ASSERT(back.wHour == t.wHour && back.wMinute == t.wMinute && back.wSecond == t.wSecond);
    RC_ASSERT(back.wMilliseconds == 0);
}

}  // namespace
}  // namespace quillet
