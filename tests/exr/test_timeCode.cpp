// SMPTE time code decoding, validation and printing; calendar dates and MJD conversion.
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <sstream>

#include "cinedng/cd_exception.h"
#include "cinedng/cd_timeCode.h"
#include "cinedng/cd_ymd.h"

using namespace cinedng;

namespace {

// Packed value -> the 8 bytes as a frame stores them (little-endian).
cd_timeCode fromPacked(uint64_t packed, float rate) {
    unsigned char bytes[8];
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(packed >> (8 * i));
    return cd_timeCode(bytes, rate);
}

constexpr uint64_t kTime10203015 = 0x10203015;  // 10:20:30:15, no flags
constexpr uint64_t bitAt(int n) { return uint64_t{1} << n; }

// Binary groups holding a year-month-day date (two BCD digits each) and a zone code.
constexpr uint64_t ymdGroups(unsigned yy, unsigned mm, unsigned dd, unsigned zone) {
    return (uint64_t{yy} << 32) | (uint64_t{mm} << 40) | (uint64_t{dd} << 48) | (uint64_t{zone} << 56);
}

}  // namespace

TEST(TimeCode, DecodesAndPrintsPlainTimeCode) {
    const unsigned char bytes[8] = {0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0};
    cd_timeCode tc(bytes, 24.0f);
    EXPECT_EQ(tc.hours, 10);
    EXPECT_EQ(tc.minutes, 20);
    EXPECT_EQ(tc.seconds, 30);
    EXPECT_EQ(tc.frames, 15);
    EXPECT_EQ(tc.bgf, 0);
    EXPECT_EQ(tc.fieldFlag, 0);
    EXPECT_EQ(tc.str(), "10:20:30:15");
    EXPECT_EQ(tc.strExt(), "10:20:30:15");
    EXPECT_EQ(tc.validate(), "");
    EXPECT_EQ(tc.smpte(), kTime10203015);
    EXPECT_EQ(tc.next(), kTime10203015);
    EXPECT_EQ(tc.next(), kTime10203015);  // next() does not advance

    smpte_timeCode raw;
    for (int i = 0; i < 8; ++i) raw.bytes[i] = bytes[i];
    EXPECT_EQ(cd_timeCode(&raw, 24.0f).str(), "10:20:30:15");
    EXPECT_EQ(cd_timeCode::fromWords(0x10203015u, 0u, 24.0f).smpte(), kTime10203015);
    EXPECT_EQ(cd_timeCode::fromWords(0x1u, 0xAABBCCDDu, 24.0f).smpte(), 0xAABBCCDD00000001ull);
}

TEST(TimeCode, FrameRateClasses) {
    struct Case {
        float rate;
        int intRate;
        bool pal, high, drop;
    };
    for (const Case& c : {Case{23.976f, 24, false, false, false}, Case{25.0f, 25, true, false, false},
                          Case{29.96f, 30, false, false, true}, Case{29.98f, 30, false, false, true},
                          Case{30.0f, 30, false, false, false}, Case{50.0f, 50, true, true, false},
                          Case{59.94f, 60, false, true, true}}) {
        cd_timeCode tc = fromPacked(0, c.rate);
        EXPECT_EQ(tc.decodeFrameRate(), c.drop) << c.rate;
        EXPECT_EQ(tc.intRate, c.intRate) << c.rate;
        EXPECT_EQ(tc.isPAL, c.pal) << c.rate;
        EXPECT_EQ(tc.highRate, c.high) << c.rate;
        EXPECT_EQ(tc.dropFrameRate, c.drop) << c.rate;
    }
}

TEST(TimeCode, DropFrameAndFieldFlagSuffixes) {
    const uint64_t t = 0x01020304;
    EXPECT_EQ(fromPacked(t | bitAt(6), 29.97f).str(), "01:02:03;04");
    EXPECT_EQ(fromPacked(t | bitAt(6), 29.97f).validate(), "");
    EXPECT_EQ(fromPacked(t | bitAt(6), 59.94f).str(), "01:02:03;04.0");
    EXPECT_EQ(fromPacked(0x12000000, 50.0f).str(), "12:00:00:00.0");
    EXPECT_EQ(fromPacked(0x10000000, 25.0f).str(), "10:00:00:00");
    // The field flag is bit 15 at most rates and bit 30 at 25 and 50.
    EXPECT_EQ(fromPacked(t | bitAt(15), 60.0f).str(), "01:02:03:04.1");
    EXPECT_EQ(fromPacked(t | bitAt(30), 50.0f).str(), "01:02:03:04.1");
    EXPECT_EQ(fromPacked(t | bitAt(15), 50.0f).str(), "01:02:03:04.0");
    EXPECT_EQ(fromPacked(t | bitAt(15), 24.0f).str(), "01:02:03:04.1");
}

