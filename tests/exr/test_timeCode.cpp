// SMPTE time code decoding, validation and printing; calendar dates and MJD conversion.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <sstream>
#include <tuple>

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

constexpr uint64_t bitAt(int n) { return uint64_t{1} << n; }

// Binary groups holding a year-month-day date (two BCD digits each) and a zone code.
constexpr uint64_t ymdGroups(unsigned yy, unsigned mm, unsigned dd, unsigned zone) {
    return (uint64_t{yy} << 32) | (uint64_t{mm} << 40) | (uint64_t{dd} << 48) | (uint64_t{zone} << 56);
}

std::string civil(std::chrono::sys_days d) {
    const std::chrono::year_month_day ymd{d};
    return cd_ymd(int(ymd.year()), unsigned(ymd.month()), unsigned(ymd.day())).str();
}

const std::chrono::sys_days kMjdZero{std::chrono::year{1858} / std::chrono::November / 17};

}  // namespace

TEST(TimeCode, DecodesAndPrintsPlainTimeCode) {
    const smpte_timeCode raw{{0x15, 0x30, 0x20, 0x10, 0, 0, 0, 0}};
    const cd_timeCode tc(&raw, 24.0f);
    EXPECT_EQ(std::tuple(tc.hours, tc.minutes, tc.seconds, tc.frames, tc.bgf), std::tuple(10, 20, 30, 15, 0));
    EXPECT_EQ(tc.strExt(), "10:20:30:15");
    EXPECT_EQ(tc.next(), 0x10203015u);  // next() does not advance
    EXPECT_EQ(cd_timeCode(raw.bytes, 24.0f).next(), tc.smpte());
    EXPECT_EQ(cd_timeCode::fromWords(0x1u, 0xAABBCCDDu, 24.0f).smpte(), 0xAABBCCDD00000001ull);
}

TEST(TimeCode, FrameRateClasses) {
    const struct { float rate; int intRate; bool pal, high, drop; } cases[] = {
        {23.976f, 24, false, false, false}, {25.0f, 25, true, false, false}, {29.96f, 30, false, false, true},
        {29.98f, 30, false, false, true},   {30.0f, 30, false, false, false}, {50.0f, 50, true, true, false},
        {59.94f, 60, false, true, true}};
    for (const auto& c : cases) {
        cd_timeCode tc = fromPacked(0, c.rate);
        EXPECT_EQ(std::tuple(tc.decodeFrameRate(), tc.intRate, tc.isPAL, tc.highRate, tc.dropFrameRate),
                  std::tuple(c.drop, c.intRate, c.pal, c.high, c.drop)) << c.rate;
    }
}

TEST(TimeCode, PrintsDropFrameAndFieldFlagSuffixes) {
    const uint64_t t = 0x01020304;
    const struct { uint64_t packed; float rate; const char* text; } cases[] = {
        {t | bitAt(6), 29.97f, "01:02:03;04"},   {t | bitAt(6), 59.94f, "01:02:03;04.0"},
        {0x12000000, 50.0f, "12:00:00:00.0"},    {0x10000000, 25.0f, "10:00:00:00"},
        {t | bitAt(15), 60.0f, "01:02:03:04.1"}, {t | bitAt(30), 50.0f, "01:02:03:04.1"},  // field flag bit 30 at 25/50
        {t | bitAt(15), 50.0f, "01:02:03:04.0"}, {t | bitAt(15), 24.0f, "01:02:03:04.1"}};
    for (const auto& c : cases) EXPECT_EQ(fromPacked(c.packed, c.rate).str(), c.text) << std::hex << c.packed;
}

TEST(TimeCode, BinaryGroupFlagsDependOnRate) {
    const struct { uint64_t bits; float rate; int bgf; } cases[] = {
        {bitAt(30), 24, 4}, {bitAt(31), 24, 2}, {bitAt(23), 24, 1}, {bitAt(15), 24, 0},
        {bitAt(23), 25, 4}, {bitAt(31), 50, 2}, {bitAt(15), 25, 1}, {bitAt(30), 25, 0},
        {bitAt(31) | bitAt(30), 24, 6}, {bitAt(31) | bitAt(30) | bitAt(23), 30, 7}};
    for (const auto& c : cases) {
        const cd_timeCode tc = fromPacked(c.bits, c.rate);
        EXPECT_EQ(tc.bgf, c.bgf) << std::hex << c.bits;
        EXPECT_EQ(std::tuple(tc.userBitsDefined, tc.charactersInUserBits, tc.dateAndTimeZone),
                  std::tuple(c.bgf == 2 || c.bgf >= 6, c.bgf == 1, c.bgf == 4 || c.bgf == 6));
    }
}

