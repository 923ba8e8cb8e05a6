#pragma once

// The component model's tagged value, as field values and index keys carry it.
// Layout follows the published rules: a 16-bit type tag, three reserved 16-bit
// words, then an 8-byte value union. Strings are BSTRs: length-prefixed wide
// strings made by SysAllocString and freed by SysFreeString (or VariantClear).
// Dates are OLE dates: days since 1899-12-30, the fraction the time of day;
// for negative dates the fraction counts forward from the day, so -1.25 is
// 1899-12-29 06:00.

#include <cstdint>

#include "foundation/Export.h"
#include "foundation/HResult.h"
#include "foundation/String.h"

namespace quillet {

using VARTYPE = uint16_t;
using DATE = double;
using VARIANT_BOOL = int16_t;
inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

// Currency: a 64-bit integer scaled by 10,000.
union CY {
    struct {
        uint32_t Lo;
        int32_t Hi;
    } s;
    int64_t int64;
};

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
};

struct tagVARIANT {
    VARTYPE vt;
    uint16_t wReserved1;
    uint16_t wReserved2;
    uint16_t wReserved3;
    union {
        int64_t llVal;
        uint64_t ullVal;
        int32_t lVal;
        uint32_t ulVal;
        int16_t iVal;
        uint16_t uiVal;
        int8_t cVal;
        uint8_t bVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        int32_t scode;
        CY cyVal;
        DATE date;
        BSTR bstrVal;
        void* byref;
    };
};
using VARIANT = tagVARIANT;
static_assert(sizeof(tagVARIANT) == 16, "VARIANT is 16 bytes: tag, reserved words, value");

struct SYSTEMTIME {
    uint16_t wYear;
    uint16_t wMonth;
    uint16_t wDayOfWeek;
    uint16_t wDay;
    uint16_t wHour;
    uint16_t wMinute;
    uint16_t wSecond;
    uint16_t wMilliseconds;
};

QUILLET_EXPORT BSTR SysAllocString(const wchar_t* text);
QUILLET_EXPORT BSTR SysAllocStringLen(const wchar_t* text, uint32_t length);
QUILLET_EXPORT void SysFreeString(BSTR text);
QUILLET_EXPORT uint32_t SysStringLen(BSTR text);

QUILLET_EXPORT void VariantInit(VARIANT* v);
QUILLET_EXPORT HRESULT VariantClear(VARIANT* v);
QUILLET_EXPORT HRESULT VariantCopy(VARIANT* destination, const VARIANT* source);
// Flag of VariantChangeType: a VT_BOOL becomes the text "True" or "False"
// (else "-1" or "0").
inline constexpr uint16_t VARIANT_ALPHABOOL = 0x02;

// Converts `source` to type `vt` into `destination` (which may be `source`);
// on failure `destination` is left as it was. Supported among VT_EMPTY,
// VT_NULL, VT_BOOL, VT_CY, VT_DATE, VT_BSTR, VT_R4, VT_R8 and the integer
// types. Numbers convert to text with "." (15 significant digits for VT_R8,
// 7 for VT_R4) and from text in that invariant form; fractions round to the
// nearest integer, ties to even. Dates convert to text as "YYYY-MM-DD", with
// " HH:MM:SS" when there is a time of day (the time alone on 1899-12-30), and
// back from that form or "M/D/YYYY [H:MM[:SS]]". VT_NULL converts only to
// VT_NULL and VT_EMPTY. Returns S_OK, DISP_E_TYPEMISMATCH (no such
// conversion, or text that is not a value), DISP_E_OVERFLOW (out of the
// target's range) or DISP_E_BADVARTYPE (an unknown type).
QUILLET_EXPORT HRESULT VariantChangeType(VARIANT* destination, const VARIANT* source,
                                         uint16_t flags, VARTYPE vt);

// Nonzero on success; the valid range is 100-01-01 to 9999-12-31. As
// published, SystemTimeToVariantTime ignores the milliseconds and
// VariantTimeToSystemTime rounds to the nearest second (milliseconds 0).
QUILLET_EXPORT int SystemTimeToVariantTime(const SYSTEMTIME* time, DATE* date);
QUILLET_EXPORT int VariantTimeToSystemTime(DATE date, SYSTEMTIME* time);

// RAII owner of a VARIANT: initialised empty, cleared on destruction.
class QUILLET_EXPORT Variant : public tagVARIANT {
public:
    Variant() { VariantInit(this); }
    Variant(const Variant& other);
    Variant& operator=(const Variant& other);
    ~Variant() { VariantClear(this); }

    static Variant I2(int16_t value);
    static Variant I4(int32_t value);
    static Variant R4(float value);
    static Variant R8(double value);
    static Variant Date(DATE value);
    static Variant Bstr(const wchar_t* text);
    static Variant Null();

    void Clear() { VariantClear(this); }
};

}  // namespace quillet
