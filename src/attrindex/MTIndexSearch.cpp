// Descending the tree: the search for a key or an exact entry, the walk to a
// neighbour that keeps the cached path consistent, and the cursor searches.

#include "attrindex/MTIndex.h"
#include "attrindex/MTSearch.h"

namespace quillet {

namespace {

MTNode::Bound BoundOf(bool greater, bool exact) {
    return greater ? MTNode::kFirstGreater
                   : (exact ? MTNode::kFirstNotLessExact : MTNode::kFirstNotLess);
}

// A child that must exist: node 0 ("nothing") is a corrupt pointer here.
HRESULT Required(HRESULT hr) {
    return hr == S_FALSE ? E_FAIL : hr;
}

}  // namespace

HRESULT MTIndex::DoSearchKey(const MTKey& key, int32_t id, Descent descent) {
    HRESULT hr = Required(CacheAt(0).ReadNode(rootIndex_));
    MTNode::Bound bound = BoundOf(descent == Descent::kGreater, descent == Descent::kExact);
    for (int32_t level = 0; SUCCEEDED(hr) && level + 1 < levels_; ++level) {
        MTNode& node = CacheAt(level);
        if (node.IsLeaf()) return E_FAIL;
        int32_t child = node.FindBound(key, bound);
        node.SetCursor(child);
        hr = Required(CacheAt(level + 1).ReadNode(node.GetChild(child)));
    }
    if (FAILED(hr)) return hr;
    if (!CacheAt(levels_ - 1).IsLeaf()) return E_FAIL;
    return PlaceInLeaf(key, id, descent);
}

HRESULT MTIndex::PlaceInLeaf(const MTKey& key, int32_t id, Descent descent) {
    MTNode& leaf = CacheAt(levels_ - 1);
    auto place = [&] {
        return descent == Descent::kExact
                   ? leaf.FindEntry(key, id)
                   : leaf.FindBound(key, BoundOf(descent == Descent::kGreater, false));
    };
    int32_t position = place();
    // Entries of one key may run on into the next leaves.
    int32_t steps = 0;
    while (position == leaf.GetCount() && leaf.GetBrother() != 0) {
        if (++steps > GetNodeCount()) return E_FAIL;
        HRESULT hr = StepRight(levels_ - 1);
        if (hr != S_OK) return FAILED(hr) ? hr : E_FAIL;
        position = place();
    }
    leaf.SetCursor(position);
    return position < leaf.GetCount() ? S_OK : S_FALSE;
}

HRESULT MTIndex::StepRight(int32_t level) {
    if (level == 0) return S_FALSE;
    MTNode* parent = &CacheAt(level - 1);
    int32_t count = parent->GetCount();
    int32_t child = parent->GetCursor() + 1;
    // The last child of a node that has a brother is that brother's first.
    if (child > count || (child == count && parent->GetBrother() != 0)) {
        HRESULT hr = StepRight(level - 1);
        if (hr != S_OK) return hr;
        parent = &CacheAt(level - 1);
        child = child > count ? 1 : 0;
    }
    if (child > parent->GetCount()) return E_FAIL;
    parent->SetCursor(child);
    MTNode& node = CacheAt(level);
    int32_t next = parent->GetChild(child);
    if (next != node.GetBrother()) return E_FAIL;
    HRESULT hr = Required(node.ReadNode(next));
    node.SetCursor(0);
    return hr;
}

HRESULT MTIndex::DescendEdge(bool last) {
    bool counting = levels_ == 0;
    int32_t deepest = counting ? kMaxLevels : levels_;
    HRESULT hr = Required(CacheAt(0).ReadNode(rootIndex_));
    for (int32_t level = 0; SUCCEEDED(hr); ++level) {
        MTNode& node = CacheAt(level);
        node.SetCursor(last ? node.GetCount() : 0);
        if (node.IsLeaf()) {
            if (counting) levels_ = level + 1;
            return level + 1 == levels_ ? S_OK : E_FAIL;
        }
        if (level + 1 >= deepest) return E_FAIL;
        hr = Required(CacheAt(level + 1).ReadNode(node.GetChild(node.GetCursor())));
    }
    return hr;
}

HRESULT MTIndex::LoadSearch(const MTNode& leaf, MTSearch& search) {
    HRESULT hr = search.Start(leaf, leaf.GetCursor(), GetNodeCount());
    if (FAILED(hr)) return hr;
    return search.IsValid() ? S_OK : S_FALSE;
}

HRESULT MTIndex::SearchKeyValue(const MTKey& key, int32_t id) {
    unsigned char bytes[kMaxStringWidth];
    MTKey stored;
    HRESULT hr = StoredForm(key, bytes, stored);
    if (SUCCEEDED(hr)) hr = DoSearchKey(stored, id, Descent::kExact);
    if (hr != S_OK) return hr;
    return CacheAt(levels_ - 1).Compare(stored, id) == 0 ? S_OK : S_FALSE;
}

HRESULT MTIndex::Search(const MTKey& key, bool inclusive, MTSearch& search) {
    search.Invalidate();
    HRESULT hr = CheckKey(key);
    if (SUCCEEDED(hr))
        hr = DoSearchKey(key, 0, inclusive ? Descent::kInclusive : Descent::kGreater);
    return hr == S_OK ? LoadSearch(CacheAt(levels_ - 1), search) : hr;
}

HRESULT MTIndex::SearchFirst(MTSearch& search) {
    search.Invalidate();
    if (!IsOpen()) return E_UNEXPECTED;
    HRESULT hr = DescendEdge(false);
    return SUCCEEDED(hr) ? LoadSearch(CacheAt(levels_ - 1), search) : hr;
}

HRESULT MTIndex::GetMinKey(MTKey& key) {
    MTSearch search;
    int32_t id = 0;
    HRESULT hr = SearchFirst(search);
    return hr == S_OK ? search.Next(key, id) : hr;
}

HRESULT MTIndex::GetMaxKey(MTKey& key) {
    if (!IsOpen()) return E_UNEXPECTED;
    HRESULT hr = DescendEdge(true);
    if (FAILED(hr)) return hr;
    MTNode& leaf = CacheAt(levels_ - 1);
    if (leaf.GetCount() < 1) return S_FALSE;
    leaf.SetCursor(leaf.GetCount() - 1);
    leaf.GetKey(key);
    return S_OK;
}

}  // namespace quillet
