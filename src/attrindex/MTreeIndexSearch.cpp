// The predicate scans of MTreeIndex over the legacy interface's cursor.
// Entries come in key order; each scan starts at the first entry or at a
// seek and stops as soon as no later entry can match.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cwchar>

#include "attrindex/LegacyIndex.h"
#include "attrindex/MTreeIndex.h"
#include "attrindex/MultiByteText.h"
#include "foundation/SqlParse.h"

namespace quillet {

// A value as the scans compare it: the number, or the text cut or padded
// with spaces to the key width, as the keys are stored.
struct MTreeIndex::ScanKey {
    double number = 0;
    std::string text;
};

class MTreeIndex::Scan {
public:
    Scan(int32_t handle, const int32_t* key) : handle_(handle), text_(key[2] == kKindText) {}

    bool Seek(const ScanKey& key, bool inclusive) {
        return atx_seek(handle_, key.number, key.text.c_str(), inclusive ? 1 : 0) != 0;
    }
    bool Top() { return atx_top(handle_) != 0; }
    bool Next() { return atx_next(handle_, &id_, text_buffer_, &number_) != 0; }
    int32_t Id() const { return id_; }
    const char* Text() const { return text_buffer_; }
    // Sign of (entry - key).
    int Compare(const ScanKey& key) const {
        if (text_) {
            int c = std::strcmp(text_buffer_, key.text.c_str());
            return c < 0 ? -1 : (c > 0 ? 1 : 0);
        }
        bool aNan = std::isnan(number_);
        bool bNan = std::isnan(key.number);
        if (aNan || bNan) return aNan == bNan ? 0 : (aNan ? 1 : -1);
        return number_ < key.number ? -1 : (number_ > key.number ? 1 : 0);
    }
    void AddRest(IFIDSet* result) {
        do {
            result->Add(id_);
        } while (Next());
    }

private:
    int32_t handle_;
    bool text_;
    int32_t id_ = 0;
    double number_ = 0;
    char text_buffer_[ATX_TEXT_BUFFER] = {};
};

namespace {

bool IsNull(const std::vector<VARIANT*>& values) {
    return values.empty() || !values[0] || values[0]->vt == VT_NULL;
}

double AsDouble(const VARIANT* value) {
    if (value->vt == VT_R8) return value->dblVal;
    Variant converted;
    HRESULT hr = VariantChangeType(&converted, value, 0, VT_R8);
    if (FAILED(hr)) throw static_cast<int32_t>(hr);
    return converted.dblVal;
}

void ToText(VARIANT* value) {
    if (value->vt == VT_BSTR) return;
    HRESULT hr = VariantChangeType(value, value, 0, VT_BSTR);
    if (FAILED(hr)) throw static_cast<int32_t>(hr);
}

bool CharacterLess(VARIANT* a, VARIANT* b) {
    ToText(a);
    ToText(b);
    return std::wcscmp(a->bstrVal ? a->bstrVal : L"", b->bstrVal ? b->bstrVal : L"") < 0;
}

bool NumericLess(VARIANT* a, VARIANT* b) {
    return AsDouble(a) < AsDouble(b);
}

// The literal start of a like pattern: up to the first "_" if there is one
// (even after a "%"), else up to the first "%".
std::wstring LikePrefix(const std::wstring& pattern) {
    size_t cut = pattern.find(L'_');
    if (cut == std::wstring::npos) cut = pattern.find(L'%');
    return pattern.substr(0, cut);
}

}  // namespace

HRESULT MTreeIndex::ScanKeyOf(const VARIANT* value, ScanKey& key) const {
    if (!value || FAILED(ExtractKeyValue(*value, key.number, key.text))) return E_FAIL;
    if (key_[2] == kKindText) {
        key.text.resize(std::min<size_t>(key.text.size(), static_cast<size_t>(key_[1])));
        key.text.resize(static_cast<size_t>(key_[1]), ' ');
    }
    return S_OK;
}

HRESULT MTreeIndex::Search(std::vector<VARIANT*>& values, qovaSQLPredicates predicate,
                           IFIDSet* result) {
    if (handle_ < 1 || !result) return E_FAIL;
    if (IsNull(values)) {
        constexpr int32_t kEmptyOnNull = qovaSQLEqual | qovaSQLNotEqual | qovaSQLLessThan |
                                         qovaSQLGreaterThan | qovaSQLLessOrEqual |
                                         qovaSQLGreaterOrEqual | qovaSQLIn | qovaSQLLike;
        bool single = predicate != 0 && (predicate & (predicate - 1)) == 0;
        return single && (predicate & kEmptyOnNull) ? S_OK : E_FAIL;
    }
    switch (predicate) {
        case qovaSQLEqual:
        case qovaSQLNotEqual:
        case qovaSQLLessThan:
        case qovaSQLGreaterThan:
        case qovaSQLLessOrEqual:
        case qovaSQLGreaterOrEqual: return SearchComparison(values[0], predicate, result);
        case qovaSQLBetween: return SearchRange(values, true, result);
        case qovaSQLNotBetween: return SearchRange(values, false, result);
        case qovaSQLIn: return SearchSet(values, true, result);
        case qovaSQLNotIn: return SearchSet(values, false, result);
        case qovaSQLLike: return SearchLike(values[0], result);
        default: return E_FAIL;
    }
}

HRESULT MTreeIndex::SearchComparison(const VARIANT* value, qovaSQLPredicates predicate,
                                     IFIDSet* result) {
    ScanKey key;
    if (FAILED(ScanKeyOf(value, key))) return E_FAIL;
    Scan scan(handle_, key_);
    switch (predicate) {
        case qovaSQLEqual:
            if (!scan.Seek(key, true)) return S_OK;
            while (scan.Next() && scan.Compare(key) == 0) result->Add(scan.Id());
            return S_OK;
        case qovaSQLGreaterThan:
        case qovaSQLGreaterOrEqual: {
            int skipped = predicate == qovaSQLGreaterThan ? 0 : -1;
            scan.Seek(key, predicate == qovaSQLGreaterOrEqual);
            while (scan.Next()) {
                if (scan.Compare(key) > skipped) {
                    scan.AddRest(result);
                    break;
                }
            }
            return S_OK;
        }
        case qovaSQLLessThan:
        case qovaSQLLessOrEqual: {
            int limit = predicate == qovaSQLLessThan ? 0 : 1;
            scan.Top();
            while (scan.Next() && scan.Compare(key) < limit) result->Add(scan.Id());
            return S_OK;
        }
        default: break;
    }
    // Not equal: equal entries are left out until the first greater key.
    scan.Top();
    while (scan.Next()) {
        int c = scan.Compare(key);
        if (c > 0) {
            scan.AddRest(result);
            break;
        }
        if (c < 0) result->Add(scan.Id());
    }
    return S_OK;
}

HRESULT MTreeIndex::SearchRange(const std::vector<VARIANT*>& values, bool inside, IFIDSet* result) {
    ScanKey lower;
    ScanKey upper;
    if (values.size() < 2 || FAILED(ScanKeyOf(values[0], lower)) ||
        FAILED(ScanKeyOf(values[1], upper))) {
        return E_FAIL;
    }
    Scan scan(handle_, key_);
    if (inside) {
        scan.Seek(lower, true);
        while (scan.Next() && scan.Compare(upper) <= 0) result->Add(scan.Id());
        return S_OK;
    }
    scan.Top();
    while (scan.Next()) {
        if (scan.Compare(upper) > 0) {
            scan.AddRest(result);
            break;
        }
        if (scan.Compare(lower) < 0) result->Add(scan.Id());
    }
    return S_OK;
}

void MTreeIndex::SortValues(std::vector<VARIANT*>& values) const {
    if (key_[2] == kKindText) {
        std::sort(values.begin(), values.end(), CharacterLess);
    } else {
        std::sort(values.begin(), values.end(), NumericLess);
    }
}

HRESULT MTreeIndex::SearchSet(std::vector<VARIANT*>& values, bool inside, IFIDSet* result) {
    SortValues(values);
    std::vector<ScanKey> keys(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        if (FAILED(ScanKeyOf(values[i], keys[i]))) return E_FAIL;
    }
    Scan scan(handle_, key_);
    size_t current = 0;
    if (inside) {
        if (!scan.Seek(keys[0], true)) return S_OK;
        size_t sought = 0;
        while (current < keys.size() && scan.Next()) {
            int c = scan.Compare(keys[current]);
            while (c > 0 && ++current < keys.size()) c = scan.Compare(keys[current]);
            if (c == 0) result->Add(scan.Id());
            // Every key below the current value would be skipped: seek past
            // them, once per value, for a damaged tree may seek back to here.
            if (c < 0 && sought != current) {
                sought = current;
                if (!scan.Seek(keys[current], true)) break;
            }
        }
        return S_OK;
    }
    // Not in: a greater key moves on one value only, and is added unseen.
    scan.Top();
    while (scan.Next()) {
        if (current == keys.size()) {
            scan.AddRest(result);
            break;
        }
        int c = scan.Compare(keys[current]);
        if (c > 0) ++current;
        if (c != 0) result->Add(scan.Id());
    }
    return S_OK;
}

HRESULT MTreeIndex::SearchLike(const VARIANT* value, IFIDSet* result) {
    if (value->vt != VT_BSTR || key_[2] != kKindText) return E_FAIL;
    std::wstring pattern = value->bstrVal ? value->bstrVal : L"";
    if (pattern.empty() || pattern[0] == L'%' || pattern[0] == L'_') return E_FAIL;
    std::wstring literal = LikePrefix(pattern);
    std::string prefix = ToMultiByte(literal.c_str());
    ScanKey start;
    start.text = prefix.substr(0, static_cast<size_t>(key_[1]));
    // The prefix and one "%" match every key that starts with the prefix's
    // bytes, when those read back as the prefix and no trimmed trailing space
    // can cut into it: the keys then need no conversion.
    bool everyKey = pattern == literal + L"%" && !literal.empty() && literal.back() != L' ' &&
                    start.text.size() == prefix.size() &&
                    FromMultiByte(prefix.c_str(), prefix.size()) == literal;
    Scan scan(handle_, key_);
    if (!scan.Seek(start, true)) return S_OK;
    while (scan.Next() && std::strncmp(scan.Text(), start.text.c_str(), start.text.size()) == 0) {
        if (everyKey) {
            result->Add(scan.Id());
            continue;
        }
        std::wstring key = FromMultiByte(scan.Text(), std::strlen(scan.Text()));
        key.erase(key.find_last_not_of(L' ') + 1);
        if (SqlParse::PatternMatch(key.c_str(), pattern.c_str())) result->Add(scan.Id());
    }
    return S_OK;
}

}  // namespace quillet
