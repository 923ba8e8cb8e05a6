#pragma once

// The key types of an attribute index and MTKey, the key value that callers
// search for, insert and delete.
//
// An MTKey holds its type and one value: a number, or a wide string. A string
// is either borrowed (the caller keeps the text alive while the key is used)
// or copied into the key's own buffer of kMaxChars characters. Every string
// key has the type MTString, whatever the index stores; the index converts
// it to its own key encoding. Copying a key copies a string into the copy's
// own buffer, so a copy never borrows.

#include <cstdint>
#include <string_view>

#include "foundation/Export.h"
#include "foundation/Variant.h"

namespace quillet {

enum MTDataType : int32_t {
    MTNone = 0,
    MTString = 1,   // code page byte string
    MTWString = 2,  // 16-bit character string
    MTShort = 3,
    MTLong = 4,
    MTInt64 = 5,
    MTFloat = 6,
    MTDouble = 7,
    MTDate = 8,       // OLE date (double)
    MTDateMap2 = 9,   // OLE date (double)
    MTDateMap1 = 10,  // OLE date (double)
};

// How MTIndex::SetDataType(IField*, MTTypeMap) turns a field into a key type.
// 0: strings as long as the field, dates MTDate; 1: strings capped at 160,
// dates MTDateMap1; 2: strings capped at 80, dates MTDateMap2.
enum MTTypeMap : int32_t {
    MTTypeMap0 = 0,
    MTTypeMap1 = 1,
    MTTypeMap2 = 2,
};

// True for the types whose keys are text.
constexpr bool IsStringType(MTDataType type) {
    return type == MTString || type == MTWString;
}
// True for the types whose keys hold an OLE date.
constexpr bool IsDateType(MTDataType type) {
    return type == MTDate || type == MTDateMap1 || type == MTDateMap2;
}

// The lower-case name of a key type without its prefix ("string", "int64",
// "datemap1", ...; "none" for MTNone), as callers name types in text; and
// the type of such a name (MTNone for a name of no type).
QUILLET_EXPORT const char* MTDataTypeName(MTDataType type);
QUILLET_EXPORT MTDataType MTDataTypeOfName(std::string_view name);

class QUILLET_EXPORT MTKey {
public:
    static constexpr int32_t kMaxChars = 160;

    MTKey() = default;
    explicit MTKey(int16_t value) { SetShort(value); }
    explicit MTKey(int32_t value) { SetLong(value); }
    explicit MTKey(int64_t value) { SetInt64(value); }
    explicit MTKey(float value) { SetFloat(value); }
    explicit MTKey(double value) { SetDouble(value); }
    // A date: the OLE date of the time (0 when it is out of range).
    explicit MTKey(const SYSTEMTIME& time);
    explicit MTKey(const wchar_t* text, bool copy = false) { SetString(text, copy); }
    explicit MTKey(const tagVARIANT& value) { SetVariant(value); }
    MTKey(const MTKey& other) { *this = other; }
    MTKey& operator=(const MTKey& other);

    void SetShort(int16_t value);
    void SetLong(int32_t value);
    void SetInt64(int64_t value);
    void SetFloat(float value);
    void SetDouble(double value);
    void SetDate(double value);
    // copy false keeps the pointer (null for none); copy true copies at most
    // kMaxChars characters into the key's own buffer.
    void SetString(const wchar_t* text, bool copy);
    // VT_I2, VT_I4, VT_R4, VT_R8, VT_CY (its 64-bit payload as it is),
    // VT_DATE and VT_BSTR (borrowed); any other type leaves the key as it is.
    void SetVariant(const tagVARIANT& value);

    MTDataType GetType() const { return type_; }
    int16_t GetShort() const { return value_.s; }
    int32_t GetLong() const { return value_.l; }
    int64_t GetInt64() const { return value_.ll; }
    float GetFloat() const { return value_.f; }
    double GetDouble() const { return value_.d; }
    double GetDate() const { return value_.d; }
    const wchar_t* GetString() const { return string_; }

    // The value taken by the key's own type: short, long, int64, float, or
    // the double of the double and date types; 0 for strings and none.
    long double GetWidened() const;
    // Whether the value is an integer (short, long, int64).
    bool IsInteger() const { return type_ == MTShort || type_ == MTLong || type_ == MTInt64; }
    // The integer value of an integer key.
    int64_t GetInteger() const;

private:
    void CopyText(const wchar_t* text);

    MTDataType type_ = MTNone;
    const wchar_t* string_ = nullptr;
    union {
        int16_t s;
        int32_t l;
        int64_t ll;
        float f;
        double d;
    } value_{.ll = 0};
    wchar_t buffer_[kMaxChars + 1];  // holds text only while string_ points here
};

}  // namespace quillet
