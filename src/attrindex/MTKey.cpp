#include "attrindex/MTKey.h"

#include <cwchar>
#include <utility>

namespace quillet {

namespace {

constexpr std::pair<MTDataType, const char*> kTypeNames[] = {
    {MTString, "string"}, {MTWString, "wstring"},    {MTShort, "short"},
    {MTLong, "long"},     {MTInt64, "int64"},        {MTFloat, "float"},
    {MTDouble, "double"}, {MTDate, "date"},          {MTDateMap2, "datemap2"},
    {MTDateMap1, "datemap1"},
};

}  // namespace

const char* MTDataTypeName(MTDataType type) {
    for (const auto& [named, name] : kTypeNames) {
        if (named == type) return name;
    }
    return "none";
}

MTDataType MTDataTypeOfName(std::string_view name) {
    for (const auto& [type, named] : kTypeNames) {
        if (named == name) return type;
    }
    return MTNone;
}

MTKey::MTKey(const SYSTEMTIME& time) {
    DATE date = 0;
    SystemTimeToVariantTime(&time, &date);
    SetDate(date);
}

MTKey& MTKey::operator=(const MTKey& other) {
    if (this == &other) return *this;
    type_ = other.type_;
    value_ = other.value_;
    CopyText(other.string_);
    return *this;
}

void MTKey::SetShort(int16_t value) {
    type_ = MTShort;
    value_.s = value;
}

void MTKey::SetLong(int32_t value) {
    type_ = MTLong;
    value_.l = value;
}

void MTKey::SetInt64(int64_t value) {
    type_ = MTInt64;
    value_.ll = value;
}

void MTKey::SetFloat(float value) {
    type_ = MTFloat;
    value_.f = value;
}

void MTKey::SetDouble(double value) {
    type_ = MTDouble;
    value_.d = value;
}

void MTKey::SetDate(double value) {
    type_ = MTDate;
    value_.d = value;
}

void MTKey::SetString(const wchar_t* text, bool copy) {
    type_ = MTString;
    if (copy) {
        CopyText(text);
    } else {
        string_ = text;
    }
}

void MTKey::CopyText(const wchar_t* text) {
    if (!text) {
        string_ = nullptr;
        return;
    }
    size_t length = 0;
    while (length < kMaxChars && text[length]) ++length;
    std::wmemmove(buffer_, text, length);
    buffer_[length] = L'\0';
    string_ = buffer_;
}

void MTKey::SetVariant(const tagVARIANT& value) {
    switch (value.vt) {
        case VT_I2: SetShort(value.iVal); break;
        case VT_I4: SetLong(value.lVal); break;
        case VT_R4: SetFloat(value.fltVal); break;
        case VT_R8: SetDouble(value.dblVal); break;
        case VT_CY: SetInt64(value.cyVal.int64); break;
        case VT_DATE: SetDate(value.date); break;
        case VT_BSTR: SetString(value.bstrVal, false); break;
        default: break;
    }
}

long double MTKey::GetWidened() const {
    switch (type_) {
        case MTShort: return value_.s;
        case MTLong: return value_.l;
        case MTInt64: return static_cast<long double>(value_.ll);
        case MTFloat: return value_.f;
        case MTDouble:
        case MTDate:
        case MTDateMap1:
        case MTDateMap2: return value_.d;
        default: return 0;
    }
}

int64_t MTKey::GetInteger() const {
    switch (type_) {
        case MTShort: return value_.s;
        case MTLong: return value_.l;
        default: return value_.ll;
    }
}

}  // namespace quillet
