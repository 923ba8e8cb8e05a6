// VariantChangeType: every conversion goes through one of three forms of a
// number (an exact integer, a double, or currency in ten-thousandths), read
// from the source once, except conversions to text and text to dates, which
// need the source's own type.

#include <cctype>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cwchar>
#include <string>
#include <string_view>

#include "foundation/String.h"
#include "foundation/Variant.h"

namespace quillet {

namespace {

constexpr int64_t kCurrencyScale = 10000;
// Day numbers of 100-01-01 and 10000-01-01.
constexpr double kFirstDate = -657434.0;
constexpr double kEndDate = 2958466.0;

struct Number {
    enum Kind { kInteger, kReal, kCurrency } kind = kInteger;
    int64_t integer = 0;  // kInteger: the value; kCurrency: the value x 10,000
    double real = 0;
};

std::wstring_view S_Trim(std::wstring_view text) {
    while (!text.empty() && text.front() == L' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == L' ') text.remove_suffix(1);
    return text;
}

// The invariant number form: [sign] digits [. digits] [e [sign] digits], with
// at least one digit before the exponent. Whole numbers that fit stay exact.
HRESULT S_ParseNumber(std::wstring_view text, Number* n) {
    text = S_Trim(text);
    std::string ascii;
    for (wchar_t c : text) {
        if (c > 0x7F) return DISP_E_TYPEMISMATCH;
        ascii += static_cast<char>(c);
    }
    size_t i = 0;
    bool negative = false;
    if (i < ascii.size() && (ascii[i] == '+' || ascii[i] == '-')) negative = ascii[i++] == '-';
    size_t digitsStart = i;
    size_t digits = 0;
    while (i < ascii.size() && std::isdigit(static_cast<unsigned char>(ascii[i]))) ++i, ++digits;
    bool integral = true;
    if (i < ascii.size() && ascii[i] == '.') {
        integral = false;
        ++i;
        while (i < ascii.size() && std::isdigit(static_cast<unsigned char>(ascii[i])))
            ++i, ++digits;
    }
    if (digits == 0) return DISP_E_TYPEMISMATCH;
    if (i < ascii.size() && (ascii[i] == 'e' || ascii[i] == 'E')) {
        integral = false;
        size_t j = i + 1;
        if (j < ascii.size() && (ascii[j] == '+' || ascii[j] == '-')) ++j;
        size_t expStart = j;
        while (j < ascii.size() && std::isdigit(static_cast<unsigned char>(ascii[j]))) ++j;
        if (j == expStart) return DISP_E_TYPEMISMATCH;
        i = j;
    }
    if (i != ascii.size()) return DISP_E_TYPEMISMATCH;

    // from_chars takes no "+" and never looks at the C locale.
    std::string body(negative ? 1 : 0, '-');
    body.append(ascii, digitsStart);
    const char* end = body.data() + body.size();
    if (integral) {
        auto [ptr, ec] = std::from_chars(body.data(), end, n->integer);
        if (ec == std::errc() && ptr == end) {
            n->kind = Number::kInteger;
            return S_OK;
        }
    }
    auto [ptr, ec] = std::from_chars(body.data(), end, n->real);
    if (ec == std::errc::result_out_of_range) return DISP_E_OVERFLOW;
    if (ec != std::errc() || ptr != end) return DISP_E_TYPEMISMATCH;
    n->kind = Number::kReal;
    return S_OK;
}

HRESULT S_ReadNumber(const VARIANT& v, Number* n) {
    n->kind = Number::kInteger;
    switch (v.vt) {
        case VT_EMPTY:
            n->integer = 0;
            return S_OK;
        case VT_BOOL:
            n->integer = v.boolVal ? -1 : 0;
            return S_OK;
        case VT_I1:
            n->integer = v.cVal;
            return S_OK;
        case VT_UI1:
            n->integer = v.bVal;
            return S_OK;
        case VT_I2:
            n->integer = v.iVal;
            return S_OK;
        case VT_UI2:
            n->integer = v.uiVal;
            return S_OK;
        case VT_I4:
        case VT_INT:
            n->integer = v.lVal;
            return S_OK;
        case VT_UI4:
        case VT_UINT:
            n->integer = v.ulVal;
            return S_OK;
        case VT_I8:
            n->integer = v.llVal;
            return S_OK;
        case VT_UI8:
            if (v.ullVal <= static_cast<uint64_t>(INT64_MAX)) {
                n->integer = static_cast<int64_t>(v.ullVal);
            } else {
                n->kind = Number::kReal;
                n->real = static_cast<double>(v.ullVal);
            }
            return S_OK;
        case VT_R4:
            n->kind = Number::kReal;
            n->real = v.fltVal;
            return S_OK;
        case VT_R8:
            n->kind = Number::kReal;
            n->real = v.dblVal;
            return S_OK;
        case VT_DATE:
            n->kind = Number::kReal;
            n->real = v.date;
            return S_OK;
        case VT_CY:
            n->kind = Number::kCurrency;
            n->integer = v.cyVal.int64;
            return S_OK;
        case VT_BSTR:
            return S_ParseNumber(
                std::wstring_view(v.bstrVal ? v.bstrVal : L"", SysStringLen(v.bstrVal)), n);
        case VT_NULL:
        case VT_ERROR:
            return DISP_E_TYPEMISMATCH;
        default:
            return DISP_E_BADVARTYPE;
    }
}

double S_AsDouble(const Number& n) {
    switch (n.kind) {
        case Number::kInteger:
            return static_cast<double>(n.integer);
        case Number::kCurrency:
            return static_cast<double>(n.integer) / kCurrencyScale;
        default:
            return n.real;
    }
}

// Rounds to a whole number within [lo, hi], ties to even.
HRESULT S_AsInteger(const Number& n, int64_t lo, int64_t hi, int64_t* out) {
    int64_t value;
    if (n.kind == Number::kInteger) {
        value = n.integer;
    } else if (n.kind == Number::kCurrency) {
        value = n.integer / kCurrencyScale;
        int64_t rest = n.integer % kCurrencyScale;
        int64_t twice = 2 * (rest < 0 ? -rest : rest);
        if (twice > kCurrencyScale || (twice == kCurrencyScale && value % 2 != 0)) {
            value += rest < 0 ? -1 : 1;
        }
    } else {
        double rounded = std::nearbyint(n.real);
        // 2^63 is the first double beyond int64.
        if (!(rounded >= -9223372036854775808.0 && rounded < 9223372036854775808.0)) {
            return DISP_E_OVERFLOW;
        }
        value = static_cast<int64_t>(rounded);
    }
    if (value < lo || value > hi) return DISP_E_OVERFLOW;
    *out = value;
    return S_OK;
}

HRESULT S_AsCurrency(const Number& n, int64_t* out) {
    switch (n.kind) {
        case Number::kCurrency:
            *out = n.integer;
            return S_OK;
        case Number::kInteger:
            if (n.integer > INT64_MAX / kCurrencyScale || n.integer < INT64_MIN / kCurrencyScale) {
                return DISP_E_OVERFLOW;
            }
            *out = n.integer * kCurrencyScale;
            return S_OK;
        default: {
            Number scaled;
            scaled.kind = Number::kReal;
            scaled.real = n.real * kCurrencyScale;
            return S_AsInteger(scaled, INT64_MIN, INT64_MAX, out);
        }
    }
}

HRESULT S_CheckDate(double date) {
    return date > kFirstDate - 1.0 && date < kEndDate ? S_OK : DISP_E_OVERFLOW;
}

// Numbers with their number of significant digits, "." and an upper-case
// exponent: 0.1, 1E+20, 1.5E-05.
std::wstring S_FormatReal(double value, int digits) {
    char buffer[64];
    auto [end, ec] =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, digits);
    std::wstring text;
    for (const char* p = buffer; ec == std::errc() && p != end; ++p) {
        text += *p == 'e' ? L'E' : static_cast<wchar_t>(*p);
    }
    return text;
}

std::wstring S_FormatCurrency(int64_t scaled) {
    // The magnitude as unsigned, so that the most negative value has one.
    uint64_t magnitude =
        scaled < 0 ? 0 - static_cast<uint64_t>(scaled) : static_cast<uint64_t>(scaled);
    std::wstring text = (scaled < 0 ? L"-" : L"") + std::to_wstring(magnitude / kCurrencyScale);
    auto fraction = static_cast<unsigned>(magnitude % kCurrencyScale);
    if (fraction != 0) {
        wchar_t digits[8];
        std::swprintf(digits, 8, L"%04u", fraction);
        std::wstring decimals(digits);
        decimals.erase(decimals.find_last_not_of(L'0') + 1);
        text += L"." + decimals;
    }
    return text;
}

HRESULT S_FormatDate(double date, std::wstring* text) {
    SYSTEMTIME t;
    if (!VariantTimeToSystemTime(date, &t)) return DISP_E_OVERFLOW;
    bool dayZero = t.wYear == 1899 && t.wMonth == 12 && t.wDay == 30;
    bool hasTime = t.wHour != 0 || t.wMinute != 0 || t.wSecond != 0;
    wchar_t buffer[32];
    if (dayZero && hasTime) {
        std::swprintf(buffer, 32, L"%02u:%02u:%02u", t.wHour, t.wMinute, t.wSecond);
    } else if (hasTime) {
        std::swprintf(buffer, 32, L"%04u-%02u-%02u %02u:%02u:%02u", t.wYear, t.wMonth, t.wDay,
                      t.wHour, t.wMinute, t.wSecond);
    } else {
        std::swprintf(buffer, 32, L"%04u-%02u-%02u", t.wYear, t.wMonth, t.wDay);
    }
    *text = buffer;
    return S_OK;
}

// Reads the numbers of a date text and the separators between them.
struct DateTokens {
    int values[6] = {};
    int digits[6] = {};
    wchar_t separators[6] = {};
    int count = 0;