TEST(TimeCode, YearMonthDayDateAndZone) {
    const cd_timeCode tc = fromPacked(0x10203015 | bitAt(30) | ymdGroups(0x69, 0x07, 0x20, 37), 24.0f);
    EXPECT_EQ(tc.date.str(), "2069-07-20");  // tens digit below 7: the 2000s
    EXPECT_EQ(tc.validate(), "");
    std::ostringstream os;
    os << tc;
    EXPECT_EQ(os.str(), "10:20:30:15 2069-07-20 +01:00");
    // Tens digit 7 and above: the 1900s; at 25 the date flag is bit 23.
    EXPECT_EQ(fromPacked(bitAt(23) | ymdGroups(0x70, 0x01, 0x02, 50), 25.0f).strExt(), "00:00:00:00 1970-01-02 +12:45");
    EXPECT_EQ(fromPacked(bitAt(30) | ymdGroups(0x99, 0x01, 0x01, 0), 24.0f).date.year, 1999u);
    // The table has 13 unknown codes, 40 among them; an unknown zone prints no zone.
    EXPECT_EQ(std::count(smpte309_timeZone_strings.begin(), smpte309_timeZone_strings.end(), ""), 13);
    EXPECT_EQ(fromPacked(bitAt(30) | ymdGroups(0x00, 0x01, 0x01, 40), 24.0f).strExt(), "00:00:00:00 2000-01-01");

    // In MJD form (bit 63) six BCD digits never exceed 999999: always the floor date of cd_ymd(mjd).
    EXPECT_EQ(fromPacked(bitAt(30) | bitAt(63) | (0x999999ull << 32), 24).date.str(), cd_ymd(0u).str());
}

TEST(TimeCode, ValidateReportsTheFirstRuleThatFails) {
    // Every problem at once, removed one by one in rule order.
    const uint64_t hours25 = 0x25000000, drop = bitAt(6), field = bitAt(15), date = bitAt(30);
    const struct { uint64_t packed; float rate; const char* message; } cases[] = {
        {hours25 | drop | bitAt(31) | bitAt(23), 24, "ERROR: BGF = 3 is not allowed, reserved"},
        {bitAt(31) | bitAt(15), 25, "ERROR: BGF = 3 is not allowed, reserved"},
        {hours25 | drop | field | date | ymdGroups(0x24, 0x13, 0x01, 40), 24, "WARNING: Time code out of range "},
        {drop | field | date | ymdGroups(0x24, 0x13, 0x01, 40), 24, "WARNING: Date out of range"},
        {drop | field | date | ymdGroups(0x24, 0x12, 0x01, 40), 24, "WARNING: Drop-frame not allowed for this rate"},
        {field | date | ymdGroups(0x24, 0x12, 0x01, 40), 24, "WARNING: Field flag not allowed for this rate"},
        {date | ymdGroups(0x24, 0x12, 0x01, 40), 24, "WARNING: Unknown Time Zone code"},
        {date | ymdGroups(0x24, 0x12, 0x01, 37), 24, ""},
        {date | bitAt(63) | (0x060000ull << 32), 24, "WARNING: Date out of range"},  // MJD form
        {0x23595929, 30, ""},
        {0x00000030, 30, "WARNING: Time code out of range "},
        {0x00006000, 30, "WARNING: Time code out of range "},
        {0x00600000, 30, "WARNING: Time code out of range "},
        {0x00000035, 50, "WARNING: Time code out of range "},  // frames 35: the limit is 29 at every rate
        {bitAt(15), 60, ""},
        {0x12345678ull << 32, 24, "WARNING: BG has undefined non-zero value"},
        {(0x12345678ull << 32) | bitAt(23), 24, ""},                                        // characters
        {(0x12345678ull << 32) | bitAt(31), 24, "WARNING: BG has undefined non-zero value"}};  // bgf 2
    for (const auto& c : cases) EXPECT_EQ(fromPacked(c.packed, c.rate).validate(), c.message) << std::hex << c.packed;
}

