// Insert: place the entry in its leaf; a full node first shares with its
// right brother, else two nodes become three, and a full root grows the tree
// by one level in place. Separators of new nodes are posted upward.

#include <algorithm>
#include <cstring>

#include "attrindex/MTIndex.h"
#include "attrindex/MTScratchLease.h"

namespace quillet {

namespace {

constexpr size_t kMaxKeyBytes = MTIndex::kMaxStringWidth;

}  // namespace

HRESULT MTIndex::Insert(const MTKey& key, int32_t id) {
    HRESULT hr = CheckKey(key);
    if (FAILED(hr)) return hr;
    if (tracing_) Trace(IsBulkLoading() ? L'B' : L'I', key, id);
    if (IsBulkLoading()) return BulkInsert(key, id);
    unsigned char bytes[kMaxKeyBytes];
    MTKey stored;
    hr = StoredForm(key, bytes, stored);
    if (SUCCEEDED(hr)) hr = DoSearchKey(stored, id, Descent::kExact);
    if (FAILED(hr)) return hr;
    if (hr == S_OK && CacheAt(levels_ - 1).Compare(stored, id) == 0) return S_FALSE;
    return DoInsert(levels_ - 1, bytes, id, false);
}

HRESULT MTIndex::DoInsert(int32_t level, const unsigned char* key, int32_t slot,
                          bool lastKeyRewritten) {
    MTNode& node = CacheAt(level);
    int32_t position = node.GetCursor();
    int32_t count = node.GetCount();
    bool leaf = level == levels_ - 1;
    if (count >= geometry_.maxKeys) {
        return level == 0 ? GrowTree(key, slot) : InsertWithBrother(level, key, slot);
    }
    node.InsertEntry(position, key, slot);
    HRESULT hr = node.Commit();
    if (FAILED(hr)) return hr;
    if (leaf) IncrementEntryCount();
    if (position == count && !leaf) hr = UpdateBrother(node);
    if (SUCCEEDED(hr) && (position == count || lastKeyRewritten)) hr = DoUpdate(level);
    return hr;
}

HRESULT MTIndex::InsertWithBrother(int32_t level, const unsigned char* key, int32_t slot) {
    MTNode& node = CacheAt(level);
    MTScratchLease lease(*this);
    if (FAILED(lease.Status())) return lease.Status();
    MTNode& other = lease.Node();
    if (node.GetBrother() == 0) {
        HRESULT hr = ReadChild(level, CacheAt(level - 1).GetCursor() - 1, other);
        return FAILED(hr) ? hr : SplitTwoIntoThree(level, lease, false, key, slot);
    }
    HRESULT hr = ReadRightBrother(level, other);
    if (FAILED(hr)) return hr;
    int32_t total = node.GetCount() + other.GetCount();
    if (total <= geometry_.maxKeys || total >= 2 * geometry_.maxKeys - 1) {
        return SplitTwoIntoThree(level, lease, true, key, slot);
    }
    MTNode* pair[] = {&node, &other};
    hr = Spread(pair, 2, pair, 2, key, slot, node.GetCursor());
    if (FAILED(hr)) return hr;
    if (level == levels_ - 1) IncrementEntryCount();
    lease.Release();
    return DoUpdate(level);
}

HRESULT MTIndex::SplitTwoIntoThree(int32_t level, MTScratchLease& lease, bool otherIsRight,
                                   const unsigned char* key, int32_t slot) {
    MTNode& node = CacheAt(level);
    MTNode& other = lease.Node();
    MTNode& left = otherIsRight ? node : other;
    MTNode& right = otherIsRight ? other : node;
    int32_t position = node.GetCursor() + (otherIsRight ? 0 : other.GetCount());
    int32_t fresh = 0;
    HRESULT hr = AssignNewNodeIndex(fresh);
    MTNode& middle = *spare_;
    if (SUCCEEDED(hr)) hr = middle.CreateNode(fresh);
    if (FAILED(hr)) return hr;
    middle.SetBrother(right.GetNodeIndex());
    left.SetBrother(fresh);
    MTNode* nodes[] = {&left, &middle, &right};
    hr = Spread(nodes, 3, nodes, 3, key, slot, position);
    if (FAILED(hr)) return hr;
    if (level == levels_ - 1) IncrementEntryCount();

    // In the parent, the pair (left's separator, right) becomes
    // (left's separator, middle) then (middle's separator, right).
    MTNode& parent = CacheAt(level - 1);
    int32_t leftChild = parent.GetCursor() - (otherIsRight ? 0 : 1);
    if (leftChild < 0 || leftChild >= parent.GetCount()) return E_UNEXPECTED;
    size_t width = static_cast<size_t>(geometry_.keyWidth);
    unsigned char leftLast[kMaxKeyBytes];
    std::memcpy(leftLast, left.GetKeyPtr(left.GetCount() - 1), width);
    std::memcpy(parent.GetKeyPtr(leftChild), middle.GetKeyPtr(middle.GetCount() - 1), width);
    parent.MarkDirty();
    parent.SetCursor(leftChild);
    lease.Release();
    bool lastRewritten = leftChild == parent.GetCount() - 1;
    hr = DoInsert(level - 1, leftLast, fresh, lastRewritten);
    return SUCCEEDED(hr) ? WriteMetadata() : hr;
}

HRESULT MTIndex::GrowTree(const unsigned char* key, int32_t slot) {
    if (levels_ >= kMaxLevels) return E_FAIL;
    MTNode& root = CacheAt(0);
    bool leaf = root.IsLeaf();
    int32_t position = root.GetCursor();
    int32_t first = 0;
    int32_t second = 0;
    HRESULT hr = PrepareToGrowTree(first, second);
    MTScratchLease lease(*this);
    if (SUCCEEDED(hr)) hr = lease.Status();
    if (SUCCEEDED(hr)) hr = lease.Node().CreateNode(first);
    if (SUCCEEDED(hr)) hr = spare_->CreateNode(second);
    if (FAILED(hr)) return hr;
    MTNode& low = lease.Node();
    low.SetBrother(second);
    MTNode* halves[] = {&low, spare_.get()};
    MTNode* source[] = {&root};
    hr = Spread(source, 1, halves, 2, key, slot, position);
    if (FAILED(hr)) return hr;

    root.SetEntries(low.GetKeyPtr(low.GetCount() - 1), &second, 1);
    root.SetLeftmost(first);
    root.SetBrother(0);
    hr = root.Commit();
    if (FAILED(hr)) return hr;
    if (leaf) IncrementEntryCount();
    // Every level below the root moves one down; the new level 1 is read on
    // the next descent.
    ++levels_;
    std::rotate(cache_.begin() + 1, cache_.begin() + levels_ - 1, cache_.begin() + levels_);
    CacheAt(1).Forget();
    return WriteMetadata();
}

}  // namespace quillet
