#include "foundation/IFIDSet.h"

#include <algorithm>
#include <atomic>
#include <cwchar>
#include <new>

#include "foundation/DebugOutput.h"
#include "foundation/String.h"

namespace quillet {

const IID IID_IFIDSet = {
    0x5E0B7C42u, 0x1F83u, 0x4D9Au, {0xB6, 0x2E, 0x91, 0x4C, 0x07, 0xA8, 0x3D, 0x55}};

namespace {

constexpr wchar_t kFIDSetProgId[] = L"QovaSystem.FIDSet";

std::atomic<HRESULT> s_forcedFailure{S_OK};

// Sorts ids by their bits, eleven at a time, when there are many: a search
// adds them in key order, which is no order of ids, and a comparison sort
// of them took most of a range query.
void SortIds(std::vector<int32_t>& ids) {
    constexpr size_t kRadixFrom = 2048;
    if (ids.size() < kRadixFrom) {
        std::sort(ids.begin(), ids.end());
        return;
    }
    std::vector<int32_t> other(ids.size());
    for (int shift = 0; shift < 33; shift += 11) {
        size_t counts[2049] = {};
        auto digit = [shift](int32_t id) {
            return ((static_cast<uint32_t>(id) ^ 0x80000000u) >> shift) & 2047u;
        };
        for (int32_t id : ids) ++counts[digit(id) + 1];
        for (size_t d = 1; d <= 2048; ++d) counts[d] += counts[d - 1];
        for (int32_t id : ids) other[counts[digit(id)]++] = id;
        ids.swap(other);
    }
}

// The name the diagnostics give a class: its program identifier, else its id.
String S_ClassName(const CLSID& clsid) {
    wchar_t* text = nullptr;
    if (SUCCEEDED(ProgIDFromCLSID(clsid, &text)) || SUCCEEDED(StringFromCLSID(clsid, &text))) {
        String name(text);
        CoTaskMemFree(text);
        return name;
    }
    return String();
}

HRESULT S_Fail(const CLSID& clsid, HRESULT hr) {
    OutputDebugStringW(String::Formatted(L"CreateInstance of %ls failed: %X\n",
                                         S_ClassName(clsid).c_str(), static_cast<unsigned>(hr)));
    return hr;
}

}  // namespace

HRESULT FIDSet::Add(int32_t id) {
    if (normalized_ && !ids_.empty()) {
        if (id == ids_.back()) return S_OK;
        if (id < ids_.back()) normalized_ = false;
    }
    ids_.push_back(id);
    return S_OK;
}

HRESULT FIDSet::Delete(int32_t id) {
    Normalize();
    auto it = std::lower_bound(ids_.begin(), ids_.end(), id);
    if (it == ids_.end() || *it != id) return S_FALSE;
    if (static_cast<size_t>(it - ids_.begin()) < cursor_) --cursor_;
    ids_.erase(it);
    return S_OK;
}

HRESULT FIDSet::Find(int32_t id, bool* found) const {
    if (!found) return E_POINTER;
    Normalize();
    *found = std::binary_search(ids_.begin(), ids_.end(), id);
    return S_OK;
}

HRESULT FIDSet::get_Count(int32_t* count) const {
    if (!count) return E_POINTER;
    Normalize();
    *count = static_cast<int32_t>(ids_.size());
    return S_OK;
}

HRESULT FIDSet::SetEmpty() {
    ids_.clear();
    normalized_ = true;
    cursor_ = 0;
    return S_OK;
}

HRESULT FIDSet::Reset() {
    Normalize();
    cursor_ = 0;
    return S_OK;
}

HRESULT FIDSet::Next(int32_t* id) {
    if (!id) return E_POINTER;
    Normalize();
    if (cursor_ >= ids_.size()) {
        *id = -1;
        return S_FALSE;
    }
    *id = ids_[cursor_++];
    return S_OK;
}

void FIDSet::Normalize() const {
    if (normalized_) return;
    SortIds(ids_);
    ids_.erase(std::unique(ids_.begin(), ids_.end()), ids_.end());
    normalized_ = true;
}

HRESULT CoCreateFIDSet(const CLSID& clsid, std::unique_ptr<IFIDSet>* set) {
    if (!set) return E_POINTER;
    set->reset();
    if (clsid != CLSID_FIDSet) return S_Fail(clsid, REGDB_E_CLASSNOTREG);
    if (HRESULT forced = s_forcedFailure.load(); FAILED(forced)) return S_Fail(clsid, forced);
    set->reset(new (std::nothrow) FIDSet);
    return *set ? S_OK : S_Fail(clsid, E_OUTOFMEMORY);
}

HRESULT ProgIDFromCLSID(const CLSID& clsid, wchar_t** progId) {
    if (!progId) return E_POINTER;
    *progId = nullptr;
    if (clsid != CLSID_FIDSet) return REGDB_E_CLASSNOTREG;
    auto* text = static_cast<wchar_t*>(CoTaskMemAlloc(sizeof(kFIDSetProgId)));
    if (!text) return E_OUTOFMEMORY;
    std::wmemcpy(text, kFIDSetProgId, std::size(kFIDSetProgId));
    *progId = text;
    return S_OK;
}

void FailFIDSetCreation(HRESULT failure) {
    s_forcedFailure.store(failure);
}

}  // namespace quillet
