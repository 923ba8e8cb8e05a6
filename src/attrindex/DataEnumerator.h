#pragma once

// DataEnumerator: the source of (record id, value) pairs that
// MTreeIndexBuilder::Create indexes, one column of a table in record order.

#include <cstdint>

#include "foundation/Export.h"
#include "foundation/Variant.h"

namespace quillet {

class QUILLET_EXPORT DataEnumerator {
public:
    virtual ~DataEnumerator() = default;
    // The next pair into id and value (which the caller has cleared); false
    // at the end. A record without a value to index is skipped, not yielded.
    virtual bool Next(int32_t& id, VARIANT& value) = 0;
};

}  // namespace quillet
