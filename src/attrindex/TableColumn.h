#pragma once

// A table column as the source of an attribute index: the field that
// describes it (type by the variant its values take, precision and scale by
// its width and decimals) and the enumeration of its values.

#include <cstdint>

#include "attrindex/DataEnumerator.h"
#include "foundation/Export.h"
#include "foundation/IField.h"

namespace quillet {

class DBase;

// The field of column `field` of an open table. Columns without values an
// index can hold (memo, unknown types) come out as blobs.
QUILLET_EXPORT Field ColumnField(const DBase& table, int field);

// The records of an open table that are not deleted and have a value in the
// column (a blank date has none), as (record number, value).
class QUILLET_EXPORT TableColumnEnumerator : public DataEnumerator {
public:
    TableColumnEnumerator(DBase& table, int field) : table_(table), field_(field) {}
    bool Next(int32_t& id, VARIANT& value) override;
    bool NextAscii(int32_t& id, VARIANT& value, const char** ascii, int32_t& n) override;
    // Records visited so far, for progress.
    int32_t GetPosition() const { return next_; }
    // Whether the table failed to read a record (the enumeration then ends).
    bool Failed() const { return failed_; }

private:
    // Moves to the next record that is not deleted; false at the end or
    // when the table fails to read it.
    bool Advance();

    DBase& table_;
    int field_;
    int32_t next_ = 0;
    bool failed_ = false;
};

}  // namespace quillet
