#pragma once

// MTSearch: a cursor over the entries of an MTIndex in order, filled by
// MTIndex::Search or SearchFirst. It holds its own copy of the leaf at which
// the next entry stands and follows the leaves' brother chain; a chain that
// loops or leaves the leaf level ends the walk with E_FAIL rather than
// running on. The cursor stays valid only until the index is changed or
// closed; the index must outlive it.

#include <cstdint>

#include "attrindex/MTKey.h"
#include "attrindex/MTNode.h"
#include "foundation/Export.h"
#include "foundation/HResult.h"

namespace quillet {

class IFIDSet;
class MTIndex;

class QUILLET_EXPORT MTSearch {
public:
    MTSearch() = default;
    MTSearch(const MTSearch&) = delete;
    MTSearch& operator=(const MTSearch&) = delete;

    bool IsValid() const { return valid_; }
    // The current entry, then advances. S_FALSE when invalid or exhausted.
    HRESULT Next(MTKey& key, int32_t& id);
    // Moves forward to the first entry >= key (after false) or > key. S_FALSE
    // when there is none.
    HRESULT SkipTo(const MTKey& key, bool after);
    // Adds the id of every entry from the cursor up to key (entries equal to
    // it only when inclusive); the cursor stops at the first entry past.
    HRESULT ReadTo(const MTKey& key, bool inclusive, IFIDSet* set);
    // Adds the id of every entry from the cursor to the end.
    HRESULT ReadToEnd(IFIDSet* set);

private:
    friend class MTIndex;

    // Starts at entry `position` of `leaf`; `leaves` bounds the walk.
    HRESULT Start(const MTNode& leaf, int32_t position, int32_t leaves);
    void Invalidate() { valid_ = false; }
    // Moves past the current entry, on to the next leaf when it is used up.
    HRESULT Advance();
    // Moves on from an exhausted leaf to the first entry of the next ones.
    HRESULT SkipExhausted();

    MTNode node_;
    bool valid_ = false;
    int32_t leavesLeft_ = 0;
    HRESULT failure_ = S_OK;
};

}  // namespace quillet
