#pragma once

// Puts text that people give (CSV cells, a --value) into the fields of a
// table's current record, refusing what the field would not keep as given:
// text the table's code page cannot represent, a number that is not one or
// loses digits before its decimal point, a date or logical the library
// refuses. What the field keeps only in part (text cut to the width, digits
// beyond the decimals) is stored and counted, for a warning.

#include <cstdint>
#include <string>

#include "codepage/CodePage.h"
#include "dbase/DBase.h"

namespace quillet::tool {

class FieldWriter {
public:
    explicit FieldWriter(DBase& table);

    // Stores UTF-8 `text` (empty: null) into `field` of the current record.
    // Returns what is wrong with it, or an empty string when it was stored.
    std::string Store(int field, const std::string& text);
    // How many values were stored cut.
    int64_t CutCount() const { return cut_; }

private:
    std::string StoreNumber(int field, const std::string& text);
    std::string Refusal(int field, const std::string& text) const;

    DBase& table_;
    CodePage page_;
    int64_t cut_ = 0;
};

}  // namespace quillet::tool
