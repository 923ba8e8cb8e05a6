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

// The OLE date (days since 1899-12-30, the time of day as the fraction) of a
// day and a time on it; none out of the library's range of years.
std::optional<double> OleDateOf(const CalendarDate& date, int hour = 0, int minute = 0,
                                int second = 0);

// Days since 1970-01-01 (negative before), as numpy's datetime64[D] counts.
int64_t DaysSinceEpoch(const CalendarDate& date);

}  // namespace quillet::python
