#include "attrindex/MTSearch.h"

#include "attrindex/MTIndex.h"
#include "foundation/IFIDSet.h"

namespace quillet {

HRESULT MTSearch::Start(const MTNode& leaf, int32_t position, int32_t leaves) {
    failure_ = S_OK;
    valid_ = false;
    HRESULT hr = node_.CopyFrom(leaf);
    if (FAILED(hr)) return hr;
    node_.SetCursor(position);
    leavesLeft_ = leaves;
    valid_ = true;
    return SkipExhausted();
}

HRESULT MTSearch::Advance() {
    node_.SetCursor(node_.GetCursor() + 1);
    return node_.GetCursor() < node_.GetCount() ? S_OK : SkipExhausted();
}

HRESULT MTSearch::SkipExhausted() {
    while (valid_ && node_.GetCursor() >= node_.GetCount()) {
        int32_t brother = node_.GetBrother();
        valid_ = false;
        if (brother == 0) return S_OK;
        HRESULT hr = --leavesLeft_ < 0 ? E_FAIL : node_.ReadNode(brother);
        if (SUCCEEDED(hr) && !node_.IsLeaf()) hr = E_FAIL;
        if (FAILED(hr)) {
            failure_ = hr;
            return hr;
        }
        node_.SetCursor(0);
        valid_ = true;
    }
    return S_OK;
}

HRESULT MTSearch::Next(MTKey& key, int32_t& id) {
    if (!valid_) return FAILED(failure_) ? failure_ : S_FALSE;
    node_.GetKey(key);
    id = node_.GetId(node_.GetCursor());
    Advance();
    return S_OK;
}

HRESULT MTSearch::SkipTo(const MTKey& key, bool after) {
    if (!valid_) return FAILED(failure_) ? failure_ : S_FALSE;
    MTNode::Bound bound = after ? MTNode::kFirstGreater : MTNode::kFirstNotLess;
    int last = node_.CompareAt(node_.GetCount() - 1, key, true);
    if (after ? last <= 0 : last < 0) return node_.GetOwner()->Search(key, !after, *this);
    int32_t position = node_.FindBound(key, bound);
    if (position > node_.GetCursor()) node_.SetCursor(position);
    return S_OK;
}

HRESULT MTSearch::ReadTo(const MTKey& key, bool inclusive, IFIDSet* set) {
    if (!set) return E_POINTER;
    while (valid_) {
        int c = node_.CompareAt(node_.GetCursor(), key, true);
        if (c > 0 || (c == 0 && !inclusive)) return S_OK;
        HRESULT hr = set->Add(node_.GetId(node_.GetCursor()));
        if (FAILED(hr)) return hr;
        Advance();
    }
    return failure_;
}

HRESULT MTSearch::ReadToEnd(IFIDSet* set) {
    if (!set) return E_POINTER;
    while (valid_) {
        for (int32_t i = node_.GetCursor(); i < node_.GetCount(); ++i) {
            HRESULT hr = set->Add(node_.GetId(i));
            if (FAILED(hr)) return hr;
        }
        node_.SetCursor(node_.GetCount());
        SkipExhausted();
    }
    return failure_;
}

}  // namespace quillet
