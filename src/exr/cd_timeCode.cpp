#include "cinedng/cd_timeCode.h"

#include <cmath>
#include <cstdio>

#include "cinedng/cd_exception.h"

namespace cinedng {

const std::array<std::string_view, 64> smpte309_timeZone_strings = {
    "+00:00", "-01:00", "-02:00", "-03:00", "-04:00", "-05:00", "-06:00", "-07:00",  //  0- 7
    "-08:00", "-09:00", "-00:30", "-01:30", "-02:30", "-03:30", "-04:30", "-05:30",  //  8-15
    "-10:00", "-11:00", "-12:00", "+13:00", "+12:00", "+11:00", "+10:00", "+09:00",  // 16-23
    "+08:00", "+07:00", "-06:30", "-07:30", "-08:30", "-09:30", "-10:30", "-11:30",  // 24-31
    "+06:00", "+05:00", "+04:00", "+03:00", "+02:00", "+01:00", "",       "",        // 32-39
    "",       "",       "+11:30", "+10:30", "+09:30", "+08:30", "+07:30", "+06:30",  // 40-47
    "",       "",       "+12:45", "",       "",       "",       "",       "",        // 48-55
    "",       "",       "+05:30", "+04:30", "+03:30", "+02:30", "+01:30", "+00:30",  // 56-63
};

namespace {

inline unsigned bit(uint64_t v, int n) { return static_cast<unsigned>((v >> n) & 1u); }
inline unsigned nibble(uint64_t v, int lowBit) { return static_cast<unsigned>((v >> lowBit) & 0xFu); }

uint64_t packedFromBytes(const unsigned char* b) {
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | b[i];
    return v;
}

// Two BCD digits of value; the tens digit is cut to the width of its field (tensMask).
uint64_t bcd(int value, int lowBit, unsigned tensMask) {
    unsigned v = static_cast<unsigned>(value);
    uint64_t units = v % 10u;
    uint64_t tens = (v / 10u) & tensMask;
    return (units | (tens << 4)) << lowBit;
}

const char* kTimeCodeNull = "cd_timeCode - the time code bytes may not be null";

}  // namespace

cd_timeCode::cd_timeCode(const smpte_timeCode* tc, float rate) : frameRate(rate) {
    if (tc == nullptr) throw cd_exception(kTimeCodeNull);
    smpte_ = packedFromBytes(tc->bytes);
    decode();
}

cd_timeCode::cd_timeCode(const unsigned char* bytes, float rate) : frameRate(rate) {
    if (bytes == nullptr) throw cd_exception(kTimeCodeNull);
    smpte_ = packedFromBytes(bytes);
    decode();
}

cd_timeCode::cd_timeCode(int frameCount, float rate, int dropFrame) : frameRate(rate) {
    decodeFrameRate();
    const int r = intRate;
    if (r < 1) throw cd_exception("cd_timeCode - the frame rate must be at least 1");
    const int h = (frameCount / r / 60 / 60) % 24;
    const int m = (frameCount / r / 60) % 60;
    const int s = (frameCount / r) % 60;
    const int f = frameCount % r;
    uint64_t packed = bcd(f, 0, 0x3u) | bcd(s, 8, 0x7u) | bcd(m, 16, 0x7u) | bcd(h, 24, 0x3u);
    if (dropFrame != 0) packed |= uint64_t{1} << 6;
    smpte_ = packed;
    decode();
}

cd_timeCode cd_timeCode::fromWords(uint32_t timeAndFlags, uint32_t userData, float rate) {
    smpte_timeCode tc;
    for (int i = 0; i < 4; ++i) {
        tc.bytes[i] = static_cast<unsigned char>(timeAndFlags >> (8 * i));
        tc.bytes[4 + i] = static_cast<unsigned char>(userData >> (8 * i));
    }
    return cd_timeCode(&tc, rate);
}

bool cd_timeCode::decodeFrameRate() {
    intRate = static_cast<int>(std::lround(frameRate));
    isPAL = frameRate == 25.0f || frameRate == 50.0f;
    highRate = frameRate > 30.0f;
    const float half = frameRate / 2.0f;
    dropFrameRate = (frameRate >= 29.96f && frameRate <= 29.98f) || (half >= 29.96f && half <= 29.98f);
    return dropFrameRate;
}

void cd_timeCode::decode() {
    decodeFrameRate();
    const uint64_t v = smpte_;
    if (isPAL) {
        bgf = static_cast<int>(4 * bit(v, 23) + 2 * bit(v, 31) + bit(v, 15));
        fieldFlag = static_cast<int>(bit(v, 30));
    } else {
        bgf = static_cast<int>(4 * bit(v, 30) + 2 * bit(v, 31) + bit(v, 23));
        fieldFlag = static_cast<int>(bit(v, 15));
    }
    userBitsDefined = bgf == 2 || bgf == 6 || bgf == 7;
    charactersInUserBits = bgf == 1;
    dateAndTimeZone = bgf == 4 || bgf == 6;

    frames = static_cast<int>(10 * ((v >> 4) & 0x3u) + nibble(v, 0));
    seconds = static_cast<int>(10 * ((v >> 12) & 0x7u) + nibble(v, 8));
    minutes = static_cast<int>(10 * ((v >> 20) & 0x7u) + nibble(v, 16));
    hours = static_cast<int>(10 * ((v >> 28) & 0x3u) + nibble(v, 24));

    if (dateAndTimeZone) {
        if (bit(v, 63)) {
            unsigned mjdValue = 0;
            for (int lowBit = 52; lowBit >= 32; lowBit -= 4) mjdValue = mjdValue * 10 + nibble(v, lowBit);
            date = cd_ymd(mjdValue);
        } else {
            const unsigned tens = nibble(v, 36);
            const unsigned year = tens * 10 + nibble(v, 32) + (tens < 7 ? 2000 : 1900);
            const unsigned month = 10 * nibble(v, 44) + nibble(v, 40);
            const unsigned day = 10 * nibble(v, 52) + nibble(v, 48);
            date = cd_ymd(year, month, day);
        }
    }
}

uint64_t cd_timeCode::next() const { return smpte_; }

uint64_t cd_timeCode::smpte() const { return smpte_; }

std::string cd_timeCode::validate() const {
    const std::string error = "ERROR: ";
    const std::string warning = "WARNING: ";
    if (bgf == 3) return error + "BGF = 3 is not allowed, reserved";
    if (hours > 23 || minutes > 59 || seconds > 59 || frames > 29)
        return warning + "Time code out of range ";
    if (dateAndTimeZone && !date.goodDateQ()) return warning + "Date out of range";
    if (dropFrameFlag() && !dropFrameRate) return warning + "Drop-frame not allowed for this rate";
    if (fieldFlag && !highRate) return warning + "Field flag not allowed for this rate";
    if (dateAndTimeZone && smpte309_timeZone_strings[timeZoneCode()].empty())
        return warning + "Unknown Time Zone code";
    if (!charactersInUserBits && !dateAndTimeZone && (smpte_ >> 32) != 0)
        return warning + "BG has undefined non-zero value";
    return std::string();
}

std::string cd_timeCode::str() const {
    char text[64];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d%s", hours, minutes, seconds,
                  dropFrameFlag() ? ';' : ':', frames,
                  fieldFlag ? ".1" : (highRate ? ".0" : ""));
    return text;
}

std::string cd_timeCode::strExt() const {
    std::string text = str();
    if (dateAndTimeZone) {
        text += ' ';
        text += date.str();
        const std::string_view zone = smpte309_timeZone_strings[timeZoneCode()];
        if (!zone.empty()) {
            text += ' ';
            text += zone;
        }
    }
    return text;
}

std::ostream& operator<<(std::ostream& os, const cd_timeCode& tc) { return os << tc.strExt(); }

}  // namespace cinedng