    bool Read(std::wstring_view text) {
        size_t i = 0;
        while (i < text.size()) {
            if (count == 6) return false;
            if (!(text[i] >= L'0' && text[i] <= L'9')) return false;
            int value = 0, n = 0;
            for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9' && n < 5; ++i, ++n) {
                value = value * 10 + (text[i] - L'0');
            }
            if (i < text.size() && text[i] >= L'0' && text[i] <= L'9') return false;
            values[count] = value;
            digits[count] = n;
            separators[count] = i < text.size() ? text[i++] : L'\0';
            ++count;
        }
        return count > 0;
    }
};

bool S_ReadTime(const DateTokens& t, int first, SYSTEMTIME* st) {
    int left = t.count - first;
    if (left == 0) return true;
    if (left < 2 || left > 3 || t.separators[first] != L':') return false;
    if (left == 3 && t.separators[first + 1] != L':') return false;
    st->wHour = static_cast<uint16_t>(t.values[first]);
    st->wMinute = static_cast<uint16_t>(t.values[first + 1]);
    st->wSecond = static_cast<uint16_t>(left == 3 ? t.values[first + 2] : 0);
    return true;
}

HRESULT S_ParseDate(std::wstring_view text, double* date) {
    DateTokens t;
    if (!t.Read(S_Trim(text))) return DISP_E_TYPEMISMATCH;
    SYSTEMTIME st{};
    st.wYear = 1899;
    st.wMonth = 12;
    st.wDay = 30;
    int timeStart = 0;
    wchar_t sep = t.separators[0];
    bool dateThenTime = t.count == 3 || t.separators[2] == L' ' || t.separators[2] == L'T';
    if ((sep == L'-' || sep == L'/') && t.count >= 3 && t.separators[1] == sep && dateThenTime) {
        bool yearFirst = t.digits[0] == 4;
        st.wYear = static_cast<uint16_t>(yearFirst ? t.values[0] : t.values[2]);
        st.wMonth = static_cast<uint16_t>(yearFirst ? t.values[1] : t.values[0]);
        st.wDay = static_cast<uint16_t>(yearFirst ? t.values[2] : t.values[1]);
        if (t.digits[yearFirst ? 0 : 2] != 4) return DISP_E_TYPEMISMATCH;
        timeStart = 3;
    } else if (sep != L':') {
        return DISP_E_TYPEMISMATCH;
    }
    if (!S_ReadTime(t, timeStart, &st) || t.separators[t.count - 1] != L'\0') {
        return DISP_E_TYPEMISMATCH;
    }
    return SystemTimeToVariantTime(&st, date) ? S_OK : DISP_E_OVERFLOW;
}

HRESULT S_ToText(const VARIANT& v, uint16_t flags, std::wstring* text) {
    switch (v.vt) {
        case VT_EMPTY:
            text->clear();
            return S_OK;
        case VT_BSTR:
            text->assign(v.bstrVal ? v.bstrVal : L"", SysStringLen(v.bstrVal));
            return S_OK;
        case VT_BOOL:
            if (flags & VARIANT_ALPHABOOL) {
                *text = v.boolVal ? L"True" : L"False";
            } else {
                *text = v.boolVal ? L"-1" : L"0";
            }
            return S_OK;
        case VT_R4:
            *text = S_FormatReal(v.fltVal, 7);
            return S_OK;
        case VT_R8:
            *text = S_FormatReal(v.dblVal, 15);
            return S_OK;
        case VT_CY:
            *text = S_FormatCurrency(v.cyVal.int64);
            return S_OK;
        case VT_DATE:
            return S_FormatDate(v.date, text);
        default: {
            Number n;
            HRESULT hr = S_ReadNumber(v, &n);
            if (FAILED(hr)) return hr;
            *text =
                n.kind == Number::kInteger ? std::to_wstring(n.integer) : S_FormatReal(n.real, 15);
            return S_OK;
        }
    }
}

HRESULT S_ToBool(const VARIANT& v, VARIANT_BOOL* out) {
    if (v.vt == VT_BSTR) {
        String text(std::wstring(S_Trim(v.bstrVal ? v.bstrVal : L"")));
        if (text.CompareNoCase(L"True") == 0 || text.CompareNoCase(L"False") == 0) {
            *out = text.CompareNoCase(L"True") == 0 ? VARIANT_TRUE : VARIANT_FALSE;
            return S_OK;
        }
    }
    Number n;
    HRESULT hr = S_ReadNumber(v, &n);
    if (FAILED(hr)) return hr;
    bool nonzero = n.kind == Number::kReal ? n.real != 0.0 : n.integer != 0;
    *out = nonzero ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT S_ToDate(const VARIANT& v, double* out) {
    if (v.vt == VT_BSTR) {
        return S_ParseDate(std::wstring_view(v.bstrVal ? v.bstrVal : L"", SysStringLen(v.bstrVal)),
                           out);
    }
    Number n;
    HRESULT hr = S_ReadNumber(v, &n);
    if (FAILED(hr)) return hr;
    *out = S_AsDouble(n);
    return S_CheckDate(*out);
}

// The range of an integer type, and where the value goes.
bool S_IntegerRange(VARTYPE vt, int64_t* lo, int64_t* hi) {
    switch (vt) {
        case VT_I1:
            *lo = INT8_MIN;
            *hi = INT8_MAX;
            return true;
        case VT_UI1:
            *lo = 0;
            *hi = UINT8_MAX;
            return true;
        case VT_I2:
            *lo = INT16_MIN;
            *hi = INT16_MAX;
            return true;
        case VT_UI2:
            *lo = 0;
            *hi = UINT16_MAX;
            return true;
        case VT_I4:
        case VT_INT:
            *lo = INT32_MIN;
            *hi = INT32_MAX;
            return true;
        case VT_UI4:
        case VT_UINT:
            *lo = 0;
            *hi = UINT32_MAX;
            return true;
        case VT_I8:
            *lo = INT64_MIN;
            *hi = INT64_MAX;
            return true;
        case VT_UI8:
            *lo = 0;
            *hi = INT64_MAX;
            return true;
        default:
            return false;
    }
}

void S_StoreInteger(VARTYPE vt, int64_t value, VARIANT* out) {
    switch (vt) {
        case VT_I1:
            out->cVal = static_cast<int8_t>(value);
            break;
        case VT_UI1:
            out->bVal = static_cast<uint8_t>(value);
            break;
        case VT_I2:
            out->iVal = static_cast<int16_t>(value);
            break;
        case VT_UI2:
            out->uiVal = static_cast<uint16_t>(value);
            break;
        case VT_I4:
        case VT_INT:
            out->lVal = static_cast<int32_t>(value);
            break;
        case VT_UI4:
        case VT_UINT:
            out->ulVal = static_cast<uint32_t>(value);
            break;
        default:
            out->llVal = value;
            break;
    }
}

HRESULT S_Convert(const VARIANT& v, uint16_t flags, VARTYPE vt, VARIANT* out) {
    if (v.vt == vt) return VariantCopy(out, &v);
    if (vt == VT_EMPTY) return S_OK;
    if (vt == VT_NULL) {
        if (v.vt != VT_EMPTY) return DISP_E_TYPEMISMATCH;
        out->vt = VT_NULL;
        return S_OK;
    }
    HRESULT hr = S_OK;
    Number n;
    int64_t lo, hi;
    if (S_IntegerRange(vt, &lo, &hi)) {
        int64_t value = 0;
        if (SUCCEEDED(hr = S_ReadNumber(v, &n)) && SUCCEEDED(hr = S_AsInteger(n, lo, hi, &value))) {
            S_StoreInteger(vt, value, out);
        }
    } else if (vt == VT_R8 || vt == VT_R4) {
        if (SUCCEEDED(hr = S_ReadNumber(v, &n))) {
            double value = S_AsDouble(n);
            if (vt == VT_R8) {
                out->dblVal = value;
            } else if (std::isfinite(value) && std::fabs(value) > FLT_MAX) {
                hr = DISP_E_OVERFLOW;
            } else {
                out->fltVal = static_cast<float>(value);
            }
        }
    } else if (vt == VT_CY) {
        if (SUCCEEDED(hr = S_ReadNumber(v, &n))) hr = S_AsCurrency(n, &out->cyVal.int64);
    } else if (vt == VT_DATE) {
        hr = S_ToDate(v, &out->date);
    } else if (vt == VT_BOOL) {
        hr = S_ToBool(v, &out->boolVal);
    } else if (vt == VT_BSTR) {
        std::wstring text;
        if (SUCCEEDED(hr = S_ToText(v, flags, &text))) {
            out->bstrVal = SysAllocStringLen(text.data(), static_cast<uint32_t>(text.size()));
            if (!out->bstrVal) hr = E_OUTOFMEMORY;
        }
    } else {
        return vt == VT_ERROR ? DISP_E_TYPEMISMATCH : DISP_E_BADVARTYPE;
    }
    if (SUCCEEDED(hr)) out->vt = vt;
    return hr;
}

}  // namespace

HRESULT VariantChangeType(VARIANT* destination, const VARIANT* source, uint16_t flags, VARTYPE vt) {
    if (!destination || !source) return E_INVALIDARG;
    VARIANT result;
    VariantInit(&result);
    HRESULT hr = S_Convert(*source, flags, vt, &result);
    if (FAILED(hr)) return hr;
    if (FAILED(hr = VariantClear(destination))) {
        VariantClear(&result);
        return hr;
    }
    *destination = result;
    return S_OK;
}

}  // namespace quillet
