// Reshaping neighbour nodes and keeping the level above in step: spreading
// entries over nodes, rewriting separators and brothers' leftmost pointers.

#include <cstring>

#include "attrindex/MTEntryRun.h"
#include "attrindex/MTIndex.h"
#include "attrindex/MTScratchLease.h"

namespace quillet {

HRESULT MTIndex::Spread(MTNode* const* sources, int32_t sourceCount, MTNode* const* targets,
                        int32_t targetCount, const unsigned char* key, int32_t slot,
                        int32_t position) {
    if (!run_) run_ = std::make_unique<MTEntryRun>();
    if (run_->keyWidth != geometry_.keyWidth ||
        run_->slots.size() < 3 * static_cast<size_t>(geometry_.maxKeys) + 1) {
        run_->Reserve(geometry_.maxKeys, geometry_.keyWidth);
    }
    MTEntryRun& run = *run_;
    run.count = 0;
    int32_t leftmost = sources[0]->GetLeftmost();
    for (int32_t s = 0; s < sourceCount; ++s) {
        for (int32_t i = 0; i < sources[s]->GetCount(); ++i) {
            run.Append(sources[s]->GetKeyPtr(i), sources[s]->GetId(i));
        }
    }
    int32_t total = run.count;
    int32_t sizes[3];
    for (int32_t j = 0; j < targetCount; ++j) sizes[j] = (total + j) / targetCount;
    if (key) {
        int32_t j = 0;
        for (int32_t start = 0; j + 1 < targetCount && position >= start + sizes[j]; ++j) {
            start += sizes[j];
        }
        run.InsertAt(position, key, slot);
        ++sizes[j];
    }
    HRESULT hr = S_OK;
    for (int32_t j = 0, start = 0; j < targetCount; start += sizes[j++]) {
        if (sizes[j] > geometry_.maxKeys) return E_UNEXPECTED;
        targets[j]->SetEntries(run.KeyAt(start), run.slots.data() + start, sizes[j]);
        // The leftmost child of a right neighbour repeats the last child left of it.
        targets[j]->SetLeftmost(
            leftmost == 0 || j == 0 ? leftmost : run.slots[static_cast<size_t>(start - 1)]);
    }
    for (int32_t j = 0; j < targetCount && SUCCEEDED(hr); ++j) hr = targets[j]->Commit();
    return hr;
}

HRESULT MTIndex::DoUpdate(int32_t level) {
    if (level == 0) return S_OK;
    MTNode& node = CacheAt(level);
    MTNode& parent = CacheAt(level - 1);
    int32_t child = parent.GetCursor();
    if (child > parent.GetCount() || parent.GetChild(child) != node.GetNodeIndex()) {
        return E_UNEXPECTED;
    }
    // The last child of its level has no separator.
    if (child == parent.GetCount() || node.GetCount() < 1) return S_OK;
    const unsigned char* last = node.GetKeyPtr(node.GetCount() - 1);
    unsigned char* separator = parent.GetKeyPtr(child);
    if (std::memcmp(separator, last, static_cast<size_t>(geometry_.keyWidth)) == 0) return S_OK;
    std::memcpy(separator, last, static_cast<size_t>(geometry_.keyWidth));
    parent.MarkDirty();
    HRESULT hr = parent.Commit();
    if (FAILED(hr) || child != parent.GetCount() - 1) return hr;
    return DoUpdate(level - 1);
}

HRESULT MTIndex::UpdateBrother(const MTNode& node) {
    if (node.GetBrother() == 0) return S_OK;
    MTScratchLease lease(*this);
    if (FAILED(lease.Status())) return lease.Status();
    MTNode& brother = lease.Node();
    HRESULT hr = brother.ReadNode(node.GetBrother());
    if (hr != S_OK) return FAILED(hr) ? hr : E_FAIL;
    if (brother.GetLeftmost() == node.GetLastChild()) return S_OK;
    brother.SetLeftmost(node.GetLastChild());
    return brother.Commit();
}

HRESULT MTIndex::ReadChild(int32_t level, int32_t childIndex, MTNode& into) {
    MTNode& parent = CacheAt(level - 1);
    if (childIndex < 0 || childIndex > parent.GetCount()) return E_UNEXPECTED;
    HRESULT hr = into.ReadNode(parent.GetChild(childIndex));
    return hr == S_FALSE ? E_FAIL : hr;
}

HRESULT MTIndex::ReadRightBrother(int32_t level, MTNode& into) {
    // The brother must be the parent's next child, or the path is not the tree.
    MTNode& node = CacheAt(level);
    MTNode& parent = CacheAt(level - 1);
    int32_t next = parent.GetCursor() + 1;
    if (next > parent.GetCount() || parent.GetChild(next) != node.GetBrother()) return E_UNEXPECTED;
    return ReadChild(level, next, into);
}

}  // namespace quillet
