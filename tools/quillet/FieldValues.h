#pragma once

// A table's field values as other programs expect them in text and JSON:
// what `dbf dump`, `atx query --dump` and `shp dump` print.

#include <string>

#include "Registry.h"
#include "dbase/DBase.h"

namespace quillet::tool {

// The current record's value of `field` for JSON: null when blank; numbers
// as numbers (null when marked as none), dates as "YYYY-MM-DD" (null when the
// library reads no date in them), logicals as true, false or null (unknown).
Json FieldJson(DBase& table, int field);

// The same value as CSV shows it: empty for null, numbers as the table holds
// them.
std::string FieldText(DBase& table, int field);

// A CSV cell, quoted when it has to be.
std::string CsvQuote(const std::string& text);

}  // namespace quillet::tool
