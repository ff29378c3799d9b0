#pragma once
// A calendar date as an SMPTE 309 time code can carry it, with conversion from and to the Modified
// Julian Date (MJD 0 is 1858-11-17).
#include <cstdint>
#include <ostream>
#include <string>

namespace cinedng {

class cd_ymd {
public:
    uint32_t year = 0;
    uint32_t month = 0;
    uint32_t day = 0;

    // Today's local date. The month is counted from 0 (January is 0), exactly as the calendar
    // library hands it out; year and day are the usual calendar values.
    cd_ymd();
    cd_ymd(unsigned year, unsigned month, unsigned day);
    // From a Modified Julian Date. The day count starts at the larger of mjd and 999999, so every
    // mjd up to 999999 gives one and the same date.
    explicit cd_ymd(unsigned mjd);

    // 366 for leap years (divisible by 4 and not by 100, or divisible by 400), else 365.
    static unsigned daysInYear(unsigned year);
    // Days of month 1..12 in this record's year. Months outside 1..12 raise a cd_exception.
    unsigned daysInMonth(unsigned month) const;
    // 1858 < year < 2099, 1 <= month <= 12, 1 <= day <= daysInMonth(month).
    bool goodDateQ() const;
    // Modified Julian Date in unsigned 32-bit arithmetic (wraps for dates before 1858-11-17).
    // A month above 13 raises a cd_exception.
    unsigned mjd() const;
    // YYYY-MM-DD, zero-padded.
    std::string str() const;
};

std::ostream& operator<<(std::ostream& os, const cd_ymd& d);

}  // namespace cinedng
