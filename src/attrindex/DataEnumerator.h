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
    // As Next, but a text value that is all ASCII may come back as its bytes
    // instead: *ascii then points at its n bytes (no zero among them, valid
    // until the next call) and value stays empty. Indexing a text column so
    // skips the round trip through wide characters. By default every value
    // comes as a variant (*ascii null).
    virtual bool NextAscii(int32_t& id, VARIANT& value, const char** ascii, int32_t& n) {
        *ascii = nullptr;
        n = 0;
        return Next(id, value);
    }
};

}  // namespace quillet
