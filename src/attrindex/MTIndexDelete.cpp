// Delete: remove the entry from its leaf; a node that falls below half full
// shares with or merges into its right brother, an empty last node of its
// level is freed, and an interior root left with one child gives way to it.
// Separators of changed nodes are rewritten and those of nodes gone are
// removed one level up.

#include <algorithm>

#include "attrindex/MTIndex.h"
#include "attrindex/MTScratchLease.h"

namespace quillet {

HRESULT MTIndex::Delete(const MTKey& key, int32_t id) {
    HRESULT hr = CheckKey(key);
    if (FAILED(hr)) return hr;
    if (IsBulkLoading()) return E_UNEXPECTED;
    if (tracing_) Trace(L'D', key, id);
    unsigned char bytes[kMaxStringWidth];
    MTKey stored;
    hr = StoredForm(key, bytes, stored);
    if (SUCCEEDED(hr)) hr = DoSearchKey(stored, id, Descent::kExact);
    if (hr != S_OK) return FAILED(hr) ? hr : S_OK;
    if (CacheAt(levels_ - 1).Compare(stored, id) != 0) return S_OK;
    return DoDelete(levels_ - 1);
}

HRESULT MTIndex::DoDelete(int32_t level) {
    MTNode& node = CacheAt(level);
    bool leaf = level == levels_ - 1;
    bool wasLast = node.GetCursor() == node.GetCount() - 1;
    node.Delete();
    int32_t count = node.GetCount();
    bool hasBrother = node.GetBrother() != 0;
    if ((!hasBrother || count >= geometry_.minKeys) && !wasLast) {
        HRESULT hr = node.Commit();
        if (SUCCEEDED(hr) && leaf) DecrementEntryCount();
        return hr;
    }
    if (level == 0) {
        if (!leaf && count == 0) return ShrinkTree();
        HRESULT hr = node.Commit();
        if (SUCCEEDED(hr) && leaf) DecrementEntryCount();
        return hr;
    }
    HRESULT hr = !leaf && wasLast ? UpdateBrother(node) : S_OK;
    // The pair of the parent to remove, when a node goes: -1 for none.
    int32_t removed = -1;
    MTNode& parent = CacheAt(level - 1);
    MTScratchLease lease(*this);
    if (SUCCEEDED(hr)) hr = lease.Status();
    if (SUCCEEDED(hr) && count < geometry_.minKeys && hasBrother) {
        MTNode& brother = lease.Node();
        hr = ReadRightBrother(level, brother);
        if (SUCCEEDED(hr) && count + brother.GetCount() > geometry_.maxKeys) {
            MTNode* pair[] = {&node, &brother};
            hr = Spread(pair, 2, pair, 2, nullptr, 0, 0);
        } else if (SUCCEEDED(hr)) {
            MTNode* pair[] = {&node, &brother};
            node.SetBrother(brother.GetBrother());
            hr = Spread(pair, 2, pair, 1, nullptr, 0, 0);
            brother.Zero();
            if (SUCCEEDED(hr)) hr = AddToFreeList(brother);
            if (SUCCEEDED(hr)) hr = brother.Commit();
            removed = parent.GetCursor();
        }
    } else if (SUCCEEDED(hr) && count == 0 && !hasBrother) {
        // The last node of its level empties: its left neighbour becomes last.
        node.Zero();
        hr = AddToFreeList(node);
        if (SUCCEEDED(hr)) hr = node.Commit();
        removed = parent.GetCursor() - 1;
        if (SUCCEEDED(hr)) hr = ReadChild(level, removed, lease.Node());
        if (SUCCEEDED(hr)) {
            lease.Node().SetBrother(0);
            hr = lease.Node().Commit();
        }
    }
    if (SUCCEEDED(hr)) hr = node.Commit();
    if (FAILED(hr)) return hr;
    if (leaf) DecrementEntryCount();
    lease.Release();
    if (removed < 0) return DoUpdate(level);
    parent.SetCursor(removed);
    return DoDelete(level - 1);
}

HRESULT MTIndex::ShrinkTree() {
    MTNode& root = CacheAt(0);
    MTNode& child = CacheAt(1);
    HRESULT hr = child.ReadNode(root.GetLeftmost());
    if (hr != S_OK) return FAILED(hr) ? hr : E_FAIL;
    int32_t rootIndex = root.GetNodeIndex();
    hr = root.CopyFrom(child);
    if (FAILED(hr)) return hr;
    root.SetNodeIndex(rootIndex);
    root.SetBrother(0);
    child.Zero();
    hr = AddToFreeList(child);
    if (SUCCEEDED(hr)) hr = child.Commit();
    if (SUCCEEDED(hr)) hr = root.Commit();
    if (FAILED(hr)) return hr;
    // Every level below moves one up.
    std::rotate(cache_.begin() + 1, cache_.begin() + 2, cache_.begin() + levels_);
    --levels_;
    CacheAt(levels_).Forget();
    return WriteMetadata();
}

}  // namespace quillet
