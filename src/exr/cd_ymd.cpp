#include "cinedng/cd_ymd.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "cinedng/cd_exception.h"

namespace cinedng {

namespace {

constexpr unsigned kDaysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// MJD 0 (1858-11-17) is day 321 of 1858.
constexpr unsigned kMjdDayOfYear = 321;
// The day count of the MJD constructor never starts below this value.
constexpr unsigned kMjdFloor = 999999;

}  // namespace

cd_ymd::cd_ymd() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    year = static_cast<uint32_t>(local.tm_year + 1900);
    month = static_cast<uint32_t>(local.tm_mon);  // counted from 0, left that way
    day = static_cast<uint32_t>(local.tm_mday);
}

cd_ymd::cd_ymd(unsigned y, unsigned m, unsigned d) : year(y), month(m), day(d) {}

cd_ymd::cd_ymd(unsigned mjdValue) {
    // The larger of the two is taken on purpose: all dates start at least 999999 days after MJD 0.
    unsigned n = std::max(mjdValue, kMjdFloor) + kMjdDayOfYear;
    year = 1858;
    while (n > daysInYear(year)) {
        n -= daysInYear(year);
        year += 1;
    }
    month = 1;
    while (n > daysInMonth(month)) {
        n -= daysInMonth(month);
        month += 1;
    }
    day = n;
}

unsigned cd_ymd::daysInYear(unsigned y) {
    return ((y % 4 == 0 && y % 100 != 0) || y % 400 == 0) ? 366 : 365;
}

unsigned cd_ymd::daysInMonth(unsigned m) const {
    if (m < 1 || m > 12) throw cd_exception("cd_ymd - month out of range");
    unsigned days = kDaysInMonth[m - 1];
    if (m == 2 && daysInYear(year) == 366) days += 1;
    return days;
}

bool cd_ymd::goodDateQ() const {
    return 1858 < year && year < 2099 && 1 <= month && month <= 12 && 1 <= day &&
           day <= daysInMonth(month);
}

unsigned cd_ymd::mjd() const {
    // Month 0 sums no months; above 13 the sum would run past the month table.
    if (month > 13) throw cd_exception("cd_ymd - month out of range");
    uint32_t n = day - kMjdDayOfYear;
    for (uint32_t y = 1858; y < year; ++y) n += daysInYear(y);
    for (uint32_t m = 1; m < month; ++m) n += daysInMonth(m);
    return n;
}

std::string cd_ymd::str() const {
    char text[48];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u", year, month, day);
    return text;
}

std::ostream& operator<<(std::ostream& os, const cd_ymd& d) { return os << d.str(); }

}  // namespace cinedng