TEST(TimeCode, FromFrameCount) {
    EXPECT_EQ(cd_timeCode(((10 * 60 + 20) * 60 + 30) * 25 + 15, 25.0f, 0).smpte(), 0x10203015u);
    EXPECT_EQ(cd_timeCode(24 * 3600 * 24 + 1, 24.0f, 0).str(), "00:00:00:01");  // hours wrap at 24
    // 29.97 counts as 30 frames a second; the third argument only marks the code as drop frame.
    const cd_timeCode drop(30 * 61 + 7, 29.97f, 1);
    EXPECT_EQ(drop.smpte(), 0x00010107ull | bitAt(6));
    EXPECT_EQ(drop.validate(), "");
    EXPECT_EQ(cd_timeCode(7, 25.0f, 1).validate(), "WARNING: Drop-frame not allowed for this rate");
    // Frame tens above 3 do not fit their two bits and must not spill into the drop-frame flag.
    EXPECT_EQ(cd_timeCode(45, 50.0f, 0).smpte(), 0x05ull);
    EXPECT_THROW(cd_timeCode(10, 0.4f, 0), cd_exception);
}

TEST(Ymd, TodayHasAZeroBasedMonthAndCalendarRules) {
    // Today's date, also the date of a time code without one, counts months from 0.
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const cd_ymd today = fromPacked(0x10203015, 24.0f).date;
    EXPECT_EQ(std::tuple(today.year, today.month, today.day),
              std::tuple(uint32_t(local.tm_year + 1900), uint32_t(local.tm_mon), uint32_t(local.tm_mday)));

    EXPECT_EQ(cd_ymd(2100, 1, 1).daysInMonth(2), 28u);
    EXPECT_EQ(cd_ymd(2000, 1, 1).daysInMonth(2), 29u);
    EXPECT_THROW(cd_ymd(2023, 1, 1).daysInMonth(13), cd_exception);
    EXPECT_TRUE(cd_ymd(2098, 12, 31).goodDateQ() && cd_ymd(2096, 2, 29).goodDateQ());
    for (const cd_ymd& bad : {cd_ymd(2099, 1, 1), cd_ymd(2098, 2, 29), cd_ymd(1858, 12, 31), cd_ymd(2020, 13, 1),
                              cd_ymd(2020, 4, 31), cd_ymd(2020, 0, 1)})
        EXPECT_FALSE(bad.goodDateQ()) << bad.str();
    EXPECT_EQ(cd_ymd(987, 11, 5).str(), "0987-11-05");
}

TEST(Ymd, MjdAgreesWithTheCivilCalendar) {
    using namespace std::chrono;
    for (sys_days d = kMjdZero; d < sys_days{year{2099} / January / 1}; d += days{97}) {
        const year_month_day ymd{d};
        const cd_ymd ours(int(ymd.year()), unsigned(ymd.month()), unsigned(ymd.day()));
        ASSERT_EQ(ours.mjd(), static_cast<unsigned>((d - kMjdZero).count())) << ours.str();
    }
    EXPECT_EQ(cd_ymd(1858, 11, 16).mjd(), 0xFFFFFFFFu);  // before MJD 0 the unsigned count wraps
    EXPECT_EQ(cd_ymd(2000, 0, 1).mjd(), cd_ymd(2000, 1, 1).mjd());  // month 0 adds no months
}

TEST(Ymd, FromMjdStartsAtTheLargerOfMjdAnd999999) {
    using std::chrono::days;
    const std::string floorDate = civil(kMjdZero + days{999999});
    for (unsigned mjd : {0u, 51544u, 999999u}) EXPECT_EQ(cd_ymd(mjd).str(), floorDate) << mjd;
    for (unsigned mjd : {1000000u, 1000365u, 1234567u}) {  // above the floor the conversion is exact
        EXPECT_EQ(cd_ymd(mjd).str(), civil(kMjdZero + days{mjd}));
        EXPECT_EQ(cd_ymd(mjd).mjd(), mjd);
    }
}
