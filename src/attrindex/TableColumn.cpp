#include "attrindex/TableColumn.h"

#include "dbase/DBase.h"

namespace quillet {

namespace {

// A float holds about seven digits, so a wider float column has no fixed
// precision; its keys are then plain floats.
constexpr int kFloatDigits = 8;

}  // namespace

Field ColumnField(const DBase& table, int field) {
    String name = table.GetFieldName(field);
    int width = table.GetFieldWidth(field);
    int decimals = table.GetFieldDecimals(field);
    switch (table.GetFieldType(field)) {
        case 'C': return Field(name, qovaFieldTypeString, width);
        case 'D': return Field(name, qovaFieldTypeDate, 8);
        case 'L': return Field(name, qovaFieldTypeSmallInteger, 1, 1);
        case 'F':
            if (width < 14) {
                return Field(name, qovaFieldTypeSingle, width, width <= kFloatDigits ? width : 0,
                             decimals);
            }
            return Field(name, qovaFieldTypeDouble, width, width, decimals);
        case 'N':
            if (decimals == 0 && width < 5) {
                return Field(name, qovaFieldTypeSmallInteger, width, width);
            }
            if (decimals == 0 && width < 10) return Field(name, qovaFieldTypeInteger, width, width);
            if (decimals > 0 && width <= kFloatDigits) {
                return Field(name, qovaFieldTypeSingle, width, width, decimals);
            }
            return Field(name, qovaFieldTypeDouble, width, width, decimals);
        default: return Field(name, qovaFieldTypeBlob, width);
    }
}

bool TableColumnEnumerator::Advance() {
    while (next_ < table_.GetNumRecords()) {
        int32_t record = next_++;
        // IsRecordDeleted moves to the record and reads it; true also when it cannot.
        bool deleted = table_.IsRecordDeleted(record);
        if (table_.GetCurrentRecord() != record) {
            failed_ = true;
            return false;
        }
        if (!deleted) return true;
    }
    return false;
}

bool TableColumnEnumerator::Next(int32_t& id, VARIANT& value) {
    while (Advance()) {
        if (!table_.GetValue(field_, value)) {
            failed_ = true;
            return false;
        }
        if (value.vt == VT_NULL) continue;
        id = table_.GetCurrentRecord();
        return true;
    }
    return false;
}

bool TableColumnEnumerator::NextAscii(int32_t& id, VARIANT& value, const char** ascii,
                                      int32_t& n) {
    *ascii = nullptr;
    if (table_.GetFieldType(field_) != DBase::qovaCharacter) return Next(id, value);
    if (!Advance()) return false;
    id = table_.GetCurrentRecord();
    n = table_.GetFieldAscii(field_, ascii);
    if (n >= 0) return true;
    *ascii = nullptr;
    // A text field always has a value, so that this record is yielded.
    if (table_.GetValue(field_, value)) return true;
    failed_ = true;
    return false;
}

}  // namespace quillet
