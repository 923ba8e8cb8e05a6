// DBase: field values as component-model variants.

#include <cstdio>

#include "dbase/DBase.h"

namespace quillet {

namespace {

// The leading decimal number of a few wide characters, as _wtoi reads it.
int ParseDigits(const wchar_t* text, int count) {
    int i = 0;
    while (i < count && text[i] == L' ') ++i;
    int value = 0;
    for (; i < count && text[i] >= L'0' && text[i] <= L'9'; ++i) value = value * 10 + (text[i] - L'0');
    return value;
}

VARTYPE VariantTypeOf(char type, int width, int decimals) {
    switch (type) {
        case DBase::qovaCharacter:
            return VT_BSTR;
        case DBase::qovaDate:
            return VT_DATE;
        case DBase::qovaFloat:
            return width < 14 ? VT_R4 : VT_R8;
        case DBase::qovaLogical:
            return VT_I2;
        case DBase::qovaNumeric:
            if (decimals == 0) return width < 5 ? VT_I2 : width < 10 ? VT_I4 : VT_R8;
            return width <= 8 ? VT_R4 : VT_R8;
        default:
            return VT_EMPTY;
    }
}

}  // namespace

bool DBase::GetValue(int32_t field, tagVARIANT& value) {
    VariantClear(&value);
    if (field < 0 || field >= GetNumFields()) {
        status_ = kStatusBadField;
        return false;
    }
    char type = GetFieldType(field);
    switch (VariantTypeOf(type, GetFieldWidth(field), GetFieldDecimals(field))) {
        case VT_BSTR:
            value.bstrVal = GetFieldString(field).MakeBSTR();
            value.vt = VT_BSTR;
            break;
        case VT_DATE: {
            DateRec date = GetFieldDate(field);
            SYSTEMTIME time{};
            time.wYear = static_cast<uint16_t>(ParseDigits(date.year, 4));
            time.wMonth = static_cast<uint16_t>(ParseDigits(date.month, 2));
            time.wDay = static_cast<uint16_t>(ParseDigits(date.day, 2));
            // A blank date (and one no calendar holds) has no value.
            if (time.wYear != 0 && SystemTimeToVariantTime(&time, &value.date)) {
                value.vt = VT_DATE;
            } else {
                value.vt = VT_NULL;
            }
            break;
        }
        case VT_I2:
            value.iVal = static_cast<int16_t>(GetFieldInteger(field));
            value.vt = VT_I2;
            break;
        case VT_I4:
            value.lVal = GetFieldInteger(field);
            value.vt = VT_I4;
            break;
        case VT_R4:
            value.fltVal = static_cast<float>(GetFieldDouble(field));
            value.vt = VT_R4;
            break;
        case VT_R8:
            value.dblVal = GetFieldDouble(field);
            value.vt = VT_R8;
            break;
        default:
            status_ = kStatusNoRecord;
            return false;
    }
    return status_ == kStatusOk;
}

bool DBase::PutValue(int32_t field, tagVARIANT& value) {
    if (field < 0 || field >= GetNumFields()) {
        status_ = kStatusBadField;
        return false;
    }
    if (!SetFieldNull(field)) return false;
    switch (GetFieldType(field)) {
        case qovaCharacter:
            if (value.vt == VT_BSTR) return SetFieldString(field, String(value.bstrVal ? value.bstrVal : L""));
            return true;
        case qovaDate: {
            if (value.vt != VT_DATE) return true;
            SYSTEMTIME time{};
            if (!VariantTimeToSystemTime(value.date, &time)) return true;
            char text[16];
            std::snprintf(text, sizeof text, "%04d%02d%02d", time.wYear, time.wMonth, time.wDay);
            DateRec date;
            for (int i = 0; i < 4; ++i) date.year[i] = static_cast<unsigned char>(text[i]);
            for (int i = 0; i < 2; ++i) date.month[i] = static_cast<unsigned char>(text[4 + i]);
            for (int i = 0; i < 2; ++i) date.day[i] = static_cast<unsigned char>(text[6 + i]);
            return SetFieldDate(field, date);
        }
        case qovaFloat:
        case qovaNumeric:
            switch (value.vt) {
                case VT_I2:
                    return SetFieldInteger(field, value.iVal);
                case VT_I4:
                    return SetFieldInteger(field, value.lVal);
                case VT_R4:
                    return SetFieldFloat(field, value.fltVal);
                case VT_R8:
                    return SetFieldDouble(field, value.dblVal);
                default:
                    return true;
            }
        case qovaLogical:
            // Only 1 is true: VARIANT_TRUE (-1) is stored as false.
            if (value.vt == VT_I2) return SetFieldLogical(field, value.iVal == 1);
            return true;
        default:
            VariantClear(&value);
            value.vt = VT_EMPTY;
            status_ = kStatusNoRecord;
            return false;
    }
}

}  // namespace quillet