TEST(TimeCode, BinaryGroupFlagsDependOnRate) {
    // Other rates: bit30 -> 4, bit31 -> 2, bit23 -> 1.
    EXPECT_EQ(fromPacked(bitAt(30), 24.0f).bgf, 4);
    EXPECT_EQ(fromPacked(bitAt(31), 24.0f).bgf, 2);
    EXPECT_EQ(fromPacked(bitAt(23), 24.0f).bgf, 1);
    EXPECT_EQ(fromPacked(bitAt(15), 24.0f).bgf, 0);
    // 25 and 50: bit23 -> 4, bit31 -> 2, bit15 -> 1.
    EXPECT_EQ(fromPacked(bitAt(23), 25.0f).bgf, 4);
    EXPECT_EQ(fromPacked(bitAt(31), 50.0f).bgf, 2);
    EXPECT_EQ(fromPacked(bitAt(15), 25.0f).bgf, 1);
    EXPECT_EQ(fromPacked(bitAt(30), 25.0f).bgf, 0);

    cd_timeCode chars = fromPacked(bitAt(23), 24.0f);
    EXPECT_TRUE(chars.charactersInUserBits);
    EXPECT_FALSE(chars.userBitsDefined);
    EXPECT_FALSE(chars.dateAndTimeZone);
    for (int bgf : {2, 6, 7}) {
        const uint64_t flags = (bgf & 4 ? bitAt(30) : 0) | (bgf & 2 ? bitAt(31) : 0) | (bgf & 1 ? bitAt(23) : 0);
        cd_timeCode tc = fromPacked(flags, 24.0f);
        EXPECT_EQ(tc.bgf, bgf);
        EXPECT_TRUE(tc.userBitsDefined) << bgf;
        EXPECT_EQ(tc.dateAndTimeZone, bgf == 6) << bgf;
    }
}

TEST(TimeCode, YearMonthDayDateAndZone) {
    cd_timeCode tc = fromPacked(kTime10203015 | bitAt(30) | ymdGroups(0x69, 0x07, 0x20, 37), 24.0f);
    ASSERT_TRUE(tc.dateAndTimeZone);
    EXPECT_EQ(tc.date.year, 2069u);
    EXPECT_EQ(tc.date.month, 7u);
    EXPECT_EQ(tc.date.day, 20u);
    EXPECT_EQ(tc.validate(), "");
    EXPECT_EQ(tc.strExt(), "10:20:30:15 2069-07-20 +01:00");
    std::ostringstream os;
    os << tc;
    EXPECT_EQ(os.str(), tc.strExt());

    // Tens digit 7 and above belong to the 1900s; at 25 the date flag is bit 23.
    cd_timeCode seventy = fromPacked(bitAt(23) | ymdGroups(0x70, 0x01, 0x02, 50), 25.0f);
    EXPECT_EQ(seventy.date.str(), "1970-01-02");
    EXPECT_EQ(seventy.strExt(), "00:00:00:00 1970-01-02 +12:45");
    EXPECT_EQ(fromPacked(bitAt(30) | ymdGroups(0x00, 0x01, 0x01, 0), 24.0f).date.year, 2000u);
    EXPECT_EQ(fromPacked(bitAt(30) | ymdGroups(0x99, 0x01, 0x01, 0), 24.0f).date.year, 1999u);

    // bgf 6 carries a date too.
    EXPECT_TRUE(fromPacked(bitAt(30) | bitAt(31) | ymdGroups(0x24, 0x02, 0x29, 0), 24.0f).dateAndTimeZone);
}

TEST(TimeCode, MjdDateFormAlwaysLandsOnTheFloorDate) {
    // Six BCD digits can never exceed 999999, so every MJD-form date is the floor date.
    const cd_ymd floorDate(0u);
    for (uint64_t digits : {0x000000ull, 0x060000ull, 0x999999ull}) {
        cd_timeCode tc = fromPacked(bitAt(30) | bitAt(63) | (digits << 32), 24.0f);
        EXPECT_EQ(tc.date.str(), floorDate.str());
        EXPECT_EQ(tc.validate(), "WARNING: Date out of range");
    }
}

TEST(TimeCode, WithoutDateTheDateIsToday) {
    cd_ymd before;
    cd_timeCode tc = fromPacked(kTime10203015, 24.0f);
    cd_ymd after;
    EXPECT_TRUE(tc.date.str() == before.str() || tc.date.str() == after.str());
}

