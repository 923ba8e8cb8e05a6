#include "foundation/Variant.h"

#include <gtest/gtest.h>

#include <cmath>
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
    EXPECT_EQ(AsText(Variant::I2(-42)), L"-42");
    EXPECT_EQ(AsText(Variant::I4(2147483647)), L"2147483647");
    EXPECT_EQ(AsText(Variant::R8(0.1)), L"0.1");
    EXPECT_EQ(AsText(Variant::R8(1.0 / 3)), L"0.333333333333333");
    EXPECT_EQ(AsText(Variant::R8(1e20)), L"1E+20");
    EXPECT_EQ(AsText(Variant::R8(1.5e-5)), L"1.5E-05");
    EXPECT_EQ(AsText(Variant::R8(123456.0)), L"123456");
    EXPECT_EQ(AsText(Variant::R4(0.1f)), L"0.1");
    EXPECT_EQ(AsText(Variant::R4(1.0f / 3)), L"0.3333333");
    EXPECT_EQ(AsText(Bool(true)), L"-1");
    EXPECT_EQ(AsText(Bool(true), VARIANT_ALPHABOOL), L"True");
    EXPECT_EQ(AsText(Bool(false), VARIANT_ALPHABOOL), L"False");
    EXPECT_EQ(AsText(Variant()), L"");
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
    EXPECT_EQ(AsText(Variant::Date(36526.0)), L"2000-01-01");
    EXPECT_EQ(AsText(Variant::Date(36526.75)), L"2000-01-01 18:00:00");
    EXPECT_EQ(AsText(Variant::Date(0.5)), L"12:00:00");
    EXPECT_EQ(AsText(Variant::Date(-1.25)), L"1899-12-29 06:00:00");
    EXPECT_EQ(Converted(Variant::Bstr(L"2000-01-01 18:00:00"), VT_DATE).date, 36526.75);
    EXPECT_EQ(Converted(Variant::Bstr(L"2000/01/01"), VT_DATE).date, 36526.0);
    EXPECT_EQ(Converted(Variant::Bstr(L"1/2/2000 6:00"), VT_DATE).date, 36527.25);
    EXPECT_EQ(Converted(Variant::Bstr(L"12:00"), VT_DATE).date, 0.5);
    EXPECT_EQ(Converted(Variant::Bstr(L"1899-12-29 06:00:00"), VT_DATE).date, -1.25);
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

}  // namespace
}  // namespace quillet
