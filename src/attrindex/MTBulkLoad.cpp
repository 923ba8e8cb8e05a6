// Bulk load: entries go through an external sorter and are written as a new
// tree, leaves first (each filled to the maximum and linked to the next),
// then each interior level over the nodes of the level below, until a level
// is a single node, the root.
//
// A sort element is the record id followed by the key: the key bytes of a
// number as the node stores them, or for text the characters the node gives
// back (decoded through the code page), so that the sort orders entries
// exactly as the tree compares them. Equal keys are ordered by record id.

#include <algorithm>
#include <cstring>

#include "attrindex/MTIndex.h"
#include "attrindex/MTScratchLease.h"
#include "attrindex/MTSearch.h"
#include "attrindex/SortElementCompare.h"
#include "foundation/ExternalSort.h"

namespace quillet {

namespace {

constexpr int32_t kSortMemory = 0x400000;
constexpr int32_t kSortSizing = 1024;
constexpr int32_t kMaxElement = 4 + 4 * KeyTextCodec::kDecodedChars;

// Text compared as the nodes compare it: the shorter padded with spaces.
int CompareWString(const ExternalSort::SortElement* a, const ExternalSort::SortElement* b) {
    int32_t na = (a->size - 4) / 4;
    int32_t nb = (b->size - 4) / 4;
    for (int32_t i = 0; i < na || i < nb; ++i) {
        wchar_t x = L' ';
        wchar_t y = L' ';
        if (i < na) std::memcpy(&x, a->data + 4 + 4 * i, 4);
        if (i < nb) std::memcpy(&y, b->data + 4 + 4 * i, 4);
        if (x != y) return x < y ? -1 : 1;
    }
    return CompareSortIds(a, b);
}

ExternalSort::CompareFunction CompareFor(MTDataType type) {
    switch (type) {
        case MTString:
        case MTWString: return CompareWString;
        case MTShort: return CompareSortNumbers<int16_t>;
        case MTLong: return CompareSortNumbers<int32_t>;
        case MTInt64: return CompareSortNumbers<int64_t>;
        case MTFloat: return CompareSortNumbers<float>;
        case MTDouble:
        case MTDate:
        case MTDateMap1:
        case MTDateMap2: return CompareSortNumbers<double>;
        case MTNone: break;
    }
    return nullptr;
}

// Two characters of text, padded as the comparison pads them.
uint64_t WStringPrefix(const ExternalSort::SortElement* e) {
    int32_t n = (e->size - 4) / 4;
    uint64_t prefix = 0;
    for (int32_t i = 0; i < 2; ++i) {
        wchar_t c = L' ';
        if (i < n) std::memcpy(&c, e->data + 4 + 4 * i, 4);
        prefix = prefix << 32 | OrderedBits(static_cast<int32_t>(c));
    }
    return prefix;
}

ExternalSort::PrefixFunction PrefixFor(MTDataType type) {
    switch (type) {
        case MTShort: return SortNumberPrefix<int16_t>;
        case MTLong: return SortNumberPrefix<int32_t>;
        case MTInt64: return SortNumberPrefix<int64_t>;
        case MTFloat: return SortNumberPrefix<float>;
        case MTDouble:
        case MTDate:
        case MTDateMap1:
        case MTDateMap2: return SortNumberPrefix<double>;
        default: return WStringPrefix;
    }
}

}  // namespace

HRESULT MTIndex::StartBulkLoad(int32_t) {
    if (!IsOpen() || IsBulkLoading()) return E_UNEXPECTED;
    ExternalSort::CompareFunction compare = CompareFor(type_);
    if (!compare) return E_UNEXPECTED;
    sorter_ = std::make_unique<ExternalSort>();
    if (!sorter_->Init(compare, kSortMemory, kSortSizing) ||
        !sorter_->SetPrefix(PrefixFor(type_))) {
        sorter_.reset();
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT MTIndex::BulkInsert(const MTKey& key, int32_t id) {
    if (!IsBulkLoading()) return E_UNEXPECTED;
    if (IsStringType(type_) && !key.GetString()) return E_INVALIDARG;
    HRESULT hr = CheckKey(key);
    unsigned char element[kMaxElement];
    int32_t size = 0;
    if (SUCCEEDED(hr)) hr = MakeSortElement(key, id, element, size);
    if (SUCCEEDED(hr) && !sorter_->Add(size, element)) hr = E_FAIL;
    return hr;
}

HRESULT MTIndex::MakeSortElement(const MTKey& key, int32_t id, unsigned char* element,
                                 int32_t& size) {
    std::memcpy(element, &id, 4);
    unsigned char bytes[kMaxStringWidth];
    HRESULT hr = CacheAt(0).EncodeKey(key, bytes);
    if (FAILED(hr)) return hr;
    if (!IsStringType(type_)) {
        std::memcpy(element + 4, bytes, static_cast<size_t>(geometry_.keyWidth));
        size = 4 + geometry_.keyWidth;
        return S_OK;
    }
    // The characters the node gives back, up to a terminator and without
    // the trailing spaces that the comparison pads with anyway.
    wchar_t text[KeyTextCodec::kDecodedChars];
    int32_t length = codec_.Decode(bytes, text);
    int32_t n = 0;
    while (n < length && text[n] != L'\0') ++n;
    while (n > 0 && text[n - 1] == L' ') --n;
    std::memcpy(element + 4, text, 4 * static_cast<size_t>(n));
    size = 4 + 4 * n;
    return S_OK;
}

HRESULT MTIndex::AddElementTo(MTNode& leaf, const unsigned char* element, int32_t size) {
    int32_t id;
    std::memcpy(&id, element, 4);
    unsigned char bytes[kMaxStringWidth];
    if (IsStringType(type_)) {
        wchar_t text[KeyTextCodec::kDecodedChars];
        int32_t length = std::min((size - 4) / 4, KeyTextCodec::kDecodedChars - 1);
        std::memcpy(text, element + 4, 4 * static_cast<size_t>(length));
        text[length] = L'\0';
        HRESULT hr = codec_.Encode(text, bytes);
        if (FAILED(hr)) return hr;
    } else {
        std::memcpy(bytes, element + 4, static_cast<size_t>(geometry_.keyWidth));
    }
    leaf.InsertEntry(leaf.GetCount(), bytes, id);
    IncrementEntryCount();
    return S_OK;
}

HRESULT MTIndex::FinishBulkLoad(bool merge) {
    if (!IsBulkLoading()) return E_UNEXPECTED;
    HRESULT hr = S_OK;
    if (merge) {
        MTSearch search;
        MTKey key;
        int32_t id = 0;
        hr = SearchFirst(search);
        while (SUCCEEDED(hr) && (hr = search.Next(key, id)) == S_OK) hr = BulkInsert(key, id);
    }
    if (SUCCEEDED(hr)) hr = CommitAll();
    ForgetCache();
    if (SUCCEEDED(hr)) hr = SetFileLength(0);
    ResetEntryCount();
    if (SUCCEEDED(hr) && !sorter_->Sort()) hr = E_FAIL;
    int32_t first = GetStartBlockForBulkLoad();
    int32_t last = 0;
    if (SUCCEEDED(hr)) hr = WriteLeaves(first, last);
    sorter_.reset();
    levels_ = 1;
    while (SUCCEEDED(hr) && first < last) {
        int32_t levelLast = 0;
        hr = WriteLevel(first, last, levelLast);
        ++levels_;
        first = last + 1;
        last = levelLast;
    }
    if (SUCCEEDED(hr)) hr = PostBulkLoad();
    return SUCCEEDED(hr) ? SetupCache() : hr;
}

HRESULT MTIndex::WriteLeaves(int32_t first, int32_t& last) {
    MTScratchLease lease(*this);
    if (FAILED(lease.Status())) return lease.Status();
    MTNode& leaf = lease.Node();
    HRESULT hr = leaf.CreateNode(first);
    ExternalSort::CompareFunction compare = CompareFor(type_);
    unsigned char previous[kMaxElement];
    ExternalSort::SortElement before{0, previous};
    int32_t size = 0;
    const unsigned char* element = nullptr;
    int next = 0;
    while (SUCCEEDED(hr) && (next = sorter_->Next(&size, &element)) == 0) {
        ExternalSort::SortElement current{size, element};
        if (size < 4 || size > kMaxElement) return E_FAIL;
        if (before.size > 0 && compare(&before, &current) == 0) continue;
        std::memcpy(previous, element, static_cast<size_t>(size));
        before.size = size;
        if (leaf.GetCount() == geometry_.maxKeys) {
            leaf.SetBrother(leaf.GetNodeIndex() + 1);
            hr = leaf.CreateNode(leaf.GetNodeIndex() + 1);
        }
        if (SUCCEEDED(hr)) hr = AddElementTo(leaf, element, size);
    }
    if (SUCCEEDED(hr) && next < 0) hr = E_FAIL;
    leaf.SetBrother(0);
    last = leaf.GetNodeIndex();
    return SUCCEEDED(hr) ? leaf.Commit() : hr;
}

HRESULT MTIndex::WriteLevel(int32_t first, int32_t last, int32_t& levelLast) {
    MTScratchLease lease(*this);
    if (FAILED(lease.Status())) return lease.Status();
    MTNode& node = lease.Node();
    MTNode& child = *spare_;
    HRESULT hr = node.CreateNode(last + 1);
    node.SetLeftmost(first);
    for (int32_t c = first; c < last && SUCCEEDED(hr); ++c) {
        if (node.GetCount() == geometry_.maxKeys) {
            node.SetBrother(node.GetNodeIndex() + 1);
            hr = node.CreateNode(node.GetNodeIndex() + 1);
            node.SetLeftmost(c);
        }
        if (SUCCEEDED(hr)) hr = child.ReadNode(c);
        if (hr == S_OK && child.GetCount() < 1) hr = E_FAIL;
        if (hr == S_OK)
            node.InsertEntry(node.GetCount(), child.GetKeyPtr(child.GetCount() - 1), c + 1);
    }
    levelLast = node.GetNodeIndex();
    if (FAILED(hr)) return hr;
    node.SetBrother(0);
    return node.Commit();
}

HRESULT MTIndex::PostBulkLoad() {
    if (!FlushFileBuffers(file_)) return LastPlatformError();
    rootIndex_ = GetNodeCount();
    return CacheAt(0).ReadNode(rootIndex_);
}

}  // namespace quillet