TEST(TimeCode, ValidateReportsTheFirstRuleThatFails) {
    // Every problem at once, then removed one by one in rule order.
    const uint64_t dateFlag = bitAt(30);
    const uint64_t hours25 = 0x25000000;
    const uint64_t drop = bitAt(6), field = bitAt(15);
    EXPECT_EQ(fromPacked(hours25 | drop | field | dateFlag | ymdGroups(0x24, 0x13, 0x01, 40), 24.0f).validate(),
              "WARNING: Time code out of range ");
    EXPECT_EQ(fromPacked(drop | field | dateFlag | ymdGroups(0x24, 0x13, 0x01, 40), 24.0f).validate(),
              "WARNING: Date out of range");
    EXPECT_EQ(fromPacked(drop | field | dateFlag | ymdGroups(0x24, 0x12, 0x01, 40), 24.0f).validate(),
              "WARNING: Drop-frame not allowed for this rate");
    EXPECT_EQ(fromPacked(field | dateFlag | ymdGroups(0x24, 0x12, 0x01, 40), 24.0f).validate(),
              "WARNING: Field flag not allowed for this rate");
    EXPECT_EQ(fromPacked(dateFlag | ymdGroups(0x24, 0x12, 0x01, 40), 24.0f).validate(),
              "WARNING: Unknown Time Zone code");
    EXPECT_EQ(fromPacked(dateFlag | ymdGroups(0x24, 0x12, 0x01, 39), 24.0f).validate(),
              "WARNING: Unknown Time Zone code");
    EXPECT_EQ(fromPacked(dateFlag | ymdGroups(0x24, 0x12, 0x01, 37), 24.0f).validate(), "");
    // bgf 3 beats everything.
    EXPECT_EQ(fromPacked(hours25 | drop | bitAt(31) | bitAt(23), 24.0f).validate(),
              "ERROR: BGF = 3 is not allowed, reserved");
    EXPECT_EQ(fromPacked(bitAt(31) | bitAt(15), 25.0f).validate(), "ERROR: BGF = 3 is not allowed, reserved");
}

TEST(TimeCode, ValidateRangesAndBinaryGroups) {
    EXPECT_EQ(fromPacked(0x23595929, 30.0f).validate(), "");
    EXPECT_EQ(fromPacked(0x00000030, 30.0f).validate(), "WARNING: Time code out of range ");
    EXPECT_EQ(fromPacked(0x00006000, 30.0f).validate(), "WARNING: Time code out of range ");
    EXPECT_EQ(fromPacked(0x00600000, 30.0f).validate(), "WARNING: Time code out of range ");
    // 45 frames at 50 fps is still out of range: the frame limit is 29 at every rate.
    // (tens 3, units 15: the largest frame number the two tens bits can carry)
    cd_timeCode fifty = fromPacked(0x0000003F, 50.0f);
    EXPECT_EQ(fifty.frames, 45);
    EXPECT_EQ(fifty.validate(), "WARNING: Time code out of range ");
    // Field flag is fine at high rates.
    EXPECT_EQ(fromPacked(bitAt(15), 60.0f).validate(), "");

    const uint64_t groups = 0x12345678ull << 32;
    EXPECT_EQ(fromPacked(groups, 24.0f).validate(), "WARNING: BG has undefined non-zero value");
    EXPECT_EQ(fromPacked(groups | bitAt(23), 24.0f).validate(), "");  // characters
    EXPECT_EQ(fromPacked(0x00000035, 50.0f).validate(), "WARNING: Time code out of range ");
    // Only characters or a date make non-zero binary groups acceptable, not bgf 2 (user defined).
    EXPECT_EQ(fromPacked(groups | bitAt(31), 24.0f).validate(), "WARNING: BG has undefined non-zero value");
}

TEST(TimeCode, FromFrameCount) {
    const int count = ((10 * 60 + 20) * 60 + 30) * 25 + 15;
    cd_timeCode tc(count, 25.0f, 0);
    EXPECT_EQ(tc.smpte(), kTime10203015);
    EXPECT_EQ(tc.str(), "10:20:30:15");
    EXPECT_EQ(tc.validate(), "");

    // Hours wrap at 24; 29.97 counts as 30 frames a second.
    EXPECT_EQ(cd_timeCode(24 * 3600 * 24 + 1, 24.0f, 0).str(), "00:00:00:01");
    EXPECT_EQ(cd_timeCode(30 * 61 + 7, 29.97f, 0).str(), "00:01:01:07");

    // The third argument only marks the code as drop frame; the count is not compensated.
    cd_timeCode drop(30 * 61 + 7, 29.97f, 1);
    EXPECT_EQ(drop.str(), "00:01:01;07");
    EXPECT_EQ(drop.smpte(), 0x00010107ull | bitAt(6));
    EXPECT_EQ(drop.validate(), "");
    EXPECT_EQ(cd_timeCode(7, 25.0f, 1).validate(), "WARNING: Drop-frame not allowed for this rate");

    // Frame tens above 3 do not fit their two bits and must not spill into the drop-frame flag.
    cd_timeCode high(45, 50.0f, 0);
    EXPECT_EQ(high.smpte(), 0x05ull);

    EXPECT_THROW(cd_timeCode(10, 0.4f, 0), cd_exception);
}

