#include "DateField.h"

#include "foundation/Variant.h"

namespace quillet::python {

namespace {

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : days[month - 1];
}

// Eight digits naming a day of the calendar the library accepts (years 100
// to 9999), which is what nearly every stored date is: read without the
// library's round trip through wide text and an OLE date.
std::optional<CalendarDate> PlainDate(const char* raw) {
    int digits[8];
    for (int i = 0; i < 8; ++i) {
        if (raw[i] < '0' || raw[i] > '9') return std::nullopt;
        digits[i] = raw[i] - '0';
    }
    CalendarDate date{digits[0] * 1000 + digits[1] * 100 + digits[2] * 10 + digits[3],
                      digits[4] * 10 + digits[5], digits[6] * 10 + digits[7]};
    if (date.year < 100 || date.month < 1 || date.month > 12 || date.day < 1 ||
        date.day > DaysInMonth(date.year, date.month)) {
        return std::nullopt;
    }
    return date;
}

}  // namespace

std::optional<CalendarDate> ReadDate(DBase& table, int field) {
    if (table.GetFieldWidth(field) >= 8) {
        if (auto date = PlainDate(table.GetFieldPointer(field))) return date;
    }
    // Anything else is read as the library reads it: spaces, short fields
    // and dates out of its range included.
    Variant value;
    SYSTEMTIME time{};
    if (!table.GetValue(field, value) || value.vt != VT_DATE ||
        !VariantTimeToSystemTime(value.date, &time)) {
        return std::nullopt;
    }
    return CalendarDate{time.wYear, time.wMonth, time.wDay};
}

std::optional<double> OleDateOf(const CalendarDate& date, int hour, int minute, int second) {
    SYSTEMTIME time{};
    time.wYear = static_cast<uint16_t>(date.year);
    time.wMonth = static_cast<uint16_t>(date.month);
    time.wDay = static_cast<uint16_t>(date.day);
    time.wHour = static_cast<uint16_t>(hour);
    time.wMinute = static_cast<uint16_t>(minute);
    time.wSecond = static_cast<uint16_t>(second);
    DATE ole = 0;
    if (!SystemTimeToVariantTime(&time, &ole)) return std::nullopt;
    return ole;
}

int64_t DaysSinceEpoch(const CalendarDate& date) {
    // Days from civil, over 400-year eras of 146097 days each.
    int64_t year = date.month <= 2 ? date.year - 1 : date.year;
    int64_t era = (year >= 0 ? year : year - 399) / 400;
    int64_t yearOfEra = year - era * 400;
    int64_t dayOfYear = (153 * (date.month + (date.month > 2 ? -3 : 9)) + 2) / 5 + date.day - 1;
    int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

}  // namespace quillet::python
