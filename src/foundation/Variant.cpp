#include "foundation/Variant.h"

#include <cstdlib>
#include <cstring>

namespace quillet {

namespace {

// A BSTR points just past a 32-bit prefix that holds the text's length in
// bytes; the text is followed by a terminator that the length leaves out.
constexpr size_t kPrefix = sizeof(uint32_t);
constexpr uint32_t kMaxLength = (UINT32_MAX - kPrefix) / sizeof(wchar_t) - 1;

unsigned char* S_Block(BSTR text) {
    return reinterpret_cast<unsigned char*>(text) - kPrefix;
}

}  // namespace

BSTR SysAllocString(const wchar_t* text) {
    return text ? SysAllocStringLen(text, static_cast<uint32_t>(std::wcslen(text))) : nullptr;
}

BSTR SysAllocStringLen(const wchar_t* text, uint32_t length) {
    if (length > kMaxLength) return nullptr;
    auto* block =
        static_cast<unsigned char*>(std::malloc(kPrefix + (size_t{length} + 1) * sizeof(wchar_t)));
    if (!block) return nullptr;
    uint32_t bytes = length * static_cast<uint32_t>(sizeof(wchar_t));
    std::memcpy(block, &bytes, kPrefix);
    auto* chars = reinterpret_cast<wchar_t*>(block + kPrefix);
    if (text) {
        std::wmemcpy(chars, text, length);
    } else {
        std::wmemset(chars, L'\0', length);
    }
    chars[length] = L'\0';
    return chars;
}

void SysFreeString(BSTR text) {
    if (text) std::free(S_Block(text));
}

uint32_t SysStringLen(BSTR text) {
    if (!text) return 0;
    uint32_t bytes;
    std::memcpy(&bytes, S_Block(text), kPrefix);
    return bytes / static_cast<uint32_t>(sizeof(wchar_t));
}

void VariantInit(VARIANT* v) {
    if (v) std::memset(static_cast<void*>(v), 0, sizeof(VARIANT));
}

namespace {

bool S_IsKnownType(VARTYPE vt) {
    switch (vt) {
        case VT_EMPTY:
        case VT_NULL:
        case VT_I2:
        case VT_I4:
        case VT_R4:
        case VT_R8:
        case VT_CY:
        case VT_DATE:
        case VT_BSTR:
        case VT_ERROR:
        case VT_BOOL:
        case VT_I1:
        case VT_UI1:
        case VT_UI2:
        case VT_UI4:
        case VT_I8:
        case VT_UI8:
        case VT_INT:
        case VT_UINT:
            return true;
        default:
            return false;
    }
}

}  // namespace

HRESULT VariantClear(VARIANT* v) {
    if (!v) return E_INVALIDARG;
    if (!S_IsKnownType(v->vt)) return DISP_E_BADVARTYPE;
    if (v->vt == VT_BSTR) SysFreeString(v->bstrVal);
    VariantInit(v);
    return S_OK;
}

HRESULT VariantCopy(VARIANT* destination, const VARIANT* source) {
    if (!destination || !source) return E_INVALIDARG;
    if (destination == source) return S_OK;
    if (!S_IsKnownType(source->vt)) return DISP_E_BADVARTYPE;
    VARIANT copy = *source;
    if (source->vt == VT_BSTR && source->bstrVal) {
        copy.bstrVal = SysAllocStringLen(source->bstrVal, SysStringLen(source->bstrVal));
        if (!copy.bstrVal) return E_OUTOFMEMORY;
    }
    HRESULT hr = VariantClear(destination);
    if (FAILED(hr)) {
        if (copy.vt == VT_BSTR) SysFreeString(copy.bstrVal);
        return hr;
    }
    *destination = copy;
    return S_OK;
}

Variant::Variant(const Variant& other) : tagVARIANT() {
    VariantInit(this);
    VariantCopy(this, &other);
}

Variant& Variant::operator=(const Variant& other) {
    VariantCopy(this, &other);
    return *this;
}

namespace {

template <typename T>
Variant S_Make(VARTYPE vt, T tagVARIANT::*field, T value) {
    Variant v;
    v.vt = vt;
    v.*field = value;
    return v;
}

}  // namespace

Variant Variant::I2(int16_t value) {
    return S_Make(VT_I2, &tagVARIANT::iVal, value);
}
Variant Variant::I4(int32_t value) {
    return S_Make(VT_I4, &tagVARIANT::lVal, value);
}
Variant Variant::R4(float value) {
    return S_Make(VT_R4, &tagVARIANT::fltVal, value);
}
Variant Variant::R8(double value) {
    return S_Make(VT_R8, &tagVARIANT::dblVal, value);
}
Variant Variant::Date(DATE value) {
    return S_Make(VT_DATE, &tagVARIANT::date, value);
}

Variant Variant::Bstr(const wchar_t* text) {
    Variant v;
    v.vt = VT_BSTR;
    v.bstrVal = SysAllocString(text ? text : L"");
    return v;
}

Variant Variant::Null() {
    Variant v;
    v.vt = VT_NULL;
    return v;
}

}  // namespace quillet
