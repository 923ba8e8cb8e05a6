#pragma once

// The value of a date field as the library reads it: a calendar date, or none
// for a blank date and one no calendar holds.

#include <cstdint>
#include <optional>

#include "dbase/DBase.h"

namespace quillet::python {

struct CalendarDate {
    int year;
    int month;
    int day;
};

// Date field `field` of the table's current record.
std::optional<CalendarDate> ReadDate(DBase& table, int field);

// Days since 1970-01-01 (negative before), as numpy's datetime64[D] counts.
int64_t DaysSinceEpoch(const CalendarDate& date);

}  // namespace quillet::python
