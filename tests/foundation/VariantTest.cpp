#include "foundation/Variant.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

namespace quillet {
namespace {

std::wstring Text(const VARIANT& v) {
    return v.vt == VT_BSTR ? std::wstring(v.bstrVal, SysStringLen(v.bstrVal)) : L"<not text>";
}

// The result of converting `source` to `vt` as text, or the failure code.
std::wstring AsText(const Variant& source, uint16_t flags = 0) {
    Variant out;
    HRESULT hr = VariantChangeType(&out, &source, flags, VT_BSTR);
    return SUCCEEDED(hr) ? Text(out) : L"error " + std::to_wstring(static_cast<uint32_t>(hr));
}

Variant Converted(const Variant& source, VARTYPE vt, HRESULT expected = S_OK) {
    Variant out;
    EXPECT_EQ(VariantChangeType(&out, &source, 0, vt), expected);
    if (expected == S_OK) {
        EXPECT_EQ(out.vt, vt);
    }
    return out;
}

Variant Bool(bool value) {
    Variant v;
    v.vt = VT_BOOL;
    v.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return v;
}

Variant Currency(int64_t scaled) {
    Variant v;
    v.vt = VT_CY;
    v.cyVal.int64 = scaled;
    return v;
}

TEST(Bstr, IsLengthPrefixedAndMayHoldZeros) {
    BSTR s = SysAllocString(L"hello");
    EXPECT_EQ(SysStringLen(s), 5u);
    EXPECT_STREQ(s, L"hello");
    SysFreeString(s);

    const wchar_t withZero[] = {L'a', L'\0', L'b'};
    s = SysAllocStringLen(withZero, 3);
    EXPECT_EQ(SysStringLen(s), 3u);
    EXPECT_EQ(s[2], L'b');
    EXPECT_EQ(s[3], L'\0');
    SysFreeString(s);

    s = SysAllocStringLen(nullptr, 4);  // room for 4, zeroed
    EXPECT_EQ(SysStringLen(s), 4u);
    EXPECT_EQ(s[0], L'\0');
    SysFreeString(s);

    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    SysFreeString(nullptr);
    EXPECT_EQ(SysAllocStringLen(L"x", 0xFFFFFFFFu), nullptr);
}

TEST(VariantLifetime, ClearFreesAndCopyDuplicatesText) {
    Variant a = Variant::Bstr(L"text");
    Variant b = a;
    EXPECT_NE(a.bstrVal, b.bstrVal);
    EXPECT_EQ(Text(b), L"text");
    b = Variant::I4(7);
    EXPECT_EQ(b.vt, VT_I4);
    a.Clear();
    EXPECT_EQ(a.vt, VT_EMPTY);

    VARIANT bad;
    VariantInit(&bad);
    bad.vt = 0x0FFF;
    EXPECT_EQ(VariantClear(&bad), DISP_E_BADVARTYPE);
    Variant target;
    EXPECT_EQ(VariantCopy(&target, &bad), DISP_E_BADVARTYPE);
    EXPECT_EQ(VariantClear(nullptr), E_INVALIDARG);
}

TEST(VariantChangeType, BetweenNumbersRoundsTiesToEvenAndChecksRanges) {
    EXPECT_EQ(Converted(Variant::R8(2.5), VT_I4).lVal, 2);
    EXPECT_EQ(Converted(Variant::R8(3.5), VT_I4).lVal, 4);
    EXPECT_EQ(Converted(Variant::R8(-2.5), VT_I2).iVal, -2);
    EXPECT_EQ(Converted(Variant::R4(1.75f), VT_I2).iVal, 2);
    EXPECT_EQ(Converted(Variant::I4(32767), VT_I2).iVal, 32767);
    Converted(Variant::I4(32768), VT_I2, DISP_E_OVERFLOW);
    Converted(Variant::R8(2147483647.6), VT_I4, DISP_E_OVERFLOW);
    Converted(Variant::R8(std::nan("")), VT_I4, DISP_E_OVERFLOW);
    Converted(Variant::R8(1e39), VT_R4, DISP_E_OVERFLOW);
    EXPECT_TRUE(std::isinf(Converted(Variant::R8(INFINITY), VT_R4).fltVal));
    EXPECT_EQ(Converted(Variant::I2(-3), VT_R8).dblVal, -3.0);
    EXPECT_FLOAT_EQ(Converted(Variant::R8(0.1), VT_R4).fltVal, 0.1f);
    EXPECT_EQ(Converted(Variant::I4(40000), VT_DATE).date, 40000.0);
    EXPECT_EQ(Converted(Variant::Date(45351.5), VT_R8).dblVal, 45351.5);
    EXPECT_EQ(Converted(Variant::Date(45351.5), VT_I4).lVal, 45352);
    Converted(Variant::R8(3e6), VT_DATE, DISP_E_OVERFLOW);
    Converted(Variant::R8(-657435), VT_DATE, DISP_E_OVERFLOW);
}

TEST(VariantChangeType, CurrencyIsScaledByTenThousand) {
    EXPECT_EQ(Converted(Variant::R8(1.23456), VT_CY).cyVal.int64, 12346);
    EXPECT_EQ(Converted(Variant::I4(-2), VT_CY).cyVal.int64, -20000);
    EXPECT_EQ(Converted(Currency(15000), VT_R8).dblVal, 1.5);
    EXPECT_EQ(Converted(Currency(25000), VT_I4).lVal, 2);  // 2.5 to even
    EXPECT_EQ(Converted(Currency(35000), VT_I4).lVal, 4);
    EXPECT_EQ(Converted(Currency(-25001), VT_I4).lVal, -3);
    EXPECT_EQ(AsText(Currency(15000)), L"1.5");
    EXPECT_EQ(AsText(Currency(-5)), L"-0.0005");
    EXPECT_EQ(AsText(Currency(INT64_MIN)), L"-922337203685477.5808");
    Converted(Variant::R8(1e16), VT_CY, DISP_E_OVERFLOW);
}

TEST(VariantChangeType, NumbersToTextUseThePointAndSignificantDigits) {
    const std::pair<Variant, const wchar_t*> cases[] = {
        {Variant::I2(-42), L"-42"},
        {Variant::I4(2147483647), L"2147483647"},
        {Variant::R8(0.1), L"0.1"},
        {Variant::R8(1.0 / 3), L"0.333333333333333"},
        {Variant::R8(1e20), L"1E+20"},
        {Variant::R8(1.5e-5), L"1.5E-05"},
        {Variant::R8(123456.0), L"123456"},
        {Variant::R4(0.1f), L"0.1"},
        {Variant::R4(1.0f / 3), L"0.3333333"},
        {Bool(true), L"-1"},
        {Variant(), L""},
    };
    for (const auto& [value, text] : cases) EXPECT_EQ(AsText(value), text);
    EXPECT_EQ(AsText(Bool(true), VARIANT_ALPHABOOL), L"True");
    EXPECT_EQ(AsText(Bool(false), VARIANT_ALPHABOOL), L"False");
}

TEST(VariantChangeType, TextToNumbersTakesTheInvariantFormOnly) {
    EXPECT_EQ(Converted(Variant::Bstr(L" 42 "), VT_I4).lVal, 42);
    EXPECT_EQ(Converted(Variant::Bstr(L"+7"), VT_I2).iVal, 7);
    EXPECT_EQ(Converted(Variant::Bstr(L"2.5"), VT_I4).lVal, 2);
    EXPECT_EQ(Converted(Variant::Bstr(L"-1.5e2"), VT_R8).dblVal, -150.0);
    EXPECT_EQ(Converted(Variant::Bstr(L".5"), VT_R8).dblVal, 0.5);
    EXPECT_EQ(Converted(Variant::Bstr(L"3."), VT_R4).fltVal, 3.0f);
    EXPECT_EQ(Converted(Variant::Bstr(L"9223372036854775807"), VT_I8).llVal, INT64_MAX);
    EXPECT_EQ(Converted(Variant::Bstr(L"1.25"), VT_CY).cyVal.int64, 12500);
    for (const wchar_t* bad : {L"", L"abc", L"1,5", L"1.2.3", L"1e", L"--1", L"inf", L"nan",
                               L"0x10", L"12abc", L"\u0661"}) {
        Converted(Variant::Bstr(bad), VT_R8, DISP_E_TYPEMISMATCH);
    }
    Converted(Variant::Bstr(L"40000"), VT_I2, DISP_E_OVERFLOW);
    Converted(Variant::Bstr(L"1e999"), VT_R8, DISP_E_OVERFLOW);
}

TEST(VariantChangeType, DatesToTextAndBack) {
    for (auto [date, text] : {std::pair{36526.0, L"2000-01-01"},
                              {36526.75, L"2000-01-01 18:00:00"},
                              {0.5, L"12:00:00"},
                              {-1.25, L"1899-12-29 06:00:00"}}) {
        EXPECT_EQ(AsText(Variant::Date(date)), text);
        EXPECT_EQ(Converted(Variant::Bstr(text), VT_DATE).date, date) << text;
    }
    EXPECT_EQ(Converted(Variant::Bstr(L"2000/01/01"), VT_DATE).date, 36526.0);
    EXPECT_EQ(Converted(Variant::Bstr(L"1/2/2000 6:00"), VT_DATE).date, 36527.25);
    EXPECT_EQ(Converted(Variant::Bstr(L"12:00"), VT_DATE).date, 0.5);
    for (const wchar_t* bad : {L"2000-01", L"2000-01-01 25", L"01-01-2000x", L"yesterday",
                               L"2000-01-01 12:00:00:00", L"2000-01-01  12:00", L"1.5"}) {
        Converted(Variant::Bstr(bad), VT_DATE, DISP_E_TYPEMISMATCH);
    }
    Converted(Variant::Bstr(L"2000-02-30"), VT_DATE, DISP_E_OVERFLOW);
}

TEST(VariantChangeType, BooleansEmptyAndNull) {
    EXPECT_EQ(Converted(Variant::I4(5), VT_BOOL).boolVal, VARIANT_TRUE);
    EXPECT_EQ(Converted(Variant::R8(0.0), VT_BOOL).boolVal, VARIANT_FALSE);
    EXPECT_EQ(Converted(Variant::Bstr(L" true"), VT_BOOL).boolVal, VARIANT_TRUE);
    EXPECT_EQ(Converted(Variant::Bstr(L"FALSE"), VT_BOOL).boolVal, VARIANT_FALSE);
    EXPECT_EQ(Converted(Variant::Bstr(L"0"), VT_BOOL).boolVal, VARIANT_FALSE);
    EXPECT_EQ(Converted(Bool(true), VT_I2).iVal, -1);

    EXPECT_EQ(Converted(Variant(), VT_I4).lVal, 0);
    EXPECT_EQ(Converted(Variant(), VT_NULL).vt, VT_NULL);
    Converted(Variant::Null(), VT_I4, DISP_E_TYPEMISMATCH);
    Converted(Variant::Null(), VT_BSTR, DISP_E_TYPEMISMATCH);
    Converted(Variant::I4(1), VT_NULL, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Converted(Variant::Null(), VT_NULL).vt, VT_NULL);
    EXPECT_EQ(Converted(Variant::Null(), VT_EMPTY).vt, VT_EMPTY);
    Converted(Variant::I4(1), 0x0FFF, DISP_E_BADVARTYPE);
    Converted(Variant::I4(1), VT_ERROR, DISP_E_TYPEMISMATCH);
}

TEST(VariantChangeType, InPlaceAndFailureLeaveThingsConsistent) {
    Variant v = Variant::Bstr(L"12");
    ASSERT_EQ(VariantChangeType(&v, &v, 0, VT_I4), S_OK);
    EXPECT_EQ(v.vt, VT_I4);
    EXPECT_EQ(v.lVal, 12);
    ASSERT_EQ(VariantChangeType(&v, &v, 0, VT_BSTR), S_OK);
    EXPECT_EQ(Text(v), L"12");

    Variant target = Variant::Bstr(L"kept");
    Variant source = Variant::Bstr(L"not a number");
    EXPECT_EQ(VariantChangeType(&target, &source, 0, VT_R8), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(Text(target), L"kept");
    EXPECT_EQ(VariantChangeType(nullptr, &source, 0, VT_R8), E_INVALIDARG);
}

// Every supported pair converts a small whole number and back unchanged,
// except dates and text, which meet as date text (tested above).
TEST(VariantChangeType, MatrixOfSupportedTypesRoundTripsSeven) {
    const VARTYPE types[] = {VT_I1,  VT_UI1,  VT_I2, VT_UI2, VT_I4, VT_UI4,  VT_I8,  VT_UI8,
                             VT_INT, VT_UINT, VT_R4, VT_R8,  VT_CY, VT_DATE, VT_BSTR};
    for (VARTYPE from : types) {
        Variant start = Converted(Variant::I4(7), from);
        for (VARTYPE to : types) {
            if ((from == VT_DATE && to == VT_BSTR) || (from == VT_BSTR && to == VT_DATE)) continue;
            Variant there = Converted(start, to);
            Variant back = Converted(there, VT_I4);
            EXPECT_EQ(back.lVal, 7) << from << " -> " << to;
        }
    }
}

// OLE dates: days since 1899-12-30, the fraction the time of day.
SYSTEMTIME Time(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0) {
    auto u = [](int v) { return static_cast<uint16_t>(v); };
    return SYSTEMTIME{u(y), u(mo), 0, u(d), u(h), u(mi), u(s), u(ms)};
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

// Day 0 is the last day but one of 1899; the range is year 100 to year 9999.
TEST(OleDate, WholeSecondsConvertExactlyBothWays) {
    const struct {
        SYSTEMTIME time;
        DATE date;
        const char* text;
    } cases[] = {
        {Time(1899, 12, 30), 0.0, "1899-12-30 00:00:00.000 dow6"},
        {Time(1899, 12, 31), 1.0, "1899-12-31 00:00:00.000 dow0"},
        {Time(1900, 1, 1), 2.0, "1900-01-01 00:00:00.000 dow1"},
        {Time(1900, 3, 1), 61.0, "1900-03-01 00:00:00.000 dow4"},  // 1900 is no leap year here
        {Time(2000, 1, 1), 36526.0, "2000-01-01 00:00:00.000 dow6"},
        {Time(2024, 2, 29, 12), 45351.5, "2024-02-29 12:00:00.000 dow4"},
        // Negative dates count their fraction forward from the day.
        {Time(1899, 12, 29), -1.0, "1899-12-29 00:00:00.000 dow5"},
        {Time(1899, 12, 29, 6), -1.25, "1899-12-29 06:00:00.000 dow5"},
        {Time(1899, 12, 28, 18), -2.75, "1899-12-28 18:00:00.000 dow4"},
        {Time(100, 1, 1), -657434.0, "100-01-01 00:00:00.000 dow5"},
        {Time(9999, 12, 31), 2958465.0, "9999-12-31 00:00:00.000 dow5"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ToDate(c.time), c.date) << c.text;
        EXPECT_EQ(Describe(c.date), c.text);
    }
    // Milliseconds are ignored on the way in.
    EXPECT_EQ(ToDate(Time(2000, 1, 1, 0, 0, 1, 999)), ToDate(Time(2000, 1, 1, 0, 0, 1)));
}

TEST(OleDate, FractionsRoundToTheSecondOnTheWayOut) {
    const double second = 1.0 / 86400;
    const std::pair<DATE, const char*> cases[] = {
        // Between -1 and 0 the day is day 0: -0.5 and 0.5 are the same moment.
        {-0.5, "1899-12-30 12:00:00.000 dow6"},
        {0.5, "1899-12-30 12:00:00.000 dow6"},
        {-657434.5, "100-01-01 12:00:00.000 dow5"},
        {2958465.999, "9999-12-31 23:58:34.000 dow5"},
        {36526 + 1.4 * second, "2000-01-01 00:00:01.000 dow6"},
        {36526 + 1.6 * second, "2000-01-01 00:00:02.000 dow6"},
        // Rounding up at the end of a day moves to the next day, also for
        // negative dates, whose next day is the one nearer to zero.
        {36526 - 0.2 * second, "2000-01-01 00:00:00.000 dow6"},
        {36525 + 86399.7 * second, "2000-01-01 00:00:00.000 dow6"},
        {-1 - 86399.7 * second, "1899-12-30 00:00:00.000 dow6"},
        {-657435.0, "invalid"},
        {2958466.0, "invalid"},
        {std::nan(""), "invalid"},
        {2958465 + 86399.9 * second, "invalid"},  // rounds into year 10000
    };
    for (auto [date, text] : cases) EXPECT_EQ(Describe(date), text) << date;
}

TEST(OleDate, ImpossibleTimesAreRefused) {
    DATE d;
    for (SYSTEMTIME bad :
         {Time(99, 12, 31), Time(10000, 1, 1), Time(2000, 13, 1), Time(2000, 0, 1),
          Time(2001, 2, 29), Time(2000, 4, 31), Time(2000, 1, 0), Time(2000, 1, 1, 24),
          Time(2000, 1, 1, 0, 60), Time(2000, 1, 1, 0, 0, 60)}) {
        EXPECT_FALSE(SystemTimeToVariantTime(&bad, &d)) << bad.wYear << "-" << bad.wMonth;
    }
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