TEST(TimeZoneTable, ThirteenUnknownCodes) {
    int empty = 0;
    for (auto zone : smpte309_timeZone_strings) empty += zone.empty();
    EXPECT_EQ(empty, 13);
    EXPECT_EQ(smpte309_timeZone_strings[10], "-00:30");
    EXPECT_EQ(smpte309_timeZone_strings[63], "+00:30");
}

TEST(Ymd, TodayHasAZeroBasedMonth) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    cd_ymd today;
    EXPECT_LE(today.month, 11u);
    EXPECT_EQ(today.month, static_cast<uint32_t>(local.tm_mon));
    EXPECT_EQ(today.year, static_cast<uint32_t>(local.tm_year + 1900));
}

TEST(Ymd, CalendarRules) {
    EXPECT_EQ(cd_ymd(2100, 1, 1).daysInMonth(2), 28u);
    EXPECT_EQ(cd_ymd(2000, 1, 1).daysInMonth(2), 29u);
    EXPECT_THROW(cd_ymd(2023, 1, 1).daysInMonth(13), cd_exception);

    EXPECT_TRUE(cd_ymd(2098, 12, 31).goodDateQ());
    EXPECT_FALSE(cd_ymd(2099, 1, 1).goodDateQ());
    EXPECT_FALSE(cd_ymd(2098, 2, 29).goodDateQ());
    EXPECT_TRUE(cd_ymd(2096, 2, 29).goodDateQ());
    EXPECT_FALSE(cd_ymd(1858, 12, 31).goodDateQ());
    EXPECT_FALSE(cd_ymd(2020, 13, 1).goodDateQ());
    EXPECT_FALSE(cd_ymd(2020, 4, 31).goodDateQ());

    EXPECT_EQ(cd_ymd(987, 11, 5).str(), "0987-11-05");
}

TEST(Ymd, MjdAgreesWithTheCivilCalendar) {
    using namespace std::chrono;
    const sys_days mjdZero = sys_days{year{1858} / November / 17};
    EXPECT_EQ(cd_ymd(1858, 11, 17).mjd(), 0u);
    EXPECT_EQ(cd_ymd(2000, 1, 1).mjd(), 51544u);
    for (sys_days d = mjdZero; d < sys_days{year{2099} / January / 1}; d += days{97}) {
        const year_month_day ymd{d};
        const cd_ymd ours(static_cast<unsigned>(static_cast<int>(ymd.year())), static_cast<unsigned>(ymd.month()),
                          static_cast<unsigned>(ymd.day()));
        ASSERT_EQ(ours.mjd(), static_cast<unsigned>((d - mjdZero).count())) << ours.str();
    }
    // Before MJD 0 the unsigned count wraps.
    EXPECT_EQ(cd_ymd(1858, 11, 16).mjd(), 0xFFFFFFFFu);
}

TEST(Ymd, FromMjdStartsAtTheLargerOfMjdAnd999999) {
    using namespace std::chrono;
    const sys_days expected = sys_days{year{1858} / November / 17} + days{999999};
    const year_month_day ymd{expected};
    const cd_ymd zero(0u);
    EXPECT_EQ(zero.year, static_cast<unsigned>(static_cast<int>(ymd.year())));
    EXPECT_EQ(zero.month, static_cast<unsigned>(ymd.month()));
    EXPECT_EQ(zero.day, static_cast<unsigned>(ymd.day()));
    EXPECT_EQ(zero.mjd(), 999999u);
    EXPECT_NE(zero.str(), "1858-11-17");
    EXPECT_EQ(cd_ymd(51544u).str(), zero.str());
    EXPECT_EQ(cd_ymd(999999u).str(), zero.str());
    // Above the floor the conversion is exact.
    for (unsigned mjd : {1000000u, 1000365u, 1234567u}) {
        const year_month_day want{sys_days{year{1858} / November / 17} + days{mjd}};
        const cd_ymd got(mjd);
        EXPECT_EQ(got.mjd(), mjd);
        EXPECT_EQ(got.year, static_cast<unsigned>(static_cast<int>(want.year()))) << mjd;
        EXPECT_EQ(got.month, static_cast<unsigned>(want.month())) << mjd;
        EXPECT_EQ(got.day, static_cast<unsigned>(want.day())) << mjd;
    }
}
