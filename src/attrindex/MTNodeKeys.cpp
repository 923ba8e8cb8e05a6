// The key at a node position: encoding, decoding and the two comparisons.

#include <cmath>
#include <cstring>
#include <limits>

#include "attrindex/MTIndex.h"
#include "attrindex/MTNode.h"
#include "foundation/SqlParse.h"

namespace quillet {

namespace {

constexpr long double kFloatEpsilon = 1.1920928955078125e-7L;
constexpr long double kDoubleEpsilon = 2.220446049250313e-16L;

template <typename T>
T Load(const unsigned char* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    return value;
}

template <typename T>
void Store(unsigned char* p, T value) {
    std::memcpy(p, &value, sizeof(T));
}

}  // namespace

template <typename T>
void MTNode::StoreAtCursor(T value) {
    Store(GetKeyPtr(cursor_), value);
    clean_ = false;
}

namespace {

// A number as an integer key holds it: cut toward zero, saturated, NaN as 0.
int64_t ToInteger(const MTKey& key) {
    if (key.IsInteger()) return key.GetInteger();
    long double v = key.GetWidened();
    if (std::isnan(v)) return 0;
    if (v <= static_cast<long double>(std::numeric_limits<int64_t>::min())) {
        return std::numeric_limits<int64_t>::min();
    }
    if (v >= static_cast<long double>(std::numeric_limits<int64_t>::max())) {
        return std::numeric_limits<int64_t>::max();
    }
    return static_cast<int64_t>(v);
}

int Sign(long double a, long double b) {
    return a < b ? -1 : (a > b ? 1 : 0);
}

int Sign(int64_t a, int64_t b) {
    return a < b ? -1 : (a > b ? 1 : 0);
}

bool IsIntegerType(MTDataType type) {
    return type == MTShort || type == MTLong || type == MTInt64;
}

// The first of `count` keys of type T that is not before `wanted`; integers
// compare exactly as their widened values do, without the widening.
template <typename T>
int32_t IntegerBound(const unsigned char* keys, int32_t count, int64_t wanted, bool greater) {
    int32_t low = 0;
    int32_t high = count;
    while (low < high) {
        int32_t mid = low + (high - low) / 2;
        int64_t own =
            Load<T>(keys + static_cast<ptrdiff_t>(mid) * static_cast<ptrdiff_t>(sizeof(T)));
        if (greater ? own <= wanted : own < wanted) {
            low = mid + 1;
        } else {
            high = mid;
        }
    }
    return low;
}

long double ToleranceOf(MTDataType type) {
    return type == MTFloat ? kFloatEpsilon : (type == MTDouble ? kDoubleEpsilon : 0);
}

}  // namespace

bool FLOATING_PT_EQ(long double a, long double b, long double eps) {
    return std::fabs(a - b) <= eps + eps * (std::fabs(a) + std::fabs(b)) / 2;
}

void MTNode::DecodeText(int32_t i, wchar_t* out) const {
    owner_->GetTextCodec().Decode(GetKeyPtr(i), out);
}

String MTNode::GetKeyAsString(bool stripPadding) const {
    wchar_t text[KeyTextCodec::kDecodedChars];
    DecodeText(cursor_, text);
    String result(text);
    if (!stripPadding) {
        int32_t chars = owner_->GetTextCodec().GetCompareChars();
        while (result.GetLength() < chars) result += L' ';
    }
    return result;
}

int16_t MTNode::GetKeyAsShort() const {
    return Load<int16_t>(GetKeyPtr(cursor_));
}
int32_t MTNode::GetKeyAsLong() const {
    return Load<int32_t>(GetKeyPtr(cursor_));
}
int64_t MTNode::GetKeyAsInt64() const {
    return Load<int64_t>(GetKeyPtr(cursor_));
}
float MTNode::GetKeyAsFloat() const {
    return Load<float>(GetKeyPtr(cursor_));
}
double MTNode::GetKeyAsDouble() const {
    return Load<double>(GetKeyPtr(cursor_));
}

HRESULT MTNode::SetKeyAsString(const wchar_t* text) {
    clean_ = false;
    return owner_->GetTextCodec().Encode(text, GetKeyPtr(cursor_));
}

void MTNode::SetKeyAsShort(int16_t value) {
    StoreAtCursor(value);
}

void MTNode::SetKeyAsLong(int32_t value) {
    StoreAtCursor(value);
}

void MTNode::SetKeyAsInt64(int64_t value) {
    StoreAtCursor(value);
}

void MTNode::SetKeyAsFloat(float value) {
    StoreAtCursor(value);
}

void MTNode::SetKeyAsDouble(double value) {
    StoreAtCursor(value);
}

void MTNode::GetKey(MTKey& key) const {
    DecodeKey(GetKeyPtr(cursor_), key);
}

void MTNode::DecodeKey(const unsigned char* p, MTKey& key) const {
    switch (owner_->GetDataType()) {
        case MTString:
        case MTWString: {
            wchar_t text[KeyTextCodec::kDecodedChars];
            owner_->GetTextCodec().Decode(p, text);
            key.SetString(text, true);
            break;
        }
        case MTShort: key.SetShort(Load<int16_t>(p)); break;
        case MTLong: key.SetLong(Load<int32_t>(p)); break;
        case MTInt64: key.SetInt64(Load<int64_t>(p)); break;
        case MTFloat: key.SetFloat(Load<float>(p)); break;
        case MTDouble: key.SetDouble(Load<double>(p)); break;
        case MTDate:
        case MTDateMap1:
        case MTDateMap2: key.SetDate(Load<double>(p)); break;
        case MTNone: break;
    }
}

HRESULT MTNode::SetKey(const MTKey& key) {
    HRESULT hr = EncodeKey(key, GetKeyPtr(cursor_));
    clean_ = false;
    return hr;
}

HRESULT MTNode::EncodeKey(const MTKey& key, unsigned char* out) const {
    MTDataType type = owner_->GetDataType();
    if (IsStringType(type) != (key.GetType() == MTString) || key.GetType() == MTNone) {
        return E_INVALIDARG;
    }
    switch (type) {
        case MTString:
        case MTWString: return owner_->GetTextCodec().Encode(key.GetString(), out);
        case MTShort: Store(out, static_cast<int16_t>(ToInteger(key))); break;
        case MTLong: Store(out, static_cast<int32_t>(ToInteger(key))); break;
        case MTInt64: Store(out, ToInteger(key)); break;
        case MTFloat: Store(out, static_cast<float>(key.GetWidened())); break;
        case MTDouble:
        case MTDate:
        case MTDateMap1:
        case MTDateMap2: Store(out, static_cast<double>(key.GetWidened())); break;
        case MTNone: return E_UNEXPECTED;
    }
    return S_OK;
}

int64_t MTNode::IntegerAt(int32_t i) const {
    const unsigned char* p = GetKeyPtr(i);
    switch (owner_->GetDataType()) {
        case MTShort: return Load<int16_t>(p);
        case MTLong: return Load<int32_t>(p);
        default: return Load<int64_t>(p);
    }
}

long double MTNode::Widened(int32_t i) const {
    const unsigned char* p = GetKeyPtr(i);
    switch (owner_->GetDataType()) {
        case MTShort: return Load<int16_t>(p);
        case MTLong: return Load<int32_t>(p);
        case MTInt64: return static_cast<long double>(Load<int64_t>(p));
        case MTFloat: return Load<float>(p);
        default: return Load<double>(p);
    }
}

int MTNode::CompareAt(int32_t i, const MTKey& key, bool tolerance) const {
    MTDataType type = owner_->GetDataType();
    if (IsStringType(type)) {
        wchar_t text[KeyTextCodec::kDecodedChars];
        DecodeText(i, text);
        return SqlParse::lstrncmp_pad(text, key.GetString(),
                                      owner_->GetTextCodec().GetCompareChars());
    }
    if (IsIntegerType(type) && key.IsInteger()) return Sign(IntegerAt(i), key.GetInteger());
    long double a = Widened(i);
    long double b = key.GetWidened();
    if (a == b || std::isnan(a) || std::isnan(b)) return 0;
    long double eps = tolerance ? ToleranceOf(type) : 0;
    if (eps > 0 && FLOATING_PT_EQ(a, b, eps)) return 0;
    return Sign(a, b);
}

int MTNode::CompareBytes(int32_t i, const unsigned char* key) const {
    MTDataType type = owner_->GetDataType();
    if (IsStringType(type)) {
        wchar_t own[KeyTextCodec::kDecodedChars];
        wchar_t other[KeyTextCodec::kDecodedChars];
        DecodeText(i, own);
        owner_->GetTextCodec().Decode(key, other);
        return SqlParse::lstrncmp_pad(own, other, owner_->GetTextCodec().GetCompareChars());
    }
    const unsigned char* p = GetKeyPtr(i);
    if (type == MTInt64) return Sign(Load<int64_t>(p), Load<int64_t>(key));
    long double a = Widened(i);
    long double b = type == MTShort   ? Load<int16_t>(key)
                    : type == MTLong  ? Load<int32_t>(key)
                    : type == MTFloat ? Load<float>(key)
                                      : Load<double>(key);
    return std::isnan(a) || std::isnan(b) ? 0 : Sign(a, b);
}

int MTNode::CompareEntry(int32_t i, const MTKey& key, int32_t id) const {
    int c = CompareAt(i, key, false);
    if (c != 0) return c;
    int32_t own = GetId(i);
    return own < id ? -1 : (own > id ? 1 : 0);
}

int32_t MTNode::FindBound(const MTKey& key, Bound bound) const {
    MTDataType type = owner_->GetDataType();
    if (IsIntegerType(type) && key.IsInteger()) {
        bool greater = bound == kFirstGreater;
        const unsigned char* keys = GetKeyPtr(0);
        int64_t wanted = key.GetInteger();
        if (type == MTShort) return IntegerBound<int16_t>(keys, GetCount(), wanted, greater);
        if (type == MTLong) return IntegerBound<int32_t>(keys, GetCount(), wanted, greater);
        return IntegerBound<int64_t>(keys, GetCount(), wanted, greater);
    }
    int32_t low = 0;
    int32_t high = GetCount();
    while (low < high) {
        int32_t mid = low + (high - low) / 2;
        int c = CompareAt(mid, key, bound != kFirstNotLessExact);
        if (bound == kFirstGreater ? c <= 0 : c < 0) {
            low = mid + 1;
        } else {
            high = mid;
        }
    }
    return low;
}

int32_t MTNode::FindEntry(const MTKey& key, int32_t id) const {
    int32_t low = FindBound(key, kFirstNotLessExact);
    int32_t high = GetCount();
    while (low < high) {
        int32_t mid = low + (high - low) / 2;
        if (CompareEntry(mid, key, id) < 0) {
            low = mid + 1;
        } else {
            high = mid;
        }
    }
    return low;
}

}  // namespace quillet
