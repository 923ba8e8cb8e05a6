#pragma once

// Borrows an index's scratch node for one scope and gives it back. Internal to
// the index.

#include "attrindex/MTIndex.h"

namespace quillet {

class MTScratchLease {
public:
    explicit MTScratchLease(MTIndex& index) : index_(index) { hr_ = index.GetScratchNode(&node_); }
    ~MTScratchLease() { Release(); }
    MTScratchLease(const MTScratchLease&) = delete;
    MTScratchLease& operator=(const MTScratchLease&) = delete;

    HRESULT Status() const { return hr_; }
    MTNode& Node() { return *node_; }
    void Release() {
        if (SUCCEEDED(hr_) && node_) index_.ReleaseScratchNode();
        node_ = nullptr;
    }

private:
    MTIndex& index_;
    MTNode* node_ = nullptr;
    HRESULT hr_;
};

}  // namespace quillet
