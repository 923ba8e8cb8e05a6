// OLE dates: days since 1899-12-30 with the time of day as the fraction. For
// a negative date the fraction still counts forward from the start of its day,
// so the date is (day number) - (fraction): -1.25 is 1899-12-29 06:00, and
// -0.5 is the same moment as 0.5.

#include <cmath>

#include "foundation/Variant.h"

namespace quillet {

namespace {

constexpr int64_t kSecondsPerDay = 86400;
// Day numbers of 100-01-01 and 10000-01-01: the published range of dates.
constexpr double kFirstDay = -657434.0;
constexpr double kEndDay = 2958466.0;
// 1899-12-30 counted from 1970-01-01.
constexpr int64_t kEpochOffset = -25569;

bool S_IsLeap(int64_t y) {
    return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0);
}

int S_DaysInMonth(int64_t y, int m) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && S_IsLeap(y) ? 29 : kDays[m - 1];
}

// Days from 1970-01-01 of a date of the proleptic Gregorian calendar, and back
// (the era-based algorithm: 400-year eras of 146097 days starting in March).
int64_t S_DaysFromCivil(int64_t y, int64_t m, int64_t d) {
    y -= m <= 2;
    int64_t era = (y >= 0 ? y : y - 399) / 400;
    int64_t yoe = y - era * 400;
    int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void S_CivilFromDays(int64_t z, int64_t* y, int64_t* m, int64_t* d) {
    z += 719468;
    int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    int64_t doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    int64_t mp = (5 * doy + 2) / 153;
    *d = doy - (153 * mp + 2) / 5 + 1;
    *m = mp < 10 ? mp + 3 : mp - 9;
    *y = yoe + era * 400 + (*m <= 2);
}

}  // namespace

int SystemTimeToVariantTime(const SYSTEMTIME* time, DATE* date) {
    if (!time || !date) return 0;
    const SYSTEMTIME& t = *time;
    if (t.wYear < 100 || t.wYear > 9999 || t.wMonth < 1 || t.wMonth > 12 || t.wDay < 1 ||
        t.wDay > S_DaysInMonth(t.wYear, t.wMonth) || t.wHour > 23 || t.wMinute > 59 ||
        t.wSecond > 59) {
        return 0;
    }
    int64_t day = S_DaysFromCivil(t.wYear, t.wMonth, t.wDay) - kEpochOffset;
    double fraction =
        static_cast<double>(t.wHour * 3600 + t.wMinute * 60 + t.wSecond) / kSecondsPerDay;
    *date = day >= 0 ? static_cast<double>(day) + fraction : static_cast<double>(day) - fraction;
    return 1;
}

int VariantTimeToSystemTime(DATE date, SYSTEMTIME* time) {
    if (!time || !(date > kFirstDay - 1.0 && date < kEndDay)) return 0;
    double whole = std::trunc(date);
    auto day = static_cast<int64_t>(whole);
    auto seconds = static_cast<int64_t>(std::round(std::fabs(date - whole) * kSecondsPerDay));
    if (seconds >= kSecondsPerDay) {  // rounded up into the next day
        seconds -= kSecondsPerDay;
        ++day;
    }
    int64_t y, m, d;
    S_CivilFromDays(day + kEpochOffset, &y, &m, &d);
    if (y < 100 || y > 9999) return 0;
    time->wYear = static_cast<uint16_t>(y);
    time->wMonth = static_cast<uint16_t>(m);
    time->wDay = static_cast<uint16_t>(d);
    time->wDayOfWeek = static_cast<uint16_t>(((day + 6) % 7 + 7) % 7);  // 1899-12-30: Saturday
    time->wHour = static_cast<uint16_t>(seconds / 3600);
    time->wMinute = static_cast<uint16_t>(seconds / 60 % 60);
    time->wSecond = static_cast<uint16_t>(seconds % 60);
    time->wMilliseconds = 0;
    return 1;
}

}  // namespace quillet
